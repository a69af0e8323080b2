"""What the firmware receives about the host's network: a real one, laid out in a namespace, and described ones."""

import contextlib

import pytest

from harness.network import NoNetwork, OwnNetwork
from harness.waiting import Overdue, eventually

CABLE, MAC = "wired0", "02:00:5E:10:00:07"
NOT_WORKING, DISCONNECTED, OPERATIONAL = 0, 2, 5
STATIC = 3
CONNECTION_COMPLETE, DISCONNECTED_FROM_WLAN = 10, 21
NO_ADDRESS = "No valid IPv4 address found after 2 attempts."


@pytest.fixture
def network(tmp_path):
    try:
        network = OwnNetwork(tmp_path)
    except NoNetwork as problem:
        pytest.skip(str(problem))
    yield network
    network.close()


@pytest.fixture
def wired(stage, network):
    """The service on a PC whose one cable is laid by the test, with the first inventory at the firmware."""
    network.lay_cable(CABLE, MAC, "192.168.7.3/24")
    network.ip("route", "add", "default", "via", "192.168.7.1")
    stage.boot(adapters="real", dnsServers=["192.168.7.53"], network=network)
    stage.firmware.await_request("WriteMultiNwInfo")
    return stage


def inventories(stage):
    return [request["fields"] for request in stage.firmware.requests("WriteMultiNwInfo")]


def addresses(inventory):
    return [entry["IPv4Address"] for entry in inventory["Entries"]]


def wlan_event(stage, code=CONNECTION_COMPLETE):
    """A notification of the WLAN service, which the service looks at two seconds later."""
    stage.host.ctl("wlan", "notify", code)
    stage.host.ctl("clock", "advance", 2_000)


def inventory_after_wlan_event(stage):
    """What the firmware gets by a notification. The WLAN service holds back one that equals its last one, and the service drops
    those that come while it is still at an earlier one: then another one follows."""
    before = len(inventories(stage))
    for code in (CONNECTION_COMPLETE, DISCONNECTED_FROM_WLAN) * 3:
        wlan_event(stage, code)
        with contextlib.suppress(Overdue):
            return eventually(lambda: inventories(stage)[before:], "another inventory", patience=4.0)[0]
    raise AssertionError("no inventory after a notification")


def scan_until(stage, read, what):
    """Lets one period of the polling scan pass, and another one when its thread wasn't waiting yet."""
    return eventually(lambda: stage.host.ctl("clock", "advance", 61_002) is not None and read(), what)


def reported_address(stage, address):
    return [r for r in stage.firmware.requests("WriteIPCompleteInformation") if r["fields"]["IPv4Address"] == address]


def test_the_firmware_learns_of_the_machines_own_interface(wired):
    (entry,) = inventories(wired)[0]["Entries"]
    assert (entry["Name"], entry["MACAddress"]) == (CABLE, MAC.replace(":", ""))
    assert (entry["IPv4Address"], entry["Subnet"], entry["Gateway"]) == ("192.168.7.3", "255.255.255.0", "192.168.7.1")
    assert (entry["StatusInfo"], entry["AddressOrigin"], entry["LinkTechnology"]) == (OPERATIONAL, STATIC, 2)
    report = wired.firmware.requests("WriteIPCompleteInformation")[0]["fields"]
    assert (report["IPv4Address"], report["DnsServer"], report["Gateway"]) == ("192.168.7.3", "192.168.7.53", "192.168.7.1")
    assert wired.firmware.requests("WriteNetworkStatusInfo")[0]["fields"] == {"status": 1}


def change_address(network):
    network.ip("address", "add", "192.168.8.4/24", "dev", CABLE)
    network.ip("address", "del", "192.168.7.3/24", "dev", CABLE)
    network.ip("route", "replace", "default", "via", "192.168.8.1")


def test_a_scan_tells_of_an_address_that_changed_and_not_of_the_interfaces(wired, network):
    change_address(network)
    report = scan_until(wired, lambda: reported_address(wired, "192.168.8.4"), "the new address at the firmware")
    assert report[0]["fields"]["Gateway"] == "192.168.8.1"
    status = wired.host.working_folder / "zel_json_data.txt"
    eventually(lambda: '"IPv4Adresss" : "408a8c0"' in status.read_text(), "the new address in the status file")
    assert len(inventories(wired)) == 1


def test_the_wlan_services_word_brings_address_and_interfaces_to_the_firmware(wired, network):
    change_address(network)
    assert addresses(inventory_after_wlan_event(wired)) == ["192.168.8.4"]
    assert reported_address(wired, "192.168.8.4")


