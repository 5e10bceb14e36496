"""Carrier changes as several programs report them, side by side in one run, all at normal priority:
a bare netlink listener, keepalived through its FIFO, and our events, in process or through
`trackctl events`: one of the two at a time, so that they do not wait for each other. The veths' other ends are in another namespace and have other indexes; where both
ends have the same one, the kernel holds the loss of a carrier back."""

import os
import statistics
import subprocess

import ledger
from measurements import SHARED_MEMORY, percentile
from netns import NetworkNamespace
from output import File
from peers.keepalived import Keepalived
from service import Service
from table import row

# Links, followers, rounds with each reader, milliseconds between two changes.
CASES = ((1, 1, 120, 150), (1, 255, 120, 200), (255, 255, 20, 700))
LISTENER, PROCESS, TOOL, KEEPALIVED = "listener", "subscriber", "trackctl", "keepalived"
WORDS = {PROCESS: "our events in process", TOOL: "trackctl events",
         KEEPALIVED: "keepalived's FIFO"}
# What ours may be at most of keepalived's.
TARGETS = {PROCESS: 0.5, TOOL: 1.0}


class Race:
    """The programs in one namespace with links, started in one order or the other. `reader`: which of
    ours."""

    def __init__(self, build, links, followers, reader, ours_first):
        self.build = build
        self._reader = reader
        self.parts = []
        try:
            self.far = NetworkNamespace()
            self.parts.append(self.far)
            self.near = NetworkNamespace()
            self.parts.append(self.near)
            self.near.ip_batch(
                f"link add w{number:03} index {1000 + number} type veth peer name w{number:03} "
                f"index {3000 + number} netns {self.far.name}" for number in range(links))
            self.far.ip_batch(f"link set w{number:03} up" for number in range(links))
            for number in range(links):
                self.near.up(f"w{number:03}")
            followed = [(f"t{number:03}", f"w{number % links:03}") for number in range(followers)]
            for start in (self._ours, self._theirs) if ours_first else (self._theirs, self._ours):
                start(followed)
        except BaseException:
            self.close()
            raise

    def _ours(self, followed):
        service = Service(self.build, File, folder=SHARED_MEMORY, net=self.near)
        self.parts.append(service)
        service.start()
        answers = service.commit([ledger.track_items(name, link) for name, link in followed])
        assert set(answers) == {"0x00000000"}, answers
        service.wait_state(followed[-1][0], "up")
        self.root = service.root
        if self._reader == PROCESS:
            return
        pipe = f"{self.root}/events"
        os.mkfifo(pipe)
        kept = os.open(pipe, os.O_RDWR)
        tool = subprocess.Popen([*self.build.command("trackctl"), "events"],
                                env=self.build.environment(self.root), stdin=subprocess.DEVNULL,
                                stdout=kept, stderr=subprocess.PIPE)
        assert tool.stderr.readline(), "trackctl follows no events"
        self.parts.append(_Tool(tool, kept))
        self._reader = f"{TOOL}={pipe}"

    def _theirs(self, followed):
        self.keepalived = Keepalived(self.near, followed)
        self.parts.append(self.keepalived)

    def run(self, links, followers, rounds, gap_ms):
        """Lines of the race: direction, reader, followers heard of, first, last, median over."""
        command = [*self.near.command(), *self.build.command("peer_race"),
                   f"/run/netns/{self.far.name}", str(links), str(followers), str(rounds),
                   str(gap_ms), self._reader, f"{KEEPALIVED}={self.keepalived.fifo}"]
        result = subprocess.run(command, env=self.build.environment(self.root), check=True,
                                stdout=subprocess.PIPE, text=True)
        return [[int(word) if word.isdigit() or word[0] == "-" else word for word in line.split()]
                for line in result.stdout.splitlines()]

    def close(self):
        for part in reversed(self.parts):
            part.close()


class _Tool:
    def __init__(self, process, kept):
        self._process, self._kept = process, kept

    def close(self):
        self._process.terminate()
        self._process.wait()
        self._process.stderr.close()
        os.close(self._kept)


def over_listener(lines, links, readers):
    """For each reader what it was later than the listener in each change, milliseconds: for the last
    follower of one link, and for the one in the middle of many; and of how many it never heard that the
    listener heard of: the kernel holds a carrier's return back for up to a second, and is silent when
    the next change comes first."""
    over = {name: [] for name in readers}
    lost = dict.fromkeys(readers, 0)
    followers, heard = max(line[2] for line in lines), 0
    for direction, name, count, first, last, median in lines:
        del direction
        if name == LISTENER:
            of_link, heard = first, count
            continue
        lost[name] += (followers if links == 1 else heard) - count
        if count > 0:
            over[name].append((last - of_link if links == 1 else median) / 1e6)
    return over, lost


def measure(build, reader, links, followers, rounds, gap_ms):
    lines = []
    for ours_first in (True, False):
        race = Race(build, links, followers, reader, ours_first)
        try:
            race.run(links, followers, 3, gap_ms)  # warm
            lines += race.run(links, followers, rounds // 2, gap_ms)
        finally:
            race.close()
    return over_listener(lines, links, (reader, KEEPALIVED))


def rows_of(links, followers, reader, over, lost):
    what = f"{links} link(s), {followers} follower(s)"
    which = "last event" if links == 1 else "event of the same link"
    rows = []
    for name in (reader, KEEPALIVED):
        values = over[name]
        rows.append(row(f"{what}: {WORDS[name]}, {which} after the listener's, median of"
                        f" {len(values)} (p10 {percentile(values, 0.1):.3f}, p90"
                        f" {percentile(values, 0.9):.3f})", statistics.median(values), "ms"))
        rows.append(row(f"{what}: {WORDS[name]}, lost", lost[name], "",
                        None if name == KEEPALIVED else 0))
    each = [ours / theirs for ours, theirs in zip(over[reader], over[KEEPALIVED]) if theirs > 0]
    ratio = statistics.median(over[reader]) / statistics.median(over[KEEPALIVED])
    rows.append(row(f"{what}: {WORDS[reader]} to {WORDS[KEEPALIVED]}, ratio of the medians (of each"
                    f" change: p25 {percentile(each, 0.25):.2f}, p75 {percentile(each, 0.75):.2f})",
                    ratio, "", TARGETS[reader]))
    return rows


def peers(build):
    rows = []
    for links, followers, rounds, gap_ms in CASES:
        for reader in TARGETS:
            rows += rows_of(links, followers, reader,
                            *measure(build, reader, links, followers, rounds, gap_ms))
    rows.append(row("load average", os.getloadavg()[0], ""))
    return rows


STEPS = {"peers": peers}
