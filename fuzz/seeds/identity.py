"""What enrolments find: certificates in the machine's stores, and what certreq.exe leaves."""

import base64
import pathlib
import re
import struct

from corpus import block, long_block, seed

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "winhost/tests/Certificates.h"
MY, ROOT, CA, END = range(4)


def encoded(name):
    """A certificate of the tests, by the name of its constant."""
    text = re.search(rf"k{name}Pem\[\] =(.*?);", SOURCE.read_text(), re.DOTALL)[1]
    lines = re.findall(r'"([\w+/=]+)\\n"', text)
    return base64.b64decode("".join(lines))


def enrolment(issuer, certificates, output=b""):
    stores = b"".join(bytes([store]) + long_block(data) for store, data in certificates)
    return block(issuer) + stores + bytes([END]) + output


def certificates():
    alpha, beta, gamma, delta, machine = map(encoded, ("Alpha", "Beta", "Gamma", "Delta", "Machine"))
    for name, data in {
        "own-root": enrolment(b"example root alpha", [(MY, alpha), (ROOT, alpha)], b"the certificate"),
        "chain": enrolment(b"Issuing Gamma", [(MY, machine), (MY, gamma), (ROOT, alpha), (ROOT, delta)], b"c" * 5000),
        "chain-untrusted": enrolment(b"Gamma", [(MY, gamma), (CA, delta), (ROOT, alpha)]),
        "chain-incomplete": enrolment(b"Gamma", [(MY, gamma)]),
        "any": enrolment(b"", [(MY, beta), (MY, alpha), (ROOT, alpha), (ROOT, beta)]),
        "quoted-name": enrolment(b'"Example, ""Inc"""', [(MY, machine), (CA, gamma), (ROOT, delta)]),
        "unknown": enrolment(b"Elsewhere", [(MY, alpha)]),
        "none": enrolment(b"Alpha", []),
        "no-certificate": enrolment(b"", [(MY, b"0\x82\x01"), (MY, b""), (MY, struct.pack(">BBI", 0x30, 0x84, 0xFFFFFFFF))]),
        "cut": enrolment(b"Alpha", [(MY, alpha[:-1]), (ROOT, alpha[:200])]),
    }.items():
        seed("certificates", name, data)
