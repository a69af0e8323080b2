"""Where a seed goes, and the pieces of which the binary ones are made."""

import pathlib
import struct

CORPUS = pathlib.Path(__file__).resolve().parent.parent / "corpus"
# Inputs that once showed a defect. They stay as they were found.
FINDING = "finding-"

_seeds = {}


def seed(target, name, data):
    _seeds[target, name] = data if isinstance(data, bytes) else data.encode()


def write():
    """Writes all seeds and removes the files that no seed has any more."""
    for (target, name), data in _seeds.items():
        (CORPUS / target).mkdir(parents=True, exist_ok=True)
        (CORPUS / target / name).write_bytes(data)
    for path in _left_over():
        path.unlink()


def differences():
    """Returns a sentence for each file of the corpus that is not as the seeds would write it."""
    found = []
    for (target, name), data in sorted(_seeds.items()):
        path = CORPUS / target / name
        if not path.exists():
            found.append(f"seed {target}/{name} is missing")
        elif path.read_bytes() != data:
            found.append(f"seed {target}/{name} differs from what the scripts write")
    return found + [f"{path.parent.name}/{path.name} is the seed of nothing" for path in _left_over()]


def _left_over():
    return sorted(
        path
        for path in CORPUS.glob("*/*")
        if (path.parent.name, path.name) not in _seeds and not path.name.startswith(FINDING)
    )


def block(data):
    return bytes([len(data)]) + data


def long_block(data):
    return struct.pack("<H", len(data)) + data


def number(*values):
    return b"".join(struct.pack("<I", value) for value in values)
