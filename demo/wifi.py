"""The Wi-Fi part of the demo: the laptop changes its network, and the firmware gets each profile that it can use."""

import json

from harness.native import NativeHost
from harness.waiting import eventually

SENT = "WriteWiFiSyncInfo"
LAPTOP = {
    "wlanInterfaces": [{"guid": "{70A9067B-708F-443C-84BA-BC391FDBF72B}", "description": "Wi-Fi adapter"}],
    "wlanNetworks": [
        {"name": "office", "ssid": "office", "authentication": "WPA2PSK", "key": "correct horse", "channel": 36},
        {"name": "lab", "ssid": "lab", "authentication": "WPA3SAE", "key": "battery staple", "channel": 6},
        {"name": "cafe", "ssid": "cafe", "authentication": "open", "encryption": "none", "key": "", "channel": 11},
    ],
}


def show_wifi(story, host, firmware):
    """Each step takes the two seconds that the service waits for the end of a burst of notifications."""
    if not isinstance(host, NativeHost):
        return story.add("PC", "Wine has no WLAN service; the Wi-Fi networks are part of the native demo")

    def checks():
        return json.loads(host.ctl("gate", "count", "WlanGetProfile", "--json"))["calls"]

    def act(text, *words):
        """Ends when the service has looked at the network."""
        before = checks()
        story.add("PC", text)
        host.ctl("wlan", *words)
        eventually(lambda: checks() > before, "the service to look at the network")

    def await_sent(*ssids):
        eventually(lambda: [request["fields"]["ssid"] for request in firmware.requests(SENT)] == list(ssids),
                   f"the Wi-Fi profiles {ssids} at the firmware")

    act("the laptop joins the network office, WPA2", "join", "office")
    await_sent("office")
    act("the laptop roams to another access point of this network; the firmware has its profile already", "roam", 100)
    act("the laptop changes to the network lab, WPA3", "join", "lab")
    await_sent("office", "lab")
    act("the laptop changes to the open network cafe", "join", "cafe")
    host.await_log("Detected an unsecured Wi-Fi network")
    await_sent("office", "lab")
    known = next(line for line in firmware.show().splitlines() if line.startswith("Wi-Fi"))
    story.add("firmware", " ".join(known.split()))
