"""Runs one part of a GoogleTest program in one process, and each test that failed once more in a process of its own.

    run_unit_tests.py PROGRAM PART PARTS

The results go to $ZEL_RESULTS/PROGRAM.PART.xml in GoogleTest's format, with an element <again> for each test that passed
only at its second try. Exit code 1 when a test failed at both. Without $ZEL_RESULTS the program only runs.
"""

import dataclasses
import os
import pathlib
import re
import signal
import subprocess
import sys
import xml.etree.ElementTree as xml

from harness.processes import with_owner

# Killed after this many seconds without output; each test writes a line when it begins and when it ends.
SILENT_SECONDS = float(os.environ.get("ZEL_SILENT_SECONDS", 60))

BEGIN_OF_TEST = re.compile(r"\[ RUN      \] (\S+)\n")
END_OF_TEST = re.compile(r"\[ +(?:OK|FAILED|SKIPPED) +\] .*\(\d+ ms\)\n")
END_OF_PROGRAM = re.compile(r"\[==========\] \d+ tests? from \d+ test suites? ran")


@dataclasses.dataclass
class Run:
    """What a process of the program left: the junit file only when it ran all its tests."""
    results: xml.ElementTree
    end: str  # empty when the exit code agrees with the results
    output: str

    def has_run(self, name):
        return name in map(name_of, self.results.iter("testcase"))

    def failed(self):
        return [case for case in self.results.iter("testcase") if case.find("failure") is not None]

    def part_of(self, name):
        """What the test of this name wrote."""
        return next((text for test, text in self._tests() if test == name), "")

    def suspects(self):
        """The tests that did not end, or that a sanitizer reported, and what they wrote."""
        return [(name, text) for name, text in self._tests() if not END_OF_TEST.search(text) or "Sanitizer: " in text]

    def _tests(self):
        _, *pieces = BEGIN_OF_TEST.split(END_OF_PROGRAM.split(self.output)[0])
        return list(zip(pieces[::2], pieces[1::2]))


def name_of(case):
    return f"{case.get('classname')}.{case.get('name')}"


def wait(process, log):
    """The exit code, or None when the process was killed because it was silent for too long."""
    size = None
    while size != log.stat().st_size:
        size = log.stat().st_size
        try:
            return process.wait(SILENT_SECONDS)
        except subprocess.TimeoutExpired:
            pass
    process.kill()
    process.wait()
    return None


def run(program, name, environment):
    log = pathlib.Path(f"{name}.log")
    results = pathlib.Path(f"{name}.part")
    with open(log, "wb") as output:
        with subprocess.Popen(with_owner([program, f"--gtest_output=xml:{results}"]), stdin=subprocess.DEVNULL, stdout=output,
                              stderr=subprocess.STDOUT, env={**os.environ, **environment}) as process:
            code = wait(process, log)
    made = Run(None, "", log.read_text(errors="replace"))
    if code is None:
        made.end = f"was silent for {SILENT_SECONDS:g} seconds"
    elif code < 0:
        made.end = f"ended with {signal.Signals(-code).name}"
    else:
        try:
            made.results = xml.parse(results)
        except (OSError, xml.ParseError):
            made.end = f"ended with exit code {code} and without results"
        else:
            if code and not made.failed():
                made.end = f"ended with exit code {code} although no test failed"
    results.unlink(missing_ok=True)
    return made


def run_part(program, name, part):
    """The results of this part of the tests. A program that does not come to its end is started a second time."""
    again = []
    second = name.with_name(f"{name.name}.again")
    for this_try in (name, second):
        made = run(program, this_try, part)
        if not made.end:
            break
        suspects = made.suspects()
        what = f"{name.name} {made.end}" + "".join(f", in {test}" for test, _ in suspects)
        print(what, *(text for _, text in suspects), *END_OF_PROGRAM.split(made.output)[1:], sep="\n")
        again.append(what)
    else:
        made.results = xml.ElementTree(xml.Element("testsuites"))
        xml.SubElement(xml.SubElement(made.results.getroot(), "testcase", name=what), "failure", message=made.end)
        return made.results
    for case in made.failed():
        test = name_of(case)
        print(made.part_of(test))
        alone = run(program, second, {"GTEST_FILTER": test})
        if not alone.end and alone.has_run(test) and not alone.failed():
            for failure in case.findall("failure"):
                case.remove(failure)
            again.append(test)
        print(f"second try of {test}:\n{alone.output}")
    for test in again:
        xml.SubElement(made.results.getroot(), "again", name=test)
    return made.results


def main():
    program, part, parts = sys.argv[1:]
    environment = {"GTEST_SHARD_INDEX": str(int(part) - 1), "GTEST_TOTAL_SHARDS": parts}
    if "ZEL_RESULTS" not in os.environ:
        os.execve(program, [program], {**os.environ, **environment})
    name = pathlib.Path(os.environ["ZEL_RESULTS"]) / f"{pathlib.Path(program).name}.{part}"
    file = name.with_name(f"{name.name}.xml")
    if file.exists():
        print(f"{name.name} has had its second try")
        return 1
    name.parent.mkdir(parents=True, exist_ok=True)
    results = run_part(program, name, environment)
    unfinished = name.with_name(f"{name.name}.part")
    results.write(unfinished)
    unfinished.rename(file)
    return 1 if results.find(".//failure") is not None else 0


if __name__ == "__main__":
    sys.exit(main())
