"""How the service goes to sleep with its host, comes back with it, and what of time it survives."""

import time

from harness.waiting import eventually

NO_LONGER_UP = "Error Service is not signalled as Up, returning: 1062 to the caller"
HOUR = 3_600_000


def states(stage):
    return [request["fields"]["state"] for request in stage.firmware.requests("WriteZELStatus")]


def updated(stage):
    """The service up, and its first update at its end, which is when it writes the status file."""
    stage.boot()
    stage.firmware.await_request("WriteMultiNwInfo")
    status = stage.host.working_folder / "zel_json_data.txt"
    eventually(lambda: '"a01a8c0"' in status.read_text(), "the end of the update")
    return stage


def names_after(stage, count):
    return [request["name"] for request in stage.firmware.requests()[count:]]


def test_a_suspend_reports_state_2_and_closes_the_gate(stage):
    updated(stage)
    stage.expect_errors(NO_LONGER_UP, "1062")
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        before = len(stage.firmware.requests())
        stage.host.control("suspend")
        console.sendall(b"hello")
        stage.host.await_log(NO_LONGER_UP)
    assert names_after(stage, before) == ["WriteZELStatus"]
    assert states(stage) == [1, 2]


def test_a_console_that_comes_while_the_firmware_counts_the_host_as_down_brings_the_host_back(stage):
    updated(stage)
    stage.host.control("suspend")
    assert stage.console.identify()["ProductVendor"]
    assert states(stage) == [1, 2, 1]
    assert "MPM is down pass nonDASH commands" in stage.host.log_text()


def test_a_resume_opens_the_gate_and_repeats_the_update(stage):
    updated(stage)
    stage.host.control("suspend")
    before = len(stage.firmware.requests())
    stage.host.control("resume-automatic")
    eventually(lambda: "WriteMultiNwInfo" in names_after(stage, before), "the update after the resume")
    assert names_after(stage, before) == ["GetMPMStatus", "WriteZELStatus", "WriteOsInfo", "GetZELVersion", "WriteCapabilityConfig",
                                          "WriteIPCompleteInformation", "WriteNetworkStatusInfo", "WriteADInfo",
                                          "GetCloudCertInfo", "WriteMultiNwInfo"]
    assert states(stage) == [1, 2, 1]
    assert stage.console.identify()["ProductVendor"]


def resumed_three_times(stage):
    """The three resume events of one wake; the first one's update is still under way when the others come."""
    stage.host.control("suspend")
    stage.firmware.fault("hold", "WriteOsInfo")
    for event in ("resume-critical", "resume-suspend", "resume-automatic"):
        stage.host.control(event)
    eventually(lambda: len(stage.firmware.requests("WriteOsInfo")) == 2, "the update of the first event")


def test_three_resume_events_together_give_one_update(stage):
    updated(stage)
    resumed_three_times(stage)
    stage.firmware.fault("release", "WriteOsInfo")
    eventually(lambda: len(stage.firmware.requests("WriteMultiNwInfo")) == 2, "the end of the update")
    stage.host.control("suspend")  # behind it nothing of an update reaches the firmware
    assert states(stage) == [1, 2, 1, 2]
    assert len(stage.firmware.requests("WriteOsInfo")) == 2


def test_the_firmwares_resume_command_gives_an_update_of_its_own(stage):
    updated(stage)
    resumed_three_times(stage)
    stage.firmware.fault("release", "WriteOsInfo")
    eventually(lambda: len(stage.firmware.requests("WriteMultiNwInfo")) == 2, "the end of the update")
    stage.firmware.fault("hold", "WriteOsInfo")
    # A command that comes before the update's thread has ended is dropped; one that is taken holds back those behind it.
    eventually(lambda: stage.firmware.send("S0i3_RESUME") is not None and len(states(stage)) > 3, "an update by the command")
    stage.firmware.fault("release", "WriteOsInfo")
    eventually(lambda: len(stage.firmware.requests("WriteMultiNwInfo")) == 3, "the end of that update")
    assert states(stage)[:4] == [1, 2, 1, 1]


def test_a_suspend_in_the_middle_of_an_update_ends_its_later_requests_with_1062(stage):
    stage.expect_errors(NO_LONGER_UP, "1062")
    stage.power_up()
    stage.firmware.fault("hold", "WriteOsInfo")
    stage.host.start_service()
    stage.firmware.await_request("WriteOsInfo")
    stage.host.control("suspend")
    before = len(stage.firmware.requests())
    stage.firmware.fault("release", "WriteOsInfo")
    stage.host.await_log(NO_LONGER_UP)
    stage.host.await_log("Calling HTTPS Socket Accept")
    assert stage.host.stop_service() == 0
    assert names_after(stage, before) == ["WriteZELStatus"]
    assert states(stage) == [1, 2, 2]


def test_a_stop_while_the_host_sleeps_is_clean(stage):
    updated(stage)
    stage.expect_errors(NO_LONGER_UP, "1062")
    stage.host.control("suspend")
    assert stage.host.stop_service() == 0
    assert states(stage) == [1, 2, 2]


def test_a_wall_clock_set_back_by_an_hour_only_shows_in_the_logs_times(stage):
    """Periods and time-outs go by the steady clock: the session goes on, and the next scan comes in its 61 seconds."""
    updated(stage)
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        before = stage.host.log_text().count("Num Entries: ")
        hour = time.gmtime(time.time()).tm_hour
        stage.host.ctl("clock", "wall-offset", -HOUR)
        console.sendall(b"hello")
        stage.firmware.await_request("WriteDASHPacket")
    eventually(lambda: stage.host.ctl("clock", "advance", 61_002) is not None
               and stage.host.log_text().count("Num Entries: ") > before, "the next scan")
    assert f" {(hour - 1) % 24:02}:" in stage.host.log_text().splitlines()[-1]
    assert stage.console.identify()["ProductVendor"]
    assert stage.host.stop_service() == 0
