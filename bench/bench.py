"""What the service adds to a byte, beside peers, in one run and on one core.

The machine is shared, so one figure means little: the peers take turns in short blocks, and what counts is the ratio of
neighbouring blocks. Each ratio is printed as the median over all rounds, with the quartiles beside it.
"""

import argparse
import contextlib
import datetime
import functools
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

from harness.firmware import Firmware
from harness.host import RUNNING
from harness.native import NativeHost
from harness.ports import free_port
from harness.processes import REPOSITORY, Process
from harness.waiting import eventually

import screen
import web

BUILD = pathlib.Path(os.environ.get("ZEL_BENCH_BUILD", REPOSITORY / "build" / "bench"))
# A round trip and bulk in either direction beside socat, log lines beside spdlog, megabytes.
LIMITS = {"added": 2.5, "bulk": 1.0, "log": 0.8, "memory": 16.0}
SOCAT_BUFFER = 0x20000
STARTS = 5
PROCESS_SETS = 8  # where a process's pages lie in the caches lasts as long as it, and shows in bulk
PINGS = 150  # of a block
KEYSTROKES = 20  # of a block
KEYSTROKE_PAUSE = 5000  # microseconds
CHUNK = 16  # megabytes of a block
KVM_WINDOW = 16  # blocks of data on their way at once
LINES = 500  # of a block


@functools.cache
def scheduling():
    """The policy and priority of all that is measured. By the default policy a woken thread interrupts the one that wakes it
    or doesn't, as other programs on the core change the odds, and that alone moves what socat adds by a third. By either of
    these it never does; the first one, which not every user may ask for, also keeps other programs from coming between."""
    try:
        os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
    except PermissionError:
        return os.SCHED_BATCH, os.sched_param(0)
    os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))
    return os.SCHED_FIFO, os.sched_param(1)


CORE = max(os.sched_getaffinity(0))


def take_core(pid):
    """Puts a process with all its threads on the one core. A round trip then takes what its threads work and no more: no
    wake-up of an idle core is in it, and the service's polling takes nothing from another thread."""
    for thread in os.listdir(f"/proc/{pid}/task"):
        with contextlib.suppress(ProcessLookupError):  # one that has just ended
            os.sched_setaffinity(int(thread), {CORE})
            os.sched_setscheduler(int(thread), *scheduling())


def run(*command):
    """The numbers of each line that the command prints. It has the one core."""
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=300,
                          preexec_fn=lambda: take_core(os.getpid()))
    if done.returncode:
        raise RuntimeError(f"{' '.join(map(str, command))}: {done.stderr}")
    return [[float(word) for word in line.split()] for line in done.stdout.splitlines()]


def listening(port):
    """True when something listens on the port; asks the kernel, since a probe would take a session of the service."""
    needle = f":{port:04X} 00000000:0000 0A"
    return any(needle in line for line in pathlib.Path("/proc/net/tcp").read_text().splitlines())


class Way:
    """One way from a console to the answering end; each has its own processes and its own port."""

    def __init__(self, stack, mode, workdir):
        self.port = free_port()
        self.mode = mode
        self.workdir = pathlib.Path(workdir)
        self.workdir.mkdir()
        self.processes = []
        self.open(stack)
        for pid in self.processes:
            take_core(pid)

    @property
    def load(self):
        """How tcpload names it."""
        return str(self.port)

    def process(self, stack, *command):
        process = Process(command, self.workdir / f"{pathlib.Path(command[0]).name}.log")
        stack.callback(process.kill)
        self.processes.append(process.pid)

    def await_port(self, port):
        eventually(lambda: listening(port), f"port {port}")


class Direct(Way):
    name = "direct"

    def open(self, stack):
        self.process(stack, BUILD / "tcpload", "serve", self.mode, self.port)
        self.await_port(self.port)


class Socat(Way):
    name = "socat"

    def open(self, stack):
        behind = free_port()
        self.process(stack, BUILD / "tcpload", "serve", self.mode, behind)
        self.await_port(behind)
        self.process(stack, "socat", "-b", SOCAT_BUFFER, f"TCP-LISTEN:{self.port},bind=127.0.0.1,fork,reuseaddr,nodelay",
                     f"TCP:127.0.0.1:{behind},nodelay")
        self.await_port(self.port)


