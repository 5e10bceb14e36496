"""A change that is refused or interrupted leaves the old configuration, whole.

A track changes its kind when it is deleted and made anew. Both are one request, so that neither a
refusal nor a kill -9 of trackctl or of the service finds the track half changed or gone. OT_ROUNDS
sets how often that is tried, OT_SEED repeats a run."""

import json
import os
import subprocess
import time

import pytest

from seeds import seeded_chance
from waiting import wait_until

ROUNDS = int(os.environ.get("OT_ROUNDS", "12"))

# What "set m" is given, round by round.
WANTED = (
    ("interface", "wan0"),
    ("interface", "lan0", "--delay-up", "2"),
    ("route", "10.9.0.0/16", "--delay-down", "3"),
    ("route", "10.9.0.0/16", "--vrf", "red"),
    ("and", "one", "not", "two"),
    ("or", "two", "one", "three", "--delay-up", "1", "--delay-down", "2"),
    ("weight", "--up", "30", "--down", "10", "one=10", "two=20"),
    ("percentage", "--up", "100", "--down", "50", "one", "two", "three"),
    ("probe", "3"),
)


@pytest.fixture
def running(service):
    service.net.link("wan0")
    service.net.link("lan0")
    service.ctl("set", "one", "interface", "wan0")
    service.ctl("set", "m", *WANTED[0])
    service.wait_state("m", "up")
    return service


def configured(service, name="m"):
    """What the track is, as programs read it; None when there is none."""
    shown = service.run("trackctl", "show", name, "--json")
    if shown.returncode != 0:
        return None
    track = json.loads(shown.stdout)
    follows = track["object"] or {}
    return json.dumps([track["type"], track["delay_up"], track["delay_down"], track["limits"],
                       [follows.get(part) for part in ("interface", "prefix", "vrf", "operation")],
                       [[member.get(part) for part in ("name", "not", "weight")]
                        for member in track["members"]]])


REFUSED = (
    (("and", "m"), "0xa64c8a00"),
    (("or", "one", "not", "m"), "0xa64c8a00"),
    (("weight", "--up", "2", "--down", "1", "one=1", "m=1"), "0xa64c8a00"),
    (("probe", "1"), "0xa64c8800"),
)


@pytest.mark.parametrize("words, code", REFUSED)
def test_a_refused_change_of_kind_changes_nothing(running, words, code):
    running.ctl("set", "taken", "probe", "1")
    before = configured(running)
    events = running.follow()
    refused = running.run("trackctl", "set", "m", *words)
    assert refused.returncode == 1
    assert refused.stderr.startswith('trackctl: setting track "m" was refused:\n  /cfg/gl/')
    assert code in refused.stderr
    assert "gone" not in refused.stderr
    assert configured(running) == before
    assert running.state("m") == "up"
    events.expect_nothing()
    running.crash()
    running.start()
    assert configured(running) == before
    assert running.state("m") == "up"


def test_a_killed_change_leaves_the_old_or_the_new_track(running):
    rng = seeded_chance()
    known = []
    longest = 0.0
    for words in WANTED:
        started = time.monotonic()
        running.ctl("set", "m", *words)
        longest = max(longest, time.monotonic() - started)
        known.append(configured(running))
    assert len(set(known)) == len(WANTED)
    possible = [len(WANTED) - 1]
    changed = 0
    for _ in range(ROUNDS):
        wanted = rng.randrange(len(WANTED))
        change = subprocess.Popen(
            running.build.command("trackctl") + ["set", "m", *WANTED[wanted]],
            env=running.build.environment(running.root), stderr=subprocess.DEVNULL)
        time.sleep(rng.uniform(0, longest))  # anywhere in what such a change takes here
        crash = rng.randrange(2) == 0
        if crash:
            running.crash()
            change.wait()
            running.start()
        else:
            change.kill()
            change.wait()
        found = known.index(wait_until(lambda: configured(running), running.build.patience, "a track"))
        assert found in [*possible, wanted], ([WANTED[each] for each in possible], WANTED[wanted])
        changed += found not in possible
        # What a client has asked for before its end may be made after it.
        possible = [found] if crash or found == wanted else [found, wanted]
    print(f"{changed} of {ROUNDS} changes were made")
    names = {track["name"] for track in json.loads(running.ctl("show", "--json"))}
    assert names == {"one", "m"}
