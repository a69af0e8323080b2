"""Power buttons: a console asks the firmware, the firmware commands the host, which acts once it has the answer to forward."""

import pytest

from harness.console import HIBERNATE, OFF_HARD, OFF_SOFT_GRACEFUL, POWER_CYCLE, SLEEP
from harness.waiting import eventually

SHUTDOWN = "InitiateSystemShutdownExA(null, null, 0, 1, 0, 0x80000000)"
REBOOT = "InitiateSystemShutdownExA(null, null, 0, 1, 1, 0x80000000)"
DASH_DATA, HOST_CYCLE_SOFT, HOST_OFF_HARD, HOST_OFF_SOFT_GRACE, REBOOT_NONDASH = 8, 21, 22, 28, 33


def await_actions(stage, *calls):
    eventually(stage.host.power_actions, "a power action")
    assert stage.host.power_actions() == list(calls)


@pytest.mark.parametrize("state, command, call, line", [
    (OFF_HARD, HOST_OFF_HARD, SHUTDOWN, "DoSytemShutdown: Shutdown initiated"),
    (POWER_CYCLE, HOST_CYCLE_SOFT, REBOOT, "DoSytemShutdown: Reboot initiated"),
    (OFF_SOFT_GRACEFUL, HOST_OFF_SOFT_GRACE, "ExitWindowsEx(5, 0x80000000)", "DoSytemShutdown: Shutdown G2(S5) initiated"),
])
def test_a_console_ends_or_restarts_the_pc_and_only_once_it_is_answered(stage, state, command, call, line):
    stage.boot()
    assert stage.console.request_power_state(state) == 0
    await_actions(stage, call)
    log = stage.host.log_text()
    latched = log.index(f"received command from driver {command}")
    answered = log.index(f"received command from driver {DASH_DATA}", latched)
    assert answered < log.index(line)
    assert "Power option failed" not in log


@pytest.mark.parametrize("state, call, name", [
    (HIBERNATE, "SetSuspendState(1, 1, 0)", "Hibernate"),
    (SLEEP, "SetSuspendState(0, 1, 0)", "Sleep"),
])
def test_the_pc_sleeps_two_seconds_after_the_answer(stage, state, call, name):
    stage.boot()
    stage.host.ctl("clock", "manual")
    assert stage.console.request_power_state(state) == 0
    stage.host.await_log(f"Delaying {name} for 2 seconds")
    stage.host.await_log("Power option failed PowerOption: 0x0")  # the normal record of a sleep
    stage.host.ctl("clock", "advance", 1_999)
    assert stage.host.power_actions() == []
    # The thread logs ahead of its sleep, which may thus begin after the first step of the clock.
    eventually(lambda: stage.host.ctl("clock", "advance", 1) is not None and stage.host.power_actions(), "the suspend")
    await_actions(stage, call)


def test_the_reboot_that_is_no_dash_command_acts_at_once(stage):
    stage.boot()
    stage.firmware.send(REBOOT_NONDASH)
    await_actions(stage, REBOOT)
    assert "DASH packet received" not in stage.host.log_text()


def test_a_power_command_without_an_answer_does_nothing_until_one_comes(stage):
    stage.firmware = type(stage.firmware)(stage.workdir, dash="none")
    stage.boot()
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        stage.firmware.send(HOST_OFF_HARD)
        stage.firmware.send(53)  # read behind it
        stage.host.await_log("ProcessRead: Unknown Command received from driver: 0x35")
        assert stage.host.power_actions() == []
        stage.firmware.send("DASH_DATA", "--text", "the answer")
        assert console.recv(100) == b"the answer"
        await_actions(stage, SHUTDOWN)


def test_of_two_power_commands_the_last_acts_once(stage):
    stage.firmware = type(stage.firmware)(stage.workdir, dash="none")
    stage.boot()
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        stage.firmware.send(HOST_OFF_HARD)
        stage.firmware.send(HOST_CYCLE_SOFT)
        for answer in (b"first", b"other"):
            stage.firmware.send("DASH_DATA", "--text", answer.decode())
            assert console.recv(100) == answer
        await_actions(stage, REBOOT)


def test_a_state_that_the_host_does_not_know_sends_no_command(stage):
    stage.boot()
    assert stage.console.request_power_state(11) == 1
    assert not [entry for entry in stage.firmware.messages() if entry["name"].startswith("MPM_ZEL_CMD_HOST_")]
    assert stage.host.power_actions() == []
