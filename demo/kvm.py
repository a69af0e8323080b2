"""The KVM part of the demo: the person at the PC consents, and a real viewer sees a real desktop through the service."""

import time

from harness.desktop import Desktop, Viewer, is_same_picture, what_is_missing
from harness.kvm import RemoteKvm, echoes
from harness.processes import build_folder, is_running
from harness.waiting import eventually

YES = 1
LOOPBACK = "127.0.0.1"
DESKTOP_SIZE = (1024, 768)  # what a service under Wine takes the screen for


def draw_desktop(size, what):
    """Returns a picture of the given size for the desktop, with the text `what`."""
    from PIL import Image, ImageDraw
    width, height = size
    picture = Image.merge("RGB", [band.resize(size) for band in (
        Image.new("L", (1, 1), 24), Image.linear_gradient("L").point(lambda value: 60 + value // 4), Image.new("L", (1, 1), 120))])
    draw = ImageDraw.Draw(picture)
    left, top = width // 6, height // 5
    draw.rectangle((left, top, width - left, height - top), fill="whitesmoke", outline="black")
    draw.rectangle((left, top, width - left, top + 24), fill="navy")
    draw.text((left + 10, top + 7), "A desktop of the simulated PC", fill="white")
    for line, text in enumerate((what, "and a viewer sees it on TCP port 22.",
                                 time.strftime("Painted on %Y-%m-%d at %H:%M:%S."))):
        draw.text((left + 20, top + 60 + 24 * line), text, fill="black")
    for place, color in enumerate(("red", "orange", "yellow", "green", "blue", "purple")):
        draw.rectangle((left + 20 + 50 * place, height - top - 70, left + 55 + 50 * place, height - top - 35), fill=color)
    return picture


def open_desktop(story, host, workdir):
    """Returns the desktop of the PC, or None where the packages for it are missing."""
    missing = what_is_missing()
    if missing:
        story.add("demo", f"these packages are not installed: {' '.join(missing)}; the firmware echoes, and shows no desktop")
        return None
    desktop = Desktop(workdir, *DESKTOP_SIZE)
    if host.captures_screen:
        host.use_desktop(desktop)
    story.add("PC", f"an X server shows the desktop, {desktop.size[0]} x {desktop.size[1]} pixels; its VNC server listens on "
                    f"{desktop.address}, and only the firmware connects to it")
    return desktop


def bridge(firmware, desktop):
    """The firmware shows the desktop of the VNC server, and returns its picture. Without one it echoes and returns None."""
    if not desktop:
        firmware.set(Kvm="echo")
        return None
    painted = draw_desktop(desktop.size, "The firmware shows it, the service carries it,")
    desktop.paint(painted)
    firmware.set(Kvm=f"bridge:{desktop.address}")
    return painted


def ask_the_person(story, kvm):
    client = kvm.host.consent_client("--answer", "yes")
    story.add("PC", "userconsent waits on the desktop; it is set to answer yes without asking")
    kvm.ask_consent(1, 60)
    answer = kvm.firmware.await_request("WriteUserConsent")["fields"]
    client.wait()
    story.add("PC", "userconsent: " + ", ".join(client.output().splitlines()))
    if answer["Consent"] != YES:
        raise AssertionError(f"the firmware received {answer}")


def begin(story, kvm):
    kvm.enable()
    kvm.trust(LOOPBACK)
    port = kvm.host.kvm_address[1]
    story.add("demo", f"the firmware trusts {LOOPBACK}, and the KVM port is open ({port} stands for 22 here)")


def see(story, kvm, painted, workdir):
    """Returns the path of the picture."""
    with Viewer(kvm.host.kvm_address, workdir) as viewer:
        story.add("console", "a VNC viewer connects to the KVM port")
        agent = show_agent(story, kvm)
        path = workdir / "screen.png"
        picture = viewer.picture()
        picture.save(path)
        if not is_same_picture(picture, painted):
            raise AssertionError(f"the viewer's picture differs from the desktop: {path}")
        story.add("console", f"the viewer sees the desktop, {picture.width} x {picture.height} pixels")
        end(story, kvm, agent)
        return path


def talk(story, kvm):
    with kvm.begin_session() as client:
        story.add("console", "a plain client connects to the KVM port")
        agent = show_agent(story, kvm)
        if not echoes(client, b"x" * 100_000):
            raise AssertionError("the echoed bytes differ from those that were sent")
        story.add("console", "the firmware echoed 100000 bytes unchanged")
        end(story, kvm, agent)


def show_agent(story, kvm):
    [agent] = eventually(kvm.host.agents, "the agent")
    story.add("PC", f"the agent runs in the user's session as process {agent}")
    return agent


def end(story, kvm, agent):
    kvm.close_session()
    eventually(lambda: not is_running(agent), "the agent to exit")
    story.add("PC", "the agent exited when the service asked it to")
    eventually(kvm.reported_closes, "the report of the session's end")
    kvm.host.await_log("Terminate file deleted")


def remote_kvm(story, host, firmware, desktop, workdir):
    """Returns the path of the picture, or None without a desktop."""
    kvm = RemoteKvm(host, firmware)
    painted = bridge(firmware, desktop)
    ask_the_person(story, kvm)
    begin(story, kvm)
    return see(story, kvm, painted, workdir) if painted else talk(story, kvm)


def serve_by_hand(story, host, firmware, desktop, ended):
    """Enables KVM again after each session, until `ended` is set. Viewers of this machine are trusted, or all with open ports."""
    kvm = RemoteKvm(host, firmware)
    is_open = getattr(host, "description", {}).get("openPorts", False)

    def enable():
        kvm.enable()
        if not is_open:
            kvm.trust(LOOPBACK)

    if desktop and host.captures_screen:
        desktop.paint(draw_desktop(desktop.size, "The service captures it and encodes it as AV1,"))
        firmware.set(Kvm="screen", **{"Screen.Display": desktop.display})
    else:
        bridge(firmware, desktop)
    enable()
    story.add("demo", "the KVM port is open to every viewer" if is_open
              else f"the KVM port is open, and the firmware trusts viewers from {LOOPBACK} alone")
    if desktop:
        story.add("demo", f"try:  {host.entry}vncviewer localhost::{host.kvm_address[1]}")
    build = build_folder()
    story.add("demo", f"try:  {host.consent_command}  and, while it waits,")
    story.add("demo", f"      {build}/mpmsim send --control {firmware.control_path} GET_KVM_CONSENT --hex 010000003c000000")
    closed, removed = 0, kvm.agent_removals()
    while not ended.wait(0.3):
        if kvm.reported_closes() > closed:
            closed = kvm.reported_closes()
            kvm.close_session()
        if kvm.agent_removals() > removed:
            removed = kvm.agent_removals()
            # The trust lasts for one session. An agent that starts before the removal is removed too.
            enable()
