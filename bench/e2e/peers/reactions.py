"""How long after an event a command of the operator's has begun to run: trackpolicy's, and keepalived's
notify script for the same change of the same link, in one run, all at normal priority. Both are the same
shell script but for the words, and say that they run by a line in a FIFO."""

import os
import statistics
import subprocess

from measurements import percentile
from peers.keepalived import Keepalived
from peers.peers import PROCESS, Race
from policy import Trackpolicy, script
from table import row

OURS, THEIRS = "trackpolicy", "notify"
ROUNDS, GAP_MS = 60, 150


class Reactions(Race):
    """A race of one link, with a FIFO for what either of the two runs."""

    def __init__(self, build, ours_first):
        super().__init__(build, 1, 1, PROCESS, ours_first)

    def _ours(self, followed):
        super()._ours(followed)
        policy = Trackpolicy(self.parts[-1])
        self.parts.append(policy)
        self.told = policy.path("told")
        os.mkfifo(self.told)
        tell = script(policy, "tell", f'echo "$OT_TRACK $OT_STATE" > {self.told}\n')
        policy.configure({"name": "p", "track": followed[0][0], "kind": "command", "run": tell,
                          "run_as_root": True})
        reader = os.open(self.told, os.O_RDWR)
        policy.start()
        policy.wait_doing("p", "has seen up")
        os.read(reader, 4096)
        os.close(reader)

    def _theirs(self, followed):
        self.keepalived = Keepalived(self.near, followed, notify='echo "$2 $3"')
        self.parts.append(self.keepalived)

    def times(self, rounds):
        """Per change: nanoseconds since the request to the event, our command and theirs; 0 for one
        that did not come."""
        command = [*self.near.command(), *self.build.command("peer_race"),
                   f"/run/netns/{self.far.name}", "1", "1", str(rounds), str(GAP_MS), PROCESS,
                   f"{OURS}={self.told}", f"{THEIRS}={self.keepalived.told}"]
        result = subprocess.run(command, env=self.build.environment(self.root), check=True,
                                stdout=subprocess.PIPE, text=True)
        lines = [line.split() for line in result.stdout.splitlines()]
        last = [{words[1]: int(words[4]) for words in lines[at:at + 4]}
                for at in range(0, len(lines), 4)]
        return [tuple(change[name] for name in (PROCESS, OURS, THEIRS)) for change in last]


def reactions(build):
    changes = []
    for ours_first in (True, False):
        race = Reactions(build, ours_first)
        try:
            race.times(3)  # warm
            changes += race.times(ROUNDS // 2)
        finally:
            race.close()
    whole = [change for change in changes if all(change)]
    ours = [(told - event) / 1e6 for event, told, _ in whole]
    theirs = [told / 1e6 for _, _, told in whole]
    from_request = [told / 1e6 for _, told, _ in whole]
    return [row(f"event -> a command of trackpolicy runs, median of {len(ours)} (p90"
                f" {percentile(ours, 0.9):.2f})", statistics.median(ours), "ms", 2),
            row("... lost", len(changes) - len(whole), "", 0),
            row("change of the link -> a command of trackpolicy runs (p90"
                f" {percentile(from_request, 0.9):.2f})", statistics.median(from_request), "ms"),
            row("change of the link -> keepalived's notify script runs (p90"
                f" {percentile(theirs, 0.9):.2f})", statistics.median(theirs), "ms"),
            row("load average", os.getloadavg()[0], "")]


STEPS = {"reactions": reactions}
