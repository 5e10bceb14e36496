"""A follower of track events: `trackctl events --json`, read line by line.

That nothing was published is learnt from marks: tracks named mark-N, made for the purpose, whose
events come in order with all others.
"""

import json
import os
import select
import selectors
import subprocess
import time

MARKS = [f"mark-{number}" for number in range(8)]
FOLLOWING = b"trackctl: following events\n"


class Follower:
    def __init__(self, service, tracks=(), state=None):
        self.service = service
        self._marks = iter(MARKS)
        self._mark_interface = "mark-dn" if state == "down" else "mark-up"
        self._seen = set()
        self._events = []
        self._partial = b""
        names = [*tracks, *MARKS] if tracks else []
        arguments = [word for name in names for word in ("--track", name)]
        if state:
            arguments += ["--state", state]
        self.process = subprocess.Popen(
            [*service.build.command("trackctl"), "events", "--json", *arguments],
            env=service.build.environment(service.root), stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._selector = selectors.DefaultSelector()
        self._selector.register(self.process.stdout, selectors.EVENT_READ)
        try:
            ready, _, _ = select.select([self.process.stderr], [], [], service.build.patience)
            assert ready, "the follower does not begin"
            assert self.process.stderr.readline() == FOLLOWING
        except BaseException:
            self.close()
            raise

    def close(self):
        self.process.terminate()
        self.process.wait()
        self._selector.close()
        self.process.stdout.close()
        self.process.stderr.close()

    def _read(self, seconds):
        """Reads what comes within `seconds`, at most once."""
        if not self._selector.select(seconds):
            return
        data = os.read(self.process.stdout.fileno(), 65536)
        assert data, f"the follower ended: {self.process.wait()}"
        *lines, self._partial = (self._partial + data).split(b"\n")
        for line in lines:
            event = json.loads(line)
            if event["track"].startswith("mark-"):
                self._seen.add(event["track"])
            else:
                self._events.append((event["track"], event["state"]))

    def _read_until(self, condition, seconds):
        end = time.monotonic() + seconds
        while not condition() and time.monotonic() < end:
            self._read(max(0.0, end - time.monotonic()))
        return condition()

    def expect(self, *events, seconds=None):
        """The next events are exactly these (track, state) pairs, in this order."""
        self._read_until(lambda: len(self._events) >= len(events),
                         seconds or self.service.build.patience)
        assert self._events[:len(events)] == list(events)
        del self._events[:len(events)]

    def wait_count(self, count):
        """Waits for `count` events and returns them, in order."""
        assert self._read_until(lambda: len(self._events) >= count, self.service.build.patience), \
            f"{len(self._events)} events in place of {count}"
        taken, self._events = self._events[:count], self._events[count:]
        return taken

    def take(self, seconds):
        """Waits so long for events; those that have come, as soon as there are any."""
        self._read_until(lambda: self._events, seconds)
        taken, self._events = self._events, []
        return taken

    def drain(self):
        """Reads until the tool ends; the number of its lines."""
        return self.process.stdout.read().count(b"\n")

    def expect_nothing(self):
        """Nothing was published up to now beyond what was expected."""
        name = next(self._marks)
        self.service.ctl("set", name, "interface", self._mark_interface)
        self._read_until(lambda: name in self._seen, self.service.build.patience)
        self.service.ctl("delete", name)
        assert name in self._seen, "the mark did not come"
        assert self._events == []
