"""Adds up the junit files of a test run and closes it with one line. Exit code 1 when a test failed or none ran."""

import pathlib
import sys
import xml.etree.ElementTree as xml


def count(path):
    root = xml.parse(path).getroot()
    suites = [root] if root.tag == "testsuite" else root.findall("testsuite")
    read = lambda key: sum(int(suite.get(key) or 0) for suite in suites)
    failed = read("failures") + read("errors")
    skipped = read("skipped") + read("disabled")
    return read("tests") - failed - skipped, failed, skipped


def main():
    totals = [0, 0, 0]
    for path in sorted(pathlib.Path(sys.argv[1]).glob("*.xml")):
        result = count(path)
        print(f"{path.stem:24} {result[0]:5} passed, {result[1]} failed, {result[2]} skipped")
        totals = [total + part for total, part in zip(totals, result)]
    print("{} passed, {} failed".format(*totals) + (f", {totals[2]} skipped" if totals[2] else ""))
    return 1 if totals[1] or not totals[0] else 0


sys.exit(main())
