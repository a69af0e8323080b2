"""A real desktop behind a real VNC server, and a real viewer, for the console's side of remote KVM."""

import importlib.util
import shutil
import subprocess
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


class Desktop:
    """An X screen that only the VNC server shows. It asks for no password, and listens on the loopback alone."""

    def __init__(self, workdir, width=640, height=480):
        self.size = (width, height)
        port = free_port()
        self.address = f"127.0.0.1:{port}"
        self._server = Process(
            ["Xvnc", f":{port}", "-rfbport", port, "-interface", "127.0.0.1", "-SecurityTypes", "None", "-geometry", f"{width}x{height}",
             "-depth", "24", "-nolisten", "tcp", "-ac", "-noreset"], workdir / "Xvnc.log")
        self._display = eventually(lambda: self._connect(f":{port}"), "the desktop's screen")

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

    def pointer(self):
        """Where the mouse points at."""
        at = self._display.screen().root.query_pointer()
        return at.root_x, at.root_y

    def close(self):
        self._display.close()
        self._server.end()


def take_snapshot(address, file, patience=30):
    """The viewer connects to a VNC server, or to what stands for one, and saves what it sees as a JPEG file."""
    host, port = address
    subprocess.run(["vncsnapshot", "-quiet", "-encodings", "raw", f"{host}:{port - 5900}", str(file)],
                   check=True, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=patience)
