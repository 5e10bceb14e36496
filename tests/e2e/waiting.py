"""Waiting for a condition, never for a time."""

import time


def wait_until(condition, seconds, what):
    """Returns the first true value of `condition()`; fails when none came within `seconds`, with
    `what`, or with what it returns when it is a function."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        assert time.monotonic() < end, f"not within {seconds} s: {what() if callable(what) else what}"
        time.sleep(0.005)
