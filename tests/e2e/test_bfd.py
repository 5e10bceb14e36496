"""BFD tracks on FRR's bfdd by each of its sockets, with BIRD at the other end of every session: what
bfdd makes of them, and what becomes of them when it goes."""

import time

import pytest

import bfd_engines
import storms
from bfd_site import INTERVAL, MULTIPLIER, BfddSite
from waiting import wait_until

COUNT = 50


@pytest.fixture(**bfd_engines.parametrized(bfd_engines.ALL))
def engine(request):
    return request.param


@pytest.fixture
def new_site(new_service, engine, closing, monkeypatch):
    """Makes sites whose service is not started yet."""
    def make(links=1, **options):
        return closing(BfddSite(new_service(), engine, monkeypatch, links, **options))

    return make


@pytest.fixture
def site(new_site):
    """One link; its session is up, and so is the track t0."""
    return new_site().up()


def agrees(site):
    """Whether the tracks are what bfdd says of their sessions, no more sessions and no less."""
    return site.states() == {f"t{address.split('.')[2]}": "up" if up else "down"
                             for address, up in site.frr.states().items()}


def test_a_session_that_comes_up_takes_its_track_up(site):
    wait_until(lambda: site.frr.states() == {"10.9.0.2": True}, 10, "the session")
    [peer] = site.frr.peers()
    assert (peer["interface"], peer["transmit-interval"], peer["receive-interval"],
            peer["detect-multiplier"]) == ("e0", INTERVAL, INTERVAL, MULTIPLIER)


def test_a_track_without_an_answering_peer_is_down(new_site):
    site = new_site()
    site.peer.kill()
    site.service.start()
    site.configure(0)
    wait_until(lambda: site.frr.states() == {"10.9.0.2": False}, 10, "the session")
    assert site.service.state("t0") != "up"
    site.peer.start()
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
    site = new_site()
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
    site = new_site()
    site.frr.kill("bfdd")
    site.service.start()
    site.configure(0)
    site.start_bfdd()
    site.wait(0, "up")


def test_a_service_that_is_killed_finds_its_sessions_again(new_site):
    site = new_site(COUNT, interval=300).up()  # outlasts a machine that stands still for a moment
    wait_until(lambda: len(site.marks()) == COUNT, 10, "bfdd's configuration")

    site.service.crash()
    site.service.start()
    began = time.monotonic()
    site.wait_all("up")
    print(f"{COUNT} tracks up {time.monotonic() - began:.2f} s after the start")
    assert len(site.frr.peers()) == COUNT
    assert len(site.marks()) == COUNT
    # A creation publishes down; then each session comes up once. The log is written last.
    wanted = {f"t{number}": ["Track_Down", "Track_Up"] for number in site.links}

    def told():
        messages = [line for line in site.service.daemon.output().splitlines()
                    if "TRACK_INFO" in line]
        return {name: [line.split()[-1] for line in messages if f" {name} " in line]
                for name in wanted}
    wait_until(lambda: sum(map(len, told().values())) >= 2 * COUNT, 10, told)
    assert told() == wanted


def test_a_bfdd_that_is_stuck_takes_the_tracks_down_until_it_wakes(site):
    follower = site.service.follow(["t0"])
    began = time.monotonic()
    site.frr.freeze("bfdd")
    follower.expect(("t0", "down"))
    taken = time.monotonic() - began
    print(f"down {taken:.2f} s after bfdd was stopped")
    assert taken < site.within(5)
    site.frr.freeze("bfdd", False)
    follower.expect(("t0", "up"))
    assert len(site.frr.peers()) == 1


def test_a_clean_stop_leaves_no_session(site):
    site.service.stop()
    wait_until(lambda: site.frr.peers() == [], 10, "no session")


def test_tracks_agree_with_bfdd_after_a_storm(new_site, build):
    """OT_SECONDS makes the storm longer; the seed is printed."""
    seconds, chance = storms.bfd_storm(build)
    site = new_site(COUNT, interval=100).up()
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
    wait_until(lambda: agrees(site), site.service.build.patience, "tracks agree with bfdd")
