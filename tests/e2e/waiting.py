"""Waiting for a condition, never for a time."""

import time


def wait_until(condition, seconds, what):
    """Returns the first true value of `condition()`; fails when none came within `seconds`."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        assert time.monotonic() < end, f"not within {seconds} s: {what}"
        time.sleep(0.005)
