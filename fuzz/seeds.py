"""Writes the seeds of the fuzz targets to fuzz/corpus: what the tests send, in the form in which a target takes it.
Findings lie there too, under names of their own; they stay.

    python3 fuzz/seeds.py
"""

import json
import pathlib
import struct

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"


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


# --- records of the mailbox, as hosts send them: the place of the request in the catalogue, then the bytes ---

RECORD_SIZES = {
    0: 40, 1: 4, 2: 0, 3: 4, 4: 804, 5: 36, 6: 2, 7: 384, 8: 2008, 9: 40, 10: 0, 12: 0, 13: 2, 15: 12, 17: 132, 18: 84,
    19: 12, 20: 64, 21: 12, 22: 4, 23: 8, 24: 200, 25: 4,
}  # fmt: skip
REQUEST = 0
MESSAGE = 1


def host_records():
    for place, size in RECORD_SIZES.items():
        pattern = bytes((7 * i + 1) & 0xFF for i in range(size))
        seed("hostrecords", f"request-{place:02}", bytes([place, REQUEST]) + pattern)
    for command in (10, 11, 12, 39, 40, 50, 51, 52):
        seed("hostrecords", f"command-{command}", b"\xff" + number(command) + bytes([MESSAGE]) + b"text of a command" * 4)
    seed("hostrecords", "unknown-code", b"\xff" + number(0x9C41ABCC) + bytes([REQUEST]) + b"bytes")


# --- a console's requests ---

SOAP = "http://www.w3.org/2003/05/soap-envelope"
ADDRESSING = "http://schemas.xmlsoap.org/ws/2004/08/addressing"
ENUMERATION = "http://schemas.xmlsoap.org/ws/2004/09/enumeration"
TRANSFER = "http://schemas.xmlsoap.org/ws/2004/09/transfer"
MANAGEMENT = "http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd"
CIM = "http://schemas.dmtf.org/wbem/wscim/1/cim-schema/2/"
IDENTIFY = (
    f'<s:Envelope xmlns:s="{SOAP}" xmlns:wsmid="http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd">'
    "<s:Header/><s:Body><wsmid:Identify/></s:Body></s:Envelope>"
)


def envelope(action, name, body="", selectors=""):
    return (
        f'<s:Envelope xmlns:s="{SOAP}" xmlns:a="{ADDRESSING}" xmlns:e="{ENUMERATION}" xmlns:w="{MANAGEMENT}"><s:Header>'
        f"<a:Action>{action}</a:Action><a:MessageID>uuid:9</a:MessageID><w:ResourceURI>{CIM}{name}</w:ResourceURI>"
        f"{selectors}</s:Header><s:Body>{body}</s:Body></s:Envelope>"
    )


def power(state):
    keys = (
        '<w:SelectorSet><w:Selector Name="CreationClassName">CIM_ComputerSystem</w:Selector>'
        '<w:Selector Name="Name">ManagedSystem</w:Selector></w:SelectorSet>'
    )
    service = f"{CIM}CIM_PowerManagementService"
    return envelope(
        f"{service}/RequestPowerStateChange",
        "CIM_PowerManagementService",
        f'<p:RequestPowerStateChange_INPUT xmlns:p="{service}"><p:PowerState>{state}</p:PowerState><p:ManagedElement>'
        f"<a:Address>{ADDRESSING}/role/anonymous</a:Address><a:ReferenceParameters><w:ResourceURI>{CIM}CIM_ComputerSystem"
        f"</w:ResourceURI>{keys}</a:ReferenceParameters></p:ManagedElement></p:RequestPowerStateChange_INPUT>",
    )


def post(body, more="", path="/wsman"):
    return (
        f"POST {path} HTTP/1.1\r\nHost: pc\r\nContent-Type: application/soap+xml;charset=UTF-8\r\n{more}"
        f"Content-Length: {len(body)}\r\n\r\n{body}"
    )


