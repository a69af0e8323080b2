"""The one place where a test waits for something that another process does."""

import time


class Overdue(AssertionError):
    """What was waited for did not happen in time."""


def eventually(read, what, patience=20.0):
    """Calls read() until it gives something true, and returns that. Fails after `patience` seconds."""
    deadline = time.monotonic() + patience
    while True:
        value = read()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Overdue(f"waited {patience:.0f} s for {what}")
        time.sleep(0.01)
