"""The order of events: what a seed makes of it, whatever comes of it later.

Each event is drawn from the seed and from the events before it alone, never from what the service did: the same seed gives
the same order on every host, however long it runs. A host that can't have an event passes over it.
"""

import dataclasses
import itertools
import random


@dataclasses.dataclass(frozen=True)
class Event:
    kind: str
    details: dict
    inner: tuple = ()  # what happens in its middle

    def __str__(self):
        words = [self.kind, *(f"{name}={value}" for name, value in self.details.items() if value is not None)]
        return " ".join(words) + (f" [{'; '.join(map(str, self.inner))}]" if self.inner else "")


LEVELS = (50, 50, 50, 45, 44, 40, 30)  # of the firmware
FIRST_LIFE = 24  # events; each life of the service has four times as many as the one before
SEGMENT = (12, 30)  # events from one change of the firmware's settings to the next

# Messages that a service may only log: unknown numbers, and known ones without what they need.
UNKNOWN_COMMANDS = [*range(8), *range(13, 19), 20, *range(24, 28), *range(29, 33), 34, 36, *range(42, 48), *range(53, 256)]
EMPTY_COMMANDS = (8, 9, 10, 12, 39)

NETWORKS = ("office", "lab")
COMPANY = "corp.example.com"  # the domain of its network
LEVEL_OF_WIFI = LEVEL_OF_COMPANY = 40  # of the firmware
DEEP_SLEEPS = (19, 23)
ENDS = ("stop", "vanish", "reset", "hold", "busy", "preshutdown")


def order(seed):
    """Events without end."""
    return _Order(random.Random(seed)).events()


