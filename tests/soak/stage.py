"""The stage of a soak: one PC with its firmware, the service's log, and the account of what has happened."""

import contextlib
import struct

from harness.control import ask
from harness.firmware import Firmware
from harness.host import CAPABILITY_QUERY, without_encoder_report
from harness.waiting import eventually

from .servicelog import ServiceLog
from .streams import Listener
from .tally import Growth

END_OF_UPDATE = "dwIoControlCode = 0x90e, nInBufferSize = 2008"  # the inventory is an update's last record
SESSION_CLOSED = "CloseSocketInZEL: CloseSocket, After sock close"
DASH_ACCEPTS = "Calling HTTPS Socket Accept"
KVM_ACCEPTS = "Calling KVM Socket Accept"

ALWAYS = (
    # The receive task polls without a lock, so that a close by another thread may meet it in its call.
    "recv() failed. Error: 10038",
    # The firmware has no data for a cloud connection.
    "Unable to open cloud.txt file",
)

# Of a package whose scripts end with 1.
FAILED_SCRIPTS = (
    "Adding Start_ZEL task to Task Schedular failed with Error: 1",
    "Adding CleanUpZEL_Service task to Task Scheduler failed with Error: 1",
    "RegisterStartZELTrayUI.ps1 failed: 1",
    "Recovery Environment script encountered the followng error: 1",
)

COMMANDS = {"DASH_DATA": 8, "KVM_DATA": 9, "VNC_SOC_CLOSE": 35, "S0i3_RESUME": 37, "KVM_ENABLE_STATUS": 38, "KVM_IP_PORT_INFO": 39,
            "GET_KVM_CONSENT": 40, "WEBUI_CLOSE_SOCKET": 41, "GET_ENCODED_FRAMEBUFFER": 48, "GET_DISPAY_CONFIG": 49}


class Stage:
    """`pc` is one of the kinds in pcs.py."""

    def __init__(self, pc, tally, memory_slack):
        self.pc = pc
        self.tally = tally
        self.log = ServiceLog(pc.host.log_path())
        self.log.allow_always(*ALWAYS, *pc.always_errors)
        self.servers = {"dash": Listener(), "kvm": Listener()}
        self.dash = self.kvm = self.level = None  # as the firmware was set last
        self.cloud_address = None  # where consoles reach this PC's DASH port through the cloud
        self.question = None  # the client of a question to the person that is still open; True when there is none
        self.kept_handles = 0  # in this life of the service, on purpose
        self.growth = None
        self.sessions_before = 0
        self._memory_slack = memory_slack
        self._kept = contextlib.ExitStack()

    def keep(self, peer):
        """Closes it at the end of the soak, and returns it."""
        self._kept.callback(peer.close)
        return peer

    @property
    def host(self):
        return self.pc.host

    # --- the firmware ---

    def ask(self, verb, **members):
        return ask(self.pc.firmware.control_path, {"verb": verb, **members})

    def send(self, command, payload=b""):
        self.ask("send", command=COMMANDS.get(command, command), payload=payload.hex(), raw=False, trailer=0)

    def send_raw(self, payload):
        self.ask("send", payload=payload.hex(), raw=True)

    def fault(self, *words):
        self.ask("fault", words=[str(word) for word in words])

    def reported(self, record):
        """The last such record that the host has sent."""
        return self.ask("show")["host"].get(record, {})

    def refuse(self, request, error, times=1):
        """The next such requests end with that error, and the log names it."""
        self.fault("refuse", request, error, times)
        self.explain_failures(error, times)

    def explain_failures(self, error, times=1):
        self.log.allow(f"GetOverlappedResult failed for SendIOCtlToDriver with error: {error}",
                       f"with dwLastError = {error}", times=times)

    def update(self, place):
        """Lets the service report itself anew, unless it has done so since that place."""
        def reported():
            return any(END_OF_UPDATE in line for line in self.log.since(place))
        for _ in range(30):
            with contextlib.suppress(AssertionError):
                return eventually(reported, "the end of an update", patience=2.0)
            # One that came while an earlier one was under way was dropped.
            self.send("S0i3_RESUME")
        raise AssertionError("the service sends no more reports")

    def report_anew(self):
        """The service takes a look at the PC and the firmware, and reports both."""
        place = self.log.here()
        self.send("S0i3_RESUME")
        self.update(place)

    def ask_consent(self, kind, limit):
        self.send("GET_KVM_CONSENT", struct.pack("<II", kind, limit))

    # --- lives of the service ---

    def start(self, package, standby):
        place = self.log.here()
        if package == "scripts-fail":
            self.log.allow(*FAILED_SCRIPTS)
        self.pc.start(package, standby)
        self.log.await_line(DASH_ACCEPTS, place, patience=60.0)
        self.log.await_line(END_OF_UPDATE, place)
        if package:
            self.pc.check_package(package)
            self.tally.packaged += 1
            if package == "scripts-fail":
                self.tally.faults["scripts of the package fail"] += 1
        self.question = None
        self.kept_handles = 0
        self.growth = Growth(self._memory_slack)
        self.sessions_before = sum(self.tally.sessions.values())

    def stopped(self, code):
        """What has to hold when the service's process has ended."""
        assert code == 0, f"the service ended with {code}: {self.host.output()[-5000:]}"
        printed = without_encoder_report(self.host.output()).replace(CAPABILITY_QUERY, "")
        assert not printed, f"the service printed:\n{printed[-20000:]}"
        self.log.read()
        self.pc.check_left_files()
        sessions = sum(self.tally.sessions.values()) - self.sessions_before
        self.tally.growths.append(self.growth.text(f"{sessions} sessions", self.kept_handles))
        self.tally.lives += 1
        if self.question not in (None, True):
            self.question.wait()

    def account_log(self):
        self.log.read()
        self.tally.rotations, self.tally.log_bytes = self.log.rotations, self.log.bytes
        self.tally.errors_explained = self.log.errors_explained

    def close(self):
        self._kept.close()
        for server in self.servers.values():
            server.close()
        self.log.close()


def make_firmware(workdir, listen=None):
    return Firmware(workdir, listen=listen, dash="echo", kvm="echo", record=False, quiet=True,
                    settings={"KeepRequests": False, "uVORKVersion": 50}).start()
