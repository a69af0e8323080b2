"""A Windows PC under Wine: the mailbox driver, its gate to the simulated firmware, the SCM and the shipped service.

The session lives in a network of its own (enter_namespace), where the service's ports are free. Its Windows side is a
copy of a prefix that is prepared once and kept under build/wine.
"""

import ctypes
import hashlib
import json
import os
import pathlib
import select
import shutil
import signal
import subprocess
import time

from .processes import REPOSITORY, Process
from .waiting import eventually

STOPPED, START_PENDING, STOP_PENDING, RUNNING = 1, 2, 3, 4
INSTALLATION = "C:\\Program Files\\Tarvix\\"
SERVICE = "ZELService"
DRIVER = "mpmbox"

WINE = "/usr/lib/wine/wine64"
WINESERVER = "/usr/lib/wine/wineserver"
PREPARED = REPOSITORY / "build" / "wine"
# What a killed test run leaves ends by itself this many seconds after its last program.
LINGER = 5

INTERFACE = "{70a9067b-708f-443c-84ba-bc391fdbf72b}"
INTERFACE_KEY = f"HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\DeviceClasses\\{INTERFACE}\\##?#ROOT#MPMBOX#0000#{INTERFACE}"
SYSTEM_CLASS = "{4d36e97d-e325-11ce-bfc1-08002be10318}"
INSTALLATION_KEY = "HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Tarvix\\Tarvix Manageability Service"

# The driver sets "Linked" while its gate is attached. An empty debugger keeps a crash a crash. Services get the public
# profile as their PROGRAMDATA from Wine.
REGISTRY = {
    INTERFACE_KEY: {"DeviceInstance": "ROOT\\MPMBOX\\0000"},
    INTERFACE_KEY + "\\#": {"SymbolicLink": f"\\\\?\\ROOT#MPMBOX#0000#{INTERFACE}"},
    INTERFACE_KEY + "\\#\\Control": {"Linked": 0},
    "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Enum\\ROOT\\MPMBOX\\0000": {
        "DeviceDesc": "Mailbox", "ClassGUID": SYSTEM_CLASS,
    },
    f"HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\{DRIVER}": {
        "Type": 1, "Start": 3, "ErrorControl": 1, "ImagePath": f"C:\\windows\\system32\\drivers\\{DRIVER}.sys",
    },
    f"HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\{SERVICE}": {
        "Type": 16, "Start": 3, "ErrorControl": 1, "ObjectName": "LocalSystem",
        "ImagePath": f"\"{INSTALLATION}bin\\ZELService.exe\" -service",
    },
    INSTALLATION_KEY: {"InstallationPath": INSTALLATION},
    "HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug": {"Debugger": ""},
    "HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList": {"Public": "C:\\ProgramData"},
}


def registry_text():
    def value(data):
        if isinstance(data, int):
            return f"dword:{data:08x}"
        return '"' + data.replace("\\", "\\\\").replace('"', '\\"') + '"'
    lines = ["REGEDIT4", ""]
    for key, values in REGISTRY.items():
        lines += [f"[{key}]", *(f'"{name}"={value(data)}' for name, data in values.items()), ""]
    return "\r\n".join(lines)


# The PC's one network adapter. Nobody answers behind it.
ADAPTER, ADDRESS, GATEWAY = "pc0", "192.168.1.10", "192.168.1.1"

_in_namespace = False


def ip(*words):
    subprocess.run(["ip", *words], check=True, stdin=subprocess.DEVNULL)


def enter_namespace():
    """Moves this process, and what it starts from now on, into a network of its own: loopback and the PC's adapter. Once
    for the whole process; as an ordinary user it must not have threads yet."""
    global _in_namespace
    if _in_namespace:
        return
    newuser, newnet = 0x10000000, 0x40000000
    libc = ctypes.CDLL(None, use_errno=True)
    uid, gid = os.getuid(), os.getgid()
    if uid != 0 or libc.unshare(newnet) != 0:
        if libc.unshare(newuser | newnet) != 0:
            problem = os.strerror(ctypes.get_errno())
            raise OSError(f"the Windows service needs a network namespace for its ports, and there is none to be had: {problem}")
        for name, text in (("setgroups", "deny"), ("uid_map", f"0 {uid} 1"), ("gid_map", f"0 {gid} 1")):
            pathlib.Path("/proc/self", name).write_text(text)
    ip("link", "set", "lo", "up")
    ip("link", "add", ADAPTER, "type", "veth", "peer", "name", ADAPTER + "-switch")
    ip("address", "add", f"{ADDRESS}/24", "dev", ADAPTER)
    ip("link", "set", ADAPTER + "-switch", "up")
    ip("link", "set", ADAPTER, "up")
    ip("route", "add", "default", "via", GATEWAY)
    _in_namespace = True


