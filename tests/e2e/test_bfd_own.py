"""BFD tracks on the service's own engine, with BIRD or FRR at the other end of every session."""

import json
import os
import statistics
import time

import pytest

import storms
from bird import BfdSession, Bird, bfd_sessions
from frr import Frr, has_control_socket
from frr_release import MACHINE, debian13
from netns import NetworkNamespace
from waiting import wait_until

INTERVAL, MULTIPLIER = 50, 3
DETECTION = INTERVAL * MULTIPLIER / 1000


class FrrPeer:
    """FRR at the other end; as a Bird."""

    def __init__(self, net, neighbours, interval, release=MACHINE):
        self._frr = Frr(net, release)
        self._commands = ["configure terminal", "bfd"]
        for address, interface in neighbours:
            local = address[:-1] + "2"
            self._commands += [f"peer {address} interface {interface} local-address {local}",
                               f"receive-interval {interval}", f"transmit-interval {interval}",
                               f"detect-multiplier {MULTIPLIER}", "exit"]

    def start(self):
        self._frr.start_bfdd("bfdd.vty")
        self._frr.vtysh(*self._commands)

    def stop(self):
        self._frr.stop("bfdd")

    def kill(self):
        self._frr.kill("bfdd")

    def bfd(self):
        return {peer["peer"]: BfdSession(peer["status"].capitalize(), "")
                for peer in self._frr.peers()}

    def shut(self, number, shut):
        """Administratively down, or not."""
        self._frr.vtysh(*self._commands[:2], self._commands[2 + 5 * number],
                        "shutdown" if shut else "no shutdown")

    def set_interval(self, interval):
        self._frr.vtysh(*[command.replace(f"-interval {INTERVAL}", f"-interval {interval}")
                          for command in self._commands])

    def close(self):
        self._frr.close()


def release_of(peer):
    """Of FRR; its tests are skipped where there is none."""
    if peer == "frr":
        return MACHINE
    release, reason = debian13()
    if release is None:
        pytest.skip(reason)
    return release


class Site:
    """The service in one namespace, its neighbour in another, and links between the two: interface
    eN, 10.9.N.1 here and 10.9.N.2 there."""

    def __init__(self, service, links=1, interval=INTERVAL, peer="bird"):
        self.service = service
        self.links = range(links)
        self.interval = interval
        self.peer = None
        self.far = NetworkNamespace()
        try:
            for number in self.links:
                self.plug(number)
            neighbours = [(f"10.9.{number}.1", f"e{number}") for number in self.links]
            if peer == "bird":
                self.peer = Bird(self.far, bfd_sessions(neighbours, interval, MULTIPLIER))
            else:
                self.peer = FrrPeer(self.far, neighbours, interval, release_of(peer))
            self.peer.start()
        except BaseException:
            self.close()
            raise

    def close(self):
        for part in (self.peer, self.far):
            if part is not None:
                part.close()

    def plug(self, number):
        near, far = self.service.net, self.far
        near.ip(f"link add e{number} type veth peer name e{number} netns {far.name}")
        near.ip(f"addr add 10.9.{number}.1/24 dev e{number}")
        far.ip(f"addr add 10.9.{number}.2/24 dev e{number}")
        for net in (near, far):
            net.ip(f"link set e{number} up")

    def configure(self, number):
        self.service.ctl("set", f"t{number}", "bfd", f"10.9.{number}.2", "--interface",
                         f"e{number}", "--rate", str(self.interval), "--debounce",
                         str(MULTIPLIER))

    def up(self):
        """All tracks are made and up."""
        self.service.start()
        for number in self.links:
            self.configure(number)
        self.wait_all("up")
        return self

    def wait_all(self, state):
        wanted = {f"t{number}": state for number in self.links}
        wait_until(lambda: {track["name"]: track["state"] for track in self.service.tracks()} ==
                   wanted, self.service.build.patience * 2, f"all tracks {state}")

    def engine(self):
        """What `trackctl engine` tells of BFD: connected, and the words."""
        shown = json.loads(self.service.ctl("engine", "--json"))
        [row] = [row for row in shown if row["service"] == "bfd"]
        return row["connected"], row["detail"]

    def wait_engine(self, connected, words, patience=20):
        wait_until(lambda: self.engine()[0] == connected and words in self.engine()[1], patience,
                   f"engine {words}")

    def state_there(self, number):
        """Of the session, as the neighbour sees it; None when it has none."""
        session = self.peer.bfd().get(f"10.9.{number}.1")
        return session and session.state

    def wait_peer(self, state, number=0):
        wait_until(lambda: self.state_there(number) == state,
                   self.service.build.patience, f"the neighbour's session {state}")


@pytest.fixture
def new_site(new_service):
    """Makes sites whose service is not started yet."""
    made = []

    def make(*arguments, **options):
        made.append(Site(new_service(), *arguments, **options))
        return made[-1]

    yield make
    for site in made:
        site.close()


