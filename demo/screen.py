"""The screen part of the demo: the service captures and encodes the PC's screen, and a viewer sees it and types into it."""

from harness.desktop import psnr
from harness.kvm import RemoteKvm
from harness.viewer import DesktopViewer, Notepad, what_is_missing
from harness.waiting import eventually
from kvm import LOOPBACK, draw_desktop, end, show_agent

LEAST_PSNR = 35  # dB
TYPED = "hello from the console"


def show_screen(story, host, firmware, desktop, workdir):
    """Returns the path of the picture that the viewer saw, or None without a desktop."""
    if not host.captures_screen:
        story.add("demo", "the captured screen is not shown: the media runtime is not built")
        return None
    missing = what_is_missing()
    if missing or not desktop:
        story.add("demo", "the captured screen is not shown: packages are not installed: " + " ".join(missing))
        return None
    kvm = RemoteKvm(host, firmware)
    firmware.set(Kvm="screen", **{"Screen.Display": desktop.display})
    painted = draw_desktop(desktop.size, "The service captures it and encodes it as AV1,")
    with Notepad(desktop, painted, workdir) as notepad:
        story.add("PC", "a program covers the desktop with a picture")
        kvm.enable()
        kvm.trust(LOOPBACK)
        with DesktopViewer(kvm.host.kvm_address, desktop.size, workdir / "console") as viewer:
            story.add("console", "a VNC viewer in full screen connects to the KVM port")
            agent = show_agent(story, kvm)
            path = workdir / "captured.png"
            seen = viewer.await_picture(painted, LEAST_PSNR)
            seen.save(path)
            story.add("console", f"the viewer sees the captured screen, {seen.width} x {seen.height} pixels: "
                                 f"{psnr(seen, painted):.1f} dB")
            viewer.type(TYPED)
            eventually(lambda: notepad.text() == TYPED, "the typed text on the PC")
            story.add("PC", f'the program on the desktop shows "{notepad.text()}", typed in the viewer')
            show_figures(story, firmware)
            end(story, kvm, agent)
    return path


def show_figures(story, firmware):
    state = firmware.screen()
    times = state["frames"]["milliseconds"]
    story.add("firmware", f"{state['frames']['count']} frames, {state['frames']['bytes']} bytes; from command 48 to the last "
                          f"chunk {times['median']:.1f} ms at the median, {times['p95']:.1f} ms at the 95th percentile")
