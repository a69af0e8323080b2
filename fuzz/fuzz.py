"""./dev fuzz SECONDS [TARGET...]: runs the targets under libFuzzer, as many at a time as there are cores, for so many
seconds each, and prints what came of it. Exit code 1 when there are findings.
"""

import os
import pathlib
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/fuzz"
FUZZER = BUILD / "fuzzer"
MEMORY = pathlib.Path("/dev/shm")  # for the files of a simulated PC, which each input writes
# A start of the program that finds something is a finding, and the target goes on with the time that is left.
MOST_FINDINGS = 5
ARGUMENTS = ["-print_final_stats=1", "-rss_limit_mb=3000", "-timeout=60"]
# These run so much of the product each time that libFuzzer's own bookkeeping of how often, and in which inputs, costs more
# than the input.
WHOLE_SERVICE = {"answers", "dispatch", "platform", "sessions"}
PLAIN = ["-entropic=0", "-use_counters=0"]
ENTROPIC = ["-entropic_scale_per_exec_time=1"]
LONGEST = {"dispatch": 256, "sessions": 256, "wsman": 4096, "pcdescription": 4096}


def targets():
    listing = subprocess.run([FUZZER], capture_output=True, text=True)
    return [line.strip() for line in listing.stderr.splitlines() if line.startswith("  ")]


def alone():
    """The prefix for a process that sees no process but its own, where this machine allows that: the service's look
    at the PC's processes is a look at few then, and its ports are its own."""
    prefix = ["unshare", "--user", "--map-root-user", "--pid", "--fork", "--kill-child", "--mount-proc", "--net", "--"]
    up = ["sh", "-c", 'ip link set lo up 2>/dev/null; exec "$@"', "sh"]
    works = subprocess.run(prefix + up + ["true"], capture_output=True).returncode == 0
    return prefix + up if works and shutil.which("ip") else []


def stat(output, name):
    values = re.findall(rf"stat::{name}:\s+(\d+)", output)
    return int(values[-1]) if values else 0


def last_count(output):
    """The number of executions, of a run that ended without its statistics."""
    counts = re.findall(r"^#(\d+)\s", output, re.MULTILINE)
    return int(counts[-1]) if counts else 0


