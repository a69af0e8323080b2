"""How a life of the service ends: in good order, whatever stands in the way of it."""

from harness.kvm import SESSION_END_ERRORS
from harness.processes import is_running
from harness.waiting import eventually

from .consoles import SESSION
from .streams import await_end, connect, content

NO_LONGER_UP = ("Service is not signalled as Up", "Error Invalid Handle, returning: 6 to the caller")
CANCELLED = 995
MANY = 1000


class Endings:
    def __init__(self, stage, viewers):
        self._stage = stage
        self._viewers = viewers
        self._log = stage.log

    def end(self, how):
        if how in self._stage.pc.cannot:
            self._stage.tally.skipped[how] += 1
            how = "stop"  # some end there has to be
        # What is still under way when the service goes down finds the gate closed.
        self._log.allow(*NO_LONGER_UP, times=MANY)
        place, driver_runs = self._log.here(), self._stage.pc.driver_runs()
        code = {"stop": self._stop, "preshutdown": self._preshutdown, "vanish": self._vanish, "reset": self._reset,
                "hold": self._hold, "busy": self._busy}[how]()
        self._stage.stopped(code)
        assert not driver_runs or self._log.count("Driver disabled successfully.", place), "the filter driver outlives the service"
        self._stage.log.forget_allowances()
        self._stage.fault("clear")
        if how not in ("stop", "preshutdown"):
            self._stage.tally.faults[f"end: {how}"] += 1

    def _stop(self):
        return self._stage.pc.stop()

    def _preshutdown(self):
        return self._stage.pc.preshutdown()

    def _vanish(self):
        """The driver goes and comes back. The service receives nothing from then on, until it is started again."""
        place = self._log.here()
        self._log.allow("GetQueuedCompletionStatus failed with error", "GetOverlappedResult failed", "with dwLastError = ",
                        "Asynchronous", "MPM Status return failed", times=MANY)
        self._stage.fault("vanish")
        self._log.await_line("ReadFromMailBoxDriverThread: Exiting Thread Handler", place)
        self._stage.fault("come-back")
        self._stage.pc.await_mailbox(True)
        return self._stage.pc.stop()

    def _reset(self):
        """A refused close ends DASH for the rest of the service's life."""
        place = self._log.here()
        self._stage.refuse("WriteCloseSocketcmd", 5)
        with connect(self._stage.host.dash_address):
            self._log.await_line(SESSION, place)
        place = self._log.await_line("Resetting DASH communication", place)
        self._log.allow("exception error: enqueue on stopped ThreadPool", times=MANY)
        with connect(self._stage.host.dash_address):
            self._log.await_line("Process the accepted connection", place)
            return self._stage.pc.stop()

    def _hold(self):
        """A request that is never answered doesn't hold the stop."""
        place = self._log.here()
        self._stage.explain_failures(CANCELLED, times=MANY)
        self._stage.fault("hold", "WriteDASHPacket")
        with connect(self._stage.host.dash_address) as console:
            console.say(b"hello")
            console.move(False, True)
            self._log.await_line("DASH packet received by socket server", place)
            return self._stage.pc.stop()

    def _busy(self):
        """A console, a viewer and a question in the middle of their work."""
        place = self._log.here()
        self._log.allow(*SESSION_END_ERRORS, times=MANY)
        self._log.allow("KVMDataRecvThread: recv() failed", "send() failed with error", times=MANY)
        self._stage.explain_failures(CANCELLED, times=MANY)
        self._stage.ask_consent(1, 60)
        self._viewers.enable()
        with self._viewers.begin() as viewer, connect(self._stage.host.dash_address) as console:
            self._log.await_line(SESSION, place)
            viewer.say(content(1, 300_000))
            console.say(content(2, 300_000))
            for stream in (viewer, console):
                stream.move(False, True)
            agents = self._stage.pc.agents()
            code = self._stage.pc.stop()
            for stream in (viewer, console):
                await_end(stream, "a connection's end by the stop")
        self._viewers.drop_server()
        eventually(lambda: not any(is_running(agent) for agent in agents), "the agent to leave")
        return code
