"""What ./dev run and ./dev lab print for people works when it is pasted into a shell or a browser."""

import os
import pathlib
import re
import signal
import subprocess
import sys

import pytest

from harness.lab import open_and_end_lab, short_folder_for_sockets
from harness.processes import REPOSITORY, Process
from harness.waiting import eventually


@pytest.fixture
def short_folder():
    with short_folder_for_sockets() as folder:
        yield folder


def test_the_lines_of_dev_run_can_be_pasted_and_its_folder_goes(tmp_path, short_folder):
    environment = {**os.environ, "PYTHONPATH": str(REPOSITORY / "tests"), "TMPDIR": short_folder}
    run = Process([sys.executable, REPOSITORY / "demo" / "demo.py", "--stay"], tmp_path / "run.out", env=environment)
    try:
        eventually(lambda: len(re.findall(r"try:  (curl .*)", run.output())) == 2, "the lines to paste", 60)
        lines = re.findall(r"try:  (curl .*)", run.output())
        answers = [subprocess.run(["sh", "-c", f"{line} --silent --show-error"], capture_output=True, text=True, timeout=30)
                   for line in lines]
        eventually(lambda: "GET_KVM_CONSENT" in run.output(), "the end of its start")
        [folder] = re.findall(r"user administrator, .*certificate: (.*)/firmware.pem", run.output())
        assert pathlib.Path(folder).is_dir()
        run.signal(signal.SIGINT)
        assert run.wait(30) == 0, run.output()
    finally:
        run.kill()
    assert "IdentifyResponse" in answers[0].stdout, answers[0]
    assert "<p:Name>ManagedSystem</p:Name>" in answers[1].stdout, answers[1]
    assert not os.listdir(short_folder)
    [log] = re.findall(r"the service's log: (.*)", run.output())
    assert "ZEL Service DOWN" in pathlib.Path(log).read_text(errors="replace")


def test_the_address_of_the_lab_opens_and_its_folder_goes(tmp_path, short_folder):
    open_and_end_lab(tmp_path, short_folder)
    assert not os.listdir(short_folder)
