"""The journey of one request, from a management console through the service to the firmware and back.

Starts a simulated PC and its firmware, lets real clients talk through the service, prints what happened as one line
from each side, and ends with 0 when all of it went as it should.
"""

import argparse
import concurrent.futures
import pathlib
import signal
import sys
import tempfile
import threading
import time

from harness.console import OFF_HARD, Console, closed_by_peer
from harness.firmware import Firmware
from harness.native import RUNNING, NativeHost
from harness.waiting import eventually

SIDES = {"console": "\033[36m", "service": "\033[33m", "firmware": "\033[32m", "PC": "\033[35m", "demo": "\033[1m"}


class Story:
    """Prints one line an event, told by the side that saw it. Lines from several threads don't mix."""

    def __init__(self):
        self._start = time.monotonic()
        self._lock = threading.Lock()

    def tell(self, side, text):
        color, end = (SIDES[side], "\033[0m") if sys.stdout.isatty() else ("", "")
        with self._lock:
            print(f"{time.monotonic() - self._start:6.2f}  {color}{side:8}{end}  {text}", flush=True)


class Follower:
    """Tells a file's new lines as they come."""

    def __init__(self, path, tell):
        self._path, self._tell, self._offset, self._part = pathlib.Path(path), tell, 0, ""
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._follow, daemon=True)
        self._thread.start()

    def _follow(self):
        while not self._ended.wait(0.03):
            self._read()
        self._read()

    def _read(self):
        if not self._path.exists():
            return
        with open(self._path, errors="replace") as file:
            file.seek(self._offset)
            *lines, self._part = (self._part + file.read()).split("\n")
            self._offset = file.tell()
        for line in lines:
            self._tell(line)

    def close(self):
        self._ended.set()
        self._thread.join()


# The lines of the service's log that carry the story; the log itself has many more.
STORY_LINES = (
    "Logging started", "Starting as", "Open MPM Device Success", "ZEL Service UP", "ZEL Service DOWN", "Calling HTTPS Socket",
    "Process the accepted connection", "request arrived", "Remote Address", "DASH packet received", "send() success",
    "Server has not received", "After sock close", "SERVICE_CONTROL_STOP", "Gracefully",
    "Shutdown Command received", "Shutdown initiated",
)


def service_line(story):
    def tell(line):
        text = line.split(" $$<")[0].split("] ", 1)[-1]
        if any(part in text for part in STORY_LINES):
            story.tell("service", text)
    return tell


def firmware_line(story):
    def tell(line):
        if line:
            story.tell("firmware", line)
    return tell


def identify(story, console, name):
    story.tell("console", f"{name} posts a WS-Management Identify to {console.url}")
    answer = console.identify()
    told = ", ".join(f"{key} {answer[key]}" for key in ("ProductVendor", "ProductVersion", "ProtocolVersion") if key in answer)
    story.tell("console", f"{name} reads the firmware's answer: {told}")


def second_client_waits(story, console):
    """The first connection holds the session until it is closed for idleness; the second one waits behind it."""
    first = console.connect()
    story.tell("console", "an idle client connects and sends nothing")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        answer = pool.submit(identify, story, console, "a second client")
        started = time.monotonic()
        closed = closed_by_peer(first)
        first.close()
        if not closed:
            raise AssertionError("the idle client was not closed")
        story.tell("console", f"the idle client was closed after {time.monotonic() - started:.1f} s; now the second one's turn")
        answer.result()


def show_host(story, firmware):
    firmware.await_request("WriteMultiNwInfo")
    firmware.await_request("WriteADInfo")
    story.tell("demo", "what the firmware knows of its PC by now (mpmsim show):")
    print("\n".join(f"          {line}" for line in firmware.show().split("\n\n")[0].splitlines()), flush=True)


def power_off(story, console, host):
    story.tell("console", f"an administrator powers the PC off: RequestPowerStateChange to {OFF_HARD}, off hard")
    returned = console.request_power_state(OFF_HARD)
    story.tell("console", f"the administrator reads the firmware's answer: ReturnValue {returned}")
    if returned != 0:
        raise AssertionError(f"return value {returned}")
    host.await_log("DoSytemShutdown: Shutdown initiated")
    if not isinstance(host, NativeHost):
        return story.tell("PC", "Wine powers nothing off and goes on running")
    for call in eventually(host.power_actions, "the PC to power off"):
        story.tell("PC", f"Windows shuts down: {call}")


def make_host(windows, workdir):
    if windows:
        from harness.wine import WineHost, enter_namespace
        enter_namespace()
        firmware = Firmware(workdir, listen="tcp:127.0.0.1:6640").start()
        return firmware, WineHost(workdir, "127.0.0.1:6640")
    firmware = Firmware(workdir).start()
    return firmware, NativeHost(workdir, firmware.address)


def play(story, firmware, host, stay):
    story.tell("demo", "the PC boots and its service manager starts the service")
    host.start_service()
    host.await_state(RUNNING)
    firmware.await_request("WriteZELStatus", lambda fields: fields.get("state") == 1)
    host.await_log("Calling HTTPS Socket Accept")
    console = Console(host.dash_address)
    if stay:
        stay_up(story, console, host, firmware)
    else:
        identify(story, console, "a console")
        second_client_waits(story, console)
        show_host(story, firmware)
        power_off(story, console, host)
    story.tell("demo", "the service manager stops the service")
    code = host.stop_service()
    firmware.await_request("WriteZELStatus", lambda fields: fields.get("state") == 2)
    story.tell("demo", f"the service's process ended with exit code {code}; the firmware heard that it went down")
    if code != 0:
        raise AssertionError(f"exit code {code}")


def stay_up(story, console, host, firmware):
    story.tell("demo", f"all is up; the DASH port is {console.url}")
    story.tell("demo", f"try:  {host.entry}curl --insecure -H 'Content-Type: application/soap+xml' -d @identify.xml {console.url}")
    story.tell("demo", f"logs: {host.log_path()}, {firmware.record_path}; Ctrl-C ends it")
    ended = threading.Event()
    signal.signal(signal.SIGINT, lambda *_: ended.set())
    signal.signal(signal.SIGTERM, lambda *_: ended.set())
    ended.wait()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--windows", action="store_true", help="the shipped ZELService.exe under Wine")
    parser.add_argument("--stay", action="store_true", help="stay up for hand tests until Ctrl-C")
    options = parser.parse_args()
    story = Story()
    workdir = pathlib.Path(tempfile.mkdtemp(prefix="zel-demo-"))
    firmware, host = make_host(options.windows, workdir)
    followers = [
        Follower(host.log_path(), service_line(story)),
        Follower(firmware.log_path, firmware_line(story)),
    ]
    try:
        play(story, firmware, host, options.stay)
        result = 0
    except (AssertionError, OSError) as problem:
        story.tell("demo", f"this went wrong: {problem}")
        result = 1
    finally:
        host.close()
        firmware.close()
        for follower in followers:
            follower.close()
    story.tell("demo", f"the service's log: {host.log_path()}")
    story.tell("demo", f"the firmware's record: {firmware.record_path}")
    return result


sys.exit(main())