def console():
    system = "CIM_ComputerSystem"
    for name, request in {
        "identify": post(IDENTIFY),
        "identify-twice": post(IDENTIFY) + post(IDENTIFY),
        "close": post(IDENTIFY, "Connection: close\r\n"),
        "expect": post(IDENTIFY, "Expect: 100-continue\r\n"),
        "chunks": "POST /wsman HTTP/1.1\r\nContent-Type: application/soap+xml\r\nTransfer-Encoding: chunked\r\n\r\n"
        "5\r\n<s:En\r\n4\r\nvelo\r\n0\r\n\r\n",
        "get": "GET /wsman HTTP/1.1\r\nHost: pc\r\n\r\n",
        "other-path": post(IDENTIFY, path="/other?x=1"),
        "other-type": "POST /wsman HTTP/1.1\r\nContent-Type: text/xml\r\nContent-Length: 2\r\n\r\n<a",
        "too-long": "POST /wsman HTTP/1.1\r\nContent-Length: 99999999\r\n\r\n",
        "upgrade": "GET /wsman HTTP/1.1\r\nConnection: Upgrade\r\nUpgrade: h2c\r\n\r\n",
        "no-http": "SSH-2.0-client\r\n",
        "power-off": post(power(8)),
        "power-bad": post(power("99999")),
        "get-system": post(envelope(f"{TRANSFER}/Get", system)),
        "enumerate": post(envelope(f"{ENUMERATION}/Enumerate", system, "<e:Enumerate/>")),
        "enumerate-references": post(
            envelope(
                f"{ENUMERATION}/Enumerate",
                system,
                "<e:Enumerate><w:EnumerationMode>EnumerateEPR</w:EnumerationMode></e:Enumerate>",
            )
        ),
        "pull": post(
            envelope(
                f"{ENUMERATION}/Pull",
                system,
                "<e:Pull><e:EnumerationContext>objects-0</e:EnumerationContext><e:MaxElements>2</e:MaxElements></e:Pull>",
            )
        ),
        "unknown-action": post(envelope("urn:nothing", system)),
        "soap-1.1": post('<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body/></s:Envelope>'),
        "doctype": post("<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>"),
        "deep": post("<a>" * 80 + "</a>" * 80),
        "must-understand": post(
            f'<s:Envelope xmlns:s="{SOAP}" xmlns:x="urn:x"><s:Header><x:y s:mustUnderstand="true"/></s:Header>'
            "<s:Body/></s:Envelope>"
        ),
    }.items():
        seed("wsman", name, request)


# --- descriptions and control lines ---

ADAPTER = {
    "name": "{2F1B3C44-0E5D-4C39-9C6A-0D4C5F6E7A81}",
    "description": "Simulated Ethernet Adapter",
    "index": 3,
    "type": 6,
    "mac": "02:00:5E:10:00:01",
    "address": "192.168.1.10",
    "mask": "255.255.255.0",
    "gateway": "192.168.1.1",
    "dhcp": True,
    "dhcpServer": "192.168.1.1",
    "speed": 1000000000,
    "operStatus": 5,
    "mtu": 1500,
    "moreAddresses": [{"address": "10.0.0.1", "mask": "255.0.0.0", "dhcp": False, "bits": 128}],
}


def descriptions():
    for name, description in {
        "empty": {},
        "adapters": {"adapters": [ADAPTER], "dnsServers": ["192.168.1.1"], "connectedFlags": 18},
        "real": {"adapters": "real", "dnsServers": "real", "connectedFlags": "real"},
        "ports": {"ports": {"664": 40664, "22": 40022}, "mailbox": "unix:/tmp/mailbox", "controlSocket": "/tmp/c"},
        "system": {
            "osVersion": "10.0.22631",
            "osType": 18,
            "processorArchitecture": 9,
            "timeZoneBiasMinutes": -60,
            "wmiQueryError": 2147749904,
            "cleanBoot": 1,
        },
        "registry": {
            "registry": {"HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarvix": {"InstallationPath": "C:\\x"}},
            "registryNumbers": {"HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarvix": {"Number": 1}},
            "environment": {"PROGRAMDATA": "C:\\ProgramData"},
            "privileges": ["SeTcbPrivilege"],
        },
        "sessions": {
            "consoleSession": 2,
            "desktopLocked": True,
            "screen": {"width": 800, "height": 600},
            "processes": [{"name": "winlogon.exe", "pid": 4194308, "session": 1}],
        },
        "wlan": {
            "wlanInterfaces": [{"guid": "{70A9067B-708F-443C-84BA-BC391FDBF72B}", "description": "Wi-Fi", "state": 1}]
        },
        "unknown-key": {"nothing": 1},
        "wrong-type": {"adapters": [{"mac": 7}]},
    }.items():
        seed("pcdescription", name, json.dumps(description))
    seed("pcdescription", "no-json", "{adapters: []}")


