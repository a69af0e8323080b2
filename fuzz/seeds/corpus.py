"""Where a seed goes, and the pieces of which the binary ones are made."""

import pathlib
import struct

CORPUS = pathlib.Path(__file__).resolve().parent.parent / "corpus"


def seed(target, name, data):
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(data if isinstance(data, bytes) else data.encode())


def block(data):
    return bytes([len(data)]) + data


def long_block(data):
    return struct.pack("<H", len(data)) + data


def number(*values):
    return b"".join(struct.pack("<I", value) for value in values)
