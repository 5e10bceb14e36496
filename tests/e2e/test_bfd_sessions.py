"""BFD tracks, whoever runs their sessions and whoever is at the other end.

The times are those of the sessions: an interval and how many of them may be missed. A peer that is
gone is found out by that clock alone, so what is measured is the daemon's share beyond it.
"""

import statistics
import time

import pytest

import bfd_site
from lateness import Lateness


@pytest.fixture(params=list(bfd_site.EVERY))
def fresh_site(new_service, closing, monkeypatch, request):
    """One link; the service is not started yet."""
    return closing(bfd_site.EVERY[request.param](new_service(), monkeypatch))


@pytest.fixture
def site(fresh_site):
    """One link; its session is up, and so is the track t0."""
    return fresh_site.up()


def test_a_killed_peer_is_noticed_within_the_detection_time(site):
    follower = site.service.follow(["t0"])
    taken = []
    for _ in range(5):
        with Lateness() as machine:
            began = time.monotonic()
            site.peer.kill()
            follower.expect(("t0", "down"))
            seconds = time.monotonic() - began
        taken.append(seconds - machine.chain(3))  # the service, trackctl and this one
        site.peer.start()
        follower.expect(("t0", "up"))
    print("down after", [f"{1000 * seconds:.1f} ms" for seconds in taken])
    assert statistics.median(taken) <= site.within(bfd_site.DETECTION + 0.05)


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


def test_a_track_may_be_made_before_its_interface(fresh_site):
    site = fresh_site
    site.service.net.ip("link del e0")
    site.service.start()
    site.configure(0)
    site.wait_asleep(0)
    assert site.service.state("t0") != "up"
    site.plug(0)
    site.wait(0, "up")
