#!/usr/bin/python3
"""The cloud end of the stand-in for nubaapi.dll (docs/cloud-library.md).

PCs connect over TLS, with a certificate of the relay's authority. Consoles reach a PC through the relay, which is an HTTP proxy
for CONNECT: the PC's name is the host. A viewer that knows no proxy connects to a forwarded port instead. Whether a port of the PC
may be reached is decided by the PC.
"""

import argparse
import asyncio
import contextlib
import json
import logging
import pathlib
import signal
import ssl
import struct
import subprocess
import sys
import tempfile

HELLO, OPEN, OPENED, REFUSED, DATA, CLOSE, CREDIT, PING, PONG = range(1, 10)
HEAD = struct.Struct(">BII")
MAX_PAYLOAD = 16384
WINDOW = 262144
PATIENCE = 20  # seconds for a PC's first frame, a console's request, and the answer of a PC


def report(event, **details):
    """One line of JSON on standard output for each event."""
    print(json.dumps({"event": event, **details}), flush=True)


def address(text):
    host, _, port = text.rpartition(":")
    return host or "127.0.0.1", int(port)


class Refused(Exception):
    """A PC does not open the target."""


class Stream:
    """A console's connection to one port of a PC."""

    def __init__(self):
        self.opened = asyncio.get_running_loop().create_future()
        self.received = asyncio.Queue()  # None ends it
        self.credit = WINDOW
        self.more_credit = asyncio.Event()
        self.is_over = False

    def end(self):
        self.is_over = True
        self.received.put_nowait(None)
        self.more_credit.set()
        if not self.opened.done():
            self.opened.set_exception(Refused("the PC has left"))


class Pc:
    """A connected PC and its streams."""

    def __init__(self, relay, reader, writer):
        self._relay = relay
        self._reader = reader
        self._writer = writer
        self._streams = {}
        self._last = 0
        self.name = None

    async def _frame(self):
        kind, stream, length = HEAD.unpack(await self._reader.readexactly(HEAD.size))
        if length > MAX_PAYLOAD:
            raise ValueError("a frame is too long")
        return kind, stream, await self._reader.readexactly(length)

    def send(self, kind, stream=0, payload=b""):
        self._writer.write(HEAD.pack(kind, stream, len(payload)) + payload)

    async def serve(self):
        kind, _, payload = await asyncio.wait_for(self._frame(), PATIENCE)
        if kind != HELLO:
            raise ValueError("the first frame has to be the name of the PC")
        self.name = payload.decode(errors="replace")
        subject = dict(pair for part in self._writer.get_extra_info("peercert")["subject"] for pair in part)
        self._relay.add(self)
        report("connected", pc=self.name, certificate=subject.get("commonName"))
        while True:
            self._handle(*await self._frame())
            await self._writer.drain()

    def _handle(self, kind, number, payload):
        stream = self._streams.get(number)
        if kind == PING and not self._relay.silent:
            self.send(PONG)
        if not stream:
            return  # the console has left
        if kind == OPENED and not stream.opened.done():
            stream.opened.set_result(None)
        elif kind == REFUSED and not stream.opened.done():
            stream.opened.set_exception(Refused(payload.decode(errors="replace")))
        elif kind == DATA:
            stream.received.put_nowait(payload)
        elif kind == CREDIT and len(payload) == 4:
            stream.credit += struct.unpack(">I", payload)[0]
            stream.more_credit.set()
        elif kind == CLOSE:
            stream.end()

    def leave(self):
        for stream in self._streams.values():
            stream.end()
        self._writer.close()

    # --- for consoles ---

    async def open(self, target):
        self._last += 1
        number, stream = self._last, Stream()
        self._streams[number] = stream
        self.send(OPEN, number, target.encode())
        try:
            await asyncio.wait_for(asyncio.shield(stream.opened), PATIENCE)
        except (Refused, asyncio.TimeoutError):
            del self._streams[number]
            raise
        return number, stream

    async def carry(self, number, stream, reader, writer):
        """The bytes of a console in both directions, until one of the sides has closed."""
        try:
            sender = asyncio.create_task(self._send_all(number, stream, reader))
            while (payload := await stream.received.get()) is not None:
                writer.write(payload)
                await writer.drain()
                self.send(CREDIT, number, struct.pack(">I", len(payload)))
            sender.cancel()
        except ConnectionError:
            pass
        finally:
            if not stream.is_over:
                self.send(CLOSE, number)
            self._streams.pop(number, None)

    async def _send_all(self, number, stream, reader):
        while not stream.is_over:
            if stream.credit == 0:
                stream.more_credit.clear()
                await stream.more_credit.wait()
                continue
            payload = await reader.read(min(MAX_PAYLOAD, stream.credit))
            if not payload:
                break
            stream.credit -= len(payload)
            self.send(DATA, number, payload)
            await self._writer.drain()
        stream.received.put_nowait(None)


