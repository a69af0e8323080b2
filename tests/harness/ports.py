"""Ports for tests that run side by side."""

import random
import socket

_reservations = []


def free_port():
    """One that is free, and no other test takes as long as this process lives: tests use a port some time after they
    have chosen it. Below the ports that the kernel gives to clients."""
    while True:
        port = random.randrange(10000, 30000)
        reservation = socket.socket(socket.AF_UNIX)
        try:
            reservation.bind(f"\0zel-port-{port}")
            with socket.socket() as probe:
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                probe.bind(("0.0.0.0", port))
        except OSError:
            reservation.close()
            continue
        _reservations.append(reservation)
        return port
