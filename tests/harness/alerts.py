"""Consoles that take the alerts of a PC over HTTP and HTTPS, and how the firmware subscribes them."""

import http.server
import ssl
import struct
import subprocess
import threading

# What the service sends besides the address of the console and the length of the alert.
HEADERS = {"Content-Type": "application/soap+xml;charset=UTF-8", "Accept": "*/*", "User-Agent": "WinHTTP Example/1.0"}


class AlertServer:
    """A console on 127.0.0.1 that keeps what is posted to it, in the order of the connections."""

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

        class Server(http.server.HTTPServer):
            request_queue_size = 128

        self._server = Server(("127.0.0.1", 0), Handler)
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(certificate)
            self._server.socket = context.wrap_socket(self._server.socket, server_side=True)
        self.port = self._server.server_address[1]
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def headers(self, length):
        """Of an alert that has so many bytes."""
        return {**HEADERS, "Host": f"127.0.0.1:{self.port}", "Content-Length": str(length)}

    def close(self):
        self._server.shutdown()
        self._server.server_close()


def openssl(*words):
    subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True)


class AlertConsoles:
    """Starts consoles, whose certificates are in `folder`."""

    def __init__(self, folder):
        self._folder = folder
        self._servers = []

    def start(self, secure=False, name="somewhere.else", days=1):
        """With `secure` it signs its own certificate, for that name and so many days from now on."""
        certificate = self._certificate(name, days) if secure else None
        self._servers.append(AlertServer(certificate))
        return self._servers[-1]

    def _certificate(self, name, days):
        stem = self._folder / f"console-{len(self._servers)}"
        key, request, file = (stem.with_suffix(suffix) for suffix in (".key", ".csr", ".pem"))
        curve = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes")
        openssl("req", "-new", *curve, "-keyout", key, "-out", request, "-subj", f"/CN={name}")
        openssl("x509", "-req", "-in", request, "-key", key, "-out", file, "-days", days)
        file.write_text(file.read_text() + key.read_text())
        return file

    def close(self):
        for server in self._servers:
            server.close()


def destination(port, uri="/events", secure=False):
    """The payload by which the firmware names the console at this port of 127.0.0.1; an empty URI ends the subscription."""
    return struct.pack("<1024s1024sIHHI", b"127.0.0.1", uri.encode(), 0, port, 0, secure)


def subscribe(stage, port, uri="/events", secure=False):
    file = stage.workdir / "record"
    file.write_bytes(destination(port, uri, secure))
    stage.firmware.send("INDICATION_SUBSCRIBE", "--file", file)


def alert(stage, text):
    stage.firmware.send("INDICATION_EVENT", "--text", text)
