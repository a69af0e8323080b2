"""Events of the filter driver, which runs for a wireless connection of a provisioned platform with Modern Standby."""

import contextlib

from harness.waiting import eventually

PROVISIONED, NOT_PROVISIONED = 2, 0
REFUSED = 5
SLOW = 2000  # milliseconds of the PC's clock
MANY = 20
# What the PC is changed to, and the line that follows: where the driver is to be turned on, and where it is to be turned off.
FAULTS = {
    "refuses-start": ({"startError": REFUSED}, "Failed to start driver. Error: 5", None),
    "refuses-stop": ({"stopError": REFUSED}, None, "Failed to stop driver. Error: 5"),
    "slow": ({"stopMs": SLOW}, None, None),
    "script-fails": ({}, "Failed to enable network binding via PowerShell.", "Failed to disable network binding via PowerShell."),
    "absent": (None, "Driver not found: KelmarMnf", "Driver not found: KelmarMnf"),
}


class Driver:
    def __init__(self, stage):
        self._stage = stage
        self._log = stage.log

    def driver(self, wireless, provisioned, fault):
        stage = self._stage
        runs = stage.pc.driver_runs()
        wanted = wireless and provisioned and stage.pc.has_standby
        stage.pc.set_wireless(wireless)
        stage.ask("set", values={"ProvisionStatus": PROVISIONED if provisioned else NOT_PROVISIONED})
        if fault and wanted != runs:
            self._meet(fault, wanted)
        for _ in range(MANY):
            # One that was under way has begun before the change.
            stage.report_anew()
            with contextlib.suppress(AssertionError):
                eventually(lambda: stage.pc.driver_runs() == wanted, "", patience=1.0)
                break
        else:
            raise AssertionError(f"the filter driver does not {'start' if wanted else 'stop'}")
        stage.pc.change_driver({"stopMs": 0})
        stage.tally.faults["filter driver change"] += 1

    def _meet(self, fault, wanted):
        """The change fails, and is tried again with the next report. A binding that fails is not."""
        change, *lines = FAULTS[fault]
        line = lines[0 if wanted else 1]
        place = self._log.here()
        if line:
            self._log.allow(line, times=MANY)
        with self._stage.pc.failing_scripts() if fault == "script-fails" else contextlib.nullcontext():
            self._stage.pc.change_driver(change)
            if line:
                self._stage.report_anew()
                self._log.await_line(line, place)
        self._stage.pc.change_driver({"startError": 0, "stopError": 0})
        self._stage.tally.faults[f"filter driver: {fault}"] += 1