PEERS = ["bird", "frr", "frr-trixie"]


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


def test_a_killed_peer_is_noticed_within_the_detection_time(site):
    follower = site.service.follow(["t0"])
    taken = []
    for _ in range(5):
        began = time.monotonic()
        site.peer.kill()
        follower.expect(("t0", "down"))
        taken.append(time.monotonic() - began)
        site.peer.start()
        follower.expect(("t0", "up"))
    print("down after", [f"{1000 * seconds:.1f} ms" for seconds in taken])
    allowed = site.service.build.patience if site.service.build.sanitized else DETECTION + 0.05
    assert statistics.median(taken) <= allowed


def test_the_peers_link_going_down_is_noticed_at_once(site):
    follower = site.service.follow(["t0"])
    site.far.ip("link set e0 down")
    follower.expect(("t0", "down"))
    site.far.ip("link set e0 up")
    follower.expect(("t0", "up"))


def test_an_interface_that_is_removed_takes_the_track_down_until_it_is_back(site):
    follower = site.service.follow(["t0"])
    site.service.net.ip("link del e0")
    follower.expect(("t0", "down"))
    site.plug(0)
    follower.expect(("t0", "up"))


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


def test_a_track_may_be_made_before_its_interface(new_site):
    site = new_site()
    site.service.net.ip("link del e0")
    site.service.start()
    site.configure(0)
    assert site.service.state("t0") != "up"
    site.plug(0)
    site.service.wait_state("t0", "up")


def test_one_address_over_two_interfaces_that_are_not_there_is_two_sessions(new_site):
    site = new_site()
    site.service.net.ip("link del e0")
    site.service.start()
    site.configure(0)
    site.service.ctl("set", "other", "bfd", "10.9.0.2", "--interface", "e9")
    site.plug(0)
    site.service.wait_state("t0", "up")
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
    site.service.wait_state("t0", "up")


def test_another_rate_takes_effect(site):
    site.service.ctl("set", "t0", "bfd", "10.9.0.2", "--interface", "e0", "--rate", "200",
                     "--debounce", "5")
    site.service.wait_state("t0", "up")
    site.wait_peer("Up")


def session_of(service, track):
    """What the JSON of a BFD track tells of its session."""
    [shown] = [shown for shown in service.tracks() if shown["name"] == track]
    return shown["object"]["session"]


@pytest.mark.parametrize("peer", PEERS[1:])
def test_a_neighbour_that_is_administratively_down_takes_the_track_down(new_site, peer):
    site = new_site(peer=peer).up()
    follower = site.service.follow(["t0"])
    site.peer.shut(0, True)
    follower.expect(("t0", "down"))
    assert session_of(site.service, "t0")["diagnostic"] == "neighbor signaled session down"
    site.peer.shut(0, False)
    follower.expect(("t0", "up"))


@pytest.mark.parametrize("peer", PEERS)
def test_two_hundred_sessions(new_site, peer):
    site = new_site(200, interval=300, peer=peer).up()
    wait_until(lambda: agree(site, dict.fromkeys(site.links, True)), 20, "both ends up")


@pytest.mark.parametrize("peer", PEERS[1:])
def test_a_neighbour_that_changes_its_intervals_is_followed(new_site, peer):
    """By a poll sequence: the session stays up."""
    site = new_site(peer=peer).up()
    follower = site.service.follow(["t0"])
    for interval in (200, 20):
        site.peer.set_interval(interval)
        wanted = max(interval, INTERVAL)
        wait_until(lambda wanted=wanted: session_of(site.service, "t0")["detection_ms"] ==
                   wanted * MULTIPLIER, 10, f"the detection time for {interval} ms")
    follower.expect_nothing()
    assert session_of(site.service, "t0")["ups"] == 1


def test_no_neighbour_notices_a_crash(new_site):
    """A kill -9 and a restart within the detection time: BIRD's sessions stay as they are."""
    site = new_site(50, interval=300).up()
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
        site.service.wait_state("t0", "up")
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
    site.service.wait_state("t0", "up")
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
    site.service.wait_state("t0", "up")
    follower = site.service.follow(["t0"])
    frr.kill("bfdd")
    follower.expect(("t0", "down"))
    site.wait_engine(False, "FRR's bfdd")
    frr.start_bfdd()
    follower.expect(("t0", "up"))
    site.wait_engine(True, "FRR's bfdd")
    assert frr.states() == {"10.9.0.2": True}


def agree(site, up):
    """Whether both ends say of every session what its link says."""
    wanted = {f"t{number}": "up" if up[number] else "down" for number in site.links}
    here = {track["name"]: track["state"] for track in site.service.tracks()}
    there = {address for address, session in site.peer.bfd().items() if session.state == "Up"}
    return here == wanted and there == {f"10.9.{number}.1" for number in site.links if up[number]}


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
            wait_until(lambda: agree(site, up), build.patience * 2, "agreement")
    wait_until(lambda: agree(site, up), build.patience * 2, "agreement")
