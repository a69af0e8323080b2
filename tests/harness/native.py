"""The native service as a process, with a simulated PC around it."""

import json
import pathlib
import subprocess

from .host import INSTALLATION, Footprint, Host
from .ports import free_port
from .processes import Process, build_folder, end_all_with
from .waiting import eventually


class NativeHost(Host):
    """A PC on which the service is installed, in a `network` (OwnNetwork) or in the test's own. `changes` go over its
    description (docs/pc-description.md)."""

    name = "native"
    network_name = "WINHOST-PC"
    captures_screen = True  # of a Desktop (use_desktop)
    asan_options = "detect_leaks=1"
    entry = ""  # what stands ahead of a command that reaches this PC from a shell

    def __init__(self, workdir, mailbox, network=None, **changes):
        self.workdir = pathlib.Path(workdir)
        self._network = network
        self.dash_address = ("127.0.0.1", free_port())
        self.kvm_address = ("127.0.0.1", free_port())
        self.root = self.workdir / "pc"
        self.working_folder = self.root / "C:" / "ProgramData" / "Tarvix" / "Manageability"
        self._executables = self.root / "C:" / "Program Files" / "Tarvix" / "bin"
        self._executables.mkdir(parents=True, exist_ok=True)
        self.install_agent()
        self.control_socket = self.workdir / "winhost.sock"
        self.environment = {}  # of the service's process, besides that of the tests
        self._process = None
        self._consent_clients = 0
        self.description = {
            "root": str(self.root),
            "environment": {"PROGRAMDATA": "C:\\ProgramData"},
            "modulePath": INSTALLATION + "bin\\ZELService.exe",
            "registry": {
                "HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service": {
                    "InstallationPath": INSTALLATION
                },
                "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion": {
                    "ProductName": "Windows 10 Pro"
                },
            },
            "adapters": [
                {
                    "name": "{2F1B3C44-0E5D-4C39-9C6A-0D4C5F6E7A81}", "description": "Simulated Ethernet Adapter",
                    "index": 3, "type": 6, "mac": "02:00:5E:10:00:01", "address": "192.168.1.10",
                    "mask": "255.255.255.0", "gateway": "192.168.1.1", "dhcp": True, "dhcpServer": "192.168.1.1",
                }
            ],
            "dnsServers": ["192.168.1.1"],
            "ports": {"664": self.dash_address[1], "22": self.kvm_address[1]},
            "mailbox": mailbox,
            "controlSocket": str(self.control_socket),
            **changes,
        }

    def use_desktop(self, desktop):
        """The screen of this PC is a Desktop, and the service captures it with the software runtime. Before the start."""
        self.environment["DISPLAY"] = desktop.display
        self.description["screen"] = dict(zip(("width", "height"), desktop.size))
        self.description["libraryFolders"] = [str(build_folder())]

    # --- the programs beside the service ---

    @property
    def _agent(self):
        return self._executables / "ZELKVMApp.exe"

    def install_agent(self):
        self._agent.symlink_to(build_folder() / "ZELKVMApp")

    def install_cloud_library(self):
        """The stand-in for nubaapi.dll (docs/cloud-library.md)."""
        (self._executables / "nubaapi.so").symlink_to(build_folder() / "nubaapi.so")
        self.environment["NUBA_PORTS"] = f"664={self.dash_address[1]},22={self.kvm_address[1]}"

    def remove_agent(self):
        self._agent.unlink()

    def set_agent_behaviour(self, word):
        """What the agents do that start from now on (docs/companions.md)."""
        (self._executables / "ZELKVMApp.behaviour").write_text(word + "\n")

    def agents(self):
        """The ids of the agents that run."""
        return [process["pid"] for process in json.loads(self.ctl("processes", "--json")) if process["name"] == self._agent.name]

    def launches(self):
        """The programs that the service has started on the desktop, oldest first."""
        return json.loads(self.ctl("launches", "--json"))

    def log_on(self):
        """Nothing to do: the PC's description has a user's session."""

    @property
    def consent_command(self):
        """What a person types to be asked at this PC."""
        return f"WINHOST_ROOT={self.root} {build_folder()}/userconsent"

    def consent_client(self, *arguments):
        """The program that asks the person at this PC, without anybody at its terminal."""
        self._consent_clients += 1
        log = self.workdir / f"userconsent-{self._consent_clients}.out"
        return Process([build_folder() / "userconsent", *arguments], log, env={"WINHOST_ROOT": str(self.root.resolve())})

    # --- the service ---

    def start(self, *arguments):
        """Starts the executable with these arguments, as the SCM or a person would."""
        self.control_socket.unlink(missing_ok=True)  # of one that ended without a word
        path = self.write_description()
        entry = self._network.entry if self._network else []
        self._process = Process(
            [*entry, build_folder() / "ZELService", *arguments], self.workdir / "service.out",
            env={"WINHOST_PC": str(path), "ASAN_OPTIONS": self.asan_options, "UBSAN_OPTIONS": "print_stacktrace=1",
                 **self.environment},
        )
        return self

    def write_description(self):
        """Other programs of this PC read it when they start."""
        path = self.workdir / "pc.json"
        part = path.with_suffix(".part")
        part.write_text(json.dumps(self.description, indent=2))
        part.replace(path)
        return path

    def start_service(self):
        self.start("-service")
        eventually(lambda: self.control_socket.exists() or not self.running(), "the service's PC to come up")
        assert self.running(), f"the service ended: {self.output()}"
        return self

    def start_console(self):
        self.description["startedByScm"] = False
        return self.start("-console")

    @property
    def pid(self):
        return self._process.pid

    def running(self):
        return self._process.running()

    def output(self):
        """What the process printed: nothing, or a sanitizer's finding."""
        return self._process.output()

    def ctl(self, *words):
        """Plays Windows to the running service: one winhostctl call; returns its answer as text."""
        done = subprocess.run(
            [str(word) for word in [build_folder() / "winhostctl", self.control_socket, *words]],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60,
        )
        assert done.returncode == 0, f"winhostctl {words}: {done.stdout}{done.stderr}"
        return done.stdout

    def control(self, *words):
        """Sends a service control and returns when the handler has returned: control("suspend"), control(13, 4)."""
        return self.ctl("control", *words)

    def query_state(self):
        """The state that the service last reported to the SCM, 0 before its first report."""
        return json.loads(self.ctl("status", "--json")).get("state", 0)

    def await_state(self, state):
        eventually(lambda: self.query_state() == state, f"service state {state}")

    def footprint(self):
        """What the service's process holds right now."""
        status = dict(line.split(":", 1) for line in pathlib.Path(f"/proc/{self.pid}/status").read_text().splitlines())
        handles = sum(json.loads(self.ctl("handles", "--json")).values())
        return Footprint(handles, int(status["Threads"]), int(status["VmRSS"].split()[0]))

    def power_actions(self):
        """The calls by which the service had Windows change the PC's power, oldest first."""
        return [action["call"] for action in json.loads(self.ctl("power-actions", "--json"))]

    def stop_service(self):
        """Stops it through the SCM and returns the exit code of the process."""
        self.control("stop")
        return self.wait()

    def wait(self, patience=20.0):
        return self._process.wait(patience)

    def close(self):
        self.kill()
        end_all_with(f"WINHOST_ROOT={self.root.resolve()}")

    def kill(self):
        """Ends the service without a word, as a crash would. What it has started lives on."""
        if self._process:
            self._process.kill()
            self._process = None
