"""Changes the product in one place at a time and reports which of the changes no test notices."""

import argparse
import concurrent.futures
import os
import queue
import random
import signal
import sys

from harness.processes import REPOSITORY

from mutants.operators import mutations
from mutants.workshop import Broken, Outcome, Workshop


def product_folders():
    for line in (REPOSITORY / "CMakeLists.txt").read_text().splitlines():
        if line.startswith("set(PRODUCT_FOLDERS "):
            return line.removeprefix("set(PRODUCT_FOLDERS ").rstrip(")").split()
    raise SystemExit("CMakeLists.txt names no PRODUCT_FOLDERS")


def arguments():
    parser = argparse.ArgumentParser(prog="./dev mutants", description=__doc__)
    parser.add_argument("folder", nargs="?", choices=product_folders(), help="default: all folders of the product")
    parser.add_argument("--sample", type=int, default=50, help="how many mutants to test, chosen at random (default: %(default)s)")
    parser.add_argument("--seed", type=int, default=1, help="another seed chooses others (default: %(default)s)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="how many are tested at a time (default: %(default)s)")
    parser.add_argument("--list", action="store_true", help="only print the sample")
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)
    return parser.parse_args()


def all_mutations(folders):
    for folder in folders:
        for path in sorted((REPOSITORY / folder).glob("*.[ch]*")):
            yield from mutations(str(path.relative_to(REPOSITORY)), path.read_text())


def describe(mutation):
    return mutation.describe((REPOSITORY / mutation.path).read_text())


class Run:
    def __init__(self, jobs, candidates, wanted):
        folders = [folder.split("/")[0] for folder in product_folders()]
        tested = [folder for folder in folders if any((REPOSITORY / "tests" / "unit" / folder).glob("*.cpp"))]
        self._candidates = iter(candidates)
        self._wanted = wanted
        self._workshops = [Workshop(REPOSITORY / "build" / "mutants" / str(number), tested) for number in range(jobs)]
        self.counts = {Outcome.KILLED: 0, Outcome.SURVIVED: 0, Outcome.NOT_COMPILED: 0}
        self.survivors = []

    def prepare(self):
        # One after another: each takes all cores.
        for workshop in self._workshops:
            workshop.prepare()

    def run(self):
        """A mutant that does not compile is replaced by the next one."""
        idle = queue.SimpleQueue()
        for workshop in self._workshops:
            idle.put(workshop)

        def test(mutation):
            workshop = idle.get()
            try:
                return (mutation, *workshop.test(mutation))
            finally:
                idle.put(workshop)

        with concurrent.futures.ThreadPoolExecutor(len(self._workshops)) as pool:
            running = {pool.submit(test, mutation) for mutation in self._take(self._wanted)}
            while running:
                done, running = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
                for future in done:
                    self._account(*future.result())
                missing = self._wanted - len(running) - self.counts[Outcome.KILLED] - self.counts[Outcome.SURVIVED]
                running |= {pool.submit(test, mutation) for mutation in self._take(missing)}

    def _take(self, count):
        return [mutation for _, mutation in zip(range(count), self._candidates)]

    def _account(self, mutation, outcome, test):
        self.counts[outcome] += 1
        if outcome == Outcome.SURVIVED:
            self.survivors.append(mutation)
        if outcome != Outcome.NOT_COMPILED:
            print(f"{outcome} {describe(mutation)}{f'  by {test}' if test else ''}", flush=True)

    def stop(self):
        for workshop in self._workshops:
            workshop.stop()


def main():
    options = arguments()
    if options.check:
        return 0
    candidates = list(all_mutations([options.folder] if options.folder else product_folders()))
    random.Random(options.seed).shuffle(candidates)
    if options.list:
        print(*(describe(mutation) for mutation in candidates[: options.sample]), sep="\n")
        return 0
    run = Run(options.jobs, candidates, min(options.sample, len(candidates)))

    def interrupted(*_):
        run.stop()
        os._exit(130)

    for each in (signal.SIGINT, signal.SIGTERM):
        signal.signal(each, interrupted)
    print(f"{len(candidates)} mutants; testing {options.sample} of them with seed {options.seed}", flush=True)
    try:
        run.prepare()
    except Broken as problem:
        print(f"mutants: {problem}", file=sys.stderr)
        return 1
    run.run()
    print(*(f"SURVIVED {describe(mutation)}" for mutation in sorted(run.survivors, key=describe)), sep="\n")
    tested = run.counts[Outcome.KILLED] + run.counts[Outcome.SURVIVED]
    print(
        f"{run.counts[Outcome.KILLED]} of {tested} mutants killed ({100 * run.counts[Outcome.KILLED] / max(1, tested):.1f} %); "
        f"{run.counts[Outcome.NOT_COMPILED]} more did not compile"
    )
    return 0


if __name__ == "__main__":
    sys.exit(main())
