"""A network of its own for processes that a test starts, laid out cable by cable."""

import json
import os
import pathlib
import subprocess

from .processes import Process
from .waiting import eventually


class NoNetwork(Exception):
    """Network namespaces may not be made here."""


class OwnNetwork:
    """A network namespace with a loopback and nothing else. What is started behind `entry` lives in it; the test's own process
    stays outside."""

    def __init__(self, workdir):
        log = pathlib.Path(workdir) / "network.log"
        new = ["unshare", "--net"] if os.getuid() == 0 else ["unshare", "--user", "--map-root-user", "--net"]
        self._holder = Process([*new, "sleep", "infinity"], log)
        name = pathlib.Path("/proc", str(self._holder.pid), "comm")
        eventually(lambda: not self._holder.running() or name.read_text() == "sleep\n", "a network of the test's own")
        if not self._holder.running():
            raise NoNetwork(f"network namespaces may not be made here: {self._holder.output().strip()}")
        user = [] if os.getuid() == 0 else ["--user", "--preserve-credentials"]
        self.entry = ["nsenter", f"--target={self._holder.pid}", *user, "--net", "--"]
        self.ip("link", "set", "lo", "up")

    def ip(self, *words):
        done = subprocess.run([*self.entry, "ip", *map(str, words)], stdin=subprocess.DEVNULL, capture_output=True, text=True)
        assert done.returncode == 0, f"ip {words}: {done.stderr}"
        return done.stdout

    def lay_cable(self, name, mac, *addresses):
        """An interface that is up, with its addresses ("192.168.7.3/24"), and a switch at the other end of its cable."""
        self.ip("link", "add", name, "address", mac, "type", "veth", "peer", "name", f"{name}-far")
        for address in addresses:
            self.ip("address", "add", address, "dev", name)
        self.ip("link", "set", f"{name}-far", "up")
        self.ip("link", "set", name, "up")

    def pull_cable(self, name):
        self.ip("link", "set", f"{name}-far", "down")
        self.await_state(name, "LOWERLAYERDOWN")

    def plug_cable(self, name):
        self.ip("link", "set", f"{name}-far", "up")
        self.await_state(name, "UP")

    def await_state(self, name, state):
        """The kernel notices a carrier that comes or goes a moment later."""
        def shown():
            return json.loads(self.ip("-json", "link", "show", "dev", name))[0]["operstate"] == state
        eventually(shown, f"{name} to be {state}")

    def close(self):
        self._holder.kill()
