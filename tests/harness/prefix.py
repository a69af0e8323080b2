"""Wine prefixes: how one is prepared, kept and copied, and the programs that run in it."""

import hashlib
import os
import pathlib
import shutil
import signal
import subprocess

from .host import INSTALLATION
from .processes import REPOSITORY, with_owner
from .waiting import eventually

WINE = "/usr/lib/wine/wine64"
WINESERVER = "/usr/lib/wine/wineserver"
PREPARED = REPOSITORY / "build" / "wine"
# What a killed test run leaves ends by itself this many seconds after its last program.
LINGER = 5

SERVICE = "ZELService"
DRIVER = "mpmbox"
INTERFACE = "{70a9067b-708f-443c-84ba-bc391fdbf72b}"
DEVICE_CLASSES = "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\DeviceClasses"
INTERFACE_KEY = f"{DEVICE_CLASSES}\\{INTERFACE}\\##?#ROOT#MPMBOX#0000#{INTERFACE}"
SYSTEM_CLASS = "{4d36e97d-e325-11ce-bfc1-08002be10318}"
INSTALLATION_KEY = "HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Tarvix\\Tarvix Manageability Service"

# The driver sets "Linked" while its gate is attached. An empty debugger keeps a crash a crash. Services get the public
# profile as their PROGRAMDATA from Wine. The service takes the netapi32.dll of a test, if one is there.
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
    f"HKEY_CURRENT_USER\\Software\\Wine\\AppDefaults\\{SERVICE}.exe\\DllOverrides": {"netapi32": "native,builtin"},
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

    def run(self, program, *arguments, patience=60):
        """Runs a Windows program to its end, without its output; its exit code."""
        done = subprocess.run(with_owner([WINE, program, *arguments]), env=self.environment,
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

    def programs(self, name):
        """The programs of this name that run: the words of their command lines by process id, which is Linux's."""
        found = {}
        for pid in self._processes():
            try:
                words = pathlib.Path(f"/proc/{pid}/cmdline").read_text(errors="replace").rstrip("\0").split("\0")
            except OSError:
                continue
            # Ahead of it may stand Wine's loader.
            program = next((place for place, word in enumerate(words) if word.rpartition("\\")[2] == name), None)
            if program is not None:
                found[pid] = words[program:]
        return found

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


# Wine's own services that a session needs: devices, and the network's tables.
WINE_SERVICES = ("PlugPlay", "MountMgr", "nsiproxy", "winebus")


def install_wine(session):
    """Fills an empty prefix. On a busy machine Wine at times ends its installation early and says nothing; it completes
    it when it is asked again."""
    session.run("wineboot", "-i", patience=300)
    for _ in range(3):
        session.shut_down()
        registry = (session.prefix / "system.reg").read_text(errors="replace")
        if all(f"CurrentControlSet\\\\Services\\\\{service}]" in registry for service in WINE_SERVICES):
            return
        session.run("wineboot", "-u", patience=300)
    raise OSError("Wine does not install itself completely; its own services are missing")


def prepare():
    """The folder of a prefix that has all that a session needs in its registry; made on first use."""
    version = subprocess.run([WINE, "--version"], capture_output=True, text=True, check=True).stdout
    key = hashlib.sha256(version.encode() + pathlib.Path(__file__).read_bytes()).hexdigest()[:12]
    ready = PREPARED / key
    if ready.exists():
        return ready
    making = PREPARED / f"{key}.{os.getpid()}"
    making.mkdir(parents=True)
    session = Session(making)
    try:
        install_wine(session)
        session.run("winecfg", "-v", "win10")
        settings = making / "settings.reg"
        settings.write_text(registry_text())
        assert session.run("regedit", "/S", f"Z:{settings}") == 0, "the registry of the Wine prefix could not be filled"
        session.shut_down()
        try:
            making.rename(ready)
        except OSError:
            assert ready.exists()
    finally:
        session.shut_down()
        shutil.rmtree(making, ignore_errors=True)
    return ready


def copy_prefix(source, target):
    """Wine's own programs and libraries, which nothing writes to, are linked where the file system can."""
    shared = {".dll", ".exe", ".drv", ".sys", ".ocx", ".cpl", ".tlb", ".ttf", ".nls", ".acm", ".ax"}

    def copy(file, to):
        if pathlib.Path(file).suffix.lower() in shared:
            try:
                return os.link(file, to)
            except OSError:
                pass
        return shutil.copy2(file, to)
    shutil.copytree(source, target, symlinks=True, copy_function=copy)
