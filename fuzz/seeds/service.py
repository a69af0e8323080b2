"""What reaches a whole service: answers of the firmware, what Windows tells, sequences of commands."""

import struct

from corpus import block, long_block, number, seed

# --- the firmware's answers ---

QUERIES = {"version": 0, "domain": 1, "cloud": 2, "status": 3, "update": 4}
FAILS, ANY_ERROR, FILLED = 1, 2, 4


def answer(query, data, shape=0, error=None, fill=0x2A):
    return bytes([fill, QUERIES[query], shape]) + (number(error) if error is not None else b"") + long_block(data)


def version(level=50, text=b"5.0.0.100"):
    return text.ljust(64, b"\0") + number(2, 0, level, 0)


def answers():
    for name, data in {
        "version": answer("version", version()),
        "version-short": answer("version", version()[:70]),
        "version-long": answer("version", version() + b"more"),
        "version-without-end": answer("update", version(text=b"v" * 64)),
        "update": answer("update", version()),
        "update-old": answer("update", version(19, b"Not Available")),
        "update-failed": answer("update", b"", FAILS | ANY_ERROR, 1167),
        "domain": answer("domain", number(11) + b"example.com" + bytes(1269)),
        "domain-too-long": answer("domain", number(1281) + b"d" * 1280),
        "cloud": answer("cloud", b"host", FILLED | 0x80),
        "status": answer("status", b"\x02"),
        "status-empty": answer("status", b""),
        "status-refused": answer("status", b"", FAILS | ANY_ERROR, 31),
        "finding-error-that-is-none": answer("version", b"", FAILS | ANY_ERROR | FILLED, 0x0A000000),
    }.items():
        seed("answers", name, data)


# --- what Windows tells ---

MAC, ADDRESS, GATEWAY, DHCP, MORE = 1, 2, 4, 8, 16
CONNECTED = 5


def adapter(shape, kind=6, name=b"2F1B3C44-0E5D-4C39-9C6A-0D4C5F6E7A81", description=b"Ethernet"):
    data = bytes([shape]) + block(name) + block(description) + bytes([kind])
    if shape & ADDRESS:
        data += bytes([192, 168, 1, 10, 255, 255, 255, 0])
    if shape & GATEWAY:
        data += bytes([192, 168, 1, 1])
    if shape & DHCP:
        data += bytes([192, 168, 1, 1])
    data += number(1000000000) + bytes([CONNECTED])
    if shape & MORE:
        data += bytes([10, 0, 0, 1, 255, 0, 0, 0, 0])
    return data


def system(name=b"-7", domain=b"corp.example", major=10, edition=b"Professional"):
    return (
        block(name) + block(domain) + bytes([major, 0]) + struct.pack("<H", 22631) + struct.pack("<HH", 18, 9) + b"\x96"
        + b"\x01" + block(edition) + b"\x00\x00\x00"
    )  # fmt: skip


def pc(shape, adapters, rest):
    return bytes([shape, len(adapters)]) + b"".join(adapters) + (b"\xc0\xa8\x01\x35" if shape & 1 else b"") + rest


def platform():
    wired = adapter(MAC | ADDRESS | GATEWAY | DHCP)
    seed("platform", "wired", pc(1, [wired], system()))
    seed("platform", "none", pc(0, [], system()))
    seed("platform", "no-gateway", pc(1, [adapter(MAC | ADDRESS)], system()))
    seed("platform", "wireless", pc(1, [adapter(MAC | ADDRESS | GATEWAY, 71, description=b"Wi-Fi")], system()))
    seed("platform", "many", pc(1, [wired] * 7, system()))
    seed("platform", "more-addresses", pc(1, [adapter(MAC | ADDRESS | GATEWAY | MORE)], system()))
    seed("platform", "long-names", pc(1, [adapter(0x07, name=b"n" * 255, description=b"d" * 255)], system(b"c" * 129, b"d" * 255)))
    seed("platform", "no-wmi", pc(3, [wired], system(major=6)))


# --- sequences of commands ---

DASH_DATA, KVM_DATA, UPGRADE, SUBSCRIBE, EVENT, SLEEP, CYCLE, OFF, HIBERNATE, SOFT, REBOOT = range(11)
KVM_CLOSE, RESUME, KVM_ENABLE, KVM_PEER, CONSENT, CLOSE_SOCKET, FRAME, DISPLAY, CSR, PASSWORD, SAFEBOOT = range(11, 22)
OTHER, LONG, SHORT, REFUSE, RESIZE, PASS, CONTROL, LOCK, CONSOLE, VIEWER, PERSON = range(0x80, 0x8B)
LEVEL_50, LEVEL_45, LEVEL_40, LEVEL_31, LEVEL_30 = range(5)
SETTLE, FINISH, CLOSE, RESET = 1, 2, 4, 8


def message(command, payload=b""):
    return bytes([command]) + block(payload)


def passing(milliseconds):
    return bytes([PASS]) + struct.pack("<H", milliseconds)


def long_message(command, fill, half):
    return bytes([LONG, command, fill]) + struct.pack("<H", half)


def client(who, what, data=b""):
    return bytes([who, what]) + block(data)


