"""The two kinds of PC on which a soak runs, with one interface. What a kind can't have is named in its `cannot`."""

import os
import pathlib
import signal
import time

from harness.control import ask
from harness.host import RUNNING, Footprint
from harness.native import NativeHost
from harness.processes import build_folder, is_running
from harness.waiting import eventually

from .screens import SIZE
from .stage import make_firmware

# Its Wi-Fi has no address of its own: only the profile of the network is looked at.
WIRELESS = {
    "wlanInterfaces": [{"guid": "{70A9067B-708F-443C-84BA-BC391FDBF72B}"}],
    "wlanNetworks": [{"name": "office", "ssid": "office"}, {"name": "lab", "ssid": "lab", "authentication": "WPA3SAE"}],
}
LOOKS, LOOK = 10, 0.005  # how often, and seconds between


class NativePc:
    cannot = frozenset()
    always_errors = ()

    def __init__(self, workdir, clock_rate):
        self.firmware = make_firmware(workdir)
        self.host = NativeHost(workdir, self.firmware.address, clockRate=clock_rate, **WIRELESS)
        # The screen is the software runtime's test picture.
        self.host.description["screen"] = dict(zip(("width", "height"), SIZE))
        self.host.description["libraryFolders"] = [str(build_folder())]
        self.host.environment["LUXRT_SCREEN"] = "test:{}x{}".format(*SIZE)
        # Memory that a sanitizer keeps back after it was freed would count.
        self.host.asan_options += ":quarantine_size_mb=4:malloc_context_size=8"

    def start(self):
        self.host.start_service()
        self.host.await_state(RUNNING)

    def stop(self):
        return self.host.stop_service()

    def preshutdown(self):
        self.host.control("preshutdown")
        return self.host.wait()

    def _ask(self, command, **members):
        return ask(self.host.control_socket, {"command": command, **members})["result"]

    def suspend(self):
        self.host.control("suspend")

    def resume(self, event):
        self.host.control(event)

    def change_address(self, address):
        adapter = {**self.host.description["adapters"][0], "address": address, "gateway": address.rpartition(".")[0] + ".1"}
        self._ask("change", patch={"adapters": [adapter]})

    def tell_of_network(self, code):
        """The WLAN service's word, at which the service looks at its network."""
        self._ask("wlan", action="notify", code=code)

    def join(self, network):
        self._ask("wlan", action="join", network=network)

    def lock(self, locked):
        self._ask("lock" if locked else "unlock")

    def log_on(self, on):
        self._ask("session", id=1 if on else "none")

    def power_actions(self):
        return [action["action"] for action in self._ask("power-actions")]

    def cancel_shutdown(self):
        self._ask("change", patch={"shuttingDown": False})

    def agents(self):
        return [process["pid"] for process in self._ask("processes") if process["name"] == "ZELKVMApp.exe"]

    def kill_agents(self):
        for pid in self.agents():
            os.kill(pid, signal.SIGKILL)
            eventually(lambda: not is_running(pid), "a killed agent to end")

    def set_agent_behaviour(self, word):
        self.host.set_agent_behaviour(word or "")

    def consent_client(self, *arguments):
        return self.host.consent_client("--wait", "60", *arguments)

    def footprint(self):
        handles, threads, kilobytes = self.host.footprint()
        # One that answered a command may be about to go.
        threads = min(threads, *(len(os.listdir(f"/proc/{self.host.pid}/task")) for _ in range(LOOKS) if not time.sleep(LOOK)))
        return Footprint(handles, threads, kilobytes)

    def await_mailbox(self, present):
        pass

    def close(self):
        self.host.close()
        self.firmware.close()


class WinePc:
    """What Wine lacks: power events, a WLAN service, the desktop's lock, and calls that end the PC but not its session."""

    cannot = frozenset(("suspend", "lock", "nobody", "no-agent", "preshutdown", "power-28", "network-reported",
                        "screen", "wifi"))
    always_errors = (
        "UnRegisterWlanNotification: WlanRegisterNotification failed with error: 120",
        # Wine's number for a connection that is closed while another thread reads.
        "KVMDataRecvThread: recv() failed with error: 10022",
    )
    address = "tcp:127.0.0.1:6640"

    def __init__(self, workdir, clock_rate):
        from harness.namespace import enter_namespace
        from harness.wine import WineHost
        assert clock_rate == 1, "Wine's clock is the machine's"
        enter_namespace()
        self.firmware = make_firmware(workdir, self.address)
        self.host = WineHost(workdir, self.address)
        self._address = None

    def start(self):
        self.host.log_on()
        self.host.power_up()
        self.host.await_mailbox(True)
        self.host.start_service()
        self.host.await_state(RUNNING)

    def stop(self):
        return self.host.stop_service()

    def change_address(self, address):
        from harness.namespace import ADAPTER, ip
        ip("address", "add", f"{address}/24", "dev", ADAPTER)
        if self._address:
            ip("address", "del", f"{self._address}/24", "dev", ADAPTER)
        self._address = address

    def power_actions(self):
        return None

    def agents(self):
        return list(self.host.agents())

    def kill_agents(self):
        for pid in self.agents():
            os.kill(pid, signal.SIGKILL)

    def set_agent_behaviour(self, word):
        self.host.set_agent_behaviour(word)

    def consent_client(self, *arguments):
        return self.host.consent_client("--wait", "60", *arguments)

    def footprint(self):
        handles, threads, _ = self.host.footprint()
        return Footprint(handles, threads, self._resident())

    def _resident(self):
        [pid] = self.host.session.programs("ZELService.exe")
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0])

    def await_mailbox(self, present):
        self.host.await_mailbox(present)

    def close(self):
        self.host.close()
        self.firmware.close()