class Run:
    def __init__(self, target, seconds, prefix, cores):
        self.target, self.seconds, self.prefix, self.cores = target, seconds, prefix, cores
        self.executions = self.steps = self.new_entries = 0
        self.elapsed = self.cpu = 0.0
        self.findings = []

    def once(self, seconds, findings):
        corpus = BUILD / "corpus" / self.target
        corpus.mkdir(parents=True, exist_ok=True)
        seeds = ROOT / "fuzz/corpus" / self.target
        seeds.mkdir(parents=True, exist_ok=True)
        dictionary = ROOT / "fuzz/dictionaries" / f"{self.target}.dict"
        command = self.prefix + ["nice", "-n", "10", str(FUZZER), self.target, f"-max_total_time={seconds}", *ARGUMENTS]
        command += [f"-artifact_prefix={findings}/", f"-max_len={LONGEST.get(self.target, 2048)}"]
        command += PLAIN if self.target in WHOLE_SERVICE else ENTROPIC
        if self.target in WHOLE_SERVICE:
            # Their log stays open as long as the process, and the sanitizer does not see who holds it.
            command.append("-detect_leaks=0")
        if dictionary.exists():
            command.append(f"-dict={dictionary}")
        with tempfile.TemporaryDirectory(prefix="fuzz-", dir=MEMORY if MEMORY.is_dir() else None) as folder:
            output = BUILD / "findings" / f"{self.target}.log"
            with output.open("wb") as log:
                process = subprocess.Popen(
                    command + [str(corpus), str(seeds)],
                    stdout=subprocess.DEVNULL,
                    stderr=log,
                    stdin=subprocess.DEVNULL,
                    env={**os.environ, "TMPDIR": folder, "ASAN_OPTIONS": options(self.target)},
                )
                _, status, usage = os.wait4(process.pid, 0)
        self.cpu += usage.ru_utime + usage.ru_stime
        output = output.read_text(errors="replace")
        self.executions += stat(output, "number_of_executed_units") or last_count(output)
        self.steps += stat(output, "number_of_steps")
        self.new_entries += stat(output, "new_units_added")
        return os.waitstatus_to_exitcode(status), output

    def run(self):
        # A whole service is many threads that wake each other, which costs least on one core; and there it can be told
        # when all of them have come to rest.
        core = self.cores.get()
        try:
            return self.on_core(core)
        finally:
            self.cores.put(core)

    def on_core(self, core):
        self.prefix = ["taskset", "--cpu-list", str(core), *self.prefix]
        findings = BUILD / "findings" / self.target
        findings.mkdir(parents=True, exist_ok=True)
        begin = time.monotonic()
        while len(self.findings) < MOST_FINDINGS and (left := self.seconds - int(time.monotonic() - begin)) > 0:
            before = set(findings.iterdir())
            code, output = self.once(left, findings)
            if code == 0:
                break
            new = sorted(path for path in findings.iterdir() if path not in before)
            summary = re.findall(r"^(?:SUMMARY|PROPERTY VIOLATED|.*ERROR: libFuzzer).*", output, re.MULTILINE)
            what = summary[0] if summary else f"ended with code {code}"
            self.findings.append((what, new[0] if new else None))
            if not new:
                break
        self.elapsed = time.monotonic() - begin
        return self

    def report(self):
        rate = self.executions / self.elapsed if self.elapsed else 0
        # What a machine with nothing else to do would reach, where a target computes more than it waits.
        pure = self.executions / self.cpu if self.cpu else 0
        print(
            f"{self.target:<14} {self.executions:>11,} executions {rate:>8,.0f}/s {pure:>8,.0f}/s of processor time "
            f"{self.new_entries:>6} new entries {len(self.findings):>3} findings",
            flush=True,
        )
        if self.steps:
            print(f"    of {self.steps / self.executions:.1f} steps each, {self.steps / self.elapsed:,.0f} steps/s")
        for what, path in self.findings:
            print(f"    {what}")
            if path:
                print(f"    replay: build/fuzz/fuzzer {self.target} {path.relative_to(ROOT)}")
            else:
                print(f"    no input was kept; see build/fuzz/findings/{self.target}.log")


def options(target):
    """For speed: where memory was allocated is told in full only when a finding is replayed, and no thread gets a stack
    for its signals."""
    given = os.environ.get("ASAN_OPTIONS", "")
    leaks = 0 if target in WHOLE_SERVICE else 1
    return f"malloc_context_size=1:quarantine_size_mb=16:use_sigaltstack=0:detect_leaks={leaks}" + (":" if given else "") + given


def main():
    known = targets()
    if len(sys.argv) < 2 or not sys.argv[1].isdigit() or int(sys.argv[1]) == 0:
        sys.exit(f"usage: ./dev fuzz SECONDS [TARGET...]; the targets are {', '.join(known)}")
    chosen = sys.argv[2:] or known
    unknown = [name for name in chosen if name not in known]
    if unknown:
        sys.exit(f"no target {', '.join(unknown)}; the targets are {', '.join(known)}")
    prefix = alone()
    cores = queue.SimpleQueue()
    for core in os.sched_getaffinity(0):
        cores.put(core)
    with ThreadPoolExecutor(cores.qsize()) as pool:
        runs = [pool.submit(Run(name, int(sys.argv[1]), prefix, cores).run) for name in chosen]
        done = [run.result().report() or run.result() for run in runs]
    findings = sum(len(run.findings) for run in done)
    print(f"{sum(run.executions for run in done):,} executions, {findings} findings")
    sys.exit(1 if findings else 0)


if __name__ == "__main__":
    main()