class Relay:
    def __init__(self, arguments):
        self.silent = arguments.silent
        self._tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self._tls.minimum_version = ssl.TLSVersion.TLSv1_2
        self._tls.load_cert_chain(arguments.certificate, arguments.key)
        self._tls.load_verify_locations(arguments.authority)
        self._tls.verify_mode = ssl.CERT_REQUIRED
        self._arguments = arguments
        self._pcs = {}

    def add(self, pc):
        older = self._pcs.get(pc.name.lower())
        self._pcs[pc.name.lower()] = pc
        if older:
            older.leave()

    def _pc_for(self, host):
        """The PC of this name. The only one takes every name, and decides itself."""
        return self._pcs.get(host.lower()) or (next(iter(self._pcs.values())) if len(self._pcs) == 1 else None)

    async def take_pc(self, reader, writer):
        pc = Pc(self, reader, writer)
        try:
            await writer.start_tls(self._tls)
            await pc.serve()
        except (asyncio.IncompleteReadError, asyncio.TimeoutError, ConnectionError, ValueError, ssl.SSLError) as problem:
            report("disconnected", pc=pc.name, reason=str(problem))
        finally:
            if pc.name and self._pcs.get(pc.name.lower()) is pc:
                del self._pcs[pc.name.lower()]
            pc.leave()

    async def take_console(self, reader, writer):
        with contextlib.suppress(ConnectionError, asyncio.IncompleteReadError, asyncio.TimeoutError, asyncio.LimitOverrunError):
            head = await asyncio.wait_for(reader.readuntil(b"\r\n\r\n"), PATIENCE)
            words = head.split(b"\r\n")[0].decode(errors="replace").split(" ")
            if len(words) != 3 or words[0] != "CONNECT":
                self._answer(writer, 405, "only CONNECT is served")
            else:
                await self._serve(words[1], reader, writer, lambda status, text: self._answer(writer, status, text))
        writer.close()

    @staticmethod
    def _answer(writer, status, text):
        reason = {200: "Connection established", 403: "Forbidden", 405: "Method Not Allowed", 502: "Bad Gateway"}[status]
        body = "" if status == 200 else text + "\n"
        length = "" if status == 200 else f"Content-Length: {len(body.encode())}\r\n"
        writer.write(f"HTTP/1.1 {status} {reason}\r\n{length}\r\n{body}".encode())

    async def _serve(self, target, reader, writer, answer):
        pc = self._pc_for(target.rpartition(":")[0])
        if not pc:
            return answer(502, "no such PC is connected")
        try:
            number, stream = await pc.open(target)
        except (Refused, asyncio.TimeoutError) as problem:
            report("refused", pc=pc.name, target=target, reason=str(problem))
            return answer(403, str(problem) or "the PC does not answer")
        report("opened", pc=pc.name, target=target)
        answer(200, "")
        await pc.carry(number, stream, reader, writer)
        report("closed", pc=pc.name, target=target)

    def forwarder(self, port):
        async def take(reader, writer):
            with contextlib.suppress(ConnectionError):
                name = next(iter(self._pcs.values())).name if self._pcs else ""
                await self._serve(f"{name}:{port}", reader, writer, lambda *_: None)
            writer.close()
        return take

    async def run(self):
        loop = asyncio.get_running_loop()
        pcs = await asyncio.start_server(self.take_pc, *self._arguments.listen)
        consoles = await asyncio.start_server(self.take_console, *self._arguments.consoles)
        for local, port in self._arguments.forward:
            await asyncio.start_server(self.forwarder(port), "127.0.0.1", local)
        report("listening", pcs=pcs.sockets[0].getsockname()[1], consoles=consoles.sockets[0].getsockname()[1])
        ended = asyncio.Event()
        for number in (signal.SIGINT, signal.SIGTERM):
            loop.add_signal_handler(number, ended.set)
        await ended.wait()


