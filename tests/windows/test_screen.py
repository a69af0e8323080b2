"""The screen of the PC, captured by the service that the SCM has started, and shown by the firmware to a real viewer.

The service has no desktop under Wine; the program that the media runtime starts on the desktop captures the X server.
"""

import os
import signal

import pytest

from harness.desktop import Desktop
from harness.namespace import enter_namespace
from harness.viewer import DesktopViewer, Notepad, what_is_missing
from harness.waiting import eventually
from harness.wine import WineHost, windows_folder

pytestmark = pytest.mark.skipif(not (windows_folder() / "luxrt64.dll").exists(),
                                reason="the media runtime is not built for Windows here: ./dev test windows builds it")

CLEAR = 35  # dB: what a picture that went through the encoder keeps at least
MAILBOX = "tcp:127.0.0.1:6641"  # that of this PC: the one of the other tests has a gate of its own
SIZE = (1280, 720)  # other than that of the screen which the service sees: the agent reports the size that counts


@pytest.fixture(scope="module")
def desktop(tmp_path_factory):
    if missing := what_is_missing():
        pytest.skip(f"these packages are missing: {' '.join(missing)}")
    enter_namespace()
    with Desktop(tmp_path_factory.mktemp("desktop"), *SIZE) as desktop:
        yield desktop


@pytest.fixture(scope="module")
def pc(desktop, tmp_path_factory):
    """A PC of its own, whose screen is the desktop."""
    with WineHost(tmp_path_factory.mktemp("pc"), MAILBOX) as host:
        host.use_desktop(desktop)
        yield host.boot()


@pytest.fixture
def screen(kvm, desktop):
    """The service up, the screen as its display, and the port open."""
    kvm.stage.expect_errors("LUX_KVM: Recevied DispEvtCaptureEncodeExit", "recv() failed with error: 10054",
                            "send() failed with error: 10054")
    kvm.boot("screen")
    kvm.firmware.set(**{"Screen.Display": desktop.display})
    kvm.enable()
    return kvm


def a_picture(size, shade):
    """A gradient with a square of each colour."""
    from PIL import Image, ImageDraw
    picture = Image.linear_gradient("L").rotate(shade).resize(size).convert("RGB")
    draw = ImageDraw.Draw(picture)
    for place, color in enumerate(("red", "lime", "blue", "yellow")):
        draw.rectangle((40 + 240 * place, 160, 199 + 240 * place, 479), fill=color)
    return picture


def capture_programs(screen):
    return screen.host.session.programs("luxcapture.exe")


def test_viewers_of_two_sessions_see_the_desktop_and_type_into_it(screen, desktop, tmp_path):
    for count, typed in ((1, "first"), (2, "second")):
        folder = tmp_path / typed
        folder.mkdir()
        painted = a_picture(desktop.size, 90 * count)
        with Notepad(desktop, painted, folder) as notepad, DesktopViewer(screen.host.kvm_address, desktop.size, folder) as viewer:
            viewer.await_picture(painted, CLEAR)
            assert len(capture_programs(screen)) == 1
            viewer.type(typed)
            eventually(lambda: notepad.text() == typed, "the typed text on the desktop")
            state = screen.firmware.screen()
            assert (state["width"], state["height"]) == desktop.size
            # The firmware repeats its request when the first picture takes long.
            faults = state["faults"]["count"] - state["faults"]["repeatedRequests"]
            assert (faults, state["decoded"]["failed"]) == (0, 0), state
            screen.close_session()
            eventually(lambda: not capture_programs(screen), "the capture to end with the session")
        screen.await_end(count)
        screen.enable()


def test_a_killed_capture_program_is_replaced_and_shows_what_is_painted_next(screen, desktop, tmp_path):
    with DesktopViewer(screen.host.kvm_address, desktop.size, tmp_path) as viewer:
        for shade in (0, 90):
            painted = a_picture(desktop.size, shade)
            with Notepad(desktop, painted, tmp_path):
                viewer.await_picture(painted, CLEAR)
            [program] = capture_programs(screen)
            os.kill(program, signal.SIGKILL)
            eventually(lambda: set(capture_programs(screen)) - {program}, "another capture program")


def test_the_service_stops_while_a_viewer_looks(screen, desktop, tmp_path):
    painted = a_picture(desktop.size, 180)
    with Notepad(desktop, painted, tmp_path), DesktopViewer(screen.host.kvm_address, desktop.size, tmp_path) as viewer:
        viewer.await_picture(painted, CLEAR)
        assert screen.host.stop_service() == 0
        eventually(lambda: not capture_programs(screen), "the capture to end with the service")
