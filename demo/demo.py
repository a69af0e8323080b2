"""Shows the service at work: consoles talk through it to the firmware, and a viewer sees the PC's desktop.

The demo starts a simulated PC and its firmware and lets real clients talk through the service. It prints one line for each
event and ends with 0 when every step succeeded.
"""

import argparse
import pathlib
import secrets
import shutil
import signal
import sys
import tempfile
import threading

from cloud import prepare_cloud, show_cloud
from dash import identify, power_off, second_client_waits, show_host
from harness.console import GET_COMPUTER_SYSTEM, IDENTIFY, Console
from harness.firmware import Firmware
from harness.host import RUNNING
from harness.native import NativeHost
from harness.processes import REPOSITORY
from kvm import open_desktop, remote_kvm, serve_by_hand
from screen import show_screen
from story import FirmwareLines, Follower, Story, service_line
from wifi import LAPTOP, show_wifi


USER = "administrator"
KEPT = REPOSITORY / "build" / "demo"


def make_host(windows, workdir, password, open_ports):
    settings = {"Users": {USER: password}}
    if windows:
        from harness.wine import WineHost, enter_namespace
        enter_namespace()
        firmware = Firmware(workdir, listen="tcp:127.0.0.1:6640", settings=settings).start()
        return firmware, WineHost(workdir, "127.0.0.1:6640")
    firmware = Firmware(workdir, settings=settings).start()
    return firmware, NativeHost(workdir, firmware.address, openPorts=open_ports, **LAPTOP)


def play(story, firmware, host, desktop, relay, workdir, password):
    """Returns the files to look at afterwards, besides the logs, by what they are."""
    console = Console(host.dash_address, USER, password)
    identify(story, console, "a console")
    second_client_waits(story, console)
    show_host(story, firmware)
    show_wifi(story, host, firmware)
    show_cloud(story, host, relay)
    pictures = {
        "the viewer's picture of the bridged desktop": remote_kvm(story, host, firmware, desktop, workdir),
        "the viewer's picture of the captured screen": show_screen(story, host, firmware, desktop, workdir),
    }
    power_off(story, console, host)
    return {what: path for what, path in pictures.items() if path}


def stay_up(story, firmware, host, desktop, relay, workdir, password):
    url = Console(host.dash_address).url
    story.add("demo", f"everything is running; the DASH port is {url}")
    story.add("demo", f"the firmware's administrator: user {USER}, password {password}; "
                      f"its certificate: {firmware.certificate_path}")
    for name, text in (("identify", IDENTIFY), ("get-computer-system", GET_COMPUTER_SYSTEM)):
        body = workdir / f"{name}.xml"
        body.write_text(text)
        story.add("demo", f"try:  {host.entry}curl --cacert {firmware.certificate_path} --anyauth --user {USER}:{password} "
                          f"-H 'Content-Type: application/soap+xml' --data-binary @{body} {url}")
    ended = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: ended.set())
    story.add("demo", f"a console at the cloud: add --proxy http://127.0.0.1:{relay.consoles} to the line, "
                      f"and use https://{host.network_name}:664/wsman")
    story.add("demo", f"logs: {host.log_path()}, {firmware.record_path}; Ctrl-C ends the demo")
    serve_by_hand(story, host, firmware, desktop, ended)
    return {}


def start(story, firmware, host):
    story.add("demo", "the PC boots, a user logs on, and the service manager starts the service")
    host.log_on()
    host.start_service()
    host.await_state(RUNNING)
    firmware.await_request("WriteZELStatus", lambda fields: fields.get("state") == 1)
    host.await_log("Calling HTTPS Socket Accept")


def stop(story, firmware, host):
    story.add("demo", "the service manager stops the service")
    code = host.stop_service()
    firmware.await_request("WriteZELStatus", lambda fields: fields.get("state") == 2)
    story.add("demo", f"the service's process ended with exit code {code}; it reported to the firmware that it is down")
    if code != 0:
        raise AssertionError(f"exit code {code}")


def keep(story, files, workdir):
    """Moves the files to the build folder, where the next run replaces them, and removes the run's folder."""
    KEPT.mkdir(parents=True, exist_ok=True)
    for what, path in files.items():
        if path.exists():
            story.add("demo", f"{what}: {shutil.copy(path, KEPT)}")
    shutil.rmtree(workdir, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--windows", action="store_true", help="run the shipped ZELService.exe under Wine")
    parser.add_argument("--stay", action="store_true", help="stay up for hand tests until Ctrl-C")
    parser.add_argument("--open", action="store_true", help="accept consoles and viewers from other machines too (not under Wine)")
    options = parser.parse_args()
    story = Story()
    workdir = pathlib.Path(tempfile.mkdtemp(prefix="zel-demo-"))
    password = secrets.token_urlsafe(9)
    firmware, host = make_host(options.windows, workdir, password, options.open)
    desktop = open_desktop(story, host, workdir)
    relay = prepare_cloud(host, firmware, workdir)
    followers = [
        Follower(host.log_path(), service_line(story)),
        Follower(firmware.log_path, FirmwareLines(story)),
    ]
    files = {"the service's log": host.log_path(), "the firmware's record": firmware.record_path}
    try:
        start(story, firmware, host)
        files.update((stay_up if options.stay else play)(story, firmware, host, desktop, relay, workdir, password))
        stop(story, firmware, host)
        result = 0
    except (AssertionError, OSError) as problem:
        story.add("demo", f"failed: {problem}; the run's folder is {workdir}")
        result = 1
    except KeyboardInterrupt:
        result = 128 + signal.SIGINT
    finally:
        host.close()
        firmware.close()
        if desktop:
            desktop.close()
        if relay:
            relay.close()
        for follower in followers:
            follower.close()
    if result != 1:
        keep(story, files, workdir)
    if result == 0 and not options.stay:
        story.add("demo", "./dev run starts the same and stays up, so that you can connect your own console or VNC viewer")
    story.close()
    return result


sys.exit(main())