def windows_folder():
    """Where the Windows binaries under test lie: ZEL_WINDOWS_BUILD, or build/windows."""
    return pathlib.Path(os.environ.get("ZEL_WINDOWS_BUILD", REPOSITORY / "build" / "windows"))


class Session:
    """One prefix and the programs that run in it. No program shares its input or output with Wine's own processes, which
    would keep them open."""

    def __init__(self, prefix):
        self.prefix = pathlib.Path(prefix)
        self.environment = {
            **{name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")},
            "WINEPREFIX": str(self.prefix),
            "WINEARCH": "win64",
            "WINEDEBUG": os.environ.get("WINEDEBUG", "-all"),
            "WINEDLLOVERRIDES": "winemenubuilder.exe,mscoree,mshtml=d",
        }

    def command(self, program, *arguments):
        """The words that start a Windows program, which then ends with this process at the latest."""
        return ["setpriv", "--pdeathsig", "KILL", "--", WINE, program, *arguments]

    def run(self, program, *arguments, patience=60):
        """Runs a Windows program to its end, without its output; its exit code."""
        done = subprocess.run([str(word) for word in self.command(program, *arguments)], env=self.environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=patience)
        return done.returncode

    def server(self, *arguments, patience=30):
        subprocess.run([WINESERVER, *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=patience)

    def boot(self):
        self.server(f"-p{LINGER}")
        self.run("cmd", "/c", "exit")

    def shut_down(self):
        """Ends every process of the prefix, those too that don't answer."""
        try:
            self.server("-k")
            self.server("-w")
        except subprocess.TimeoutExpired:
            pass
        for pid in self._processes():
            os.kill(pid, signal.SIGKILL)
        eventually(lambda: not self._processes(), "the end of the Wine session")

    def _processes(self):
        """The processes that live in this prefix."""
        mark = f"WINEPREFIX={self.prefix}".encode()
        found = []
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if mark in (folder / "environ").read_bytes().split(b"\0"):
                    found.append(int(folder.name))
            except OSError:
                pass
        return found


def prepare():
    """The folder of a prefix that has all that a session needs in its registry; made on first use."""
    version = subprocess.run([WINE, "--version"], capture_output=True, text=True, check=True).stdout
    key = hashlib.sha256((version + registry_text() + "win10").encode()).hexdigest()[:12]
    ready = PREPARED / key
    if ready.exists():
        return ready
    making = PREPARED / f"{key}.{os.getpid()}"
    making.mkdir(parents=True)
    session = Session(making)
    try:
        session.run("wineboot", "-i", patience=180)
        session.run("winecfg", "-v", "win10")
        settings = making / "settings.reg"
        settings.write_text(registry_text())
        assert session.run("regedit", "/S", f"Z:{settings}") == 0, "the registry of the Wine prefix could not be filled"
        session.server("-k")
        session.server("-w")
        try:
            making.rename(ready)
        except OSError:
            assert ready.exists()
    finally:
        session.shut_down()
        shutil.rmtree(making, ignore_errors=True)
    return ready


def copy_prefix(source, target):
    """Wine's own programs and libraries, which nobody writes to, are linked where the file system can."""
    shared = {".dll", ".exe", ".drv", ".sys", ".ocx", ".cpl", ".tlb", ".ttf", ".nls", ".acm", ".ax"}

    def copy(file, to):
        if pathlib.Path(file).suffix.lower() in shared:
            try:
                return os.link(file, to)
            except OSError:
                pass
        return shutil.copy2(file, to)
    shutil.copytree(source, target, symlinks=True, copy_function=copy)


class LineProgram:
    """A Windows program that answers each line of input with one line of JSON."""

    def __init__(self, session, program, log):
        with open(log, "ab") as errors:
            self._process = subprocess.Popen([str(word) for word in session.command(program)], env=session.environment,
                                             stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors)
        self._received = b""

    def ask(self, *words, patience=30.0):
        self._process.stdin.write((" ".join(str(word) for word in words) + "\n").encode())
        self._process.stdin.flush()
        deadline = time.monotonic() + patience
        while b"\n" not in self._received:
            readable, _, _ = select.select([self._process.stdout], [], [], max(0.0, deadline - time.monotonic()))
            assert readable, f"no answer to {words} in {patience:.0f} s"
            part = os.read(self._process.stdout.fileno(), 1 << 20)
            assert part, f"the program ended at {words}"
            self._received += part
        line, _, self._received = self._received.partition(b"\n")
        answer = json.loads(line)
        assert "problem" not in answer, answer["problem"]
        return answer

    def close(self):
        self._process.stdin.close()
        try:
            self._process.wait(5)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()


class WineHost:
    """A PC on which driver and service are installed. `mailbox` is the TCP address of mpmsim, "127.0.0.1:port". What
    NativeHost offers means the same here."""

    name = "windows"
    dash_address = ("127.0.0.1", 664)

    def __init__(self, workdir, mailbox):
        self.workdir = pathlib.Path(workdir)
        self.mailbox = mailbox.removeprefix("tcp:")
        self.prefix = self.workdir / "wine"
        self.drive = self.prefix / "drive_c"
        self.working_folder = self.drive / "ProgramData" / "Tarvix" / "Manageability"
        self.session = Session(self.prefix)
        self.gate_log = self.workdir / "mpmgate.log"
        self._services = None
        self._gate = None
        self._process = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    # --- the PC ---

    def boot(self):
        """Windows is up, with driver and service installed; neither runs. Does nothing when it is up."""
        if self._services:
            return self
        enter_namespace()
        copy_prefix(prepare(), self.prefix)
        self._install(windows_folder() / "mpmbox.sys", "windows/system32/drivers/mpmbox.sys")
        self._install(windows_folder() / "ZELService.exe", "Program Files/Tarvix/bin/ZELService.exe")
        self.session.boot()
        self._services = LineProgram(self.session, windows_folder() / "servicectl.exe", self.workdir / "servicectl.log")
        return self

    def _install(self, binary, place):
        target = self.drive / place
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(binary, target)

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
        """Joins the driver to the firmware. The mailbox is present while both are there."""
        self.gate_log.unlink(missing_ok=True)
        self._gate = Process(self.session.command(windows_folder() / "mpmgate.exe", self.mailbox), self.gate_log,
                             env=self.session.environment)
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
        return LineProgram(self.session, windows_folder() / "mailboxprobe.exe", self.workdir / "mailboxprobe.log")

    def set_installation_path(self, path):
        self.boot()
        assert self.session.run("reg", "add", INSTALLATION_KEY, "/v", "InstallationPath", "/d", path, "/f") == 0

    # --- the service ---

    def start(self, *arguments, environment=None):
        """Starts the executable with these arguments, as a person would."""
        self.boot()
        self._process = Process(self.session.command(INSTALLATION + "bin\\ZELService.exe", *arguments),
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

    def stop_service(self):
        """Stops it through the SCM and returns the exit code of the process."""
        assert self.control(1) == 0
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

    def log_path(self):
        return self.working_folder / "zel.log"

    def log_text(self):
        return self.log_path().read_text(errors="replace") if self.log_path().exists() else ""

    def await_log(self, text, count=1, patience=20.0):
        eventually(lambda: self.log_text().count(text) >= count, f"{text!r} in the log", patience)

    def error_lines(self):
        return [line for line in self.log_text().splitlines() if "] ERROR: " in line]

    def forget_log(self):
        """Begins with an empty working folder again; the service must not run."""
        shutil.rmtree(self.working_folder.parent, ignore_errors=True)

    def close(self):
        """Ends the whole session; the prefix stays, with the log in it."""
        try:
            self.kill()
            if self._gate:
                self.kill_gate()
            if self._services:
                self._services.close()
        finally:
            self._services = None
            if self.prefix.exists():
                self.session.shut_down()