def control_lines():
    for name, line in {
        "help": {"command": "help"},
        "clock-advance": {"command": "clock", "action": "advance", "milliseconds": 1000},
        "clock-manual": {"command": "clock", "action": "manual"},
        "clock-wall": {"command": "clock", "action": "wall-offset", "milliseconds": -5000},
        "description": {"command": "description"},
        "change": {"command": "change", "patch": {"desktopLocked": True, "adapters": [ADAPTER], "dnsServers": None}},
        "gate": {"command": "gate", "action": "fail", "call": "ReadFile", "n": 1, "error": 31, "forEver": True},
        "gate-count": {"command": "gate", "action": "count"},
        "handles": {"command": "handles"},
        "mailbox": {"command": "mailbox"},
        "reports": {"command": "reports"},
        "control": {"command": "control", "code": "suspend", "event": 4, "force": True},
        "event-log": {"command": "event-log"},
        "wlan": {"command": "wlan", "action": "notify", "code": 10, "source": 8, "interface": 0},
        "wlan-state": {"command": "wlan", "action": "state", "state": "connected"},
        "power-actions": {"command": "power-actions"},
        "lock": {"command": "lock"},
        "session": {"command": "session", "id": "none"},
        "processes": {"command": "processes"},
        "launches": {"command": "launches"},
    }.items():
        seed("pccontrol", name, json.dumps(line))
    for name, line in {
        "send": {"verb": "send", "command": 8, "payload": "48656c6c6f", "trailer": 0},
        "send-raw": {"verb": "send", "raw": True, "payload": "01 02:03"},
        "set": {"verb": "set", "values": {"uVORKVersion": "45", "Cloud.Port": "443", "Dash": "echo"}},
        "set-bridge": {"verb": "set", "values": {"Kvm": "bridge:127.0.0.1:5900", "DomainSize": "auto"}},
        "refuse": {"verb": "fault", "words": ["refuse", "WriteOsInfo", "1450", "3"]},
        "refuse-code": {"verb": "fault", "words": ["refuse", "0x9C41A410", "31", "forever"]},
        "delay": {"verb": "fault", "words": ["delay", "GetZELVersion", "10"]},
        "hold": {"verb": "fault", "words": ["hold", "WriteKVMPacket"]},
        "release": {"verb": "fault", "words": ["release", "WriteKVMPacket"]},
        "answer-size": {"verb": "fault", "words": ["answer-size", "GetZELVersion", "12"]},
        "vanish": {"verb": "fault", "words": ["vanish"]},
        "come-back": {"verb": "fault", "words": ["come-back"]},
        "show": {"verb": "show"},
        "requests": {"verb": "requests"},
    }.items():
        seed("mpmcontrol", name, json.dumps(line))


# --- texts ---


def texts():
    seed("question", "usual", "yes\n1\n30\0")
    seed("question", "highest", f"yes\n{2**32 - 1}\n{2**32 - 1}\0")
    seed("question", "too-high", f"yes\n{2**32}\n1\0")
    seed("question", "four-lines", "yes\n1\n30\nmore")
    seed("question", "no-number", "yes\none\n-30")
    for name, answers in {
        "yes": [b"Consent_yes\0"],
        "line-end": [b"Consent_yes\r\n"],
        "no": [b"yes\0", b"Consent_no\0"],
        "no-response": [b"Consent_noreponce"],
        "empty": [b"", b"\0", b"\n"],
        "longest": [b"x" * 511, b"x" * 512, b"x" * 1300],
    }.items():
        seed("consent", name, b"".join(map(long_block, answers)))
    agent = '"C:\\Program Files\\Tarvix\\Service\\bin\\ZELKVMApp.exe" -X 1920 -Y 1080 -V 50 -E 1'
    seed("commandline", "agent", agent)
    seed("commandline", "backslashes", 'program "a \\\\" b\\\\\\"c "d""e" \\\\x')
    seed("commandline", "blanks", "C:\\Program Files\\a b.exe \t x")
    seed("agentfile", "terminate", "terminate\n")
    seed("agentfile", "behaviour", "  \tignore-terminate more\r\n")
    seed("agentfile", "empty", "")
    seed("agentfile", "long", "x" * 200)
    seed("logline", "usual", "WriteOsInfo: connecting to Driver. Input buffer size = 804")
    seed("logline", "line-breaks", "one\r\ntwo\n\nthree\r")
    seed("logline", "long", "x" * 1500)
    seed("logline", "bytes", bytes(range(1, 256)))


# --- frames of the mailbox's link ---

REQUEST_FRAME, RESPONSE_FRAME, CANCEL_FRAME, LISTEN_FRAME, MESSAGE_FRAME = 1, 2, 3, 4, 5
HEADER = "<IIIII"
GET_VERSION, GET_STATUS, WRITE_STATUS = 2, 12, 1


def frame(kind, ident=0, code=0, value=0, payload=b"", size=None):
    return struct.pack(HEADER, len(payload) if size is None else size, kind, ident, code, value) + payload


