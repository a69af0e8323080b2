"""A PC, its firmware and its service for each test; whatever a test did not expect fails it."""

import contextlib

import pytest

from harness.console import Console
from harness.firmware import Firmware
from harness.kvm import SESSION_END_ERRORS, RemoteKvm
from harness.host import CAPABILITY_QUERY, RUNNING, without_encoder_report
from harness.native import NativeHost
from harness.processes import build_folder
from harness.waiting import eventually
from soak.tally import MEMORY_SLACK, Growth, settled

WARM_UP = 5  # what a process keeps after its first actions of a kind is not growth
LOOKS = 10


def pytest_addoption(parser):
    parser.addoption("--repetitions", type=int, default=30, help="of the action in each test that nothing of it is left")
    parser.addoption("--sleep-of-page", type=float, default=1, help="how many seconds a page of the lab sleeps")


class Stage:
    """One PC with its firmware. Processes start when the test says so and end with it."""

    def __init__(self, workdir):
        self._stack = contextlib.ExitStack()
        self.workdir = workdir
        self.firmware = Firmware(workdir)
        # The receive task polls without a lock, so that a close by another thread may meet it in its call.
        self._expected_errors = ("recv() failed. Error: 10038",)
        self._expected_output = ""
        self.host = None

    def power_up(self, firmware=True, **pc):
        """The PC with its firmware; the service isn't started yet."""
        if firmware:
            self.start_firmware()
        self.host = self._stack.enter_context(NativeHost(self.workdir, self.firmware.address, **pc))
        return self

    def start_firmware(self):
        self.firmware.start()
        self._stack.callback(self.firmware.close)

    def boot(self, **pc):
        """The service started by the SCM, the firmware informed and the DASH port open."""
        self.power_up(**pc)
        self.host.start_service()
        self.host.await_state(RUNNING)
        self.host.await_log("Calling HTTPS Socket Accept")
        return self

    @property
    def console(self):
        return Console(self.host.dash_address)

    def expect_errors(self, *texts):
        """ERROR lines that hold one of these texts belong to the test."""
        self._expected_errors += texts

    def expect_output(self, text):
        """The service's processes print this, in the order of their starts."""
        self._expected_output += text

    def close(self):
        self._stack.close()

    def check(self):
        unexpected = [line for line in self.host.error_lines() if not any(text in line for text in self._expected_errors)]
        assert not unexpected, "ERROR lines in the service's log:\n" + "\n".join(unexpected)
        assert without_encoder_report(self.host.output()) == self._expected_output, f"the service printed:\n{self.host.output()}"


class KvmStage(RemoteKvm):
    """Remote KVM on a stage of its own."""

    def __init__(self, stage):
        self.stage = stage
        self._removals = 0
        stage.expect_errors(*SESSION_END_ERRORS)

    # The stage has them once the PC is powered up.
    host = property(lambda self: self.stage.host)
    firmware = property(lambda self: self.stage.firmware)

    def use_firmware(self, kvm="echo", level=50, **settings):
        """The firmware's level, who takes the consoles' bytes from it, and further settings of it."""
        self.stage.firmware = Firmware(self.stage.workdir, kvm=kvm, settings={"uVORKVersion": level, **settings})

    def boot(self, kvm="echo", level=50, **pc):
        """The service up, and KVM not yet enabled."""
        self.use_firmware(kvm, level)
        self.stage.boot(**pc)
        return self

    def boot_with_screen(self, desktop, port=None):
        """The service up with the desktop as the screen of its PC, and KVM enabled, at this port of the machine if one is given."""
        self.stage.expect_errors("LUX_KVM: Recevied DispEvtCaptureEncodeExit", "recv() failed with error: 10054",
                                 "send() failed with error: 10054")
        self.stage.expect_output(CAPABILITY_QUERY)
        width, height = desktop.size
        self.stage.power_up(screen={"width": width, "height": height}, libraryFolders=[str(build_folder())])
        if port:
            self.host.kvm_address = ("127.0.0.1", port)
            self.host.description["ports"]["22"] = port
        self.host.environment = {"DISPLAY": desktop.display}
        self.host.start_service()
        self.host.await_log("Calling HTTPS Socket Accept")
        self.enable()
        return self

    def await_reported_close(self, count=1):
        """Until so many ends of sessions are reported to the firmware."""
        eventually(lambda: self.reported_closes() >= count, "the session's end at the firmware")

    def await_agent_removed(self):
        """Waits until the service has removed the agent and the files of one more session, two seconds after its end.

        The service does the same once at its start."""
        self._removals += 1
        self.advance_until(lambda: self.host.log_text().count("DisplayMgr file ") > self._removals, "the agent's removal", 2_000)

    def advance_until(self, read, what, milliseconds=1_000):
        """Moves the PC's clock on step by step until read() gives something true, and returns that."""
        def advance_and_read():
            self.host.ctl("clock", "advance", milliseconds)
            return read()
        return read() or eventually(advance_and_read, what)


@pytest.fixture
def stage(tmp_path):
    stage = Stage(tmp_path)
    try:
        yield stage
        stage.check()
    finally:
        stage.close()


@pytest.fixture
def kvm(stage):
    return KvmStage(stage)


@pytest.fixture
def stays_small(stage, request):
    """Repeats an action, which gets its number, and requires that the service does not grow. Returns how often it was done."""
    repetitions = request.config.getoption("repetitions")

    def repeat(act):
        for number in range(WARM_UP):
            act(number)
        growth = Growth(MEMORY_SLACK.get(build_folder().name, MEMORY_SLACK["native"]))
        growth.take_first(settled(stage.host.footprint))
        for look in range(LOOKS):
            for number in range(repetitions * look // LOOKS, repetitions * (look + 1) // LOOKS):
                act(WARM_UP + number)
            growth.next_moment()
            growth.require_small(stage.host.footprint)
        print(growth.text(f"{repetitions} repetitions"))
        return WARM_UP + repetitions

    return repeat