def dispatch():
    for name, (level, steps) in {
        "short": (LEVEL_50, [bytes([SHORT, 8])]),
        "unknown": (LEVEL_50, [bytes([OTHER, 7]) + block(b""), bytes([OTHER, 53]) + block(b"x"), bytes([OTHER, 255, 0])]),
        "empty-payloads": (LEVEL_50, [message(c) for c in (DASH_DATA, KVM_DATA, UPGRADE, EVENT)]),
        "empty-payloads-of-records": (LEVEL_50, [message(c) for c in (KVM_PEER, CSR, PASSWORD)]),
        "full-buffer": (LEVEL_50, [long_message(8, 0x41, 65535), long_message(9, 0x42, 65535)]),
        "full-records": (LEVEL_50, [long_message(c, 0xFF, 65535) for c in (11, 39, 40, 50, 51)]),
        "power-latched": (LEVEL_50, [message(SLEEP), message(HIBERNATE), message(DASH_DATA, b"answer"), passing(2000)]),
        "power-off": (LEVEL_50, [message(OFF), message(DASH_DATA, b"answer")]),
        "power-soft": (LEVEL_50, [message(SOFT), message(DASH_DATA, b"answer"), message(CYCLE), message(DASH_DATA, b"a")]),
        "reboot": (LEVEL_50, [message(REBOOT)]),
        "resume": (LEVEL_50, [message(RESUME)]),
        "resume-old": (LEVEL_30, [message(RESUME), passing(100)]),
        "suspend-and-resume": (LEVEL_50, [bytes([CONTROL, 0]), message(KVM_DATA, b"x"), bytes([CONTROL, 1])]),
        "close-socket": (LEVEL_45, [message(CLOSE_SOCKET)]),
        "kvm-peer-unasked": (LEVEL_31, [message(KVM_PEER, number(0x0100007F, 5900))]),
        "kvm": (LEVEL_31, [message(KVM_ENABLE), message(KVM_PEER, number(0x0100007F, 5900)), message(KVM_CLOSE)]),
        "kvm-twice": (LEVEL_31, [message(KVM_ENABLE), message(KVM_ENABLE), message(KVM_CLOSE), message(KVM_ENABLE)]),
        "kvm-session": (
            LEVEL_31,
            [message(KVM_ENABLE), client(VIEWER, SETTLE, b"hello"), client(VIEWER, SETTLE, b"RFB 003.008\n"),
             message(KVM_DATA, b"picture"), client(VIEWER, FINISH | CLOSE), message(KVM_CLOSE)],
        ),
        "kvm-refused": (
            LEVEL_31,
            [message(KVM_ENABLE), client(VIEWER, SETTLE), bytes([REFUSE, 6, 0, 3]), client(VIEWER, SETTLE, b"keys")],
        ),
        "kvm-reset": (LEVEL_30, [message(KVM_ENABLE), client(VIEWER, SETTLE, b"x"), client(VIEWER, CLOSE | RESET)]),
        "safeboot": (LEVEL_50, [message(SAFEBOOT, number(1)), message(KVM_CLOSE), message(SAFEBOOT, number(2))]),
        "safeboot-unknown": (LEVEL_50, [message(SAFEBOOT, number(7)), message(SAFEBOOT), message(SAFEBOOT, b"\x01")]),
        "consent-locked": (LEVEL_40, [bytes([LOCK, 1]), message(CONSENT, number(1, 30)), passing(3000)]),
        "consent-old": (LEVEL_30, [message(CONSENT, number(1, 30)), message(CONSENT, number(0, 0))]),
        "consent-yes": (
            LEVEL_40,
            [bytes([LOCK, 0]), message(CONSENT, number(1, 30)), passing(1), bytes([PERSON]) + block(b"Consent_yes\0"), passing(3000)],
        ),
        "consent-other": (
            LEVEL_40,
            [message(CONSENT, number(2, 5)), passing(1), bytes([PERSON]) + block(b"maybe"), passing(3000), bytes([PERSON]) + block(b"Consent_no\r\n")],
        ),
        "consent-twice": (LEVEL_50, [message(CONSENT, number(1, 90)), message(CONSENT, b"\x02"), message(CONSENT)]),
        "console": (LEVEL_45, [client(CONSOLE, SETTLE, b"\x16\x03\x01"), message(DASH_DATA, b"answer"), client(CONSOLE, CLOSE)]),
        "console-idle": (LEVEL_45, [client(CONSOLE, SETTLE), passing(6000), client(CONSOLE, SETTLE, b"late")]),
        "console-refused": (LEVEL_45, [bytes([REFUSE, 3, 1, 0]), client(CONSOLE, SETTLE, b"x")]),
        "console-closed-by-firmware": (LEVEL_45, [client(CONSOLE, SETTLE, b"x"), message(CLOSE_SOCKET)]),
        "firmware-faults": (LEVEL_50, [bytes([REFUSE, 0, 1, 2]), message(RESUME), bytes([RESIZE, 1, 7]), message(RESUME)]),
    }.items():  # fmt: skip
        others = any(step[0] in (CONSOLE, VIEWER, PERSON) for step in steps)
        seed("sessions" if others else "dispatch", name, bytes([level]) + b"".join(steps))
