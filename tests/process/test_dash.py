"""Consoles talk through the service to the firmware."""

import json
import random
import socket
import struct
import threading
import time

import pytest

from harness.console import closed_by_peer
from harness.waiting import eventually


def log_message_count(stage, text):
    return stage.host.log_text().count(text)


def test_a_real_client_reads_the_firmwares_identity(stage):
    stage.boot()
    answer = stage.console.identify()
    assert answer["ProtocolVersion"] == "http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd"
    assert answer["ProductVendor"]


def test_the_firmware_is_told_the_consoles_address_and_port(stage):
    stage.boot()
    with stage.console.connect() as console:
        own_port = console.getsockname()[1]
        report = stage.firmware.await_request("WriteIPCompleteInformation", lambda fields: fields["PeerMarker"] == 0xFFFF)
        assert report["fields"]["Port"] == 664
        assert report["fields"]["PeerAddress"] == "127.0.0.1"
        assert report["fields"]["PeerPort"] == own_port


def test_an_idle_console_is_closed_after_five_seconds(stage):
    stage.boot()
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        stage.host.ctl("clock", "advance", 5_000)
        eventually(lambda: stage.host.ctl("clock", "advance", 1_000) is not None
                   and "Server has not received requests" in stage.host.log_text(), "the idle limit")
        assert closed_by_peer(console)
    assert stage.firmware.requests("WriteCloseSocketcmd") == []


def test_a_second_console_waits_for_its_turn(stage):
    stage.boot()
    first = stage.console.connect()
    stage.host.await_log("Processing DASH traffic")
    answers = []
    second = threading.Thread(target=lambda: answers.append(stage.console.identify()))
    second.start()
    stage.host.await_log("Process the accepted connection", count=2)
    assert not answers
    first.close()
    eventually(lambda: stage.host.ctl("clock", "advance", 1_000) is not None and not second.is_alive(), "the second console")
    assert answers[0]["ProductVendor"]


@pytest.mark.parametrize("version, closes_at_once", [(44, True), (45, False)])
def test_who_closes_after_a_clients_close_depends_on_the_firmwares_level(stage, version, closes_at_once):
    settings = {"uVORKVersion": version, "EndsClosedSessions": False}
    stage.firmware = type(stage.firmware)(stage.workdir, dash="none", settings=settings)
    stage.boot()
    with stage.console.connect():
        stage.host.await_log("Processing DASH traffic")
    stage.firmware.await_request("WriteCloseSocketcmd", lambda fields: fields["port"] == 664)
    stage.host.await_log("DataRecvThread: exit")
    assert ("CloseSocket, After sock close" in stage.host.log_text()) == closes_at_once


def test_the_firmware_ends_a_session_with_its_close_command(stage):
    stage.boot()
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        stage.firmware.send("WEBUI_CLOSE_SOCKET")
        assert closed_by_peer(console)
    stage.host.await_log("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit")


def test_megabytes_from_a_server_reach_a_slow_console_whole_and_in_order(stage):
    content = random.Random(8).randbytes(5_000_000)
    with socket.create_server(("127.0.0.1", 0)) as server:
        def serve():
            connection, _ = server.accept()
            with connection:
                connection.recv(1)
                connection.sendall(content)
                connection.recv(1)

        server_thread = threading.Thread(target=serve)
        server_thread.start()
        settings = {"DashPause": 0}
        stage.firmware = type(stage.firmware)(stage.workdir, dash=f"bridge:127.0.0.1:{server.getsockname()[1]}", settings=settings)
        stage.boot()
        received = bytearray()
        with stage.console.connect() as console:
            console.sendall(b"x")
            while len(received) < len(content):
                block = console.recv(40_000)
                assert block, f"the connection ended after {len(received)} bytes"
                received += block
                time.sleep(len(block) / 1_000_000)
            console.sendall(b"y")
            server_thread.join()
    assert received == content
    assert log_message_count(stage, "Replacing a payload") == 0


def test_a_reset_by_the_console_ends_its_session_alone(stage):
    stage.boot()
    stage.expect_errors("recv() failed")
    console = stage.console.connect()
    stage.host.await_log("Processing DASH traffic")
    console.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    console.close()
    stage.host.await_log("DataRecvThread: exit")
    eventually(lambda: stage.host.ctl("clock", "advance", 1_000) is not None
               and "After sock close" in stage.host.log_text(), "the end of the session")
    assert stage.console.identify()["ProductVendor"]


def test_a_half_closed_console_still_gets_its_turn_ended(stage):
    stage.boot()
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        console.shutdown(socket.SHUT_WR)
        stage.firmware.await_request("WriteCloseSocketcmd")
        eventually(lambda: stage.host.ctl("clock", "advance", 1_000) is not None
                   and "After sock close" in stage.host.log_text(), "the end of the session")
        assert closed_by_peer(console)


def test_a_hundred_connections_are_accepted_and_the_stop_closes_them_all(stage):
    stage.boot()
    stage.expect_errors("Service is not signalled as Up")  # the close record finds the gate closed
    consoles = [stage.console.connect() for _ in range(100)]
    stage.host.await_log("Process the accepted connection", count=100)
    assert stage.host.stop_service() == 0
    assert all(closed_by_peer(console) for console in consoles)
    for console in consoles:
        console.close()


def test_session_after_session_costs_no_handle(stage):
    stage.firmware = type(stage.firmware)(stage.workdir, dash="none", settings={"uVORKVersion": 44})
    stage.boot()

    def sessions(count):
        for _ in range(count):
            done = log_message_count(stage, "After sock close") + 1
            with stage.console.connect() as console:
                console.sendall(b"x")
                stage.host.await_log("DASH packet received", count=log_message_count(stage, "Processing DASH traffic") or 1)
            stage.host.await_log("After sock close", count=done)

    def handles():
        return sum(json.loads(stage.host.ctl("handles", "--json")).values())

    sessions(3)
    before = handles()
    sessions(20)
    assert handles() <= before
