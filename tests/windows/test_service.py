"""The shipped executable on Windows: started by the SCM or by hand, with the mailbox driver's device."""

import pytest

from harness.console import closed_by_peer
from harness.waiting import eventually
from harness.host import INSTALLATION, RUNNING, STOPPED


def states(stage):
    return [request["fields"]["state"] for request in stage.firmware.requests("WriteZELStatus")]


def test_the_firmware_hears_the_start_and_the_stop(stage):
    stage.boot()
    assert stage.host.stop_service() == 0
    assert states(stage) == [1, 2]
    assert "Gracefully exitting ZEL Service. Close Log File." in stage.host.log_text().rstrip().splitlines()[-1]
    assert stage.host.service_exit_code() == 0


def test_the_scm_sees_start_pending_then_running(stage):
    stage.power_up()
    pending = stage.host.scm("start", "ZELService")
    assert (pending["state"], pending["waitHint"], pending["controlsAccepted"], pending["checkPoint"]) == (2, 20000, 0, 1)
    stage.host.await_state(RUNNING)
    running = stage.host.scm("query", "ZELService")
    assert (running["waitHint"], running["controlsAccepted"], running["checkPoint"]) == (0, 0x141, 0)


def test_a_consoles_request_reaches_the_firmware_and_its_answer_returns(stage):
    stage.boot()
    answer = stage.console.identify()
    assert answer["ProtocolVersion"] == "http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd"
    assert answer["ProductVendor"] == "Tarvix"
    report = stage.firmware.await_request("WriteIPCompleteInformation", lambda fields: fields["PeerMarker"] == 0xFFFF)
    assert report["fields"]["Port"] == 664


def test_an_idle_console_is_closed_and_the_next_one_has_its_turn(stage):
    stage.boot()
    with stage.console.connect() as idle:
        stage.host.await_log("Processing DASH traffic")
        assert stage.console.identify()["ProductVendor"] == "Tarvix"
        assert closed_by_peer(idle)
    stage.host.await_log("Server has not received requests")


def test_commands_of_the_firmware_are_dispatched_whatever_their_size(stage):
    stage.boot()
    for size in (0, 1, 2):
        stage.firmware.send("--raw", "--size", size)
    stage.firmware.send(53, "--size", 0x20000 - 2)
    stage.host.await_log("ProcessRead: Unknown Command received from driver: 0x35")
    for number in range(54, 70):
        stage.firmware.send(number)
    stage.host.await_log("ProcessRead: Unknown Command received from driver: 0x45")


def test_an_installed_service_has_no_package_and_copies_nothing(stage):
    stage.boot()
    assert "INFO:  IsRunningFromMSIXPackage: Process has no package identity: 15700 " in stage.host.log_text()
    assert stage.host.stop_service() == 0
    assert not list(stage.host.working_folder.glob("*.exe")) and not list(stage.host.working_folder.glob("*.ps1"))
    assert "DeleteFile() API failed" not in stage.host.log_text()


def test_interrogate_and_unknown_controls_are_answered(stage):
    stage.boot()
    assert stage.host.control(4) == 0
    assert stage.host.control(200) == 0
    stage.host.await_log("ServiceCtrlHandler: SERVICE_CONTROL_INTERROGATE received")
    stage.host.await_log("ServiceCtrlHandler: Received ControlCode: 200")
    assert stage.host.query_state() == RUNNING


def test_console_mode_informs_the_firmware_and_runs_until_it_is_ended(stage):
    stage.power_up()
    stage.host.start_console()
    stage.host.await_log("Launch as console is successful")
    stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
    stage.host.await_log("Calling HTTPS Socket Accept")
    assert stage.console.identify()["ProductVendor"] == "Tarvix"
    assert stage.host.running()
    assert stage.host.query_state() == STOPPED


