"""The page of the lab when something goes wrong: lost connections, a firmware that is gone, a page that reads too slowly. There
is no service: the entries on the wire are commands that the firmware sends."""

import time

import pytest

from harness.browser import Browser, what_is_missing
from harness.lab import Lab
from harness.needs import needs_packages
from harness.waiting import eventually

pytestmark = [
    needs_packages(what_is_missing()),
    pytest.mark.xdist_group("lab faults"),
]

KEPT = 10_000
# The page's sockets, so that a test can close them as a network would.
KEEP_SOCKETS = """window.sockets = []; const Original = WebSocket;
window.WebSocket = class extends Original { constructor(...all) { super(...all); window.sockets.push(this); } };"""


@pytest.fixture(scope="module")
def browser():
    with Browser() as browser:
        yield browser


@pytest.fixture
def lab(tmp_path):
    with Lab(tmp_path, dash="none") as lab:
        yield lab


@pytest.fixture
def page(browser, lab):
    browser.complaints()  # those of an earlier test, whose firmware has gone
    page = browser.new_page("about:blank")
    browser.devtools("Page.addScriptToEvaluateOnNewDocument", source=KEEP_SOCKETS)
    page.driver.get(lab.url)
    page.await_connected().show("wire")
    yield page
    page.close()


def numbers(page):
    """The serial numbers of the rows in sight."""
    return sorted(int(text) for text in page.texts("#wire .row:not([hidden]) .serial") if text)


def await_entries(page, count):
    page.await_text("#wire .count", f"{count} entries")


def test_a_lost_connection_comes_back_without_gap_or_repetition(lab, page):
    lab.send_many(["before"] * 3)
    await_entries(page, 3)
    page.run("sockets.at(-1).close()")
    lab.send_many(["after"] * 3)
    eventually(lambda: page.run("return sockets.length") == 2, "another connection")
    await_entries(page, 6)
    page.await_connected()
    eventually(lambda: numbers(page) == [1, 2, 3, 4, 5, 6], "each entry once")


def test_a_firmware_that_is_gone_is_reported_and_its_successor_has_another_address(lab, page):
    lab.send_many(["before"])
    await_entries(page, 1)
    lab.firmware.close()
    page.await_text("#pills .pill", "disconnected")
    page.await_text("#banner", "no firmware answers at this address")
    assert page.text("#wire .row:not([hidden]) .name") == "INDICATION_EVENT"  # what was there stays
    first = lab.url
    lab.start()
    assert lab.url != first
    page.driver.get(lab.url)
    page.await_connected()


def test_a_firmware_that_vanishes_is_shown_and_comes_back(lab, page):
    page.show("commands")
    page.press("commands", "Vanish")
    page.await_text("#pills .pill", "firmware vanished")
    page.press("commands", "Come back")
    eventually(lambda: not any("vanished" in text for text in page.texts("#pills .pill")), "the firmware to be back")


def test_ten_thousand_entries_need_only_the_rows_in_sight(lab, page):
    # Each command after the first ones makes two entries, because no host reads it.
    lab.send_many(["x"] * (KEPT // 2 + 100))
    newest = lab.events()
    assert newest > KEPT
    await_entries(page, KEPT)
    eventually(lambda: newest in numbers(page), "the newest entry")
    assert page.run("return document.querySelectorAll('#wire .row').length") < 100
    list_of = "const list = document.querySelector('#wire .vlist');"
    page.run(list_of + "list.scrollTop = 0;")
    eventually(lambda: newest - KEPT + 1 in numbers(page), "the oldest entry that is kept")
    page.run(list_of + "list.scrollTop = list.scrollHeight / 2;")
    eventually(lambda: newest - KEPT // 2 in numbers(page), "an entry in the middle")
    # New entries do not move those that a person reads.
    before, top = numbers(page), page.run(list_of + "return list.scrollTop")
    lab.send_many(["y"] * 20)
    eventually(lambda: page.run(list_of + "return list.scrollTop") < top and numbers(page) == before, "the same entries")


def test_a_page_that_does_not_read_gets_a_marker_for_what_it_has_missed(lab, page):
    lab.send_many(["before"])
    await_entries(page, 1)
    with page.browser.stopped():
        lab.send_many(["z" * 60_000] * 400)  # more than the firmware keeps for all pages
    eventually(lambda: lab.events() in numbers(page), "the newest entry")
    page.fill("#wire input[type=search]", "nothing has this name")  # a marker passes every filter
    page.await_text("#wire .row.dropped .content", "entries are missing here: this page read too slowly")


def test_a_page_that_sleeps_shows_what_has_happened_meanwhile(lab, page, request):
    with page.browser.stopped():
        lab.send_many(["meanwhile"] * 60)
        time.sleep(request.config.getoption("--sleep-of-page", 1))
    page.await_connected()
    await_entries(page, 60)
    eventually(lambda: 60 in numbers(page), "the newest entry")


def test_no_resource_of_the_page_is_refused_by_its_own_policy(browser, page):
    for panel in ("host", "wire", "commands", "screen", "log", "pc"):
        page.show(panel)
    assert browser.complaints() == []
