"""The software media runtime under Wine: the program on the desktop, its pictures, and its end."""

import re

import pytest

from harness.desktop import Desktop, what_is_missing
from harness.prefix import WINE, Session, copy_prefix, prepare
from harness.processes import Process
from harness.waiting import eventually
from harness.wine import windows_folder

pytestmark = pytest.mark.skipif(not (windows_folder() / "luxrt64.dll").exists(),
                                reason="the media runtime is not built for Windows here: ./dev test windows builds it")

BLUE, ORANGE = 0x3060C0, 0xFF8001


class Probe:
    """Runs luxprobe in a Wine session whose screen is an X server."""

    def __init__(self, workdir, display):
        self.workdir = workdir
        self.trace_file = workdir / "trace.log"
        copy_prefix(prepare(), workdir / "wine")
        self.session = Session(workdir / "wine")
        self.session.environment["LUXRT_TRACE"] = f"Z:{self.trace_file}"
        self.session.environment["DISPLAY"] = display
        self.session.boot()
        self._runs = 0

    def begin(self, *commands, **environment):
        self._runs += 1
        return Process([WINE, windows_folder() / "luxprobe.exe", *commands], self.workdir / f"luxprobe-{self._runs}.log",
                       env={**self.session.environment, **environment})

    def run(self, *commands, **environment):
        """The lines that the probe prints."""
        process = self.begin(*commands, **environment)
        assert process.wait(120) == 0, process.output()
        return process.output().splitlines()

    def programs(self):
        return self.session.programs("luxcapture.exe")

    def trace(self):
        return self.trace_file.read_text()

    def close(self):
        self.session.shut_down()


@pytest.fixture(scope="module")
def desktop(tmp_path_factory):
    if missing := what_is_missing():
        pytest.skip(f"these packages are missing: {' '.join(missing)}")
    with Desktop(tmp_path_factory.mktemp("desktop")) as screen:
        screen.window = screen.cover(BLUE)
        yield screen


@pytest.fixture(scope="module")
def probe(desktop, tmp_path_factory):
    probe = Probe(tmp_path_factory.mktemp("probe"), desktop.display)
    try:
        # Wine makes its desktop for the first program that wants one, which takes its time.
        probe.run("watch", "1", "end")
        yield probe
    finally:
        probe.close()


@pytest.fixture(autouse=True)
def without_trace(probe):
    probe.trace_file.unlink(missing_ok=True)


def pictures(lines):
    """Width, height and bytes of each delivered picture."""
    return [tuple(map(int, found.groups())) for found in (re.match(r"picture (\d+)x(\d+) packet (\d+)", line) for line in lines)
            if found]


def pixel(file, x, y):
    magic, width, _, _, pixels = file.read_bytes().split(maxsplit=4)
    assert magic == b"P6"
    at = (y * int(width) + x) * 3
    return int.from_bytes(pixels[at:at + 3], "big")


def test_the_capture_shows_what_is_painted(probe, desktop):
    desktop.fill(desktop.window, (100, 50, 200, 80), ORANGE)
    saved = probe.workdir / "picture.ppm"
    lines = probe.run("watch", "3", "save", f"Z:{saved}", "end", "programs")
    assert lines[0] == "version 0001000400260000"
    delivered = pictures(lines)
    assert len(delivered) == 3
    assert [picture[:2] for picture in delivered] == [desktop.size] * 3
    assert all(size > 0 for _, _, size in delivered)
    for x, y, colour in [(0, 0, BLUE), (99, 80, BLUE), (100, 50, ORANGE), (299, 129, ORANGE), (300, 129, BLUE)]:
        assert pixel(saved, x, y) == colour, (x, y)
    assert lines[-1] == "programs 0"


def test_a_program_that_dies_is_replaced(probe):
    lines = probe.run("watch", "2", "kill", "watch", "4", "programs", "end")
    assert len(pictures(lines)) == 6
    assert lines[-1] == "programs 1"
    assert "WARNING luxrt: The capture program has ended" in probe.trace()


def test_a_program_that_hangs_is_replaced_and_its_picture_repeated(probe):
    lines = probe.run("watch", "1", "hang", "watch", "15", "programs", "end", "programs")
    assert len(pictures(lines)) == 16
    assert lines[-2:] == ["programs 1", "programs 0"]
    assert "WARNING luxrt: The capture program does not answer" in probe.trace()


def test_each_session_has_a_program_of_its_own(probe):
    lines = probe.run("watch", "1", "programs", "restart", "watch", "1", "programs", "end", "programs")
    assert [line for line in lines if line.startswith("programs")] == ["programs 1", "programs 1", "programs 0"]
    assert probe.trace().count("The capture program") == 2


def test_the_program_ends_with_its_runtime(probe):
    process = probe.begin("watch", "100000")
    eventually(lambda: len(pictures(process.output().splitlines())) > 2, "some pictures")
    assert len(probe.programs()) == 1
    process.kill()
    eventually(lambda: not probe.programs(), "the end of the capture program")


def test_the_test_picture_needs_no_program(probe):
    lines = probe.run("watch", "5", "programs", "end", LUXRT_SCREEN="test:320x200")
    assert [(width, height) for width, height, _ in pictures(lines)] == [(320, 200)] * 5
    assert lines[-1] == "programs 0"
