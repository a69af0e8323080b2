"""Some seconds of the soak, always in the same order of events; ./dev soak runs it for as long as one likes."""

import subprocess
import sys

from harness.processes import REPOSITORY, with_owner

SEED = 7
MINUTES = 0.35


def test_consoles_viewers_and_faults_at_random_cost_no_byte_and_nothing_that_grows():
    done = subprocess.run(with_owner([sys.executable, "-m", "soak", MINUTES, "--seed", SEED]), cwd=REPOSITORY / "tests",
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stdout[-10_000:] + done.stderr[-10_000:]
    assert "sessions served: DASH" in done.stdout
