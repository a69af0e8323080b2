"""A packaged service, and the program through which it gets the boot mode and the Wi-Fi profile."""

import json
import pathlib
import sys

import pytest

from harness.host import RUNNING
from harness.package import DESCRIPTION, Package
from harness.processes import REPOSITORY

sys.path.insert(0, str(pathlib.Path(REPOSITORY) / "demo"))
from wifi import LAPTOP, SENT  # noqa: E402

PREFIX = "GetValueFromWiFiDataReader: "
CONNECTED = {**LAPTOP, "wlanInterfaces": [{**LAPTOP["wlanInterfaces"][0], "state": 1, "network": "lab"}]}


@pytest.fixture
def start(stage):
    """Starts the service from its package, with a reader of this behaviour (docs/companions.md)."""
    def start_with(behaviour=None, **changes):
        stage.power_up(**{**DESCRIPTION, **changes})
        Package(stage.host)
        if behaviour:
            stage.host.working_folder.mkdir(parents=True)
            (stage.host.working_folder / "WiFiSyncDataReader.behaviour").write_text(behaviour + "\n")
        stage.host.start_service()
        stage.host.await_state(RUNNING)
        return stage

    return start_with


@pytest.mark.parametrize("mode, line", [
    (0, "Boot mode is Regular boot"), (1, "Boot mode is Safe boot"), (2, "Boot mode is Safe boot with Networking"),
])
def test_the_boot_mode_comes_from_the_reader(start, mode, line):
    stage = start(cleanBoot=mode)
    stage.host.await_log(line)
    log = stage.host.log_text()
    assert f"Received Boot Mode data (size=4, boot mode={mode})" in log
    assert "WiFiSyncDataReader.exe GetBootMode" in [
        launch["commandLine"] for launch in json.loads(stage.host.ctl("launches", "--json"))][0]


def test_the_wifi_profile_comes_from_the_reader(start):
    stage = start(**CONNECTED)
    assert stage.firmware.await_request(SENT)["fields"]["ssid"] == "lab"
    # One for the profile, one for the name of the network.
    stage.host.await_log(PREFIX + "Received Wi-Fi sync data (size=132, is_valid=1)", 2)
    assert stage.host.stop_service() == 0


@pytest.mark.parametrize("behaviour, error", [
    ("exit-first", "ConnectNamedPipe failed, error 995"),
    ("length=3", "ReadFile failed or incomplete (bytes=3, error=0)"),
])
def test_a_reader_that_fails_means_a_regular_boot(start, stage, behaviour, error):
    stage.expect_errors(error)
    start(behaviour, cleanBoot=1)
    stage.host.await_log(error)
    stage.host.await_log("Boot mode is Regular boot")


def test_a_reader_may_take_its_time(start):
    stage = start("late=700", cleanBoot=1)
    stage.host.await_log("Boot mode is Safe boot")
    assert stage.host.stop_service() == 0


def test_a_reader_that_never_connects_delays_the_start_and_not_the_stop(start, stage):
    # The report that waits for the reader goes on while the service stops.
    stage.expect_errors("ConnectNamedPipe failed, error 995", "Wi-Fi profile", "returning: 6 to the caller",
                        "returning: 1062 to the caller", "with error: 995", "with dwLastError = 995",
                        "Driver IOCTL failed in function", "CreateNamedPipe failed, error 231")
    start("no-connection", clockRate=100, **CONNECTED)
    stage.host.await_log("Boot mode is Regular boot")
    stage.host.await_log(PREFIX + "Launched WiFiSyncDataReader.exe")
    assert stage.host.stop_service() == 0
