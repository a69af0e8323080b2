"""Plays events on a stage, looks at quiet moments whether the service has grown, and ends each of its lives."""

from harness.waiting import eventually

from .cloud import Cloud
from .consoles import Consoles
from .driver import Driver
from .endings import Endings
from .errands import Errands
from .screens import Screens
from .surroundings import Surroundings
from .tally import settled
from .viewers import Viewers


class Player:
    def __init__(self, stage):
        self._stage = stage
        self._log = stage.log
        self._consoles = Consoles(stage, self._play_all)
        self._viewers = Viewers(stage, self._play_all)
        self._surroundings = Surroundings(stage, self._play_all)
        self._cloud = Cloud(stage, self._play_all, self._surroundings.network)
        self._errands = Errands(stage)
        self._endings = Endings(stage, self._viewers)
        self._players = {
            "start": self._start, "checkpoint": self._checkpoint, "end": self._end,
            "console": self._consoles.console, "idle-console": self._consoles.idle_console, "rush": self._consoles.rush,
            "viewer": self._viewers.viewer, "screen": Screens(stage, self._viewers).screen, "kvm-stray": self._viewers.kvm_stray,
            "firmware": self._surroundings.firmware, "command": self._surroundings.command, "power": self._surroundings.power,
            "network": self._surroundings.network, "wifi": self._surroundings.wifi, "driver": Driver(stage).driver,
            "suspend": self._surroundings.suspend, "consent": self._surroundings.consent,
            "cloud": self._cloud.cloud, "enrolment": self._errands.enrolment, "password": self._errands.password,
            "alert": self._errands.alert}

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
        self._errands.begin_life()
        self._stage.start(None if "package" in self._stage.pc.cannot else package, standby)

    def _end(self, how):
        self._endings.end(how)
        self._cloud.check_ended()

    def _checkpoint(self):
        self._stage.log.forget_allowances()
        if self._stage.question:
            # Its threads wait for a person.
            self._surroundings.firmware(self._stage.dash, self._stage.kvm, 50)
            self._surroundings.consent(2, 60, "yes")
        self._cloud.check()
        eventually(lambda: not self._stage.pc.agents(), "the agents to leave")
        for server in self._stage.servers.values():
            server.forget()
        growth = self._stage.growth
        if growth.has_first():
            growth.next_moment()
            growth.require_small(self._stage.pc.footprint, self._stage.kept_handles)
        else:
            growth.take_first(settled(self._stage.pc.footprint))
        self._stage.account_log()
