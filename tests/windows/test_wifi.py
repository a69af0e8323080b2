"""Which record of the Wi-Fi network reaches the firmware, through the system's calls and the mailbox driver."""

import struct

import pytest

from harness.waiting import eventually
from harness.wlan import Network

SENT = "WriteWiFiSyncInfo"
OFFICE = Network("office", "WPA2PSK", 36, 5_180_000, "correct <horse> & café")
LAB = Network("lab", "WPA3SAE", 6, 2_437_000, "battery staple")
CAFE = Network("cafe", "open", 11, 2_462_000)
BROKEN = Network("broken", "WPA2PSK", 1, 2_412_000, profile="<WLANProfile><MSM>")
EXTRACTION_ERROR = "Wi-Fi profile extraction error"


@pytest.fixture
def wlan(stage):
    """The PC has a WLAN service, and every error counts. The firmware records whole requests."""
    stage.use_firmware(settings={"uVORKVersion": 50, "ShowWiFiKey": True})
    return stage.use_wlan()


def record(network, auth, cipher, channel, band, group_mgmt=0, pmf=0):
    """The 132 bytes of a network's record."""
    return struct.pack("<IB33sHI64sIIIIII", 132, 1, network.name.encode(), channel, auth, network.key.encode(),
                       cipher, cipher, group_mgmt, band, pmf, 0).hex()


def wpa2(network, channel, band):
    return record(network, 2, 3, channel, band)


def wpa3(network, channel, band):
    return record(network, 4, 1, channel, band, group_mgmt=4, pmf=1)


def sent(stage):
    return [request["hex"] for request in stage.firmware.requests(SENT)]


def await_sent(stage, *records):
    """Until so many records have reached the firmware, which must be these."""
    eventually(lambda: len(sent(stage)) >= len(records), f"{len(records)} Wi-Fi networks at the firmware")
    assert sent(stage) == list(records)


def test_each_network_is_sent_once_and_to_the_byte(stage, wlan):
    stage.boot()
    stage.firmware.await_request("WriteMultiNwInfo")
    wlan.await_pass(wlan.join, OFFICE)
    await_sent(stage, wpa2(OFFICE, 36, band=2))
    wlan.await_pass(wlan.roam, 100, 5_500_000)
    wlan.await_pass(wlan.join, LAB)
    await_sent(stage, wpa2(OFFICE, 36, band=2), wpa3(LAB, 6, band=1))
    assert stage.host.stop_service() == 0
    assert wlan.blocks_in_use() == 0
    assert OFFICE.key not in stage.host.log_text() and LAB.key not in stage.host.log_text()


def test_a_network_that_the_pc_has_left_is_sent_again_when_it_comes_back(stage, wlan):
    wlan.join(OFFICE)
    stage.boot()
    await_sent(stage, wpa2(OFFICE, 36, band=2))
    assert stage.firmware.await_request("WriteNetworkStatusInfo")["fields"] == {"status": 2}
    wlan.await_pass(wlan.leave, last="WlanEnumInterfaces", count=1)
    wlan.await_pass(wlan.join, OFFICE)
    await_sent(stage, *2 * [wpa2(OFFICE, 36, band=2)])


def test_open_networks_and_broken_profiles_cost_a_line_and_the_next_network_is_sent(stage, wlan):
    stage.expect_errors(EXTRACTION_ERROR, "Wi-Fi profile cannot be parsed")
    wlan.join(CAFE)
    stage.boot()
    stage.host.await_log("Detected an unsecured Wi-Fi network.It is not supported.")
    stage.firmware.await_request("WriteMultiNwInfo")
    wlan.await_pass(wlan.join, BROKEN, last="WlanGetProfile", count=1)
    stage.host.await_log("Wi-Fi profile cannot be parsed")
    wlan.await_pass(wlan.join, OFFICE)
    await_sent(stage, wpa2(OFFICE, 36, band=2))
    errors = stage.host.error_lines()
    assert len(errors) == 2
    assert EXTRACTION_ERROR in errors[0] and "Wi-Fi profile cannot be parsed" in errors[1]


def test_a_restarted_wlan_service_is_found_by_the_next_pass(stage, wlan):
    wlan.join(OFFICE)
    stage.boot()
    await_sent(stage, wpa2(OFFICE, 36, band=2))
    wlan.restart()
    wlan.join(LAB)
    stage.firmware.send("S0i3_RESUME")
    await_sent(stage, wpa2(OFFICE, 36, band=2), wpa3(LAB, 6, band=1))
    assert wlan.calls("WlanEnumInterfaces", error=6) == 2
    stage.host.await_log("WLAN client handle is no longer valid, registering again")
    # The new registration is notified.
    wlan.await_pass(wlan.join, OFFICE)
    await_sent(stage, wpa2(OFFICE, 36, band=2), wpa3(LAB, 6, band=1), wpa2(OFFICE, 36, band=2))


def test_without_the_list_of_access_points_the_band_is_not_known(stage, wlan):
    stage.expect_errors("WlanGetNetworkBssList API failed with error: 31")
    wlan.fail("WlanGetNetworkBssList", 31)
    wlan.join(OFFICE)
    stage.boot()
    await_sent(stage, wpa2(OFFICE, 36, band=4))


def test_older_firmware_gets_no_network_and_no_profile_is_read(stage, wlan):
    stage.use_firmware(settings={"uVORKVersion": 39})
    wlan.join(OFFICE)
    stage.boot()
    stage.host.await_log("System is connected to WLAN")
    stage.firmware.await_request("WriteMultiNwInfo")
    assert sent(stage) == []
    assert wlan.calls("WlanEnumInterfaces") and not wlan.calls("WlanGetProfile") and not wlan.calls("WlanQueryInterface:7")