class _Order:
    def __init__(self, chance):
        self._chance = chance
        self._ends = itertools.cycle(chance.sample(ENDS, len(ENDS)))
        self._dash = self._kvm = self._level = self._packaged = None

    def events(self):
        for life in itertools.count():
            yield self._start(life)
            yield from self._first_of_all_kinds()
            left = FIRST_LIFE * 4 ** life
            while left > 0:
                yield self._firmware()
                size = min(left, self._chance.randint(*SEGMENT))
                for _ in range(size):
                    yield self._top()
                left -= size
                yield Event("checkpoint", {})
            yield Event("end", {"how": next(self._ends)})

    def _first_of_all_kinds(self):
        """What a process needs for its first session of a kind it may keep: the look that counts comes behind it."""
        self._dash, self._kvm, self._level = "echo", "echo", 50
        yield Event("firmware", {"dash": "echo", "kvm": "echo", "level": 50})
        yield Event("console", {"seed": self._seed(), "sizes": [1000, 100_000], "close": "close"})
        yield Event("viewer", {"seed": self._seed(), "sizes": [1000, 100_000], "trouble": "none", "close": "close", "times": 1})
        yield Event("screen", {"frames": 3, "trouble": "flood", "close": "firmware", "times": 20})
        yield self._network()
        yield Event("wifi", {"network": self._chance.choice(NETWORKS), "reader": None})
        yield Event("driver", {"wireless": True, "provisioned": True, "fault": None})
        yield Event("consent", {"type": 1, "limit": 60, "answer": "yes"})
        yield Event("cloud", {"what": "new-data"})
        yield Event("enrolment", {"behaviour": None})
        yield Event("password", {"seed": self._seed(), "trouble": None})
        for secure in (False, True):
            yield Event("alert", {"seed": self._seed(), "sizes": [100], "secure": secure, "trouble": None})
        yield Event("checkpoint", {})

    # --- what an event is made of ---

    def _seed(self):
        return self._chance.getrandbits(32)

    def _size(self):
        """Bytes: from one to some hundred KB, the small ones more often; block sizes and their neighbours among them."""
        if self._chance.random() < 0.15:
            return self._chance.choice((1, 2, 65535, 65536, 131070, 131071, 131072, 131073, 262144))
        return int(2 ** self._chance.uniform(0, 18.5))

    def _sizes(self, most):
        return [self._size() for _ in range(self._chance.randint(1, most))]

    def _pick(self, weights):
        names, numbers = zip(*weights.items())
        return self._chance.choices(names, numbers)[0]

    def _start(self, life):
        """Every second life is that of a packaged service; every fourth is on a PC without Modern Standby."""
        self._packaged = life % 2 == 1
        package = self._pick({"again": 3, "anew": 2, "scripts-fail": 1}) if self._packaged else None
        return Event("start", {"life": life + 1, "package": package, "standby": life % 4 != 3})

    def _firmware(self):
        self._dash = self._chance.choice(("echo", "echo", "bridge", "identify"))
        self._kvm = self._chance.choice(("echo", "bridge"))
        self._level = self._chance.choice(LEVELS)
        return Event("firmware", {"dash": self._dash, "kvm": self._kvm, "level": self._level})

    def _top(self):
        return getattr(self, "_" + self._pick({
            "console": 50, "rush": 14, "viewer": 15, "screen": 6, "command": 6, "power": 3, "network": 3, "wifi": 3, "driver": 3,
            "suspend": 3, "consent": 3, "kvm_stray": 2, "idle_console": 1, "cloud": 4, "enrolment": 3, "alert": 3,
            "password": 2}))()

    def _small(self):
        """What fits into the middle of another event."""
        return getattr(self, "_" + self._pick({"command": 4, "network": 1}))()

    # --- consoles ---

    def _console(self, fault_share=0.12):
        fault = None
        if self._chance.random() < fault_share:
            # A stream of TLS doesn't survive the loss of a block.
            fault = self._pick({"refuse-data": 0 if self._dash == "identify" else 3, "delay-data": 3, "no-status": 2,
                                "short-status": 2, "delay-connection": 2, "refuse-connection": 1})
        close = self._pick({"close": 6, "half": 2, "reset": 2, "reset-midway": 1, "firmware": 2})
        inner = (self._small(),) if self._chance.random() < 0.1 else ()
        return Event("console", {"seed": self._seed(), "sizes": self._sizes(3), "close": close, "fault": fault,
                                 "error": self._chance.choice((5, 31, 87, 1450)) if fault else None}, inner)

    def _idle_console(self):
        return Event("idle-console", {"seed": self._seed(), "says": self._chance.randint(0, 1)})

    def _rush(self):
        """Consoles that connect together, and what each does when, or before, its turn comes."""
        parts = [(min(self._size(), 20_000), self._pick({"close": 6, "reset": 1, "leave": 1}))
                 for _ in range(self._chance.randint(2, 8))]
        return Event("rush", {"seed": self._seed(), "parts": parts})

    # --- viewers ---

    def _viewer(self):
        trouble = self._pick({
            "none": 10, "retry": 2, "refuse-data": 1, "delay-data": 1, "untrusted": 2, "taken-over": 2, "agent-crashes": 1,
            "agent-stays": 1, "agent-killed": 1, "no-agent": 1, "no-user": 1, "trusted": 2})
        if trouble == "retry" and self._level < 31:
            trouble = "none"  # such firmware isn't asked again
        close = self._pick({"close": 5, "reset": 2, "firmware": 4, "server": 1})
        inner = []
        while self._chance.random() < 0.45 and len(inner) < 3:
            inner.append(self._small() if self._chance.random() < 0.4 else self._console(fault_share=0))
        return Event("viewer", {"seed": self._seed(), "sizes": self._sizes(3), "trouble": trouble, "close": close,
                                "times": self._chance.randint(1, 20)}, tuple(inner))

    def _screen(self):
        if self._level < 50:
            return self._viewer()  # such firmware shows no screen
        trouble = self._pick({"none": 4, "flood": 2, "twice": 2, "early": 2, "agent-killed": 1})
        close = self._pick({"firmware": 3, "close": 2, "reset": 2})
        return Event("screen", {"frames": self._chance.randint(1, 30), "trouble": trouble, "close": close,
                                "times": self._chance.randint(1, 20)})

    def _kvm_stray(self):
        """KVM commands out of their order."""
        return Event("kvm-stray", {"what": self._pick({"close": 1, "trust": 1, "data": 1, "frame": 1, "enable-close": 2,
                                                       "enable-twice": 1})})

    # --- the rest ---

    def _command(self):
        kind = self._pick({"unknown": 6, "empty": 2, "raw": 2, "large": 1, "safeboot": 1})
        if kind == "raw":
            return Event("command", {"raw": self._chance.randint(0, 1)})
        if kind == "safeboot":
            return Event("command", {"number": 52, "size": self._chance.choice((0, 4)), "seed": self._seed()})
        if kind == "empty":
            return Event("command", {"number": self._chance.choice(EMPTY_COMMANDS), "size": 0, "seed": self._seed()})
        size = 131070 if kind == "large" else self._chance.randint(0, 300)
        return Event("command", {"number": self._chance.choice(UNKNOWN_COMMANDS), "size": size, "seed": self._seed()})

    def _power(self):
        commands = [self._chance.choice((19, 21, 22, 23, 28)) for _ in range(self._chance.randint(1, 3))]
        return Event("power", {"commands": commands},
                     (Event("console", {"seed": self._seed(), "sizes": [self._chance.randint(1, 999)], "close": "close"}),))

    def _network(self):
        return Event("network", {"address": self._address()})

    def _address(self):
        return f"192.168.{self._chance.randint(2, 250)}.{self._chance.randint(2, 250)}"

    def _wifi(self):
        """The program that reads the profile for a packaged service may fail before it delivers the right one."""
        reader = self._pick({None: 6, "exit-first": 2, "length=131": 2, "late=300": 2, "silent": 1, "no-connection": 1})
        reads = self._packaged and self._level >= LEVEL_OF_WIFI
        return Event("wifi", {"network": self._chance.choice(NETWORKS), "reader": reader if reads else None})

    def _driver(self):
        """What the filter driver depends on, and what stands in the way of its next change."""
        fault = self._pick({None: 4, "refuses-start": 1, "refuses-stop": 1, "slow": 1, "script-fails": 1, "absent": 1})
        return Event("driver", {"wireless": self._chance.random() < 0.7, "provisioned": self._chance.random() < 0.7,
                                "fault": fault})

    def _suspend(self):
        resumes = self._chance.sample(("resume-critical", "resume-suspend", "resume-automatic"), self._chance.randint(1, 3))
        by = self._pick({"events": 4, "command": 1, "console": 2})
        console = Event("console", {"seed": self._seed(), "sizes": [100], "close": "close"})
        return Event("suspend", {"by": by, "resumes": resumes}, (console,) if by == "console" else ())

    def _consent(self):
        answer = self._pick({"yes": 4, "no": 2, "noresponse": 1, "wrong-then-yes": 1, "leaves": 1, "silent": 1, "absent": 1,
                             "locked": 2, "type-0": 1})
        if self._level < 40:
            answer = "absent"  # such firmware gets no answer
        limit = 10 if answer == "leaves" else self._chance.choice((60, 90, 120))
        return Event("consent", {"type": self._chance.randint(1, 3), "limit": limit, "answer": answer})

    # --- outside of the PC ---

    def _cloud(self):
        what = self._pick({"console": 4, "loss": 2, "new-data": 2, "home": 2 if self._level >= LEVEL_OF_COMPANY else 0})
        if what == "home":
            return Event("cloud", {"what": what, "addresses": [self._address(), self._address()]})
        # The relay passes on every end of a connection as a close.
        console = Event("console", {"seed": self._seed(), "sizes": self._sizes(3), "close": self._pick({"close": 3, "firmware": 1}),
                                    "through_cloud": True})
        return Event("cloud", {"what": what}, (console,) if what == "console" else ())

    def _enrolment(self):
        """What certreq.exe does."""
        return Event("enrolment", {"behaviour": self._pick({None: 6, "refuse": 1, "hang": 1, "length=5000": 1, "absent": 1})})

    def _password(self):
        return Event("password", {"seed": self._seed(),
                                  "trouble": self._pick({None: 5, "wrong": 1, "short": 1, "unreachable": 1})})

    def _alert(self):
        """One, or a flood; the largest fill a message of the firmware."""
        sizes = [min(self._size(), 131_000) for _ in range(self._pick({1: 4, 3: 2, 30: 1}))]
        return Event("alert", {"seed": self._seed(), "sizes": sizes, "secure": self._chance.random() < 0.5,
                               "trouble": self._pick({None: 7, "down": 1, "silent": 1, "unsubscribed": 1})})
