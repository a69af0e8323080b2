"""A PC on which the service is installed as a package, with a task scheduler and a PowerShell of the test's own."""

import json
import pathlib

from .host import text_of
from .processes import build_folder

FULL_NAME = "Tarvix.ZEL_5.1.0.1481_x64__8wekyb3d8bbwe"
FOLDER = "C:\\Program Files\\WindowsApps\\" + FULL_NAME
FAMILY_NAME = "Tarvix.ZEL_8wekyb3d8bbwe"
# Of the PC's description. The service is not installed in any other way.
DESCRIPTION = {
    "package": {"fullName": FULL_NAME, "path": FOLDER, "familyName": FAMILY_NAME},
    "modulePath": FOLDER + "\\ZELService\\ZELService.exe",
    "registry": {},
}

SCHTASKS = """#!/bin/sh
[ -e "C:/tasks/$3" ]
"""
# Registers the task that its last argument names. The configuration of the recovery environment does not end while
# C:/tasks/hold is there.
POWERSHELL = """#!/bin/sh
for last; do :; done
case "$*" in
*RegisterStartZELTrayUI.ps1*) : > "C:/tasks/$last" ;;
*StartZEL.ps1*) name=${last##* \\'}; : > "C:/tasks/${name%\\'}" ;;
*) while [ -e C:/tasks/hold ]; do sleep 0.01; done; : > C:/tasks/recovery ;;
esac
"""
SCRIPTS = ("ZELUninstallCleanup.ps1", "ConfigureRecoveryEnvironmentSupport.ps1")
PROGRAMS = ("ZELKVMApp.exe", "WiFiSyncDataReader.exe")


class Package:
    """The package on the drives of a NativeHost that was described by DESCRIPTION."""

    def __init__(self, host):
        self._host = host
        self._drive = pathlib.Path(host.root) / "C:"
        self._tasks = self._drive / "tasks"
        self._tasks.mkdir()
        folder = self._drive / "Program Files" / "WindowsApps" / FULL_NAME
        for place, name in (("KVM_Agent", PROGRAMS[0]), ("WiFiSyncDataReader", PROGRAMS[1])):
            (folder / place).mkdir(parents=True)
            (folder / place / name).symlink_to(build_folder() / pathlib.Path(name).stem)
        (folder / "scripts").mkdir()
        for name in SCRIPTS:
            (folder / "scripts" / name).write_text(f"# {name}\n")
        system = self._drive / "Windows" / "System32"
        self._write_program(system / "schtasks.exe", SCHTASKS)
        self._write_program(system / "WindowsPowerShell" / "v1.0" / "powershell.exe", POWERSHELL)

    @staticmethod
    def _write_program(path, text):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def hold_recovery(self):
        (self._tasks / "hold").touch()

    def release_recovery(self):
        (self._tasks / "hold").unlink()

    def recovery_is_configured(self):
        return (self._tasks / "recovery").exists()

    def tasks(self):
        """The names of the tasks in the scheduler."""
        return sorted(path.name for path in self._tasks.iterdir() if path.name not in ("hold", "recovery"))

    def commands(self):
        """What the service has given to the command processor, in order."""
        return [record["command"] for record in json.loads(self._host.ctl("commands", "--json"))]

    def working_files(self, names=PROGRAMS + SCRIPTS):
        """Those of the package's files that are in the working folder."""
        return [name for name in names if (self._host.working_folder / name).exists()]

    def working_text(self, name):
        return text_of(self._host.working_folder / name)
