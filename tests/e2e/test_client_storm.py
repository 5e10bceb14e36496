"""Followers of the C library are right whatever happens to the service, to the tracks and to
themselves: it is killed, stopped and held up, others change everything meanwhile, and a follower
that was too slow is cut off. Nothing is left behind by what was closed.

OT_ROUNDS sets the number of rounds, OT_SEED repeats a run: the number that it has printed."""

import json
import os
import signal
import subprocess
import sys

import pytest

from build_tree import SOURCE
from seeds import seeded_chance
from waiting import wait_until

FIRST = [f"n{number}" for number in range(5)]  # the names that one view asks for
ROUNDS = int(os.environ.get("OT_ROUNDS", 2))


class Client:
    """storm_client.py, which does what it is told."""

    def __init__(self, service):
        environment = {**service.build.environment(service.root), "PYTHONPATH": str(SOURCE / "python"),
                       "OBJECT_TRACKING_LIBRARY":
                           str(service.build.path / "lib/libobject-tracking.so.1")}
        self.process = subprocess.Popen(
            [sys.executable, "-B", SOURCE / "tests/e2e/storm_client.py"], env=environment, text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def do(self, *command):
        self.process.stdin.write(json.dumps(command) + "\n")
        self.process.stdin.flush()
        return json.loads(self.process.stdout.readline())

    def close(self):
        self.process.stdin.close()
        self.process.stdout.read()
        assert self.process.wait() == 0


@pytest.fixture
def chance():
    return seeded_chance()


@pytest.fixture
def client(service, closing):
    if service.build.sanitized:
        pytest.skip("a sanitizer's runtime wants to be loaded first")
    service.net.link("flip")
    return closing(Client(service))


def kill(service, _chance, _client):
    service.crash()
    service.start()


def stop(service, chance, _client):
    service.stop()
    if chance.random() < 0.5:
        service.start()


def hold(service, chance, _client):
    """So that who asks meanwhile waits."""
    os.kill(service.daemon.pid, signal.SIGSTOP)
    try:
        flip(service, chance, None)
    finally:
        os.kill(service.daemon.pid, signal.SIGCONT)


def flip(service, chance, _client):
    service.net.ip_batch([f"link set flip {way}" for _ in range(chance.randrange(1, 20))
                          for way in ("down", "up")][chance.randrange(2):])


def overflow(service, chance, client):
    """More events than the service keeps for a reader."""
    client.do("pause", True)
    for _ in range(chance.choice((1, 60))):
        service.net.ip_batch(["link set flip down", "link set flip up"] * 60)
    client.do("pause", False)


def settled(service, client):
    """What is there when all views are live and what the library lists, and that what trackctl says;
    lists of tracks may still be on their way."""
    look = client.do("look")
    if "error" in look:
        return None
    assert look["wrong"] == [[], [], []], look
    listed = look["list"]
    first = {name: state for name, state in listed.items() if name in FIRST}
    if not all(look["live"]) or look["views"] != [listed, first, listed]:
        return None
    told = {track["name"]: track["state"] for track in service.tracks()}
    # trackctl calls a track down whose interface does not exist.
    same = told.keys() == listed.keys() and all(
        state in ("unknown", told[name]) for name, state in listed.items())
    return look if same else None


def test_every_view_is_right_after_a_storm(service, client, chance):
    for _ in range(ROUNDS):
        client.do("start", chance.randrange(1 << 30), 3)
        for happens in chance.choices((kill, stop, hold, flip, overflow), (3, 1, 3, 3, 2), k=4):
            if not service.daemon.running:
                service.start()
            happens(service, chance, client)
        if not service.daemon.running:
            service.start()
        before = client.do("done")
        wait_until(lambda: client.do("done") > before + 20, 30, "changes go on")
        answers = wait_until(lambda: client.do("join"), 60, "nobody changes anything any more")
        assert answers["done"] > 0 and answers["InvalidError"] == 0, answers
        look = wait_until(lambda: settled(service, client), 15, lambda: client.do("look"))
        print(answers, look["syncs"], len(look["list"]))


def test_nothing_is_left_of_what_was_closed(client):
    before, after = client.do("churn", 150 * ROUNDS)
    assert after[0] == before[0], "descriptors"
    assert after[1] - before[1] < 1024, "KiB"
