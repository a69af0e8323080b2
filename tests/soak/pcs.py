"""The two kinds of PC on which a soak runs, with one interface. What a kind can't have is named in its `cannot`."""

import contextlib
import copy
import os
import pathlib
import signal
import time

from harness.control import ask
from harness.enrolment import CA_FILE, Enterprise
from harness.host import RUNNING, Footprint
from harness.native import NativeHost
from harness.package import DESCRIPTION, PROGRAMS, SCRIPTS, TASKS, Package
from harness.processes import build_folder, is_running
from harness.waiting import eventually

from .errands import ACCOUNT, FIRST_PASSWORD, hash_of
from .screens import SIZE
from .stage import make_firmware

# The primary address is that of the wired adapter: the wireless one comes and goes, and has no gateway.
WIRELESS = {
    "wlanInterfaces": [{"guid": "{70A9067B-708F-443C-84BA-BC391FDBF72B}"}],
    "wlanNetworks": [{"name": "office", "ssid": "office"}, {"name": "lab", "ssid": "lab", "authentication": "WPA3SAE"}],
}
DRIVER = {"name": "KelmarMnf"}
DIRECTORY = {"domain": "corp.example", "accounts": [{"name": ACCOUNT, "passwordHash": hash_of(FIRST_PASSWORD)}]}
INTERFACES = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\"
WIRELESS_ADAPTER = {
    "name": "{70A9067B-708F-443C-84BA-BC391FDBF72B}", "description": "Simulated Wi-Fi Adapter", "index": 4, "type": 71,
    "mac": "02:00:5E:10:00:02", "address": "10.9.8.7", "mask": "255.255.255.0",
}
LOOKS, LOOK = 10, 0.005  # how often, and seconds between


class NativePc:
    cannot = frozenset()
    always_errors = ()

    def __init__(self, workdir, clock_rate):
        self.firmware = make_firmware(workdir)
        self.host = NativeHost(workdir, self.firmware.address, clockRate=clock_rate, dnsDomain=DIRECTORY["domain"], **WIRELESS)
        # The screen is the software runtime's test picture.
        self.host.description["screen"] = dict(zip(("width", "height"), SIZE))
        self.host.description["libraryFolders"] = [str(build_folder())]
        self._classic = {name: copy.deepcopy(self.host.description.get(name, {})) for name in DESCRIPTION}
        self._package = Package(self.host)
        self._is_packaged = False
        self.has_standby = False
        self.enterprise = Enterprise(self.host, self.firmware)
        self.host.environment["LUXRT_SCREEN"] = "test:{}x{}".format(*SIZE)
        self.host.install_cloud_library()
        # Memory that a sanitizer keeps back after it was freed would count.
        self.host.asan_options += ":quarantine_size_mb=4:malloc_context_size=8"

    def start(self, package, standby):
        """`package` is None for a service that is installed classically, else what its start finds of an earlier one."""
        self._is_packaged, self.has_standby = bool(package), standby
        if package in ("anew", "scripts-fail"):
            self._package.forget_start()
        self.host.description.update({**copy.deepcopy(DESCRIPTION if package else self._classic), **WIRELESS,
                                      "modernStandby": standby, "services": [DRIVER], "directory": DIRECTORY})
        self.enterprise.set_stores([CA_FILE], [CA_FILE])
        with self.failing_scripts() if package == "scripts-fail" else contextlib.nullcontext():
            self.host.start_service()
            self.host.await_state(RUNNING)
            if package == "scripts-fail":
                self._package.await_recovery_script()

    def check_package(self, package):
        """What a start leaves of its package."""
        tasks = [] if package == "scripts-fail" else TASKS
        eventually(lambda: self._package.tasks() == tasks, f"the scheduled tasks to be {tasks}")
        assert self._package.working_files() == [*PROGRAMS, *SCRIPTS], self._package.working_files()

    def check_left_files(self):
        """The programs go with the service."""
        assert not self._package.working_files(PROGRAMS), "programs of the package are left"

    def kill_readers(self):
        """Those that hang; the service leaves them running."""
        self._kill("WiFiSyncDataReader.exe")

    @contextlib.contextmanager
    def failing_scripts(self):
        self._package.fail_scripts(True)
        yield
        self._package.fail_scripts(False)

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
        _, *wireless = self._adapters()
        adapter = {**self.host.description["adapters"][0], "address": address, "gateway": address.rpartition(".")[0] + ".1"}
        self._ask("change", patch={"adapters": [adapter, *wireless]})

    def set_suffix(self, suffix):
        """The DNS suffix of the wired adapter."""
        wired, *_ = self._adapters()
        self._ask("change", patch={"registry": {INTERFACES + wired["name"]: {"DhcpDomain": suffix}}})

    def set_wireless(self, present):
        wired, *_ = self._adapters()
        self._ask("change", patch={"adapters": [wired, *([WIRELESS_ADAPTER] if present else [])]})

    def _adapters(self):
        return self._ask("description")["adapters"]

    def driver_runs(self):
        return any(service["state"] != 1 for service in self._ask("description")["services"])

    def change_driver(self, change):
        """None takes the driver away; whatever comes next brings it back as it was."""
        services = self._ask("description")["services"]
        if services:
            self._driver = services[0]
        self._ask("change", patch={"services": [] if change is None else [{**self._driver, **change}]})

    def report_network(self, code):
        """The WLAN service's word, at which the service looks at its network."""
        self._ask("wlan", action="notify", code=code)

    def join(self, network):
        # The program that reads the profile for a packaged service looks at the file.
        self.host.description["wlanInterfaces"] = [{**WIRELESS["wlanInterfaces"][0], "state": 1, "network": network}]
        self.host.write_description()
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
        return self._processes("ZELKVMApp.exe")

    def _processes(self, name):
        return [process["pid"] for process in self._ask("processes") if process["name"] == name]

    def kill_agents(self):
        self._kill("ZELKVMApp.exe")

    def kill_certreq(self):
        eventually(lambda: self._processes("certreq.exe"), "certreq.exe to run")
        self._kill("certreq.exe")

    def directory(self):
        return self._ask("description")["directory"]

    def change_directory(self, change):
        self._ask("change", patch={"directory": change})

    def password_changes(self):
        return self._ask("password-changes")

    def _kill(self, name):
        for pid in self._processes(name):
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
            eventually(lambda: not is_running(pid), "a killed agent to end")

    def set_agent_behaviour(self, word):
        if self._is_packaged:
            (self.host.working_folder / "ZELKVMApp.behaviour").write_text((word or "") + "\n")
        else:
            self.host.set_agent_behaviour(word or "")

    def set_reader_behaviour(self, word):
        (self.host.working_folder / "WiFiSyncDataReader.behaviour").write_text(word + "\n")

    def remove_agent(self):
        self._package.remove_copy(PROGRAMS[0]) if self._is_packaged else self.host.remove_agent()

    def install_agent(self):
        self._package.copy(PROGRAMS[0]) if self._is_packaged else self.host.install_agent()

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

    cannot = frozenset(("suspend", "lock", "no-user", "no-agent", "preshutdown", "power-28", "network-reported",
                        "screen", "wifi", "driver", "package", "cloud", "enrolment", "password", "alert"))
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

    def start(self, package, standby):
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

    def check_left_files(self):
        pass

    def driver_runs(self):
        return False

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
