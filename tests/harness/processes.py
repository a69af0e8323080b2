"""Child processes whose output goes to a file and which never outlive their owner."""

import contextlib
import os
import pathlib
import signal
import subprocess

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]


def build_folder():
    """Where the native binaries under test lie: ZEL_BUILD, or build/native."""
    return pathlib.Path(os.environ.get("ZEL_BUILD", REPOSITORY / "build" / "native"))


def with_owner(command):
    """The command, changed so that its process ends with this one at the latest, however this one ends."""
    return ["setpriv", "--pdeathsig", "KILL", "--", *(str(word) for word in command)]


def is_running(pid):
    """Whether a process of this id runs; one that has ended and only waits for its parent doesn't."""
    return bool(_environment(pid))


def end_all_with(variable):
    """Ends the processes that were started with this environment variable ("NAME=value"), whoever started them."""
    while marked := [pid for pid in _process_ids() if variable.encode() in _environment(pid)]:
        for pid in marked:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)


def command_line(pid):
    """The words of a process; none of one that has gone."""
    with contextlib.suppress(OSError):
        return pathlib.Path(f"/proc/{pid}/cmdline").read_text(errors="replace").split("\0")
    return []


def descendants(pid):
    """The processes that this one has started, and those that they have started."""
    parents = {}
    for each in _process_ids():
        with contextlib.suppress(OSError):
            parents[each] = int(pathlib.Path(f"/proc/{each}/stat").read_text().rpartition(")")[2].split()[1])

    def is_below(each):
        while each in parents and each != pid:
            each = parents[each]
        return each == pid
    return [each for each in parents if each != pid and is_below(each)]


def _process_ids():
    return [int(folder.name) for folder in pathlib.Path("/proc").glob("[0-9]*")]


def _environment(pid):
    """Nothing for a process that has gone, or whose end nothing has taken note of, or that is another user's."""
    try:
        return pathlib.Path(f"/proc/{pid}/environ").read_bytes().split(b"\0")
    except OSError:
        return []


class Process:
    """A running program. Its standard output and error go to `log`; it has no standard input."""

    def __init__(self, command, log, env=None, cwd=None):
        self.log = pathlib.Path(log)
        with open(self.log, "ab") as output:
            self._process = subprocess.Popen(
                with_owner(command),
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=subprocess.STDOUT,
                env={**os.environ, **(env or {})},
                cwd=cwd,
                start_new_session=True,  # Ctrl-C is for the owner, who ends it in order
            )
        self.pid = self._process.pid

    def output(self):
        return self.log.read_text(errors="replace")

    def running(self):
        return self._process.poll() is None

    def wait(self, patience=20.0):
        """The exit code; raises subprocess.TimeoutExpired while it still runs."""
        return self._process.wait(patience)

    def signal(self, number):
        if self.running():
            self._process.send_signal(number)

    def end(self, patience=5.0):
        """Asks it to end, insists after `patience` seconds, and returns the exit code."""
        self.signal(signal.SIGTERM)
        try:
            return self.wait(patience)
        except subprocess.TimeoutExpired:
            self._process.kill()
            return self.wait()

    def kill(self):
        if self.running():
            self._process.kill()
        return self.wait()
