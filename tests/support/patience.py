"""How long tests wait for what comes in milliseconds or a second, as the machine may stand still."""

import time

PATIENCE = 60  # seconds


def wait_for(what, condition):
    """Until the condition holds; answers what it gave. What is waited for is told if it never does: a
    text, or a function that gives it then."""
    end = time.monotonic() + PATIENCE
    while True:
        found = condition()
        if found:
            return found
        if time.monotonic() > end:
            raise AssertionError(f"not within {PATIENCE} s: {what() if callable(what) else what}")
        time.sleep(0.02)
