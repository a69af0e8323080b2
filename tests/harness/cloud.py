"""The cloud: the relay as a process, its authority, and what a PC's firmware has to know of it."""

import json
import socket
import subprocess

from .console import Console
from .growing import GrowingLines
from .ports import free_port
from .processes import Process, build_folder
from .waiting import eventually

PC = "WINHOST-PC"


def make_certificates(folder):
    """An authority with certificates of a relay at 127.0.0.1 and of a PC."""
    subprocess.run([build_folder() / "cloudrelay", "certificates", folder], check=True, timeout=60)
    return folder


def cloud_settings(port, certificates, domains="", host="127.0.0.1"):
    """What the firmware has to know of the relay at this port, as settings."""
    texts = {"vCloudCert": "pc.pem", "vCloudKey": "pc.key", "vCloudCACert": "ca.pem"}
    settings = {"Hostname": host, "Port": str(port), **{name: (certificates / file).read_text() for name, file in texts.items()}}
    return {**{f"Cloud.{name}": value for name, value in settings.items()}, "Domains": domains}


def provision(firmware, port, certificates, **others):
    """Gives the firmware the data of a connection to the relay at this port."""
    firmware.set(**cloud_settings(port, certificates, **others))


class Relay:
    """cloudrelay in `workdir`, always at the same ports."""

    def __init__(self, workdir, certificates):
        self.port, self.consoles = free_port(), free_port()
        self.certificates = certificates
        self._log = workdir / "relay.jsonl"
        self._lines = GrowingLines(self._log, json.loads)
        self._process = None

    def start(self, *options, certificates=None):
        folder = certificates or self.certificates
        before = self.count("listening")
        self._process = Process(
            [build_folder() / "cloudrelay", "run", "--listen", f"127.0.0.1:{self.port}", "--consoles", f"127.0.0.1:{self.consoles}",
             "--certificate", folder / "relay.pem", "--key", folder / "relay.key", "--authority", folder / "ca.pem", *options],
            self._log)
        eventually(lambda: self.count("listening") > before or not self._process.running(), "the relay to listen")
        assert self._process.running(), self._process.output()
        return self

    def events(self, name=None):
        return [event for event in self._lines.all() if name in (None, event["event"])]

    def count(self, name):
        return len(self.events(name))

    def await_event(self, name, count=1, patience=20.0):
        return eventually(lambda: self.events(name)[count - 1:], f"{name} number {count} at the relay", patience)[0]

    def console(self, host=PC):
        return ConsoleAtRelay((host, 664), f"http://127.0.0.1:{self.consoles}")

    def kill(self):
        self._process.kill()

    def close(self):
        if self._process:
            self._process.kill()


class ConsoleAtRelay(Console):
    """A console that reaches the PC through the relay's proxy."""

    def __init__(self, address, proxy):
        super().__init__(address)
        self._credentials = ["--proxy", proxy]
        self._proxy = proxy

    def status_of_connect(self, target):
        """The relay's answer to CONNECT. A tunnel is closed at once."""
        host, port = self._proxy.removeprefix("http://").split(":")
        with socket.create_connection((host, int(port)), 20) as connection:
            connection.sendall(f"CONNECT {target} HTTP/1.1\r\nHost: {target}\r\n\r\n".encode())
            return int(connection.makefile("rb").readline().split()[1])
