"""The page that mpmsim serves, without a browser: who may use it, and what it does with bad input and slow readers."""

import json
import pathlib
import subprocess
import time
import urllib.parse

import pytest

from harness.firmware import Firmware
from harness.processes import build_folder
from harness.waiting import eventually
from harness.websocket import BINARY, TEXT, LabPage, Refused, WebSocket, exchange

MOST_PAGES = 100


@pytest.fixture
def firmware(tmp_path, monkeypatch):
    # A sanitizer keeps freed memory for a while, which is none that the program holds.
    monkeypatch.setenv("ASAN_OPTIONS", "quarantine_size_mb=1:thread_local_quarantine_size_kb=64")
    with Firmware(tmp_path, quiet=True, record=False, web={"log": tmp_path / "zel.log"}) as firmware:
        yield firmware


@pytest.fixture
def page(firmware):
    with LabPage(firmware.url) as page:
        page.do("hello")
        yield page


def get(url, path=None, method="GET", headers=None):
    """The status and the whole answer to a request without a browser's help."""
    place = urllib.parse.urlsplit(url)
    sent = {"Host": place.netloc, "Connection": "close", **(headers or {})}
    lines = [f"{method} {place.path if path is None else path} HTTP/1.1"]
    lines += [f"{name}: {value}" for name, value in sent.items() if value is not None]
    answer = exchange(url, "\r\n".join([*lines, "", ""]).encode())
    return int(answer.split()[1]) if answer else 0, answer


def token_path(firmware):
    return urllib.parse.urlsplit(firmware.url).path