class Service(Way):
    name = "service"
    service_port = "664"

    def open(self, stack):
        address = f"unix:{self.workdir}/mailbox.sock"
        self.process(stack, BUILD / "bench_firmware", self.mode, address)
        os.environ["ZEL_BUILD"] = str(BUILD)
        self.host = stack.enter_context(NativeHost(self.workdir, address))
        self.port = self.host.description["ports"][self.service_port]
        self.host.start_service()
        self.processes.append(self.host.pid)
        self.host.await_state(RUNNING)
        self.await_port(self.port)

    @property
    def load(self):
        # The service polls while a session lasts: tcpload stops it while a peer has its turn.
        return f"{self.port}/{self.host.pid}"

    def idle_memory(self):
        """Resident megabytes of the service's process."""
        status = pathlib.Path(f"/proc/{self.host.pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0]) / 1024


class KvmService(Service):
    """The way of a remote screen."""

    service_port = "22"


def in_turns(workdir, service, mode, verb, rounds, *amounts):
    """What tcpload prints, once for each set of processes: lines with the figures of direct, socat and service."""
    for _ in range(PROCESS_SETS):
        with contextlib.ExitStack() as stack:
            folder = pathlib.Path(tempfile.mkdtemp(dir=workdir))
            ways = [way_type(stack, mode, folder / way_type.name) for way_type in (Direct, Socat, service)]
            yield run(BUILD / "tcpload", verb, max(rounds // PROCESS_SETS, 1), *amounts, *(way.load for way in ways))


def show(title, rows, unit):
    print(f"\n{title}")
    for name, value, ratio in rows:
        print(f"  {name:28} {value:12,.1f} {unit:8} {ratio}")
    sys.stdout.flush()


class Ratio:
    """The ratios of the rounds' blocks."""

    def __init__(self, ratios):
        self.low, self.median, self.high = statistics.quantiles(ratios, n=4)

    def __str__(self):
        return f"{self.median:.2f} ({self.low:.2f} to {self.high:.2f})"


def latency(workdir, service, title, rounds, count, pause):
    sets = list(in_turns(workdir, service, "echo", "ping", rounds, count, pause))
    rows = [row for lines in sets for row in lines[:-1]]
    # socat adds something; a round that shows nothing of it was disturbed.
    added = Ratio([(service - direct) / (socat - direct) for direct, socat, service in rows if socat > direct])
    direct, socat, through = (statistics.median(column) for column in zip(*rows))
    p99 = [statistics.median(column) for column in zip(*(lines[-1] for lines in sets))]
    show(f"{title}, median (p99)", [
        ("direct", direct, f"p99 {p99[0]:.1f}"),
        ("socat", socat, f"p99 {p99[1]:.1f}; adds {socat - direct:.1f}"),
        ("console-service-firmware", through, f"p99 {p99[2]:.1f}; adds {through - direct:.1f}, "
         f"{added} times what socat adds (at most {LIMITS['added']})"),
    ], "us")
    return added.median <= LIMITS["added"]


def bulk(workdir, service, mode, title, rounds, limit, verb, *options):
    rows = [row for lines in in_turns(workdir, service, mode, verb, rounds, CHUNK, *options) for row in lines]
    ratio = Ratio([service / socat for _, socat, service in rows])
    wanted = f" (at least {limit:.1f})" if limit else ""
    direct, socat, through = (statistics.median(column) for column in zip(*rows))
    show(title, [
        ("direct", direct, ""),
        (f"socat -b {SOCAT_BUFFER}", socat, ""),
        ("console-service-firmware", through, f"{ratio} of socat{wanted}"),
    ], "MB/s")
    return ratio.median >= limit


def log_lines(workdir, rounds):
    folder = workdir / "log"
    folder.mkdir()
    rows = run(BUILD / "loglines", folder, rounds, LINES)
    ratio = Ratio([service / spdlog for service, spdlog in rows])
    service, spdlog = (statistics.median(column) for column in zip(*rows))
    show("log lines, flushed each", [
        ("spdlog", spdlog, ""), ("service", service, f"{ratio} of spdlog (at least {LIMITS['log']})"),
    ], "lines/s")
    return ratio.median >= LIMITS["log"]


def memory(workdir):
    with contextlib.ExitStack() as stack:
        resident = Service(stack, "echo", workdir / "memory").idle_memory()
    show("memory of the idle service", [("resident", resident, f"(under {LIMITS['memory']:.0f})")], "MB")
    return resident < LIMITS["memory"]


def start_to_first_status(workdir):
    """Each registry read at the start sleeps for a second, which is prescribed; the log counts the reads."""
    own, prescribed = [], []
    for number in range(STARTS):
        folder = workdir / f"start-{number}"
        folder.mkdir()
        os.environ["ZEL_BUILD"] = str(BUILD)
        with Firmware(folder) as firmware, NativeHost(folder, firmware.address) as host:
            begun = time.time()
            host.start("-service")
            status = firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
            attempts = host.log_text().count("Couldn't read registy with RegOpenKeyEx() API in attempt")
            whole = datetime.datetime.fromisoformat(status["time"].replace("Z", "+00:00")).timestamp() - begun
            prescribed.append(attempts * 1000.0)
            own.append(whole * 1000 - attempts * 1000)
    show("from the start of the process to the firmware's first status", [
        ("prescribed waits", statistics.median(prescribed), "one second for each registry read"),
        ("the service itself", statistics.median(own), ""),
    ], "ms")


def network_scans(workdir):
    folder = workdir / "scans"
    folder.mkdir()
    counts = (5, 50, 500)
    [times] = run(BUILD / "scan", folder, *counts)
    show("one network scan", [
        (f"{count} interfaces", took, f"{took / count:.1f} us for each; {took / times[0]:.1f} times the first")
        for count, took in zip(counts, times)
    ], "us")


def measure(workdir, rounds):
    """Everything but the screen. Returns what limits were reached, as a list."""
    start_to_first_status(workdir)
    network_scans(workdir)
    return [
        log_lines(workdir, 5 * rounds),
        memory(workdir),
        latency(workdir, Service, "DASH: 64 bytes there and back", 2 * rounds, PINGS, 0),
        bulk(workdir, Service, "sink", "DASH: bulk to the firmware", rounds, LIMITS["bulk"], "push"),
        bulk(workdir, Service, "blocks", "DASH: bulk from the firmware, one block asked for at a time", rounds, 0, "pull", 1),
        latency(workdir, KvmService, "KVM: 64 bytes there and back", 2 * rounds, PINGS, 0),
        latency(workdir, KvmService, "KVM: 64 bytes there and back, 5 ms apart", rounds, KEYSTROKES, KEYSTROKE_PAUSE),
        bulk(workdir, KvmService, "sink", "KVM: bulk to the firmware", rounds, LIMITS["bulk"], "push"),
        bulk(workdir, KvmService, "blocks", "KVM: bulk from the firmware", rounds, LIMITS["bulk"], "pull", KVM_WINDOW),
    ]


PARTS = {"bytes": measure, "screen": screen.measure, "web": web.measure}


def main():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__.splitlines()[0])
    parser.add_argument("parts", nargs="*", metavar="bytes|screen|web", help="what to measure; default: all")
    parser.add_argument("--rounds", type=int, default=100, help="blocks of each peer in each measurement")
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    rounds = options.rounds
    if rounds < 1:
        parser.error("--rounds needs at least 1")
    if unknown := [part for part in options.parts if part not in PARTS]:
        parser.error(f"unknown part {', '.join(unknown)}; the parts are {', '.join(PARTS)}")
    if options.check:
        return 0
    with tempfile.TemporaryDirectory(prefix="zel-bench-") as folder:
        workdir = pathlib.Path(folder)
        reached = [limit for part in options.parts or PARTS for limit in PARTS[part](workdir, rounds)]
    print("\nall limits reached" if all(reached) else "\nsome limits were not reached")
    return 0 if all(reached) else 1


sys.exit(main())
