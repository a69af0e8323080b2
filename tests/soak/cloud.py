"""Events of the cloud connection: its loss and its return, the company's network, and new data of the firmware."""

import contextlib

from harness.cloud import PC, Relay, cloud_settings, make_certificates
from harness.ports import free_port
from harness.waiting import Overdue, eventually

from .events import COMPANY

CLOUDS = 2  # each with an authority of its own
RETRIES = 2
MANY = 1000
ROUNDS = 20


class Cloud:
    """The firmware has the data of one of the clouds, once it has any."""

    def __init__(self, stage, play, move_to):
        self._stage = stage
        self._play = play
        self._move_to = move_to  # another address
        self._log = stage.log
        self._relays = []
        self._current = None

    def cloud(self, what, addresses=None, inner=()):
        {"new-data": self._renew, "console": self._carry, "loss": self._lose, "home": self._go_home}[what](addresses, inner)
        self._stage.tally.faults[f"cloud: {what}"] += 1

    def check(self):
        """At a quiet moment there is a connection, whatever has happened before."""
        if self._current:
            self._await_connection()

    def check_ended(self):
        """The connection ends with the service."""
        if self._current:
            self._current.await_absence()

    # --- events ---

    def _renew(self, _addresses, _inner):
        """The firmware gets the data of another cloud. The connection to the earlier one ends."""
        earlier = self._current
        if not self._relays:
            self._relays = [self._stage.keep(CloudOfSoak(self._stage.host.workdir / f"cloud-{number}")) for number in range(CLOUDS)]
        self._current = self._relays[self._relays.index(earlier) - 1 if earlier else 0]
        self._stage.ask("set", values=self._current.settings())
        self._stage.cloud_address = self._current.dash_address
        for _ in range(ROUNDS):
            # A report that was under way has begun before the change.
            self._stage.report_anew()
            with contextlib.suppress(Overdue):
                self._current.await_pc(patience=2.0)
                break
        else:
            raise AssertionError("the service does not connect to the cloud of which its firmware has the data")
        if earlier:
            earlier.await_absence()

    def _carry(self, _addresses, inner):
        """A console's session by way of the cloud."""
        self._await_connection()
        self._play(inner)

    def _lose(self, _addresses, _inner):
        self._await_connection()
        place = self._log.here()
        self._log.allow("nuba: ", times=MANY)
        self._current.kill()
        for _ in range(RETRIES):
            place = self._log.await_line("nuba: no connection to 127.0.0.1", place)
        self._current.start()
        self._await_connection()

    def _go_home(self, addresses, _inner):
        """In the company's network the client stays down, and outside of it comes back."""
        self._await_connection()
        place = self._log.here()
        self._stage.pc.set_suffix(COMPANY)
        for address in addresses * ROUNDS:
            self._move_to(address)
            # A report of the whole PC that sees the address first leaves the connection as it is.
            with contextlib.suppress(Overdue):
                self._log.await_line(f"NUBA: Domain {COMPANY} matches with MPM Domain {COMPANY}", place, patience=2.0)
                break
        self._current.await_absence()
        self._stage.pc.set_suffix("")
        self._move_to(addresses[1] if address == addresses[0] else addresses[0])
        self._await_connection()

    def _await_connection(self):
        self._current.await_pc()


class CloudOfSoak:
    """A relay, and a port of it that leads to the DASH port of the PC that is connected."""

    def __init__(self, folder):
        folder.mkdir()
        self._relay = Relay(folder, make_certificates(folder / "certificates"))
        self.dash_address = ("127.0.0.1", free_port())
        self.start()

    def start(self):
        self._relay.start("--forward", f"{self.dash_address[1]}=664")

    def kill(self):
        self._relay.kill()

    def close(self):
        self._relay.close()

    def settings(self):
        return cloud_settings(self._relay.port, self._relay.certificates, domains=COMPANY)

    def await_pc(self, patience=30.0):
        eventually(self._answers, "the PC to be connected to the cloud", patience)

    def await_absence(self):
        eventually(lambda: self._status() == 502, "the PC to leave the cloud")

    def _answers(self):
        """The filter of a connected PC refuses any other port."""
        refused = self._relay.count("refused")
        return self._status() == 403 and self._relay.events("refused")[refused:][0]["reason"] == "not allowed"

    def _status(self):
        return self._relay.console().status_of_connect(f"{PC}:80")
