"""Consoles authenticate themselves to the firmware with the means of real clients."""

import base64
import ssl
import subprocess
import urllib.request

import pytest

from harness.console import OFF_SOFT_GRACEFUL, REQUEST_POWER_STATE_CHANGE, Console

USER, PASSWORD = "administrator", "correct horse: battery"
POWER_ON = REQUEST_POWER_STATE_CHANGE % 2  # changes nothing: the host is on
HEADERS = {"Content-Type": "application/soap+xml;charset=UTF-8"}


@pytest.fixture
def guarded(stage):
    stage.firmware = type(stage.firmware)(stage.workdir, settings={"Users": {USER: PASSWORD}})
    return stage.boot()


def curl_status(stage, *options):
    done = subprocess.run(
        ["curl", "--silent", "--show-error", "--insecure", "--max-time", "20", "--output", "/dev/null", "--write-out",
         "%{http_code}", "--header", "Content-Type: application/soap+xml", "--data-binary", "@-", *options, stage.console.url],
        input=POWER_ON, capture_output=True, text=True, timeout=30)
    assert done.returncode == 0, done.stderr
    return int(done.stdout)


def test_identify_needs_no_user_and_everything_else_does(guarded):
    assert guarded.console.identify()["ProductVendor"]
    assert guarded.console.post(POWER_ON)[0] == 401
    assert guarded.console.post(REQUEST_POWER_STATE_CHANGE % OFF_SOFT_GRACEFUL)[0] == 401
    assert not guarded.host.power_actions()


@pytest.mark.parametrize("scheme", ["--basic", "--digest", "--anyauth"])
def test_curl_authenticates_itself(guarded, scheme):
    assert curl_status(guarded, scheme, "--user", f"{USER}:{PASSWORD}") == 200
    assert curl_status(guarded, scheme, "--user", f"{USER}:wrong") == 401


@pytest.mark.parametrize("challenges", ["MD5", "SHA-256", "Basic", "SHA-256,MD5,Basic"])
def test_curl_takes_the_challenge_that_it_is_offered(guarded, challenges):
    guarded.firmware.set(Challenges=challenges)
    assert Console(guarded.console.address, USER, PASSWORD).request_power_state(2) == 0


def urllib_status(stage, handler):
    passwords = urllib.request.HTTPPasswordMgrWithDefaultRealm()
    passwords.add_password(None, stage.console.url, USER, PASSWORD)
    context = ssl.create_default_context()
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    opener = urllib.request.build_opener(urllib.request.HTTPSHandler(context=context), handler(passwords))
    request = urllib.request.Request(stage.console.url, POWER_ON.encode(), HEADERS)
    with opener.open(request, timeout=20) as response:
        return response.status


def test_pythons_client_authenticates_itself(guarded):
    guarded.expect_errors("recv() failed. Error: 10054")  # this client does not read the end of TLS
    assert urllib_status(guarded, urllib.request.HTTPDigestAuthHandler) == 200
    guarded.firmware.set(Challenges="Basic")
    assert urllib_status(guarded, urllib.request.HTTPBasicAuthHandler) == 200


def test_the_password_is_in_no_log(guarded):
    assert curl_status(guarded, "--basic", "--user", f"{USER}:{PASSWORD}") == 200
    guarded.firmware.set(**{"Users.second": "also secret"})
    logs = (guarded.firmware.log_path.read_text(errors="replace") + guarded.firmware.record_path.read_text()
            + guarded.firmware.show() + guarded.host.log_text())
    assert USER in guarded.firmware.show()
    for secret in (PASSWORD, "also secret", base64.b64encode(f"{USER}:{PASSWORD}".encode()).decode()):
        assert secret not in logs
