"""Alerts: the firmware names a console, and the service posts what the firmware sends it."""

import socket

import pytest

from harness.alerts import AlertConsoles, alert, subscribe
from harness.waiting import eventually


@pytest.fixture
def consoles(tmp_path):
    consoles = AlertConsoles(tmp_path)
    yield consoles
    consoles.close()


@pytest.mark.parametrize("secure", [False, True])
def test_an_alert_reaches_the_console(stage, consoles, secure):
    stage.boot()
    console = consoles.start(secure)
    subscribe(stage, console.port, secure=secure)
    alert(stage, "<s:Envelope/>")
    eventually(lambda: console.alerts, "the alert at the console")
    path, headers, body = console.alerts[0]
    assert (path, body) == ("/events", b"<s:Envelope/>")
    assert headers == {**headers, **console.headers(13)}
    assert stage.host.stop_service() == 0


def test_a_subscription_ends(stage, consoles):
    stage.boot()
    console = consoles.start()
    subscribe(stage, console.port)
    subscribe(stage, console.port, uri="")
    alert(stage, "<s:Envelope/>")
    stage.host.await_log("Not Posting Indication Alert")
    assert not console.alerts


def test_a_stop_does_not_wait_for_a_silent_console(stage):
    stage.boot()
    with socket.create_server(("127.0.0.1", 0)) as silent:
        subscribe(stage, silent.getsockname()[1], secure=True)
        alert(stage, "<s:Envelope/>")
        stage.host.await_log("Posting Indication Alert")
        silent.accept()
        assert stage.host.stop_service() == 0


@pytest.mark.parametrize("secure", [False, True])
def test_alerts_leave_nothing_in_the_service(stage, consoles, stays_small, secure):
    stage.boot()
    console = consoles.start(secure)
    subscribe(stage, console.port, secure=secure)

    def send(number):
        alert(stage, f"<alert number='{number}'/>")
        eventually(lambda: len(console.alerts) > number, f"alert {number} at the console")

    count = stays_small(send)
    assert [body for _, _, body in console.alerts] == [f"<alert number='{number}'/>".encode() for number in range(count)]
