"""A unit test program runs in parts, each in one process, and its single tests are counted."""

import subprocess
import sys

import pytest

from harness.processes import REPOSITORY, build_folder

CTEST_FILE = '<testsuite><testcase name="sampletests.1" classname="sampletests.1" status="{}">{}</testcase>' \
    '<testcase name="corpus.x" classname="corpus.x" status="run"/></testsuite>'


class SampleProgram:
    """Runs the sample program and counts its results as ./dev test does."""

    def __init__(self, folder):
        self._folder = folder
        self.output = ""

    def run(self, part=1, parts=1, **environment):
        done = subprocess.run(
            [sys.executable, "-B", REPOSITORY / "tests/run_unit_tests.py", build_folder() / "sampletests", str(part), str(parts)],
            env={"ZEL_RESULTS": self._folder / "unit", "ZEL_SILENT_SECONDS": "2", **environment}, capture_output=True, text=True,
            timeout=60)
        self.output = done.stdout + done.stderr
        return done.returncode

    def count(self, failed=False):
        """The exit code and the lines of the count, when ctest reports that the first part has passed or failed."""
        state = ("fail", "<failure/>") if failed else ("run", "")
        (self._folder / "unit.xml").write_text(CTEST_FILE.format(*state))
        done = subprocess.run([sys.executable, "-B", REPOSITORY / "tests/count.py", self._folder], capture_output=True, text=True,
                              timeout=60)
        assert done.stderr == ""
        return done.returncode, [line.strip() for line in done.stdout.splitlines()[1:]]


@pytest.fixture
def sample(tmp_path):
    return SampleProgram(tmp_path)


def test_each_test_of_a_program_counts(sample):
    assert sample.run() == 0
    assert sample.output == ""
    assert sample.count() == (0, ["4 passed, 0 failed, 1 skipped"])


def test_a_part_has_its_share_of_the_tests(sample):
    assert sample.run(1, 2) == 0
    assert sample.count() == (0, ["2 passed, 0 failed, 1 skipped"])


def test_a_failing_test_is_counted_and_named_with_what_it_wrote(sample):
    assert sample.run(SAMPLE_END="failure") == 1
    assert "as the environment says" in sample.output
    assert "Sample.PassesToo" not in sample.output
    assert sample.count(failed=True) == (
        1, ["1 tests failed:", "unit: Sample.EndsAsTheEnvironmentSays", "3 passed, 1 failed, 1 skipped"])


def test_a_test_that_passes_at_its_second_try_is_named(sample, tmp_path):
    assert sample.run(SAMPLE_END="failure", SAMPLE_TRIED=tmp_path / "tried") == 0
    assert sample.count() == (
        0, ["1 tests passed only at their second try:", "unit: Sample.EndsAsTheEnvironmentSays", "4 passed, 0 failed, 1 skipped"])


ENDS = [("crash", "ended with SIGABRT, in Sample.EndsAsTheEnvironmentSays"),
        ("silence", "was silent for 2 seconds, in Sample.EndsAsTheEnvironmentSays"),
        ("late exit", "ended with exit code 23 although no test failed")]


@pytest.mark.parametrize("how, what", ENDS)
def test_a_program_that_does_not_come_to_its_end_is_one_failure(sample, how, what):
    assert sample.run(SAMPLE_END=how) == 1
    assert f"sampletests.1 {what}" in sample.output
    assert sample.count(failed=True) == (1, ["1 tests failed:", f"unit: sampletests.1 {what}", "1 passed, 1 failed"])


@pytest.mark.parametrize("how, what", ENDS)
def test_such_a_program_gets_a_second_try(sample, tmp_path, how, what):
    assert sample.run(SAMPLE_END=how, SAMPLE_TRIED=tmp_path / "tried") == 0
    assert sample.count() == (
        0, ["1 tests passed only at their second try:", f"unit: sampletests.1 {what}", "4 passed, 0 failed, 1 skipped"])


def test_a_third_try_is_refused(sample):
    """ctest starts each failed test again."""
    assert sample.run(SAMPLE_END="failure") == 1
    assert sample.run() == 1
    assert sample.output == "sampletests.1 has had its second try\n"


def test_a_part_that_ctest_ended_is_one_failure(sample):
    assert sample.count(failed=True) == (1, ["1 tests failed:", "unit: sampletests.1", "1 passed, 1 failed"])
    assert sample.run() == 0
    assert sample.count(failed=True) == (1, ["1 tests failed:", "unit: sampletests.1", "4 passed, 1 failed, 1 skipped"])


def test_a_name_may_be_longer_than_that_of_a_file(tmp_path):
    (tmp_path / "process.xml").write_text(f'<testsuite><testcase name="{"x" * 5000}"/></testsuite>')
    done = subprocess.run([sys.executable, "-B", REPOSITORY / "tests/count.py", tmp_path], capture_output=True, text=True)
    assert done.stdout.splitlines()[-1] == "1 passed, 0 failed"
