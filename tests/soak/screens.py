"""Events of the PC's own screen: the firmware pulls it, and a viewer sees it."""

import struct

from harness.host import SESSION_WITH_SCREEN_READY
from harness.kvm import SESSION_BEGUN, SESSION_END_ERRORS
from harness.waiting import eventually

from .streams import await_end, connect, pump
from .viewers import CLEANED

SIZE = (320, 180)
EXIT_EVENT = "LUX_KVM: Recevied DispEvtCaptureEncodeExit"
SENDS = 100  # of a session that may meet a viewer that has gone


class Screens:
    def __init__(self, stage, viewers):
        self._stage = stage
        self._viewers = viewers
        self._log = stage.log

    def screen(self, frames, trouble, close, times):
        stage = self._stage
        # The removal of earlier agents ends every one. Its last step is to delete their file.
        eventually(lambda: not (stage.host.working_folder / "terminate.txt").exists(), "earlier agents to be removed")
        stage.ask("set", values={"Kvm": "screen"})
        begun = self._log.here()
        if trouble == "early":
            stage.send("GET_DISPAY_CONFIG")
            stage.send("GET_ENCODED_FRAMEBUFFER")
        self._viewers.enable()
        self._log.await_line(SESSION_WITH_SCREEN_READY, begun)
        viewer = connect(stage.host.kvm_address)
        self._log.await_line(SESSION_BEGUN, begun)
        stage.tally.sessions["screen"] += 1
        self._look(viewer)
        self._trouble_in_session(trouble, times)
        state = self._await_frames(frames)
        self._end(viewer, close, begun)
        stage.tally.frames += state["frames"]["count"]
        assert state["decoded"]["failed"] == 0, state
        # Chunks that nothing asked for are faults of the firmware's request.
        assert trouble in ("flood", "early") or state["faults"]["count"] == 0, state
        if trouble != "none":
            stage.tally.faults[f"screen: {trouble}"] += 1
        stage.ask("set", values={"Kvm": stage.servers["kvm"].peer if stage.kvm == "bridge" else stage.kvm})

    def _look(self, viewer):
        """The viewer's part of RFB 3.3, up to the first picture."""
        def exchange(size, answer):
            assert pump([viewer], lambda: len(viewer.received) >= size, "the viewer's server"), "the viewer was disconnected"
            viewer.say(answer)
            return viewer.take_received()
        assert exchange(12, b"RFB 003.003\n").startswith(b"RFB 003.")
        assert exchange(4, b"\1") == struct.pack(">I", 1)  # no password
        whole = struct.pack(">BBHHHH", 3, 0, 0, 0, *SIZE)
        assert struct.unpack(">HH", exchange(24, whole)[:4]) == SIZE
        pixels = SIZE[0] * SIZE[1] * 4
        assert pump([viewer], lambda: len(viewer.received) >= pixels, "the picture"), "the viewer was disconnected"
        self._stage.tally.moved["screen"] += len(viewer.take_received())

    def _trouble_in_session(self, trouble, times):
        if trouble == "flood":
            for _ in range(10 * times):
                self._stage.send("GET_ENCODED_FRAMEBUFFER")
        elif trouble == "twice":
            place = self._log.here()
            self._stage.send("GET_DISPAY_CONFIG")
            self._log.await_line("LUX_KVM: DoInitLUXKVM success", place)
        elif trouble == "agent-killed":
            self._stage.pc.kill_agents()

    def _await_frames(self, count):
        state = {}

        def are_there():
            state.update(self._stage.ask("screen")["screen"])
            return state["frames"]["count"] >= count
        eventually(are_there, f"{count} frames")
        return state

    def _end(self, viewer, close, begun):
        self._log.allow(*SESSION_END_ERRORS, EXIT_EVENT)
        if close == "firmware":
            self._stage.send("VNC_SOC_CLOSE")
            await_end(viewer, "the session's end")
        elif close == "reset":
            self._log.allow("recv() failed with error: 10054", "send() failed with error: 10054", times=SENDS)
            viewer.reset()
        self._log.allow("send() failed with error: 10053", times=SENDS)
        viewer.close()
        self._log.await_line(CLEANED, begun)
        self._stage.send("VNC_SOC_CLOSE")  # without it no other session begins
        eventually(lambda: self._stage.ask("screen")["screen"]["state"] == "idle", "the display client to be idle")
