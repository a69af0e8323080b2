"""How the service stops, and what the firmware receives."""

from harness.waiting import eventually


def test_a_stop_tells_the_firmware_and_ends_with_code_0(stage):
    stage.boot()
    stage.expect_errors("Service is not signalled as Up")  # the stop may overtake the end of the session
    stage.console.identify()
    assert stage.host.stop_service() == 0
    assert [request["fields"]["state"] for request in stage.firmware.requests("WriteZELStatus")] == [1, 2]
    assert stage.host.log_text().rstrip().splitlines()[-1].find("Gracefully exitting ZEL Service. Close Log File.") > 0


def test_preshutdown_tells_the_firmware_before_the_device_is_closed(stage):
    stage.boot()
    stage.host.control("preshutdown")
    assert stage.host.wait() == 0
    names = [request["name"] for request in stage.firmware.requests()]
    assert names[-2:] == ["WriteShutdownLaptop", "WriteZELStatus"]


def test_a_stop_while_the_device_never_opened(stage):
    stage.expect_errors("m_pDeviceInterfaceDetailData is NULL", "OpenMPMDevice() call failed", "Error Invalid Handle")
    stage.power_up(firmware=False)
    stage.host.start_service()
    stage.host.await_log("OpenMPMDevice() call failed with error: 487")
    assert stage.host.stop_service() == 0
    assert "Gracefully exitting ZEL Service" in stage.host.log_text()


def test_suspend_closes_the_gate_and_resume_opens_it(stage):
    stage.boot()
    stage.host.control("suspend")
    stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 2)
    stage.host.control("resume-automatic")
    eventually(lambda: [r["fields"]["state"] for r in stage.firmware.requests("WriteZELStatus")] == [1, 2, 1],
               "the service to be up again")


def test_a_session_change_that_was_never_asked_for_is_only_logged(stage):
    stage.boot()
    stage.host.control(14, "--force")
    stage.host.await_log("ServiceCtrlHandler: SERVICE_CONTROL_SESSIONCHANGE received")
