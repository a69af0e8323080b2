"""Records, frames and pipes: what goes between the host and the firmware, and between two programs of the PC."""

import struct

import tables
from corpus import block, long_block, number, seed

# --- records of the mailbox, as hosts send them: the function number of the request, then the bytes ---

# Where the smallest input of a request would show little.
INPUT_SIZES = {"WriteDASHPacket": 40, "WriteKVMPacket": 40, "WriteEncodedBuffer": 64, "WriteCSRResponse": 200}
ANY_CODE = b"\xff"  # the code itself follows
REQUEST = 0
MESSAGE = 1


def host_records():
    for row in tables.requests():
        name = row["name"]
        size = INPUT_SIZES.get(name, row["input"]["minSize"])
        pattern = bytes((7 * i + 1) & 0xFF for i in range(size))
        seed("hostrecords", f"request-{name}", bytes([tables.function(name), REQUEST]) + pattern)
    for row in tables.commands():
        if row["payload"]["fields"]:
            data = ANY_CODE + number(row["number"]) + bytes([MESSAGE]) + b"text of a command" * 4
            seed("hostrecords", f"command-{row['name']}", data)
    seed("hostrecords", "unknown-code", ANY_CODE + number(0x9C41ABCC) + bytes([REQUEST]) + b"bytes")


# --- frames of the mailbox's link ---

REQUEST_FRAME, RESPONSE_FRAME, CANCEL_FRAME, LISTEN_FRAME, MESSAGE_FRAME = 1, 2, 3, 4, 5
HEADER = "<IIIII"
ANY_REQUEST = "WriteDASHPacket"  # where the code means nothing


def frame(kind, ident=0, code=0, value=0, payload=b"", size=None):
    return struct.pack(HEADER, len(payload) if size is None else size, kind, ident, code, value) + payload


def gate_frames():
    response = frame(RESPONSE_FRAME, 1, tables.code("GetZELVersion"), 0, b"answer")
    message = frame(MESSAGE_FRAME, payload=b"payload\x08\0")
    seed("gateframes", "frames", b"\xff" + response + message)
    seed("gateframes", "pieces", b"\x02" + response + message)
    seed("gateframes", "too-long", b"\xff" + frame(MESSAGE_FRAME, size=0x100001))
    seed("gateframes", "cut", b"\xff" + response[:-3])


def cloud_frames():
    def cloud_frame(kind, stream=0, payload=b"", size=None):
        return struct.pack(">BII", kind, stream, len(payload) if size is None else size) + payload

    session = b"".join((cloud_frame(2, 1, b"WINHOST-PC:664"), cloud_frame(5, 1, b"bytes"), cloud_frame(7, 1, b"\0\0\0\5"),
                        cloud_frame(6, 1)))
    seed("cloudframes", "session", b"\xff" + session)
    seed("cloudframes", "pieces", b"\x01" + session)
    seed("cloudframes", "too-long", b"\xff" + cloud_frame(8) + cloud_frame(5, 1, size=16385))
    seed("cloudframes", "cut", b"\xff" + session[:-4])


def cloud_streams():
    hello, opening, opened, data, close, credit, ping = 1, 2, 3, 5, 6, 7, 8

    def step(kind, stream=1, repeats=0, payload=b""):
        return bytes([kind, stream, repeats]) + block(payload)

    dash, kvm, other_port, other_host, text = range(5)  # of a target
    for name, steps in {
        "session": [step(opening, repeats=dash), step(data, payload=b"request"), step(ping), step(data, payload=b"more"),
                    step(close), step(ping)],
        "refused": [step(opening, stream, target) for stream, target in enumerate((kvm, other_port, other_host))],
        "targets": [step(opening, 1, text, target) for target in (b"", b":", b"PC", b"PC:", b"PC:664:664", b"PC: 664", b"\0:664")],
        "window": [step(opening, repeats=dash), *[step(data, repeats=255, payload=b"d" * 255)] * 20],
        "window-unread": [step(opening, repeats=dash), step(credit, payload=b"\xff" * 4), step(credit, payload=b"\0" * 4),
                          *[step(data, repeats=63, payload=b"d" * 255)] * 16, step(credit, payload=b"\0\0\x40\0")],
        "twice": [step(opening, repeats=dash), step(opening, repeats=dash), step(close), step(opening, repeats=dash), step(close)],
        "unopened": [step(data, payload=b"d"), step(close), step(credit, payload=b"\0\0\0\1"), step(ping)],
        "several": [*[step(opening, stream, dash) for stream in range(4)],
                    *[step(data, stream, 9, b"d" * 99) for stream in range(4)], step(close, 2)],
        "unknown": [step(opening, repeats=dash), step(hello)],
        "not-the-clouds": [step(opened), step(ping)],
    }.items():
        seed("cloudstreams", name, b"".join(steps))


def host_frame(kind, ident, request, room, payload=b""):
    return bytes([kind, ident, tables.function(request)]) + struct.pack("<H", room) + long_block(payload)


