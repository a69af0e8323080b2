"""The commands and requests of the mailbox, as mpmsim prints them. Seeds name them; an input holds their numbers."""

import functools
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FIRST_FUNCTION = 0x900
BUILDS = ("debug", "native", "asan", "tsan")


def _program():
    given = os.environ.get("MPMSIM")
    programs = [pathlib.Path(given)] if given else [ROOT / "build" / build / "mpmsim" for build in BUILDS]
    for program in programs:
        if program.exists():
            return program
    sys.exit("the seeds need mpmsim: build it (ninja -C build/debug mpmsim) or set MPMSIM to its path")


@functools.cache
def _tables():
    return json.loads(subprocess.run([_program(), "catalogue", "--json"], check=True, capture_output=True).stdout)


def commands():
    return _tables()["commands"]


def requests():
    return _tables()["requests"]


def command(name):
    """The number of a command; "MPM_ZEL_CMD_" may be left out."""
    numbers = {row["name"]: row["number"] for row in commands()}
    for known in (name, f"MPM_ZEL_CMD_{name}", f"MPM_ZEL_{name}"):
        if known in numbers:
            return numbers[known]
    raise KeyError(f"there is no command {name}")


def code(name):
    for row in requests():
        if row["name"] == name:
            return int(row["code"], 16)
    raise KeyError(f"there is no request {name}")


def function(name):
    """The number by which an input names a request."""
    return (code(name) >> 2 & 0xFFF) - FIRST_FUNCTION
