#!/usr/bin/env python3
"""Runs clang-tidy over the product.

    tidy.py BUILD JOBS FOLDER...

BUILD has a compile_commands.json. Most of the time goes to the headers, so several sources are checked as one: a batch file
that includes them. The sources of a batch with findings are checked again one by one, and only what is found there counts.
Exit code 1 when something is found.
"""

import concurrent.futures
import json
import pathlib
import re
import subprocess
import sys

BATCH = 8
# A batch file includes sources, which is its purpose.
INCLUDE = '#include "{}" // NOLINT(bugprone-suspicious-include)\n'
CONSTANTS = re.compile(r"^constexpr .*", re.MULTILINE)
DEFINED = re.compile(r"\b(k[A-Z]\w*)(?:\[\w*\])? *[={]")
COUNT = re.compile(r"\d+ (warnings?|errors?)( and \d+ errors?)? (generated|treated as errors?)|Error while processing ")


def sources_of(commands, folders):
    """The compile commands of the product's sources."""
    by_file = {command["file"]: command for command in commands}
    return [by_file[file] for file in sorted(by_file) if any(file.startswith(f"{folder}/") for folder in folders)]


class Batch:
    """Some sources and the file that includes them all."""

    def __init__(self, file):
        self.file = file
        self.commands = []
        self._names = set()

    @property
    def sources(self):
        return [command["file"] for command in self.commands]

    def has_one_of(self, names):
        return not self._names.isdisjoint(names)

    def add(self, command, names):
        self.commands.append(command)
        self._names |= names

    def write(self):
        """Returns the compile command of the file."""
        self.file.write_text("".join(map(INCLUDE.format, self.sources)))
        first = self.commands[0]
        return {"directory": first["directory"], "file": str(self.file),
                "command": first["command"].replace(first["file"], str(self.file))}


def constants_in(file):
    """The names that a source defines for itself."""
    return set(DEFINED.findall("\n".join(CONSTANTS.findall(pathlib.Path(file).read_text()))))


def make_batches(build, commands):
    """Batches of about the same size, and their compile commands in a folder of their own. The sources of one define no constant
    twice, where that is possible."""
    folder = build / "tidy"
    folder.mkdir(exist_ok=True)
    batches = [Batch(folder / f"{number}.cpp") for number in range(-(-len(commands) // BATCH))]
    for command in commands:
        names = constants_in(command["file"])
        fitting = [batch for batch in batches if not batch.has_one_of(names)]
        min(fitting or batches, key=lambda batch: len(batch.commands)).add(command, names)
    (folder / "compile_commands.json").write_text(json.dumps([batch.write() for batch in batches]))
    return batches


class Tidy:
    def __init__(self, build, folders):
        self._build = build
        self._headers = f"--header-filter=/({'|'.join(folders)})/[^/]*$"

    def _findings(self, database, file):
        """What clang-tidy finds, or nothing."""
        done = subprocess.run(["clang-tidy", "-p", database, "--quiet", self._headers, "--extra-arg=-Wno-unknown-warning-option",
                               file], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        lines = [line for line in done.stdout.splitlines() if not COUNT.match(line)]
        return lines or [f"clang-tidy ended with exit code {done.returncode}"] if done.returncode else []

    def check(self, batch):
        """The findings in the sources of a batch, and why they were checked one by one without any."""
        together = self._findings(self._build / "tidy", batch.file)
        found = [line for source in batch.sources for line in self._findings(self._build, source)] if together else []
        errors = [line for line in together if " error: " in line] or together
        return found, errors[0] if errors and not found else None


def main():
    build, jobs, folders = pathlib.Path(sys.argv[1]).resolve(), int(sys.argv[2]), sys.argv[3:]
    root = pathlib.Path.cwd()
    commands = json.loads((build / "compile_commands.json").read_text())
    batches = make_batches(build, sources_of(commands, [root / folder for folder in folders]))
    tidy = Tidy(build, folders)
    failed = False
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for found, reason in pool.map(tidy.check, batches):
            failed = failed or bool(found)
            for line in found:
                print(line)
            if reason:
                print(f"some sources had to be checked one by one: {reason}")
    return 1 if failed else 0


sys.exit(main())
