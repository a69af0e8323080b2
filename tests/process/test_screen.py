"""The PC's own screen, captured by the service and shown by the firmware to a real viewer."""

import json
import struct

import pytest

from harness.desktop import Desktop, Viewer, a_picture, psnr, what_is_missing
from harness.kvm import receive
from harness.needs import needs_media_runtime, needs_packages
from harness.waiting import eventually

pytestmark = [
    needs_packages(what_is_missing()),
    needs_media_runtime(),
]

CLEAR = 35  # dB: what a picture that went through the encoder keeps at least


@pytest.fixture
def desktop(tmp_path):
    with Desktop(tmp_path, 640, 480) as desktop:
        yield desktop


@pytest.fixture
def screen(kvm, desktop):
    """KVM with the desktop as the screen of the PC, the service up and its port open."""
    kvm.use_firmware(kvm="screen", Screen={"Display": desktop.display})
    return kvm.boot_with_screen(desktop)


def frames(screen):
    return screen.firmware.screen()["frames"]["count"]


def await_frames(screen, count):
    eventually(lambda: frames(screen) >= count, f"{count} frames")


def test_a_viewer_sees_what_the_service_captures(screen, desktop, tmp_path):
    painted = a_picture(desktop.size)
    desktop.paint(painted)
    with Viewer(screen.host.kvm_address, tmp_path) as viewer:
        assert psnr(viewer.picture(), painted) >= CLEAR
        from PIL import Image
        picture = tmp_path / "screen.ppm"
        state = screen.firmware.screen("--picture", picture)
        assert psnr(Image.open(picture), painted) >= CLEAR
        assert (state["width"], state["height"]) == desktop.size
        assert state["faults"]["count"] == 0, json.dumps(state)
        assert state["decoded"]["failed"] == 0
        screen.close_session()
        screen.await_reported_close()
        eventually(lambda: screen.firmware.screen()["state"] == "idle", "the display client to end the session")


def test_a_change_on_the_screen_reaches_the_firmware(screen, desktop, tmp_path):
    from PIL import Image
    desktop.paint(Image.new("RGB", desktop.size, "white"))
    with screen.begin_session():
        await_frames(screen, 2)
        painted = a_picture(desktop.size)
        desktop.paint(painted)
        picture = tmp_path / "screen.ppm"

        def is_there():
            screen.firmware.screen("--picture", picture)
            return psnr(Image.open(picture), painted) >= CLEAR
        eventually(is_there, "the new picture at the firmware")


def test_a_viewers_keys_and_mouse_act_on_the_screen(screen, desktop):
    with screen.begin_session() as viewer:
        assert receive(viewer, 12) == b"RFB 003.008\n"
        viewer.sendall(b"RFB 003.003\n")
        assert receive(viewer, 4) == struct.pack(">I", 1)  # no password
        viewer.sendall(b"\1")
        assert struct.unpack(">HH", receive(viewer, 4)) == desktop.size
        for at in ((123, 45), (600, 400)):
            viewer.sendall(struct.pack(">BBHH", 5, 0, *at))
            eventually(lambda: desktop.pointer() == at, f"the pointer at {at}")


def test_a_second_viewer_sees_the_screen_too(screen, desktop, tmp_path):
    painted = a_picture(desktop.size)
    desktop.paint(painted)
    with screen.begin_session():
        await_frames(screen, 1)
        with Viewer(screen.host.kvm_address, tmp_path) as viewer:
            assert psnr(viewer.picture(), painted) >= CLEAR
            assert screen.firmware.screen()["viewer"]["connections"] == 2


def test_a_viewer_that_is_killed_leaves_a_session_for_the_next(screen, desktop, tmp_path):
    painted = a_picture(desktop.size)
    desktop.paint(painted)
    with Viewer(screen.host.kvm_address, tmp_path) as viewer:
        await_frames(screen, 1)
        viewer.close()
    screen.await_reported_close()
    screen.close_session()
    screen.await_agent_removed()
    (tmp_path / "next").mkdir()
    screen.enable()
    with Viewer(screen.host.kvm_address, tmp_path / "next") as viewer:
        assert psnr(viewer.picture(), painted) >= CLEAR
    assert screen.firmware.screen()["sessions"] == 2


def test_the_service_stops_while_a_viewer_looks(screen, desktop):
    with screen.begin_session():
        await_frames(screen, 2)
        screen.host.stop_service()
        assert screen.host.wait() == 0
