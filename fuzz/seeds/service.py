"""What reaches a whole service: answers of the firmware, what Windows reports, sequences of commands."""

import struct

import tables
from corpus import block, long_block, number, seed

# --- the firmware's answers ---

QUERIES = {"version": 0, "domain": 1, "cloud": 2, "status": 3, "update": 4}
FAILS, ANY_ERROR, FILLED = 1, 2, 4


def answer(query, data, shape=0, error=None, fill=0x2A):
    return bytes([fill, QUERIES[query], shape]) + (number(error) if error is not None else b"") + long_block(data)


def version(level=50, text=b"5.0.0.100"):
    return text.ljust(64, b"\0") + number(2, 0, level, 0)


CLOUD_FILES = b"\x2a\x80"  # instead of a query: both records of the cloud


def cloud_record(host=b"cloud.example.com", port=4433, sizes=(11, 3, 9)):
    texts = (b"certificate", b"key", b"authority")
    return host.ljust(256, b"\0") + number(port, 0) + b"".join(
        text.ljust(4096, b"t") + number(size) for text, size in zip(texts, sizes))


def cloud_files(cloud, domains, shape=0):
    text = number(len(domains)) + domains
    return CLOUD_FILES + bytes([shape]) + long_block(cloud) + b"\0" + long_block(text.ljust(1284, b"\0"))


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
        "cloud-files": cloud_files(cloud_record(), b"corp.example.com\\lab.example.com\\"),
        "cloud-files-whole": cloud_files(cloud_record(b"h" * 256, 70000, (4096, 4096, 4096)), b"d" * 1280),
        "cloud-files-too-long": cloud_files(cloud_record(sizes=(11, 4097, 9)), b"a"),
        "cloud-files-huge": cloud_files(cloud_record(sizes=(0xFFFFFFF0, 3, 9)), b"a"),
        "cloud-files-without-port": cloud_files(cloud_record(port=0), b"a"),
        "cloud-files-empty": cloud_files(b"", b""),
        "finding-error-that-is-none": answer("version", b"", FAILS | ANY_ERROR | FILLED, 0x0A000000),
    }.items():
        seed("answers", name, data)


# --- what Windows reports ---

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

OTHER, LONG, SHORT, REFUSE, RESIZE, PASS, CONTROL, LOCK, CONSOLE, VIEWER, PERSON, RECORD = range(0x80, 0x8C)
SETTLE, FINISH, CLOSE, RESET = 1, 2, 4, 8
MESSAGES = 64  # numbers from here on need OTHER


def message(command, payload=b""):
    value = tables.command(command)
    return (bytes([value]) if value < MESSAGES else bytes([OTHER, value])) + block(payload)


def passing(milliseconds):
    return bytes([PASS]) + struct.pack("<H", milliseconds)


def long_message(command, fill, half):
    return bytes([LONG, tables.command(command), fill]) + struct.pack("<H", half)


def record(command, size, fields):
    """Zeros, with these fields at their offsets."""
    pieces = b"".join(struct.pack("<H", offset) + block(data) for offset, data in fields.items())
    return bytes([RECORD, tables.command(command)]) + struct.pack("<HB", size, len(fields)) + pieces


def destination(host, uri, port=80, secure=0, size=2060):
    return record("INDICATION_SUBSCRIBE", size, {0: host, 1024: uri, 2052: struct.pack("<HHI", port, 0, secure)})


def request(authority=b"Example Root", csr=b"a request", size=None, whole=4296):
    return record("CSR", whole, {0: b"ca.example.test", 64: authority, 128: b"Machine",
                                 192: number(len(csr) if size is None else size) + csr})


def passwords(old, new, size=256):
    return record("AD_SERVICE_PWD_UPDATE_CMD", size, {0: old, 128: new})


def refuse(request, error, times):
    return bytes([REFUSE, tables.function(request), error, times])


def resize(request, size):
    return bytes([RESIZE, tables.function(request), size])


def client(who, what, data=b""):
    return bytes([who, what]) + block(data)


