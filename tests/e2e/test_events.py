"""Subscribers get the events they asked for."""

import pytest


@pytest.fixture
def tracked(service):
    service.net.link("lan0")
    service.net.link("lan1")
    service.configure(["a", "A"], "lan0")
    service.configure(["b"], "lan1")
    return service


def flap(service):
    for name in ("lan0", "lan1"):
        service.net.ip(f"link set {name} down")
        service.net.up(name)


def test_without_filters_everything_comes_in_order(tracked):
    events = tracked.follow()
    flap(tracked)
    events.expect(("A", "down"), ("a", "down"), ("A", "up"), ("a", "up"), ("b", "down"),
                  ("b", "up"))
    events.expect_nothing()


def test_a_track_filter_is_exact_and_minds_the_case(tracked):
    events = tracked.follow(tracks=["a"])
    flap(tracked)
    events.expect(("a", "down"), ("a", "up"))
    events.expect_nothing()


def test_several_track_filters(tracked):
    events = tracked.follow(tracks=["a", "b"])
    flap(tracked)
    events.expect(("a", "down"), ("a", "up"), ("b", "down"), ("b", "up"))
    events.expect_nothing()


@pytest.mark.parametrize("state", ["up", "down"])
def test_a_state_filter(tracked, state):
    events = tracked.follow(state=state)
    flap(tracked)
    events.expect(("A", state), ("a", state), ("b", state))
    events.expect_nothing()


def test_a_track_that_there_is_not_is_told(tracked):
    events = tracked.follow(tracks=["a", "nobody"])
    tracked.configure(["nobody"], "lan1")
    events.expect(("nobody", "up"))
    events.process.terminate()
    notes = events.process.stderr.read().decode().splitlines()
    assert notes[:1] == ['trackctl: note: there is no track "nobody" yet; its changes come once there is']


def test_track_and_state_together(tracked):
    events = tracked.follow(tracks=["b"], state="down")
    flap(tracked)
    events.expect(("b", "down"))
    events.expect_nothing()


def test_two_followers_get_the_same(tracked):
    one, two = tracked.follow(), tracked.follow()
    flap(tracked)
    assert one.wait_count(6) == two.wait_count(6)
    one.expect_nothing()


def test_a_follower_ends_when_the_service_does(tracked):
    events = tracked.follow()
    tracked.daemon.stop()
    assert events.process.wait(tracked.build.patience) == 3
