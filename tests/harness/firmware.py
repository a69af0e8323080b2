"""The simulated firmware as a process of its own, driven by its command line."""

import json
import pathlib
import subprocess

from .growing import GrowingLines
from .processes import Process, build_folder
from .waiting import eventually


class Firmware:
    """mpmsim in `workdir`. `listen` is "unix:/path" or "tcp:127.0.0.1:port"."""

    def __init__(self, workdir, listen=None, dash="identify", kvm="none", settings=None, record=True, quiet=False,
                 web=None):
        """`web` is the options of the page it serves, as {"pc": path}: the names are those of `mpmsim run --web-...`."""
        self.workdir = pathlib.Path(workdir)
        self.address = listen or f"unix:{self.workdir}/mailbox.sock"
        self.record_path = self.workdir / "firmware.jsonl"
        self._recorded = GrowingLines(self.record_path, json.loads)
        self.log_path = self.workdir / "mpmsim.log"
        self.control_path = self.workdir / "mpmsim.sock"
        self.certificate_path = self.workdir / "firmware.pem"
        self._dash = dash
        self._kvm = kvm
        self._record = record
        self._quiet = quiet
        self._web = web
        self._settings = self.workdir / "firmware.json"
        self._settings.write_text(json.dumps(settings or {}))
        self._process = None

    def start(self):
        ready = self.workdir / "mpmsim.ready"
        ready.unlink(missing_ok=True)
        (self.workdir / "page.url").unlink(missing_ok=True)
        command = [build_folder() / "mpmsim", "run", "--listen", self.address, "--control", self.control_path]
        command += ["--settings", self._settings, "--dash", self._dash, "--kvm", self._kvm, "--ready-file", ready]
        command += ["--certificate", self.certificate_path]
        if self._record:
            command += ["--record", self.record_path]
        if self._quiet:
            command.append("--quiet")
        if self._web is not None:
            command += ["--web", "0", "--web-ready-file", self.workdir / "page.url"]
            command += [word for name, value in self._web.items() for word in (f"--web-{name}", value)]
        self._process = Process(command, self.log_path)
        last = ready if self._web is None else self.workdir / "page.url"
        eventually(lambda: last.exists() or not self._process.running(), "mpmsim to listen")
        assert self._process.running(), self._process.output()
        return self

    @property
    def url(self):
        """Of the page that it serves."""
        return (self.workdir / "page.url").read_text().strip()

    @property
    def pid(self):
        return self._process.pid

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.close()

    def close(self):
        if self._process:
            code = self._process.end()
            self._process = None
            assert code == 0, f"mpmsim ended with {code}:\n{self.log_path.read_text(errors='replace')[-3000:]}"

    def _ask(self, verb, *words):
        done = subprocess.run(
            [str(word) for word in [build_folder() / "mpmsim", verb, "--control", self.control_path, *words]],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=30,
        )
        assert done.returncode == 0, f"mpmsim {verb} {words}: {done.stdout}{done.stderr}"
        return done.stdout

    def send(self, command, *words):
        """Sends a firmware command by name or number: send("WEBUI_CLOSE_SOCKET"), send(8, "--text", "abc")."""
        return self._ask("send", command, *words)

    def set(self, **settings):
        return self._ask("set", *[f"{key}={value}" for key, value in settings.items()])

    def fault(self, *words):
        return self._ask("fault", *words)

    def enrol(self, **names):
        """Has the host obtain a certificate for a new key: enrol(host=..., ca=..., template=..., subject=...)."""
        return self._ask("enrol", *[word for name, value in names.items() for word in (f"--{name}", value)])

    def show(self, *words):
        return self._ask("show", *words)

    def screen(self, *words):
        """What the display client has pulled and measured; with --picture and a file, its last picture too."""
        return json.loads(self._ask("screen", "--json", *words))

    def _entries(self, kind):
        return [entry for entry in self._recorded.all() if entry["kind"] == kind]

    def requests(self, name=None):
        """What the host asked so far, decoded: dictionaries with "name", "bytes" and "fields"."""
        return [entry for entry in self._entries("request") if name in (None, entry["name"])]

    def messages(self):
        """What the firmware sent to the host so far: dictionaries with "name", "code" and "bytes"."""
        return self._entries("message")

    def notes(self):
        """What else happened, by name: "listening", "cancelled", "gone" and the like."""
        return [entry["name"] for entry in self._entries("note")]

    def await_request(self, name, matches=lambda fields: True, patience=20.0):
        """The first request of this name whose fields match, waiting for it."""
        def find():
            return next((r for r in self.requests(name) if matches(r.get("fields", {}))), None)
        return eventually(find, f"{name} at the firmware", patience)
