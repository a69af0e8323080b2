"""Adds up the junit files of a test run, names the tests that failed or passed only at their second try, and ends with one
line.

Exit code 1 when a test failed or none ran.
"""

import collections
import pathlib
import re
import sys
import xml.etree.ElementTree as xml

# A line of ctest's output for a run of a test that failed.
FAILED_RUN = re.compile(r"Test +#\d+: (\S+) [. ]*\*\*\*")


def name_of(case):
    """ctest writes the same twice."""
    return ".".join(dict.fromkeys(part for part in (case.get("classname"), case.get("name")) if part))


def outcome(case):
    if case.find("failure") is not None or case.find("error") is not None or case.get("status") == "fail":
        return "failed"
    return "skipped" if case.find("skipped") is not None or case.get("status") in ("disabled", "notrun") else "passed"


class Results:
    """The tests of a junit file: the names by outcome, and those that passed only at their second try.

    A test of ctest that is a part of a unit test program has a file of its own in the folder beside the junit file.
    """

    def __init__(self, path):
        self.names = collections.defaultdict(list)
        self.again = []
        root = xml.parse(path).getroot()
        self._add(root)
        parts = {part.stem: part for part in path.with_suffix("").glob("*.xml")}
        for case in root.iter("testcase"):
            if part := parts.get(case.get("name")):
                self._replace(case, xml.parse(part).getroot())
        # ctest writes only the last run of a test to its junit file, but each run to its output.
        if (log := path.with_suffix(".log")).exists():
            failed_once = set(FAILED_RUN.findall(log.read_text(errors="replace")))
            self.again += sorted(failed_once.intersection(self.names["passed"]))

    def _add(self, root):
        for case in root.iter("testcase"):
            self.names[outcome(case)].append(name_of(case))
        self.again += [test.get("name") for test in root.iter("again")]

    def _replace(self, case, part):
        # What ctest counts as a failure stays one, even if no test of the part has failed.
        if outcome(case) == "passed" or part.find(".//failure") is not None:
            self.names[outcome(case)].remove(name_of(case))
        self._add(part)


def show(tests, what):
    if tests:
        print(f"{len(tests)} tests {what}:")
        for name in tests:
            print(f"    {name}")


def main():
    totals = collections.Counter()
    failed, again = [], []
    for path in sorted(pathlib.Path(sys.argv[1]).glob("*.xml")):
        results = Results(path)
        counts = collections.Counter({kind: len(names) for kind, names in results.names.items()})
        print(f"{path.stem:24} {counts['passed']:5} passed, {counts['failed']} failed, {counts['skipped']} skipped")
        totals += counts
        failed += [f"{path.stem}: {name}" for name in results.names["failed"]]
        again += [f"{path.stem}: {name}" for name in results.again]
    show(failed, "failed")
    show(again, "passed only at their second try")
    print(f"{totals['passed']} passed, {totals['failed']} failed" + (f", {totals['skipped']} skipped" if totals["skipped"] else ""))
    return 1 if totals["failed"] or not totals["passed"] else 0


sys.exit(main())
