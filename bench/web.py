"""The page of the firmware: what it costs the firmware's requests.

Four firmwares take turns in short blocks: one without a page, one whose page is not open, one with an open page, and one
with a page that does not read. The host and the firmwares share one core, so that a request takes the sum of what their
threads work; the reader of the page has another one."""

import contextlib
import os
import pathlib
import statistics
import subprocess
import sys

from harness.firmware import Firmware
from harness.processes import REPOSITORY, Process
from harness.websocket import LabPage
from harness.waiting import eventually

BUILD = pathlib.Path(os.environ.get("ZEL_BENCH_BUILD", REPOSITORY / "build" / "bench"))
WAYS = ("no page", "page not open", "open page", "page that does not read")
RATE = 2000  # a second
PACED, UNPACED = 1000, 20_000  # requests of a block
# Of a request's time at this rate with a page, beside that without. Blocks of the same way differ by a twentieth.
LIMIT = 1.1
TICK = os.sysconf("SC_CLK_TCK")
CORES = sorted(os.sched_getaffinity(0))


def take_core(pid, core):
    """Puts a process with all its threads on one core."""
    for thread in os.listdir(f"/proc/{pid}/task"):
        os.sched_setaffinity(int(thread), {core})


def processor_time(pid):
    """Seconds that the process has used."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICK


class Way:
    def __init__(self, stack, name, workdir):
        self.name = name
        folder = workdir / name.replace(" ", "-")
        folder.mkdir()
        self.firmware = stack.enter_context(
            Firmware(folder, record=False, quiet=True, settings={"KeepRequests": False}, web=None if name == WAYS[0] else {}))
        take_core(self.firmware.pid, CORES[-1])
        if name == "open page":
            reader = Process([sys.executable, __file__, self.firmware.url], folder / "reader.log",
                             env={"PYTHONPATH": str(REPOSITORY / "tests")})
            stack.callback(reader.kill)
            take_core(reader.pid, CORES[0])
            eventually(lambda: "reads" in reader.output(), "the page to be open")
        if name == "page that does not read":
            page = stack.enter_context(LabPage(self.firmware.url, receive_buffer=4096))
            page.do("hello")

    def load(self, count, rate):
        """Requests a second, and their median time and 95th percentile in microseconds."""
        done = subprocess.run([BUILD / "requestload", self.firmware.address.removeprefix("unix:"), str(count), str(rate)],
                              capture_output=True, text=True, check=True, timeout=120,
                              preexec_fn=lambda: take_core(os.getpid(), CORES[-1]))
        return [float(word) for word in done.stdout.split()]


def blocks(ways, rounds, count, rate):
    """Of each way its rates, median times and 95th percentiles, a number for each round; and its processor time a request."""
    before = {way.name: processor_time(way.firmware.pid) for way in ways}
    figures = {way.name: [] for way in ways}
    for number in range(rounds):
        turn = number % len(ways)
        for way in ways[turn:] + ways[:turn]:
            figures[way.name].append(way.load(count, rate))
    used = {way.name: (processor_time(way.firmware.pid) - before[way.name]) / (rounds * count) * 1e6 for way in ways}
    return {name: [*zip(*rows)] for name, rows in figures.items()}, used


def show(title, ways, figures, used, of, unit):
    """`of` is what is shown: 0 the rate, 1 the median time. Returns the ratio of each way to the first, by name."""
    print(f"\n{title}")
    first = figures[WAYS[0]][of]
    ratios = {}
    for way in ways:
        values = figures[way.name][of]
        ratios[way.name] = statistics.median(value / base for value, base in zip(values, first))
        p95 = f", p95 {statistics.median(figures[way.name][2]):.1f} us" if of else ""
        print(f"  {way.name:24} {statistics.median(values):9.1f} {unit}{p95}, {ratios[way.name]:.2f} of the first, "
              f"{used[way.name]:.1f} us of processor time a request")
    return ratios


def measure(workdir, rounds):
    """Returns what limits were reached, as a list."""
    os.environ["ZEL_BUILD"] = str(BUILD)
    with contextlib.ExitStack() as stack:
        ways = [Way(stack, name, workdir) for name in WAYS]
        paced, used = blocks(ways, max(rounds // 5, 2), PACED, RATE)
        ratios = show(f"the page: a request at {RATE} a second", ways, paced, used, 1, "us")
        unpaced, used = blocks(ways, max(rounds // 10, 2), UNPACED, 0)
        show("the page: requests a second, one after the other", ways, unpaced, used, 0, "/s")
    return [max(ratios.values()) <= LIMIT]


def read(url):
    """A page that takes all that comes."""
    with LabPage(url, patience=None) as page:
        page.do("hello")
        print("reads", flush=True)
        while True:
            page.receive_frame()


if __name__ == "__main__":
    with contextlib.suppress(ConnectionError, KeyboardInterrupt):
        read(sys.argv[1])
