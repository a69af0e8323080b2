"""The PC behind the page that mpmsim serves: off, on, and hanging."""

import socket
import threading

import pytest

from harness.firmware import Firmware
from harness.host import RUNNING
from harness.websocket import LabPage


@pytest.fixture
def lab(stage, tmp_path):
    """A page of a firmware whose PC has not started yet."""
    stage.firmware = Firmware(tmp_path, web={"pc": tmp_path / "winhost.sock",
                                             "log": tmp_path / "pc/C:/ProgramData/Tarvix/Manageability/zel.log"})
    stage.power_up()
    with LabPage(stage.firmware.url) as page:
        yield page


def test_a_pc_that_is_off_is_an_error_and_one_that_starts_is_seen(stage, lab):
    first = lab.do("hello")
    assert first["features"]["pc"] and first["pcHelp"] is None
    assert lab.refusal("pc", request={"command": "status"}).startswith("the PC is off")
    lab.await_news(lambda: lab.news.get("state", {}).get("pc") == "off", "the state of the PC")
    stage.host.start_service()
    lab.await_news(lambda: lab.news["state"]["pc"] == "on", "the PC to be on")
    stage.host.await_state(RUNNING)
    assert lab.do("pc", request={"command": "status"})["state"] == RUNNING
    assert "unknown command" in lab.refusal("pc", request={"command": "fly"})
    lab.await_news(lambda: any("Logging started" in line["text"] for line in lab.log), "the beginning of the log")
    lab.await_news(lambda: any(entry["name"] == "WriteOsInfo" for entry in lab.wire), "the report of the system")
    with LabPage(stage.firmware.url) as other:
        assert "status" in other.do("hello")["pcHelp"]


def test_a_pc_that_hangs_holds_up_no_page(tmp_path):
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(str(tmp_path / "pc.sock"))
    listener.listen()
    ended = threading.Event()

    def accept():
        held = []
        while not ended.is_set():
            held.append(listener.accept())
    threading.Thread(target=accept, daemon=True).start()
    with Firmware(tmp_path, quiet=True, web={"pc": tmp_path / "pc.sock"}) as firmware, LabPage(firmware.url) as page:
        assert page.do("hello")["pcHelp"] is None
        page.post("pc", request={"command": "status"})
        assert page.do("show")
        with LabPage(firmware.url) as other:
            assert other.do("show")
    ended.set()
