"""A real desktop behind the firmware, seen and controlled through the service by a real viewer."""

import struct

import pytest

from harness.desktop import Desktop, Viewer, a_picture, is_same_picture, what_is_missing
from harness.kvm import receive
from harness.needs import needs_packages
from harness.waiting import eventually

pytestmark = needs_packages(what_is_missing())


@pytest.fixture(autouse=True)
def viewers_that_leave_unread_bytes_behind(kvm):
    kvm.stage.expect_errors("recv() failed with error: 10054", "send() failed with error: 10054")


@pytest.fixture
def desktop(tmp_path):
    with Desktop(tmp_path) as desktop:
        yield desktop


def test_a_viewer_sees_what_is_on_the_screen_until_the_firmware_ends_the_session(kvm, desktop, tmp_path):
    painted = a_picture(desktop.size)
    desktop.paint(painted)
    kvm.boot(kvm=f"bridge:{desktop.address}")
    kvm.enable()
    kvm.trust("127.0.0.1")
    with Viewer(kvm.host.kvm_address, tmp_path) as viewer:
        assert is_same_picture(viewer.picture(), painted)
        assert len(kvm.host.agents()) == 1
        kvm.close_session()
        kvm.await_reported_close()
        eventually(lambda: kvm.host.agents() == [], "the agent to leave")


def test_a_viewers_mouse_moves_the_pointer(kvm, desktop):
    kvm.boot(kvm=f"bridge:{desktop.address}")
    kvm.enable()
    with kvm.begin_session() as viewer:
        assert receive(viewer, 12).startswith(b"RFB 003.")
        viewer.sendall(b"RFB 003.003\n")
        assert receive(viewer, 4) == struct.pack(">I", 1)  # no password
        viewer.sendall(b"\1")  # others may look too
        width, height = struct.unpack(">HH", receive(viewer, 4))
        assert (width, height) == desktop.size
        for at in ((123, 45), (600, 400)):
            viewer.sendall(struct.pack(">BBHH", 5, 0, *at))
            eventually(lambda: desktop.pointer() == at, f"the pointer at {at}")
