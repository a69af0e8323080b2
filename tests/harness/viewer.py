"""A VNC viewer on a console's own screen, which can be looked at and typed into, and a program on the PC's desktop."""

import importlib.util
import pathlib
import shutil

from .desktop import Desktop, psnr
from .processes import Process
from .waiting import eventually


def what_is_missing():
    """The Debian packages that these need and this machine hasn't."""
    there = {
        "tigervnc-standalone-server": shutil.which("Xvnc"),
        "tigervnc-viewer": shutil.which("xtigervncviewer"),
        "python3-xlib": importlib.util.find_spec("Xlib"),
        "python3-pil": importlib.util.find_spec("PIL"),
    }
    return [package for package, found in there.items() if not found]


class Notepad:
    """A program on a Desktop that shows a picture and, below it, what is typed."""

    def __init__(self, desktop, picture, folder):
        path, self._typed = folder / "painted.png", folder / "typed.txt"
        picture.save(path)
        program = pathlib.Path(__file__).with_name("notepad.py")
        self._program = Process(["/usr/bin/python3", program, desktop.display, path, self._typed], folder / "notepad.log")
        eventually(lambda: self._typed.exists() or not self._program.running(), "the notepad")
        assert self._program.running(), self._program.output()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def text(self):
        return self._typed.read_text()

    def close(self):
        self._program.kill()


class DesktopViewer:
    """A viewer that covers the screen of the console, which has the size of the PC's."""

    def __init__(self, address, size, folder):
        host, port = address
        folder.mkdir(exist_ok=True)
        self._console = Desktop(folder, *size)
        self._program = Process(
            ["xtigervncviewer", "-display", self._console.display, "-FullScreen", "-RemoteResize=0", "-MenuKey=",
             "-AlertOnFatalError=0", "-ReconnectOnError=0", "-AutoSelect=0", "-PreferredEncoding=Raw", "-Shared",
             f"{host}::{port}"], folder / "viewer.log", env={"HOME": str(folder)})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def picture(self):
        """What it shows at this moment, as a PIL image."""
        assert self._program.running(), f"the viewer ended: {self._program.output()}"
        return self._console.picture()

    def await_picture(self, painted, least):
        """Waits until it shows the painted picture, of which at least so many dB are left, and returns what it shows."""
        def look():
            picture = self.picture()
            return picture if psnr(picture, painted) >= least else None
        return eventually(look, f"a picture of at least {least} dB in the viewer")

    def type(self, text):
        self._console.type(text)

    def close(self):
        self._program.kill()
        self._console.close()
