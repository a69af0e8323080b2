"""Alerts of the firmware, posted with the HTTP and the TLS of Windows.

One of the two calls that get the header block refuses it here, so that the block has to arrive with the other.
"""

import socket
import struct

import pytest

from harness.alerts import AlertConsoles, alert, subscribe
from harness.ports import free_port
from harness.waiting import eventually

NOT_SENT = "HttpsWebRequestPost: WinHttpSendRequest failed, Request not sent, error: "
CANNOT_CONNECT = "12029"
RESET_AT_CLOSE = struct.pack("ii", 1, 0)


@pytest.fixture
def consoles(stage, tmp_path):
    stage.boot()
    consoles = AlertConsoles(tmp_path)
    yield consoles
    consoles.close()


def received(console, count=1):
    """The first alerts that the console has received, when it has so many."""
    return eventually(lambda: console.alerts[count - 1:] and console.alerts[:count], f"{count} alerts at the console")


def test_an_alert_reaches_the_console_with_its_headers(stage, consoles):
    console = consoles.start()
    subscribe(stage, console.port)
    alert(stage, "<s:Envelope/>")
    [(path, headers, body)] = received(console)
    assert (path, body) == ("/events", b"<s:Envelope/>")
    assert headers == {**headers, **console.headers(13)}


@pytest.mark.parametrize("name, days", [("127.0.0.1", 1), ("somewhere.else", 1), ("127.0.0.1", -1)],
                         ids=["of its own", "of another name", "expired"])
def test_the_certificate_of_a_console_is_not_verified(stage, consoles, name, days):
    console = consoles.start(secure=True, name=name, days=days)
    subscribe(stage, console.port, secure=True)
    alert(stage, "<s:Envelope/>")
    [(path, headers, body)] = received(console)
    assert (path, body) == ("/events", b"<s:Envelope/>")
    assert headers == {**headers, **console.headers(13)}


def test_a_flood_of_alerts_arrives_in_order(stage, consoles):
    console = consoles.start()
    subscribe(stage, console.port)
    texts = [f"alert {number}" for number in range(50)]
    for text in texts:
        alert(stage, text)
    assert [body.decode() for _, _, body in received(console, len(texts))] == texts


def test_an_alert_for_a_console_that_is_down_is_lost_and_the_next_one_arrives(stage, consoles):
    subscribe(stage, free_port())
    alert(stage, "lost")
    stage.host.await_log(NOT_SENT + CANNOT_CONNECT)
    console = consoles.start()
    subscribe(stage, console.port)
    alert(stage, "next")
    assert [body for _, _, body in received(console)] == [b"next"]


def test_an_alert_for_a_console_that_resets_the_connection_is_lost_and_the_next_one_arrives(stage, consoles):
    with socket.create_server(("127.0.0.1", 0)) as resetting:
        subscribe(stage, resetting.getsockname()[1], secure=True)
        alert(stage, "lost")
        resetting.settimeout(20)
        connection = resetting.accept()[0]
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET_AT_CLOSE)
        connection.close()
        stage.host.await_log(NOT_SENT)
    console = consoles.start(secure=True)
    subscribe(stage, console.port, secure=True)
    alert(stage, "next")
    assert [body for _, _, body in received(console)] == [b"next"]


def test_a_stop_does_not_wait_for_a_silent_console(stage, consoles):
    with socket.create_server(("127.0.0.1", 0)) as silent:
        subscribe(stage, silent.getsockname()[1], secure=True)
        alert(stage, "<s:Envelope/>")
        silent.settimeout(20)
        with silent.accept()[0]:
            assert stage.host.stop_service() == 0
