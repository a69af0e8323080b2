"""A WebSocket client (RFC 6455) that can also break the rules, for the page that mpmsim serves."""

import base64
import json
import os
import socket
import struct
import time
import urllib.parse

UNAWAITED = 0  # the number of a question whose answer does not matter
TEXT, BINARY, CLOSE, PING, PONG = 1, 2, 8, 9, 10


class Refused(Exception):
    """The server answered with another status than that of a WebSocket; its number is `status`."""

    def __init__(self, status):
        super().__init__(f"HTTP status {status}")
        self.status = status


def exchange(url, request, patience=10):
    """Sends raw bytes to the URL's host and returns all that comes until the server closes or falls silent."""
    place = urllib.parse.urlsplit(url)
    with socket.create_connection((place.hostname, place.port), patience) as connection:
        connection.sendall(request)
        received = b""
        try:
            while block := connection.recv(65536):
                received += block
        except (TimeoutError, ConnectionResetError):
            pass
        return received


class WebSocket:
    """`headers` replace those of a browser; None leaves one out."""

    def __init__(self, url, path="events", protocol="zel-lab", headers=None, receive_buffer=None, patience=20):
        place = urllib.parse.urlsplit(url)
        self._socket = socket.socket(socket.AF_INET6 if ":" in place.hostname else socket.AF_INET)
        if receive_buffer:
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self._socket.settimeout(patience)
        self._socket.connect((place.hostname, place.port))
        sent = {
            "Host": place.netloc, "Origin": f"http://{place.netloc}", "Upgrade": "websocket", "Connection": "Upgrade",
            "Sec-WebSocket-Key": base64.b64encode(os.urandom(16)).decode(), "Sec-WebSocket-Version": "13",
            "Sec-WebSocket-Protocol": protocol, **(headers or {}),
        }
        lines = [f"GET {place.path}{path} HTTP/1.1", *(f"{name}: {value}" for name, value in sent.items() if value is not None)]
        self._socket.sendall("\r\n".join([*lines, "", ""]).encode())
        self._received = b""
        status = self._head()
        if status != 101:
            self.close()
            raise Refused(status)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _head(self):
        while b"\r\n\r\n" not in self._received:
            block = self._socket.recv(65536)
            if not block:
                return 0
            self._received += block
        head, self._received = self._received.split(b"\r\n\r\n", 1)
        return int(head.split()[1])

    def _take(self, size):
        while len(self._received) < size:
            block = self._socket.recv(1 << 20)
            if not block:
                raise ConnectionError("the server has closed the connection")
            self._received += block
        taken, self._received = self._received[:size], self._received[size:]
        return taken

    # --- frames ---

    def send_raw(self, data):
        self._socket.sendall(data)

    def send_frame(self, kind, payload, final=True):
        size = len(payload)
        head = bytes([kind | (0x80 if final else 0)])
        if size < 126:
            head += bytes([0x80 | size])
        elif size < 65536:
            head += bytes([0x80 | 126]) + struct.pack(">H", size)
        else:
            head += bytes([0x80 | 127]) + struct.pack(">Q", size)
        mask = os.urandom(4)
        whole = (mask * (size // 4 + 1))[:size]
        self.send_raw(head + mask + (int.from_bytes(payload, "big") ^ int.from_bytes(whole, "big")).to_bytes(size, "big"))

    def receive_frame(self):
        """(kind, whether it is the last of its message, payload)"""
        first, second = self._take(2)
        size = second & 0x7F
        if size == 126:
            size = struct.unpack(">H", self._take(2))[0]
        elif size == 127:
            size = struct.unpack(">Q", self._take(8))[0]
        return first & 15, bool(first & 0x80), self._take(size)

    def receive(self):
        """The next message: a text, or bytes. ConnectionError at the end of the connection."""
        kind, message = None, b""
        while True:
            frame, last, payload = self.receive_frame()
            if frame == CLOSE:
                raise ConnectionError(f"closed with {struct.unpack('>H', payload[:2])[0] if payload else None}")
            if frame == PING:
                self.send_frame(PONG, payload)
            if frame >= CLOSE:
                continue
            kind = frame or kind
            message += payload
            if last:
                return message.decode() if kind == TEXT else message

    def send(self, text):
        self.send_frame(TEXT, text.encode())

    def close(self):
        self._socket.close()


class LabPage(WebSocket):
    """The page's side of the protocol in docs/lab.md. What comes unasked is kept until it is looked at."""

    def __init__(self, url, **connection):
        super().__init__(url, **connection)
        self._last = 0
        self.wire, self.log, self.frames = [], [], []
        self.dropped = {"wire": 0, "log": 0}
        self.news = {}  # the newest of host, state, screen

    def take(self):
        """Receives one message; returns it if it is an answer."""
        message = self.receive()
        if isinstance(message, bytes):
            self.frames.append(message)
            return None
        message = json.loads(message)
        if "id" in message:
            return message
        for kind, count in message.get("dropped", {}).items():
            self.dropped[kind] += count
        self.wire += message.get("wire", [])
        self.log += message.get("log", [])
        self.news.update({name: message[name] for name in ("host", "state", "screen") if name in message})
        return None

    def ask(self, verb, **members):
        """The whole answer."""
        self._last += 1
        self.send(json.dumps({"id": self._last, "do": verb, **members}))
        while True:
            answer = self.take()
            if answer and answer["id"] != UNAWAITED:
                assert answer["id"] == self._last
                return answer

    def post(self, verb, **members):
        """Asks, and passes over the answer when it comes."""
        self.send(json.dumps({"id": UNAWAITED, "do": verb, **members}))

    def do(self, verb, **members):
        """The result; a refusal fails the test."""
        answer = self.ask(verb, **members)
        assert answer["ok"], answer["error"]
        return answer["result"]

    def refusal(self, verb, **members):
        """Why it is refused."""
        answer = self.ask(verb, **members)
        assert not answer["ok"], answer
        return answer["error"]

    def await_news(self, has_come, what, patience=20):
        """Takes messages until has_come() is true, and returns that."""
        deadline = time.monotonic() + patience
        while not (value := has_come()):
            assert time.monotonic() < deadline, f"waited {patience} s for {what}"
            answer = self.take()
            assert answer is None or answer["id"] == UNAWAITED
        return value
