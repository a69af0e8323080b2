"""What the firmware gets of the Wi-Fi network that the laptop has joined."""

import json
import pathlib
import sys

from harness.processes import REPOSITORY
from harness.waiting import eventually

sys.path.insert(0, str(pathlib.Path(REPOSITORY) / "demo"))
from wifi import LAPTOP, SENT, show_wifi  # noqa: E402

OPEN_NETWORK = "Detected an unsecured Wi-Fi network"
EXTRACTION_ERROR = "Wi-Fi profile extraction error"


def check_after(stage, *words):
    """Changes the radio and lets the service look at it: two seconds later, and again when it dropped the notification."""
    def checks():
        return json.loads(stage.host.ctl("gate", "count", "WlanEnumInterfaces", "--json"))["calls"]
    stage.host.await_log("has registered ZEL to receive network change notifications successfully")
    before = checks()
    stage.host.ctl("wlan", *words)
    eventually(lambda: stage.host.ctl("clock", "advance", 2_000) is not None and checks() > before, "a look at the network")


def profiles(stage):
    return [request["fields"] for request in stage.firmware.requests(SENT)]


def sent(stage, count):
    return eventually(lambda: len(profiles(stage)) == count and profiles(stage)[-1], f"{count} Wi-Fi profiles at the firmware")


def test_a_laptop_sends_each_profile_once_and_never_an_open_one(stage):
    stage.expect_errors(EXTRACTION_ERROR)
    stage.boot(**LAPTOP)
    stage.firmware.await_request("WriteMultiNwInfo")
    check_after(stage, "join", "office")
    office = sent(stage, 1)
    assert (office["ssid"], office["wpaauth"], office["channel"], office["band"]) == ("office", 2, 36, 2)
    check_after(stage, "roam", 100)
    check_after(stage, "join", "lab")
    lab = sent(stage, 2)
    assert (lab["ssid"], lab["wpaauth"], lab["pmf"], lab["band"]) == ("lab", 4, 1, 1)
    check_after(stage, "join", "cafe")
    stage.host.await_log(OPEN_NETWORK)
    assert len(profiles(stage)) == 2


def test_a_network_that_the_laptop_has_at_the_start_is_sent(stage):
    interfaces = [{**LAPTOP["wlanInterfaces"][0], "state": 1, "network": "lab"}]
    stage.boot(**{**LAPTOP, "wlanInterfaces": interfaces})
    assert sent(stage, 1)["ssid"] == "lab"
    assert stage.firmware.await_request("WriteNetworkStatusInfo")["fields"] == {"status": 2}


def test_a_new_passphrase_is_sent_and_no_key_is_written_down(stage):
    stage.boot(**LAPTOP)
    stage.firmware.await_request("WriteMultiNwInfo")
    check_after(stage, "join", "office")
    sent(stage, 1)
    check_after(stage, "key", "office", "another horse")
    assert sent(stage, 2)["key_material"] == "(13 bytes, not shown)"
    assert "key (13 bytes, not shown)" in stage.firmware.show()
    for written in (stage.host.log_text(), stage.firmware.record_path.read_text(), stage.firmware.log_path.read_text()):
        assert "horse" not in written
    stage.firmware.set(ShowWiFiKey="true")
    assert "key another horse" in stage.firmware.show()


def test_a_broken_profile_costs_one_line_and_the_next_network_is_sent(stage):
    stage.expect_errors("Wi-Fi profile cannot be parsed")
    broken = {"name": "broken", "ssid": "broken", "profile": "<a>" * 50_000}
    stage.boot(**{**LAPTOP, "wlanNetworks": [*LAPTOP["wlanNetworks"], broken]})
    stage.firmware.await_request("WriteMultiNwInfo")
    check_after(stage, "join", "broken")
    stage.host.await_log("Wi-Fi profile cannot be parsed: profile has too many elements")
    check_after(stage, "join", "office")
    assert sent(stage, 1)["ssid"] == "office"


def test_a_restarted_wlan_service_is_found_again(stage):
    stage.boot(**LAPTOP)
    stage.firmware.await_request("WriteMultiNwInfo")
    check_after(stage, "join", "office")
    sent(stage, 1)
    stage.host.ctl("wlan", "restart")
    renewed = "RegisterWlanNotification: WLAN client handle is no longer valid, registering again"
    eventually(lambda: stage.host.ctl("clock", "advance", 61_002) is not None and renewed in stage.host.log_text(),
               "a new registration")
    check_after(stage, "join", "lab")
    assert sent(stage, 2)["ssid"] == "lab"


def test_the_demo_shows_each_step(stage):
    stage.expect_errors(EXTRACTION_ERROR)
    stage.boot(**LAPTOP)
    stage.firmware.await_request("WriteMultiNwInfo")

    class Lines(list):
        def add(self, side, text):
            self.append((side, text))

    lines = Lines()
    show_wifi(lines, stage.host, stage.firmware)
    assert [side for side, _ in lines] == ["PC", "PC", "PC", "PC", "firmware"]
    assert lines[-1][1].startswith("Wi-Fi lab, WPA3 personal, channel 6 (2.4 GHz), key (14 bytes")
