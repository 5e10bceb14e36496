"""BFD at 50 ms x 3, our own engine and FRR's bfdd side by side in one run, each against a bfdd of its
own at the other end: what 500 sessions cost, whether any falls, and how soon a dead neighbour is
noticed.

All sessions share a veth; each has a subnet of its own on it. Each bfdd runs at real-time priority, as
our own engine does, so that it is not the far end that is late. Ten minutes beside two busy loops:

    OT_BFD_SECONDS=600 OT_BFD_BUSY=2 bench/run bfd

What fell when and why, and when a processor stood still, is told in results.json beside the figures,
and its beginning printed. A processor stands still when the machine is virtual and has to wait, but
also when real-time work leaves others nothing: of each second the kernel keeps 50 ms for them.
"""

import collections
import contextlib
import json
import os
import random
import statistics
import subprocess
import sys
import time
import typing

import ledger
import process_costs
from bird import Bird, bfd_sessions
from frr import Frr
from netns import NetworkNamespace
from output import File
from priority import REALTIME
from service import Service
from stalls import Stalls
from table import row
from waiting import wait_until

COUNT = int(os.environ.get("OT_BFD_SESSIONS", 500))
SECONDS = float(os.environ.get("OT_BFD_SECONDS", 30))
BUSY = int(os.environ.get("OT_BFD_BUSY", 0))  # loops beside
INTERVAL, MULTIPLIER = 50, 3
DEATHS = 25
PRINTED = 20  # of what happened in a run


def addresses(number):
    """Of session `number`: this end's and the other's."""
    return f"10.{number // 64}.{number % 64 * 4}.1", f"10.{number // 64}.{number % 64 * 4}.2"


def connect(near, far, count):
    near.ip(f"link add e0 type veth peer name e0 netns {far.name}")
    near.ip_batch([f"addr add {addresses(n)[0]}/30 dev e0" for n in range(count)] +
                  ["link set e0 up"])
    far.ip_batch([f"addr add {addresses(n)[1]}/30 dev e0" for n in range(count)] +
                 ["link set e0 up"])


def bfdd(net, count, local, remote):
    """A bfdd with all sessions. `local`, `remote`: which of addresses()."""
    made = Frr(net)
    made.start_bfdd()
    with open(f"{made.directory}/sessions", "w", encoding="ascii") as config:
        config.write("bfd\n")
        for number in range(count):
            ends = addresses(number)
            config.write(f" peer {ends[remote]} interface e0 local-address {ends[local]}\n"
                         f"  receive-interval {INTERVAL}\n  transmit-interval {INTERVAL}\n"
                         f"  detect-multiplier {MULTIPLIER}\n exit\n !\n")
    made.run_file(f"{made.directory}/sessions")
    return made


class Ours:
    """The service with its own engine, and a track for each session."""

    def __init__(self, build, net, count):
        self.service = Service(build, File, net=net)
        self.service.start()
        items = [[f"set u32 /cfg/gl/object_tracking/track/t{n:04}/a 1",
                  f"set tuple /cfg/gl/object_tracking/track/t{n:04}/type/bfdprb/0x9/rate/"
                  f"0x{INTERVAL:x}/debounce_count/0x{MULTIPLIER:x}/Interface/e0/destaddress "
                  f"{addresses(n)[1]}"] for n in range(count)]
        answers = ledger.commit(build, self.service.root, items)
        assert set(answers) == {"0x00000000"}, answers[0]
        self.pid = self.service.daemon.pid

    def ups(self):
        return sum(track["state"] == "up" for track in self.service.tracks())

    def downs(self):
        return sum(session["downs"] for session in self._sessions().values())

    def falls(self, seconds):
        """Lets the sessions be for that time; how many fell at what moment, and why."""
        follower = self.service.follow(state="down")
        fell = collections.Counter()
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            events = follower.take(left)
            at = round(time.monotonic(), 1)
            sessions = self._sessions() if events else {}  # before they are up again
            fell.update((at, sessions[name]["diagnostic"], sessions[name]["remote_diagnostic"])
                        for name, _ in events)
        return [(at, f"{count} sessions fell: {here}; the neighbour says: {there}")
                for (at, here, there), count in fell.items()]

    def _sessions(self):
        return {track["name"]: track["object"]["session"] for track in self.service.tracks()}

    def close(self):
        self.service.close()


class Theirs:
    """bfdd with the same sessions."""

    def __init__(self, build, net, count):
        del build
        self._frr = bfdd(net, count, 0, 1)
        self.pid = self._frr.pid("bfdd")

    def ups(self):
        return sum(self._frr.states().values())

    def downs(self):
        counters = json.loads(self._frr.vtysh("show bfd peers counters json"))
        return sum(peer["session-down"] for peer in counters)

    def falls(self, seconds):
        """Lets the sessions be for that time; bfdd does not tell when one fell."""
        time.sleep(seconds)
        return []

    def close(self):
        self._frr.close()


