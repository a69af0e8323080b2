"""A certificate for the firmware, with the certificate stores, the chains and the processes of Windows.

certreq.exe is the stand-in, whose authority has its key in a key container and its certificate in the machine's stores.
"""

import pytest

from harness.enrolment import ISSUER, Enrolments
from harness.waiting import eventually

NO_CRT = "Failed to open crt file. Error: "
NO_ROOT = "Failed to open rootCA file. Error: "


@pytest.fixture
def enrolments(stage):
    stage.boot()
    yield Enrolments(stage.firmware)
    stage.host.set_certreq_behaviour(None)


def test_the_firmware_gets_a_certificate_for_its_key(stage, enrolments):
    certificate = enrolments.enrol()
    assert certificate["subject"] == "CN=laptop.example.test"
    assert (certificate["issuer"], certificate["root"]) == (ISSUER, ISSUER)
    assert certificate["matchesKey"] and certificate["chainsToRoot"]
    stage.host.await_log("Folder deleted: ", 2)
    assert not (stage.host.working_folder / "CSRCert").exists()
    assert "Successfully retrieved Certificate chain." in stage.host.log_text()


def test_without_a_certificate_the_answer_has_only_the_root(stage, enrolments):
    stage.expect_errors(NO_CRT)
    stage.host.set_certreq_behaviour("refuse")
    certificate = enrolments.enrol()
    assert certificate["signedCertSize"] == 0 and certificate["root"] == ISSUER


def test_an_unknown_authority_has_no_root(stage, enrolments):
    stage.expect_errors(NO_CRT, NO_ROOT, "Failed to find the certificate: Nowhere")
    certificate = enrolments.enrol(ca="Nowhere")
    assert (certificate["signedCertSize"], certificate["rootCertSize"]) == (0, 0)


def test_a_program_that_hangs_does_not_hold_the_stop(stage, enrolments):
    stage.host.set_certreq_behaviour("hang")
    enrolments.begin()
    stage.host.await_log("Certificate request command: ")
    try:
        assert stage.host.stop_service() == 0
        assert not enrolments.answers()
        eventually(lambda: not (stage.host.working_folder / "CSRCert").exists(), "the folder to go")
    finally:
        stage.host.end_certreq()
