"""The WLAN service of a PC under Wine: the tests' own wlanapi.dll beside the service, which reads the network from a file and
records each call (tests/windows/wlanapi/WlanFile.h)."""

import dataclasses
import shutil
from xml.sax.saxutils import escape

from .growing import GrowingLines
from .waiting import Overdue, eventually

CONNECTED, DISCONNECTED = 1, 4
CONNECTION_START, CONNECTION_COMPLETE, SCAN_COMPLETE, DISCONNECTING, LEFT = 9, 10, 7, 20, 21
# By the name of an authentication in a profile: the encryption there, and the connection's algorithm and cipher.
AUTHENTICATIONS = {"open": ("none", 1, 0), "WPA2PSK": ("AES", 7, 4), "WPA3SAE": ("AES", 9, 4)}
# The calls that give their caller memory.
GIVING = ("WlanEnumInterfaces", "WlanQueryInterface:7", "WlanQueryInterface:8", "WlanGetProfile", "WlanGetNetworkBssList")


@dataclasses.dataclass
class Network:
    name: str
    authentication: str
    channel: int
    frequency: int  # kHz
    key: str = ""
    profile: str = ""  # instead of the XML that follows from the above

    def xml(self):
        if self.profile:
            return self.profile
        key = f"""
\t\t\t<sharedKey>
\t\t\t\t<keyType>passPhrase</keyType>
\t\t\t\t<protected>false</protected>
\t\t\t\t<keyMaterial>{escape(self.key)}</keyMaterial>
\t\t\t</sharedKey>""" if self.key else ""
        return f"""<?xml version="1.0"?>
<WLANProfile xmlns="http://www.microsoft.com/networking/WLAN/profile/v1">
\t<name>{escape(self.name)}</name>
\t<SSIDConfig>
\t\t<SSID>
\t\t\t<hex>{self.name.encode().hex().upper()}</hex>
\t\t\t<name>{escape(self.name)}</name>
\t\t</SSID>
\t</SSIDConfig>
\t<connectionType>ESS</connectionType>
\t<connectionMode>auto</connectionMode>
\t<MSM>
\t\t<security>
\t\t\t<authEncryption>
\t\t\t\t<authentication>{self.authentication}</authentication>
\t\t\t\t<encryption>{AUTHENTICATIONS[self.authentication][0]}</encryption>
\t\t\t\t<useOneX>false</useOneX>
\t\t\t</authEncryption>{key}
\t\t</security>
\t</MSM>
</WLANProfile>
""".replace("\n", "\r\n")


class Wlan:
    """Runs from its creation until remove(). Each change but a restart sends the notifications that Windows sends."""

    def __init__(self, folder, library):
        self._folder = folder
        self._library = folder / "wlanapi.dll"
        shutil.copyfile(library, self._library)
        self._calls = GrowingLines(folder / "wlan.calls", str.split)
        self._values = {"run": 1, "state": DISCONNECTED, "burst": 0, "notify": ""}
        self._profiles = set()
        self._write()

    def remove(self):
        for path in (self._library, *(self._folder / name for name in ("wlan.txt", "wlan.calls")), *self._profiles):
            path.unlink(missing_ok=True)

    def _write(self):
        """The library reads either the old file or the new one, never a part."""
        new = self._folder / "wlan.new"
        new.write_text("".join(f"{key} {value}\n" for key, value in self._values.items()))
        new.replace(self._folder / "wlan.txt")

    def notify(self, *codes):
        """Sends these notifications; without codes the last ones again."""
        self._values["burst"] += 1
        if codes:
            self._values["notify"] = " ".join(map(str, codes))
        self._write()

    def join(self, network):
        profile = self._folder / f"{network.name}.xml"
        profile.write_bytes(network.xml().encode())
        self._profiles.add(profile)
        _, auth, cipher = AUTHENTICATIONS[network.authentication]
        left = (DISCONNECTING, LEFT) if self._values["state"] == CONNECTED else ()
        self._values |= {"state": CONNECTED, "profile": network.name, "ssid": network.name, "auth": auth, "cipher": cipher,
                         "channel": network.channel, "frequency": network.frequency}
        self.notify(*left, CONNECTION_START, CONNECTION_COMPLETE)

    def roam(self, channel, frequency):
        self._values |= {"channel": channel, "frequency": frequency}
        self.notify(SCAN_COMPLETE)

    def leave(self):
        self._values["state"] = DISCONNECTED
        self.notify(DISCONNECTING, LEFT)

    def restart(self):
        """The WLAN service restarts: the handles and registrations of its clients are invalid, and no notification is sent."""
        self._values["run"] += 1
        self._write()

    def fail(self, call, error):
        """Makes a call fail from now on, by the name that calls() has for it."""
        self._values[f"fail {call}"] = error
        self._write()

    def calls(self, name, error=0):
        """How many calls returned this error. Queries have their code in the name: "WlanQueryInterface:7"."""
        return self._calls.all().count([name, str(error)])

    def blocks_in_use(self):
        """The blocks of memory that were given to callers and not freed."""
        return sum(map(self.calls, GIVING)) - self.calls("WlanFreeMemory")

    def await_pass(self, change, *arguments, last="WlanQueryInterface:7", count=2):
        """Makes a change and waits until the service has looked at the network, by the last calls of its pass. The service drops
        a notification while it handles another one, which is then sent again."""
        wanted = self.calls(last) + count
        change(*arguments)
        for _ in range(3):
            try:
                return eventually(lambda: self.calls(last) >= wanted, f"{last} to be called", patience=12)
            except Overdue:
                self.notify()
        raise Overdue("the service does not look at the network")
