"""One Windows PC under Wine for all tests of this tier; each test gets a firmware and a log of its own."""

import pytest

from harness.console import Console
from harness.firmware import Firmware
from harness.wine import DRIVER, RUNNING, STOPPED, WineHost, enter_namespace

MAILBOX = "tcp:127.0.0.1:6640"


class Stage:
    """The PC with its firmware. Processes start when the test says so and end with it."""

    def __init__(self, host, workdir):
        self.host = host
        self.workdir = workdir
        self.firmware = Firmware(workdir, listen=MAILBOX)
        self._firmware_runs = False
        # Wine has no WLAN service: registering for its word fails, and so does giving it back at each stop.
        self._expected_errors = ("UnRegisterWlanNotification: WlanRegisterNotification failed with error: 120",)
        self._probe = None

    def start_firmware(self):
        self.firmware.start()
        self._firmware_runs = True
        return self

    def power_up(self):
        """Firmware, driver and gate: the mailbox is present. The service isn't started yet."""
        self.start_firmware()
        self.host.power_up()
        self.host.await_mailbox(True)
        return self

    def boot(self):
        """The service started by the SCM, the firmware informed and the DASH port open."""
        self.power_up()
        self.host.start_service()
        self.host.await_state(RUNNING)
        self.host.await_log("Calling HTTPS Socket Accept")
        return self

    @property
    def console(self):
        return Console(self.host.dash_address)

    @property
    def probe(self):
        """A bare client of the mailbox."""
        if not self._probe:
            self._probe = self.host.probe()
        return self._probe

    def expect_errors(self, *texts):
        """ERROR lines that hold one of these texts belong to the test."""
        self._expected_errors += texts

    def check(self):
        unexpected = [line for line in self.host.error_lines() if not any(text in line for text in self._expected_errors)]
        assert not unexpected, "ERROR lines in the service's log:\n" + "\n".join(unexpected)

    def close(self):
        try:
            if self._probe:
                self._probe.close()
            self.host.kill()
            if self.host.query_state() != STOPPED:
                self.host.stop_service()
        finally:
            if self._firmware_runs:
                self.firmware.close()
        self.host.await_mailbox(False)


@pytest.fixture(scope="session")
def pc(tmp_path_factory):
    enter_namespace()
    with WineHost(tmp_path_factory.mktemp("pc"), MAILBOX) as host:
        yield host.boot()


@pytest.fixture
def stage(pc, tmp_path):
    if pc.scm("query", DRIVER)["state"] != RUNNING:
        pc.start_driver()
    pc.forget_log()
    stage = Stage(pc, tmp_path)
    try:
        yield stage
        stage.check()
    finally:
        stage.close()
