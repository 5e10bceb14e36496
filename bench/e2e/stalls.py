"""When the machine itself stands still: a process on each processor, of a priority above all that is
measured, notes each time when it woke late. What is measured cannot have run there either.

The times are those of time.monotonic().
"""

import os
import select
import subprocess
import sys
import time
import typing

PAUSE = 0.005
WORTH_NOTING = 0.020
PRIORITY = 50


class Stall(typing.NamedTuple):
    at: float  # its end
    seconds: float
    processor: int


class Stalls:
    """Watches from its making until its close."""

    def __init__(self):
        self._watchers = {processor: subprocess.Popen(
            [sys.executable, "-B", __file__, str(processor)], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, text=True) for processor in sorted(os.sched_getaffinity(0))}
        self.longest = 0.0
        self.noted = []  # those worth it, after the close

    def close(self):
        for processor, watcher in self._watchers.items():
            printed, _ = watcher.communicate()
            assert watcher.returncode == 0, f"the watch over processor {processor} failed"
            found = [Stall(*map(float, line.split()), processor) for line in printed.splitlines()]
            self.longest = max([self.longest, *(stall.seconds for stall in found)])
            self.noted += [stall for stall in found if stall.seconds > WORTH_NOTING]
        self._watchers.clear()
        self.noted.sort()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def watch(processor):
    """Until standard input ends; prints what is worth it, or else the longest: its end and its
    length in seconds."""
    os.sched_setaffinity(0, {processor})
    os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(PRIORITY))
    longest = Stall(time.monotonic(), 0.0, processor)
    before = longest.at
    while not select.select([sys.stdin], [], [], PAUSE)[0]:
        now = time.monotonic()
        stall = Stall(now, now - before - PAUSE, processor)
        before = now
        if stall.seconds > longest.seconds:
            longest = stall
        if stall.seconds > WORTH_NOTING:
            print(stall.at, stall.seconds)
    if longest.seconds <= WORTH_NOTING:
        print(longest.at, longest.seconds)


if __name__ == "__main__":
    watch(int(sys.argv[1]))
