"""The MSI under Wine's Windows Installer, and the zip with its scripts: what they install, and that the service runs from there."""

import collections
import shutil
import zipfile

import pytest

from harness.console import Console
from harness.firmware import Firmware
from harness.host import INSTALLATION, RUNNING, STOPPED
from harness.installer import KEPT_NOT, EmptyPc, packager
from harness.namespace import enter_namespace
from harness.prefix import INSTALLATION_KEY
from harness.waiting import eventually
from harness.wine import windows_folder

# The gate of this tier's other PC looks for its firmware at another port.
MAILBOX = "127.0.0.1:6641"
NO_SUCH_SERVICE = 1060
SUCCESS, FATAL_ERROR = 0, 1603 & 0xFF  # Linux sees the low byte of an exit code.
RUN_KEY = "HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows\\CurrentVersion\\Run"
PROGRAMS = ["bin/ZELKVMApp.exe", "bin/ZELService.exe", "bin/userconsent.exe"]
RULE = 'rule name="Tarvix Manageability Service ({})"'
RULES_DELETED = [f"advfirewall firewall delete {RULE.format(name)}" for name in ("DASH", "KVM")]
RULES_ADDED = [
    f"advfirewall firewall add {RULE.format(name)} dir=in action=allow enable=yes profile=any protocol=TCP "
    f'localport={port} program="C:\\Program Files\\Tarvix\\bin\\ZELService.exe"'
    for name, port in (("DASH", 664), ("KVM", 22))
]
DATA = ("certs/key.pem", "CSRCert/request.csr", "cloud.txt")

Packages = collections.namedtuple("Packages", "msi zip later_msi")


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    if not shutil.which("wixl") or not shutil.which("msibuild"):
        pytest.skip("there is no MSI to install: the packages wixl and msitools are missing")
    module = packager()
    version = module.service_version()
    start, _, build = version.rpartition(".")
    folder = tmp_path_factory.mktemp("packages")
    msi, archive = module.build(windows_folder(), folder, version)
    later, _ = module.build(windows_folder(), folder / "later", f"{start}.{int(build) + 1}")
    return Packages(msi, archive, later)


@pytest.fixture(scope="module")
def empty_pc(packages, tmp_path_factory):
    """A PC without the service; its firmware runs."""
    enter_namespace()
    folder = tmp_path_factory.mktemp("empty")
    with EmptyPc(folder, MAILBOX) as host, Firmware(folder, listen=f"tcp:{MAILBOX}"):
        host.power_up()
        host.await_mailbox(True)
        yield host


@pytest.fixture
def clean(empty_pc, packages):
    """The PC before and after a test that changes what is installed."""
    def remove():
        for msi in (packages.msi, packages.later_msi):
            if empty_pc.settings()["error"] == 0:
                empty_pc.msiexec("/x", msi)
        if empty_pc.settings()["error"] == 0:
            empty_pc.control(1)
            empty_pc.await_state(STOPPED)
            empty_pc.session.run("sc", "delete", "ZELService")
        empty_pc.forget_log()
        empty_pc.take_firewall_calls()
    remove()
    yield empty_pc
    remove()


@pytest.fixture(scope="module")
def installed(empty_pc, packages):
    """With the service that the MSI has installed, for tests that change nothing."""
    assert empty_pc.msiexec("/i", packages.msi) == SUCCESS
    return empty_pc


def put_data(host):
    for name in DATA:
        path = host.working_folder / name
        path.parent.mkdir(exist_ok=True)
        path.write_text("kept")


def expect_service(host, starts=1):
    """It runs, from the installed path, and brings a console to the firmware. The log has so many starts."""
    def log_of_start():
        return host.log_text().split("Logging started")[starts:]
    eventually(lambda: "Calling HTTPS Socket Accept" in "".join(log_of_start()), "the DASH port to be open")
    [text] = log_of_start()
    assert f"(INST: {INSTALLATION}bin), (CWD: {INSTALLATION}bin)" in text
    assert host.query_state() == RUNNING
    assert Console(host.dash_address).identify()["ProductVendor"] == "Tarvix"


def test_the_firewall_lets_the_service_be_reached_on_its_ports(installed):
    assert installed.take_firewall_calls() == RULES_DELETED + RULES_ADDED


def test_the_programs_and_the_registry_value_are_installed(installed):
    assert installed.installed_files() == PROGRAMS
    assert installed.registry_value(INSTALLATION_KEY, "InstallationPath") == INSTALLATION
    assert installed.registry_value(RUN_KEY, "Tarvix user consent") is None


def test_the_service_is_registered_with_its_settings(installed):
    assert installed.settings() == {
        "error": 0, "type": 16, "startType": 2, "account": "LocalSystem",
        "command": f'"{INSTALLATION}bin\\ZELService.exe" -service',
        "displayName": "Tarvix Manageability Service",
        "description": "Connects the manageability firmware of this PC with the network and with Windows.",
        "preshutdownTimeout": 180_000,
    }
    assert KEPT_NOT + "86400" in installed.remarks()


def test_the_service_runs_and_serves_a_console(installed):
    expect_service(installed)
    assert all("WlanRegisterNotification failed" in line for line in installed.error_lines())


