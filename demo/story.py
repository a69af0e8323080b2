"""The demo's output: one line for each event, prefixed with the component that logged it, in the order of the events."""

import heapq
import itertools
import pathlib
import re
import shutil
import sys
import threading
import time

SIDES = {"console": "\033[36m", "service": "\033[33m", "firmware": "\033[32m", "PC": "\033[35m", "demo": "\033[1m"}
# Lines reach the story a moment after they were written. It waits this long (seconds) and sorts them before it prints them.
MOMENT = 0.25


def time_of(stamp):
    """Turns the "14:32:28.62" of a recent line into a time. Its time zone is unknown; all are off by whole quarters of an hour."""
    _, minute, second = re.match(r"(\d+):(\d+):([\d.]+)", stamp).groups()
    now, quarter = time.time(), 900
    back = (now - int(minute) * 60 - float(second) + 1) % quarter - 1
    return now - back


class Story:
    """Collects events from several threads and prints them in order."""

    def __init__(self):
        self._start = time.time()
        self._lock = threading.Lock()
        self._waiting = []
        self._numbers = itertools.count()
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._print, daemon=True)
        self._thread.start()

    def add(self, side, text, when=None):
        """`when` is the time of the event, by default the current time. Further lines of the text are printed unchanged."""
        with self._lock:
            heapq.heappush(self._waiting, (when or time.time(), next(self._numbers), side, text))

    def _print(self):
        while not self._ended.wait(0.03):
            self._print_until(time.time() - MOMENT)

    def _print_until(self, moment):
        while True:
            with self._lock:
                if not self._waiting or self._waiting[0][0] > moment:
                    return
                when, _, side, text = heapq.heappop(self._waiting)
            color, end = (SIDES[side], "\033[0m") if sys.stdout.isatty() else ("", "")
            print(f"{when - self._start:6.2f}  {color}{side:8}{end}  {text}", flush=True)

    def close(self):
        self._ended.set()
        self._thread.join()
        self._print_until(float("inf"))


class Follower:
    """Passes each new line of a file to `handle`."""

    def __init__(self, path, handle):
        self._path, self._handle, self._offset, self._part = pathlib.Path(path), handle, 0, ""
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
            self._handle(line)

    def close(self):
        self._ended.set()
        self._thread.join()


def fitted(text):
    """Returns the text, cut to the width that the screen has left beside the time and the component."""
    room = max(60, shutil.get_terminal_size((130, 24)).columns - 20)
    return text if len(text) <= room else text[:room - 4] + " ..."


# The lines of the service's log that the demo shows; the log has many more.
STORY_LINES = (
    "Logging started", "Starting as", "Open MPM Device Success", "ZEL Service UP", "ZEL Service DOWN", "Calling HTTPS Socket",
    "Process the accepted connection", "request arrived", "Remote Address", "DASH packet received", "send() success",
    "Server has not received", "After sock close", "SERVICE_CONTROL_STOP", "Gracefully",
    "Shutdown Command received", "Shutdown initiated",
    "asks for User consent entry", "Named Pipe Created", "Named pipe connected", "Value from consent is",
    "Consent received by driver",
    "says that KVM is now enabled", "Calling KVM Socket Accept", "IP: 0x", "KVM APP Command", "KVM_Agent PID",
    "VNC_SOC_CLOSE received",
    "Attempting connection with", "nuba: ", "Attempting to deinit NUBA",
    "Send WiFi Profile Configuration", "Detected an unsecured Wi-Fi network",
    "Client closed the connection", "called TerminateKVMAgent", "on KVM socket", "Terminate file deleted",
)


def service_line(story):
    def handle(line):
        text, _, mark = line.partition(" $$<")
        text = text.split("] ", 1)[-1]
        if any(part in text for part in STORY_LINES):
            stamp = re.search(r"(\d+:\d+:\d+)\.(\d+)", mark)
            # The log writes the milliseconds without leading zeros.
            story.add("service", fitted(text), time_of(f"{stamp[1]}.{int(stamp[2]):03}") if stamp else None)
    return handle


class FirmwareLines:
    """Shows the lines of mpmsim. Of the KVM stream it shows the first lines, then only counts and sizes."""

    FIRST = 4
    BYTES = re.compile(r"(host > WriteKVMPacket|firmware > MPM_ZEL_CMD_KVM_DATA) (\d+) bytes?\b")

    def __init__(self, story):
        self._story = story
        self._seen, self._more = 0, {}

    def __call__(self, line):
        if not line:
            return
        stamp, _, text = line.partition(" ")
        when = time_of(stamp) if re.fullmatch(r"\d+:\d+:\d+\.\d+", stamp) else None
        packet = self.BYTES.match(text)
        self._seen = self._seen + 1 if packet else self._seen
        if packet and self._seen > self.FIRST:
            count, size = self._more.get(packet[1], (0, 0))
            self._more[packet[1]] = count + 1, size + int(packet[2])
            return
        for name, (count, size) in self._more.items():
            self._story.add("firmware", f"{name}: {count} more, {size} bytes", when)
        self._more = {}
        self._story.add("firmware", fitted(re.sub(r' data="[^"]*"', "", text)), when)
