"""BFD tracks on FRR's bfdd by each of its sockets, with BIRD at the other end of every session.

The times are those of the sessions: an interval and how many of them may be missed. A peer that is
gone is found out by that clock alone, so what is measured is the daemon's share beyond it.
"""

import json
import os
import statistics
import time

import pytest

import storms
import bfd_engines
from bird import Bird, bfd_sessions
from frr import Frr
from netns import NetworkNamespace
from waiting import wait_until

INTERVAL, MULTIPLIER = 50, 3
DETECTION = INTERVAL * MULTIPLIER / 1000
COUNT = 50


class Site:
    """The service and its bfdd in one namespace, a BIRD in another, and links between the two:
    interface eN, 10.9.N.1 here and 10.9.N.2 there."""

    def __init__(self, service, engine, links, interval=INTERVAL):
        release = engine.release()
        self.service = service
        self.engine = engine
        self.links = range(links)
        self.interval = interval
        self._frr = self._bird = None
        self._far = NetworkNamespace()
        try:
            for number in self.links:
                self.plug(number)
            self._frr = Frr(service.net, release)
            self.start_bfdd()
            neighbours = [(f"10.9.{number}.1", f"e{number}") for number in self.links]
            self._bird = Bird(self._far, bfd_sessions(neighbours, interval, MULTIPLIER))
            self._bird.start()
        except BaseException:
            self.close()
            raise
        run = os.path.join(service.root, "run")
        os.makedirs(run, exist_ok=True)
        os.symlink(self._frr.directory, os.path.join(run, "frr"))

    def close(self):
        for part in (self._bird, self._frr, self._far):
            if part is not None:
                part.close()

    def start_bfdd(self):
        self._frr.start_bfdd(self.engine.socket)

    def marks(self):
        """Of the sessions that bfdd has for the service."""
        return self.engine.marks(self._frr)

    @property
    def frr(self):
        return self._frr

    @property
    def bird(self):
        return self._bird

    def plug(self, number):
        near, far = self.service.net, self._far
        near.ip(f"link add e{number} type veth peer name e{number} netns {far.name}")
        near.ip(f"addr add 10.9.{number}.1/24 dev e{number}")
        far.ip(f"addr add 10.9.{number}.2/24 dev e{number}")
        for net in (near, far):
            net.ip(f"link set e{number} up")

    def far_link(self, number, up):
        self._far.ip(f"link set e{number} {'up' if up else 'down'}")

    def far_links(self, changes):
        """`changes`: (number, up) pairs, all in one go."""
        self._far.ip_batch([f"link set e{number} {'up' if up else 'down'}"
                            for number, up in changes])

    def configure(self, number):
        self.service.ctl("set", f"t{number}", "bfd", f"10.9.{number}.2", "--interface",
                         f"e{number}", "--rate", str(self.interval), "--debounce",
                         str(MULTIPLIER))

    def wait(self, number, state):
        self.service.wait_state(f"t{number}", state)

    def states(self):
        """Track name to state, of all BFD tracks."""
        shown = json.loads(self.service.ctl("show", "--json"))
        return {track["name"]: track["state"] for track in shown}

    def wait_all(self, state):
        wanted = {f"t{number}": state for number in self.links}
        wait_until(lambda: self.states() == wanted, self.service.build.patience * 2,
                   f"{len(wanted)} tracks {state}")

    def agrees(self):
        """Whether the tracks are what bfdd says of their sessions, no more sessions and no less."""
        said = self._frr.states()
        wanted = {f"t{address.split('.')[2]}": "up" if up else "down"
                  for address, up in said.items()}
        return self.states() == wanted


@pytest.fixture(**bfd_engines.parametrized(bfd_engines.ALL))
def engine(request):
    return request.param


@pytest.fixture
def new_site(new_service, engine, monkeypatch):
    """Makes a site whose service is not started yet."""
    made = []

    def make(*arguments, **options):
        service = new_service()
        monkeypatch.setenv("OT_BFDD_SOCKET", os.path.join(service.root, "run/frr", engine.socket))
        made.append(Site(service, engine, *arguments, **options))
        return made[-1]

    yield make
    for site in made:
        site.close()


@pytest.fixture
def site(new_site):
    """One link; its session is up, and so is the track t0."""
    made = new_site(1)
    made.service.start()
    made.configure(0)
    made.wait(0, "up")
    return made


def within(site, seconds):
    """The time that a test may take for what takes `seconds`: instrumented programs get more."""
    return site.service.build.patience if site.service.build.sanitized else seconds


def test_a_session_that_comes_up_takes_its_track_up(site):
    assert site.frr.states() == {"10.9.0.2": True}
    [peer] = site.frr.peers()
    assert (peer["interface"], peer["transmit-interval"], peer["receive-interval"],
            peer["detect-multiplier"]) == ("e0", INTERVAL, INTERVAL, MULTIPLIER)


def test_a_track_without_an_answering_peer_is_down(new_site):
    site = new_site(1)
    site.bird.kill()
    site.service.start()
    site.configure(0)
    wait_until(lambda: site.frr.states() == {"10.9.0.2": False}, 10, "the session")
    assert site.service.state("t0") != "up"
    site.bird.start()
    site.wait(0, "up")


def test_a_killed_peer_is_noticed_within_the_detection_time(site):
    follower = site.service.follow(["t0"])
    taken = []
    for _ in range(5):
        began = time.monotonic()
        site.bird.kill()
        follower.expect(("t0", "down"))
        taken.append(time.monotonic() - began)
        site.bird.start()
        follower.expect(("t0", "up"))
    print("down after", [f"{1000 * seconds:.1f} ms" for seconds in taken])
    assert statistics.median(taken) <= within(site, DETECTION + 0.05)


