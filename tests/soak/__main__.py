"""Runs random consoles, viewers, firmware commands and faults against the service for a given time.

A seed determines the events and their order. The soak compares every byte, requires an explanation for every ERROR line,
and requires that the service does not grow. docs/soak.md explains the output and how to replay a failing run.
"""

import argparse
import itertools
import pathlib
import random
import shutil
import sys
import tempfile
import time
import traceback

from harness.processes import build_folder

from soak.events import Event, order
from soak.pcs import NativePc, WinePc
from soak.player import Player
from soak.stage import Stage
from soak.tally import MEMORY_SLACK, Tally

LINE_PERIOD = 30  # seconds
# How many of the PC's seconds pass in one real second: as many as each build can keep up with inside the service's time-outs.
RATES = {"native": 10, "asan": 4, "tsan": 3, "debug": 5, "windows": 1}


def arguments():
    parser = argparse.ArgumentParser(prog="./dev soak", description=__doc__.splitlines()[0])
    parser.add_argument("minutes", type=float, help="how long to run; the service's current life is then completed")
    parser.add_argument("--seed", type=int, help="repeat the order of events of this seed; default: a new seed")
    parser.add_argument("--windows", action="store_true", help="run the shipped ZELService.exe under Wine")
    parser.add_argument("--asan", dest="build", action="store_const", const="asan", help="run the service under AddressSanitizer")
    parser.add_argument("--tsan", dest="build", action="store_const", const="tsan", help="run the service under ThreadSanitizer")
    parser.add_argument("--rate", type=int, help="how many of the PC's seconds pass in one real second")
    parser.add_argument("--order", type=int, metavar="N", help="only print the first N events")
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if not options.build:
        name = build_folder().name
        options.build = name if name in RATES else "native"
    return options


class Soak:
    def __init__(self, options, workdir):
        kind = "windows" if options.windows else options.build
        make = WinePc if options.windows else NativePc
        self.tally = Tally()
        self._pc = make(workdir, options.rate or RATES[kind])
        self._stage = Stage(self._pc, self.tally, MEMORY_SLACK[kind])
        self._player = Player(self._stage)
        self._deadline = time.monotonic() + options.minutes * 60
        self._next_line = time.monotonic() + LINE_PERIOD
        self.current = None  # the number of the running event, and the event

    def run(self, seed):
        begun = False
        for self.current in enumerate(order(seed)):
            event = self.current[1]
            # After the deadline only the quiet moment and the end of the current life are played.
            if time.monotonic() > self._deadline and event.kind not in ("checkpoint", "end"):
                break
            self._player.play(event)
            self._stage.log.forget()
            begun = event.kind != "end"
            self._report_progress()
        if begun:
            for event in (Event("checkpoint", {}), Event("end", {"how": "stop"})):
                self.current = (self.current[0], event)
                self._player.play(event)
        self._stage.account_log()

    def _report_progress(self):
        if time.monotonic() >= self._next_line:
            self._next_line += LINE_PERIOD
            print(self.tally.line(), flush=True)

    def close(self):
        try:
            self._pc.close()
        finally:
            self._stage.close()


def main():
    options = arguments()
    if options.check:
        return 0
    seed = random.SystemRandom().getrandbits(32) if options.seed is None else options.seed
    if options.order:
        for number, event in enumerate(itertools.islice(order(seed), options.order)):
            print(f"{number:6} {event}")
        return 0
    workdir = pathlib.Path(tempfile.mkdtemp(prefix="zel-soak-"))
    flags = f"{' --windows' if options.windows else ''}{f' --{options.build}' if options.build != 'native' else ''}"
    print(f"seed {seed}; to repeat this order of events:  ./dev soak {options.minutes:g} --seed {seed}{flags}", flush=True)
    soak = Soak(options, workdir)
    try:
        soak.run(seed)
        result = 0
    except (AssertionError, OSError, KeyboardInterrupt) as problem:
        number, event = soak.current
        traceback.print_exc(limit=-4, file=sys.stdout)
        print(f"FAILED with seed {seed} in event {number}: {event}\n{problem}\nthe logs are in {workdir}")
        result = 1
    finally:
        soak.close()
    for line in soak.tally.report():
        print(line)
    if result == 0:
        shutil.rmtree(workdir)
    return result


if __name__ == "__main__":
    sys.exit(main())
