"""The filter driver of a laptop with Modern Standby: on for a wireless connection of a provisioned platform, off for all else."""

import json

import pytest

from harness.waiting import eventually

WIRED, WIRELESS = 6, 71
CONNECTION_COMPLETE, DISCONNECTED_FROM_WLAN = 10, 21
BINDING = "powershell -Command \"Set-NetAdapterBinding -Name 'Wi-Fi*' -DisplayName '*KelmarM*' -Enabled $%s\""


def adapter(kind):
    return {"name": "{2F1B3C44-0E5D-4C39-9C6A-0D4C5F6E7A81}", "description": "Simulated Adapter", "index": 3, "type": kind,
            "mac": "02:00:5E:10:00:01", "address": "192.168.1.10", "mask": "255.255.255.0", "gateway": "192.168.1.1"}


def answers(stage, command):
    return json.loads(stage.host.ctl(command, "--json"))


def state_of_driver(stage):
    return answers(stage, "description")["services"][0]["state"]


def await_driver(stage, runs):
    eventually(lambda: state_of_driver(stage) == (4 if runs else 1), f"the driver to {'run' if runs else 'stop'}")


@pytest.fixture
def laptop(stage):
    def boot(script="exit 0", kind=WIRELESS, **driver):
        stage.power_up(modernStandby=True, adapters=[adapter(kind)], services=[{"name": "KelmarMnf", **driver}])
        if script:
            program = stage.host.root / "C:" / "Windows" / "System32" / "powershell.exe"
            program.parent.mkdir(parents=True)
            program.write_text(f"#!/bin/sh\n{script}\n")
            program.chmod(0o755)
        stage.host.start_service()
        stage.firmware.await_request("WriteMultiNwInfo")
        return stage

    return boot


def test_the_driver_runs_for_a_wireless_connection_and_ends_with_the_service(laptop):
    stage = laptop(startType=4)
    stage.host.await_log("Filter driver enable successfully")
    assert state_of_driver(stage) == 4
    actions = answers(stage, "service-actions")
    assert [action["action"] for action in actions] == ["start type 3", "start"]
    assert [entry["command"] for entry in answers(stage, "commands")] == [BINDING % "True"]
    assert stage.host.stop_service() == 0
    log = stage.host.log_text()
    order = ["Cleanup Driver Interfaces", "Disabling network binding...", "Network binding disabled.", "Stopping driver...",
             "Driver stopped.", "Driver disabled successfully.", "zel_json_data file deleted successfully"]
    places = [log.index(text) for text in order]
    assert places == sorted(places)


def test_a_cable_turns_the_driver_off_and_pulling_it_turns_it_on_again(laptop):
    stage = laptop()
    await_driver(stage, True)
    for kind, code in ((WIRED, CONNECTION_COMPLETE), (WIRELESS, DISCONNECTED_FROM_WLAN)):
        stage.host.ctl("change", json.dumps({"adapters": [adapter(kind)]}))
        stage.host.ctl("wlan", "notify", code)
        stage.host.ctl("clock", "advance", 2_000)
        await_driver(stage, kind == WIRELESS)


def test_without_powershell_the_driver_runs_all_the_same(laptop):
    stage = laptop(script=None)
    stage.expect_errors("Failed to enable network binding via PowerShell.", "Failed to disable network binding via PowerShell.")
    stage.host.await_log("Filter driver enable successfully")
    stage.host.stop_service()
    assert "Driver disabled successfully." in stage.host.log_text()


def test_a_stop_waits_for_a_powershell_that_takes_its_time(laptop):
    stage = laptop(script="sleep 1.5")
    eventually(lambda: state_of_driver(stage) == 4, "the driver to run")
    # The report that has turned the driver on still waits for its binding.
    assert stage.host.stop_service() == 0
    log = stage.host.log_text()
    assert log.index("Network binding enabled.") < log.index("Disabling network binding...")
    assert "Driver disabled successfully." in log
