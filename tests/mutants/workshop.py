"""A private copy of the tree in which mutants are built and tested, so that no source of the developer's is ever changed."""

import contextlib
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

from harness.processes import REPOSITORY, with_owner

_PROCESS_TESTS_SECONDS = 400
_BUILD_SECONDS = 1800
_SHARDS = 6  # of one run of a folder's unit tests
_PROGRAMS = ["ZELService", "mpmsim", "pipeserver", "sampletests", "companions/all", "runtime/software/all"]  # of the process tests


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
        self._processes = []

    # --- preparation ---

    def prepare(self):
        """Copies the tree as it is now, builds it and runs its tests once."""
        self._copy()
        self._root.joinpath("build").mkdir(exist_ok=True)
        # A mutant may leave a variable unused. Without debug information it builds and links much faster.
        flags = ["-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_CXX_FLAGS_DEBUG=", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold"]
        if self._run(["cmake", "--preset", "debug", *flags], _BUILD_SECONDS)[0] != 0:
            raise Broken(f"{self._root} cannot be configured")
        if not self._compile([*(f"{folder}_tests" for folder in self._folders), *_PROGRAMS]):
            raise Broken(f"{self._root} does not build")
        for folder in self._folders:
            begin = time.monotonic()
            self._time_limits[folder] = 600
            if failed := self._failures_of(folder):
                raise Broken(f"tests of {folder} fail without a mutation: {' '.join(failed)}")
            self._time_limits[folder] = 20 + 4 * (time.monotonic() - begin)
        if failed := self._failing_process_tests():
            raise Broken(f"process tests fail without a mutation: {' '.join(failed)}")

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
        if not self._compile(_PROGRAMS):
            return Outcome.NOT_COMPILED, ""
        if failed := self._failing_process_tests():
            return Outcome.KILLED, failed[0]
        return Outcome.SURVIVED, ""

    def _failures_of(self, folder):
        """The first failing test. A test that passes when it runs again does not count."""
        arguments = [self._build / f"{folder}_tests", "--gtest_fail_fast", "--gtest_brief=1"]
        for _ in range(2):
            code, output = self._run_shards(arguments, self._time_limits[folder])
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
        with tempfile.TemporaryFile("w+", errors="replace") as output:
            process = self._start(command, output, environment)
            try:
                process.wait(seconds)
            except subprocess.TimeoutExpired:
                self.stop()
                return None, ""
            self._processes.remove(process)
            output.seek(0)
            return process.returncode, output.read()

    def _run_shards(self, command, seconds):
        """Runs a test program as several processes, because tests wait most of their time. The first that fails ends all."""
        with contextlib.ExitStack() as stack:
            outputs = [stack.enter_context(tempfile.TemporaryFile("w+", errors="replace")) for _ in range(_SHARDS)]
            running = {}
            for index, output in enumerate(outputs):
                shard = {"GTEST_TOTAL_SHARDS": str(_SHARDS), "GTEST_SHARD_INDEX": str(index)}
                running[self._start(command, output, shard)] = output
            deadline = time.monotonic() + seconds
            while running and time.monotonic() < deadline:
                for process in [process for process in running if process.poll() is not None]:
                    output = running.pop(process)
                    self._processes.remove(process)
                    if process.returncode != 0:
                        self.stop()
                        output.seek(0)
                        return process.returncode, output.read()
                time.sleep(0.05)
            self.stop()
            return (None, "") if running else (0, "")

    def _start(self, command, output, environment):
        process = subprocess.Popen(
            with_owner(command),
            cwd=self._root,
            env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1", **environment},
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=subprocess.STDOUT,
            start_new_session=True,
        )
        self._processes.append(process)
        return process

    def stop(self):
        """Ends the running commands and everything that they have started."""
        for process in self._processes:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()
        self._processes.clear()
