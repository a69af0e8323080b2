"""The password of the service account: the firmware's command, and the directory of a PC under Wine, which is the tests' own
netapi32.dll beside the service (tests/windows/netapi32/NetApi.cpp)."""

import shutil

from .growing import GrowingLines

PASSWORD_STATUS = "WritePwdUpdateStatus"


def send_passwords(stage, old, new):
    record = old.encode().ljust(128, b"\0") + new.encode().ljust(128, b"\0")
    file = stage.workdir / "record"
    file.write_bytes(record)
    stage.firmware.send("AD_SERVICE_PWD_UPDATE_CMD", "--file", file)
    file.unlink()


def files_with(text, *folders):
    """The files there that contain the text."""
    files = [path for folder in folders for path in folder.rglob("*") if path.is_file()]
    return [path for path in files if text.encode() in path.read_bytes()]


class Directory:
    """Changes every password, until answer() says otherwise."""

    def __init__(self, folder, library):
        self._library = folder / "netapi32.dll"
        self._calls_file, self._answer = folder / "directory.calls", folder / "directory.answer"
        shutil.copyfile(library, self._library)
        self._calls = GrowingLines(self._calls_file, lambda line: line.split("\t"))

    def answer(self, result, last_error):
        self._answer.write_text(f"{result} {last_error}")

    def calls(self):
        """Domain, account, old and new password of each call."""
        return self._calls.all()

    def remove(self):
        for path in (self._library, self._calls_file, self._answer):
            path.unlink(missing_ok=True)