def test_a_driver_that_comes_later_is_found(stage):
    stage.expect_errors("m_pDeviceInterfaceDetailData is NULL", "OpenMPMDevice() call failed with error: 487")
    stage.host.start_service()
    stage.host.await_state(RUNNING)
    stage.host.await_log("OpenMPMDevice() call failed with error: 487")
    stage.start_firmware()
    stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
    stage.host.await_log("Calling HTTPS Socket Accept")
    assert stage.host.stop_service() == 0


def test_a_stop_while_the_device_never_opened(stage):
    stage.expect_errors("m_pDeviceInterfaceDetailData is NULL", "OpenMPMDevice() call failed", "Error Invalid Handle")
    stage.host.start_service()
    stage.host.await_state(RUNNING)
    stage.host.await_log("OpenMPMDevice() call failed with error: 487")
    assert stage.host.stop_service() == 0


def test_a_firmware_that_goes_is_told_in_the_log_and_the_service_still_stops(stage):
    stage.boot()
    stage.expect_errors("GetQueuedCompletionStatus failed with error: 1167", "Asynchronous", "GetOverlappedResult failed",
                        "Return from MailBoxDriverInterface")
    stage.firmware.fault("vanish")
    stage.host.await_log("GetQueuedCompletionStatus failed with error: 1167")
    stage.host.await_log("ReadFromMailBoxDriverThread: Exiting Thread Handler")
    assert stage.host.query_state() == RUNNING
    assert stage.host.stop_service() == 0


def test_a_request_that_never_completes_ends_with_the_stop(stage):
    stage.boot()
    stage.expect_errors("GetOverlappedResult failed for SendIOCtlToDriver with error: 995", "with dwLastError = 995",
                        "Error Service is not signalled as Up")
    stage.firmware.fault("hold", "WriteDASHPacket")
    with stage.console.connect() as console:
        console.sendall(b"hello")
        stage.firmware.await_request("WriteDASHPacket")
        assert stage.host.stop_service() == 0
    eventually(lambda: stage.host.mailbox_handles() == 0, "both handles of the mailbox to be closed")


@pytest.mark.parametrize("arguments", [(), ("-service", "-console"), ("-Service",), ("-console ",)])
def test_wrong_arguments_end_with_code_0_and_leave_the_device_alone(stage, arguments):
    stage.power_up()
    stage.expect_errors("Argument incorrect", "arg = ", "Invalid argument")
    assert stage.host.start(*arguments).wait() == 0
    count = len(arguments) + 1
    expected = "Invalid argument" if count == 2 else f"Argument incorrect. count = {count}, {count}"
    assert expected in stage.host.log_text()
    assert stage.host.mailbox_handles() == 0
    assert stage.firmware.requests() == []


@pytest.mark.parametrize("path", ["C:\\Elsewhere\\", INSTALLATION.rstrip("\\")])
def test_a_binary_outside_the_installed_path_is_refused_with_service_exit_code_3(stage, path):
    stage.power_up()
    stage.expect_errors("Installed path doesn't match CWD path.", "DoInitialization failed with error: 3")
    stage.host.set_installation_path(path)
    try:
        stage.host.start_service()
        stage.host.await_state(STOPPED)
        assert stage.host.service_exit_code() == 3
        assert stage.host.wait() == 0
    finally:
        stage.host.set_installation_path(INSTALLATION)
    assert f"(INST: {path}bin), (CWD: {INSTALLATION}bin)" in stage.host.log_text()


def test_the_service_starts_again_after_a_stop(stage):
    stage.boot()
    assert stage.host.stop_service() == 0
    stage.host.start_service()
    stage.host.await_state(RUNNING)
    stage.host.await_log("Calling HTTPS Socket Accept", count=2)
    assert stage.console.identify()["ProductVendor"] == "Tarvix"
    stage.firmware.await_request("WriteCloseSocketcmd")
    assert stage.host.stop_service() == 0
    assert states(stage) == [1, 2, 1, 2]
