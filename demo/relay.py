"""Carries connections from a port of this machine to the same port of a network of its own.

Both ends forward through a Unix socket, which belongs to no network. The outer end is a process of its own, because it has to
stay outside when the other one enters its network.
"""

import contextlib
import pathlib
import socket
import subprocess
import sys
import threading

BLOCK = 1 << 16


def copy(source, target):
    with contextlib.suppress(OSError):
        while block := source.recv(BLOCK):
            target.sendall(block)
    with contextlib.suppress(OSError):
        target.shutdown(socket.SHUT_WR)


def carry(near, connect):
    """One connection, in both directions, until both have ended."""
    with near, contextlib.suppress(OSError), connect() as far:
        back = threading.Thread(target=copy, args=(far, near), daemon=True)
        back.start()
        copy(near, far)
        back.join()


def serve(listener, connect):
    while True:
        try:
            near, _ = listener.accept()
        except OSError:
            return  # closed
        threading.Thread(target=carry, args=(near, connect), daemon=True).start()


def serve_in_background(listener, connect):
    threading.Thread(target=serve, args=(listener, connect), daemon=True).start()


def connect_to_path(path):
    connection = socket.socket(socket.AF_UNIX)
    connection.connect(str(path))
    return connection


class Relay:
    """Made outside the network, joined inside it."""

    def __init__(self, path):
        self._path = path
        self._outer = subprocess.Popen([sys.executable, __file__, path], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                       start_new_session=True)
        self._inner = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._outer.stdin.close()  # ends it
        self._outer.wait(10)
        if self._inner:
            self._inner.shutdown(socket.SHUT_RDWR)
            self._inner.close()

    def join(self, port):
        """From now on the port of this machine reaches that of the network. Raises OSError when it is taken."""
        self._inner = socket.socket(socket.AF_UNIX)
        self._inner.bind(str(self._path))
        self._inner.listen()
        serve_in_background(self._inner, lambda: socket.create_connection(("127.0.0.1", port)))
        self._outer.stdin.write(f"{port}\n")
        self._outer.stdin.flush()
        answer = self._outer.stdout.readline().strip()
        if answer != "ready":
            raise OSError(f"port {port} of this machine: {answer}")


def main(path):
    """The outer end: reads the port, and ends with its input."""
    port = sys.stdin.readline().strip()
    if not port:
        return
    try:
        listener = socket.create_server(("127.0.0.1", int(port)))
    except OSError as problem:
        print(problem, flush=True)
        return
    serve_in_background(listener, lambda: connect_to_path(path))
    print("ready", flush=True)
    sys.stdin.read()


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
