"""The service's own BFD engine on a real link, against a neighbour that sends what a test says and
looks at every packet of the service's."""

import json

import pytest

from bfd_peer import (ADMIN_DOWN, AUTHENTICATION, BY_HAND, DOWN, EXPIRED, FINAL, INIT, MULTIPOINT,
                      NO_REASON, POLL, SIGNALED_DOWN, UP, BfdPeer, Packet)
from lateness import Lateness
from netns import NetworkNamespace
from priority import PRIORITY
from waiting import wait_until

STATES = {ADMIN_DOWN: "AdminDown", DOWN: "Down", INIT: "Init", UP: "Up"}
LATE = 0.1  # what a packet may be late on a busy machine, where the machine itself is never late


class Link:
    """The service and the neighbour, on both ends of a veth pair; track t0 is the session."""

    def __init__(self, service):
        self.service = service
        self.peer = None
        self.far = NetworkNamespace()
        try:
            service.net.ip(f"link add e0 type veth peer name e0 netns {self.far.name}")
            for net, address in ((service.net, "10.9.0.1"), (self.far, "10.9.0.2")):
                net.ip_batch([f"addr add {address}/24 dev e0", "link set e0 up"])
            self.peer = BfdPeer(self.far)
        except BaseException:
            self.close()
            raise

    def close(self):
        if self.peer is not None:
            self.peer.close()
        self.far.close()

    def track(self, rate=100, multiplier=3):
        self.service.ctl("set", "t0", "bfd", "10.9.0.2", "--interface", "e0", "--rate", str(rate),
                         "--debounce", str(multiplier))


@pytest.fixture
def link(service):
    """Without a track yet."""
    made = Link(service)
    yield made
    made.close()


@pytest.fixture
def up(link):
    """With a session that is up."""
    link.track()
    link.peer.bring_up()
    return link


@pytest.fixture
def machine():
    with Lateness(PRIORITY) as watched:
        yield watched


def between(shortest, longest, seconds, machine):
    """Whether these times are, but for what is late."""
    return seconds and all(shortest - machine.longest <= each <= longest + LATE + machine.longest
                           for each in seconds)


def gaps(heard):
    """Between the packets that go out in turn: answers to polls do not."""
    times = [one.at for one in heard if not one.packet.flags & FINAL]
    return [after - before for before, after in zip(times, times[1:])]


def test_nobody_hears_of_bfd_without_a_track(link):
    assert link.peer.listen(2) == []
    link.track()
    link.peer.expect(state=DOWN)
    link.service.ctl("delete", "t0")
    link.peer.expect(state=ADMIN_DOWN)
    link.peer.listen(4)
    assert link.peer.listen(2) == []


def test_packets_are_sent_as_the_neighbour_must_have_them(link, machine):
    """Once a second, until the session is up."""
    link.track()
    heard = link.peer.listen(6)
    assert len({one.source for one in heard}) == 1
    for one in heard:
        assert one.source[0] == "10.9.0.1"
        assert 49152 <= one.source[1] <= 65535
        assert (one.ttl, one.tos) == (255, 0xc0)
        assert one.packet == Packet(DOWN, one.packet.my, 0, 1000, 100, 3, 0, NO_REASON)
        assert one.packet.my != 0
    assert len(heard) >= 5
    assert between(0.74, 1, gaps(heard), machine), (gaps(heard), machine.longest)


# Our state, what the neighbour says, and our state after that.
STATE_MACHINE = {
    (DOWN, ADMIN_DOWN): DOWN, (DOWN, DOWN): INIT, (DOWN, INIT): UP, (DOWN, UP): DOWN,
    (INIT, ADMIN_DOWN): DOWN, (INIT, DOWN): INIT, (INIT, INIT): UP, (INIT, UP): UP,
    (UP, ADMIN_DOWN): DOWN, (UP, DOWN): DOWN, (UP, INIT): UP, (UP, UP): UP,
}


def test_each_state_follows_from_what_the_neighbour_says(link):
    """Each word is a poll, whose answer tells the state."""
    link.track()
    link.peer.expect(state=DOWN)

    def say(state):
        link.peer.send(state=state, flags=POLL)
        return link.peer.expect(flags=FINAL).packet

    way_to = {DOWN: [ADMIN_DOWN], INIT: [ADMIN_DOWN, DOWN], UP: [ADMIN_DOWN, INIT]}
    for (before, word), after in STATE_MACHINE.items():
        for step in way_to[before]:
            answer = say(step)
        assert answer.state == before
        answer = say(word)
        assert answer.state == after, f"{STATES[before]}, told {STATES[word]}"
        assert (answer.tx >= 1000) == (after != UP)
        assert answer.your == Packet.my
        if before != DOWN and after == DOWN:
            assert answer.reason == SIGNALED_DOWN
        link.peer.listen(0.1)


REFUSED = {
    "from afar": dict(ttl=254),
    "version 0": dict(version=0),
    "version 2": dict(version=2),
    "too short": dict(length=23),
    "longer than what came": dict(length=25),
    "no multiplier": dict(multiplier=0),
    "to many": dict(flags=POLL | MULTIPOINT),
    "of nobody": dict(my=0),
    "to nobody": dict(your=0, state=UP),
    "to another": dict(your=0x12345678),
    "authentication bit alone": dict(flags=POLL | AUTHENTICATION),
    "authenticated": dict(flags=POLL | AUTHENTICATION, length=28, extra=b"\1\4\0x"),
}


