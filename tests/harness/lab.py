"""The lab: a firmware that serves the page, and all that a person sees of it in a browser."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import sys
import tempfile
import urllib.request

from .browser import Browser
from .desktop import Desktop, a_picture
from .firmware import Firmware
from .host import RUNNING
from .native import NativeHost
from .processes import REPOSITORY, Process
from .viewer import Notepad
from .waiting import eventually

SIZE = (640, 480)  # of the desktop
NETWORKS = {
    "wlanInterfaces": [{"guid": "{70A9067B-708F-443C-84BA-BC391FDBF72B}", "description": "Wi-Fi adapter"}],
    "wlanNetworks": [{"name": "office", "ssid": "office", "authentication": "WPA2PSK", "key": "correct horse", "channel": 36}],
}


class Lab:
    """mpmsim with its page. Without a `host` there are only the firmware and what it sends."""

    def __init__(self, workdir, host=None, **firmware):
        web = {}
        if host:
            web = {"pc": host.control_socket, "log": host.log_path(), "kvm": "{}:{}".format(*host.kvm_address),
                   "dash": "{}:{}".format(*host.dash_address)}
        self.firmware = Firmware(workdir, web=web, **firmware)

    def start(self):
        self.firmware.start()
        return self

    @property
    def url(self):
        return self.firmware.url

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.firmware.close()

    def events(self):
        """How many events the firmware has recorded; the newest has this serial number."""
        return len(self.firmware.record_path.read_text().splitlines())

    def send_many(self, payloads, command=12):
        """Sends many commands over one connection to the control socket; their entries appear on the wire."""
        with socket.socket(socket.AF_UNIX) as connection, contextlib.closing(connection.makefile("rwb")) as lines:
            connection.connect(str(self.firmware.control_path))
            for payload in payloads:
                lines.write(json.dumps({"verb": "send", "command": command, "payload": payload.encode().hex()}).encode() + b"\n")
                lines.flush()
                assert "error" not in json.loads(lines.readline())


class Room:
    """A PC with its service and firmware, and a browser that shows the lab. With `desktop`, a program on the PC's screen shows a
    picture and what is typed."""

    def __init__(self, workdir, desktop=False):
        self.downloads = workdir / "downloads"
        self._stack = contextlib.ExitStack()
        self.host = NativeHost(workdir, f"unix:{workdir}/mailbox.sock", **NETWORKS)
        settings = self._open_desktop(workdir) if desktop else {}
        self._lab = self._stack.enter_context(Lab(workdir, self.host, kvm="screen", settings=settings))
        self._stack.enter_context(self.host)
        self.start_service()
        self.browser = self._stack.enter_context(Browser())
        self.browser.devtools("Browser.setDownloadBehavior", behavior="allow", downloadPath=str(self.downloads))
        self.page = self.open()

    def _open_desktop(self, workdir):
        self.desktop = self._stack.enter_context(Desktop(workdir, *SIZE))
        self.notepad = self._stack.enter_context(Notepad(self.desktop, a_picture(SIZE), workdir))
        self.host.use_desktop(self.desktop)
        return {"Screen": {"Display": self.desktop.display}}

    @property
    def firmware(self):
        return self._lab.firmware

    def open(self):
        return self.browser.new_page(self._lab.url).await_connected()

    def start_service(self):
        self.host.start_service()
        self.host.await_state(RUNNING)
        self.firmware.await_request("WriteMultiNwInfo")

    def close(self):
        self._stack.close()


def short_folder_for_sockets():
    """A folder whose path leaves room for the paths of sockets, which pytest's own do not."""
    return tempfile.TemporaryDirectory(prefix="zel-")


def open_and_end_lab(workdir, temporary, *arguments, patience=60):
    """Runs the program of ./dev lab until its page has been opened and the service is up, and interrupts it. Its own folder is
    made in `temporary`."""
    environment = {**os.environ, "PYTHONPATH": str(REPOSITORY / "tests"), "TMPDIR": temporary}
    run = Process([sys.executable, "-B", REPOSITORY / "demo" / "lab.py", *arguments], workdir / "lab.out", env=environment)
    try:
        eventually(lambda: "Ctrl-C" in run.output() or not run.running(), "the lab", patience)
        [url] = re.findall(r"The lab is at (http://127\.0\.0\.1:\S+)", run.output())
        with urllib.request.urlopen(url, timeout=20) as answer:
            assert "<title>ZEL lab</title>" in answer.read().decode()
        [log] = re.findall(r"The service's log is (.*); Ctrl-C", run.output())
        eventually(lambda: "ZEL Service UP" in pathlib.Path(log).read_text(errors="replace"), "the service", patience)
        run.signal(signal.SIGINT)
        assert run.wait(patience) == 0, run.output()
    finally:
        run.kill()
