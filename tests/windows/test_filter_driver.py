"""The filter driver on a PC without Modern Standby, which is what Wine is: it stays as it is, whatever the reports find."""

import contextlib
import os
import re

import pytest

from harness.host import RUNNING
from harness.namespace import ip
from harness.waiting import eventually

FILTER_DRIVER = "KelmarMnf"
AUTOMATIC = 2
ETHERNET = 2
TUNNEL, TUNNEL_ADDRESS = "wl0", "192.168.7.2"


@pytest.fixture
def driver(pc):
    """A service of that name that runs. One of Wine's programs serves it, which does nothing."""
    assert pc.session.run("sc", "create", FILTER_DRIVER, "binPath=", "C:\\windows\\system32\\spoolsv.exe", "start=", "auto") == 0
    try:
        assert pc.scm("start", FILTER_DRIVER)["error"] == 0
        assert pc.scm("wait", FILTER_DRIVER, RUNNING, 20_000)["error"] == 0
        yield pc.scm("query", FILTER_DRIVER)
    finally:
        pc.scm("control", FILTER_DRIVER, 1)
        assert pc.session.run("sc", "delete", FILTER_DRIVER) == 0


@contextlib.contextmanager
def wireless_adapter():
    """An adapter that is no Ethernet adapter, which counts as a wireless one."""
    ip("tuntap", "add", "dev", TUNNEL, "mode", "tun")
    try:
        ip("address", "add", f"{TUNNEL_ADDRESS}/24", "dev", TUNNEL)
        ip("link", "set", TUNNEL, "up")
        yield
    finally:
        ip("tuntap", "del", "dev", TUNNEL, "mode", "tun")


def links(stage):
    """The kinds of the adapters in each report so far."""
    return [[entry["LinkTechnology"] for entry in request["fields"]["Entries"]]
            for request in stage.firmware.requests("WriteMultiNwInfo")]


def lines_of_driver(stage):
    """What the log says of the driver, with the levels and without the times and threads."""
    beginnings = ("System supports", "System does not support", "Filter driver", "Driver ", "Stopping driver", "Failed to",
                  "Enabling network binding", "Disabling network binding", "Network binding")
    lines = re.findall(r"\] (\w+): +(.*) \$\$", stage.host.log_text())
    return [f"{level} {text}" for level, text in lines if text.startswith(beginnings)]


@pytest.mark.skipif(not os.path.exists("/dev/net/tun"), reason="this machine has no tunnels, and thus no wireless adapter")
def test_reports_of_a_wireless_connection_leave_the_driver_alone(stage, driver):
    with wireless_adapter():
        stage.boot()
        eventually(lambda: links(stage), "the first report")
        assert any(kind != ETHERNET for kind in links(stage)[0])
    stage.firmware.send("S0i3_RESUME")
    eventually(lambda: links(stage)[1:], "a report without the adapter")
    assert links(stage)[1] == [ETHERNET]
    assert stage.host.stop_service() == 0
    assert lines_of_driver(stage) == [
        "INFO System does not support S0 (Modern Standby) power state.",
        "INFO System does not support S3 (Sleep) power state.",
        "INFO Driver is already disabled.",
        "INFO Filter driver disabled successfully",
        "INFO Driver is already disabled.",
    ]
    after = stage.host.scm("query", FILTER_DRIVER)
    assert (after["state"], after["startType"], after["pid"]) == (RUNNING, AUTOMATIC, driver["pid"])
    assert after == driver