def test_a_pulled_cable_and_its_return_reach_the_firmware(wired, network):
    wired.expect_errors(NO_ADDRESS)
    network.pull_cable(CABLE)
    assert inventory_after_wlan_event(wired)["Entries"][0]["StatusInfo"] == DISCONNECTED
    network.plug_cable(CABLE)
    assert inventory_after_wlan_event(wired)["Entries"][0]["StatusInfo"] == OPERATIONAL


def test_an_interface_that_is_taken_down_and_up_again_reaches_the_firmware(wired, network):
    wired.expect_errors(NO_ADDRESS)
    network.ip("link", "set", CABLE, "down")
    assert inventory_after_wlan_event(wired)["Entries"][0]["StatusInfo"] == NOT_WORKING
    network.ip("link", "set", CABLE, "up")
    network.await_state(CABLE, "UP")
    assert inventory_after_wlan_event(wired)["Entries"][0]["StatusInfo"] == OPERATIONAL


def test_a_second_interface_that_comes_and_goes_reaches_the_firmware(wired, network):
    network.lay_cable("wired1", "02:00:5E:10:00:08", "192.168.9.5/24")
    assert sorted(addresses(inventory_after_wlan_event(wired))) == ["192.168.7.3", "192.168.9.5"]
    network.ip("link", "del", "wired1")
    assert addresses(inventory_after_wlan_event(wired)) == ["192.168.7.3"]


def test_scans_of_an_unchanged_network_send_nothing(wired):
    def scans():
        return wired.host.log_text().count("Num Entries: ")
    wired.host.await_log("Calling HTTPS Socket Accept")
    asked, scanned = len(wired.firmware.requests()), scans()
    wlan_event(wired)
    eventually(lambda: scans() > scanned, "the scan that the WLAN service asked for")
    scanned = scans()
    scan_until(wired, lambda: scans() > scanned, "the periodic scan")
    assert len(wired.firmware.requests()) == asked


def test_a_machine_without_a_network_is_reported_empty_after_ten_seconds_and_in_full_when_it_has_one(stage, network):
    stage.boot(adapters="real", network=network)
    empty = eventually(lambda: stage.host.ctl("clock", "advance", 500) is not None and inventories(stage), "an inventory")
    assert [inventory["Count"] for inventory in empty] == [0]
    network.lay_cable(CABLE, MAC, "192.168.7.3/24")
    network.ip("route", "add", "default", "via", "192.168.7.1")
    full = eventually(lambda: inventories(stage)[1:], "the inventory of a host with a network")
    assert addresses(full[0]) == ["192.168.7.3"]
    assert stage.host.stop_service() == 0


def test_a_stop_ends_the_wait_for_a_network(stage, network):
    stage.boot(adapters="real", network=network)
    assert stage.firmware.await_request("WriteOsInfo")
    assert stage.host.stop_service() == 0
    assert [request["fields"]["state"] for request in stage.firmware.requests("WriteZELStatus")] == [1, 2]


def adapter(number, **more):
    return {
        "name": f"{{ADAPTER-{number}}}", "description": f"Adapter {number}", "index": number + 2,
        "mac": f"02:00:5E:10:01:{number:02}",
        "address": f"192.168.{number}.10", "mask": "255.255.255.0", "gateway": f"192.168.{number}.1", "dhcp": False, **more,
    }


def first_inventory(stage, adapters):
    stage.boot(adapters=adapters)
    return stage.firmware.await_request("WriteMultiNwInfo")["fields"]


def test_two_addresses_on_one_interface_are_two_entries(stage):
    second = {"address": "192.168.50.10", "mask": "255.255.0.0"}
    inventory = first_inventory(stage, [adapter(1, moreAddresses=[second])])
    assert inventory["Count"] == 2
    assert sorted(addresses(inventory)) == ["192.168.1.10", "192.168.50.10"]
    assert {entry["DeviceID"] for entry in inventory["Entries"]} == {"3"}


def test_of_six_interfaces_the_firmware_gets_the_count_and_the_first_five(stage):
    inventory = first_inventory(stage, [adapter(number) for number in range(1, 7)])
    assert inventory["Count"] == 6
    assert addresses(inventory) == [f"192.168.{number}.10" for number in range(1, 6)]


def test_a_connected_host_without_an_interface_is_told_as_empty(stage):
    stage.expect_errors("GetAdaptersInfo failed with error: 232", NO_ADDRESS)
    stage.boot(adapters=[], connectedFlags=0x12)
    assert stage.firmware.await_request("WriteMultiNwInfo")["fields"]["Count"] == 0
    status = stage.host.working_folder / "zel_json_data.txt"
    eventually(lambda: '"IPv4Adresss" : "0"' in status.read_text(), "a status file without address")
