"""A PC on which the service is installed as a package, with a task scheduler and a PowerShell of the test's own."""

import json
import pathlib
import shutil

from .host import text_of
from .processes import build_folder
from .waiting import eventually

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
# C:/tasks/hold is there, and every script fails while C:/tasks/fail is there.
POWERSHELL = """#!/bin/sh
for last; do :; done
if [ -e C:/tasks/fail ]; then
    case "$*" in *Recovery*) : > C:/tasks/recovery ;; esac
    exit 1
fi
case "$*" in
*RegisterStartZELTrayUI.ps1*) : > "C:/tasks/$last" ;;
*StartZEL.ps1*) name=${last##* \\'}; : > "C:/tasks/${name%\\'}" ;;
*Recovery*) while [ -e C:/tasks/hold ]; do sleep 0.01; done; : > C:/tasks/recovery ;;
esac
"""
SCRIPTS = ("ZELUninstallCleanup.ps1", "ConfigureRecoveryEnvironmentSupport.ps1")
TASKS = ["CleanUpZEL_Service", "StartZEL_Service", "Start_ZEL_Tray_UI"]
MARKS = ("hold", "fail", "recovery")
PROGRAMS = ("ZELKVMApp.exe", "WiFiSyncDataReader.exe")


class Package:
    """The package on the drives of a NativeHost that was described by DESCRIPTION."""

    def __init__(self, host):
        self._host = host
        self._drive = pathlib.Path(host.root) / "C:"
        self._tasks = self._drive / "tasks"
        self._tasks.mkdir()
        self._folder = folder = self._drive / "Program Files" / "WindowsApps" / FULL_NAME
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

    def fail_scripts(self, fail):
        (self._tasks / "fail").touch() if fail else (self._tasks / "fail").unlink()

    def await_recovery_script(self):
        eventually((self._tasks / "recovery").exists, "the recovery script to run")

    def forget_start(self):
        """The next start is the first one of the package: no task is registered, and the working folder has no script."""
        for path in self._tasks.iterdir():
            path.unlink()
        for name in SCRIPTS:
            (self._host.working_folder / name).unlink(missing_ok=True)

    def copy(self, name):
        """Copies a program to the working folder, as the service does."""
        [source] = self._folder.rglob(name)
        shutil.copy(source, self._host.working_folder / name)

    def remove_copy(self, name):
        (self._host.working_folder / name).unlink()

    def recovery_is_configured(self):
        return (self._tasks / "recovery").exists()

    def tasks(self):
        """The names of the tasks in the scheduler."""
        return sorted(path.name for path in self._tasks.iterdir() if path.name not in MARKS)

    def commands(self):
        """What the service has given to the command processor, in order."""
        return [record["command"] for record in json.loads(self._host.ctl("commands", "--json"))]

    def working_files(self, names=PROGRAMS + SCRIPTS):
        """Those of the package's files that are in the working folder."""
        return [name for name in names if (self._host.working_folder / name).exists()]

    def working_text(self, name):
        return text_of(self._host.working_folder / name)
