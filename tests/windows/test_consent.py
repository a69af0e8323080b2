"""The question to the person at the PC, through Windows' own named pipe.

Wine has no locked desktop, so that it counts as unlocked: what a locked PC answers is checked natively
alone. So are the time limits, for which the clock has to be moved.
"""

import time

from harness.waiting import eventually

YES, NO = 1, 2
# So many seconds the service's process waits at its end for a thread that hangs.
HANGS = 3


def answers(kvm):
    return [(request["fields"]["Type"], request["fields"]["Consent"]) for request in kvm.firmware.requests("WriteUserConsent")]


def stop_seconds(kvm):
    started = time.monotonic()
    assert kvm.host.stop_service() == 0
    return time.monotonic() - started


def test_the_persons_answers_reach_the_firmware(kvm):
    kvm.boot()
    agreeing = kvm.host.consent_client("--answer", "yes")
    kvm.ask_consent(1, 60)
    eventually(lambda: answers(kvm) == [(1, YES)], "the first answer")
    assert agreeing.wait() == 0
    assert "asked: type 1, time limit 60 seconds" in agreeing.output()
    refusing = kvm.host.consent_client("--raw", "Consent_no\\r\\n")
    kvm.ask_consent(2, 120)
    eventually(lambda: answers(kvm) == [(1, YES), (2, NO)], "the second answer")
    assert refusing.wait() == 0
    assert "asked: type 2, time limit 120 seconds" in refusing.output()
    assert "Desktop state: Un-locked, 0" in kvm.host.log_text()


def test_a_question_that_nobody_hears_does_not_hold_the_stop(kvm):
    kvm.boot()
    kvm.ask_consent(1, 30)
    kvm.host.await_log("Waiting for the named pipe connection")
    assert stop_seconds(kvm) < HANGS
    assert answers(kvm) == []


def test_a_client_that_stays_silent_does_not_hold_the_stop(kvm):
    kvm.boot()
    client = kvm.host.consent_client("--answer", "silent")
    kvm.ask_consent(1, 30)
    kvm.host.await_log("Message written to named pipe.")
    assert stop_seconds(kvm) < HANGS
    assert client.wait() == 0
    assert answers(kvm) == []
