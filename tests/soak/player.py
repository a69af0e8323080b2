"""Plays events on a stage, looks at quiet moments whether the service has grown, and ends each of its lives."""

import contextlib

from harness.waiting import eventually

from .consoles import Consoles
from .driver import Driver
from .endings import Endings
from .screens import Screens
from .surroundings import Surroundings
from .viewers import Viewers


class Player:
    def __init__(self, stage):
        self._stage = stage
        self._log = stage.log
        self._consoles = Consoles(stage, self._play_all)
        self._viewers = Viewers(stage, self._play_all)
        self._surroundings = Surroundings(stage, self._play_all)
        self._players = {
            "start": self._start, "checkpoint": self._checkpoint, "end": Endings(stage, self._viewers).end,
            "console": self._consoles.console, "idle-console": self._consoles.idle_console, "rush": self._consoles.rush,
            "viewer": self._viewers.viewer, "screen": Screens(stage, self._viewers).screen, "kvm-stray": self._viewers.kvm_stray,
            "firmware": self._surroundings.firmware, "command": self._surroundings.command, "power": self._surroundings.power,
            "network": self._surroundings.network, "wifi": self._surroundings.wifi, "driver": Driver(stage).driver,
            "suspend": self._surroundings.suspend, "consent": self._surroundings.consent}

    def play(self, event):
        """One event, with all that happens in its middle."""
        why = self._why_not(event)
        if why:
            self._stage.tally.skipped[why] += 1
            return
        inner = {"inner": event.inner} if event.inner else {}
        self._players[event.kind](**event.details, **inner)
        self._stage.tally.events += 1

    def _play_all(self, events):
        for event in events:
            self.play(event)

    def _why_not(self, event):
        """What of the event this PC can't have."""
        names = (event.kind, event.details.get("trouble"), "lock" if event.details.get("answer") == "locked" else None)
        return next((name for name in names if name in self._stage.pc.cannot), None)

    # --- quiet moments ---

    def _start(self, life, package, standby):
        self._stage.start(None if "package" in self._stage.pc.cannot else package, standby)

    def _checkpoint(self):
        self._stage.log.forget_allowances()
        if self._stage.question:
            # Its threads wait for a person.
            self._surroundings.firmware(self._stage.dash, self._stage.kvm, 50)
            self._surroundings.consent(2, 60, "yes")
        eventually(lambda: not self._stage.pc.agents(), "the agents to leave")
        for server in self._stage.servers.values():
            server.forget()
        growth = self._stage.growth
        if growth.has_first():
            growth.next_moment()
            self._await_small()
        else:
            self._settle()
            growth.take_first(self._stage.pc.footprint())
        self._stage.account_log()

    def _await_small(self):
        grown = []

        def small():
            grown[:] = self._stage.growth.too_much(self._stage.pc.footprint(), self._stage.kept_handles)
            return not grown
        with contextlib.suppress(AssertionError):
            eventually(small, "the service to be as small as it was")
        assert not grown, "the service has grown: " + "; ".join(grown)

    def _settle(self):
        """Waits until three looks in a row see the same."""
        looks = []

        def same():
            looks.append(self._stage.pc.footprint()[:2])
            return len(looks) >= 3 and len(set(looks[-3:])) == 1
        eventually(same, "the service to come to rest")
