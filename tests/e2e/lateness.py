"""How late this machine is: what a test measures on a busy one is its own waiting for a processor, too."""

import os
import threading
import time

STEP = 0.005


class Lateness:
    """While the block lasts, a thread wakes every 5 ms as the programs do; `longest` says how many
    seconds it has come late at the most, and `chain` how late that makes what goes from one program to
    the next until the test has it. `priority`: a real-time one, as of the programs."""

    def __init__(self, priority=0):
        self._priority = priority
        self.longest = 0.0

    def chain(self, programs):
        return programs * self.longest

    def __enter__(self):
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._watch)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        self._thread.join()

    def _watch(self):
        if self._priority:
            os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(self._priority))
        due = time.monotonic() + STEP
        while not self._over.wait(max(due - time.monotonic(), 0)):
            now = time.monotonic()
            self.longest = max(self.longest, now - due)
            due = now + STEP