def dispatch():
    for name, (level, steps) in {
        "short": (50, [bytes([SHORT, tables.command("DASH_DATA")])]),
        "unknown": (50, [bytes([OTHER, 7]) + block(b""), bytes([OTHER, 53]) + block(b"x"), bytes([OTHER, 255, 0])]),
        "empty-payloads": (50, [message(c) for c in ("DASH_DATA", "KVM_DATA", "SOFTWARE_UPGRADE", "INDICATION_EVENT")]),
        "empty-payloads-of-records": (50, [message(c) for c in ("KVM_IP_PORT_INFO", "CSR", "AD_SERVICE_PWD_UPDATE_CMD")]),
        "full-buffer": (50, [long_message("DASH_DATA", 0x41, 65535), long_message("KVM_DATA", 0x42, 65535)]),
        "full-records": (50, [long_message(c, 0xFF, 65535) for c in ("INDICATION_SUBSCRIBE", "KVM_IP_PORT_INFO", "GET_KVM_CONSENT",
                                                                     "CSR", "AD_SERVICE_PWD_UPDATE_CMD")]),
        "power-latched": (50, [message("HOST_SLEEP_LIGHT"), message("HOST_HIBERNATE"), message("DASH_DATA", b"answer"),
                               passing(2000)]),
        "power-off": (50, [message("HOST_OFF_HARD"), message("DASH_DATA", b"answer")]),
        "power-soft": (50, [message("HOST_OFF_SOFT_GRACE"), message("DASH_DATA", b"answer"), message("HOST_CYCLE_SOFT"),
                            message("DASH_DATA", b"a")]),
        "reboot": (50, [message("REBOOT_NONDASH")]),
        "resume": (50, [message("S0i3_RESUME")]),
        "resume-old": (30, [message("S0i3_RESUME"), passing(100)]),
        "suspend-and-resume": (50, [bytes([CONTROL, 0]), message("KVM_DATA", b"x"), bytes([CONTROL, 1])]),
        "close-socket": (45, [message("WEBUI_CLOSE_SOCKET")]),
        "kvm-peer-unasked": (31, [message("KVM_IP_PORT_INFO", number(0x0100007F, 5900))]),
        "kvm": (31, [message("KVM_ENABLE_STATUS"), message("KVM_IP_PORT_INFO", number(0x0100007F, 5900)),
                     message("VNC_SOC_CLOSE")]),
        "kvm-twice": (31, [message("KVM_ENABLE_STATUS"), message("KVM_ENABLE_STATUS"), message("VNC_SOC_CLOSE"),
                           message("KVM_ENABLE_STATUS")]),
        "kvm-session": (
            31,
            [message("KVM_ENABLE_STATUS"), client(VIEWER, SETTLE, b"hello"), client(VIEWER, SETTLE, b"RFB 003.008\n"),
             message("KVM_DATA", b"picture"), client(VIEWER, FINISH | CLOSE), message("VNC_SOC_CLOSE")],
        ),
        "kvm-refused": (
            31,
            [message("KVM_ENABLE_STATUS"), client(VIEWER, SETTLE), refuse("WriteKVMPacket", 0, 3), client(VIEWER, SETTLE, b"keys")],
        ),
        "kvm-reset": (30, [message("KVM_ENABLE_STATUS"), client(VIEWER, SETTLE, b"x"), client(VIEWER, CLOSE | RESET)]),
        "safeboot": (50, [message("SAFEBOOT", number(1)), message("VNC_SOC_CLOSE"), message("SAFEBOOT", number(2))]),
        "safeboot-unknown": (50, [message("SAFEBOOT", number(7)), message("SAFEBOOT"), message("SAFEBOOT", b"\x01")]),
        "consent-locked": (40, [bytes([LOCK, 1]), message("GET_KVM_CONSENT", number(1, 30)), passing(3000)]),
        "consent-old": (30, [message("GET_KVM_CONSENT", number(1, 30)), message("GET_KVM_CONSENT", number(0, 0))]),
        "consent-yes": (
            40,
            [bytes([LOCK, 0]), message("GET_KVM_CONSENT", number(1, 30)), passing(1), bytes([PERSON]) + block(b"Consent_yes\0"),
             passing(3000)],
        ),
        "consent-other": (
            40,
            [message("GET_KVM_CONSENT", number(2, 5)), passing(1), bytes([PERSON]) + block(b"maybe"), passing(3000),
             bytes([PERSON]) + block(b"Consent_no\r\n")],
        ),
        "consent-twice": (50, [message("GET_KVM_CONSENT", number(1, 90)), message("GET_KVM_CONSENT", b"\x02"),
                               message("GET_KVM_CONSENT")]),
        "console": (45, [client(CONSOLE, SETTLE, b"\x16\x03\x01"), message("DASH_DATA", b"answer"), client(CONSOLE, CLOSE)]),
        "console-idle": (45, [client(CONSOLE, SETTLE), passing(6000), client(CONSOLE, SETTLE, b"late")]),
        "console-refused": (45, [refuse("WriteIPCompleteInformation", 1, 0), client(CONSOLE, SETTLE, b"x")]),
        "console-closed-by-firmware": (45, [client(CONSOLE, SETTLE, b"x"), message("WEBUI_CLOSE_SOCKET")]),
        "firmware-faults": (50, [refuse("GetMPMStatus", 1, 2), message("S0i3_RESUME"), resize("GetZELVersion", 7),
                                 message("S0i3_RESUME")]),
    }.items():  # fmt: skip
        others = any(step[0] in (CONSOLE, VIEWER, PERSON) for step in steps)
        seed("sessions" if others else "dispatch", name, bytes([level]) + b"".join(steps))


