"""The page for administrators quotes lines of the log: each one has to be in the product's sources."""

import re

import pytest

from harness.processes import REPOSITORY

PAGE = REPOSITORY / "docs" / "administrators.md"
LITERALS = re.compile(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*')
CONVERSION = re.compile(r"%[-+ #0]*[0-9]*(?:\.[0-9]+)?(?:hh|h|ll|l|I64|z)?[a-zA-Z]")


def quoted_lines():
    """The first cell of each row in the tables of log lines."""
    lines, in_table = [], False
    for row in PAGE.read_text().splitlines():
        if row.startswith("| line of the log |"):
            in_table = True
        elif not row.startswith("|"):
            in_table = False
        elif in_table and not row.startswith("|---"):
            lines.append(re.match(r"\| `(.*?)` \|", row)[1])
    return lines


@pytest.fixture(scope="module")
def logged():
    """The texts of the product, with * in place of each value. Neighbouring literals are one text."""
    cmake = (REPOSITORY / "CMakeLists.txt").read_text()
    folders = re.search(r"set\(PRODUCT_FOLDERS (.*)\)", cmake)[1].split()
    found = set()
    for folder in folders:
        for source in (REPOSITORY / folder).glob("*.cpp"):
            for literal in LITERALS.findall(source.read_text()):
                text = "".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', literal))
                found.add(CONVERSION.sub("*", text))
    return found


def test_the_page_quotes_lines():
    assert len(quoted_lines()) > 40


@pytest.mark.parametrize("line", quoted_lines())
def test_a_quoted_line_is_in_the_product(logged, line):
    assert line in logged
