"""Counts the sessions, faults and bytes of a soak."""

import collections
import contextlib
import time

from harness.waiting import Overdue, eventually

# Kilobytes of growth that are not a leak: allocators keep freed memory, and a sanitizer's own records grow for hours.
MEMORY_SLACK = {"native": 4_000, "asan": 200_000, "tsan": 400_000, "debug": 4_000, "windows": 4_000}


class Tally:
    def __init__(self):
        self.begun = time.monotonic()
        self.events = 0
        self.sessions = collections.Counter()
        self.faults = collections.Counter()
        self.skipped = collections.Counter()
        self.moved = collections.Counter()  # bytes by stream, all of them compared
        self.frames = 0  # of the screen
        self.idle_ends = 0
        self.lives = 0
        self.packaged = 0  # of these
        self.growths = []  # of each life
        self.rotations = 0
        self.errors_explained = 0
        self.log_bytes = 0

    @property
    def seconds(self):
        return time.monotonic() - self.begun

    def line(self):
        faults = sum(self.faults.values())
        return (f"{self.seconds:6.0f} s: {self.events} events, sessions {_list(self.sessions)}; {faults} faults; "
                f"{_megabytes(sum(self.moved.values()))} transferred and compared; life {self.lives + 1}")

    def report(self):
        moved = ", ".join(f"{name} {_megabytes(size)}" for name, size in sorted(self.moved.items()))
        lines = [
            f"ran {self.seconds:.0f} s, {self.events} events in {self.lives} lives of the service, {self.packaged} packaged",
            f"sessions served: {_list(self.sessions)}",
            f"faults survived, {sum(self.faults.values())}: {_list(self.faults)}",
            f"bytes transferred and compared: {moved or 'none'}",
            f"frames of the screen: {self.frames}",
            f"sessions ended by the idle limit: {self.idle_ends}",
            f"log: {_megabytes(self.log_bytes)}, {self.rotations} rotations, {self.errors_explained} ERROR lines, all explained",
        ]
        if self.skipped:
            lines.append(f"skipped because this host does not support them: {_list(self.skipped)}")
        return lines + [f"life {number}: {growth}" for number, growth in enumerate(self.growths, 1)]


def _list(counter):
    return ", ".join(f"{name} {count}" for name, count in sorted(counter.items())) or "none"


def _megabytes(size):
    return f"{size / 1e6:.1f} MB"


def settled(look):
    """Returns the footprint that three looks in a row see, but for the memory."""
    looks = []

    def same():
        looks.append(look())
        return len(looks) >= 3 and len({seen[:2] for seen in looks[-3:]}) == 1
    eventually(same, "the service to come to rest")
    return looks[-1]


class Growth:
    """Compares the footprint of one life of the service at its first quiet moment with that at each later one."""

    WARM_UP = 5  # quiet moments before the memory figure becomes the reference

    def __init__(self, memory_slack):
        self._slack = memory_slack  # kilobytes
        self._first = self._last = None
        self._kilobytes = 0
        self._moments = 0

    def has_first(self):
        return self._first is not None

    def take_first(self, footprint):
        self._first = self._last = footprint

    def next_moment(self):
        self._moments += 1

    def too_much(self, footprint, kept_handles):
        """Returns what has grown beyond the first footprint and the handles that are kept on purpose, or an empty list."""
        self._last = footprint
        if self._moments <= self.WARM_UP:
            self._kilobytes = footprint.kilobytes
        grown = []
        if footprint.handles > self._first.handles + kept_handles:
            grown.append(f"handles from {self._first.handles} to {footprint.handles}, {kept_handles} of them kept on purpose")
        if footprint.threads > self._first.threads:
            grown.append(f"threads from {self._first.threads} to {footprint.threads}")
        if footprint.kilobytes > self._kilobytes + self._slack:
            grown.append(f"memory from {self._kilobytes} to {footprint.kilobytes} KB")
        return grown

    def require_small(self, look, kept_handles=0):
        """Waits until nothing has grown; what has passed away is no growth."""
        grown = []

        def small():
            grown[:] = self.too_much(look(), kept_handles)
            return not grown
        with contextlib.suppress(Overdue):
            eventually(small, "the service to be as small as it was")
        assert not grown, "the service has grown: " + "; ".join(grown)

    def text(self, what, kept_handles=0):
        if not self._moments:
            return f"{what}, too short for a comparison"
        first, last = self._first, self._last
        memory = ""
        if last.kilobytes:
            memory = f", memory {self._kilobytes} to {last.kilobytes} KB ({last.kilobytes - self._kilobytes:+})"
        kept = f" ({kept_handles} kept on purpose)" if kept_handles else ""
        return (f"{what}; handles {first.handles} to {last.handles}{kept}, "
                f"threads {first.threads} to {last.threads}{memory}")
