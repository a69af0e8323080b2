"""lint/tidy.py checks several sources at a time, and reports the findings of the single sources."""

import json
import os
import subprocess
import sys

import pytest

from harness.processes import REPOSITORY

# Finds a source that contains "finding", and takes two sources with "same name" in one file for an error.
CLANG_TIDY = f"""#!{sys.executable}
import pathlib, re, sys
file = pathlib.Path(sys.argv[-1])
text = file.read_text()
sources = re.findall('#include "(.*)"', text) or [file]
with open(file.parents[2] / "checked" if len(sources) > 1 else file.parents[1] / "checked", "a") as checked:
    checked.write(file.name + "\\n")
contents = [pathlib.Path(source).read_text() for source in sources]
found = [f"{{pathlib.Path(source).name}}: finding" for source, text in zip(sources, contents) if "finding" in text]
if sum("same name" in text for text in contents) > 1:
    found.append("redefinition")
print("3 warnings generated.", *found, sep="\\n")
sys.exit(1 if found else 0)
"""


class Product:
    """Twelve sources, which make two batches, and a clang-tidy that notes what it checks."""

    def __init__(self, folder):
        self._folder = folder
        self._tools = folder / "tools"
        self._build = folder / "build"
        self._contents = {f"{number:02}.cpp": "" for number in range(12)}
        for place in ("tools", "build", "base", "other"):
            (folder / place).mkdir()
        (self._tools / "clang-tidy").write_text(CLANG_TIDY)
        (self._tools / "clang-tidy").chmod(0o755)

    def write(self, name, text):
        self._contents[name] = text

    def check(self):
        """The exit code, the lines, and the files that were checked."""
        files = [self._folder / "base" / name for name in self._contents] + [self._folder / "other" / "no product.cpp"]
        for file in files:
            file.write_text(self._contents.get(file.name, "finding"))
        (self._build / "compile_commands.json").write_text(json.dumps(
            [{"directory": str(self._build), "file": str(file), "command": f"c++ -c {file}"} for file in files]))
        done = subprocess.run([sys.executable, "-B", REPOSITORY / "lint/tidy.py", "build", "1", "base"], cwd=self._folder,
                              env={**os.environ, "PATH": f"{self._tools}:{os.environ['PATH']}"}, capture_output=True, text=True,
                              timeout=60)
        assert done.stderr == ""
        return done.returncode, done.stdout.splitlines(), (self._folder / "checked").read_text().split()


@pytest.fixture
def product(tmp_path):
    return Product(tmp_path)


def test_sources_without_findings_are_checked_together(product):
    assert product.check() == (0, [], ["0.cpp", "1.cpp"])


def test_each_finding_is_reported_once_and_by_its_source(product):
    product.write("03.cpp", "finding")
    product.write("05.cpp", "finding")
    code, lines, checked = product.check()
    assert (code, lines) == (1, ["03.cpp: finding", "05.cpp: finding"])
    assert sorted(checked) == ["0.cpp", "01.cpp", "03.cpp", "05.cpp", "07.cpp", "09.cpp", "1.cpp", "11.cpp"]


def test_sources_that_cannot_be_one_file_are_checked_one_by_one(product):
    product.write("02.cpp", "same name")
    product.write("04.cpp", "same name")
    code, lines, checked = product.check()
    assert (code, lines) == (0, ["some sources had to be checked one by one: redefinition"])
    assert len(checked) == 8


def test_sources_with_the_same_constant_are_in_different_batches(product):
    product.write("02.cpp", "constexpr const char* kName = \"same name\";")
    product.write("04.cpp", "constexpr int kOther = 0, kName[2] = {1};  // same name")
    assert product.check() == (0, [], ["0.cpp", "1.cpp"])


def test_the_compile_command_of_a_batch_is_that_of_its_sources(product, tmp_path):
    product.check()
    [first, second] = json.loads((tmp_path / "build/tidy/compile_commands.json").read_text())
    assert first["command"] == f"c++ -c {tmp_path}/build/tidy/0.cpp"
    assert second["file"] == f"{tmp_path}/build/tidy/1.cpp"