def gate_frames():
    response = frame(RESPONSE_FRAME, 1, 0x9C416424, 0, b"answer")
    message = frame(MESSAGE_FRAME, payload=b"payload\x08\0")
    seed("gateframes", "frames", b"\xff" + response + message)
    seed("gateframes", "pieces", b"\x02" + response + message)
    seed("gateframes", "too-long", b"\xff" + frame(MESSAGE_FRAME, size=0x100001))
    seed("gateframes", "cut", b"\xff" + response[:-3])


def host_frame(kind, ident, code, room, payload=b""):
    return bytes([kind, ident, code]) + struct.pack("<H", room) + long_block(payload)


def link():
    for name, frames in {
        "version": [host_frame(REQUEST_FRAME, 1, GET_VERSION, 80)],
        "no-room": [host_frame(REQUEST_FRAME, 1, GET_VERSION, 79)],
        "status": [host_frame(REQUEST_FRAME, 1, WRITE_STATUS, 0, number(1)), host_frame(REQUEST_FRAME, 2, GET_STATUS, 1)],
        "wrong-size": [host_frame(REQUEST_FRAME, 1, WRITE_STATUS, 0, b"abc")],
        "listen": [host_frame(LISTEN_FRAME, 0, 0, 0), host_frame(LISTEN_FRAME, 0, 0, 0)],
        "cancel": [host_frame(CANCEL_FRAME, 7, 0, 0)],
        "not-a-hosts": [host_frame(RESPONSE_FRAME, 1, 0, 0)],
        "connection": [
            host_frame(REQUEST_FRAME, 1, 5, 0, bytes(36)),
            host_frame(REQUEST_FRAME, 2, 0, 0, b"dash bytes"),
            host_frame(REQUEST_FRAME, 3, 6, 0, b"\x98\x02"),
        ],
    }.items():
        seed("link", name, bytes([len(frames)]) + b"".join(frames))
    seed("link", "too-long", b"\0" + frame(REQUEST_FRAME, size=0x100001))
    seed("link", "cut", b"\0" + frame(REQUEST_FRAME, payload=b"abcdef")[:-2])


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
        "messages": [read(16), read(4), firmware_frame(MESSAGE_FRAME, 0, 0, b"abc\x08\0"), firmware_frame(MESSAGE_FRAME, 0, 0, b"long one")],
        "cancelled": [ask(8), read(8), bytes([CANCEL]), firmware_frame(RESPONSE_FRAME, 1, 0, b"late")],
        "answer-cut": [ask(64), bytes([RAW]) + block(frame(RESPONSE_FRAME, 1, 0, 0, b"1234", size=8))],
        "not-a-firmwares": [ask(8), firmware_frame(REQUEST_FRAME, 1, 0)],
        "too-long": [ask(8), bytes([RAW]) + block(frame(RESPONSE_FRAME, 1, size=0x100001))],
        "finding-message-where-nobody-listens": [ask(8), firmware_frame(MESSAGE_FRAME, 0, 0, b"x")],
    }.items():  # fmt: skip
        seed("device", name, b"".join(steps))


# --- pipes ---

MESSAGES, BY_MESSAGE, OTHER_GREETING = 1, 2, 4


def piped(shape, room, data, counts=(0, 0, 0)):
    return bytes([shape]) + struct.pack("<H", room) + bytes(counts) + data


def pipes():
    two = number(5) + b"first" + number(6) + b"second"
    seed("pipe", "bytes", piped(0, 64, b"any bytes"))
    seed("pipe", "messages", piped(MESSAGES | BY_MESSAGE, 64, two))
    seed("pipe", "messages-as-bytes", piped(MESSAGES, 64, two))
    seed("pipe", "small-room", piped(MESSAGES | BY_MESSAGE, 3, two))
    seed("pipe", "endless-message", piped(MESSAGES | BY_MESSAGE, 64, number(0xFFFFFFFF) + b"that is all"))
    seed("pipe", "length-cut", piped(MESSAGES | BY_MESSAGE, 64, b"\x05\0"))
    seed("pipe", "greeting-cut", piped(OTHER_GREETING | 0x10, 64, b""))
    seed("pipe", "no-greeting", piped(OTHER_GREETING, 64, b""))


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
        "empty-payloads": (LEVEL_50, [message(c) for c in (DASH_DATA, KVM_DATA, UPGRADE, EVENT, KVM_PEER, CSR, PASSWORD)]),
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


if __name__ == "__main__":
    for write in (
        host_records, console, descriptions, control_lines, texts, gate_frames, link, device, pipes, answers, platform,
        dispatch,
    ):  # fmt: skip
        write()
