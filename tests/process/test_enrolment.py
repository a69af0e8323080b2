"""A certificate for the firmware, from its request through certreq.exe and the PC's certificate stores to its answer."""

import json

import pytest

from harness.enrolment import CA, CA_FILE, ISSUER, Enterprise
from harness.host import RUNNING
from harness.waiting import eventually

# Another authority's.
ALPHA = "CN=Example Root Alpha,O=Example"
ALPHA_PEM = """-----BEGIN CERTIFICATE-----
MIIBtjCCAVugAwIBAgIUSV9v9Q3Lbpf2qnsGNDlhwLo2y+gwCgYIKoZIzj0EAwIw
LzEQMA4GA1UECgwHRXhhbXBsZTEbMBkGA1UEAwwSRXhhbXBsZSBSb290IEFscGhh
MCAXDTI2MTEyMjExMzcwNloYDzIxMjYxMDI5MTEzNzA2WjAvMRAwDgYDVQQKDAdF
eGFtcGxlMRswGQYDVQQDDBJFeGFtcGxlIFJvb3QgQWxwaGEwWTATBgcqhkjOPQIB
BggqhkjOPQMBBwNCAAQokQbkhubIEnfyRH3qzZ8vopssrm2y2obmvmw4aAcB9B9q
AoFK+Yygu22Y2lXMOh2L/tVbwMerdZVWMo5IrR5Po1MwUTAdBgNVHQ4EFgQUwDHR
TOzsHCiGI2G37UiAVdQFmH8wHwYDVR0jBBgwFoAUwDHRTOzsHCiGI2G37UiAVdQF
mH8wDwYDVR0TAQH/BAUwAwEB/zAKBggqhkjOPQQDAgNJADBGAiEA/XOiFr5Djnhy
gydjXR9QnMcszFT7XChEPswndHBq3a0CIQCrG7+14uSpX27IZFtmQDHkD+ibUpK8
PpllAIEO2c0Fww==
-----END CERTIFICATE-----
"""
NO_CRT = "Failed to open crt file. Error: 2"
NO_ROOT = "Failed to open rootCA file. Error: 2"
NOT_FOUND = "Failed to find the certificate: "


@pytest.fixture
def enterprise(stage):
    stage.power_up()
    return Enterprise(stage.host, stage.firmware)


@pytest.fixture
def start(stage, enterprise):
    """Starts the service on the PC as the test has laid it out."""
    def start_service():
        stage.host.start_service()
        stage.host.await_state(RUNNING)
        stage.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 1)
        return enterprise

    return start_service


def test_the_firmware_gets_a_certificate_for_its_key(stage, start):
    certificate = start().enrol()
    assert certificate["subject"] == "CN=laptop.example.test"
    assert (certificate["issuer"], certificate["root"]) == (ISSUER, ISSUER)
    assert certificate["matchesKey"] and certificate["chainsToRoot"]
    verdict = f"CN=laptop.example.test, issued by {ISSUER}, matches its key, chains to the root {ISSUER}"
    assert verdict in stage.firmware.show()
    eventually(lambda: f"certificate: {verdict}" in stage.firmware.log_path.read_text(), "the note of the firmware")
    command = json.loads(stage.host.ctl("launches", "--json"))[-1]["commandLine"]
    assert command.startswith(f'certreq.exe -submit -config "ca.example.test\\{CA}" -attrib "CertificateTemplate:Machine" "C:\\')


def test_nothing_is_left_of_an_enrolment(stage, start):
    enterprise = start()
    for count in range(1, 6):
        assert enterprise.enrol()["matchesKey"], count
    stage.host.await_log("Folder deleted: ", 10)
    assert not enterprise.folder_exists()
    for written in (stage.host.log_text(), stage.firmware.record_path.read_text(), stage.firmware.log_path.read_text()):
        assert "PRIVATE" not in written