def errands():
    """What the host does for the firmware outside of the PC."""
    alert = message("INDICATION_EVENT", b"<alert/>")
    for name, steps in {
        "upgrade": [message("SOFTWARE_UPGRADE", b"package 7")],
        "upgrade-quotes": [message("SOFTWARE_UPGRADE", b'one" two "three\\"'), message("SOFTWARE_UPGRADE", b"first\0second")],
        "upgrade-longest": [record("SOFTWARE_UPGRADE", 1022, {offset: b"u" * 255 for offset in range(0, 1022, 255)}),
                            record("SOFTWARE_UPGRADE", 1023, {offset: b"u" * 255 for offset in range(0, 1023, 255)})],
        "alert-unsubscribed": [alert],
        "alert": [destination(b"console.example", b"/events", 8080), alert, message("INDICATION_EVENT", b"<a>\0</a>")],
        "alert-secure": [destination(b"10.0.0.1", b"/events?a=b", 443, 1), alert],
        "alert-no-host": [destination(b"", b"/"), alert, destination(b"user@host\r\nX: y", b"no path"), alert],
        "alert-bytes": [destination(b"\xff\xfe%s%n", b"\x80 \t\r\n", 0, 0xFFFFFFFF), alert],
        "alert-short-record": [destination(b"console.example", b"/events", size=1030), alert],
        "alert-replaced": [destination(b"first", b"/"), destination(b"second", b""), alert, destination(b"third", b"/"), alert],
        "enrolment": [request()],
        "enrolment-empty": [request(b"", b"", whole=0), request(b"", b"")],
        "enrolment-sizes": [request(size=4097), request(size=0xFFFFFFF0), request(whole=100)],
        "enrolment-names": [record("CSR", 4296, {0: b"n" * 192}), request(b'" -config "%s\\..')],
        "enrolment-refused": [refuse("WriteCSRResponse", 1, 0), request()],
        "password": [passwords(b"old secret", b"new secret")],
        "password-unterminated": [record("AD_SERVICE_PWD_UPDATE_CMD", 256, {0: b"p" * 255, 255: b"p"})],
        "password-short": [passwords(b"old secret", b"new secret", size=130), passwords(b"", b"", size=0)],
        "password-refused": [refuse("WritePwdUpdateStatus", 1, 0), passwords(b"\xc3\xa4", b"\xff" * 128)],
    }.items():
        seed("dispatch", name, bytes([50]) + b"".join(steps))


def each_command():
    """A seed for each command: without a payload, with one of the size of its record, and with a full buffer."""
    for row in tables.commands():
        name = row["name"]
        size = min(255, row["payload"]["minSize"] or 16)
        steps = [message(name), message(name, bytes(range(1, size + 1))), long_message(name, 0x41, 65535)]
        seed("dispatch", f"command-{name}", bytes([50]) + b"".join(steps))
