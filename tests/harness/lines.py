"""Programs that are led line by line."""

import json
import os
import select
import subprocess
import time

from .processes import with_owner


class LineProgram:
    """A program that answers each line of input with one line of JSON. Its standard error goes to `log`."""

    def __init__(self, command, environment, log):
        with open(log, "ab") as errors:
            self._process = subprocess.Popen(with_owner(command), env=environment,
                                             stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors)
        self._received = b""

    def ask(self, *words, patience=30.0):
        self.send(*words)
        return self.answer(patience)

    def send(self, *words):
        """Begins what takes its time; answer() returns how it ended."""
        self._process.stdin.write((" ".join(str(word) for word in words) + "\n").encode())
        self._process.stdin.flush()

    def answer(self, patience=30.0):
        deadline = time.monotonic() + patience
        while b"\n" not in self._received:
            readable, _, _ = select.select([self._process.stdout], [], [], max(0.0, deadline - time.monotonic()))
            assert readable, f"no answer in {patience:.0f} s"
            part = os.read(self._process.stdout.fileno(), 1 << 20)
            assert part, "the program ended"
            self._received += part
        line, _, self._received = self._received.partition(b"\n")
        answer = json.loads(line)
        assert "problem" not in answer, answer["problem"]
        return answer

    def close(self):
        self._process.stdin.close()
        try:
            self._process.wait(5)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()
