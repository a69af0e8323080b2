"""Packs the Windows programs: an MSI, made with wixl, and a zip with install.cmd and remove.cmd that do the same."""

import argparse
import collections
import pathlib
import re
import subprocess
import sys
import zipfile

INSTALLER = pathlib.Path(__file__).resolve().parent
REPOSITORY = INSTALLER.parent

# The types of a custom action that runs a program from the Binary table, as SYSTEM, while the PC is changed.
EXE_IN_BINARY, CONTINUE, ROLLBACK, IN_SCRIPT, AS_SYSTEM = 2, 0x40, 0x100, 0x400, 0x800
DEFERRED = EXE_IN_BINARY | IN_SCRIPT | AS_SYSTEM

Action = collections.namedtuple("Action", "name type command condition sequence")
REMOVED, INSTALLED = 'REMOVE="ALL"', 'REMOVE<>"ALL"'
CONFIGURE, OPEN = 'configure "[Bin]ZELService.exe"', 'open-firewall "[Bin]ZELService.exe"'
# The service is stopped at 1900 and files are removed at 3500; the service is registered at 5800 and starts at 5900. A PC
# without Windows' firewall gets the service without the rules. Data goes last, when nothing can fail any more.
ACTIONS = (
    Action("ReopenFirewall", DEFERRED | ROLLBACK | CONTINUE, OPEN, REMOVED, 1910),
    Action("CloseFirewall", DEFERRED | CONTINUE, "close-firewall", REMOVED, 1920),
    Action("ConfigureService", DEFERRED, CONFIGURE, INSTALLED, 5810),
    Action("RecloseFirewall", DEFERRED | ROLLBACK | CONTINUE, "close-firewall", INSTALLED, 5820),
    Action("OpenFirewall", DEFERRED | CONTINUE, OPEN, INSTALLED, 5830),
    Action("RemoveData", DEFERRED | CONTINUE, "remove-data", f"{REMOVED} AND NOT UPGRADINGPRODUCTCODE", 6590),
)


def service_version():
    return re.search(r'kServiceVersion = "([0-9.]+)"', (REPOSITORY / "base/Version.h").read_text())[1]


def product_version(version):
    """Windows Installer compares three numbers and ignores a fourth one, so the last two become one: 5.1.0.1481 is
    5.1.1481."""
    numbers = [int(number) for number in version.split(".")]
    if len(numbers) != 4:
        raise ValueError(f"the version {version} has not four numbers")
    major, minor, patch, build = numbers
    last = patch * 10_000 + build
    if major > 255 or minor > 255 or build > 9_999 or last > 65_535:
        raise ValueError(f"the version {version} does not fit into the three numbers of Windows Installer")
    return f"{major}.{minor}.{last}"


def installed_files():
    """The programs that the MSI installs."""
    return re.findall(r'<File .*Source="([^"]+)"', (INSTALLER / "product.wxs").read_text())


def run(*command, folder=None):
    """wixl ends with 0 even when it leaves something out, but then it prints a warning."""
    done = subprocess.run(command, cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if done.returncode != 0 or done.stderr:
        raise OSError(f"{command[0]} failed:\n{done.stdout}{done.stderr}")


def insert(table, **values):
    def literal(value):
        return str(value) if isinstance(value, int) else f"'{value}'"
    return (f"INSERT INTO `{table}` ({', '.join(f'`{column}`' for column in values)}) "
            f"VALUES ({', '.join(literal(value) for value in values.values())})")


def build_msi(binaries, version, msi):
    run("wixl", "--arch", "x64", "-D", f"ProductVersion={product_version(version)}", "-D", f"ServiceVersion={version}",
        "--output", msi.absolute(), INSTALLER / "product.wxs", folder=binaries)  # wixl takes no absolute paths of files.
    queries = []
    for action in ACTIONS:
        queries += [
            "-q", insert("CustomAction", Action=action.name, Type=action.type, Source="zelsetup", Target=action.command),
            "-q", insert("InstallExecuteSequence", Action=action.name, Condition=action.condition, Sequence=action.sequence)]
    run("msibuild", msi, *queries)


def build_zip(binaries, archive):
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as zipped:
        for name in installed_files():
            zipped.write(binaries / name, f"bin/{name}")
        zipped.write(binaries / "zelsetup.exe", "zelsetup.exe")
        for name in ("install.cmd", "remove.cmd"):
            # cmd.exe wants both characters at the end of a line.
            zipped.writestr(name, (INSTALLER / name).read_text().replace("\n", "\r\n"))


def build(binaries, output, version):
    """Both files of this version in the folder `output`: the paths of the MSI and of the zip."""
    output.mkdir(parents=True, exist_ok=True)
    msi, archive = (output / f"ZELService-{version}.{kind}" for kind in ("msi", "zip"))
    msi.unlink(missing_ok=True)
    build_msi(binaries, version, msi)
    build_zip(binaries, archive)
    return msi, archive


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--binaries", type=pathlib.Path, default=REPOSITORY / "build/windows", help="where the programs are")
    parser.add_argument("--output", type=pathlib.Path, default=REPOSITORY / "build/package")
    arguments = parser.parse_args()
    try:
        for path in build(arguments.binaries, arguments.output, service_version()):
            print(f"{path.relative_to(REPOSITORY) if path.is_relative_to(REPOSITORY) else path}  {path.stat().st_size} bytes")
    except (OSError, ValueError) as problem:
        sys.exit(f"package: {problem}")


if __name__ == "__main__":
    main()
