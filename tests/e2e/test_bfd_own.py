"""BFD tracks on the service's own engine, with BIRD or FRR at the other end of every session."""

import os
import time

import pytest

import storms
from bfd_site import INTERVAL, MULTIPLIER, PEERS, Site
from bird import Bird, bfd_sessions
from frr import Frr, has_control_socket
from waiting import wait_until

FRR_PEERS = [peer for peer in PEERS if peer.startswith("frr")]


@pytest.fixture
def new_site(new_service, closing):
    """Makes sites whose service is not started yet."""
    return lambda *arguments, **options: closing(Site(new_service(), *arguments, **options))


@pytest.fixture(params=PEERS)
def site(new_site, request):
    """One link; its session is up, and so is the track t0."""
    return new_site(peer=request.param).up()


@pytest.fixture
def bird_site(new_site):
    """The same, with BIRD for a neighbour."""
    return new_site().up()


def test_a_session_that_comes_up_takes_its_track_up(site):
    assert site.engine() == (True, "own engine (no bfdd of FRR runs here)")
    site.wait_peer("Up")


def test_an_interface_that_is_renamed_takes_the_track_down_until_it_has_its_name_again(site):
    follower = site.service.follow(["t0"])
    for name, other, state in (("e0", "x0", "down"), ("x0", "e0", "up")):
        site.service.net.ip_batch([f"link set {name} down", f"link set {name} name {other}",
                                   f"link set {other} up"])
        follower.expect(("t0", state))


def test_an_address_of_ours_that_goes_takes_the_track_down_until_it_is_back(site):
    follower = site.service.follow(["t0"])
    site.service.net.ip("addr del 10.9.0.1/24 dev e0")
    follower.expect(("t0", "down"))
    site.service.net.ip("addr add 10.9.0.1/24 dev e0")
    follower.expect(("t0", "up"))


def test_one_address_over_two_interfaces_that_are_not_there_is_two_sessions(new_site):
    site = new_site()
    site.service.net.ip("link del e0")
    site.service.start()
    site.configure(0)
    site.service.ctl("set", "other", "bfd", "10.9.0.2", "--interface", "e9")
    site.plug(0)
    site.wait(0, "up")
    assert site.service.state("other") != "up"
    site.service.ctl("delete", "other")
    assert site.service.state("t0") == "up"


def test_a_deleted_track_is_told_to_the_neighbour(site):
    began = time.monotonic()
    site.service.ctl("delete", "t0")
    site.wait_peer("Down")
    print(f"the neighbour's session down {1000 * (time.monotonic() - began):.0f} ms after the command")


def test_a_clean_stop_is_told_to_the_neighbour(site):
    site.service.stop()
    site.wait_peer("Down")
    site.service.start()
    site.wait(0, "up")


def test_another_rate_takes_effect(site):
    site.service.ctl("set", "t0", "bfd", "10.9.0.2", "--interface", "e0", "--rate", "200",
                     "--debounce", "5")
    site.wait(0, "up")
    site.wait_peer("Up")


def session_of(service, track):
    """What the JSON of a BFD track tells of its session."""
    [shown] = [shown for shown in service.tracks() if shown["name"] == track]
    return shown["object"]["session"]


@pytest.mark.parametrize("peer", FRR_PEERS)
def test_a_neighbour_that_is_administratively_down_takes_the_track_down(new_site, peer):
    site = new_site(peer=peer).up()
    follower = site.service.follow(["t0"])
    site.peer.shut(0, True)
    follower.expect(("t0", "down"))
    assert session_of(site.service, "t0")["diagnostic"] == "neighbor signaled session down"
    site.peer.shut(0, False)
    follower.expect(("t0", "up"))


@pytest.mark.parametrize("peer", PEERS)
def test_two_hundred_sessions(new_site, build, peer):
    """Fewer with checks, where it is the two hundred links that take long."""
    site = new_site(40 if build.sanitized else 200, interval=300, peer=peer).up()
    wait_for_agreement(site, dict.fromkeys(site.links, True), 20)


@pytest.mark.parametrize("peer", FRR_PEERS)
def test_a_neighbour_that_changes_its_intervals_is_followed(new_site, peer):
    """By a poll sequence: the session stays up."""
    site = new_site(peer=peer, interval=300).up()
    follower = site.service.follow(["t0"])
    for interval in (500, 100):
        site.peer.set_interval(interval)
        wanted = max(interval, site.interval)
        wait_until(lambda wanted=wanted: session_of(site.service, "t0")["detection_ms"] ==
                   wanted * MULTIPLIER, 10, f"the detection time for {interval} ms")
    follower.expect_nothing()
    assert session_of(site.service, "t0")["ups"] == 1


def test_no_neighbour_notices_a_crash(new_site):
    """A kill -9 and a restart within the detection time: BIRD's sessions stay as they are."""
    site = new_site(50, interval=600).up()
    for number in site.links:
        site.wait_peer("Up", number)
    before = site.peer.bfd()
    for _ in range(3):
        site.service.crash()
        site.service.start()
        site.wait_all("up")
    now = site.peer.bfd()
    assert {address for address in before if not now[address].is_still(before[address])} == set()


def is_up(near_bird):
    """Whether the session of a BIRD beside the service is up."""
    session = near_bird.bfd().get("10.9.0.2")
    return session is not None and session.state == "Up"


