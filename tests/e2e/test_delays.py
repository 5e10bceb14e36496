"""Delays hold a change back; a flap back to the published state cancels it."""

import time

import pytest

UP, DOWN = 3, 4  # longer than a busy machine takes for what a test does meanwhile


@pytest.fixture
def delayed(service):
    """A track with both delays on wan0, up and published."""
    service.net.link("wan0")
    service.ctl("set", "slow", "interface", "wan0", "--delay-up", str(UP), "--delay-down", str(DOWN))
    service.wait_state("slow", "up")
    return service


def test_delay_down_holds_the_loss_back(delayed):
    events = delayed.follow()
    lost = time.monotonic()
    delayed.net.carrier("wan0", on=False)
    delayed.wait_delayed("slow", "Down", DOWN, lost)
    assert "\tLine protocol is UP , delayed Down (" in delayed.show("slow", "all")
    assert delayed.state("slow") == "up"

    events.expect(("slow", "down"))
    assert time.monotonic() - lost >= DOWN
    assert "delayed" not in delayed.show("slow", "all")


def test_delay_up_holds_the_recovery_back(delayed):
    delayed.ctl("delay", "slow", "--down", "0")
    events = delayed.follow()
    delayed.net.carrier("wan0", on=False)
    events.expect(("slow", "down"))

    found = time.monotonic()
    delayed.net.carrier("wan0", on=True)
    delayed.wait_delayed("slow", "Up", UP, found)
    assert "\tLine protocol is DOWN , delayed Up (" in delayed.show("slow", "all")
    assert delayed.state("slow") == "down"
    events.expect(("slow", "up"))
    assert time.monotonic() - found >= UP


def test_a_flap_within_the_delay_is_never_published(delayed):
    # A second track loses its carrier after the flap, with the same delay: when its loss is
    # published, the flap's would have been.
    delayed.net.link("wan1")
    delayed.ctl("set", "clock", "interface", "wan1", "--delay-down", str(DOWN))
    delayed.wait_state("clock", "up")
    events = delayed.follow()

    for _ in range(3):
        delayed.net.carrier("wan0", on=False)
        delayed.wait_detail("slow", "delayed Down")
        delayed.net.carrier("wan0", on=True)
        delayed.wait_detail("slow", "Line protocol is UP \n")
    delayed.net.carrier("wan1", on=False)
    events.expect(("clock", "down"))
    events.expect_nothing()
    assert "\t1 change, last change" in delayed.show("slow", "all")


def test_a_repeated_loss_does_not_extend_a_running_delay(delayed):
    events = delayed.follow()
    lost = time.monotonic()
    delayed.net.carrier("wan0", on=False)
    delayed.wait_detail("slow", f"delayed Down ({DOWN - 2} secs remaining)")
    # From no carrier to administratively down: still a loss.
    repeated = time.monotonic()
    delayed.net.ip("link set wan0 down")
    events.expect(("slow", "down"))
    assert lost + DOWN <= time.monotonic() < repeated + DOWN
    events.expect_nothing()


def test_a_deleted_track_with_a_running_delay_is_published_once_more(delayed):
    events = delayed.follow()
    delayed.net.carrier("wan0", on=False)
    delayed.wait_detail("slow", "delayed Down")
    delayed.ctl("delete", "slow")
    assert delayed.show("slow", "all") == ""
    events.wait_count(1)
    events.expect_nothing()
