"""The cloud connection of the shipped service: it loads nubaapi.dll, and a console at the relay reaches the PC.

The library is the stand-in, whose build for Windows is optional. The clock is the real one: an attempt follows the end of a
connection after five seconds.
"""

import pytest

from harness.cloud import Relay, make_certificates, provision
from harness.namespace import ADDRESS, set_address
from harness.wine import WineHost, windows_folder

PC = WineHost.network_name
FILES = (("cert.pem", "pc.pem"), ("key.pem", "pc.key"), ("ca.pem", "ca.pem"))
# The group is that of the administrators.
RIGHTS_OF_OTHERS = 0o007
NO_LIBRARY = "NUBA: nubaapi.dll cannot be loaded, error: 126. There is no cloud connection"


@pytest.fixture(scope="module")
def certificates(tmp_path_factory):
    return make_certificates(tmp_path_factory.mktemp("certificates"))


@pytest.fixture
def library(stage):
    if not (windows_folder() / "nubaapi.dll").exists():
        pytest.skip("the stand-in for the cloud library is not built for Windows here: ./dev test windows builds it")
    stage.host.install_cloud_library()
    yield
    stage.host.remove_cloud_library()


@pytest.fixture
def relay(stage, certificates):
    relay = Relay(stage.workdir, certificates)
    yield relay
    relay.close()


def boot(stage, relay, certificates=None):
    """The service with the firmware's cloud data."""
    stage.power_up()
    provision(stage.firmware, relay.port, certificates or relay.certificates)
    stage.start_service()


@pytest.fixture
def wlan(stage):
    """Its notifications cause the service to look at the network."""
    return stage.use_wlan()


@pytest.fixture
def other_address():
    """Gives the PC's adapter another address until the end of the test."""
    yield lambda: set_address("192.168.1.44")
    set_address(ADDRESS)


@pytest.fixture
def connected(stage, library, relay):
    relay.start()
    boot(stage, relay)
    assert relay.await_event("connected")["pc"] == PC
    return relay


def test_a_console_at_the_relay_receives_the_firmwares_answer(stage, connected):
    assert connected.console(PC).identify()["ProductVendor"] == "Tarvix"
    assert connected.await_event("opened")["target"] == f"{PC}:664"
    # The end of the console's session may meet the closed gate to the firmware.
    stage.expect_errors("Service is not signalled as Up, returning: 1062")
    assert stage.host.stop_service() == 0
    connected.await_event("disconnected")
    log = stage.host.log_text()
    assert log.index("ZEL Service DOWN") < log.index("Attempting to deinit NUBA") < log.index("NUBA Thread stopped gracefully")


def test_nothing_but_the_two_ports_of_this_pc_is_reachable(connected):
    console = connected.console(PC)
    for target in (f"{PC}:80", f"{PC}:6640", "other:664", "127.0.0.1:664"):
        assert console.status_of_connect(target) == 403, target
    assert {event["reason"] for event in connected.events("refused")} == {"not allowed"}
    # It is allowed, but nothing listens there before the firmware enables KVM.
    assert console.status_of_connect(f"{PC}:22") == 403
    assert connected.events("refused")[-1]["reason"] != "not allowed"


def test_the_librarys_files_are_complete_and_others_cannot_read_the_key(stage, connected):
    folder = stage.host.working_folder
    assert (folder / "cloud.txt").read_text() == "127.0.0.1"
    for file, source in FILES:
        assert (folder / "certs" / file).read_text() == (connected.certificates / source).read_text()
    # Under Wine a new file does not inherit the access list of its folder.
    assert (folder / "certs").stat().st_mode & RIGHTS_OF_OTHERS == 0
    assert not list(folder.rglob("*.new"))


def test_the_connection_comes_back_after_a_change_of_the_network(stage, wlan, connected, other_address):
    other_address()
    wlan.await_pass(wlan.leave, last="WlanEnumInterfaces", count=1)
    connected.await_event("connected", 2)
    assert connected.console(PC).identify()["ProductVendor"] == "Tarvix"
    log = stage.host.log_text()
    assert log.index("Attempting to deinit NUBA") < log.index("NUBA Thread stopped gracefully") < log.index("stop NUBA")


def test_a_relay_that_is_killed_is_found_again(stage, connected):
    stage.expect_errors("nuba: ")
    connected.kill()
    connected.start()
    connected.await_event("connected", 2)
    assert connected.console(PC).identify()["ProductVendor"] == "Tarvix"


def test_a_cloud_of_another_authority_is_refused(stage, library, relay, tmp_path):
    stage.expect_errors("nuba: certificate verify failed")
    relay.start(certificates=make_certificates(tmp_path / "other"))
    boot(stage, relay)
    stage.host.await_log("nuba: certificate verify failed")
    assert relay.count("connected") == 0


def test_a_pc_of_another_authority_is_refused(stage, library, relay, tmp_path):
    stage.expect_errors("nuba: ")
    other = make_certificates(tmp_path / "other")
    (other / "ca.pem").write_text((relay.certificates / "ca.pem").read_text())
    relay.start()
    boot(stage, relay, certificates=other)
    assert "CERTIFICATE_VERIFY_FAILED" in relay.await_event("disconnected")["reason"]
    assert relay.count("connected") == 0


def test_a_pc_without_the_library_says_so_once(stage, relay):
    boot(stage, relay)
    stage.host.await_log(NO_LIBRARY)
    stage.firmware.send("S0i3_RESUME")
    stage.host.await_log("Start NUBA from ZEL", 2)
    assert stage.host.log_text().count("nubaapi.dll") == 1
    assert stage.console.identify()["ProductVendor"] == "Tarvix"
