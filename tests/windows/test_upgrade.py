"""A software upgrade that the firmware orders: the service starts its program, whose command line counts to the letter."""

import shutil
import socket

import pytest

from harness.growing import GrowingLines
from harness.host import INSTALLATION
from harness.waiting import eventually
from harness.wine import windows_folder

PROGRAM = "ZELSWUpgrade.exe"
GIVEN = f'{INSTALLATION}bin\\{PROGRAM} "%s"'
# Wine adds quotes to a path that has none and contains a blank; Windows does not.
RECEIVED = f'"{INSTALLATION}bin\\{PROGRAM}" "%s"'


class UpgradeProgram:
    """Installed beside the service. What is started runs until end()."""

    def __init__(self, host):
        self._folder = host.executables
        shutil.copyfile(windows_folder() / "swupgrade.exe", self._folder / PROGRAM)
        self._running = self._folder / "upgrade.running"
        self._running.touch()
        self._calls, self._ends = (GrowingLines(self._folder / f"upgrade.{name}", str) for name in ("calls", "ends"))

    def calls(self):
        """The command lines of the programs that have started."""
        return self._calls.all()

    def ends(self):
        """The command lines of the programs that have come to their end."""
        return self._ends.all()

    def end(self):
        self._running.unlink(missing_ok=True)
        eventually(lambda: len(self.ends()) == len(self.calls()), "the upgrade programs to end")

    def remove(self):
        self.end()
        for path in (self._folder / PROGRAM, *self._folder.glob("upgrade.*")):
            path.unlink()


@pytest.fixture
def program(stage):
    stage.boot()
    program = UpgradeProgram(stage.host)
    yield program
    program.remove()


def upgrade(stage, text):
    file = stage.workdir / "record"
    file.write_bytes(text)
    stage.firmware.send("SOFTWARE_UPGRADE", "--file", file)


def test_the_program_gets_the_text_to_the_letter(stage, program):
    upgrade(stage, b"package 7")
    upgrade(stage, b"")  # is dropped
    upgrade(stage, b'say "now" \\')
    upgrade(stage, b"cut\0here")
    upgrade(stage, b"x" * 1022)
    upgrade(stage, b"x" * 1023)  # does not fit
    texts = ["package 7", 'say "now" \\', "cut", "x" * 1022, ""]
    eventually(lambda: len(program.calls()) == len(texts), "the upgrade programs to start")
    assert sorted(program.calls()) == sorted(RECEIVED % text for text in texts)


def test_the_program_outlives_the_service(stage, program):
    upgrade(stage, b"package 7")
    eventually(program.calls, "the upgrade program to start")
    stage.host.await_log("ZELSWUpgrade executable launched successfully")
    assert f"Command line Parameters passed to CreateProcess() API {GIVEN % 'package 7'} $$" in stage.host.log_text()
    assert stage.host.stop_service() == 0
    assert program.ends() == []
    # The program has inherited handles, but not the sockets of the service, whose port is free.
    socket.create_server(stage.host.dash_address).close()
    program.end()
    assert program.ends() == [RECEIVED % "package 7"]


def test_a_pc_without_the_program_logs_the_error(stage):
    stage.boot()
    stage.expect_errors("CreateProcess() API failed with error : 2")
    upgrade(stage, b"package 7")
    stage.host.await_log("CreateProcess() API failed with error : 2")
    assert stage.host.stop_service() == 0
