"""Events in which the host does something for its firmware: it obtains a certificate, changes a password and posts alerts."""

import contextlib
import hashlib
import random
import socket

from harness.alerts import AlertConsoles, destination
from harness.enrolment import CA
from harness.ports import free_port
from harness.waiting import eventually

SUBSCRIBE, EVENT, PASSWORD_UPDATE = 11, 12, 51  # commands
ACCOUNT = "WINHOST-PC_vork_service"
FIRST_PASSWORD = "the first Secret"
NO_CERTIFICATE = "Failed to open crt file. Error: 2"
REFUSED_PASSWORDS = {"wrong": 86, "short": 2245, "unreachable": 1351}  # the codes of the directory
NOT_SENT = "HttpsWebRequestPost: WinHttpSendRequest failed, Request not sent, error: "


def hash_of(password):
    return hashlib.sha256(password.encode()).hexdigest()


class Errands:
    def __init__(self, stage):
        self._stage = stage
        self._log = stage.log
        self._password = None
        self._starter = stage.keep(AlertConsoles(stage.host.workdir))
        self._consoles = {}  # for alerts, by whether they are secure

    def begin_life(self):
        """The PC begins with the directory of its description."""
        self._password = FIRST_PASSWORD

    # --- certificates ---

    def enrolment(self, behaviour):
        """`behaviour` is that of certreq.exe, "absent" when there is none."""
        place = self._log.here()
        answers = self._certificate().get("answers", 0)
        without = behaviour in ("refuse", "hang", "absent")
        if without:
            self._log.allow(NO_CERTIFICATE)
        with self._certreq(behaviour):
            self._stage.ask("enrol", host="ca.example.test", authority=CA, template="Machine", subject="laptop.example.test")
            if behaviour == "hang":
                self._stage.pc.kill_certreq()
            eventually(lambda: self._certificate().get("answers", 0) > answers, "the answer to a request for a certificate")
        self._check(self._certificate(), without, behaviour)
        for _ in range(2):
            # The next enrolment uses the same folder.
            place = self._log.await_line("Folder deleted: ", place)
        self._stage.tally.sessions["enrolment"] += 1
        if behaviour:
            self._stage.tally.faults[f"certreq: {behaviour}"] += 1

    def _certificate(self):
        return self._stage.ask("show")["host"].get("certificate", {})

    @contextlib.contextmanager
    def _certreq(self, behaviour):
        enterprise = self._stage.pc.enterprise
        if behaviour == "absent":
            enterprise.remove()
        else:
            enterprise.set_behaviour(behaviour or "")
        yield
        if behaviour == "absent":
            enterprise.install()
        enterprise.set_behaviour("")

    @staticmethod
    def _check(certificate, without, behaviour):
        assert certificate["rootCertSize"] > 0, certificate
        if without:
            assert certificate["signedCertSize"] == 0, certificate
        elif behaviour:
            assert certificate["signedCertSize"] == 4096, certificate  # cut
        else:
            assert certificate["matchesKey"] and certificate["chainsToRoot"], certificate

    # --- the password ---

    def password(self, seed, trouble):
        place = self._log.here()
        new = f"the Secret {random.Random(seed).randbytes(6).hex()}"
        old = new if trouble == "wrong" else self._password
        wanted = "short" if trouble == "short" else new
        if trouble:
            self._log.allow("AD Password change failed with error")
        changes = len(self._stage.pc.password_changes())
        self._stage.pc.change_directory({"reachable": trouble != "unreachable"})
        self._stage.send(PASSWORD_UPDATE, old.encode().ljust(128, b"\0") + wanted.encode().ljust(128, b"\0"))
        code = REFUSED_PASSWORDS.get(trouble, 0)
        eventually(lambda: len(self._stage.pc.password_changes()) > changes, "the directory to be asked")
        assert self._stage.pc.password_changes()[-1] == {"domain": "CORP.EXAMPLE", "user": ACCOUNT, "result": code}
        self._log.await_line("WritePwdUpdateStatus: connecting to Driver", place)
        eventually(lambda: self._stage.reported("WritePwdUpdateStatus").get("status") == code, f"the status {code}")
        assert not any("Secret" in line for line in self._log.since(place)), "a password is in the log"
        if not trouble:
            self._password = new
        self._stage.pc.change_directory({"reachable": True})
        assert self._stage.pc.directory()["accounts"][0]["passwordHash"] == hash_of(self._password)
        self._stage.tally.sessions["password"] += 1
        if trouble:
            self._stage.tally.faults[f"password: {trouble}"] += 1

    # --- alerts ---

    def alert(self, seed, sizes, secure, trouble):
        {None: self._delivered, "down": self._down, "silent": self._silent,
         "unsubscribed": self._unsubscribed}[trouble](seed, sizes, secure)
        self._stage.tally.sessions["alert"] += 1
        if trouble:
            self._stage.tally.faults[f"alert: {trouble}"] += 1

    def _delivered(self, seed, sizes, secure):
        """They arrive whole and in their order."""
        console = self._console(secure)
        self._stage.send(SUBSCRIBE, destination(console.port, secure=secure))
        chance = random.Random(seed)
        bodies = [chance.randbytes(size // 2 + 1).hex().encode() for size in sizes]
        for body in bodies:
            self._stage.send(EVENT, body)
        eventually(lambda: len(console.alerts) >= len(bodies), f"{len(bodies)} alerts at the console")
        assert [body for _, _, body in console.alerts] == bodies, "the alerts differ from what the firmware has sent"
        console.alerts.clear()
        self._stage.tally.moved["alerts"] += sum(map(len, bodies))

    def _console(self, secure):
        if secure not in self._consoles:
            self._consoles[secure] = self._starter.start(secure)
        return self._consoles[secure]

    def _down(self, seed, sizes, secure):
        self._lose(free_port(), secure, len(sizes), "12029")

    def _silent(self, seed, sizes, secure):
        """It takes the connection and never answers; with TLS this is waited for."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            self._lose(listener.getsockname()[1], True, 1, "12002")

    def _unsubscribed(self, seed, sizes, secure):
        place = self._log.here()
        self._stage.send(SUBSCRIBE, destination(1, uri=""))
        self._stage.send(EVENT, b"<alert/>")
        self._log.await_line("Not Posting Indication Alert", place)

    def _lose(self, port, secure, count, error):
        """The alerts are lost, and the service goes on."""
        place = self._log.here()
        self._stage.send(SUBSCRIBE, destination(port, secure=secure))
        for _ in range(count):
            self._stage.send(EVENT, b"<alert/>")
        for _ in range(count):
            place = self._log.await_line(NOT_SENT + error, place)
