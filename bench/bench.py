"""What the service adds to a byte, beside peers, in one run and on one core.

Every figure is the median of several rounds that take turns between the peers, because these are shared machines: only
the ratios mean something.
"""

import argparse
import contextlib
import datetime
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

BUILD = pathlib.Path(os.environ.get("ZEL_BENCH_BUILD", REPOSITORY / "build" / "bench"))
# A round trip, and bulk in either direction, beside socat; log lines beside spdlog; megabytes.
LIMITS = {"added": 4.0, "bulk": 1.0, "log": 0.5, "memory": 16.0}
KEYSTROKE_PAUSE = 5  # milliseconds
KVM_WINDOW = 16  # blocks on their way at once


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=300)
    if done.returncode:
        raise RuntimeError(f"{' '.join(map(str, command))}: {done.stderr}")
    return [float(word) for word in done.stdout.split()]


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
        self.open(stack)

    def process(self, stack, *command):
        process = Process(command, self.workdir / f"{pathlib.Path(command[0]).name}.log")
        stack.callback(process.kill)
        return process

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
        self.process(stack, "socat", f"TCP-LISTEN:{self.port},bind=127.0.0.1,fork,reuseaddr,nodelay",
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
        self.host.await_state(RUNNING)
        self.await_port(self.port)

    def idle_memory(self):
        """Resident megabytes of the service's process."""
        status = pathlib.Path(f"/proc/{self.host.pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0]) / 1024


class KvmService(Service):
    """The way of a remote screen."""

    service_port = "22"


def rounds(workdir, service, mode, count, measure):
    """The median of each way's figures, the ways taking turns."""
    figures = {}
    for number in range(count):
        for way_type in (Direct, Socat, service):
            with contextlib.ExitStack() as stack:
                way = way_type(stack, mode, pathlib.Path(tempfile.mkdtemp(dir=workdir)) / way_type.name)
                figures.setdefault(way_type.name, []).append(measure(way))
    return {name: [statistics.median(column) for column in zip(*rows)] for name, rows in figures.items()}


def show(title, rows, unit):
    print(f"\n{title}")
    for name, value, ratio in rows:
        print(f"  {name:28} {value:12,.1f} {unit:8} {ratio}")


def latency(workdir, options, service, title, count, pause):
    figures = rounds(workdir, service, "echo", options.rounds,
                     lambda way: run(BUILD / "tcpload", "ping", "127.0.0.1", way.port, count, pause))
    base = figures["direct"][0]
    added = {name: figures[name][0] - base for name in ("socat", "service")}
    ratio = added["service"] / added["socat"]
    show(f"{title}, median (p99)", [
        ("direct", base, f"p99 {figures['direct'][1]:.1f}"),
        ("socat", figures["socat"][0], f"p99 {figures['socat'][1]:.1f}; adds {added['socat']:.1f}"),
        ("console-service-firmware", figures["service"][0], f"p99 {figures['service'][1]:.1f}; adds {added['service']:.1f}, "
         f"{ratio:.2f} times what socat adds (at most {LIMITS['added']:.0f})"),
    ], "us")
    return ratio <= LIMITS["added"]


def bulk(workdir, options, service, mode, title, limit, *load):
    """`load`: the verb, and what follows the amount."""
    verb, *rest = load
    figures = rounds(workdir, service, mode, options.rounds,
                     lambda way: run(BUILD / "tcpload", verb, "127.0.0.1", way.port, options.megabytes, *rest))
    ratio = figures["service"][0] / figures["socat"][0]
    wanted = f" (at least {limit:.1f})" if limit else ""
    show(title, [
        ("direct", figures["direct"][0], ""),
        ("socat", figures["socat"][0], ""),
        ("console-service-firmware", figures["service"][0], f"{ratio:.2f} of socat{wanted}"),
    ], "MB/s")
    return ratio >= limit


def log_lines(workdir, options):
    folder = workdir / "log"
    folder.mkdir()
    service, spdlog = run(BUILD / "loglines", folder, options.lines)
    ratio = service / spdlog
    show("log lines, flushed each", [
        ("spdlog", spdlog, ""), ("service", service, f"{ratio:.2f} of spdlog (at least {LIMITS['log']})"),
    ], "lines/s")
    return ratio >= LIMITS["log"]


def memory(workdir):
    with contextlib.ExitStack() as stack:
        resident = Service(stack, "echo", workdir / "memory").idle_memory()
    show("memory of the idle service", [("resident", resident, f"(under {LIMITS['memory']:.0f})")], "MB")
    return resident < LIMITS["memory"]


def start_to_first_status(workdir, options):
    """Each registry read at the start sleeps for a second, which is prescribed; the log counts the reads."""
    own, prescribed = [], []
    for number in range(options.rounds):
        folder = workdir / f"start-{number}"
        folder.mkdir()
        os.environ["ZEL_BUILD"] = str(BUILD)
        with Firmware(folder) as firmware, NativeHost(folder, firmware.address) as host:
            begun = time.time()
            host.start("-service")
            told = firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
            attempts = host.log_text().count("Couldn't read registy with RegOpenKeyEx() API in attempt")
            whole = datetime.datetime.fromisoformat(told["time"].replace("Z", "+00:00")).timestamp() - begun
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
    times = run(BUILD / "scan", folder, *counts)
    show("one network scan", [
        (f"{count} interfaces", took, f"{took / count:.1f} us for each; {took / times[0]:.1f} times the first")
        for count, took in zip(counts, times)
    ], "us")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--pings", type=int, default=5000)
    parser.add_argument("--keystrokes", type=int, default=400)
    parser.add_argument("--megabytes", type=int, default=256)
    parser.add_argument("--lines", type=int, default=200000)
    options = parser.parse_args()
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    with tempfile.TemporaryDirectory(prefix="zel-bench-") as folder:
        workdir = pathlib.Path(folder)
        start_to_first_status(workdir, options)
        network_scans(workdir)
        reached = [
            log_lines(workdir, options),
            memory(workdir),
            latency(workdir, options, Service, "DASH: 64 bytes there and back", options.pings, 0),
            bulk(workdir, options, Service, "sink", "DASH: bulk to the firmware", LIMITS["bulk"], "push"),
            bulk(workdir, options, Service, "blocks", "DASH: bulk from the firmware, one block asked for at a time", 0,
                 "pull", 1),
            latency(workdir, options, KvmService, "KVM: 64 bytes there and back, 5 ms apart", options.keystrokes,
                    KEYSTROKE_PAUSE),
            bulk(workdir, options, KvmService, "sink", "KVM: bulk to the firmware", LIMITS["bulk"], "push"),
            bulk(workdir, options, KvmService, "blocks", "KVM: bulk from the firmware", LIMITS["bulk"], "pull", KVM_WINDOW),
        ]
    print("\nall limits reached" if all(reached) else "\nsome limits were not reached")
    return 0 if all(reached) else 1


sys.exit(main())
