"""How late this machine is: what a test measures on a busy one is its own waiting for a processor, too."""

import os
import threading
import time

STEP = 0.005


class Lateness:
    """While the block lasts, a thread on each processor wakes every 5 ms as the programs do; `longest`
    says how many seconds one has come late at the most, and `chain` how late that makes what goes from
    one program to the next until the test has it. `priority`: a real-time one, as of the programs. Also
    such threads wait a quarter of a second where the kernel takes a million routes away, and those of
    other processors do not."""

    def __init__(self, priority=0):
        self._priority = priority
        self._late = dict.fromkeys(os.sched_getaffinity(0), 0.0)  # by processor, the most so far

    @property
    def longest(self):
        return max(self._late.values())

    def chain(self, programs):
        return programs * self.longest

    def __enter__(self):
        self._over = threading.Event()
        self._threads = [threading.Thread(target=self._watch, args=(processor,))
                         for processor in self._late]
        for thread in self._threads:
            thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        for thread in self._threads:
            thread.join()

    def _watch(self, processor):
        os.sched_setaffinity(0, {processor})
        if self._priority:
            os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(self._priority))
        due = time.monotonic() + STEP
        while not self._over.wait(max(due - time.monotonic(), 0)):
            now = time.monotonic()
            self._late[processor] = max(self._late[processor], now - due)
            due = now + STEP
