"""The lab: starts a simulated PC with a desktop, its firmware and the service, and prints the URL of the firmware's page.

Everything runs until Ctrl-C. A service that stops is started again after a few seconds, as a person would start it.
"""

import argparse
import contextlib
import pathlib
import shutil
import signal
import sys
import tempfile
import threading
import urllib.parse

from harness.desktop import Desktop, what_is_missing
from harness.firmware import Firmware
from harness.host import RUNNING
from harness.native import NativeHost
from harness.processes import Process
from kvm import DESKTOP_SIZE, draw_desktop
from relay import Relay
from wifi import LAPTOP

PAUSE_BEFORE_START = 5.0  # seconds
MAILBOX_OF_WINDOWS = "127.0.0.1:6640"
CLOCK = "while :; do printf '\\033[H\\033[2J\\n  %s\\n' \"$(date +%T)\"; sleep 1; done"


def say(text):
    print(text, flush=True)


def open_desktop(stack, workdir, consent):
    """A desktop with a terminal, a clock and the program that asks the person there, when its command is given; None where the
    packages for it are missing."""
    missing = what_is_missing() + ([] if shutil.which("xterm") else ["xterm"])
    if missing:
        say(f"The PC has no desktop: these packages are not installed: {' '.join(missing)}")
        return None
    desktop = stack.enter_context(Desktop(workdir, *DESKTOP_SIZE))
    desktop.paint(draw_desktop(desktop.size, "The service captures it and encodes it as AV1,"))
    programs = [("terminal", "80x16+30+440", None), ("clock", "12x3+850+20", CLOCK)]
    if consent:
        asking = f"echo The person at the PC answers here.; while :; do {consent} --serve; sleep 1; done"
        programs.append(("consent", "80x7+30+20", asking))
    for name, place, script in programs:
        words = ["-e", "sh", "-c", script] if script else []
        window = ["-display", desktop.display, "-title", name, "-fa", "Monospace", "-fs", "12", "-geometry", place]
        stack.callback(Process(["xterm", *window, *words], workdir / f"{name}.log").kill)
    return desktop


class NativeLab:
    """The service on simulated Windows calls."""

    def __init__(self, workdir, stack):
        self.host = NativeHost(workdir, f"unix:{workdir}/mailbox.sock", **LAPTOP)
        self.listen = self.host.description["mailbox"]
        self.web = {"pc": self.host.control_socket}
        self.consent = self.host.consent_command

    def open_to_this_machine(self, url):
        pass  # it is there already


class WindowsLab:
    """ZELService.exe under Wine, in a network of its own; a relay joins the page's port with that of this machine."""

    def __init__(self, workdir, stack):
        from harness.wine import WineHost, enter_namespace
        self._relay = stack.enter_context(Relay(workdir / "page.sock"))
        enter_namespace()
        self.host = WineHost(workdir, MAILBOX_OF_WINDOWS)
        self.listen = f"tcp:{MAILBOX_OF_WINDOWS}"
        self.web = {}
        self.consent = None

    def open_to_this_machine(self, url):
        self._relay.join(urllib.parse.urlsplit(url).port)


def options_of_page(lab):
    return {**lab.web, "log": lab.host.log_path(), "kvm": "{}:{}".format(*lab.host.kvm_address),
            "dash": "{}:{}".format(*lab.host.dash_address)}


def start(stack, lab, workdir):
    """Returns the firmware, whose page is served when this returns."""
    desktop = open_desktop(stack, workdir, lab.consent)
    settings = {}
    if desktop and lab.host.captures_screen:
        lab.host.use_desktop(desktop)
        settings = {"Screen": {"Display": desktop.display}}
    firmware = Firmware(workdir, listen=lab.listen, kvm="screen" if settings else "echo", settings=settings,
                        web=options_of_page(lab))
    stack.enter_context(firmware)
    stack.callback(lab.host.close)
    lab.host.log_on()
    lab.host.start_service()
    lab.host.await_state(RUNNING)
    return firmware


def stay_up(lab, ended):
    while not ended.wait(0.5):
        if lab.host.running():
            continue
        say(f"The service has stopped; it starts again in {PAUSE_BEFORE_START:.0f} s.")
        if not ended.wait(PAUSE_BEFORE_START):
            lab.host.start_service()


def main():
    parser = argparse.ArgumentParser(prog="./dev lab", description=__doc__.splitlines()[0])
    parser.add_argument("--windows", action="store_true", help="run the shipped ZELService.exe under Wine")
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)  # the arguments only
    options = parser.parse_args()
    if options.check:
        return 0
    ended = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: ended.set())
    workdir = pathlib.Path(tempfile.mkdtemp(prefix="zel-lab-"))
    try:
        with contextlib.ExitStack() as stack:
            lab = (WindowsLab if options.windows else NativeLab)(workdir, stack)
            firmware = start(stack, lab, workdir)
            lab.open_to_this_machine(firmware.url)
            say(f"The lab is at {firmware.url}")
            say(f"The service's log is {lab.host.log_path()}; Ctrl-C ends everything.")
            stay_up(lab, ended)
    except (AssertionError, OSError) as problem:
        say(f"The lab failed: {problem}; its folder is {workdir}")
        return 1
    shutil.rmtree(workdir, ignore_errors=True)
    return 0


sys.exit(main())
