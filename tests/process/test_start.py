"""How the service starts: what the SCM, the firmware, the log and the event log see of it."""

import json

from harness.host import INSTALLATION, RUNNING
from harness.processes import Process, build_folder
from harness.waiting import eventually


def reports(host):
    return json.loads(host.ctl("reports", "--json"))


def event_log(host):
    return [entry["strings"][1] for entry in json.loads(host.ctl("event-log", "--json"))]


def test_the_scm_sees_start_pending_then_running(stage):
    stage.boot()
    pending, running = reports(stage.host)[:2]
    assert (pending["state"], pending["waitHint"], pending["controlsAccepted"], pending["checkPoint"]) == (2, 20000, 0, 1)
    assert (running["state"], running["waitHint"], running["controlsAccepted"], running["checkPoint"]) == (4, 0, 0x141, 0)


def test_the_firmware_is_told_first_that_the_service_is_up(stage):
    stage.boot()
    stage.firmware.await_request("WriteMultiNwInfo")
    names = [request["name"] for request in stage.firmware.requests()]
    assert names == ["GetMPMStatus", "WriteZELStatus", "WriteOsInfo", "GetZELVersion", "WriteCapabilityConfig",
                     "WriteIPCompleteInformation", "WriteNetworkStatusInfo", "WriteADInfo", "GetCloudCertInfo",
                     "WriteMultiNwInfo"]
    assert stage.firmware.requests("WriteZELStatus")[0]["fields"]["state"] == 1


def test_the_log_begins_with_version_and_operating_system(stage):
    stage.boot()
    texts = [line.split("] ", 1)[1].split(" $$<")[0] for line in stage.host.log_text().splitlines()[:4]]
    assert texts == [
        "INFO:  ***   ZEL 5.1.0.1481 Logging started   ***",
        "INFO:  OS Version = Microsoft Windows [Version 10.0.19045.3803]",
        "INFO:  Started by SYSTEM user",
        "INFO:  Starting as a Win32 Service",
    ]


def test_console_mode_brings_the_firmware_up_to_date_without_an_scm(stage):
    stage.power_up()
    stage.host.start_console()
    stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
    stage.host.await_log("Launch as console is successful")
    assert reports(stage.host) == []


def test_a_pc_whose_control_socket_is_in_use_does_not_start(stage):
    stage.boot()
    second = Process([build_folder() / "ZELService", "-service"], stage.workdir / "second.out",
                     env={"WINHOST_PC": str(stage.workdir / "pc.json")})
    assert second.wait() not in (0, -9)
    assert second.output() == f"winhost: control socket {stage.host.control_socket}: another process listens there\n"
    assert stage.host.query_state() == RUNNING


def usage():
    return (f"usage: WINHOST_PC=FILE {build_folder()}/ZELService -service|-console\n"
            "FILE describes the simulated PC (docs/pc-description.md); ./dev run starts the service on one.\n")


def test_wrong_arguments_end_with_code_0_and_leave_the_device_alone(stage):
    stage.power_up()
    stage.expect_errors("Argument incorrect", "arg = ", "Invalid argument")
    for arguments in ((), ("-service", "-console"), ("-Service",), ("-console ",), ("-h",)):
        assert stage.host.start(*arguments).wait() == 0
        stage.expect_output(usage())
    text = stage.host.log_text()
    assert "Argument incorrect. count = 1, 1" in text
    assert "Argument incorrect. count = 3, 3" in text
    assert text.count("Invalid argument") == 3
    assert stage.firmware.requests() == []


def test_without_a_described_pc_the_native_program_prints_how_it_is_started(tmp_path):
    program = Process([build_folder() / "ZELService", "-console"], tmp_path / "printed", cwd=tmp_path)
    try:
        eventually(lambda: program.output() == usage(), "the lines to be printed")
    finally:
        program.kill()


def test_a_binary_outside_the_installed_path_is_refused_with_service_exit_code_3(stage):
    stage.power_up(modulePath="C:\\Temp\\ZELService.exe")
    stage.expect_errors("Installed path doesn't match CWD path.", "DoInitialization failed with error: 3")
    stage.host.start("-service")
    assert stage.host.wait() == 0
    assert f"(INST: {INSTALLATION}bin), (CWD: C:\\Temp)" in stage.host.log_text()


def test_without_programdata_the_event_log_tells_and_the_service_goes_on(stage):
    stage.power_up(environment={})
    stage.host.start_service()
    stage.host.await_state(RUNNING)
    stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
    assert any("ProgramData Environment variable not found." in text for text in event_log(stage.host))
    assert stage.host.stop_service() == 0


def test_without_a_log_folder_the_service_works_without_a_log(stage):
    stage.power_up()
    (stage.host.root / "C:" / "ProgramData").write_text("a file where the folder should be")
    stage.host.start_service()
    stage.host.await_state(RUNNING)
    stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
    assert any("ZELService failed to create Manageability folder" in text for text in event_log(stage.host))
    assert stage.host.stop_service() == 0


def test_a_driver_that_comes_later_is_found(stage):
    stage.expect_errors("m_pDeviceInterfaceDetailData is NULL", "OpenMPMDevice() call failed with error: 487")
    stage.power_up(firmware=False)
    stage.host.start_service()
    stage.host.await_state(RUNNING)
    stage.host.await_log("OpenMPMDevice() call failed with error: 487")
    stage.start_firmware()
    stage.host.ctl("clock", "advance", 10_000)
    stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)


def test_a_taken_port_is_tried_again_every_five_seconds(stage):
    import socket
    stage.power_up()
    stage.expect_errors("bind() API failed with error: 10048")
    with socket.socket() as taken:
        taken.bind(("0.0.0.0", stage.host.dash_address[1]))
        taken.listen()
        stage.host.start_service()
        stage.host.await_log("bind() API failed with error: 10048")
    eventually(lambda: stage.host.ctl("clock", "advance", 5_000) is not None
               and "Calling HTTPS Socket Accept" in stage.host.log_text(), "the listener")
    assert stage.console.identify()["ProductVendor"]


def test_wmi_that_fails_refuses_the_start_with_its_error(stage):
    stage.power_up(wmiConnectError=0x80041003)
    stage.expect_errors("DoInit() call failed with error: -2147217405",
                        "ServiceSetup: DoInitialization failed with error: -2147217405")
    stage.host.start("-service")
    assert stage.host.wait() == 0
    assert "Could not connect to WMI. Error code = 0x80041003" in stage.host.log_text()
    assert "ServiceSetup: DoInitialization failed with error: -2147217405" in stage.host.log_text()
    assert stage.firmware.requests() == []
