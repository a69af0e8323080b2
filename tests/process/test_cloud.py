"""The cloud connection: the firmware's data becomes the files of the library, and a console at the relay reaches the PC."""

import concurrent.futures
import itertools
import json

import pytest

from harness.cloud import PC, Relay, make_certificates, provision
from harness.kvm import SESSION_END_ERRORS
from harness.waiting import eventually

INTERFACE = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\"
HOME = "corp.example.com"


class CloudStage:
    """A PC outside of the company's network, and a relay."""

    def __init__(self, stage, certificates):
        self.stage = stage
        self.certificates = certificates
        self.relay = Relay(stage.workdir, certificates)
        self._codes = itertools.cycle((10, 21))

    @property
    def host(self):
        return self.stage.host

    def boot(self, certificates=None, library=True, **environment):
        """The service with the firmware's cloud data. It connects when the library and the relay are there."""
        self.stage.power_up()
        provision(self.stage.firmware, self.relay.port, certificates or self.certificates, domains=HOME)
        if library:
            self.host.install_cloud_library()
        self.host.environment.update(environment)
        self.host.start_service()
        self.host.await_log("Calling HTTPS Socket Accept")

    def move_to(self, address, suffix):
        """The laptop joins another network; the service sees it two seconds after a notification."""
        adapter = {**self.host.description["adapters"][0], "address": address}
        registry = {INTERFACE + adapter["name"]: {"DhcpDomain": suffix}}
        self.host.ctl("change", json.dumps({"adapters": [adapter], "registry": registry}))
        # The WLAN service holds back a notification that equals its last one.
        self.host.ctl("wlan", "notify", next(self._codes))
        self.host.ctl("clock", "advance", 2_000)

    def pass_retry(self):
        self.host.ctl("clock", "advance", 5_000)


@pytest.fixture(scope="module")
def certificates(tmp_path_factory):
    return make_certificates(tmp_path_factory.mktemp("certificates"))


@pytest.fixture
def cloud(stage, certificates):
    cloud = CloudStage(stage, certificates)
    yield cloud
    cloud.relay.close()


@pytest.fixture
def connected(cloud):
    cloud.relay.start()
    cloud.boot()
    assert cloud.relay.await_event("connected")["pc"] == PC
    return cloud


def test_a_console_at_the_relay_receives_the_firmwares_answer(connected):
    assert connected.relay.console().identify()["ProductVendor"] == "Tarvix"
    assert connected.relay.await_event("opened")["target"] == f"{PC}:664"


def test_the_firmwares_data_becomes_the_librarys_files(connected):
    folder = connected.host.working_folder
    assert (folder / "cloud.txt").read_text() == "127.0.0.1"
    for file, source in (("cert.pem", "pc.pem"), ("key.pem", "pc.key"), ("ca.pem", "ca.pem")):
        assert (folder / "certs" / file).read_text() == (connected.certificates / source).read_text()


def test_the_key_is_in_no_log_and_no_record(connected):
    key = (connected.certificates / "pc.key").read_text().splitlines()[1]
    connected.stage.firmware.await_request("GetCloudCertInfo")
    assert key not in connected.host.log_text()
    assert key not in connected.stage.firmware.record_path.read_text()
    assert key not in connected.stage.firmware.show()


def test_nothing_but_the_two_ports_of_this_pc_is_reachable(connected):
    console = connected.relay.console()
    for target in (f"{PC}:80", f"{PC}:665", f"{PC}:6640", "other:664", "127.0.0.1:664", f"{PC}.example.com:664"):
        assert console.status_of_connect(target) == 403, target
    assert {event["reason"] for event in connected.relay.events("refused")} == {"not allowed"}
    # It is allowed, but nothing listens there before the firmware enables KVM.
    assert console.status_of_connect(f"{PC}:22") == 403
    assert connected.relay.events("refused")[-1]["reason"] == "Connection refused"


def test_a_viewer_at_the_relay_reaches_the_kvm_port(connected):
    connected.stage.firmware.send("KVM_ENABLE_STATUS")
    connected.host.await_log("Calling KVM Socket Accept")
    connected.stage.expect_errors(*SESSION_END_ERRORS)
    connected.relay.console().status_of_connect(f"{PC}:22")
    assert connected.relay.await_event("opened")["target"] == f"{PC}:22"


