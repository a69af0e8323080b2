"""Adds up the junit files of a test run, names the tests that passed only at their second try, and ends with one line.

Exit code 1 when a test failed or none ran.
"""

import pathlib
import re
import sys
import xml.etree.ElementTree as xml

# A line of ctest's output for a run of a test that failed.
FAILED_RUN = re.compile(r"Test +#\d+: (\S+) [. ]*\*\*\*")


def count(path):
    root = xml.parse(path).getroot()
    suites = [root] if root.tag == "testsuite" else root.findall("testsuite")

    def read(key):
        return sum(int(suite.get(key) or 0) for suite in suites)

    failed = read("failures") + read("errors")
    skipped = read("skipped") + read("disabled")
    return read("tests") - failed - skipped, failed, skipped


def failed_tests(path):
    cases = xml.parse(path).getroot().iter("testcase")
    return {case.get("name") for case in cases if case.find("failure") is not None or case.get("status") == "fail"}


def second_tries(path):
    """The tests of a junit file that failed once and then passed. ctest writes only the last run of a test to that file, but
    each run to its output."""
    log = path.with_suffix(".log")
    failed_once = set(FAILED_RUN.findall(log.read_text(errors="replace"))) if log.exists() else set()
    return sorted(failed_once - failed_tests(path))


def main():
    totals = [0, 0, 0]
    retried = []
    for path in sorted(pathlib.Path(sys.argv[1]).glob("*.xml")):
        result = count(path)
        print(f"{path.stem:24} {result[0]:5} passed, {result[1]} failed, {result[2]} skipped")
        totals = [total + part for total, part in zip(totals, result)]
        retried += [f"{path.stem}: {name}" for name in second_tries(path)]
    if retried:
        print(f"{len(retried)} tests passed only at their second try:")
        for name in retried:
            print(f"    {name}")
    print("{} passed, {} failed".format(*totals) + (f", {totals[2]} skipped" if totals[2] else ""))
    return 1 if totals[1] or not totals[0] else 0


sys.exit(main())