def test_an_upgrade_replaces_the_earlier_version_which_then_is_refused(clean, packages):
    assert clean.msiexec("/i", packages.msi) == SUCCESS
    clean.await_state(RUNNING)
    [earlier] = clean.installed_versions()
    clean.take_firewall_calls()
    assert clean.msiexec("/i", packages.later_msi) == SUCCESS
    [later] = clean.installed_versions()
    assert later != earlier
    assert clean.installed_files() == PROGRAMS
    assert clean.take_firewall_calls() == RULES_DELETED + RULES_DELETED + RULES_ADDED
    assert clean.settings()["preshutdownTimeout"] == 180_000
    expect_service(clean, starts=2)
    assert clean.msiexec("/i", packages.msi) == FATAL_ERROR
    assert clean.installed_versions() == [later]
    assert clean.query_state() == RUNNING


def test_the_removal_of_an_upgrade_keeps_the_data(clean, packages):
    """Windows Installer sets this property when it removes the earlier version; Wine does not."""
    assert clean.msiexec("/i", packages.msi) == SUCCESS
    clean.await_state(RUNNING)
    put_data(clean)
    assert clean.msiexec("/x", packages.msi, "UPGRADINGPRODUCTCODE={00000000-0000-0000-0000-000000000001}") == SUCCESS
    assert clean.installed_files() == []
    assert sorted(clean.data()) == sorted([*DATA, "zel.log"])


def test_the_removal_leaves_only_the_logs(clean, packages):
    assert clean.msiexec("/i", packages.msi) == SUCCESS
    clean.await_state(RUNNING)
    put_data(clean)
    (clean.working_folder / "zel.lo_").write_text("an older log")
    (clean.working_folder / "DisplayMgr.log").write_text("the agent's")
    clean.take_firewall_calls()
    assert clean.msiexec("/x", packages.msi) == SUCCESS
    assert clean.settings()["error"] == NO_SUCH_SERVICE
    assert clean.installed_files() == []
    assert clean.registry_value(INSTALLATION_KEY, "InstallationPath") is None
    assert clean.take_firewall_calls() == RULES_DELETED
    assert clean.data() == ["DisplayMgr.log", "zel.lo_", "zel.log"]
    assert "Gracefully exitting ZEL Service. Close Log File." in clean.log_text()


def test_a_firewall_that_refuses_does_not_prevent_the_installation(clean, packages):
    clean.refuse_firewall(True)
    try:
        assert clean.msiexec("/i", packages.msi) == SUCCESS
        assert clean.take_firewall_calls() == RULES_DELETED + RULES_ADDED
    finally:
        clean.refuse_firewall(False)
    clean.await_state(RUNNING)


def test_an_installation_that_fails_is_undone(clean, tmp_path):
    """The service does not start, because another program has its name."""
    binaries = tmp_path / "binaries"
    binaries.mkdir()
    for name in ("ZELKVMApp.exe", "userconsent.exe", "zelsetup.exe"):
        shutil.copyfile(windows_folder() / name, binaries / name)
    shutil.copyfile(windows_folder() / "mpmgate.exe", binaries / "ZELService.exe")
    msi, _ = packager().build(binaries, tmp_path, "5.1.0.1481")
    assert clean.msiexec("/i", msi) not in (SUCCESS, FATAL_ERROR)
    assert clean.settings()["error"] == NO_SUCH_SERVICE
    assert clean.installed_files() == []
    assert clean.installed_versions() == []
    assert clean.registry_value(INSTALLATION_KEY, "InstallationPath") is None
    assert clean.take_firewall_calls() == RULES_DELETED + RULES_ADDED + RULES_DELETED


def test_the_consent_client_starts_at_a_logon_where_that_is_wanted(clean, packages):
    assert clean.msiexec("/i", packages.msi, "ADDLOCAL=ALL") == SUCCESS
    assert clean.registry_value(RUN_KEY, "Tarvix user consent") == f'"{INSTALLATION}bin\\userconsent.exe" --serve'
    assert clean.msiexec("/x", packages.msi) == SUCCESS
    assert clean.registry_value(RUN_KEY, "Tarvix user consent") is None


def test_the_scripts_of_the_zip_do_the_same(clean, packages, tmp_path):
    with zipfile.ZipFile(packages.zip) as archive:
        archive.extractall(tmp_path)
    for starts in (1, 2):  # The second time over the running service.
        code, output = clean.run_script(tmp_path / "install.cmd")
        assert (code, output.strip()) == (0, "The service is installed and runs.")
        expect_service(clean, starts)
        assert clean.installed_files() == PROGRAMS
        assert clean.registry_value(INSTALLATION_KEY, "InstallationPath") == INSTALLATION
        assert clean.take_firewall_calls() == RULES_DELETED + RULES_ADDED
        settings = clean.settings()
        assert (settings["startType"], settings["preshutdownTimeout"]) == (2, 180_000)
        assert settings["command"] == f'"{INSTALLATION}bin\\ZELService.exe" -service'
    put_data(clean)
    code, output = clean.run_script(tmp_path / "remove.cmd")
    assert (code, output.strip()) == (0, "The service is removed.")
    assert clean.settings()["error"] == NO_SUCH_SERVICE
    assert clean.installed_files() == []
    assert clean.registry_value(INSTALLATION_KEY, "InstallationPath") is None
    assert clean.data() == ["zel.log"]
