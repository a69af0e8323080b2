"""Events around the sessions: commands, power, network, sleep, and the person at the PC."""

import contextlib
import random

from harness.waiting import Overdue, eventually

from .events import LEVEL_OF_WIFI

HANGS = ("no-connection", "silent")
ANSWERS = {"yes": 1, "wrong-then-yes": 1, "no": 2, "noresponse": 2}
POWER_ACTIONS = {19: "sleep", 21: "reboot", 22: "shutdown", 23: "hibernate", 28: "shutdown"}
DEEP = (19, 23)  # each leaves the handle of a thread
REQUESTS_OF_UPDATE = 13
# The ERROR line to which each failure of the reader program leads, and those of one that is killed.
READER_ERRORS = {
    "exit-first": "ConnectNamedPipe failed, error 995", "no-connection": "ConnectNamedPipe failed, error 995",
    "length=131": "ReadFile failed or incomplete (bytes=131, error=0)",
    "silent": "ReadFile failed or incomplete (bytes=0, error=995)",
}
KILLED_READER_ERRORS = ("ConnectNamedPipe failed, error 995", "ReadFile failed or incomplete (bytes=0, error=109)")
READS = 20  # of a reader that fails, at most
# An update that finds the gate closed when it reads the data of the cloud.
UNANSWERED_CLOUD = ("Driver IOCTL failed in function GetCloudCertInfo, with error 1062",
                    "Driver IOCTL failed in function GetDomainInfo, with error 1062", "GetDomainInfo failed with error: 1062")
CONSENT_SENT = "Consent received by driver is "


