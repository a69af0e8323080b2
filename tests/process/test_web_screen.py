"""The PC's screen as mpmsim gives it to a page, the page's keys, and its way to the KVM port; without a browser."""

import socket
import struct
import threading

import pytest

from harness.desktop import Desktop, psnr, what_is_missing
from harness.firmware import Firmware
from harness.needs import needs_media_runtime, needs_packages
from harness.viewer import Notepad
from harness.waiting import eventually
from harness.websocket import LabPage, Refused, WebSocket

AV1, PICTURE = 1, 2
HEAD = struct.Struct("<BBHIIIQQ")
CLEAR = 35  # dB

needs_screen = [
    needs_packages(what_is_missing()),
    needs_media_runtime(),
]


class Frame:
    def __init__(self, message):
        self.kind, self.flags, _, self.width, self.height, self.number, self.asked, self.complete = HEAD.unpack_from(message)
        self.data = message[HEAD.size:]

    @property
    def key(self):
        return bool(self.flags & 1)

    def image(self):
        from PIL import Image
        return Image.frombytes("RGBA", (self.width, self.height), self.data).convert("RGB")


@pytest.fixture
def desktop(tmp_path):
    with Desktop(tmp_path, 640, 480) as desktop:
        yield desktop


@pytest.fixture
def screen(kvm, desktop):
    """KVM with the desktop as the screen of the PC, its port open, and a page that may use it."""
    with socket.create_server(("127.0.0.1", 0)) as reserved:
        port = reserved.getsockname()[1]
    kvm.stage.firmware = Firmware(kvm.stage.workdir, kvm="screen", web={"kvm": f"127.0.0.1:{port}"},
                                  settings={"uVORKVersion": 50, "Screen": {"Display": desktop.display}})
    return kvm.boot_with_screen(desktop, port)


@pytest.fixture
def page(screen):
    with LabPage(screen.firmware.url) as page:
        page.do("hello")
        yield page


def newest(page):
    return Frame(page.frames[-1])


def a_picture(size):
    from PIL import Image, ImageDraw
    picture = Image.linear_gradient("L").rotate(90).resize(size).convert("RGB")
    draw = ImageDraw.Draw(picture)
    for place, color in enumerate(("red", "lime", "blue", "yellow")):
        draw.rectangle((40 + 150 * place, 100, 139 + 150 * place, 299), fill=color)
    return picture


def end_session(screen, page):
    page.do("hold", session=False)
    screen.await_reported_close()
    screen.close_session()


@pytest.mark.usefixtures("screen")
class TestScreen:
    pytestmark = needs_screen

    def test_a_page_gets_the_frames_of_a_session_that_it_holds(self, screen, page, desktop):
        desktop.paint(a_picture(desktop.size))
        page.do("watch", screen="av1")
        page.do("hold", session=True)
        page.await_news(lambda: len(page.frames) >= 5, "frames")
        frames = [Frame(message) for message in page.frames]
        assert {(frame.kind, frame.width, frame.height) for frame in frames} == {(AV1, *desktop.size)}
        assert [frame.number for frame in frames] == list(range(1, len(frames) + 1))
        assert frames[0].key and not any(frame.key for frame in frames[1:])
        assert all(0 < frame.complete - frame.asked < 10_000_000 for frame in frames)
        page.await_news(lambda: page.news.get("screen"), "the display client's figures")
        assert page.news["state"]["held"]
        end_session(screen, page)

    def test_a_page_that_comes_later_gets_the_frames_since_the_key_frame(self, screen, page):
        page.do("hold", session=True)
        eventually(lambda: screen.firmware.screen()["frames"]["count"] >= 5, "frames")
        page.do("watch", screen="av1")
        page.await_news(lambda: page.frames, "a frame")
        first = Frame(page.frames[0])
        assert (first.key, first.number) == (True, 1)
        end_session(screen, page)

    def test_a_page_without_a_decoder_gets_pictures(self, screen, page, desktop):
        painted = a_picture(desktop.size)
        desktop.paint(painted)
        page.do("watch", screen="picture")
        page.do("hold", session=True)
        page.await_news(lambda: page.frames and psnr(newest(page).image(), painted) >= CLEAR, "the painted picture")
        assert (newest(page).kind, newest(page).key) == (PICTURE, True)
        page.do("watch", screen="off")
        before = len(page.frames)
        page.do("show")
        assert len(page.frames) <= before + 1
        end_session(screen, page)

    def test_what_is_typed_in_a_page_arrives_on_the_desktop(self, page, desktop, tmp_path):
        with Notepad(desktop, a_picture(desktop.size), tmp_path) as notepad:
            page.do("pointer", buttons=0, x=320, y=240, width=640, height=480)
            for character in "hello":
                for down in (True, False):
                    page.do("key", keysym=ord(character), down=down)
            eventually(lambda: notepad.text() == "hello", "the typed text")
        page.do("pointer", buttons=0, x=10, y=20, width=640, height=480)
        eventually(lambda: desktop.pointer() == (10, 20), "the mouse to move")
        assert "whole number" in page.refusal("pointer", buttons=256, x=0, y=0, width=1, height=1)
        assert "true or false" in page.refusal("key", keysym=97)

    def test_keys_go_up_with_the_page_that_holds_them(self, screen, page, desktop):
        def pressed():
            return any(desktop._display.query_keymap())
        with LabPage(screen.firmware.url) as other:
            other.do("hello")
            other.do("key", keysym=ord("a"), down=True)
            eventually(pressed, "the key to be down")
        eventually(lambda: not pressed(), "the key to be up")

    def test_a_vnc_client_in_the_page_reaches_the_kvm_port(self, screen, desktop):
        with WebSocket(screen.firmware.url, "vnc", "binary") as client:
            received = client.receive()
            while len(received) < 12:
                received += client.receive()
            assert received == b"RFB 003.008\n"
        screen.await_reported_close()
        screen.close_session()


