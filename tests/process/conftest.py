"""A PC, its firmware and its service for each test; whatever a test did not expect fails it."""

import contextlib

import pytest

from harness.console import Console
from harness.firmware import Firmware
from harness.native import RUNNING, NativeHost


class Stage:
    """One PC with its firmware. Processes start when the test says so and end with it."""

    def __init__(self, workdir):
        self._stack = contextlib.ExitStack()
        self.workdir = workdir
        self.firmware = Firmware(workdir)
        # The receive task polls without a lock, so that a close by another thread may meet it in its call.
        self._expected_errors = ("recv() failed. Error: 10038",)
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

    def close(self):
        self._stack.close()

    def check(self):
        unexpected = [line for line in self.host.error_lines() if not any(text in line for text in self._expected_errors)]
        assert not unexpected, "ERROR lines in the service's log:\n" + "\n".join(unexpected)
        assert not self.host.output(), f"the service printed:\n{self.host.output()}"


@pytest.fixture
def stage(tmp_path):
    stage = Stage(tmp_path)
    try:
        yield stage
        stage.check()
    finally:
        stage.close()
