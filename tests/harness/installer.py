"""A Windows PC under Wine without the service, and the installer of this tree."""

import importlib.util
import shutil
import subprocess

from .host import text_of
from .prefix import INSTALLATION_KEY, LINGER, SERVICE, WINE, Session
from .processes import REPOSITORY
from .wine import WineHost, windows_folder

# Wine says this of a service's failure actions, which it does not keep. The number is the time after which failures are
# forgotten.
KEPT_NOT = "SERVICE_CONFIG_FAILURE_ACTIONS not implemented: period "


def packager():
    """The module that builds the packages, installer/package.py."""
    spec = importlib.util.spec_from_file_location("packager", REPOSITORY / "installer" / "package.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


class RemarkingSession(Session):
    """Keeps what Wine's service manager remarks, in the file `remarks`."""

    def __init__(self, prefix, remarks):
        super().__init__(prefix)
        self.remarks = remarks
        self.environment["WINEDEBUG"] = "-all,fixme+service"
        self.environment["WINEDLLOVERRIDES"] += ";netsh.exe=n"  # Wine prefers its own programs.

    def boot(self):
        self.server(f"-p{LINGER}")
        with self.remarks.open("w") as file:
            subprocess.run([WINE, "cmd", "/c", "exit"], env=self.environment, stdin=subprocess.DEVNULL,
                           stdout=subprocess.DEVNULL, stderr=file, timeout=60)


class EmptyPc(WineHost):
    """Has the mailbox driver, but no service. netsh.exe only records how it is called."""

    def __init__(self, workdir, mailbox):
        super().__init__(workdir, mailbox)
        self.session = RemarkingSession(self.prefix, self.workdir / "wine.log")
        self._netsh = self.drive / "windows" / "system32" / "netsh.exe"

    def _install_programs(self):
        self._netsh.unlink()  # It shares its content with the prepared prefix.
        shutil.copyfile(windows_folder() / "recorder.exe", self._netsh)

    def boot(self):
        if self._services:
            return self
        super().boot()
        assert self.session.run("sc", "delete", SERVICE) == 0
        assert self.session.run("reg", "delete", INSTALLATION_KEY.rpartition("\\")[0], "/f") == 0
        return self

    def msiexec(self, verb, msi, *properties):
        """Its exit code."""
        return self.session.run("msiexec", verb, windows_path(msi), "/qn", *properties)

    def run_script(self, script):
        """Runs an unpacked install.cmd or remove.cmd; its exit code and what it prints."""
        return self._ask("cmd", "/c", windows_path(script))

    def _ask(self, *command):
        """A program's exit code and what it prints."""
        output = self.workdir / "output.txt"
        with output.open("w") as file:
            done = subprocess.run([WINE, *command], env=self.session.environment, stdin=subprocess.DEVNULL, stdout=file,
                                  stderr=subprocess.DEVNULL, timeout=60)
        return done.returncode, text_of(output)

    def remarks(self):
        """What Wine's service manager has remarked."""
        return text_of(self.session.remarks)

    def settings(self):
        """How the service is registered; "error" is 1060 when it is not."""
        return self.scm("settings", SERVICE)

    def registry_value(self, key, name):
        """What `reg query` prints of the value, or None."""
        _, output = self._ask("reg", "query", key, "/v", name)
        found = [line.split("REG_SZ", 1)[1].strip() for line in output.splitlines() if "REG_SZ" in line]
        return found[0] if found else None

    def installed_versions(self):
        """The versions of the service that Windows Installer counts as installed."""
        key = "HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall"
        _, output = self._ask("reg", "query", key, "/s", "/v", "DisplayVersion")
        return [line.rpartition(" ")[2] for line in output.splitlines() if "REG_SZ" in line]

    def installed_files(self):
        """What lies in the program folder."""
        folder = self.executables.parent
        return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())

    def data(self):
        """What lies in the working folder."""
        folder = self.working_folder
        return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())

    def take_firewall_calls(self):
        """How netsh was called since the last time."""
        calls = self._netsh.with_name("netsh.exe.calls")
        lines = text_of(calls).splitlines()
        calls.unlink(missing_ok=True)
        return [line.partition("netsh.exe\" ")[2] for line in lines]

    def refuse_firewall(self, refused):
        """Whether netsh fails from now on."""
        fails = self._netsh.with_name("netsh.exe.fails")
        fails.touch() if refused else fails.unlink(missing_ok=True)