def resident_kilobytes(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmRSS"))


def serials(entries):
    return [entry["serial"] for entry in entries]


# --- who may use it ---

@pytest.mark.parametrize("address", ["0.0.0.0:0", "192.168.1.10:80", "example.org:80", "[::]:0", "127.0.0.1", "x"])
def test_other_addresses_than_the_loopback_are_refused(tmp_path, address):
    done = subprocess.run(
        [build_folder() / "mpmsim", "run", "--listen", f"unix:{tmp_path}/mailbox", "--web", address],
        capture_output=True, text=True, timeout=30)
    assert done.returncode == 2
    assert "is not PORT, 127.0.0.1:PORT or [::1]:PORT" in done.stderr


def test_a_port_in_use_is_an_error(tmp_path, firmware):
    port = urllib.parse.urlsplit(firmware.url).port
    done = subprocess.run(
        [build_folder() / "mpmsim", "run", "--listen", f"unix:{tmp_path}/other", "--web", str(port)],
        capture_output=True, text=True, timeout=30)
    assert (done.returncode, done.stderr) == (1, f"mpmsim: cannot listen on 127.0.0.1:{port} for the page\n")


def test_only_the_user_can_read_the_url(firmware):
    assert (firmware.workdir / "page.url").stat().st_mode & 0o777 == 0o600


@pytest.mark.parametrize("path", ["/", "/lab.js", "/favicon.ico", "/events", "/" + 32 * "0" + "/", "//", "*"])
def test_without_the_token_there_is_nothing(firmware, path):
    status, answer = get(firmware.url, path)
    assert status in (0, 403, 404)
    assert token_path(firmware).strip("/").encode() not in answer


def test_other_hosts_are_refused(firmware):
    port = urllib.parse.urlsplit(firmware.url).port
    for host in ("example.org", f"example.org:{port}", "127.0.0.1", "localhost:1", "", None):
        assert get(firmware.url, headers={"Host": host})[0] in (0, 403)
    assert get(firmware.url, token_path(firmware) + "nothing", headers={"Host": f"localhost:{port}"})[0] == 404


@pytest.mark.parametrize("origin", [None, "null", "http://example.org", "https://127.0.0.1", "http://127.0.0.1:1"])
def test_other_origins_get_no_socket(firmware, origin):
    with pytest.raises(Refused) as refused:
        WebSocket(firmware.url, headers={"Origin": origin})
    assert refused.value.status == 403


def test_a_wrong_token_or_path_gets_no_socket(firmware):
    wrong = firmware.url.replace(token_path(firmware), "/" + 32 * "0" + "/")
    for url, path in ((wrong, "events"), (firmware.url, "event"), (firmware.url, "events/x"), (firmware.url, "")):
        with pytest.raises(Refused) as refused:
            WebSocket(url, path)
        assert refused.value.status == 404
    with pytest.raises(Refused):
        WebSocket(firmware.url, protocol="chat")


@pytest.mark.parametrize("path", [
    "../../../../etc/passwd", "..%2f..%2f..%2fetc%2fpasswd", "novnc/../../../etc/passwd", "novnc/core/../../../../etc/passwd",
    "novnc/core/%2e%2e/%2e%2e/vnc.html", "novnc/vnc.html", "novnc/core/", "novnc", "..", "....//", "index.html%00.js",
])
def test_no_path_leads_out_of_the_page(firmware, path):
    status, answer = get(firmware.url, token_path(firmware) + path)
    assert status in (0, 404) and b"root:" not in answer


def test_what_is_served_may_load_nothing_from_elsewhere(firmware):
    if not pathlib.Path("/usr/share/novnc/core/rfb.js").exists():
        pytest.skip("the package novnc is not installed")
    status, answer = get(firmware.url, token_path(firmware) + "novnc/core/rfb.js")
    head = answer.partition(b"\r\n\r\n")[0].decode().lower()
    assert status == 200
    assert "content-security-policy: default-src 'none'; script-src 'self'" in head
    for header in ("referrer-policy: no-referrer", "x-content-type-options: nosniff", "cache-control: no-store",
                   "cross-origin-opener-policy: same-origin", "cross-origin-resource-policy: same-origin",
                   "content-type: text/javascript"):
        assert header in head
    assert get(firmware.url, token_path(firmware) + "novnc/core/rfb.js", "HEAD")[1].endswith(b"\r\n\r\n")


def test_the_page_is_served(firmware):
    status, answer = get(firmware.url)
    assert status == 200 and b"content-type: text/html" in answer and b"<!doctype html>" in answer.lower()


def test_files_are_only_read(firmware):
    for method in ("POST", "PUT", "DELETE", "OPTIONS"):
        assert get(firmware.url, method=method, headers={"Content-Length": "0"})[0] in (0, 405)


# --- bad input ---

@pytest.mark.parametrize("request_bytes", [
    b"\r\n" * 1000, b"\0" * 5000, b"GET", b"GET / HTTP/1.1\r\n" + b"a" * 20_000, b"GET /" + b"x" * 20_000 + b" HTTP/1.1\r\n\r\n",
    b"GET / HTTP/9.9\r\n\r\n", b"BREW / HTTP/1.1\r\nHost: x\r\n\r\n", b"GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n",
    b"GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n", b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00",
    b"GET / HTTP/1.1\r\nConnection: Upgrade, HTTP2-Settings\r\nUpgrade: h2c\r\nHTTP2-Settings: AAMAAABkAAQAAP__\r\n\r\n",
], ids=range(12))
def test_malformed_http_changes_nothing(firmware, page, request_bytes):
    answer = exchange(firmware.url, request_bytes, patience=0.5)
    assert b" 200 " not in answer and b" 101 " not in answer
    assert page.do("show")


def frames_of_bad_clients():
    yield "a reserved opcode", lambda page: page.send_frame(3, b"x")
    yield "reserved bits", lambda page: page.send_raw(b"\xf1\x80\0\0\0\0")
    yield "a continuation of nothing", lambda page: page.send_frame(0, b"x")
    yield "a long ping", lambda page: page.send_frame(9, bytes(1000))
    yield "bytes", lambda page: page.send_frame(BINARY, b"\0\1")
    yield "no UTF-8", lambda page: page.send_frame(TEXT, b"\xff\xfe")
    yield "a size of 2^63", lambda page: page.send_raw(b"\x81\xff" + b"\xff" * 8 + b"\0\0\0\0")


@pytest.mark.parametrize("break_rules", [pytest.param(send, id=name) for name, send in frames_of_bad_clients()])
def test_broken_frames_end_only_their_page(firmware, page, break_rules):
    with LabPage(firmware.url) as bad:
        bad.do("hello")
        break_rules(bad)
        with pytest.raises(ConnectionError):
            while True:
                bad.receive()
    assert page.do("show")


def test_messages_may_come_in_fragments(page):
    page.send_frame(TEXT, b'{"id": 77, ', final=False)
    page.send_frame(9, b"ping")
    page.send_frame(0, b'"do": "bytes", ', final=False)
    page.send_frame(0, b'"serial": 5}')
    while not (answer := page.take()):
        pass
    assert (answer["id"], answer["ok"]) == (77, False)


def test_a_message_of_more_than_two_megabytes_ends_its_page(firmware, page):
    with LabPage(firmware.url) as large:
        large.do("hello")
        with pytest.raises(ConnectionError):
            for _ in range(50):
                large.send_frame(TEXT, b" " * 100_000, final=False)
            while True:
                large.receive()
    assert page.do("show")


def test_a_message_of_almost_two_megabytes_is_taken(page):
    assert page.ask("send", command=8, payload="00" * 1_000_000)["ok"]


@pytest.mark.parametrize("text", ["", "x", "[]", "{}", "null", '{"id": "1", "do": "show"}', '{"id": 1}', "[" * 100_000])
def test_what_is_no_message_is_refused(page, text):
    page.send(text)
    while not (answer := page.take()):
        pass
    assert (answer["id"], answer["ok"]) == (None, False)
    assert answer["error"]


def test_wrong_members_are_refused_with_the_reason(page):
    assert page.refusal("dance") == '"dance" is not known'
    assert page.refusal("hello") == "the page has said hello already"
    assert page.refusal("send", command="nothing") == "\"command\" has to be a command's name or its number"
    assert "Colour" in page.refusal("set", values={"Colour": "red"})
    assert page.refusal("bytes", serial=10**9) == "the entry is not kept any more"
    assert page.refusal("pc", request={"command": "status"}) == "there is no simulated PC to ask"


def test_a_page_that_goes_in_the_middle_of_a_frame_is_forgotten(firmware, page):
    for cut in (b"\x81", b"\x81\xfe\x10", b"\x81\xff\0\0\0\0\0\x10\0\0abcd" + b"x" * 1000):
        other = LabPage(firmware.url)
        other.do("hello")
        other.send_raw(cut)
        other.close()
    page.await_news(lambda: page.news.get("state", {}).get("pages") == 1, "the other pages to be forgotten")


def test_there_are_at_most_a_hundred_pages(firmware):
    pages = [WebSocket(firmware.url) for _ in range(MOST_PAGES)]
    try:
        with pytest.raises(Refused) as refused:
            WebSocket(firmware.url)
        assert refused.value.status == 503
        pages.pop().close()

        def another():
            try:
                return WebSocket(firmware.url)
            except Refused:
                return None
        pages.append(eventually(another, "a place for another page"))
    finally:
        for page in pages:
            page.close()


# --- what a page sees ---

def test_nothing_comes_before_hello(firmware):
    with LabPage(firmware.url) as page:
        firmware.send("HOST_SLEEP_LIGHT")
        time.sleep(0.3)
        first = page.do("hello")
        assert page.wire == [] and page.news == {}
        assert {row["name"] for row in first["catalogue"]["commands"]} >= {"MPM_ZEL_CMD_KVM_IP_PORT_INFO"}
        assert first["features"]["log"] and not first["features"]["pc"]
        page.await_news(lambda: page.wire, "what was sent before")
        assert page.wire[-1]["name"] == "MPM_ZEL_CMD_HOST_SLEEP_LIGHT"


def test_a_command_goes_out_with_its_fields_and_comes_back_on_the_wire(page):
    page.do("send", command="KVM_IP_PORT_INFO", fields={"address": "10.1.2.3", "port": 80})
    entry = page.await_news(lambda: page.wire and page.wire[-1], "the command on the wire")
    assert (entry["direction"], entry["fields"]) == ("firmware", {"address": "10.1.2.3", "port": 80})
    assert page.do("bytes", serial=entry["serial"]) == {"hex": "0a01020350000000"}


def test_secrets_stay_masked(firmware, page):
    page.do("send", command="MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD", fields={"OldPassword": "sesame-1", "NewPassword": "sesame-2"})
    entry = page.await_news(lambda: page.wire and page.wire[-1], "the command on the wire")
    assert set(page.do("bytes", serial=entry["serial"])["hex"]) == {"*"}
    page.do("set", values={"Users.administrator": "sesame-3", "Cloud.vCloudKey": "sesame-4"})
    page.await_news(lambda: page.news.get("host", {}).get("settings", {}).get("Users"), "the changed settings")
    assert "sesame" not in json.dumps([page.wire, page.news])


def test_a_page_that_comes_back_gets_only_what_it_has_not_seen(firmware, page):
    for _ in range(5):
        page.do("send", command=38)
    page.await_news(lambda: len(page.wire) >= 5, "the commands")
    with LabPage(firmware.url) as again:
        again.do("hello", since=page.wire[2]["serial"])
        again.await_news(lambda: len(again.wire) >= 2, "the rest of the commands")
        assert serials(again.wire) == serials(page.wire[3:5])
    with LabPage(firmware.url) as stranger:
        stranger.do("hello", since=10**6)  # of an earlier firmware
        stranger.await_news(lambda: len(stranger.wire) >= 5, "all commands")


def test_a_change_of_the_settings_reaches_every_page(firmware, page):
    with LabPage(firmware.url) as other:
        other.do("hello")
        page.do("set", values={"uVORKVersion": "45"})
        for each in (page, other):
            each.await_news(lambda: each.news.get("host", {}).get("settings", {}).get("uVORKVersion") == 45, "the level")


def test_a_firmware_that_vanishes_keeps_its_page(page):
    page.do("fault", words=["vanish"])
    page.await_news(lambda: page.news.get("state", {}).get("vanished"), "the firmware to vanish")
    page.do("fault", words=["come-back"])
    page.await_news(lambda: page.news["state"]["vanished"] is False, "the firmware to come back")
    assert [entry["name"] for entry in page.wire if entry["kind"] == "note"] == ["vanished", "back"]


def test_the_log_of_a_hundred_megabytes_is_followed_from_its_newest_lines(firmware, page):
    line = b"[1]-[ 2 M ] INFO:  a line of the log $$<Test> <Fri  Nov 13 17:23:26.512 2026 UTC> <thread = 1 (0x1)>\n"
    page.do("show")
    before = resident_kilobytes(firmware.pid)
    with open(firmware.workdir / "zel.log", "ab") as log:
        block = line * (1_000_000 // len(line))
        for _ in range(105):
            log.write(block)
        log.write(line.replace(b"a line", b"the last line").replace(b"INFO: ", b"ERROR:"))
    page.await_news(lambda: page.log and page.log[-1]["text"] == "the last line of the log", "the last line")
    assert page.log[-1]["level"] == "ERROR" and page.log[-1]["time"].endswith("Z")
    assert len(page.log) < 300_000
    assert resident_kilobytes(firmware.pid) - before < 60_000


# --- slow and greedy pages ---

def test_a_page_that_does_not_read_costs_bounded_memory_and_learns_what_it_missed(firmware, page):
    with LabPage(firmware.url, receive_buffer=4096) as slow:
        slow.do("hello")
        before = resident_kilobytes(firmware.pid)
        for _ in range(36):
            for _ in range(250):
                page.post("send", command=8, payload="00" * 50)  # a message, and a note that no host takes it
            page.do("show")
        assert resident_kilobytes(firmware.pid) - before < 80_000
        newest = page.await_news(lambda: page.wire and page.wire[-1]["serial"] >= 17_000 and page.wire[-1], "the commands")
        slow.await_news(lambda: slow.wire and slow.wire[-1]["serial"] >= newest["serial"], "the slow page to have caught up")
        assert slow.dropped["wire"] > 0
        assert slow.dropped["wire"] + len(slow.wire) == slow.wire[-1]["serial"]


def test_a_page_that_never_takes_its_answers_is_no_longer_read_from(firmware, page):
    greedy = LabPage(firmware.url, receive_buffer=4096, patience=1)
    greedy.do("hello")
    before = resident_kilobytes(firmware.pid)
    question = json.dumps({"id": 1, "do": "show"})
    with pytest.raises(TimeoutError):
        for _ in range(1_000_000):
            greedy.send(question)
    assert resident_kilobytes(firmware.pid) - before < 60_000
    greedy.close()
    assert page.do("show")
