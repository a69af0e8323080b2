"""A private copy of the tree in which mutants are built and tested, so that no source of the developer's is ever changed."""

import contextlib
import os
import re
import signal
import subprocess
import sys
import time

from harness.processes import REPOSITORY, with_owner

_PROCESS_TESTS_SECONDS = 400
_BUILD_SECONDS = 1800
_PROGRAMS = ["ZELService", "ZELKVMApp", "userconsent", "mpmsim", "pipeserver"]  # of the process tests


class Broken(Exception):
    """The unchanged tree does not build, or its tests fail."""


class Outcome:
    NOT_COMPILED, KILLED, SURVIVED = "does not compile", "killed", "SURVIVED"


class Workshop:
    """`folders` are the folders of the product with unit tests."""

    def __init__(self, root, folders):
        self._root = root
        self._build = root / "build" / "debug"
        self._folders = folders
        self._time_limits = {}
        self._process = None

    # --- preparation ---

    def prepare(self):
        """Copies the tree as it is now, builds it and runs its tests once."""
        self._copy()
        self._root.joinpath("build").mkdir(exist_ok=True)
        # A mutant may leave a variable unused.
        if self._run(["cmake", "--preset", "debug", "-DCMAKE_CXX_FLAGS=-w"], _BUILD_SECONDS)[0] != 0:
            raise Broken(f"{self._root} cannot be configured")
        if not self._compile([*(f"{folder}_tests" for folder in self._folders), *_PROGRAMS]):
            raise Broken(f"{self._root} does not build")
        for folder in self._folders:
            begin = time.monotonic()
            self._time_limits[folder] = 600
            if failed := self._failures_of(folder):
                raise Broken(f"tests of {folder} fail without a mutation: {' '.join(failed)}")
            self._time_limits[folder] = 20 + 4 * (time.monotonic() - begin)

    def _copy(self):
        listed = subprocess.run(
            ["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=REPOSITORY, stdout=subprocess.PIPE, check=True
        ).stdout.decode()
        wanted = {name for name in listed.split("\0") if name and (REPOSITORY / name).is_file()}
        for name in wanted:
            self._write(name, (REPOSITORY / name).read_bytes(), (REPOSITORY / name).stat().st_mode)
        for path in self._root.rglob("*"):
            name = path.relative_to(self._root)
            if name.parts[0] != "build" and path.is_file() and str(name) not in wanted:
                path.unlink()

    def _write(self, name, content, mode=0o644):
        """Keeps the time of a file that stays the same, so that ninja does not build it again."""
        path = self._root / name
        if path.is_file() and path.read_bytes() == content:
            return
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        path.chmod(mode)

    # --- one mutant ---

    def test(self, mutation):
        """Returns the outcome, and which tests killed the mutant."""
        original = (REPOSITORY / mutation.path).read_text()
        self._write(mutation.path, mutation.apply(original).encode())
        try:
            return self._judge(mutation.path.split("/")[0])
        finally:
            self._write(mutation.path, original.encode())

    def _judge(self, folder):
        # A folder without tests of its own is tested with the service.
        first = folder if folder in self._folders else "service"
        for tested in (first, *(other for other in self._folders if other != first)):
            if not self._compile([f"{tested}_tests"]):
                return Outcome.NOT_COMPILED, ""
            if failed := self._failures_of(tested):
                return Outcome.KILLED, failed[0]
        if not self._compile(["ZELService"]):
            return Outcome.NOT_COMPILED, ""
        if failed := self._failing_process_tests():
            return Outcome.KILLED, failed[0]
        return Outcome.SURVIVED, ""

    def _failures_of(self, folder):
        """The first failing test. A test that passes when it runs again does not count."""
        arguments = [self._build / f"{folder}_tests", "--gtest_fail_fast", "--gtest_brief=1"]
        for _ in range(2):
            code, output = self._run(arguments, self._time_limits[folder])
            if code == 0:
                return []
            failed = re.findall(r"^\[  FAILED  \] ([\w/.]+)", output, re.MULTILINE)
            if not failed:
                return [f"{folder}_tests ({'too slow' if code is None else f'ends with {code}'})"]
            if self._run([*arguments, f"--gtest_filter={failed[0]}"], self._time_limits[folder])[0] != 0:
                return failed
        return []

    def _failing_process_tests(self):
        def run(*tests):
            command = [sys.executable, "-m", "pytest", "-x", "-q", "-p", "no:cacheprovider", "-n", "4", *tests]
            return self._run(command, _PROCESS_TESTS_SECONDS, ZEL_BUILD=str(self._build), PYTHONPATH="tests")

        code, output = run("tests/process")
        if code in (0, None):
            return [] if code == 0 else ["tests/process (too slow)"]
        failed = re.findall(r"^(?:FAILED|ERROR) (\S+)", output, re.MULTILINE)
        return failed if not failed or run(*failed[:1])[0] != 0 else []

    # --- commands ---

    def _compile(self, targets):
        return self._run(["ninja", "-C", self._build, "-j", "2", *targets], _BUILD_SECONDS)[0] == 0

    def _run(self, command, seconds, **environment):
        """Returns the exit code, None when the time was up, and the output."""
        self._process = subprocess.Popen(
            with_owner(command),
            cwd=self._root,
            env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1", **environment},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            errors="replace",
            start_new_session=True,
        )
        try:
            output, _ = self._process.communicate(timeout=seconds)
            return self._process.returncode, output
        except subprocess.TimeoutExpired:
            self.stop()
            return None, ""

    def stop(self):
        """Ends the running command and everything that it has started."""
        if self._process:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(self._process.pid, signal.SIGKILL)
            self._process.communicate()
