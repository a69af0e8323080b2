"""What both kinds of host have in common: a service installed on a PC, with its working folder and its log."""

import collections

from .growing import GrowingText
from .waiting import eventually

INSTALLATION = "C:\\Program Files\\Tarvix\\"
STOPPED, START_PENDING, STOP_PENDING, RUNNING = 1, 2, 3, 4

# What the service prints at its start on a PC with the software runtime.
CAPABILITY_QUERY = """LUX version (header):  1000400210000
LUX version (runtime): 1000400260000
DirectX 11
Querying video encoder capabilities...
"""
# A line of the log: the service can capture the screen from here on.
SESSION_WITH_SCREEN_READY = "LUX_KVM: MAX_CHUNK_BUFFER_SZ_512KB allocation done "

# What the service's process holds at one moment. Under Wine events don't count as handles, and the memory
# isn't known: 0.
Footprint = collections.namedtuple("Footprint", "handles threads kilobytes", defaults=[0])


def text_of(path):
    """What stands in a file; nothing when there is none, or none any more."""
    try:
        return path.read_text(errors="replace")
    except (FileNotFoundError, NotADirectoryError):
        return ""


def without_encoder_report(output):
    """What a process printed, but for the line with which it finds no media runtime on its PC."""
    return output.replace("LUX Failed to initialize", "")


class Host:
    """Its heirs set `working_folder`, and end all that runs in close()."""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def log_path(self):
        return self.working_folder / "zel.log"

    _log = None

    def log_text(self):
        if not self._log or self._log.path != self.log_path():
            self._log = GrowingText(self.log_path())
        return self._log.text()

    def await_log(self, text, count=1, patience=20.0):
        eventually(lambda: self.log_text().count(text) >= count, f"{text!r} in the log", patience)

    def error_lines(self):
        """Without the line of each start whose firmware has no data for a cloud connection."""
        lines = [line for line in self.log_text().splitlines() if "] ERROR: " in line]
        return [line for line in lines if "Unable to open cloud.txt file" not in line]

    def agent_log(self):
        return text_of(self.working_folder / "DisplayMgr.log")
