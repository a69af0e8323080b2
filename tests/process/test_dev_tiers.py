"""./dev test runs tests that wait beside what keeps the processors busy. The builds here are scripts that wait for the tests."""

import os
import shutil
import signal
import subprocess

import pytest

from harness.processes import REPOSITORY, is_running
from harness.waiting import eventually

BEGIN = "import os, pathlib, time\nfrom harness.waiting import eventually\nEVENTS = pathlib.Path(os.environ['EVENTS'])\n"
WAITING_TEST = BEGIN + """
def test_that_waits():
    (EVENTS / "{name}.begun").write_text(str(os.getpid()))
    eventually((EVENTS / "{beside}.begun").exists, "{beside}")
    {then}
"""
# A build or a check that ends when tests run beside it.
WAITING_TOOL = """#!/bin/sh
: >"$EVENTS/{name}.begun"
for step in $(seq 200); do
    [ ! -e "$EVENTS/{beside}.begun" ] || {then}
    sleep 0.1
done
exit 1
"""
NINJA = """#!/bin/sh
case "$*" in *mpmsim*) exit 0 ;; *build/asan*) exec "$EVENTS/build-of-asan" ;; esac
"""
CTEST = """#!/bin/sh
while [ "$1" != --output-junit ]; do shift; done
echo '<testsuite><testcase name="unit.1"/></testsuite>' >"$2"
echo 'Total Test time (real) = 1 sec'
"""
CHECKS = """check_quickly() { step "Checks"; }
check_tidy() { step "clang-tidy"; "$EVENTS/clang-tidy"; }
lint() { check_quickly; check_tidy; }
"""


