"""Events of management consoles: each a session of its own, whose bytes are compared at both ends."""

import contextlib
import re
import ssl

from harness.console import IDENTIFY
from harness.waiting import eventually

from .stage import SESSION_CLOSED
from .streams import PATIENCE, await_end, connect, content, pump, same

SESSION = "Spawning threads to send and receive DASH traffic for socket"  # ahead of all that it logs of the session's bytes
CLOSE_BY_FIRMWARE = "MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit"
SMALL = 1000  # bytes that go in one block

_REQUEST = (f"POST /wsman HTTP/1.1\r\nHost: soak\r\nContent-Type: application/soap+xml;charset=UTF-8\r\n"
            f"Content-Length: {len(IDENTIFY.encode())}\r\n\r\n{IDENTIFY}").encode()


class CutShort(Exception):
    """The service has ended the session by its idle limit, as it does when the machine is too busy."""


class EndOfAnswer(Exception):
    """The connection ended in the middle of an answer."""


class Consoles:
    def __init__(self, stage, play):
        self._stage = stage
        self._play = play  # of events that happen in the middle
        self._log = stage.log
        self._identity = None  # the firmware's answer, which is always the same
        self._server = None  # the other end of the session in bridge mode

    # --- events ---

    def console(self, seed, sizes, close, fault=None, error=None, through_cloud=False, inner=()):
        if fault == "refuse-connection":
            return self._refused(error)
        place = self._log.here()
        self._prepare(fault, error)
        address = self._stage.cloud_address if through_cloud else self._stage.host.dash_address
        with connect(address) as console, self._ending_server():
            begun = self._log.await_line(SESSION, place)
            if fault in ("short-status", "delay-connection"):
                self._stage.fault("clear")
            self._stage.tally.sessions["DASH"] += 1
            try:
                if fault == "refuse-data":
                    self._lose_a_block(console, seed, error)
                for number, size in enumerate(sizes):
                    self._exchange(console, seed + number, size)
                    if number == 0:
                        self._play(inner)
                if fault == "delay-data":
                    self._stage.fault("clear")
                self._end(console, close, seed)
            except CutShort:
                self._stage.tally.idle_ends += 1
                self._stage.fault("clear")
            self._log.await_line(SESSION_CLOSED, begun)
            if close == "reset-midway" and self._stage.dash == "echo":
                self._await_echoes(begun, lost=SMALL if fault == "refuse-data" else 0)
        if fault:
            self._stage.tally.faults[fault] += 1

    def idle_console(self, seed, says):
        place = self._log.here()
        with connect(self._stage.host.dash_address) as console, self._ending_server():
            begun = self._log.await_line(SESSION, place)
            self._stage.tally.sessions["DASH"] += 1
            with contextlib.suppress(CutShort):
                if says:
                    self._exchange(console, seed, 1)
            self._await_end(console)
            self._log.await_line("Server has not received requests for", begun)
            self._log.await_line(SESSION_CLOSED, begun)
        self._stage.tally.faults["idle console"] += 1

    def rush(self, seed, parts):
        """All connect together and speak at once; one after another has its turn."""
        place = self._log.here()
        with contextlib.ExitStack() as stack:
            consoles = [stack.enter_context(self._come(seed + number, *part)) for number, part in enumerate(parts)]
            for number, (console, (size, does)) in enumerate(zip(consoles, parts)):
                place = self._log.await_line(SESSION, place)
                self._stage.tally.sessions["DASH"] += 1
                with self._ending_server():
                    if does != "leave":
                        self._take_turn(console, seed + number, size, does, place)
                    place = self._log.await_line(SESSION_CLOSED, place)

    def _come(self, seed, size, does):
        place = self._log.here()
        console = connect(self._stage.host.dash_address)
        # One more waits at most: others would be held up for a second.
        self._log.await_line("Process the accepted connection", place)
        if does == "leave":
            console.close()
        elif self._stage.dash != "identify":
            console.say(content(seed, size))
            console.move(False, True)
        return console

    def _take_turn(self, console, seed, size, does, place):
        try:
            self._exchange(console, seed, size, place)
            self._end(console, does, seed)
        except CutShort:
            self._stage.tally.idle_ends += 1
            console.close()

    # --- faults ---

    def _prepare(self, fault, error):
        if fault == "delay-data":
            self._stage.fault("delay", "WriteDASHPacket", 20)
        elif fault == "delay-connection":
            self._stage.fault("delay", "WriteIPCompleteInformation", 100)
        elif fault == "no-status":
            self._stage.refuse("GetMPMStatus", error)
            # Each failure of it is logged with this text.
            self._log.allow("GetMPMStatus: cloudCerts is NULL", "WakeAndUpdateMPM: MPM Status return failed")
        elif fault == "short-status":
            self._stage.fault("answer-size", "GetMPMStatus", 0)
            self._log.allow("WakeAndUpdateMPM: MPM Status return failed")

    def _refused(self, error):
        """The firmware refuses the connection: it stays open, and nothing attends to it."""
        place = self._log.here()
        self._stage.refuse("WriteIPCompleteInformation", error)
        self._log.allow("Failed to create socket for DASH client")
        with connect(self._stage.host.dash_address):
            self._log.await_line("Failed to create socket for DASH client", place)
        self._stage.kept_handles += 1
        self._stage.tally.faults["refuse-connection"] += 1

    def _lose_a_block(self, console, seed, error):
        place = self._log.here()
        self._stage.refuse("WriteDASHPacket", error)
        console.say(content(seed, SMALL))
        self._pump([console], lambda: self._log.count(f"with dwLastError = {error}", place), "a block was refused", place)

    # --- what is said ---

    @contextlib.contextmanager
    def _ending_server(self):
        """Around a whole session, from before its beginning to its end."""
        begun = self._log.here()
        try:
            yield
            self._end_server(ended=self._log.count("WriteCloseSocketcmd: connecting to Driver", begun)
                             or self._log.count(CLOSE_BY_FIRMWARE, begun))
        finally:
            if self._server:
                self._server.close()
                self._server = None

    def _end_server(self, ended):
        """Closes the server, unless the session has ended, and waits until the firmware has closed the session.

        The firmware closes a session when its server closes, unless it has received the session's end or has closed the
        session itself. That close must not reach the next session."""
        if self._server and not ended:
            place = self._log.here()
            self._server.close()
            self._log.await_line(CLOSE_BY_FIRMWARE, place)

    def _exchange(self, console, seed, size, said_since=None):
        """Some bytes to the firmware and some back. In a rush the console has said its own already."""
        place = said_since or self._log.here()
        if self._stage.dash == "identify":
            try:
                moved = self._identify(console, requests=1 + size % 3)
            except (ssl.SSLError, EndOfAnswer):
                self._explain_end("the protocol's end", place)
        else:
            data = content(seed, size)
            if not said_since:
                console.say(data)
            talk = self._receive if self._stage.dash == "echo" else self._talk_to_server
            moved = talk(console, data, place)
        self._stage.tally.moved["DASH"] += moved

    def _talk_to_server(self, console, data, place):
        if not self._server:
            self._server = self._stage.servers["dash"].accept([console])
            if not self._server:
                self._explain_end("the firmware reached its server", place)
        server = self._server
        self._pump([console, server], lambda: len(server.received) >= len(data), "the server had it all", place)
        same(server.take_received(), data, "console to firmware")
        place = self._log.here()
        answer = data[::-1]
        server.say(answer)
        return len(data) + self._receive(console, answer, place, server)

    def _receive(self, console, data, place, *others):
        """Waits for all that the firmware sends, of which nothing is replaced during a session. How much it was."""
        self._pump([console, *others], lambda: console.all_sent and len(console.received) >= len(data),
                   "the firmware's bytes were there", place)
        received = console.take_received()
        same(received, data, "firmware to console")
        return len(received)

    def _pump(self, streams, done, what, place):
        if not pump(streams, done, what):
            self._explain_end(what, place)

    def _explain_end(self, what, place):
        # A session that ended before this place, by the limit, while something else happened in its middle; or one on which the
        # firmware's close of a session before it fell that the limit had just ended.
        self._log.since(place)
        if any("Server has not received requests for" in line for line in self._log.last()):
            raise CutShort
        raise AssertionError(f"the connection ended before {what}; the log says\n" + "\n".join(self._log.last()[-30:]))

    def _identify(self, console, requests):
        """A client that knows the protocol, over TLS."""
        context = ssl.create_default_context()
        context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
        console.socket.settimeout(PATIENCE)
        if not _is_tls(console):
            console.socket = context.wrap_socket(console.socket, suppress_ragged_eofs=False)
        for _ in range(requests):
            console.socket.sendall(_REQUEST)
            answer = self._read_answer(console.socket)
            self._identity = self._identity or answer
            same(answer, self._identity, "the firmware's identity")
            assert b"ProductVendor" in answer, answer
        return requests * (len(_REQUEST) + len(answer))

    @staticmethod
    def _read_answer(connection):
        answer = b""
        while not (head := re.match(rb"HTTP/1.1 200 .*?\r\n\r\n", answer, re.DOTALL)):
            assert len(answer) < 10_000, answer
            answer += _block(connection)
        size = int(re.search(rb"(?i)content-length: *(\d+)", head[0])[1])
        while len(answer) < head.end() + size:
            answer += _block(connection)
        return answer[head.end():]

    # --- ends ---

    def _end(self, console, close, seed):
        if close == "close":
            console.close()
        elif close == "half":
            console.half_close()
            self._await_end(console)
        elif close == "firmware":
            place = self._log.here()
            self._stage.send("WEBUI_CLOSE_SOCKET")
            self._log.await_line(CLOSE_BY_FIRMWARE, place)
            self._await_end(console)
        else:
            if close == "reset-midway" and not _is_tls(console):
                console.say(content(seed, 300_000))
                console.move(False, True)
            self._log.allow("recv() failed. Error: 10054")
            console.reset()

    def _await_echoes(self, begun, lost):
        """The firmware receives no notice of the reset and answers each block; the next console must not receive these answers."""
        def echoed():
            payloads = self._log.payloads(begun)
            taken = self._log.count("updateDataToClient: exit", begun)
            return len(payloads) == taken and sum(payloads) == sum(self._log.packets(begun)) - lost
        eventually(echoed, "the echoes of a console that has gone")
        if self._has_leftover(begun):
            place = self._log.here()
            size = self._log.payloads(begun)[-1]
            with connect(self._stage.host.dash_address) as console:
                pump([console], lambda: len(console.received) >= size, "the payload that was left")
            self._log.await_line(SESSION_CLOSED, place)

    def _has_leftover(self, begun):
        """Whether the last payload came when no session and no send task was left: it then belongs to the next console."""
        leftover = dropped = False
        for line in self._log.since(begun):
            if "updateDataToClient: Dropping a payload" in line:
                dropped = True
            elif "updateDataToClient: exit" in line:
                leftover, dropped = not dropped, False
            elif "SendDataToDASHClient: exit" in line or "SendDataToDASHClient: after Waiting" in line:
                leftover = False
        return leftover

    @staticmethod
    def _await_end(console):
        if not _is_tls(console):
            return await_end(console, "the session's end")
        console.socket.settimeout(PATIENCE)
        with contextlib.suppress(ssl.SSLError, ConnectionError):
            while console.socket.recv(1 << 16):
                pass


def _is_tls(console):
    return isinstance(console.socket, ssl.SSLSocket)


def _block(connection):
    block = connection.recv(1 << 16)
    if not block:
        raise EndOfAnswer
    return block
