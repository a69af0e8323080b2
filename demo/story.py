"""The demo's output: one line an event, told by the side that saw it, in the order in which the events happened."""

import heapq
import itertools
import pathlib
import re
import shutil
import sys
import threading
import time

SIDES = {"console": "\033[36m", "service": "\033[33m", "firmware": "\033[32m", "PC": "\033[35m", "demo": "\033[1m"}
# The sides' lines are read a moment after they were written; those of one moment are put in order before they are printed.
MOMENT = 0.25


def time_of(stamp):
    """When "14:32:28.62" of a line that was written just now was. No time zone is told, and none is off by a part of a quarter."""
    _, minute, second = re.match(r"(\d+):(\d+):([\d.]+)", stamp).groups()
    now, quarter = time.time(), 900
    back = (now - int(minute) * 60 - float(second) + 1) % quarter - 1
    return now - back


class Story:
    """Takes events from several threads, and prints them."""

    def __init__(self):
        self._start = time.time()
        self._lock = threading.Lock()
        self._waiting = []
        self._numbers = itertools.count()
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._print, daemon=True)
        self._thread.start()

    def tell(self, side, text, when=None):
        """`when` is the event's time; now, when it is left out. Further lines of the text are printed as they are."""
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


def fitted(text):
    """The text, cut to what a screen has room for beside time and side."""
    room = max(60, shutil.get_terminal_size((130, 24)).columns - 20)
    return text if len(text) <= room else text[:room - 4] + " ..."


# The lines of the service's log that carry the story; the log itself has many more.
STORY_LINES = (
    "Logging started", "Starting as", "Open MPM Device Success", "ZEL Service UP", "ZEL Service DOWN", "Calling HTTPS Socket",
    "Process the accepted connection", "request arrived", "Remote Address", "DASH packet received", "send() success",
    "Server has not received", "After sock close", "SERVICE_CONTROL_STOP", "Gracefully",
    "Shutdown Command received", "Shutdown initiated",
    "asks for User consent entry", "Named Pipe Created", "Named pipe connected", "Value from consent is", "Consent received by driver",
    "says that KVM is now enabled", "Calling KVM Socket Accept", "IP: 0x", "KVM APP Command", "KVM_Agent PID", "VNC_SOC_CLOSE received",
    "Client closed the connection", "called TerminateKVMAgent", "on KVM socket", "Terminate file deleted",
)


def service_line(story):
    def tell(line):
        text, _, mark = line.partition(" $$<")
        text = text.split("] ", 1)[-1]
        if any(part in text for part in STORY_LINES):
            stamp = re.search(r"(\d+:\d+:\d+)\.(\d+)", mark)
            # The milliseconds stand there without leading zeros.
            story.tell("service", fitted(text), time_of(f"{stamp[1]}.{int(stamp[2]):03}") if stamp else None)
    return tell


class FirmwareLines:
    """Tells the lines of mpmsim. Of the KVM stream it tells the first ones, and of the rest how much it was."""

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
            self._story.tell("firmware", f"{name}: {count} more, {size} bytes", when)
        self._more = {}
        self._story.tell("firmware", fitted(re.sub(r' data="[^"]*"', "", text)), when)