def test_another_speaker_gets_the_port_and_leaves_it(bird_site):
    site = bird_site
    near_bird = Bird(site.service.net, bfd_sessions([("10.9.0.2", "e0")], INTERVAL, MULTIPLIER))
    follower = site.service.follow(["t0"])
    try:
        near_bird.start()
        follower.expect(("t0", "down"))
        site.wait_engine(False, "has UDP port 3784")
        wait_until(lambda: "OT-SERVICES-5-BFD: BFD sessions are not run by own engine: user " in
                   site.service.daemon.output(), 10, "a line of the log")
        # Between the two routing daemons nothing disturbs.
        wait_until(lambda: is_up(near_bird), 10, "the other's session")
        near_bird.stop()
        follower.expect(("t0", "up"))
        site.wait_engine(True, "own engine")
    finally:
        near_bird.close()


def test_a_speaker_that_was_there_first_keeps_the_port(new_site):
    site = new_site()
    near_bird = Bird(site.service.net, bfd_sessions([("10.9.0.2", "e0")], INTERVAL, MULTIPLIER))
    try:
        near_bird.start()
        wait_until(lambda: is_up(near_bird), 10, "the other's session")
        site.service.start()
        site.configure(0)
        site.wait_engine(False, "has UDP port 3784")
        assert is_up(near_bird)
        assert site.service.state("t0") != "up"
        near_bird.stop()
        site.wait(0, "up")
    finally:
        near_bird.close()


@pytest.fixture
def frr(bird_site):
    """FRR's zebra beside the service, at a place where the service looks for bfdd once the link
    to it is made; bfdd is not started."""
    if not has_control_socket():
        pytest.skip("this FRR's bfdd has no control socket (10.2 and later)")
    made = Frr(bird_site.service.net)
    yield made
    made.close()


def test_bfdd_takes_over_when_it_starts_and_gives_back_when_it_stays_away(bird_site, frr):
    site = bird_site
    os.symlink(frr.directory, os.path.join(site.service.root, "run", "frr"))
    assert site.engine() == (True, "own engine (no bfdd of FRR runs here)")
    frr.start_bfdd()
    site.wait_engine(True, "FRR's bfdd")
    wait_until(lambda: frr.states() == {"10.9.0.2": True}, 20, "bfdd's session")
    site.wait(0, "up")
    follower = site.service.follow(["t0"])
    frr.stop("bfdd")
    follower.expect(("t0", "down"))
    site.wait_engine(True, "own engine")
    follower.expect(("t0", "up"))


def test_a_bfdd_that_restarts_keeps_its_sessions(bird_site, frr):
    """The service does not take the port in between."""
    site = bird_site
    os.symlink(frr.directory, os.path.join(site.service.root, "run", "frr"))
    frr.start_bfdd()
    site.wait_engine(True, "FRR's bfdd")
    site.wait(0, "up")
    follower = site.service.follow(["t0"])
    frr.kill("bfdd")
    follower.expect(("t0", "down"))
    site.wait_engine(False, "FRR's bfdd")
    frr.start_bfdd()
    follower.expect(("t0", "up"))
    site.wait_engine(True, "FRR's bfdd")
    wait_until(lambda: frr.states() == {"10.9.0.2": True}, 10, "bfdd's session")


def disagreements(site, up):
    """What either end says of a session, where that is not what its link says: number to the track's
    state and the neighbour's session."""
    tracks, there = site.states(), site.peer.bfd()
    found = {}
    for number in site.links:
        track, session = tracks.get(f"t{number}"), there.get(f"10.9.{number}.1")
        ups = (track == "up", session is not None and session.state == "Up")
        if ups != (up[number], up[number]) or track not in ("up", "down"):
            found[number] = (track, session)
    return found


def wait_for_agreement(site, up, seconds):
    """A failure prints what each end says, and what the service knows of each session."""
    def views():
        lines = [f"t{number} with its link {'up' if up[number] else 'down'}: {track}, there {session}; "
                 f"{site.service.ctl('show', f't{number}', '--json').strip()}"
                 for number, (track, session) in disagreements(site, up).items()]
        return "\n".join(["agreement", *lines])
    wait_until(lambda: not disagreements(site, up), seconds, views)


@pytest.mark.parametrize("peer", PEERS)
def test_both_ends_agree_after_a_storm(new_site, build, peer):
    """Links that fail on either side, a neighbour that dies, a service that crashes, at random.
    OT_SECONDS makes it longer; the seed is printed."""
    seconds, chance = storms.bfd_storm(build)
    site = new_site(20, interval=100, peer=peer).up()
    up = dict.fromkeys(site.links, True)
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for number in chance.sample(list(site.links), chance.randrange(1, 6)):
            up[number] = not up[number]
            net = chance.choice([site.far, site.service.net]) if not up[number] else None
            for each in [net] if net else [site.far, site.service.net]:
                each.ip(f"link set e{number} {'up' if up[number] else 'down'}")
                if up[number] and each is site.service.net:
                    each.ip(f"addr replace 10.9.{number}.1/24 dev e{number}")
        event = chance.random()
        if event < 0.1:
            site.peer.kill()
            time.sleep(chance.uniform(0, 0.5))
            site.peer.start()
        elif event < 0.2:
            site.service.crash()
            site.service.start()
        time.sleep(chance.uniform(0.02, 0.5))
        if chance.random() < 0.2:
            wait_for_agreement(site, up, build.patience * 2)
    wait_for_agreement(site, up, build.patience * 2)