def link():
    for name, frames in {
        "version": [host_frame(REQUEST_FRAME, 1, "GetZELVersion", 80)],
        "no-room": [host_frame(REQUEST_FRAME, 1, "GetZELVersion", 79)],
        "status": [host_frame(REQUEST_FRAME, 1, "WriteZELStatus", 0, number(1)), host_frame(REQUEST_FRAME, 2, "GetMPMStatus", 1)],
        "wrong-size": [host_frame(REQUEST_FRAME, 1, "WriteZELStatus", 0, b"abc")],
        "listen": [host_frame(LISTEN_FRAME, 0, ANY_REQUEST, 0), host_frame(LISTEN_FRAME, 0, ANY_REQUEST, 0)],
        "cancel": [host_frame(CANCEL_FRAME, 7, ANY_REQUEST, 0)],
        "not-a-hosts": [host_frame(RESPONSE_FRAME, 1, ANY_REQUEST, 0)],
        "connection": [
            host_frame(REQUEST_FRAME, 1, "WriteIPCompleteInformation", 0, bytes(36)),
            host_frame(REQUEST_FRAME, 2, "WriteDASHPacket", 0, b"dash bytes"),
            host_frame(REQUEST_FRAME, 3, "WriteCloseSocketcmd", 0, b"\x98\x02"),
        ],
    }.items():
        seed("link", name, bytes([len(frames)]) + b"".join(frames))
    seed("link", "too-long", b"\0" + frame(REQUEST_FRAME, size=0x100001))
    seed("link", "cut", b"\0" + frame(REQUEST_FRAME, payload=b"abcdef")[:-2])


# --- chunks of encoded frames ---

HEAD, BYTES, FRAME, RESET = b"\0", b"\x01", b"\x02", b"\x03"
FULL = 524288


def frames():
    for name, steps in {
        "one-chunk": [FRAME + number(4999)],
        "full-chunk": [FRAME + number(FULL - 1)],
        "two-chunks": [FRAME + number(FULL)],
        "too-large": [FRAME + number(2 * 1024 * 1024), HEAD + number(8, FULL, 4000000, FULL)],
        "failed-capture": [HEAD + number(8192, 0, 0, 0), HEAD + number(8191, 0, 0, 0), FRAME + number(10)],
        "early-frame": [HEAD + number(2, FULL - 1, FULL - 1, FULL - 1), HEAD + number(1, 7, 7, 7)],
        "short-chunk": [HEAD + number(1, 6, 7, 6), HEAD + number(1, 7, 7, 6)],
        "short-head": [BYTES + block(b"12345678901"), FRAME + number(3)],
        "huge-counts": [HEAD + number(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 1), RESET, FRAME + number(3)],
    }.items():
        seed("frames", name, b"".join(steps))


READ, ASK, CANCEL, RAW, SEND = 0, 2, 4, 5, 6


def firmware_frame(kind, ident, error, payload=b""):
    return bytes([SEND, kind, ident, error]) + long_block(payload)


def ask(room):
    return bytes([ASK]) + struct.pack("<H", room)


def read(room):
    return bytes([READ]) + struct.pack("<H", room)


def device():
    for name, steps in {
        "answer": [ask(80), firmware_frame(RESPONSE_FRAME, 1, 0, b"x" * 80)],
        "answer-too-long": [ask(8), firmware_frame(RESPONSE_FRAME, 1, 0, b"x" * 300)],
        "error": [ask(8), firmware_frame(RESPONSE_FRAME, 1, 31, b"x" * 8)],
        "out-of-order": [ask(8), ask(8), firmware_frame(RESPONSE_FRAME, 2, 0, b"b"), firmware_frame(RESPONSE_FRAME, 1, 0)],
        "not-asked": [firmware_frame(RESPONSE_FRAME, 9, 0, b"x"), ask(4), firmware_frame(RESPONSE_FRAME, 1, 0, b"y")],
        "messages": [read(16), read(4), firmware_frame(MESSAGE_FRAME, 0, 0, b"abc\x08\0"),
                     firmware_frame(MESSAGE_FRAME, 0, 0, b"long one")],
        "cancelled": [ask(8), read(8), bytes([CANCEL]), firmware_frame(RESPONSE_FRAME, 1, 0, b"late")],
        "answer-cut": [ask(64), bytes([RAW]) + block(frame(RESPONSE_FRAME, 1, 0, 0, b"1234", size=8))],
        "not-a-firmwares": [ask(8), firmware_frame(REQUEST_FRAME, 1, 0)],
        "too-long": [ask(8), bytes([RAW]) + block(frame(RESPONSE_FRAME, 1, size=0x100001))],
        "finding-message-where-nobody-listens": [ask(8), firmware_frame(MESSAGE_FRAME, 0, 0, b"x")],
    }.items():  # fmt: skip
        seed("device", name, b"".join(steps))


# --- pipes ---

# The kinds of a pipe's packets.
DATA, PROGRESS, DISCONNECT = b"\0", b"\x01", b"\x02"


def piped(room, *packets):
    return struct.pack("<HB", room, len(packets)) + b"".join(long_block(packet) for packet in packets)


def pipes():
    seed("pipe", "messages", piped(64, DATA + b"first", DATA + b"second"))
    seed("pipe", "small-room", piped(4, DATA + b"0123456789", DATA))
    seed("pipe", "no-room", piped(0, DATA + b"text"))
    seed("pipe", "empty-message", piped(8, DATA, DATA + b"text"))
    seed("pipe", "progress", piped(8, PROGRESS + number(5, 1), DATA + b"text", PROGRESS + b"\xff" * 8))
    seed("pipe", "progress-cut", piped(8, PROGRESS + b"\x01", DATA + b"text"))
    seed("pipe", "disconnect", piped(8, DATA + b"never read", DISCONNECT, DATA + b"late"))
    seed("pipe", "unknown-kind", piped(8, b"\x7fnothing", DATA + b"text"))