# --- without a screen ---

@pytest.fixture
def port():
    """A KVM port played by the test: a listening socket."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        listener.settimeout(20)
        yield listener


@pytest.fixture
def firmware(tmp_path, port):
    with Firmware(tmp_path, quiet=True, record=False, web={"kvm": f"127.0.0.1:{port.getsockname()[1]}"}) as firmware:
        yield firmware


def test_bytes_pass_to_the_kvm_port_and_back(firmware, port):
    with WebSocket(firmware.url, "vnc", "binary") as client:
        server, _ = port.accept()
        server.settimeout(20)
        sent = bytes(range(256)) * 4096
        writer = threading.Thread(target=server.sendall, args=(sent,))
        writer.start()
        received = b""
        while len(received) < len(sent):
            received += client.receive()
        writer.join()
        assert received == sent
        for start in range(0, len(sent), 65536):
            client.send_frame(2, sent[start:start + 65536])
        back = b""
        while len(back) < len(sent):
            back += server.recv(1 << 20)
        assert back == sent
        server.sendall(b"the last bytes")
        server.close()
        assert client.receive() == b"the last bytes"
        with pytest.raises(ConnectionError):
            client.receive()


def test_a_client_that_goes_ends_its_connection_to_the_port(firmware, port):
    client = WebSocket(firmware.url, "vnc", "binary")
    server, _ = port.accept()
    server.settimeout(20)
    client.close()
    assert server.recv(10) == b""


def test_a_client_that_does_not_read_holds_up_only_its_server(firmware, port):
    with WebSocket(firmware.url, "vnc", "binary", receive_buffer=4096) as client, LabPage(firmware.url) as page:
        server, _ = port.accept()
        server.settimeout(1)
        with pytest.raises(TimeoutError):
            for _ in range(1000):
                server.sendall(bytes(100_000))
        assert page.do("hello")
        assert client.receive()


def test_a_port_that_is_closed_takes_no_client(firmware, port):
    port.close()
    with pytest.raises(ConnectionError), WebSocket(firmware.url, "vnc", "binary") as client:
        client.receive()
    with LabPage(firmware.url) as page:
        page.do("hello")
        assert page.refusal("hold", session=True) == "the KVM port takes no viewer: Connection refused"


def test_a_held_session_is_held_once_and_until_it_is_given_up(firmware, port):
    with LabPage(firmware.url) as page:
        page.do("hello")
        page.do("hold", session=True)
        page.do("hold", session=True)
        server, _ = port.accept()
        server.settimeout(20)
        server.sendall(bytes(1_000_000))
        page.await_news(lambda: page.news.get("state", {}).get("held"), "the session to be held")
        page.do("hold", session=False)
        while server.recv(1 << 20):
            pass
        page.await_news(lambda: page.news["state"]["held"] is False, "the session to be given up")
        port.settimeout(0.2)
        with pytest.raises(TimeoutError):
            port.accept()


def test_the_end_of_a_held_session_is_seen(firmware, port):
    with LabPage(firmware.url) as page:
        page.do("hello")
        page.do("hold", session=True)
        page.await_news(lambda: page.news.get("state", {}).get("held"), "the session to be held")
        port.accept()[0].close()
        page.await_news(lambda: page.news["state"]["held"] is False, "the session to end")


def test_a_session_is_not_held_without_a_page(firmware, port):
    with LabPage(firmware.url) as page:
        page.do("hello")
        page.do("hold", session=True)
        server, _ = port.accept()
    server.settimeout(20)
    assert server.recv(10) == b""


def test_a_page_without_a_kvm_port_has_no_client_for_it(tmp_path):
    with Firmware(tmp_path, quiet=True, web={}) as firmware, LabPage(firmware.url) as page:
        assert page.do("hello")["features"]["vnc"] is False
        assert page.refusal("hold", session=True) == "there is no KVM port to connect to"
        assert page.refusal("key", keysym=97, down=True) == "Screen.Display names no display"
        assert page.refusal("watch", screen="film") == '"screen" has to be av1, picture or off'
        with pytest.raises(Refused) as refused:
            WebSocket(firmware.url, "vnc", "binary")
        assert refused.value.status == 404
