"""Checks the arguments of ./dev faults before its build. Options and scenarios are read from the program's sources."""

import argparse
import pathlib
import re

FOLDER = pathlib.Path(__file__).parent
OPTION = re.compile(r'app\.add_(option|flag)\("([^"]+)",[^"]*"([^"]+)"\)')
SCENARIO = re.compile(r'^        \{"([\w-]+)", ', re.MULTILINE)


def scenario(name):
    known = SCENARIO.findall((FOLDER / "Scenarios.cpp").read_text())
    if name not in known:
        raise argparse.ArgumentTypeError(f"unknown scenario '{name}'; there are {', '.join(known)}")
    return name


def address(text):
    return int(text, 16)


def number(text):
    if not text.isdigit():
        raise ValueError
    return int(text)


# The other options with a value take a number.
TYPES = {"scenario": scenario, "--site": address, "--shown-as": str}


def main():
    parser = argparse.ArgumentParser(prog="./dev faults", allow_abbrev=False, epilog="--tsan and --debug choose another build.")
    for kind, names, text in OPTION.findall((FOLDER / "main.cpp").read_text()):
        if kind == "flag":
            parser.add_argument(*names.split(","), action="store_true", help=text)
        else:
            parser.add_argument(names, type=TYPES.get(names, number), nargs=None if names.startswith("-") else "*", help=text)
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)
    parser.parse_intermixed_args()


main()