def forward(text):
    local, _, port = text.partition("=")
    return int(local), int(port)


def openssl(*words):
    subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True)


def make_certificates(folder, host, name):
    """An authority, and the certificates of the relay and of a PC."""
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    curve = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes")
    openssl("req", "-x509", *curve, "-keyout", folder / "ca.key", "-out", folder / "ca.pem", "-days", 30, "-subj", "/CN=cloud CA",
            "-addext", "keyUsage=critical,keyCertSign,cRLSign")
    kind = "IP" if host.replace(".", "").isdigit() else "DNS"
    for subject, file, extensions in ((host, "relay", f"subjectAltName={kind}:{host}\nextendedKeyUsage=serverAuth\n"),
                                      (name, "pc", "extendedKeyUsage=clientAuth\n")):
        with tempfile.TemporaryDirectory() as scratch:
            request, extension = pathlib.Path(scratch, "request"), pathlib.Path(scratch, "extensions")
            extension.write_text(extensions)
            openssl("req", *curve, "-keyout", folder / f"{file}.key", "-out", request, "-subj", f"/CN={subject}")
            openssl("x509", "-req", "-in", request, "-CA", folder / "ca.pem", "-CAkey", folder / "ca.key", "-CAcreateserial",
                    "-CAserial", pathlib.Path(scratch, "serial"), "-days", 30, "-extfile", extension,
                    "-out", folder / f"{file}.pem")


def main():
    parser = argparse.ArgumentParser(prog="cloudrelay", description=__doc__.splitlines()[0])
    verbs = parser.add_subparsers(dest="verb", required=True)
    run = verbs.add_parser("run", help="serves PCs and consoles until SIGINT or SIGTERM")
    run.add_argument("--listen", type=address, default=("127.0.0.1", 0), metavar="HOST:PORT", help="for PCs")
    run.add_argument("--consoles", type=address, default=("127.0.0.1", 0), metavar="HOST:PORT", help="for consoles: an HTTP proxy")
    run.add_argument("--forward", type=forward, action="append", default=[], metavar="PORT=PC-PORT",
                     help="a local port that leads to one of the connected PC")
    run.add_argument("--certificate", required=True)
    run.add_argument("--key", required=True)
    run.add_argument("--authority", required=True, help="the CA whose PCs may connect")
    run.add_argument("--silent", action="store_true", help="answers no ping, as a cloud that hangs")
    make = verbs.add_parser("certificates", help="creates an authority with certificates for a relay and a PC")
    make.add_argument("folder")
    make.add_argument("--host", default="127.0.0.1", help="the relay's name or address")
    make.add_argument("--pc", default="WINHOST-PC", help="the name in the PC's certificate")
    arguments = parser.parse_args()
    # It warns at the end of a connection that TLS has no half-open ones.
    logging.getLogger("asyncio").setLevel(logging.ERROR)
    if arguments.verb == "certificates":
        make_certificates(arguments.folder, arguments.host, arguments.pc)
        return 0
    asyncio.run(Relay(arguments).run())
    return 0


if __name__ == "__main__":
    sys.exit(main())