def test_enrolments_leave_nothing_in_the_service(stage, start, stays_small):
    enterprise = start()

    def enrol(number):
        assert enterprise.enrol()["matchesKey"], number
        # The next one uses the same folder.
        stage.host.await_log("Folder deleted: ", 2 * (number + 1))

    stays_small(enrol)


def test_two_requests_at_once_are_both_answered(stage, start):
    # They work on the same files, so that one may miss what the other has removed.
    stage.expect_errors("Failed to open crt file", "Failed to open rootCA file", "Failed to create directory for CSR")
    enterprise = start()
    enterprise.begin()
    enterprise.begin()
    assert enterprise.await_answers(2)["answers"] == 2
    stage.host.await_log("Folder deleted: ")
    # The next one finds nothing of them.
    assert enterprise.enrol()["chainsToRoot"]


@pytest.mark.parametrize("behaviour", ["refuse", None])
def test_without_a_certificate_the_answer_has_only_the_root(stage, enterprise, start, behaviour):
    stage.expect_errors(NO_CRT)
    if behaviour:
        enterprise.set_behaviour(behaviour)
    start()
    if not behaviour:
        # The authority exists since an earlier enrolment.
        enterprise.enrol()
        enterprise.remove()
    certificate = enterprise.enrol()
    assert certificate["signedCertSize"] == 0 and certificate["rootCertSize"] > 0
    assert certificate["verdict"] == "refused: no certificate"


def test_a_certificate_that_is_too_long_is_cut(enterprise, start):
    enterprise.set_behaviour("length=5000")
    certificate = start().enrol()
    assert certificate["signedCertSize"] == 4096
    assert certificate["verdict"] == "refused: the answer is no certificate"
    assert certificate["root"] == ISSUER


def test_a_program_that_hangs_holds_neither_commands_nor_the_stop(stage, enterprise, start):
    enterprise.set_behaviour("hang")
    start()
    enterprise.begin()
    eventually(enterprise.running, "certreq.exe")
    stage.firmware.send(200)
    stage.host.await_log("Unknown Command received from driver: 0xc8")
    assert stage.host.stop_service() == 0
    assert not enterprise.answers()
    assert not enterprise.folder_exists()


@pytest.mark.parametrize("name, root", [("Nowhere", None), ("", ALPHA), ("example", ALPHA), ("enterprise ca", ISSUER)])
def test_the_name_of_the_authority_selects_its_certificate(stage, enterprise, start, name, root):
    """An unknown name, an empty one, and one that several certificates have: the first of the store."""
    stage.expect_errors(NO_CRT, NO_ROOT, NOT_FOUND + name)
    enterprise.set_stores([ALPHA_PEM, CA_FILE], [CA_FILE, ALPHA_PEM])
    certificate = start().enrol(ca=name)
    assert certificate["signedCertSize"] == 0
    assert certificate.get("root") == root


def test_a_store_that_cannot_be_opened_leaves_the_root_out(stage, start):
    stage.expect_errors(NOT_FOUND + CA, NO_ROOT)
    enterprise = start()
    stage.host.ctl("gate", "fail", "CertOpenStore", 1, 5)
    certificate = enterprise.enrol()
    assert certificate["matchesKey"] and certificate["rootCertSize"] == 0
    assert certificate["verdict"].endswith(", matches its key, came without its root")
    assert enterprise.enrol()["chainsToRoot"]


def test_payloads_of_any_size_are_answered(stage, start):
    stage.expect_errors(NO_CRT, NO_ROOT, NOT_FOUND)
    enterprise = start()
    for count, size in enumerate((0, 100, 4296, 20000), 1):
        stage.firmware.send("CSR", "--size", size)
        assert enterprise.await_answers(count)["signedCertSize"] == 0
        assert f"Size of CSR buffer {size} " in stage.host.log_text()
    # Names that fill their fields, without an end.
    stage.firmware.send("CSR", "--text", "n" * 192)
    enterprise.await_answers(5)
    assert "CSR Details ADCS Name={0} RootCAName={0} ADCSTemplateName={0} ".format("n" * 64) in stage.host.log_text()
