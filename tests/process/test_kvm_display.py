"""A KVM session in display mode, from the firmware's request for the display's configuration to its end. There is no media
runtime on the PC, so that every capture fails."""

import pytest

from harness.console import closed_by_peer
from harness.kvm import echoes
from harness.waiting import eventually

SCREEN = {"width": 1366, "height": 768}
EXIT_EVENT = "LUX_KVM: Recevied DispEvtCaptureEncodeExit"
BROUGHT_UP = "LUX_KVM: MAX_CHUNK_BUFFER_SZ_512KB allocation done "
AWAITS_START = "LUX_KVM: Waiting for KVM app event"
APP_ENDED = "LUX_KVM: ZelKvmAppThread exit complete"


@pytest.fixture
def display(kvm):
    """Remote KVM enabled, with firmware that can show a screen."""
    kvm.stage.expect_errors(EXIT_EVENT)
    kvm.boot(screen=SCREEN)
    kvm.enable()
    return kvm


def ask_for_the_display(kvm, behaviour=None):
    if behaviour:
        kvm.host.set_agent_behaviour(behaviour)
    kvm.firmware.send("GET_DISPAY_CONFIG")
    kvm.host.await_log("LUX_KVM: DoInitLUXKVM success")


def test_the_host_reports_once_that_it_cannot_encode(display):
    [report] = display.firmware.requests("WriteCapabilityConfig")
    assert report["fields"] == {"encode": 0}


def test_the_host_reports_the_size_of_the_screen(display):
    ask_for_the_display(display)
    report = display.firmware.await_request("WriteDisplayConfig")
    assert report["fields"] == SCREEN
    display.host.await_log(BROUGHT_UP)
    [launch] = display.host.launches()
    assert launch["commandLine"].endswith(" -X 1366 -Y 768 -V 50 -E 1")


def test_the_agent_is_set_going_by_the_viewer(display):
    ask_for_the_display(display)
    display.host.await_log(AWAITS_START)
    with display.begin_session() as client:
        eventually(lambda: "received message 2\n" in display.host.agent_log(), "the agent to get the start message")
        assert "sent message 1, 16 bytes: 1366 x 768, source 0\n" in display.host.agent_log()
        assert len(display.host.agents()) == 1
        assert echoes(client)


def test_a_capture_that_fails_gives_the_firmware_empty_records(display):
    display.stage.expect_errors("CaptureEncode failed")
    ask_for_the_display(display)
    display.host.await_log(BROUGHT_UP)
    for required in (8192, 8191, 8190):
        display.firmware.send("GET_ENCODED_FRAMEBUFFER")
        display.firmware.await_request("SendEncodedDrvFrameBuffer", lambda fields: fields["RequiredChunk"] == required)
    for record in display.firmware.requests("SendEncodedDrvFrameBuffer"):
        assert (record["fields"]["ChunkSize"], record["fields"]["FrameSize"]) == (0, 0)


def test_the_firmware_ends_the_session_and_begins_the_next(display):
    for session in (1, 2):
        ask_for_the_display(display)
        display.host.await_log(AWAITS_START, session)
        with display.begin_session() as client:
            display.close_session()
            assert closed_by_peer(client)
        display.await_reported_close(session)
        display.await_agent_removed()
        assert display.host.log_text().count(APP_ENDED) == session
        if session == 1:
            display.enable()
    assert len(display.firmware.requests("WriteDisplayConfig")) == 2


@pytest.mark.parametrize("behaviour, line", [
    ("message=7", "sent message 7, 16 bytes"), ("length=3", "sent message 1, 3 bytes"), ("silent", "connected to the service"),
    ("no-connection", "started with"), ("crash", None),
])
def test_an_agent_that_reports_nothing_leaves_the_service_able_to_stop(display, behaviour, line):
    ask_for_the_display(display, behaviour)
    if line:
        eventually(lambda: line in display.host.agent_log(), "the agent's line")
    display.host.stop_service()
    assert display.firmware.requests("WriteDisplayConfig") == []
    assert APP_ENDED in display.host.log_text()


def test_a_message_that_is_too_long_is_cut(display):
    ask_for_the_display(display, "length=600")
    assert display.firmware.await_request("WriteDisplayConfig")["fields"] == SCREEN
    display.host.await_log(BROUGHT_UP)


def test_firmware_below_level_50_gets_no_display(kvm):
    kvm.boot(level=49)
    kvm.enable()
    kvm.firmware.send("GET_DISPAY_CONFIG")
    kvm.host.await_log("LUX_KVM: DoInitLUXKVM success")
    assert kvm.host.launches() == []
    with kvm.begin_session() as client:
        assert echoes(client)
        [launch] = kvm.host.launches()
        assert launch["commandLine"].endswith(" -V 49 -E 1")
    assert kvm.firmware.requests("WriteCapabilityConfig") == []
