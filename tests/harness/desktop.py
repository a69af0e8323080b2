"""A real desktop behind a real VNC server, and a real viewer, for the console's side of remote KVM."""

import contextlib
import importlib.util
import math
import shutil
import warnings

from .ports import free_port
from .processes import Process
from .waiting import eventually


def what_is_missing():
    """The Debian packages that these need and this machine hasn't."""
    there = {
        "tigervnc-standalone-server": shutil.which("Xvnc"),
        "vncsnapshot": shutil.which("vncsnapshot"),
        "python3-xlib": importlib.util.find_spec("Xlib"),
        "python3-pil": importlib.util.find_spec("PIL"),
    }
    return [package for package, found in there.items() if not found]


def is_same_picture(seen, painted):
    """Whether two PIL images show the same, but for what JPEG changes."""
    from PIL import ImageChops, ImageStat
    return seen.size == painted.size and max(ImageStat.Stat(ImageChops.difference(seen, painted)).mean) < 2


def psnr(seen, painted):
    """The peak signal-to-noise ratio of two PIL images of one size, in dB."""
    from PIL import ImageChops, ImageStat
    assert seen.size == painted.size
    squares = [rms ** 2 for rms in ImageStat.Stat(ImageChops.difference(seen, painted)).rms]
    error = sum(squares) / len(squares)
    return 10 * math.log10(255 ** 2 / error) if error else math.inf


def a_picture(size):
    """What no empty screen shows: a square of each colour, on a ground that changes from left to right. The edges are where the
    encoder keeps a colour for two pixels."""
    from PIL import Image, ImageDraw
    picture = Image.linear_gradient("L").rotate(90).resize(size).convert("RGB")
    draw = ImageDraw.Draw(picture)
    for place, color in enumerate(("red", "lime", "blue", "yellow")):
        draw.rectangle((40 + 150 * place, 100, 139 + 150 * place, 299), fill=color)
    return picture


class Desktop:
    """An X screen that only the VNC server shows. It asks for no password, and listens on the loopback alone."""

    def __init__(self, workdir, width=640, height=480):
        self.size = (width, height)
        port = free_port()
        self.address = f"127.0.0.1:{port}"
        self._server = Process(
            ["Xvnc", f":{port}", "-rfbport", port, "-interface", "127.0.0.1", "-SecurityTypes", "None",
             "-geometry", f"{width}x{height}", "-depth", "24", "-nolisten", "tcp", "-ac", "-noreset"], workdir / "Xvnc.log")
        self.display = f":{port}"
        self._display = eventually(lambda: self._connect(self.display), "the desktop's screen")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _connect(self, name):
        from Xlib import display, error
        assert self._server.running(), f"Xvnc ended: {self._server.output()}"
        try:
            return display.Display(name)
        except (error.DisplayError, OSError):
            return None

    def paint(self, picture):
        """Covers the screen with a PIL image of its size."""
        root = self._display.screen().root
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # Xlib calls PIL in a way that is about to go
            root.put_pil_image(root.create_gc(), 0, 0, picture)
        self._display.sync()

    def cover(self, colour):
        """Covers the screen with a window of this colour, 0xRRGGBB."""
        screen = self._display.screen()
        window = screen.root.create_window(0, 0, *self.size, 0, screen.root_depth, background_pixel=colour,
                                           override_redirect=True)
        window.map()
        self._display.sync()
        return window

    def fill(self, window, area, colour):
        """Paints a part of a window, (left, top, width, height), in this colour."""
        window.fill_rectangle(window.create_gc(foreground=colour), *area)
        self._display.sync()

    def picture(self):
        """What the screen shows, as a PIL image."""
        from PIL import Image
        from Xlib import X
        seen = self._display.screen().root.get_image(0, 0, *self.size, X.ZPixmap, 0xFFFFFFFF)
        return Image.frombytes("RGB", self.size, seen.data, "raw", "BGRX")

    def type(self, text):
        """Types lower-case letters and blanks on the keyboard."""
        from Xlib import X, XK
        from Xlib.ext import xtest
        for character in text:
            key = self._display.keysym_to_keycode(XK.string_to_keysym({" ": "space"}.get(character, character)))
            xtest.fake_input(self._display, X.KeyPress, key)
            xtest.fake_input(self._display, X.KeyRelease, key)
        self._display.sync()

    def pointer(self):
        """Where the mouse points at."""
        at = self._display.screen().root.query_pointer()
        return at.root_x, at.root_y

    def close(self):
        from Xlib import error
        with contextlib.suppress(error.ConnectionClosedError, OSError):  # Ctrl-C may have ended the server
            self._display.close()
        self._server.end()


class Viewer:
    """A viewer that connects to a VNC server, or to what stands for one, saves what it sees, and stays connected."""

    def __init__(self, address, folder):
        host, port = address
        self._file = folder / "screen00000.jpg"
        self._program = Process(
            ["vncsnapshot", "-quiet", "-encodings", "raw", "-count", "2", "-fps", "600", f"{host}::{port}", folder / "screen.jpg"],
            folder / "vncsnapshot.log")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def picture(self):
        """What it sees, as a PIL image."""
        from PIL import Image
        eventually(lambda: self._is_saved() or not self._program.running(), "the viewer to have the picture")
        assert self._is_saved(), f"the viewer ended: {self._program.output()}"
        return Image.open(self._file).convert("RGB")

    def _is_saved(self):
        return self._file.exists() and self._file.read_bytes().endswith(b"\xff\xd9")  # where a JPEG file ends

    def close(self):
        self._program.kill()
