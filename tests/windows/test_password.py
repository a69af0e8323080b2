"""The password of the service account, changed on the firmware's command."""

import pytest

from harness.directory import PASSWORD_STATUS, files_with, send_passwords

OLD, NEW = "the old Secret", "the new Secret"
DOMAIN = "corp.example"
FAILED = "AD Password change failed with error "
# Wine's own library knows no account.
UNKNOWN_USER = 2221


@pytest.fixture
def directory(stage):
    stage.host.join_domain(DOMAIN)
    directory = stage.host.use_directory()
    yield directory
    directory.remove()
    stage.host.join_domain("")


def test_the_directory_gets_the_account_and_the_passwords(stage, directory):
    stage.boot()
    send_passwords(stage, OLD, NEW)
    assert stage.firmware.await_request(PASSWORD_STATUS)["fields"] == {"status": 0}
    account = f"{stage.host.network_name}_vork_service"
    assert directory.calls() == [[DOMAIN.upper(), account, OLD, NEW]]
    assert f"Service account name: {account} Domainname: {DOMAIN} $$" in stage.host.log_text()
    assert "AD Password change successful" in stage.host.log_text()
    assert stage.host.stop_service() == 0
    directory.remove()
    assert files_with("Secret", stage.workdir, stage.host.working_folder) == []


def test_a_refusal_reaches_the_firmware_and_the_last_error_the_log(stage, directory):
    stage.expect_errors(FAILED + "1326")
    directory.answer(86, 1326)
    stage.boot()
    send_passwords(stage, OLD, NEW)
    assert stage.firmware.await_request(PASSWORD_STATUS)["fields"] == {"status": 86}
    stage.host.await_log(FAILED + "1326")


def test_the_librarys_own_refusal_reaches_the_firmware(stage):
    stage.expect_errors(FAILED)
    stage.boot()
    send_passwords(stage, OLD, NEW)
    assert stage.firmware.await_request(PASSWORD_STATUS)["fields"] == {"status": UNKNOWN_USER}
    assert stage.host.stop_service() == 0
    assert files_with("Secret", stage.workdir, stage.host.working_folder) == []
