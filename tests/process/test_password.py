"""The password of the service account: changed in the directory on the firmware's command."""

import hashlib
import json

import pytest

from harness.directory import PASSWORD_STATUS, files_with, send_passwords

OLD, NEW = "the old Secret", "the new Secret"


def hash_of(password):
    return hashlib.sha256(password.encode()).hexdigest()


@pytest.fixture
def laptop(stage):
    def boot(**directory):
        account = {"name": "WINHOST-PC_vork_service", "passwordHash": hash_of(OLD)}
        stage.power_up(dnsDomain="corp.example", directory={"domain": "corp.example", "accounts": [account], **directory})
        stage.host.start_service()
        stage.firmware.await_request("WriteMultiNwInfo")
        return stage

    return boot


def test_the_password_changes_and_shows_nowhere(laptop):
    stage = laptop()
    send_passwords(stage, OLD, NEW)
    assert stage.firmware.await_request(PASSWORD_STATUS)["fields"] == {"status": 0}
    directory = json.loads(stage.host.ctl("description", "--json"))["directory"]
    assert directory["accounts"][0]["passwordHash"] == hash_of(NEW)
    changes = json.loads(stage.host.ctl("password-changes", "--json"))
    assert changes == [{"domain": "CORP.EXAMPLE", "user": "WINHOST-PC_vork_service", "result": 0}]
    assert stage.host.stop_service() == 0
    assert files_with("Secret", stage.workdir) == []


@pytest.mark.parametrize("old, new, directory, code", [
    ("wrong", NEW, {}, 86), (OLD, "short", {}, 2245), (OLD, NEW, {"accounts": []}, 2221), (OLD, NEW, {"reachable": False}, 1351),
])
def test_a_refusal_reaches_the_firmware(laptop, stage, old, new, directory, code):
    stage.expect_errors("AD Password change failed with error")
    laptop(**directory)
    send_passwords(stage, old, new)
    assert stage.firmware.await_request(PASSWORD_STATUS)["fields"] == {"status": code}


def test_a_stop_does_not_wait_for_the_directory(laptop):
    stage = laptop(responseMs=600_000)
    send_passwords(stage, OLD, NEW)
    stage.host.await_log("Service account name: ")
    assert stage.host.stop_service() == 0
    assert not stage.firmware.requests(PASSWORD_STATUS)