def heed_interrupts():
    """A shell that starts a program in the background makes it ignore interrupts, and all that this program starts."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)


class Tree:
    """The files of the project that ./dev test needs, with sample tests and with tools that build nothing."""

    def __init__(self, folder):
        self.folder = folder
        self.tools = folder / "tools"
        self.events = folder / "events"
        for place in ("lint", "cmake", "tools", "events", "tests/windows", "tests/process", "temporary"):
            (folder / place).mkdir(parents=True)
        shutil.copy(REPOSITORY / "dev", folder)
        shutil.copy(REPOSITORY / "tests/count.py", folder / "tests")
        (folder / "tests/harness").symlink_to(REPOSITORY / "tests/harness")
        (folder / "lint/checks.sh").write_text(CHECKS)
        self.script("cmake/fetch-jsoncpp.sh")
        self.script("tools/dpkg-query", "#!/bin/sh\nprintf installed\n")
        self.script("tools/cmake")
        self.script("tools/ninja", NINJA)
        self.script("tools/ctest", CTEST)
        self.test("windows", beside="asan")
        self.tool("build-of-asan", "asan", beside="windows")
        self.test("process", beside="tidy")
        self.tool("clang-tidy", "tidy", beside="process")

    def script(self, name, text="#!/bin/sh\n"):
        (self.folder / name).write_text(text)
        (self.folder / name).chmod(0o755)

    def test(self, name, beside, then="pass"):
        (self.folder / f"tests/{name}/test_{name}.py").write_text(WAITING_TEST.format(name=name, beside=beside, then=then))

    def tool(self, file, name, beside, then="exit 0"):
        self.script(f"events/{file}", WAITING_TOOL.format(name=name, beside=beside, then=then))

    def begin(self, *tiers):
        environment = {**os.environ, "PATH": f"{self.tools}:{os.environ['PATH']}", "EVENTS": str(self.events),
                       "TMPDIR": str(self.folder / "temporary")}
        return subprocess.Popen([self.folder / "dev", "test", *tiers], env=environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True,
                                preexec_fn=heed_interrupts)

    def run(self, *tiers):
        """The exit code and the lines, without the way they are shown and without the folder of what the tests left."""
        with self.begin(*tiers) as process:
            output, _ = process.communicate(timeout=120)
        lines = [line.removeprefix("\033[1m==> ").removesuffix("\033[0m") for line in output.splitlines()]
        return process.returncode, [line for line in lines if not line.startswith("the files that the tests left are in ")]

    def pid(self, name):
        return int(eventually(lambda: (self.events / f"{name}.begun").exists() and (self.events / f"{name}.begun").read_text(),
                              f"the tests {name}"))


@pytest.fixture
def tree(tmp_path):
    return Tree(tmp_path)


def shape(lines):
    """The lines with the times taken out."""
    return [line.partition(" in ")[0] for line in lines]


def test_waiting_tests_run_beside_a_build_and_clang_tidy(tree):
    code, lines = tree.run()
    assert shape(lines) == [
        "Checks", "Building asan", "Building windows", "Building asan", "Tests: windows", "windows: 1 passed",
        "Unit tests under asan", "Total Test time (real) = 1 sec", "clang-tidy", "Tests: process-asan", "process-asan: 1 passed",
        "process-asan                 1 passed, 0 failed, 0 skipped", "unit-asan                    1 passed, 0 failed, 0 skipped",
        "windows                      1 passed, 0 failed, 0 skipped", "3 passed, 0 failed"]
    assert code == 0
    assert not os.listdir(tree.folder / "temporary")


def test_named_tiers_run_in_their_order(tree):
    tree.test("process", beside="process")
    tree.test("windows", beside="windows")
    tree.tool("build-of-asan", "asan", beside="asan")
    code, lines = tree.run("asan", "debug")
    assert [line for line in shape(lines) if line.startswith(("Building", "Unit", "Tests"))] == [
        "Building asan", "Unit tests under asan", "Building debug", "Tests: process-asan", "Unit tests under debug",
        "Tests: process-debug"]
    assert code == 0


def test_a_failed_test_is_shown_whole_and_named_at_the_end(tree):
    tree.test("windows", beside="asan", then="assert not EVENTS, 'as it should be'")
    code, lines = tree.run()
    assert code == 1
    begin, end = lines.index("Tests: windows"), lines.index("Unit tests under asan")
    assert any("as it should be" in line for line in lines[begin:end])
    assert lines[-3:] == ["1 tests failed:", "    windows: tests.windows.test_windows.test_that_waits", "2 passed, 1 failed"]


def test_findings_of_clang_tidy_end_no_tests_and_fail_the_run(tree):
    tree.tool("clang-tidy", "tidy", beside="process", then="exit 1")
    code, lines = tree.run()
    assert (code, lines[-2:]) == (1, ["3 passed, 0 failed", "dev: clang-tidy rejects the lines above"])


def test_a_failed_build_ends_the_tests_beside_it(tree):
    tree.test("windows", beside="asan", then="time.sleep(300)")
    tree.tool("build-of-asan", "asan", beside="windows", then="exit 1")
    code, lines = tree.run()
    assert (code, lines[-1]) == (1, "dev: building asan failed")
    assert not is_running(tree.pid("windows"))


@pytest.mark.parametrize("name", ["windows", "process"])
def test_an_interrupt_ends_the_tests_beside_a_build_or_check_in_order(tree, name):
    """Windows' tests run beside a build, and the process tests, with workers of their own, beside clang-tidy."""
    clean = "\n    try:\n        time.sleep(300)\n    finally:\n        (EVENTS / 'ended').touch()"
    if name == "windows":
        tree.test("windows", beside="asan", then=clean.lstrip())
        tree.tool("build-of-asan", "asan", beside="nothing")
    else:
        tree.test("process", beside="tidy", then="time.sleep(300)")
        tree.tool("clang-tidy", "tidy", beside="nothing")
    with tree.begin() as process:
        pid = tree.pid(name)
        eventually((tree.events / ("asan.begun" if name == "windows" else "tidy.begun")).exists, "what runs beside the tests")
        os.killpg(process.pid, signal.SIGINT)  # as a terminal does
        assert process.wait(60) == 130
    assert not is_running(pid)
    assert name == "process" or (tree.events / "ended").exists()
