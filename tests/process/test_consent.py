"""The question to the person at the PC, from the firmware's command to the answer that it gets."""

import struct

import pytest

from harness.waiting import eventually

YES, NO = 1, 2


@pytest.fixture
def consent(kvm):
    return kvm.boot()


def answers(kvm):
    return [(request["fields"]["Type"], request["fields"]["Consent"]) for request in kvm.firmware.requests("WriteUserConsent")]


def await_answer(kvm):
    """The one answer that the firmware gets. The service looks for it every 3 seconds."""
    kvm.advance_until(lambda: answers(kvm), "the answer at the firmware", 3_000)
    [answer] = answers(kvm)
    return answer


def await_connected(kvm):
    kvm.host.await_log("Message written to named pipe.")


# --- answers ---


@pytest.mark.parametrize("level", [40, 50])
@pytest.mark.parametrize("word, consent", [("yes", YES), ("no", NO), ("noresponse", NO)])
def test_the_persons_answer_reaches_the_firmware(kvm, level, word, consent):
    kvm.boot(level=level)
    client = kvm.host.consent_client("--answer", word)
    kvm.ask_consent(1, 60)
    assert await_answer(kvm) == (1, consent)
    assert client.wait() == 0
    assert "asked: type 1, time limit 60 seconds\n" in client.output()


def test_firmware_below_level_40_gets_no_answer_and_nobody_is_asked(kvm):
    kvm.boot(level=39)
    kvm.host.consent_client("--answer", "yes")
    kvm.ask_consent(1, 60)
    kvm.host.await_log("Version check is less than 40 user consent is disabled and send ok to driver")
    kvm.host.ctl("clock", "advance", 100_000)
    assert kvm.host.stop_service() == 0
    assert answers(kvm) == []
    assert "Named Pipe Created" not in kvm.host.log_text()


def test_a_locked_pc_agrees_without_a_question(consent):
    consent.host.ctl("lock")
    consent.ask_consent(2, 60)
    consent.firmware.await_request("WriteUserConsent")
    assert answers(consent) == [(2, YES)]
    assert "Named Pipe Created" not in consent.host.log_text()


def test_each_question_is_asked_anew(consent):
    client = consent.host.consent_client("--answer", "no", "--serve")
    for count in (1, 2):
        consent.ask_consent(count, 60)
        consent.advance_until(lambda: len(answers(consent)) == count, "the answer", 3_000)
    assert answers(consent) == [(1, NO), (2, NO)]
    assert client.output().count("asked:") == 2


# --- answers that are none ---


def test_wrong_words_are_passed_over_until_a_right_one_comes(consent):
    consent.host.consent_client("--answer", "perhaps", "Consent_YES", "Consent_yes!", "no")
    consent.ask_consent(1, 60)
    assert await_answer(consent) == (1, NO)
    assert consent.host.log_text().count("Value received is same as previous") == 3


def test_an_answer_of_600_bytes_is_passed_over(consent):
    consent.host.consent_client("--raw", "Consent_yes" + "z" * 589, "Consent_no\\r\\n")
    consent.ask_consent(1, 60)
    assert await_answer(consent) == (1, NO)
    assert "reading from namedpipe failed or no of bytes read is 0" in consent.host.log_text()


def test_a_right_word_that_comes_too_late_still_counts(consent):
    """The time limit is looked at between two messages."""
    client = consent.host.consent_client("--answer", "yes", "--delay", "1")
    consent.ask_consent(1, 60)
    await_connected(consent)
    consent.host.ctl("clock", "advance", 91_000)
    assert await_answer(consent) == (1, YES)
    assert client.wait() == 0


def test_wrong_words_beyond_the_time_limit_repeat_the_answer_before(consent):
    client = consent.host.consent_client("--answer", "no")
    consent.ask_consent(2, 60)
    assert await_answer(consent) == (2, NO)
    assert client.wait() == 0
    consent.host.consent_client("--answer", "perhaps", "--repeat", "1000")
    consent.ask_consent(1, 1_000)
    consent.advance_until(lambda: len(answers(consent)) == 2, "the end of the time limit", 10_000)
    assert answers(consent)[1] == (2, NO)
    assert "thread time reached" in consent.host.log_text()


def test_a_client_that_goes_away_leaves_the_question_to_its_time_limit(consent):
    client = consent.host.consent_client("--answer", "silent")
    consent.ask_consent(1, 30)
    eventually(lambda: "asked" in client.output(), "the client to have the question")
    client.kill()
    assert await_answer(consent) == (0, YES)  # no answer came before: the one that stands there at first
    assert "thread time reached" in consent.host.log_text()


# --- no answer at all ---


def test_a_silent_client_holds_its_question_and_nothing_else(consent):
    consent.stage.expect_errors("Service is not signalled as Up")  # the stop may overtake the end of the console's session
    client = consent.host.consent_client("--answer", "silent")
    consent.ask_consent(1, 30)
    await_connected(consent)
    consent.host.ctl("clock", "advance", 100_000)
    assert consent.stage.console.identify()["ProductVendor"]
    assert answers(consent) == []
    assert consent.host.stop_service() == 0
    assert client.wait() == 0


def test_without_a_client_the_next_question_takes_the_place_of_the_one_before(consent):
    consent.ask_consent(1, 30)
    consent.host.await_log("Waiting for the named pipe connection")
    consent.host.ctl("clock", "advance", 100_000)
    assert answers(consent) == []
    with_one_question = consent.host.footprint().threads
    consent.ask_consent(2, 90)
    consent.host.await_log("Waiting for the named pipe connection", 2)
    consent.advance_until(lambda: consent.host.footprint().threads <= with_one_question, "the first question to be given up", 3_000)
    client = consent.host.consent_client("--answer", "yes")
    assert await_answer(consent) == (2, YES)
    assert "asked: type 2" in client.output()


def test_a_question_that_nobody_answers_does_not_hold_the_stop(consent):
    consent.ask_consent(1, 30)
    consent.host.await_log("Waiting for the named pipe connection")
    assert consent.host.stop_service() == 0
    assert answers(consent) == []


# --- questions of another size ---


def test_a_question_that_is_too_short_leaves_the_rest_as_it_was(consent):
    client = consent.host.consent_client("--answer", "yes", "--serve")
    consent.ask_consent(1, 77)
    assert await_answer(consent) == (1, YES)
    consent.firmware.send("GET_KVM_CONSENT", "--hex", "02")
    consent.advance_until(lambda: len(answers(consent)) == 2, "the second answer", 3_000)
    assert answers(consent)[1] == (2, YES)
    assert "asked: type 2, time limit 77 seconds\n" in client.output()


def test_a_question_that_is_too_long_is_cut(consent):
    client = consent.host.consent_client("--answer", "yes")
    consent.firmware.send("GET_KVM_CONSENT", "--hex", (struct.pack("<II", 1, 45) + b"\xff" * 1_000).hex())
    assert await_answer(consent) == (1, YES)
    assert client.output().startswith("asked: type 1, time limit 45 seconds\n")
