"""The screen of a PC in the lab: what a program paints appears in a real browser, and keys typed there reach the program."""

import pytest

from harness import browser, desktop
from harness.desktop import a_picture, psnr
from harness.lab import SIZE, Room
from harness.needs import needs_media_runtime, needs_packages
from harness.waiting import eventually

pytestmark = [
    needs_packages(browser.what_is_missing() + desktop.what_is_missing()),
    needs_media_runtime(),
    pytest.mark.xdist_group("lab screen"),
]

CLEAR = 35  # dB: what a picture that went through the encoder keeps at least


@pytest.fixture(scope="module")
def room(tmp_path_factory):
    room = Room(tmp_path_factory.mktemp("lab"), desktop=True)
    yield room
    room.close()


@pytest.fixture
def page(room):
    yield room.page
    assert room.browser.complaints() == []


def await_picture(page, canvas):
    """Waits until a canvas of the panel "Screen" shows the desktop."""
    above_the_text = (0, 0, 640, 430)
    painted = a_picture(SIZE).crop(above_the_text)

    def is_there():
        seen = page.picture(canvas)
        return seen.size == SIZE and psnr(seen.crop(above_the_text), painted) >= CLEAR
    eventually(is_there, f"the desktop's picture in {canvas}")


def state(page):
    """What the first button offers; nothing while it works."""
    return page.run("const button = document.querySelector('#screen button'); return button.disabled ? '' : button.textContent")


def start_screen(page, mode):
    """Ends what another test has left, and shows the screen in this way."""
    page.show("screen")
    eventually(lambda: state(page), "the button")
    if state(page) == "Stop":
        page.press("screen", "Stop")
        eventually(lambda: state(page) == "Start", "the end of the session")
    page.run("for (const canvas of document.querySelectorAll('#screen canvas')) canvas.width = canvas.height = 1;")
    page.choose("#screen select", mode)
    page.press("screen", "Start")
    eventually(lambda: state(page) == "Stop", "the session")


def test_the_screen_panel_shows_the_desktop_and_takes_keys(room, page):
    start_screen(page, "AV1 frames")
    await_picture(page, "#screen .stage > canvas")
    eventually(lambda: page.text("[data-figure='Frames a second']") != "–", "the figures")
    page.find("#screen canvas").send_keys("Hello 1")
    eventually(lambda: room.notepad.text() == "Hello 1", "the keys on the desktop")
    page.run("""const canvas = document.querySelector("#screen canvas"), area = canvas.getBoundingClientRect();
        canvas.dispatchEvent(new PointerEvent("pointermove",
            {clientX: area.left + area.width / 4, clientY: area.top + area.height / 2}));""")
    eventually(lambda: all(abs(at - wanted) <= 1 for at, wanted in zip(room.desktop.pointer(), (160, 240))), "the pointer")


def test_the_screen_panel_shows_pictures_without_a_decoder(page):
    start_screen(page, "Pictures")
    await_picture(page, "#screen .stage > canvas")


def test_a_page_that_is_reloaded_goes_on_with_the_session(page):
    start_screen(page, "AV1 frames")
    await_picture(page, "#screen .stage > canvas")
    page.driver.refresh()
    page.await_connected()
    await_picture(page, "#screen .stage > canvas")


def test_a_session_that_the_firmware_ends_is_over_in_the_page(room, page):
    start_screen(page, "AV1 frames")
    room.firmware.send("VNC_SOC_CLOSE")
    page.await_text("#screen .hint", "The session has ended.")
    assert state(page) == "Start"


def test_the_vnc_client_shows_the_same_pc(room, page):
    start_screen(page, "VNC client")
    page.await_text("#screen .hint", "VNC client: connected")
    await_picture(page, "#screen .vnc canvas")
    page.press("screen", "Stop")
