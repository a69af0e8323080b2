"""WS-Management clients of several kinds talk through the service to the firmware, and their connections end in order."""

import http.client
import re
import socket
import ssl
import time

import pytest

from harness.console import IDENTIFY, closed_by_peer


def tls_context():
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE  # the firmware signs its own certificate
    return context


def identify_request(version="1.1", *headers):
    lines = [f"POST /wsman HTTP/{version}", "Host: localhost", "Content-Type: application/soap+xml;charset=UTF-8",
             f"Content-Length: {len(IDENTIFY)}", *headers]
    return ("\r\n".join(lines) + "\r\n\r\n" + IDENTIFY).encode()


def read_to_end(connection, patience=20):
    """Everything up to the end of TLS, and then the end of the connection."""
    connection.settimeout(patience)
    answer = b""
    while block := connection.recv(65536):
        answer += block
    return answer


def assert_ended_by_the_firmware(stage):
    assert "Server has not received requests" not in stage.host.log_text()
    assert [message["code"] for message in stage.firmware.messages()].count(41) == 1


@pytest.mark.parametrize("request_bytes, status", [
    (identify_request("1.0"), b"200 OK"),
    (identify_request("1.1", "Connection: close"), b"200 OK"),
    (b"this is not HTTP\r\n\r\n", b"400 Bad Request"),
], ids=["http-1.0", "connection-close", "not-http"])
def test_a_client_that_waits_for_the_end_receives_it_behind_the_answer(stage, request_bytes, status):
    stage.boot()
    with stage.console.connect() as connection, tls_context().wrap_socket(connection) as client:
        client.sendall(request_bytes)
        answer = read_to_end(client)
        assert answer.startswith(b"HTTP/1.1 " + status), answer
        assert (b"IdentifyResponse" in answer) == (status == b"200 OK")
        # The connection itself is closed too, although this client still has its end open.
        assert closed_by_peer(client)
        assert stage.console.identify()["ProductVendor"]
    assert "Server has not received requests" not in stage.host.log_text()


def test_an_old_client_keeps_its_connection_when_it_asks(stage):
    stage.boot()
    connection = http.client.HTTPSConnection(*stage.console.address, context=tls_context(), timeout=20)
    connection._http_vsn, connection._http_vsn_str = 10, "HTTP/1.0"
    for _ in range(3):
        connection.request("POST", "/wsman", IDENTIFY, {"Content-Type": "application/soap+xml", "Connection": "keep-alive"})
        response = connection.getresponse()
        assert response.status == 200
        assert response.getheader("Connection") == "keep-alive"
        assert b"IdentifyResponse" in response.read()
    connection.close()
    assert stage.host.log_text().count("Processing DASH traffic") == 1


def test_a_fatal_alert_ends_the_connection(stage):
    stage.boot()
    with stage.console.connect() as console:
        console.sendall(b"\x16\x03\x01\x00\x05hello")
        assert console.recv(100)[0] == 0x15
        assert closed_by_peer(console)
    assert_ended_by_the_firmware(stage)


def test_a_client_that_ends_tls_and_waits_receives_the_firmwares_end(stage):
    stage.boot()
    with stage.console.connect() as connection:
        client = tls_context().wrap_socket(connection)
        client.sendall(identify_request())
        answer = b""
        while not answer.endswith(b"</s:Envelope>"):
            answer += client.recv(65536)
        bare = client.unwrap()  # returns when the firmware has ended TLS too
        assert closed_by_peer(bare)
    assert_ended_by_the_firmware(stage)


def test_a_client_receives_tickets_before_its_first_request_and_resumes_with_them(stage):
    stage.boot()
    context = tls_context()
    with stage.console.connect() as connection, context.wrap_socket(connection) as client:
        client.settimeout(2)
        with pytest.raises(TimeoutError):
            client.recv(1)
        assert client.session.has_ticket
        session = client.session
    with stage.console.connect() as connection, context.wrap_socket(connection, session=session) as client:
        assert client.session_reused
        client.sendall(identify_request("1.1", "Connection: close"))
        assert b"IdentifyResponse" in read_to_end(client)


def test_a_client_that_collects_its_bytes_does_not_wait_for_an_acknowledgement(stage):
    stage.boot()
    times = []
    for _ in range(10):  # on a busy machine some take longer
        with stage.console.connect() as connection, tls_context().wrap_socket(connection) as client:
            assert client.version() == "TLSv1.3"
            assert not client.getsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY)
            begun = time.monotonic()
            client.sendall(identify_request("1.1", "Connection: close"))
            assert b"IdentifyResponse" in read_to_end(client)
            times.append(time.monotonic() - begun)
    assert min(times) < 0.03, times  # an acknowledgement without data comes after 40 ms


def test_a_slow_client_receives_all_of_a_long_answer_before_the_end(stage):
    stage.boot()
    console = socket.socket()
    console.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    console.settimeout(20)
    console.connect(stage.console.address)
    with console, tls_context().wrap_socket(console) as client:
        client.sendall(identify_request() * 300 + identify_request("1.1", "Connection: close"))
        answer = b""
        while block := client.recv(4096):
            answer += block
            time.sleep(0.01)  # 400 KB/s
        assert len(re.findall(b"</s:Envelope>", answer)) == 301
        assert closed_by_peer(client)
    assert_ended_by_the_firmware(stage)