def test_what_is_to_be_refused_is_as_if_it_had_not_come(up):
    """Each would end the session, and be answered."""
    follower = up.service.follow(["t0"])
    for what, fields in REFUSED.items():
        up.peer.keep_up(0.1)
        up.peer.send(**{"state": DOWN, "flags": POLL, **fields})
        for one in up.peer.keep_up(0.15):
            assert (one.packet.state, one.packet.flags & FINAL) == (UP, 0), (what, one)
    for junk in (b"", b"\x20", b"\x20" * 23, bytes(24), b"\xff" * 1400):
        up.peer.send_bytes(junk)
    for one in up.peer.keep_up(0.3):
        assert (one.packet.state, one.packet.flags & FINAL) == (UP, 0), one
    up.peer.send(state=DOWN)  # and this one is not refused: the only change that was seen
    follower.expect(("t0", "down"))


def discarded(service):
    """What `trackctl engine` tells of packets that were discarded: the number, and the lines."""
    [bfd] = [row for row in json.loads(service.ctl("engine", "--json")) if row["service"] == "bfd"]
    return bfd["discarded_packets"], [line for line in service.ctl("engine").splitlines()
                                      if "discarded" in line]


def test_what_is_refused_is_counted_for_the_operator(link):
    link.track()
    link.peer.expect(state=DOWN)
    assert discarded(link.service) == (0, [])
    for count, words in ((1, "1 packet was"), (3, "3 packets were")):
        for _ in range(count - discarded(link.service)[0]):
            link.peer.send_bytes(b"garbage")
        wanted = (count, [f"BFD engine: {words} discarded: malformed, from afar, or of no session"])
        wait_until(lambda wanted=wanted: discarded(link.service) == wanted,
                   link.service.build.patience, words)


def test_a_poll_is_answered_at_once_and_once(up, machine):
    up.peer.keep_up(0.3)
    up.peer.send(state=UP, flags=POLL)
    sent = up.peer.sent
    answer = up.peer.expect(flags=FINAL)
    assert not answer.packet.flags & POLL
    assert between(0, 0, [answer.at - sent], machine), (answer.at - sent, machine.longest)
    assert not any(one.packet.flags & FINAL for one in up.peer.keep_up(0.3))


def test_a_slow_neighbour_is_sent_to_as_rarely_as_it_wants(up, machine):
    up.peer.keep_up(0.5, rx=400)
    found = gaps(up.peer.keep_up(4, rx=400))
    assert len(found) >= 8
    assert between(0.29, 0.4, found, machine), (found, machine.longest)


def test_a_neighbour_that_wants_no_packets_gets_none(up):
    up.peer.keep_up(0.2, rx=0)
    assert up.peer.keep_up(1, rx=0) == []
    up.peer.send(state=UP, rx=0, flags=POLL)
    up.peer.expect(flags=FINAL)
    assert up.peer.keep_up(0.5, rx=100) != []


def test_another_interval_is_agreed_on(up, machine):
    up.peer.keep_up(0.3)
    up.track(rate=300)
    polled = up.peer.bring_up(multiplier=50).packet
    assert (polled.tx, polled.rx) == (300, 300)
    up.peer.keep_up(0.3)
    found = gaps(up.peer.keep_up(3))
    assert between(0.22, 0.3, found, machine), (found, machine.longest)
    assert not up.peer.last().flags & POLL
    assert up.service.state("t0") == "up"


def test_a_silent_neighbour_is_told_that_it_was_missed(up, machine):
    up.peer.keep_up(0.3, multiplier=3)
    sent = up.peer.sent
    told = up.peer.expect(state=DOWN)
    assert (told.packet.reason, told.packet.your) == (EXPIRED, 0)
    assert between(0.29, 0.3, [told.at - sent], machine), (told.at - sent, machine.longest)
    up.service.wait_state("t0", "down")


def test_a_neighbour_that_begins_anew_is_known_by_its_new_number(up):
    up.peer.send(state=DOWN, my=0xabcd, your=0)
    assert up.peer.expect(state=DOWN).packet.reason == SIGNALED_DOWN
    up.peer.send(state=DOWN, my=0xabcd, your=0)
    up.peer.expect(state=INIT, your=0xabcd)


def test_a_deleted_track_is_told_for_as_long_as_the_neighbour_waits(up):
    up.peer.keep_up(0.3)
    up.service.ctl("delete", "t0")
    told = up.peer.expect(state=ADMIN_DOWN)
    assert told.packet.reason == BY_HAND
    heard = up.peer.listen(4)
    assert all(one.packet.state == ADMIN_DOWN for one in heard)
    assert heard[-1].at - told.at >= 0.3


def test_a_clean_stop_is_told(up):
    up.service.stop()
    assert up.peer.expect(state=ADMIN_DOWN).packet.reason == BY_HAND
    assert up.peer.listen(2) == []
