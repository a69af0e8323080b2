"""One Windows PC under Wine for all tests of this tier; each test gets a firmware and a log of its own."""

import pytest

from harness.console import Console
from harness.firmware import Firmware
from harness.kvm import SESSION_END_ERRORS, RemoteKvm
from harness.waiting import eventually
from harness.host import RUNNING, STOPPED
from harness.wine import DRIVER, WineHost, enter_namespace

MAILBOX = "tcp:127.0.0.1:6640"


class Stage:
    """The PC with its firmware. Processes start when the test says so and end with it."""

    def __init__(self, host, workdir):
        self.host = host
        self.workdir = workdir
        self.use_firmware()
        self._firmware_runs = False
        # Wine has no WLAN service: the registration for its notifications fails, and so does its end at each stop.
        self._expected_errors = ("UnRegisterWlanNotification: WlanRegisterNotification failed with error: 120",)
        self._probe = None
        self._wlan = None

    def use_firmware(self, **settings):
        """Another firmware than usual; it isn't started yet."""
        self.firmware = Firmware(self.workdir, listen=f"tcp:{self.host.mailbox}", **settings)

    def start_firmware(self):
        self.firmware.start()
        self._firmware_runs = True
        return self

    def use_wlan(self):
        """The PC has a WLAN service after all, so that no error of its calls is expected."""
        self._expected_errors = ()
        self._wlan = self.host.use_wlan()
        return self._wlan

    def power_up(self):
        """Firmware, driver and gate: the mailbox is present. The service isn't started yet."""
        self.start_firmware()
        self.host.power_up()
        self.host.await_mailbox(True)
        return self

    def boot(self):
        """The service started by the SCM, the firmware informed and the DASH port open."""
        self.power_up()
        return self.start_service()

    def start_service(self):
        """The same on a PC that is powered up."""
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
            if self._wlan:
                self._wlan.remove()
        self.host.await_mailbox(False)


class KvmStage(RemoteKvm):
    """Remote KVM and the question to the user, on a PC where a user is logged on."""

    def __init__(self, stage):
        super().__init__(stage.host, stage.firmware)
        self.stage = stage
        # Wine's number for a connection that is closed while another thread reads.
        stage.expect_errors(*SESSION_END_ERRORS, "KVMDataRecvThread: recv() failed with error: 10022")

    def power_up(self, peer="echo"):
        """The mailbox is present; the service isn't started yet. `peer` takes the consoles' bytes from the firmware."""
        self.stage.use_firmware(kvm=peer, settings={"uVORKVersion": 50})
        self.firmware = self.stage.firmware
        self.stage.power_up()

    def boot(self, peer="echo"):
        """The service started by the SCM, and KVM not yet enabled."""
        self.power_up(peer)
        self.stage.start_service()

    def await_end(self, count=1):
        """Until so many sessions have come to their end, and two seconds later nothing is left of them."""
        eventually(lambda: self.reported_closes() == count, "the session's end at the firmware")
        eventually(lambda: not self.left_behind(), "agent and files of the session to go")

    def left_behind(self):
        """What there still is of sessions that have ended."""
        files = [self.host.working_folder / name for name in ("terminate.txt", "DisplayMgr.log")]
        return [*self.host.agents(), *(file.name for file in files if file.exists())]


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


@pytest.fixture
def kvm(stage):
    try:
        stage.host.log_on()
        yield KvmStage(stage)
    finally:
        stage.host.log_off()
        stage.host.set_agent_behaviour(None)