class Surroundings:
    def __init__(self, stage, play):
        self._stage = stage
        self._play = play
        self._log = stage.log
        self._wlan_code = 10

    def firmware(self, dash, kvm, level):
        """Another firmware, as after an upgrade; the service reads its level in the next update."""
        stage = self._stage
        servers = {name: server.peer for name, server in stage.servers.items()}
        stage.ask("set", values={"Dash": servers["dash"] if dash == "bridge" else dash,
                                 "Kvm": servers["kvm"] if kvm == "bridge" else kvm, "uVORKVersion": str(level)})
        stage.report_anew()
        stage.dash, stage.kvm, stage.level = dash, kvm, level

    def command(self, number=None, size=0, seed=0, raw=None):
        """One that does nothing but to be logged."""
        place = self._log.here()
        if raw is not None:
            self._stage.send_raw(bytes(raw))
            number = 255  # a message without bytes leaves no line; the next one shows that it has been read
        self._stage.send(number, random.Random(seed).randbytes(size))
        self._log.await_line(f"ProcessRead: received command from driver {number}, bytes read {size}", place)
        self._stage.tally.faults["unknown or empty command"] += 1

    def power(self, commands, inner):
        """Each takes the place of the one before it; the last one acts behind the next bytes for a console."""
        stage = self._stage
        commands = [command for command in commands if f"power-{command}" not in stage.pc.cannot]
        before = stage.pc.power_actions()
        for command in commands:
            stage.send(command)
        moved = stage.tally.moved["DASH"]
        while stage.tally.moved["DASH"] == moved:  # a console that the idle limit cut short has had none
            self._play(inner)
        if not commands:
            return
        if commands[-1] in DEEP:
            stage.kept_handles += 1
        if before is not None:
            wanted = [*before, POWER_ACTIONS[commands[-1]]]
            eventually(lambda: stage.pc.power_actions() == wanted, f"the power actions to be {wanted[-3:]}")
            stage.pc.cancel_shutdown()
        stage.tally.faults["power command"] += len(commands)

    def network(self, address):
        """Another address; the service notices it by an event of the WLAN service or by its next scan, and reports it."""
        self._stage.pc.change_address(address)
        if "network-reported" not in self._stage.pc.cannot:
            for _ in range(30):
                # Words that come while an earlier one is still looked at are dropped, and so are equal ones.
                self._wlan_code = 31 - self._wlan_code
                self._stage.pc.report_network(self._wlan_code)
                if self._is_reported("WriteIPCompleteInformation", "IPv4Address", address):
                    break
            else:
                raise AssertionError(f"the firmware did not receive the address {address}")
        self._stage.tally.faults["network change"] += 1

    def wifi(self, network, reader):
        """The PC joins a Wi-Fi network; firmware that takes its profile gets it, unless it has it already."""
        if reader:
            # The network is read as soon as it is joined.
            if reader in READER_ERRORS:
                self._log.allow(READER_ERRORS[reader], times=READS)
            self._stage.pc.set_reader_behaviour(reader)
        self._stage.pc.join(network)
        if reader in READER_ERRORS:
            self._await_reader_failure(reader)
        for _ in range(30 if self._stage.level >= LEVEL_OF_WIFI else 0):
            if self._is_reported("WriteWiFiSyncInfo", "ssid", network):
                break
            self._wlan_code = 31 - self._wlan_code
            self._stage.pc.report_network(self._wlan_code)
        else:
            assert self._stage.level < LEVEL_OF_WIFI, f"the firmware did not receive the network {network}"
        if reader:
            self._stage.pc.set_reader_behaviour("")
            self._stage.tally.faults[f"reader: {reader}"] += 1
        self._stage.tally.faults["Wi-Fi change"] += 1

    def _await_reader_failure(self, reader):
        """The profile of a program that fails is empty. The next one is read when the network is looked at again."""
        place, error = self._log.here(), READER_ERRORS[reader]
        for _ in range(READS):
            self._wlan_code = 31 - self._wlan_code
            self._stage.pc.report_network(self._wlan_code)
            with contextlib.suppress(Overdue):
                self._log.await_line(error, place, patience=2.0)
                break
        else:
            raise AssertionError(f"no reader has failed with {error}")
        self._stage.pc.set_reader_behaviour("")
        if reader in HANGS:
            # A second one would be waited for, too.
            self._log.allow(*KILLED_READER_ERRORS, times=READS)
            self._stage.pc.kill_readers()

    def _is_reported(self, record, field, value):
        try:
            return eventually(lambda: self._stage.reported(record).get(field) == value, "", patience=1.0)
        except AssertionError:
            return False

    def suspend(self, by, resumes, inner=()):
        """The host sleeps, and the firmware gets a report before and after. A console wakes it, too."""
        stage = self._stage
        # What an update that is under way still has to send finds the gate closed.
        self._log.allow("Service is not signalled as Up", times=REQUESTS_OF_UPDATE)
        self._log.allow(*UNANSWERED_CLOUD)
        stage.pc.suspend()
        assert not stage.ask("show")["host"]["up"], "the firmware takes the host for awake"
        place = self._log.here()
        if by == "command":
            stage.send("S0i3_RESUME")
        elif by == "console":
            self._play(inner)
        for event in resumes:
            stage.pc.resume(event)
        stage.update(place)
        assert stage.ask("show")["host"]["up"], "the firmware takes the host for asleep"
        stage.tally.faults["suspend and resume"] += 1

    # --- the person at the PC ---

    def consent(self, type, limit, answer):
        {"silent": self._silent, "absent": self._absent, "leaves": self._leaves, "locked": self._unasked,
         "type-0": self._unasked}.get(answer, self._answered)(type, limit, answer)

    def _answered(self, kind, limit, answer):
        place = self._log.here()
        words = {"wrong-then-yes": ("perhaps", "yes")}.get(answer, (answer,))
        client = self._ask_with_client(kind, limit, *words)
        self._log.await_line(f"{CONSENT_SENT}{ANSWERS[answer]}", place)
        self._await_answer(kind, ANSWERS[answer])
        assert client.wait() == 0, client.output()
        assert f"asked: type {kind}, time limit {limit} seconds" in client.output(), client.output()
        self._close_question()

    def _unasked(self, kind, limit, answer):
        """A locked PC agrees, and so it does when there is nothing to ask."""
        if answer == "locked":
            self._stage.pc.lock(True)
        kind = 0 if answer == "type-0" else kind
        place = self._log.here()
        self._ask(kind, limit)
        self._log.await_line(f"{CONSENT_SENT}1", place)
        self._await_answer(kind, 1)
        if answer == "locked":
            self._stage.pc.lock(False)
        self._close_question()

    def _leaves(self, kind, limit, answer):
        """The client goes away with the question, which then meets its time limit."""
        place = self._log.here()
        client = self._ask_with_client(kind, limit, "silent")
        eventually(lambda: "asked" in client.output(), "the client to have the question")
        client.kill()
        self._log.await_line("thread time reached", place, patience=60.0)
        self._log.await_line(CONSENT_SENT, place)
        self._stage.tally.faults["consent client gone"] += 1
        self._close_question()

    def _silent(self, kind, limit, answer):
        """The question stays open until the next one takes its place."""
        client = self._ask_with_client(kind, limit, "silent")
        eventually(lambda: "asked" in client.output(), "the client to have the question")
        self._close_question()
        self._stage.question = client
        self._stage.tally.faults["consent client silent"] += 1

    def _absent(self, kind, limit, answer):
        self._ask(kind, limit)
        self._close_question()
        self._stage.question = True
        self._stage.tally.faults["consent client absent"] += 1

    def _ask(self, kind, limit):
        self._stage.ask_consent(kind, limit)
        self._stage.tally.sessions["consent"] += 1

    def _ask_with_client(self, kind, limit, *words):
        """The client waits for the question; one that came while another is open would be asked that one."""
        place = self._log.here()
        if self._stage.question:
            self._ask(kind, limit)
            self._log.await_line("Named Pipe Created Successfully", place)
            return self._stage.pc.consent_client("--answer", *words)
        client = self._stage.pc.consent_client("--answer", *words)
        self._ask(kind, limit)
        return client

    def _await_answer(self, kind, consent):
        wanted = (kind, consent)

        def answered():
            answer = self._stage.reported("WriteUserConsent")
            return (answer.get("Type"), answer.get("Consent")) == wanted
        eventually(answered, f"the answer {wanted} at the firmware")

    def _close_question(self):
        """The question before, if one was open, has been given up for this one."""
        if self._stage.question not in (None, True):
            assert self._stage.question.wait() == 0, self._stage.question.output()
        self._stage.question = None
