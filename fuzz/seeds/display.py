"""The seeds of the targets around the screen's capture: the agent, the media runtime, and the display driver."""

from corpus import block, long_block, number, seed

_FOUND = bytes(8)  # of the driver's functions
_DONE = b"\x00"
_REFUSED = b"\x03"


def _step(context, core, private, name, output):
    """One set-up of an escape, and an escape. `private` is the data of a driver that has some, else None."""
    queries = block(b"") + _REFUSED
    if private is not None:
        engines, cores = private
        queries = block(bytes(8) + number(1)) + _DONE + block(b"") + block(engines) + number(cores) + _DONE
    made = b"\x09" + _DONE if context else b""
    return (
        bytes([context, core]) + b"\x01" + _DONE + b"\x02" + _DONE + queries + block(number(0) + name.encode("utf-16-le")) + _DONE
        + made + bytes([3, len(output), 7]) + long_block(output) + _DONE
    )  # fmt: skip


def escapes():
    path = "C:\\Windows\\driver.dll"
    seed("escape", "plain", _FOUND + _step(0, 0, None, path, b"answer"))
    seed("escape", "private", _FOUND + _step(2, 0, (b"\x29\x30", 2), path, b"answer"))
    seed("escape", "context", _FOUND + _step(3, 1, (b"\x31", 2), path, bytes(200)))
    seed("escape", "twice", _FOUND + _step(1, 0, (b"\x29", 1), "/", b"") + _step(0, 0, None, "", b"x"))
    opened = b"\x00\x00\x01\x00\x02\x00"
    seed("escape", "no-query", bytes([0, 0, 0, 0, 0, 0, 7, 0]) + opened + bytes([0, 4, 1]) + long_block(b"1234"))
    seed("escape", "no-adapter", _FOUND + b"\x00\x00\x00\x03")


def _attempt(things, codec, rate, rest=b""):
    return things + bytes([codec, 0, rate, 0x80, 0x07, 0x38, 0x04]) + rest


def runtimes():
    seed("runtime", "frames", _attempt(b"\x00", 0, 30, bytes(24) + b"\x03" + bytes(40)))
    seed("runtime", "hevc", _attempt(b"\x00", 2, 0, bytes(60)))
    seed("runtime", "avc", _attempt(b"\x00", 1, 30, bytes(60)))
    seed("runtime", "full", _attempt(b"\x14", 0, 30, bytes(24) + b"\x03" + bytes(60)))
    seed("runtime", "refused", _attempt(b"\x00", 0, 30, b"\x86" * 6) * 4)
    seed("runtime", "null", _attempt(b"\x00", 0, 30, b"\xa0" * 6) * 4)
    screen = b"\x01" + b"\x0a" + number(640, 480) + b"\x01\x00"
    seed("runtime", "sizes", _attempt(screen, 0, 30, bytes(24) + b"\x03" + screen * 3 + bytes(60)))
    seed("runtime", "no-factory", _attempt(b"\xc0", 0, 30) * 2)


def agents():
    config = number(1, 1920, 1080, 0)
    seed("agentpipe", "config", b"\0" + long_block(config))
    seed("agentpipe", "config-and-leaves", b"\2" + long_block(config))
    seed("agentpipe", "ended-by-the-service", b"\4" + long_block(config))
    seed("agentpipe", "another-message", b"\0" + long_block(number(7, 1920, 1080, 0)))
    for size in (0, 3, 15, 17, 600):
        seed("agentpipe", f"{size}-bytes", b"\0" + long_block((config + bytes(600))[:size]))
    seed("agentpipe", "three-messages", b"\0" + long_block(config) * 3)
    seed("agentpipe", "short-then-whole", b"\0" + long_block(config[:4]) + long_block(config))
    seed("agentpipe", "silent", b"\0")
    seed("agentpipe", "leaves-in-silence", b"\2")
    seed("agentpipe", "never-connects", b"\1")
