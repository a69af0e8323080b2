"""The service as a package installs it: its copies, its scheduled tasks, and the recovery environment."""

import threading

import pytest

from harness.host import RUNNING
from harness.package import DESCRIPTION, FAMILY_NAME, FOLDER, PROGRAMS, SCRIPTS, TASKS, Package
from harness.waiting import eventually

POWERSHELL = "PowerShell -NoProfile -ExecutionPolicy Bypass "
QUERIES = ['schtasks /query /tn "StartZEL_Service" > nul 2>&1', 'schtasks /query /tn "Start_ZEL_Tray_UI" > nul 2>&1']
REGISTRATIONS = [
    f"""{POWERSHELL}-Command "&'{FOLDER}\\scripts\\StartZEL.ps1' """
    f"""'{FOLDER}\\scripts\\StartZEL_Service_Trigger_Wake.xml' 'StartZEL_Service'\"""",
    f"""{POWERSHELL}-Command "&'{FOLDER}\\scripts\\StartZEL.ps1' """
    f"""'{FOLDER}\\scripts\\ZEL_CleanUp_Trigger.xml' 'CleanUpZEL_Service'\"""",
    f"""{POWERSHELL}-File "{FOLDER}\\scripts\\RegisterStartZELTrayUI.ps1" -PackageFamilyName "{FAMILY_NAME}" """
    """-AppId "App" -DelaySeconds 10 -TaskName "Start_ZEL_Tray_UI\"""",
]
RECOVERY = (f"""{POWERSHELL}-Command "&'C:\\ProgramData\\Tarvix\\Manageability\\ConfigureRecoveryEnvironmentSupport.ps1' """
            """-Action Install\"""")


def start(stage):
    stage.host.start_service()
    stage.host.await_state(RUNNING)
    stage.host.await_log("Calling HTTPS Socket Accept")


@pytest.fixture
def package(stage):
    """Installed; the service isn't started yet."""
    stage.power_up(**DESCRIPTION)
    return Package(stage.host)


def test_a_first_start_copies_the_files_and_registers_the_tasks(stage, package):
    start(stage)
    eventually(package.recovery_is_configured, "the recovery environment to be configured")
    commands = package.commands()
    commands.remove(RECOVERY)  # runs beside the others
    assert commands == [QUERIES[0], *REGISTRATIONS[:2], QUERIES[1], REGISTRATIONS[2]]
    assert package.tasks() == TASKS
    assert package.working_files() == [*PROGRAMS, *SCRIPTS]
    assert not list(stage.host.root.rglob("[nN][uU][lL]"))


def test_the_stop_takes_the_programs_away_and_leaves_the_scripts(stage, package):
    start(stage)
    eventually(package.recovery_is_configured, "the recovery environment to be configured")
    assert stage.host.stop_service() == 0
    assert package.working_files() == list(SCRIPTS)


def test_a_second_start_copies_only_the_programs(stage, package):
    start(stage)
    eventually(package.recovery_is_configured, "the recovery environment to be configured")
    assert stage.host.stop_service() == 0
    (stage.host.working_folder / SCRIPTS[1]).write_text("the first start's")
    stage.host.start_service()
    stage.host.await_log("Calling HTTPS Socket Accept", 2)
    assert package.commands() == [QUERIES[0], REGISTRATIONS[1], QUERIES[1]]
    assert package.working_files() == [*PROGRAMS, *SCRIPTS]
    assert package.working_text(SCRIPTS[1]) == "the first start's"


def test_a_stop_waits_for_the_recovery_script(stage, package):
    stage.host.description["clockRate"] = 20
    package.hold_recovery()
    start(stage)
    codes = []
    stop = threading.Thread(target=lambda: codes.append(stage.host.stop_service()))
    stop.start()
    stage.host.await_log("Waiting for WinRE Config to complete, Attempt 30")
    assert stage.host.running()
    package.release_recovery()
    stop.join(20)
    assert codes == [0]
    log = stage.host.log_text()
    assert log.index("Recovery Environment script ran successfully.") < \
        log.index("Changing state of service in Service Control Manager to Stopped")


def test_the_agent_runs_from_the_working_folder(kvm):
    kvm.use_firmware()
    kvm.stage.power_up(**DESCRIPTION)
    package = Package(kvm.host)
    start(kvm.stage)
    kvm.enable()
    with kvm.begin_session():
        # The programs that have run before are the readers of the boot mode and of the Wi-Fi profile.
        launch = kvm.host.launches()[-1]
        assert launch["commandLine"].startswith('"C:\\ProgramData\\Tarvix\\Manageability\\ZELKVMApp.exe" -X ')
        eventually(lambda: f"[{launch['pid']}] started with -X " in kvm.host.agent_log(), "the agent's first line")
    eventually(package.recovery_is_configured, "the recovery environment to be configured")


def test_without_powershell_the_service_runs_and_says_what_failed(stage):
    stage.expect_errors(*(f"CopyFile() API failed with error: {code}" for code in (2, 3)),
                        "Start KVM functionality will not work", "Wi-Fi Sync functionality will not work",
                        "The cleanup process after uninstallation will not work", "is not restored to original",
                        "task to Task Schedular failed with Error: 1", "task to Task Scheduler failed with Error: 1",
                        "RegisterStartZELTrayUI.ps1 failed: 1", "encountered the followng error: 1",
                        "Failed to launch C:\\ProgramData\\Tarvix\\Manageability\\WiFiSyncDataReader.exe, error 2")
    stage.boot(**DESCRIPTION)
    stage.host.await_log("Recovery Environment script encountered the followng error: 1")
    assert stage.host.stop_service() == 0