def test_several_consoles_are_served(connected):
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        answers = list(pool.map(lambda _: connected.relay.console().identify(), range(4)))
    assert all(answer["ProductVendor"] == "Tarvix" for answer in answers)


def test_the_connection_comes_back_after_a_change_of_the_network(connected):
    connected.move_to("192.168.1.44", "cafe.example.org")
    connected.relay.await_event("connected", 2)
    assert connected.relay.console().identify()["ProductVendor"] == "Tarvix"
    log = connected.host.log_text()
    assert log.index("Attempting to deinit NUBA") < log.index("NUBA Thread stopped gracefully") < log.index("stop NUBA")


def test_at_home_the_client_stays_down_and_outside_it_comes_back(connected):
    connected.move_to("10.1.2.3", HOME)
    connected.host.await_log(f"NUBA: Domain {HOME} matches with MPM Domain {HOME}")
    connected.relay.await_event("disconnected")
    assert connected.relay.console().status_of_connect(f"{PC}:664") == 502
    assert connected.relay.count("connected") == 1
    connected.move_to("192.168.1.10", "")
    connected.relay.await_event("connected", 2)


def test_a_cloud_of_another_authority_is_refused(cloud, tmp_path):
    cloud.stage.expect_errors("nuba: certificate verify failed")
    cloud.relay.start(certificates=make_certificates(tmp_path / "other"))
    cloud.boot()
    cloud.host.await_log("nuba: certificate verify failed")
    assert cloud.relay.count("connected") == 0


def test_a_pc_of_another_authority_is_refused(cloud, tmp_path):
    cloud.stage.expect_errors("nuba: ")
    other = make_certificates(tmp_path / "other")
    (other / "ca.pem").write_text((cloud.certificates / "ca.pem").read_text())
    cloud.relay.start()
    cloud.boot(certificates=other)
    assert "CERTIFICATE_VERIFY_FAILED" in cloud.relay.await_event("disconnected")["reason"]
    assert cloud.relay.count("connected") == 0


def test_a_relay_that_is_killed_is_found_again(connected):
    connected.stage.expect_errors("nuba: ")
    connected.relay.kill()
    connected.host.await_log("nuba: the connection to 127.0.0.1 has ended")
    connected.pass_retry()
    connected.host.await_log("nuba: no connection to 127.0.0.1: Connection refused")
    connected.relay.start()
    eventually(lambda: connected.pass_retry() or connected.relay.count("connected") == 2, "the connection to come back")
    assert connected.relay.console().identify()["ProductVendor"] == "Tarvix"


def test_a_silent_relay_is_given_up(cloud):
    cloud.stage.expect_errors("nuba: the cloud is silent")
    cloud.relay.start("--silent")
    cloud.boot(NUBA_SILENCE="1")
    cloud.host.await_log("nuba: the cloud is silent")
    eventually(lambda: cloud.pass_retry() or cloud.relay.count("connected") == 2, "the next attempt")


def test_a_pc_without_the_library_says_so_once(cloud):
    cloud.boot(library=False)
    cloud.host.await_log("NUBA: nubaapi.dll cannot be loaded, error: 126. There is no cloud connection")
    cloud.move_to("192.168.1.44", "")
    cloud.host.await_log("Start NUBA from ZEL", 2)
    assert cloud.host.log_text().count("nubaapi.dll") == 1
    assert cloud.stage.console.identify()["ProductVendor"] == "Tarvix"


def test_a_stop_ends_the_connection(connected):
    assert connected.host.stop_service() == 0
    connected.relay.await_event("disconnected")
    log = connected.host.log_text()
    assert log.index("ZEL Service DOWN") < log.index("Attempting to deinit NUBA") < log.index("stop NUBA")


def test_a_suspend_ends_the_connection_and_a_resume_makes_it_anew(connected):
    connected.host.control("suspend")
    connected.relay.await_event("disconnected")
    connected.host.control("resume-automatic")
    connected.relay.await_event("connected", 2)


def test_reconnections_leave_nothing_in_the_service(connected, stays_small):
    def reconnect(number):
        connected.move_to(f"192.168.1.{20 + number % 2}", "")
        connected.relay.await_event("connected", 2 + number)
        assert connected.relay.console().status_of_connect(f"{PC}:80") == 403

    stays_small(reconnect)
