"""The companion programs on a simulated PC of their own, without the service."""

import os
import pathlib
import subprocess

from .host import INSTALLATION, text_of
from .lines import LineProgram
from .processes import Process, build_folder, with_owner

CONSENT_PIPE = "userconsentfeature"


class CompanionPc:
    """A PC on which the KVM agent and the consent client can be started."""

    def __init__(self, workdir):
        self.workdir = pathlib.Path(workdir).resolve()
        self.root = self.workdir / "pc"
        self.working_folder = self.root / "C:" / "ProgramData" / "Tarvix" / "Manageability"
        self.executables = self.root / "C:" / "Program Files" / "Tarvix" / "bin"
        self.working_folder.mkdir(parents=True)
        self.executables.mkdir(parents=True)
        self.environment = {
            "WINHOST_ROOT": str(self.root),
            "WINHOST_MODULE": INSTALLATION + "bin\\ZELKVMApp.exe",
            "PROGRAMDATA": "C:\\ProgramData",
        }
        self._owned = []

    def agent(self, *arguments):
        """The KVM agent, with the service's arguments unless others are given."""
        return self._start("ZELKVMApp", arguments or ("-X", 1920, "-Y", 1080, "-V", 21, "-E", 0))

    def agent_log(self):
        return text_of(self.working_folder / "DisplayMgr.log")

    def ask_to_leave(self, word="terminate"):
        (self.working_folder / "terminate.txt").write_text(word + "\n")

    def set_behaviour(self, word):
        (self.executables / "ZELKVMApp.behaviour").write_text(word + "\n")

    def consent(self, *arguments, **environment):
        """The consent client without anybody at its terminal."""
        return self._start("userconsent", arguments, environment)

    def consent_terminal(self, *arguments):
        """The consent client in a terminal: text written to its stdin is what the person types."""
        process = subprocess.Popen(with_owner([build_folder() / "userconsent", *arguments]), env={**os.environ, **self.environment},
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self._owned.append(process.kill)
        return process

    def run(self, name, *arguments):
        """Runs a companion to its end."""
        return subprocess.run(with_owner([build_folder() / name, *arguments]), env={**os.environ, **self.environment},
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20)

    def pipe_server(self):
        """The server's end of a pipe, led by the test."""
        server = LineProgram([build_folder() / "pipeserver"], {**os.environ, **self.environment}, self.workdir / "pipeserver.log")
        self._owned.append(server.close)
        return server

    def close(self):
        for end in reversed(self._owned):
            end()

    def _start(self, name, arguments, environment=None):
        log = self.workdir / f"{name}-{len(self._owned)}.out"
        # It leads a session of its own, and is thus the program that WINHOST_MODULE names.
        process = Process([build_folder() / name, *arguments], log, env={**self.environment, **(environment or {})})
        self._owned.append(process.kill)
        return process


class Asking:
    """The service's part of one question: its pipe, the question, what is answered."""

    def __init__(self, pc, kind=1, timeout=30):
        self._text = f"yes\\n{kind}\\n{timeout}"
        self._server = pc.pipe_server()

    def open(self):
        assert self._server.ask("create", CONSENT_PIPE)["error"] == 0
        return self

    def meet(self):
        """Waits for a client, and says nothing yet."""
        self.open()
        assert self._server.ask("connect")["error"] == 0
        return self

    def ask(self):
        """Waits for a client and puts the question to it."""
        self.meet()
        assert self._server.ask("write", self._text)["error"] == 0
        return self

    def say(self, text):
        """The same with another text."""
        self._text = text
        return self.ask()

    def read(self):
        """One message of the client."""
        answer = self._server.ask("read")
        assert answer["error"] == 0, answer
        return bytes.fromhex(answer["data"])

    def close(self):
        assert self._server.ask("close")["error"] == 0
