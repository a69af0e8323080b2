"""./dev reads its arguments before it installs or builds anything."""

import os
import subprocess

import pytest

from harness.processes import REPOSITORY

# What installs and what builds.
TOOLS = ("dpkg-query", "apt-get", "sudo", "cmake", "ninja")


@pytest.fixture
def dev(tmp_path):
    """Runs ./dev with tools that only note their use, in the file `used`, and fail."""
    tools = tmp_path / "tools"
    tools.mkdir()
    for name in TOOLS:
        (tools / name).write_text(f'#!/bin/sh\necho {name} >>"{tmp_path}/used"\nexit 1\n')
        (tools / name).chmod(0o755)

    def run(*words):
        done = subprocess.run([REPOSITORY / "dev", *words], env={**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"},
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
        used = tmp_path / "used"
        return done, used.read_text().splitlines() if used.exists() else []
    return run


@pytest.mark.parametrize("words, complaint", [
    (("bench", "--rounds", "many"), "invalid int value: 'many'"),
    (("bench", "--rounds", "0"), "--rounds needs at least 1"),
    (("bench", "quickly"), "unknown part quickly; the parts are bytes, screen, web"),
    (("faults", "kvmm"), "unknown scenario 'kvmm'; there are start, packaged, packaged-stop, update, dash, kvm, display, consent, "
                         "enrolment, password, alert, upgrade, power, suspend, network, cloud, reader, driver, stop"),
    (("faults", "kvm", "--quickly"), "unrecognized arguments: --quickly"),
    (("faults", "kvm", "--tsan", "--at"), "argument --at: expected one argument"),
    (("faults", "--debug", "kvm", "--at", "-1"), "invalid number value: '-1'"),
    (("faults", "--site", "here"), "invalid address value: 'here'"),
    (("fuzz", "soon"), "usage: ./dev fuzz SECONDS [TARGET...]; the targets are "),
    (("fuzz", "1", "nothing"), "unknown target nothing; the targets are "),
    (("soak", "long"), "invalid float value: 'long'"),
    (("mutants", "nowhere"), "invalid choice: 'nowhere'"),
    (("lab", "--linux"), "unrecognized arguments: --linux"),
    (("package", "msi"), "package takes no arguments"),
])
def test_wrong_arguments_are_refused_at_once(dev, words, complaint):
    done, used = dev(*words)
    assert done.returncode in (1, 2)
    assert complaint in done.stderr
    assert (done.stdout, used) == ("", [])


@pytest.mark.parametrize("command", ["bench", "faults", "lab", "soak", "mutants"])
def test_help_needs_no_build(dev, command):
    done, used = dev(command, "--help")
    assert (done.returncode, done.stderr, used) == (0, "", [])
    assert done.stdout.startswith(f"usage: ./dev {command} ")


@pytest.mark.parametrize("words", [
    ("bench",), ("bench", "--rounds", "3"), ("bench", "screen"),
    ("faults",), ("faults", "kvm", "--quick", "stop", "--tsan"), ("faults", "kvm", "--site", "0xb1f62e", "--at=1", "-v", "-j8"),
    ("fuzz", "1", "wsman"), ("soak", "0.5", "--seed", "7"), ("mutants", "kvm", "--sample", "3"),
    ("package",), ("lab", "--windows"),
])
def test_right_arguments_go_on_to_the_packages(dev, words):
    done, used = dev(*words)
    assert done.returncode == 1
    assert used[0] == "dpkg-query"
    assert set(used).isdisjoint(("cmake", "ninja"))
