"""Alerts: the firmware names a console, and the service posts what the firmware sends it."""

import http.server
import socket
import ssl
import struct
import subprocess
import threading

import pytest

from harness.waiting import eventually

HEADERS = {"Content-Type": "application/soap+xml;charset=UTF-8", "Accept": "*/*", "User-Agent": "WinHTTP Example/1.0"}


class AlertServer:
    """A console on 127.0.0.1 that keeps what is posted to it."""

    def __init__(self, certificate=None):
        alerts = self.alerts = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                alerts.append((self.path, dict(self.headers), body))
                # The service may have gone without waiting for the answer.
                self.close_connection = True

            def log_message(self, *_):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(certificate)
            self._server.socket = context.wrap_socket(self._server.socket, server_side=True)
        self.port = self._server.server_address[1]
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def close(self):
        self._server.shutdown()
        self._server.server_close()


@pytest.fixture
def console(tmp_path):
    servers = []

    def start(secure=False):
        certificate = None
        if secure:
            certificate = tmp_path / "console.pem"
            subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                            "-keyout", certificate, "-out", tmp_path / "certificate.pem", "-days", "1",
                            "-subj", "/CN=somewhere.else"], check=True, capture_output=True)
            with open(certificate, "a", encoding="utf-8") as file:
                file.write((tmp_path / "certificate.pem").read_text())
        servers.append(AlertServer(certificate))
        return servers[-1]

    yield start
    for server in servers:
        server.close()


def subscribe(stage, port, uri="/events", secure=False):
    record = struct.pack("<1024s1024sIHHI", b"127.0.0.1", uri.encode(), 0, port, 0, secure)
    file = stage.workdir / "record"
    file.write_bytes(record)
    stage.firmware.send("INDICATION_SUBSCRIBE", "--file", file)


@pytest.mark.parametrize("secure", [False, True])
def test_an_alert_reaches_the_console(stage, console, secure):
    stage.boot()
    server = console(secure)
    subscribe(stage, server.port, secure=secure)
    stage.firmware.send("INDICATION_EVENT", "--text", "<s:Envelope/>")
    eventually(lambda: server.alerts, "the alert at the console")
    path, headers, body = server.alerts[0]
    assert (path, body) == ("/events", b"<s:Envelope/>")
    assert {**headers, **HEADERS, "Host": f"127.0.0.1:{server.port}", "Content-Length": "13"} == headers
    assert stage.host.stop_service() == 0


def test_a_subscription_ends(stage, console):
    stage.boot()
    server = console()
    subscribe(stage, server.port)
    subscribe(stage, server.port, uri="")
    stage.firmware.send("INDICATION_EVENT", "--text", "<s:Envelope/>")
    stage.host.await_log("Not Posting Indication Alert")
    assert not server.alerts


def test_a_stop_does_not_wait_for_a_silent_console(stage):
    stage.boot()
    with socket.create_server(("127.0.0.1", 0)) as silent:
        subscribe(stage, silent.getsockname()[1], secure=True)
        stage.firmware.send("INDICATION_EVENT", "--text", "<s:Envelope/>")
        stage.host.await_log("Posting Indication Alert")
        silent.accept()
        assert stage.host.stop_service() == 0
