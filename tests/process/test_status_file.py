"""The file in which the host can read what the service knows."""

from harness.waiting import eventually


def status_file(stage):
    return stage.host.working_folder / "zel_json_data.txt"


def test_it_tells_service_firmware_and_network_to_the_byte(stage):
    stage.boot()
    stage.firmware.await_request("WriteMultiNwInfo")
    expected = (
        b'{\n'
        b'\t"AddressOrigin" : "Dynamic",\n'
        b'\t"DHCPServer" : "101a8c0",\n'
        b'\t"IPv4Adresss" : "a01a8c0",\n'
        b'\t"IPv4DnsServer" : "101a8c0",\n'
        b'\t"IPv4Gateway" : "101a8c0",\n'
        b'\t"KVMStatus" : "NO",\n'
        b'\t"MPMVersion" : "5.0.0.100",\n'
        b'\t"Network" : "Wired LAN",\n'
        b'\t"ProvisionStatus" : "Completed",\n'
        b'\t"ProvisionedPort" : "664",\n'
        b'\t"ServiceState" : "ON",\n'
        b'\t"SubnetMask" : "ffffff",\n'
        b'\t"TarvixProductVersion" : "5.1.0.1481",\n'
        b'\t"VORKversion" : "VOR-K 5.0"\n'
        b'}\n'
        b'\n'
    )
    eventually(lambda: b'"a01a8c0"' in status_file(stage).read_bytes(), "the address in the status file")
    eventually(lambda: status_file(stage).read_bytes().endswith(b"\n\n"), "the whole status file")
    assert status_file(stage).read_bytes() == expected


def test_it_exists_before_the_firmware_is_reachable(stage):
    stage.expect_errors("m_pDeviceInterfaceDetailData is NULL", "OpenMPMDevice() call failed with error: 487",
                        "Error Invalid Handle")
    stage.power_up(firmware=False)
    stage.host.start_service()
    stage.host.await_log("OpenMPMDevice() call failed with error: 487")
    text = status_file(stage).read_text()
    assert '"ServiceState" : "OFF"' in text
    assert '"MPMVersion" : "Unavailable"' in text
    assert '"IPv4Adresss" : "0"' in text
    assert stage.host.stop_service() == 0


def test_it_goes_with_the_service(stage):
    stage.boot()
    eventually(status_file(stage).exists, "the status file")
    assert stage.host.stop_service() == 0
    assert not status_file(stage).exists()
    assert "zel_json_data file deleted successfully" in stage.host.log_text()


def test_one_that_a_crash_left_is_overwritten(stage):
    stage.power_up()
    stage.host.working_folder.mkdir(parents=True)
    status_file(stage).write_text("x" * 5000)
    stage.host.start_service()
    eventually(lambda: '"a01a8c0"' in status_file(stage).read_text(), "the address in the status file")
    assert "x" * 10 not in status_file(stage).read_text()


def test_one_that_cannot_be_written_is_an_error_line_and_nothing_else(stage):
    stage.expect_errors("Failed to create C:\\ProgramData\\Tarvix\\Manageability\\zel_json_data.txt file.")
    stage.power_up()
    status_file(stage).mkdir(parents=True)
    stage.host.start_service()
    stage.host.await_log("Calling HTTPS Socket Accept")
    stage.firmware.await_request("WriteMultiNwInfo")
    assert stage.host.error_lines()
    assert stage.console.identify()["ProductVendor"]
    assert stage.host.stop_service() == 0
    assert [request["fields"]["state"] for request in stage.firmware.requests("WriteZELStatus")] == [1, 2]
