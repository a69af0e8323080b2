"""Bytes on their way: connections that send and receive at once, and what may have become of the bytes at the other end."""

import random
import select
import socket
import struct
import time

from harness.waiting import Overdue

PATIENCE = 30.0
TICK = 0.003  # seconds


class Stream:
    """One end of a connection, with what it still has to send and what it has received."""

    def __init__(self, connection):
        self.socket = connection
        self.socket.setblocking(False)
        self.received = bytearray()
        self.sent = 0
        self.ended = None  # how: "closed" or "reset"
        self._outgoing = memoryview(b"")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    @property
    def port(self):
        return self.socket.getsockname()[1]

    @property
    def all_sent(self):
        return not self._outgoing

    def say(self, data):
        assert self.all_sent
        self._outgoing = memoryview(data)

    def take_received(self):
        received, self.received = bytes(self.received), bytearray()
        return received

    def move(self, readable, writable):
        try:
            if writable and self._outgoing:
                count = self.socket.send(self._outgoing[:1 << 18])
                self.sent += count
                self._outgoing = self._outgoing[count:]
            if readable:
                block = self.socket.recv(1 << 18)
                self.received += block
                if not block:
                    self.ended = "closed"
        except BlockingIOError:
            pass
        except ConnectionError:
            self.ended = "reset"
            self._outgoing = memoryview(b"")

    def half_close(self):
        self.socket.shutdown(socket.SHUT_WR)

    def reset(self):
        """Ends it without a farewell; what is under way is lost."""
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()

    def close(self):
        self.socket.close()


def pump(streams, done, what, patience=PATIENCE):
    """Lets the streams send and receive until done() holds. True then; False when one of them has ended before."""
    deadline = time.monotonic() + patience
    while not done():
        if any(stream.ended for stream in streams):
            return False
        if time.monotonic() > deadline:
            state = ", ".join(f"{stream.sent} bytes sent and {len(stream.received)} received" for stream in streams)
            raise Overdue(f"waited {patience:.0f} s for {what}; {state}")
        busy = [stream.socket for stream in streams if not stream.all_sent]
        readable, writable, _ = select.select([stream.socket for stream in streams], busy, [], TICK)
        for stream in streams:
            stream.move(stream.socket in readable, stream.socket in writable)
    return True


def await_end(stream, what, patience=PATIENCE):
    """Waits until the other side ends the connection."""
    if not stream.ended:
        pump([stream], lambda: stream.ended is not None, what, patience)


def connect(address, source="127.0.0.1"):
    return Stream(socket.create_connection(address, PATIENCE, source_address=(source, 0)))


class Listener:
    """A real server behind the firmware, to which it brings its consoles."""

    def __init__(self):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._listener.settimeout(PATIENCE)
        self.peer = f"bridge:127.0.0.1:{self._listener.getsockname()[1]}"

    def accept(self, streams=()):
        """The next connection, while these streams go on sending and receiving; None when one of them has ended before."""
        deadline = time.monotonic() + PATIENCE
        while not select.select([self._listener], [], [], TICK if streams else PATIENCE)[0]:
            if time.monotonic() > deadline:
                raise Overdue(f"waited {PATIENCE:.0f} s for the firmware to reach its server")
            for stream in streams:
                stream.move(True, True)
            if any(stream.ended for stream in streams):
                return None
        return Stream(self._listener.accept()[0])

    def forget(self):
        """Drops connections that were not taken."""
        self._listener.setblocking(False)
        try:
            while True:
                self._listener.accept()[0].close()
        except BlockingIOError:
            self._listener.settimeout(PATIENCE)

    def close(self):
        self._listener.close()


def content(seed, size):
    """Bytes that contain their own place."""
    return random.Random(seed).randbytes(size)


class Altered(AssertionError):
    """Bytes that arrived otherwise than they were sent."""


def same(received, sent, what):
    if received != sent:
        place = next((n for n, (a, b) in enumerate(zip(received, sent)) if a != b), min(len(received), len(sent)))
        raise Altered(f"{what}: {len(received)} bytes arrived of {len(sent)}, and differ from byte {place} on")
