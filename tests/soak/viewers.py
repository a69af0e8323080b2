"""Events of remote KVM: viewers in sessions of all kinds, and the firmware's commands out of their order."""

import ipaddress
import struct

from harness.kvm import SESSION_BEGUN, SESSION_END_ERRORS

from .stage import KVM_ACCEPTS
from .streams import await_end, connect, content, pump, same

CLEANED = "Cleaned Tarvix KVM App if still open."
RETRY = 1450
TRUSTED, STRANGER = "127.0.0.5", "127.0.0.6"
SMALL = 1000  # bytes that go in one block


class Viewers:
    def __init__(self, stage, play):
        self._stage = stage
        self._play = play  # of events that happen in the middle
        self._log = stage.log
        self._server = None  # the other end of the session in bridge mode

    # --- events ---

    def viewer(self, seed, sizes, trouble, close, times, inner=()):
        if trouble in ("no-agent", "no-user"):
            self._without_agent(trouble)
        else:
            self._session(seed, sizes, trouble, close, times, inner)
        if trouble not in ("none", "trusted"):
            self._stage.tally.faults[trouble] += 1

    def kvm_stray(self, what):
        place = self._log.here()
        if what == "trust":
            self.trust("127.0.0.9", "KVM is disabled")
        elif what == "data":
            self._stage.send("KVM_DATA", b"a picture without a viewer")
            self._log.await_line("SendDataToKVMClient: ", place)
        elif what == "frame":
            self._stage.send("GET_ENCODED_FRAMEBUFFER")
            self._log.await_line("LUX_KVM: m_DisplayMgrEvent null, nothing to post 1", place)
        elif what == "close":
            self._stage.send("VNC_SOC_CLOSE")
        else:
            self.enable()
            if what == "enable-twice":
                self._stage.send("KVM_ENABLE_STATUS")
                self._log.await_line("Setting KVM Enabled to true", place)
            self._log.allow(*SESSION_END_ERRORS)
            self._stage.send("VNC_SOC_CLOSE")
            self._log.await_line("Do KVM Cleanup", place)
        self._stage.tally.faults["stray KVM command"] += 1

    # --- sessions ---

    def enable(self):
        place = self._log.here()
        self._stage.send("KVM_ENABLE_STATUS")
        return self._log.await_line(KVM_ACCEPTS, place)

    def trust(self, address, answer="IP: 0x"):
        place = self._log.here()
        self._stage.send("KVM_IP_PORT_INFO", ipaddress.ip_address(address).packed + struct.pack("<I", 0))
        self._log.await_line(answer, place)

    def begin(self, source="127.0.0.1"):
        """A viewer in a session of its own."""
        place = self._log.here()
        viewer = connect(self._stage.host.kvm_address, source)
        self._log.await_line(SESSION_BEGUN, place)
        if self._stage.kvm == "bridge":
            self.drop_server()
            self._server = self._stage.servers["kvm"].accept()
        return viewer

    def _session(self, seed, sizes, trouble, close, times, inner):
        begun = self._log.here()
        if trouble in ("agent-crashes", "agent-stays"):
            self._stage.pc.set_agent_behaviour("crash" if trouble == "agent-crashes" else "ignore-terminate")
        self.enable()
        stranger, source = None, "127.0.0.1"
        if trouble in ("untrusted", "trusted"):
            source = TRUSTED
            self.trust(TRUSTED)
        if trouble == "untrusted":
            stranger = self._come_as_stranger()
        viewer = self.begin(source)
        self._stage.tally.sessions["KVM"] += 1
        viewers = [viewer]
        if trouble == "taken-over":
            self._exchange(viewer, seed, SMALL)
            viewers.append(viewer := self._take_over(viewer))
        self._trouble_in_session(trouble, viewer, seed, times)
        self._stage.pc.set_agent_behaviour(None)
        for number, size in enumerate(sizes):
            self._exchange(viewer, seed + number, size)
            if number == 0:
                self._play(inner)
        if inner:
            self._exchange(viewer, seed - 1, SMALL)
        self._end(viewer, close, begun)
        for left in (*viewers, *([stranger] if stranger else [])):
            left.close()
        self.drop_server()

    def _come_as_stranger(self):
        """It is neither let in nor closed, and the listener is another one."""
        place = self._log.here()
        self._log.allow("KVM IP validation failed, closing the base socket and retry...")
        stranger = connect(self._stage.host.kvm_address, STRANGER)
        self._log.await_line(KVM_ACCEPTS, self._log.await_line("KVM IP validation failed", place))
        self._stage.kept_handles += 1
        return stranger

    def _take_over(self, first):
        """The session is the second viewer's. A receiver that still waits for the first one is woken by a last byte of it."""
        second = self.begin()
        first.say(b"!")
        second.say(b"?")
        ends = [first, second, *([self._server] if self._server else [])]
        current = self._server or second  # an echo goes to the viewer that is there now
        arrived = pump(ends, lambda: b"?" in current.received, "the first byte of the second viewer")
        said = current.take_received()
        assert arrived and said in (b"!?", b"?"), f"the firmware received {said} from the two viewers"
        return second

    def _trouble_in_session(self, trouble, viewer, seed, times):
        if trouble == "retry":
            self._stage.refuse("WriteKVMPacket", RETRY, times)
        elif trouble == "refuse-data":
            place = self._log.here()
            self._stage.refuse("WriteKVMPacket", 5)
            viewer.say(content(seed, SMALL))
            refused = pump([viewer], lambda: self._log.count("with dwLastError = 5", place), "a block to be refused")
            assert refused, "the connection ended"
        elif trouble == "delay-data":
            self._stage.fault("delay", "WriteKVMPacket", 20)
            self._exchange(viewer, seed, SMALL)
            self._stage.fault("delay", "WriteKVMPacket", 0)
        elif trouble == "agent-killed":
            self._stage.pc.kill_agents()

    def _exchange(self, viewer, seed, size):
        """Both directions at once, every byte of them."""
        data = content(seed, size)
        viewer.say(data)
        if self._server:
            picture = content(~seed, 2 * size)
            self._server.say(picture)
            ends, wanted = [viewer, self._server], picture
        else:
            ends, wanted = [viewer], data

        def arrived():
            return len(viewer.received) >= len(wanted) and (not self._server or len(self._server.received) >= size)
        if not pump(ends, arrived, "a viewer's bytes"):
            self._log.read()
            raise AssertionError("a viewer's connection ended; the log says\n" + "\n".join(self._log.last()[-30:]))
        same(viewer.take_received(), wanted, "firmware to viewer")
        if self._server:
            same(self._server.take_received(), data, "viewer to firmware")
        self._stage.tally.moved["KVM"] += size + len(wanted)

    def _end(self, viewer, close, begun):
        self._log.allow(*SESSION_END_ERRORS)
        if close == "server" and self._server:
            self._server.close()  # the firmware closes the session by itself
            await_end(viewer, "the session's end")
        elif close in ("firmware", "server"):
            self._stage.send("VNC_SOC_CLOSE")
            await_end(viewer, "the session's end")
        else:
            if close == "reset":
                self._log.allow("KVMDataRecvThread: recv() failed with error: 10054")
                viewer.reset()
            else:
                viewer.close()
            self._log.await_line(CLEANED, begun)
            self._stage.send("VNC_SOC_CLOSE")  # without it no other session begins
        self._log.await_line(CLEANED, begun)

    def _without_agent(self, trouble):
        """A session that can't begin ends with its clean-up."""
        begun = self._log.here()
        no_agent = trouble == "no-agent"
        self._log.allow("LaunchProcess: ZELKVMApp.exe CreateProcessAsUser failed with error: 2" if no_agent else
                        "getWindowsLogonHandle: OpenProcess failed returning false",
                        "DoInitKVM: Launch KVM_Agent failed", "RunServerKVMThread: DoInitKVM failed, closing the KVM connection")
        self._stage.pc.remove_agent() if no_agent else self._stage.pc.log_on(False)
        self.enable()
        with connect(self._stage.host.kvm_address) as viewer:
            await_end(viewer, "the session's end")
        self._log.await_line(CLEANED, begun)
        self._stage.pc.install_agent() if no_agent else self._stage.pc.log_on(True)
        self._stage.send("VNC_SOC_CLOSE")

    def drop_server(self):
        if self._server:
            self._server.close()
            self._server = None
