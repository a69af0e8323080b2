"""Descriptions, control lines and other texts."""

import json

import tables
from corpus import long_block, seed

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
        "wlan-networks": {
            "wlanInterfaces": [{"guid": "{70A9067B-708F-443C-84BA-BC391FDBF72B}", "state": 1, "network": "office"}],
            "wlanNetworks": [{"name": "office", "ssid": "office", "authentication": "WPA3SAE", "key": "secret key", "channel": 6},
                             {"name": "bytes", "ssidBytes": "FF00", "profile": "<WLANProfile/>", "listed": False}],
            "rootCertificates": ["C:\\root.pem"],
        },
        "package": {
            "package": {
                "fullName": "Tarvix.ZEL_1.0.0.0_x64__8wekyb3d8bbwe",
                "path": "C:\\Program Files\\WindowsApps\\Tarvix.ZEL",
                "familyName": "Tarvix.ZEL_8wekyb3d8bbwe",
            },
            "services": [{"name": "KelmarMnf", "startType": 4, "stopMs": 200, "startError": 5}],
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
        "wlan-join": {"command": "wlan", "action": "join", "network": "Home", "interface": 0},
        "wlan-roam": {"command": "wlan", "action": "roam", "channel": 36, "frequency": 5180000},
        "wlan-key": {"command": "wlan", "action": "key", "network": "Home", "key": "another"},
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


# --- the page in the browser; the byte in front chooses what reads the rest ---

MESSAGE, LOG_LINE, REQUEST, COMMAND, FRAME, HEADERS = range(6)


def page_requests():
    for name, message in {
        "hello": {"id": 1, "do": "hello", "since": 7},
        "send-fields": {"id": 2, "do": "send", "command": 39, "fields": {"address": "127.0.0.1", "port": 5900}},
        "send-name": {"id": 3, "do": "send", "command": "KVM_ENABLE_STATUS", "trailer": 1},
        "send-data": {"id": 4, "do": "send", "command": 8, "fields": {"data": "01 02"}},
        "send-text": {"id": 5, "do": "send", "command": 10, "fields": {"text": "1.2.3"}},
        "send-raw": {"id": 6, "do": "send", "raw": True, "payload": "00ff"},
        "passwords": {"id": 7, "do": "send", "command": 51, "fields": {"OldPassword": "a", "NewPassword": "b"}},
        "set": {"id": 8, "do": "set", "values": {"uVORKVersion": "45", "Screen.Ivf": "x"}},
        "fault": {"id": 9, "do": "fault", "words": ["refuse", "WriteOsInfo", "5"]},
        "enrol": {"id": 10, "do": "enrol", "host": "h", "authority": "a", "template": "t", "subject": "s"},
        "screen": {"id": 11, "do": "screen", "reset": True},
        "show": {"id": 12, "do": "show"},
    }.items():
        seed("webrequests", name, bytes([MESSAGE]) + json.dumps(message).encode())
    seed("webrequests", "no-message", bytes([MESSAGE]) + b'{"id": -1}')
    line = b"[1]-[ 2 M ] ERROR: text $$<ZELService> <Fri  Nov 13 17:23:26.5 2026 W. Europe Standard Time> <thread = 9 (0x9)>"
    seed("webrequests", "log-line", bytes([LOG_LINE]) + line)
    seed("webrequests", "other-line", bytes([LOG_LINE]) + b"some text \xff")
    for name in ("WriteZELStatus", "WriteOsInfo", "WriteWiFiSyncInfo", "WriteMultiNwInfo", "WriteIPCompleteInformation"):
        size = next(row["input"]["minSize"] for row in tables.requests() if row["name"] == name)
        seed("webrequests", f"request-{name}", bytes([REQUEST, tables.function(name)]) + bytes(n % 255 + 1 for n in range(size)))
    for row in tables.commands():
        seed("webrequests", f"command-{row['name']}", bytes([COMMAND, row["number"]]) + b"1" * row["payload"]["minSize"])
    seed("webrequests", "key-frame", bytes([FRAME, 0x12, 0x00, 0x0A, 0x00, 0x32, 0x01, 0x10]))
    for name, text in {"host": "localhost:8080", "origin": "http://127.0.0.1:8080", "address": "[::1]:80",
                       "path": "/0123456789abcdef0123456789abcdef/events"}.items():
        seed("webrequests", name, bytes([HEADERS]) + text.encode())


# --- profiles ---

def wifi_profile(security, ssid="office"):
    return (f'<?xml version="1.0"?><WLANProfile xmlns="http://www.microsoft.com/networking/WLAN/profile/v1"><name>n</name>'
            f"<SSIDConfig><SSID><hex>00</hex><name>{ssid}</name></SSID></SSIDConfig><MSM><security>{security}</security></MSM>"
            "</WLANProfile>")


def wifi_profiles():
    def authentication(kind):
        return f"<authEncryption><authentication>{kind}</authentication><encryption>AES</encryption></authEncryption>"
    key = ("<sharedKey><keyType>passPhrase</keyType><protected>false</protected><keyMaterial>secret &amp; key</keyMaterial>"
           "</sharedKey>")
    enterprise = ("<OneX><authMode>user</authMode><EAPConfig><EapHostConfig><EapMethod><Type>25</Type></EapMethod><Config><Eap>"
                  "<EapType><ServerValidation><ServerNames/><TrustedRootCA>84 e6 c1 69</TrustedRootCA></ServerValidation></EapType>"
                  "</Eap></Config></EapHostConfig></EAPConfig></OneX>")
    # The byte in front: 0 takes the text once, 15 repeats it.
    for name, times, text in (
        ("wpa2", 0, wifi_profile(authentication("WPA2PSK") + key)),
        ("wpa3", 0, wifi_profile(authentication("WPA3SAE") + key, "B\u00fcro")),
        ("enterprise", 0, wifi_profile(authentication("WPA2") + enterprise)),
        ("open", 0, wifi_profile(authentication("open"))),
        ("mark-and-cdata", 0, "\ufeff" + wifi_profile(authentication("<![CDATA[WPA2PSK]]>") + key)),
        ("nested", 15, "<a><b><c><d><e>"),
        ("unclosed", 0, "<WLANProfile><MSM>"),
        ("wrong-entity", 0, "<a>&#xFFFFFFFF;</a>"),
        ("wrong-end", 0, "<a></b>"),
        ("doctype", 0, "<!DOCTYPE x [<!ENTITY e 'v'>]><WLANProfile/>"),
    ):
        seed("wifiprofile", name, bytes([times]) + text.encode())


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
