"""A Windows PC under Wine: the mailbox driver, its gate to the simulated firmware, the SCM and the shipped service.

The session lives in a network of its own (enter_namespace), where the service's ports are free. Its Windows side is a
copy of a prefix that is prepared once and kept under build/wine.
"""

import os
import pathlib
import shutil
import socket

from .directory import Directory
from .host import INSTALLATION, RUNNING, STOPPED, Footprint, Host
from .namespace import enter_namespace, entry_command
from .lines import LineProgram
from .prefix import DRIVER, INSTALLATION_KEY, SERVICE, WINE, Session, copy_prefix, prepare
from .processes import REPOSITORY, Process
from .waiting import eventually
from .wlan import Wlan


def windows_folder():
    """Where the Windows binaries under test lie: ZEL_WINDOWS_BUILD, or build/windows."""
    return pathlib.Path(os.environ.get("ZEL_WINDOWS_BUILD", REPOSITORY / "build" / "windows"))


TCPIP_KEY = "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\Tcpip\\Parameters"
CLOUD_LIBRARY = "Program Files/Tarvix/bin/nubaapi.dll"
# What the service captures the screen with.
MEDIA_RUNTIME = ("luxrt64.dll", "luxcapture.exe")


class WineHost(Host):
    """A PC on which driver and service are installed. `mailbox` is the TCP address of mpmsim, "127.0.0.1:port". What
    NativeHost offers means the same here."""

    name = "windows"
    network_name = socket.gethostname()
    dash_address = ("127.0.0.1", 664)
    kvm_address = ("127.0.0.1", 22)

    def __init__(self, workdir, mailbox):
        self.workdir = pathlib.Path(workdir)
        self.mailbox = mailbox.removeprefix("tcp:")
        self.prefix = self.workdir / "wine"
        self.drive = self.prefix / "drive_c"
        self.working_folder = self.drive / "ProgramData" / "Tarvix" / "Manageability"
        self.executables = self.drive / "Program Files" / "Tarvix" / "bin"
        self.session = Session(self.prefix)
        self.gate_log = self.workdir / "mpmgate.log"
        self._services = None
        self._gate = None
        self._process = None
        self._logon = None
        self._consent_clients = 0
        self._desktop = None

    @property
    def captures_screen(self):
        """Whether the service can capture a Desktop (use_desktop): the media runtime is built."""
        return all((windows_folder() / name).exists() for name in MEDIA_RUNTIME)

    def use_desktop(self, desktop):
        """The screen of this PC is a Desktop, and the service captures it with the software runtime. Before the boot, because
        Wine passes its first program's DISPLAY on to all others."""
        self.session.environment["DISPLAY"] = desktop.display
        self._desktop = desktop

    @property
    def entry(self):
        """What stands ahead of a command that reaches this PC from a shell."""
        return entry_command() + " "

    # --- the PC ---

    def boot(self):
        """Windows is up, with driver and service installed; neither runs. Does nothing when it is up."""
        if self._services:
            return self
        enter_namespace()
        copy_prefix(prepare(), self.prefix)
        self._install(windows_folder() / "mpmbox.sys", "windows/system32/drivers/mpmbox.sys")
        self._install_programs()
        self.session.boot()
        self._services = self._line_program("servicectl")
        return self

    def _install_programs(self):
        for name in ("ZELService.exe", "ZELKVMApp.exe", *(MEDIA_RUNTIME if self._desktop else ())):
            self._install(windows_folder() / name, f"Program Files/Tarvix/bin/{name}")
        self._install(windows_folder() / "certreq.exe", "windows/system32/certreq.exe")

    def _install(self, binary, place):
        target = self.drive / place
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(binary, target)

    def _line_program(self, name):
        return LineProgram([WINE, windows_folder() / f"{name}.exe"], self.session.environment, self.workdir / f"{name}.log")

    def scm(self, verb, service, *words):
        """One call to the SCM; its answer has "error", "state", "exitCode" and more."""
        self.boot()
        return self._services.ask(verb, service, *words)

    def start_driver(self):
        answer = self.scm("start", DRIVER)
        assert answer["error"] == 0, f"the driver does not start: {answer}"

    def stop_driver(self):
        self.stop_gate()
        answer = self.scm("control", DRIVER, 1)
        assert answer["error"] == 0, f"the driver does not stop: {answer}"

    def start_gate(self):
        """Joins the driver to the firmware. The mailbox is present while both are there, and when this returns if they are."""
        self.gate_log.unlink(missing_ok=True)
        self._gate = Process([WINE, windows_folder() / "mpmgate.exe", self.mailbox], self.gate_log,
                             env=self.session.environment)
        eventually(lambda: self.gate_lines() or not self._gate.running(), "the gate to find the firmware or to miss it")
        return self

    def stop_gate(self):
        if not self._gate:
            return
        asked = self.session.run(windows_folder() / "mpmgate.exe", "--stop")
        code = self._gate.wait() if asked == 0 else self._gate.kill()
        self._gate = None
        assert code == 0, f"mpmgate ended with {code}: {self.gate_log.read_text(errors='replace')[-2000:]}"

    def kill_gate(self):
        self._gate.kill()
        self._gate = None

    def gate_lines(self):
        """What the gate said, without the times."""
        if not self.gate_log.exists():
            return []
        return [line.partition(" ")[2] for line in self.gate_log.read_text(errors="replace").splitlines()]

    def await_mailbox(self, present):
        """Waits until the firmware is joined to the driver, or no longer."""
        def shown():
            said = [line for line in self.gate_lines() if line in ("the mailbox is present", "the mailbox is absent")]
            return self._gate and said[-1:] == ["the mailbox is present"]
        eventually(lambda: bool(shown()) == present, f"the mailbox to be {'present' if present else 'absent'}")

    def mailbox_handles(self):
        """How many handles are open on the mailbox."""
        lines = self.gate_lines()
        while "the mailbox is present" in lines:
            lines = lines[lines.index("the mailbox is present") + 1:]
        return sum(line.endswith("is open") for line in lines) - sum(line.endswith("is closed") for line in lines)

    def second_gate(self):
        """The exit code of a gate that finds another one at work."""
        return self.session.run(windows_folder() / "mpmgate.exe", self.mailbox)

    def power_up(self):
        """Windows with driver and gate."""
        self.boot()
        if not self._gate:
            if self.scm("query", DRIVER)["state"] != RUNNING:
                self.start_driver()
            self.start_gate()
        return self

    def probe(self):
        """A bare client of the mailbox device."""
        self.boot()
        return self._line_program("mailboxprobe")

    def set_installation_path(self, path):
        self.boot()
        assert self.session.run("reg", "add", INSTALLATION_KEY, "/v", "InstallationPath", "/d", path, "/f") == 0

    def join_domain(self, name):
        """Gives the PC a DNS domain, or takes it away when the name is empty."""
        self.boot()
        assert self.session.run("reg", "add", TCPIP_KEY, "/v", "Domain", "/d", name, "/f") == 0

    def use_wlan(self):
        """The PC's WLAN service, which the service finds when it starts the next time; its remove() ends it."""
        self.boot()
        return Wlan(self.executables, windows_folder() / "wlanapi" / "wlanapi.dll")

    def install_cloud_library(self):
        """The stand-in for nubaapi.dll (docs/cloud-library.md)."""
        self.boot()
        self._install(windows_folder() / "nubaapi.dll", CLOUD_LIBRARY)

    def remove_cloud_library(self):
        (self.drive / CLOUD_LIBRARY).unlink()

    def use_directory(self):
        """The PC's directory, which the service finds when it starts the next time; its remove() ends it."""
        self.boot()
        return Directory(self.executables, windows_folder() / "netapi32" / "netapi32.dll")

    # --- the user's session and the programs beside the service ---

    def log_on(self):
        """A user's session, in which the service can start programs: Wine's own has no logon program."""
        if self._logon:
            return
        self.boot()
        self._logon = self._line_program("winlogon")
        assert self._logon.ask("session") == {"error": 0, "session": 1}
        if self._desktop:
            width, height = self._desktop.size
            assert self._logon.ask("desktop") == {"error": 0, "width": width, "height": height}

    def log_off(self):
        if self._logon:
            self._logon.close()
            self._logon = None

    def set_agent_behaviour(self, word):
        """What the agents do that start from now on (docs/companions.md); None for nothing special."""
        behaviour = self.executables / "ZELKVMApp.behaviour"
        behaviour.write_text(word + "\n") if word else behaviour.unlink(missing_ok=True)

    def set_certreq_behaviour(self, word):
        """What the programs do that start from now on (docs/companions.md); None for nothing special."""
        behaviour = self.drive / "windows" / "system32" / "certreq.behaviour"
        behaviour.write_text(word + "\n") if word else behaviour.unlink(missing_ok=True)

    def end_certreq(self):
        """Ends programs that hang."""
        self.session.run("taskkill", "/f", "/im", "certreq.exe")

    def agents(self):
        """The agents that run: the words of their command lines by process id."""
        return self.session.programs("ZELKVMApp.exe")

    @property
    def consent_command(self):
        """What a person types to be asked at this PC."""
        return f"{self.entry}env WINEPREFIX={self.prefix} {WINE} {windows_folder()}/userconsent.exe"

    def consent_client(self, *arguments):
        """The program that asks the person at this PC, without anybody at its terminal."""
        self._consent_clients += 1
        return Process([WINE, windows_folder() / "userconsent.exe", *arguments],
                       self.workdir / f"userconsent-{self._consent_clients}.out", env=self.session.environment)

    # --- the service ---

    def start(self, *arguments, environment=None):
        """Starts the executable with these arguments, as a person would."""
        self.boot()
        self._process = Process([WINE, INSTALLATION + "bin\\ZELService.exe", *arguments],
                                self.workdir / "service.out", env={**self.session.environment, **(environment or {})})
        return self

    def start_service(self):
        """Starts it through the SCM."""
        self.power_up()
        answer = self.scm("start", SERVICE)
        assert answer["error"] == 0, f"the SCM does not start the service: {answer}"
        return self

    def start_console(self):
        self.power_up()
        return self.start("-console")

    def running(self):
        if self._process:
            return self._process.running()
        return self.scm("exit", SERVICE, 0)["error"] != 0

    def output(self):
        """What the process printed; of one that the SCM started nothing is known."""
        return self._process.output() if self._process else ""

    def control(self, code):
        """Sends a service control by its number and returns when the handler has returned; the SCM's error."""
        return self.scm("control", SERVICE, code)["error"]

    def query_state(self):
        return self.scm("query", SERVICE)["state"]

    def service_exit_code(self):
        return self.scm("query", SERVICE)["exitCode"]

    def await_state(self, state, patience=20.0):
        answer = self.scm("wait", SERVICE, state, int(patience * 1000))
        assert answer["error"] == 0, f"waited {patience:.0f} s for service state {state}: {answer}"

    def footprint(self):
        """What the process that the SCM started holds right now; events don't count as handles."""
        answer = self.scm("footprint", SERVICE)
        return Footprint(answer["handles"], answer["threads"])

    def stop_service(self):
        """Stops it through the SCM and returns the exit code of the process."""
        assert (error := self.control(1)) == 0, f"the SCM cannot stop the service, error {error}"
        self.await_state(STOPPED)
        return self.wait()

    def wait(self, patience=20.0):
        if self._process:
            return self._process.wait(patience)
        answer = self.scm("exit", SERVICE, int(patience * 1000))
        assert answer["error"] == 0, f"the service's process has not ended: {answer}"
        return answer["exitCode"]

    def kill(self):
        """Ends a process that start or start_console began."""
        if self._process:
            self._process.kill()
            self._process = None

    # --- the log ---

    def forget_log(self):
        """Begins with an empty working folder again; the service must not run."""
        shutil.rmtree(self.working_folder.parent, ignore_errors=True)
        self._log = None  # the number of the file may be used again

    def close(self):
        """Ends the whole session. The log and the registry stay, and Wine's own files go."""
        try:
            self.kill()
            self.log_off()
            if self._gate:
                self.kill_gate()
            if self._services:
                self._services.close()
        finally:
            self._services = None
            if self.prefix.exists():
                self.session.shut_down()
                shutil.rmtree(self.drive / "windows", ignore_errors=True)