@contextlib.contextmanager
def busy_loops():
    loops = [subprocess.Popen(["sh", "-c", "while :; do :; done"]) for _ in range(BUSY)]
    try:
        yield
    finally:
        for loop in loops:
            loop.kill()
            loop.wait()


class Outcome(typing.NamedTuple):
    cpu: float  # percent of one processor
    fell: int  # sessions
    stall: float  # of the machine, the longest, milliseconds
    happened: list  # when what fell or stood still: a line each


class Bed:
    """One of the two against a bfdd."""

    def __init__(self, build, kind, count=COUNT):
        self.parts = []
        try:
            self.far = NetworkNamespace()
            self.parts.append(self.far)
            near = NetworkNamespace()
            self.parts.append(near)
            connect(near, self.far, count)
            self.peer = bfdd(self.far, count, 1, 0)
            self.parts.append(self.peer)
            self.near = kind(build, near, count)
            self.parts.append(self.near)
            wait_until(lambda: self.near.ups() == count, 60, "all sessions up")
        except BaseException:
            self.close()
            raise

    def run(self):
        """Lets the sessions be for a while."""
        downs = self.near.downs()
        with busy_loops(), Stalls() as stalls:
            began, before = time.monotonic(), process_costs.cpu_ns(self.near.pid)
            happened = self.near.falls(SECONDS)
            passed = time.monotonic() - began
            used = (process_costs.cpu_ns(self.near.pid) - before) / 1e9
        fell = self.near.downs() - downs
        happened += [(stall.at, f"processor {stall.processor} stood still for "
                                f"{1000 * stall.seconds:.0f} ms") for stall in stalls.noted]
        return Outcome(100 * used / passed, fell, 1000 * stalls.longest,
                       [f"after {at - began:.1f} s: {what}" for at, what in sorted(happened)])

    def close(self):
        for part in reversed(self.parts):
            part.close()


def bfd(build):
    rows = []
    used = {}
    for name, kind in (("own engine", Ours), ("bfdd", Theirs)):
        with contextlib.closing(Bed(build, kind)) as bed:
            outcome = bed.run()
        for line in outcome.happened[:PRINTED]:
            print(f"{name}, {line}", file=sys.stderr, flush=True)
        used[name] = outcome.cpu
        what = f"{COUNT} BFD sessions at 50 ms x 3, {name}"
        fell = row(f"{what}: sessions that fell in {SECONDS:.0f} s", outcome.fell, "",
                   0 if kind is Ours else None)
        rows += [row(f"{what}: CPU of one processor", outcome.cpu, "%"),
                 {**fell, "happened": outcome.happened},
                 row(f"{what}: longest stall of the machine meanwhile", outcome.stall, "ms")]
    rows.append(row("own engine's CPU to bfdd's", used["own engine"] / used["bfdd"], "", 0.5))
    return rows


class Unprivileged:
    """A build whose service cannot give its thread a priority."""

    def __init__(self, build):
        self._build = build

    def __getattr__(self, name):
        return getattr(self._build, name)

    def command(self, program):
        return ["setpriv", "--bounding-set", "-sys_nice", *self._build.command(program)]


def deaths(build, own, realtime):
    """Milliseconds from the death of the neighbour, a BIRD, to the event of a track."""
    service = Service(build if realtime else Unprivileged(build), File)
    parts = [service]
    try:
        far = NetworkNamespace()
        parts.append(far)
        connect(service.net, far, 1)
        neighbour = Bird(far, bfd_sessions([(addresses(0)[0], "e0")], INTERVAL, MULTIPLIER))
        parts.append(neighbour)
        if not own:
            engine = Frr(service.net)
            parts.append(engine)
            engine.start_bfdd(priority=REALTIME if realtime else ())
            os.makedirs(f"{service.root}/run", exist_ok=True)
            os.symlink(engine.directory, f"{service.root}/run/frr")
        service.start()
        follower = service.follow(["t"])
        service.ctl("set", "t", "bfd", addresses(0)[1], "--interface", "e0", "--rate",
                    str(INTERVAL), "--debounce", str(MULTIPLIER))
        taken = []
        for _ in range(DEATHS):
            neighbour.start()
            follower.expect(("t", "up"))
            time.sleep(random.uniform(0.2, 0.4))  # at any moment between two packets
            began = time.monotonic()
            neighbour.kill()
            follower.expect(("t", "down"))
            taken.append(1000 * (time.monotonic() - began))
    finally:
        for part in reversed(parts):
            part.close()
    return taken


def bfd_deaths(build):
    rows = []
    for realtime in (False, True):
        for own in (True, False):
            taken = deaths(build, own, realtime)
            what = (f"BFD neighbour dead (50 ms x 3) -> event, "
                    f"{'own engine' if own else 'bfdd'}, "
                    f"{'real-time' if realtime else 'normal'} priority")
            rows += [row(f"{what}, median of {DEATHS}", statistics.median(taken), "ms"),
                     row(f"{what}, worst", max(taken), "ms")]
    return rows


STEPS = {"bfd": bfd, "bfd_deaths": bfd_deaths}
