"""./dev fuzz SECONDS [TARGET...]: runs each target under libFuzzer for that many seconds, on all cores at once, and prints
the results. The exit code is 1 when there are findings.
"""

import os
import pathlib
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
MEMORY = pathlib.Path("/dev/shm")  # each input writes the files of a simulated PC
# libFuzzer ends at a finding. It is then started again for the remaining time, until a core has this many findings.
MOST_FINDINGS = 5
ARGUMENTS = ["-print_final_stats=1", "-rss_limit_mb=3000", "-timeout=60"]
# Each input of these runs so much code that libFuzzer's counters would cost more time than the input itself.
WHOLE_SERVICE = {"agentpipe", "answers", "certificates", "datareader", "dispatch", "package", "platform", "sessions"}
PLAIN = ["-entropic=0", "-use_counters=0"]
ENTROPIC = ["-entropic_scale_per_exec_time=1"]
LONGEST = {"certificates": 8192, "dispatch": 256, "sessions": 256, "wsman": 4096, "pcdescription": 4096}


def targets():
    """The names of all targets. They come from the sources, so that arguments are checked before the build."""
    sources = (path.read_text() for path in (ROOT / "fuzz/targets").glob("*.cpp"))
    return sorted(name for source in sources for name in re.findall(r"^FUZZ_TARGET\((\w+)\)", source, re.MULTILINE))


def alone():
    """Returns a command prefix that starts a process in namespaces of its own, or [] where the machine does not allow it.
    The service then lists few processes when it looks for the PC's, and its ports are free."""
    prefix = ["unshare", "--user", "--map-root-user", "--pid", "--fork", "--kill-child", "--mount-proc", "--net", "--"]
    up = ["sh", "-c", 'ip link set lo up 2>/dev/null; exec "$@"', "sh"]
    works = subprocess.run(prefix + up + ["true"], capture_output=True).returncode == 0
    return prefix + up if works and shutil.which("ip") else []


def stat(output, name):
    values = re.findall(rf"stat::{name}:\s+(\d+)", output)
    return int(values[-1]) if values else 0


def last_count(output):
    """Returns the number of executions of a run that ended without printing its statistics."""
    counts = re.findall(r"^#(\d+)\s", output, re.MULTILINE)
    return int(counts[-1]) if counts else 0


class Run:
    """One target on one core. All runs of a target share their corpus. A whole service consists of threads that wake each
    other; this costs least on one core, and an idle core shows that all of them are waiting."""

    def __init__(self, target, seconds, prefix, core):
        self.target, self.seconds = target, seconds
        self.prefix = ["taskset", "--cpu-list", str(core), *prefix]
        self.name = f"core{core}"
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
        command += [f"-artifact_prefix={findings}/{self.name}-", f"-max_len={LONGEST.get(self.target, 2048)}"]
        command += PLAIN if self.target in WHOLE_SERVICE else ENTROPIC
        if self.target in WHOLE_SERVICE:
            # Their log stays open until the process ends, and the sanitizer cannot see what refers to it.
            command.append("-detect_leaks=0")
        if dictionary.exists():
            command.append(f"-dict={dictionary}")
        with tempfile.TemporaryDirectory(prefix="fuzz-", dir=MEMORY if MEMORY.is_dir() else None) as folder:
            output = findings / f"{self.name}.log"
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
        findings = BUILD / "findings" / self.target
        findings.mkdir(parents=True, exist_ok=True)
        begin = time.monotonic()
        while len(self.findings) < MOST_FINDINGS and (left := self.seconds - int(time.monotonic() - begin)) > 0:
            before = set(findings.glob(f"{self.name}-*"))
            code, output = self.once(left, findings)
            if code == 0:
                break
            new = sorted(set(findings.glob(f"{self.name}-*")) - before)
            summary = re.findall(r"^(?:SUMMARY|PROPERTY VIOLATED|.*ERROR: libFuzzer).*", output, re.MULTILINE)
            what = summary[0] if summary else f"ended with code {code}"
            self.findings.append((what, new[0] if new else None))
            if not new:
                break
        self.elapsed = time.monotonic() - begin
        return self


def report(target, runs):
    """Prints the sum of a target's runs. Returns the number of executions and of findings."""
    executions, steps, new_entries = (sum(getattr(run, name) for run in runs) for name in ("executions", "steps", "new_entries"))
    elapsed, cpu = max(run.elapsed for run in runs), sum(run.cpu for run in runs)
    findings = [finding for run in runs for finding in run.findings]
    # Executions per second of processor time are what one core of an idle machine would reach.
    print(
        f"{target:<14} {executions:>11,} executions {executions / elapsed:>8,.0f}/s "
        f"{executions / cpu if cpu else 0:>8,.0f}/s of processor time "
        f"{new_entries:>6} new entries {len(findings):>3} findings",
        flush=True,
    )
    if steps:
        print(f"    of {steps / executions:.1f} steps each, {steps / elapsed:,.0f} steps/s")
    for what, path in findings:
        print(f"    {what}")
        if path:
            print(f"    replay: build/fuzz/fuzzer {target} {path.relative_to(ROOT)}")
        else:
            print(f"    libFuzzer wrote no input; see the logs in build/fuzz/findings/{target}")
    return executions, len(findings)


def options(target):
    """Options for speed: allocation stacks are recorded only when a finding is replayed; threads get no signal stack."""
    given = os.environ.get("ASAN_OPTIONS", "")
    leaks = 0 if target in WHOLE_SERVICE else 1
    return f"malloc_context_size=1:quarantine_size_mb=16:use_sigaltstack=0:detect_leaks={leaks}" + (":" if given else "") + given


def main():
    known = targets()
    only_check = sys.argv[-1] == "--check"
    if only_check:
        del sys.argv[-1]
    if len(sys.argv) < 2 or not sys.argv[1].isdigit() or int(sys.argv[1]) == 0:
        sys.exit(f"usage: ./dev fuzz SECONDS [TARGET...]; the targets are {', '.join(known)}")
    chosen = sys.argv[2:] or known
    unknown = [name for name in chosen if name not in known]
    if unknown:
        sys.exit(f"unknown target {', '.join(unknown)}; the targets are {', '.join(known)}")
    if only_check:
        return
    prefix = alone()
    cores = sorted(os.sched_getaffinity(0))
    executions = findings = 0
    with ThreadPoolExecutor(len(cores)) as pool:
        for target in chosen:
            runs = list(pool.map(Run.run, [Run(target, int(sys.argv[1]), prefix, core) for core in cores]))
            ran, found = report(target, runs)
            executions, findings = executions + ran, findings + found
    print(f"{executions:,} executions, {findings} findings")
    sys.exit(1 if findings else 0)


if __name__ == "__main__":
    main()
