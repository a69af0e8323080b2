"""What the shipped executable finds out about a Windows PC and reports: by the system's own calls.

Wine has no WLAN service, and here the service has to get by without one; test_wifi.py gives it one. Wine has no suspend and no
shutdown either: its calls succeed and do nothing.
"""

from harness.namespace import ADDRESS, GATEWAY
from harness.waiting import eventually


def status_file(stage):
    return stage.host.working_folder / "zel_json_data.txt"


def reported(stage):
    """The service up, and its first update at the firmware."""
    stage.boot()
    stage.firmware.await_request("WriteMultiNwInfo")
    return stage


def test_the_firmware_learns_of_the_operating_system(stage):
    reported(stage)
    fields = stage.firmware.requests("WriteOsInfo")[0]["fields"]
    assert fields["OSName"].startswith("Microsoft Windows 10 ")
    assert fields["OtherTypeDescription"] == "64-bit"
    assert fields["Version"].startswith("10.0.")
    assert (fields["OSType"], fields["OSReservedWord"]) == (18, 65535)
    assert fields["HostName"]
    assert fields["ZELVersion"] == "5.1.0.1481"
    stage.host.await_log("DoInit -- COM initialization is successful.")


def test_the_firmware_learns_of_the_adapter_by_the_real_ip_helper(stage):
    reported(stage)
    inventory = stage.firmware.requests("WriteMultiNwInfo")[-1]["fields"]
    assert inventory["Count"] == 1
    (entry,) = inventory["Entries"]
    assert (entry["IPv4Address"], entry["Subnet"], entry["Gateway"]) == (ADDRESS, "255.255.255.0", GATEWAY)
    assert (entry["LinkTechnology"], entry["StatusInfo"]) == (2, 5)
    assert len(entry["MACAddress"]) == 12
    assert stage.firmware.requests("WriteIPCompleteInformation")[0]["fields"]["IPv4Address"] == ADDRESS
    assert stage.firmware.requests("WriteNetworkStatusInfo")[0]["fields"] == {"status": 1}


def test_a_missing_wlan_service_is_told_in_the_log(stage):
    reported(stage)
    stage.host.await_log("WlanRegisterNotification failed with error: 120")
    stage.host.await_log("System is connected to LAN")


def test_the_status_file_lies_in_the_working_folder_and_goes_with_the_service(stage):
    reported(stage)
    eventually(lambda: '"IPv4Adresss" : "a01a8c0"' in status_file(stage).read_text(), "the address in the status file")
    lines = status_file(stage).read_bytes().split(b"\r\n")  # a text file of Windows
    assert (lines[0], lines[-3:]) == (b"{", [b"}", b"", b""])
    assert b'\t"Network" : "Wired LAN",' in lines
    assert b'\t"ServiceState" : "ON",' in lines
    assert stage.host.stop_service() == 0
    assert not status_file(stage).exists()


def power_action(stage, command, line):
    """A power command acts when the next DASH answer has gone to the client."""
    reported(stage)
    stage.firmware.send(command)
    assert line not in stage.host.log_text()
    assert stage.console.identify()["ProductVendor"] == "Tarvix"
    stage.host.await_log(line)
    assert "DoSytemShutdown: bStatus = false" not in stage.host.log_text()


def test_the_firmwares_shutdown_goes_to_the_system(stage):
    power_action(stage, 22, "DoSytemShutdown: Shutdown initiated")


def test_the_firmwares_reboot_goes_to_the_system(stage):
    power_action(stage, 21, "DoSytemShutdown: Reboot initiated")