def test_the_peers_link_going_down_is_noticed(site):
    follower = site.service.follow(["t0"])
    site.far_link(0, up=False)
    follower.expect(("t0", "down"))
    site.far_link(0, up=True)
    follower.expect(("t0", "up"))


def test_an_interface_that_is_removed_takes_the_track_down_until_it_is_back(site):
    follower = site.service.follow(["t0"])
    site.service.net.ip("link del e0")
    follower.expect(("t0", "down"))
    site.plug(0)
    follower.expect(("t0", "up"))


def test_a_track_may_be_made_before_its_interface(new_site):
    site = new_site(1)
    site.service.net.ip("link del e0")
    site.service.start()
    site.configure(0)
    if site.engine.makes_dormant:
        wait_until(lambda: site.frr.states() == {"10.9.0.2": False}, 10, "the session")
    assert site.service.state("t0") != "up"
    site.plug(0)
    site.wait(0, "up")


def test_a_deleted_track_leaves_no_session(site):
    site.service.ctl("delete", "t0")
    wait_until(lambda: site.frr.peers() == [], 10, "no session")


def test_another_rate_takes_effect(site):
    site.service.ctl("set", "t0", "bfd", "10.9.0.2", "--interface", "e0", "--rate", "100",
                     "--debounce", "5")
    wait_until(lambda: [(peer["transmit-interval"], peer["detect-multiplier"])
                        for peer in site.frr.peers()] == [(100, 5)], 10, "the other rate")
    site.wait(0, "up")


def test_a_session_of_frrs_own_configuration_is_followed(new_site):
    """As of a routing protocol: bfdd keeps one session for a neighbour, whoever asks for it."""
    site = new_site(1)
    configure = ("configure terminal", "bfd")
    site.frr.vtysh(*configure, "peer 10.9.0.2 interface e0", "receive-interval 50",
                   "transmit-interval 50")
    wait_until(lambda: site.frr.states() == {"10.9.0.2": True}, 10, "FRR's session")
    site.service.start()
    site.configure(0)
    site.wait(0, "up")
    follower = site.service.follow(["t0"])
    site.far_link(0, up=False)
    follower.expect(("t0", "down"))
    site.far_link(0, up=True)
    follower.expect(("t0", "up"))
    site.frr.vtysh(*configure, "no peer 10.9.0.2 interface e0")
    follower.expect(("t0", "down"))
    wait_until(site.marks, 40, "our own session")
    site.wait(0, "up")


def test_an_engine_that_is_killed_takes_the_tracks_down_until_it_is_back(site):
    follower = site.service.follow(["t0"])
    began = time.monotonic()
    site.frr.kill("bfdd")
    follower.expect(("t0", "down"))
    print(f"down {1000 * (time.monotonic() - began):.1f} ms after the kill")
    site.start_bfdd()
    follower.expect(("t0", "up"))
    assert len(site.frr.peers()) == 1


def test_tracks_made_without_an_engine_begin_with_it(new_site):
    site = new_site(1)
    site.frr.kill("bfdd")
    site.service.start()
    site.configure(0)
    site.start_bfdd()
    site.wait(0, "up")


def test_a_service_that_is_killed_finds_its_sessions_again(new_site):
    site = new_site(COUNT, interval=100)
    site.service.start()
    for number in site.links:
        site.configure(number)
    site.wait_all("up")
    marks = site.marks()
    assert len(marks) == COUNT

    site.service.crash()
    site.service.start()
    began = time.monotonic()
    site.wait_all("up")
    print(f"{COUNT} tracks up {time.monotonic() - began:.2f} s after the start")
    assert len(site.frr.peers()) == COUNT
    assert len(site.marks()) == COUNT
    # A creation publishes down; then each session comes up once.
    messages = [line for line in site.service.daemon.output().splitlines() if "TRACK_INFO" in line]
    for number in site.links:
        states = [line.split()[-1] for line in messages if f" t{number} " in line]
        assert states == ["Track_Down", "Track_Up"], f"t{number}: {states}"


def test_a_bfdd_that_is_stuck_takes_the_tracks_down_until_it_wakes(site):
    follower = site.service.follow(["t0"])
    began = time.monotonic()
    site.frr.freeze("bfdd")
    follower.expect(("t0", "down"))
    taken = time.monotonic() - began
    print(f"down {taken:.2f} s after bfdd was stopped")
    assert taken < within(site, 5)
    site.frr.freeze("bfdd", False)
    follower.expect(("t0", "up"))
    assert len(site.frr.peers()) == 1


def test_a_clean_stop_leaves_no_session(site):
    site.service.stop()
    wait_until(lambda: site.frr.peers() == [], 10, "no session")


def test_tracks_agree_with_bfdd_after_a_storm(new_site, build):
    """OT_SECONDS makes the storm longer; the seed is printed."""
    seconds, chance = storms.bfd_storm(build)
    site = new_site(COUNT, interval=100)
    site.service.start()
    for number in site.links:
        site.configure(number)
    site.wait_all("up")
    up = dict.fromkeys(site.links, True)
    end = time.monotonic() + seconds
    changes = 0
    while time.monotonic() < end:
        flipped = chance.sample(list(site.links), chance.randrange(1, 10))
        up.update((number, not up[number]) for number in flipped)
        site.far_links([(number, up[number]) for number in flipped])
        changes += len(flipped)
        time.sleep(chance.uniform(0.05, 0.6))
    print(f"{changes} changes")
    wait_until(lambda: site.frr.states() == {f"10.9.{number}.2": up[number]
                                             for number in site.links},
               site.service.build.patience, "bfdd knows all links")
    wait_until(site.agrees, site.service.build.patience, "tracks agree with bfdd")
