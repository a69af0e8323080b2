"""The control sockets of the simulated PC and of the simulated firmware: one line of JSON asks, another answers."""

import json
import socket


def ask(path, request, patience=30.0):
    with socket.socket(socket.AF_UNIX) as connection:
        connection.settimeout(patience)
        connection.connect(str(path))
        connection.sendall(json.dumps(request).encode() + b"\n")
        received = bytearray()
        while not received.endswith(b"\n"):
            part = connection.recv(1 << 16)
            assert part, f"{path} gave no answer to {request}"
            received += part
    answer = json.loads(received)
    assert "error" not in answer, f"{request}: {answer['error']}"
    return answer
