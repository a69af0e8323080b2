"""Follows the service's log line by line, through rotations, and takes account of its ERROR lines."""

import collections
import itertools
import os
import re
import time

from harness.waiting import Overdue

ERROR = "] ERROR: "
POLL = 0.002  # seconds
LIMIT = 10 << 20  # bytes, from which on the log is rotated
LINE = 1024  # bytes of the longest
KEPT = 500  # lines

_PACKET_SIZE = re.compile(r"DASH packet received by socket server of size: (\d+)")
_BUFFER_SIZE = re.compile(r"INFO:  Buffer size (\d+)")


class UnexpectedError(AssertionError):
    """An ERROR line that nothing explains."""


class ServiceLog:
    def __init__(self, path):
        self._path = path
        self._file = None
        self._part = ""
        self._lines = collections.deque()
        self._first = 0  # the number of the first line that is kept
        self._allowed = collections.Counter()
        self._always = ()
        self.rotations = 0
        self.errors_explained = 0
        self.bytes = 0

    # --- ERROR lines ---

    def allow_always(self, *texts):
        self._always += texts

    def allow(self, *texts, times=1):
        """That many ERROR lines with each of these texts are explained."""
        for text in texts:
            self._allowed[text] += times

    def forget_allowances(self):
        self._allowed.clear()

    def _account(self, line):
        self.errors_explained += 1
        if any(text in line for text in self._always):
            return
        found = next((text for text, times in self._allowed.items() if times > 0 and text in line), None)
        if found is None:
            raise UnexpectedError(f"no injected fault explains this line: {line}")
        self._allowed[found] -= 1

    # --- lines ---

    def here(self):
        """The place behind what is written now."""
        self.read()
        return self._first + len(self._lines)

    def forget(self):
        """Places so far are no longer asked for; a few lines stay, to look back at."""
        self.read()
        while len(self._lines) > KEPT:
            self._lines.popleft()
            self._first += 1

    def last(self):
        """The last lines that have been read."""
        return list(self._lines)[-KEPT:]

    def since(self, place):
        """The lines from a place on."""
        self.read()
        assert place >= self._first, "that part of the log is forgotten"
        return list(itertools.islice(self._lines, place - self._first, None))

    def count(self, text, place):
        return sum(text in line for line in self.since(place))

    def await_line(self, text, place, patience=30.0):
        """Waits for a line with this text from that place on; the place behind it."""
        deadline = time.monotonic() + patience
        next_place = place
        while True:
            for line in self.since(next_place):
                next_place += 1
                if text in line:
                    return next_place
            if time.monotonic() > deadline:
                last_lines = "\n".join(self.since(place)[-15:])
                raise Overdue(f"waited {patience:.0f} s for {text!r} in the log, which ends with\n{last_lines}")
            time.sleep(POLL)

    def payloads(self, place):
        """The sizes of the payloads for consoles that the firmware has handed over from that place on."""
        return self._numbers(_BUFFER_SIZE, place)

    def packets(self, place):
        """The sizes of the blocks that consoles have sent from that place on."""
        return self._numbers(_PACKET_SIZE, place)

    def _numbers(self, pattern, place):
        return [int(found[1]) for line in self.since(place) if (found := pattern.search(line))]

    def read(self):
        """Takes up what has been written."""
        if not self._file:
            if not self._path.exists():
                return
            self._file = open(self._path, "rb")
        self._take()
        if self._is_moved():
            self._take()  # what came between the two looks
            self._check_rotated()
            self._file.close()
            self._file = open(self._path, "rb")
            self._take()

    def _is_moved(self):
        """The log's name is another file's, which has been opened in its place."""
        try:
            return os.stat(self._path).st_ino != os.fstat(self._file.fileno()).st_ino
        except FileNotFoundError:
            return False  # in the middle of it

    def _check_rotated(self):
        size = os.fstat(self._file.fileno()).st_size
        assert LIMIT < size <= LIMIT + LINE, f"the log was rotated at {size} bytes"
        assert not self._part, "the rotated log ends in the middle of a line"
        assert self._path.with_suffix(".lo_").exists(), "there is no rotated log"
        self.rotations += 1

    def _take(self):
        block = self._file.read()
        if not block:
            return
        self.bytes += len(block)
        *lines, self._part = (self._part + block.decode(errors="replace")).split("\n")
        self._lines.extend(lines)
        for line in lines:
            if ERROR in line:
                self._account(line)

    def close(self):
        if self._file:
            self._file.close()
