"""A track follows the line protocol of its interface."""

import pytest


def test_carrier_loss_takes_the_track_down_and_back_up(service):
    service.net.link("wan0")
    service.ctl("set", "uplink", "interface", "wan0")
    service.wait_state("uplink", "up")
    events = service.follow()

    service.net.carrier("wan0", on=False)
    events.expect(("uplink", "down"))
    assert service.state("uplink") == "down"

    service.net.carrier("wan0", on=True)
    events.expect(("uplink", "up"))
    assert service.state("uplink") == "up"
    events.expect_nothing()


def test_admin_down_takes_the_track_down(service):
    service.net.link("wan0")
    service.ctl("set", "uplink", "interface", "wan0")
    service.wait_state("uplink", "up")
    events = service.follow()

    service.net.ip("link set wan0 down")
    events.expect(("uplink", "down"))
    service.net.ip("link set wan0 up")
    events.expect(("uplink", "up"))
    events.expect_nothing()


def test_every_track_of_an_interface_follows_it(service):
    service.net.link("lan0")
    service.configure(["a", "b", "c"], "lan0")
    service.net.link("lan1")
    service.configure(["other"], "lan1")
    events = service.follow()

    service.net.ip("link set lan0 down")
    # The newest track is reported first.
    events.expect(("c", "down"), ("b", "down"), ("a", "down"))
    events.expect_nothing()
    assert service.state("other") == "up"


def test_an_interface_may_appear_after_its_track(service):
    events = service.follow()
    service.ctl("set", "later", "interface", "tun7")
    events.expect(("later", "unknown"))

    # It comes into being down, and a state other than up means down from then on.
    service.net.link("tun7", up=False)
    events.expect(("later", "down"))
    service.net.ip("link set tun7 up")
    events.expect(("later", "up"))
    events.expect_nothing()


def test_a_rename_takes_the_track_to_the_new_name(service):
    service.net.link("eth7")
    service.ctl("set", "old", "interface", "eth7")
    service.ctl("set", "new", "interface", "eth8")
    service.wait_state("old", "up")
    events = service.follow()

    # The kernel of today renames interfaces that are up.
    service.net.ip("link set eth7 name eth8")
    events.expect(("old", "down"), ("new", "up"))
    service.net.ip("link set eth8 name eth7")
    events.expect(("new", "down"), ("old", "up"))
    events.expect_nothing()


def test_a_deleted_interface_takes_the_track_down_until_it_is_back(service):
    service.net.link("tun0")
    service.ctl("set", "tunnel", "interface", "tun0")
    service.wait_state("tunnel", "up")
    events = service.follow()

    service.net.ip("link del tun0")
    events.expect(("tunnel", "down"))
    service.net.link("tun0")
    events.expect(("tunnel", "up"))
    events.expect_nothing()


def test_a_standby_bond_member_counts_as_down(service):
    if not service.net.has_kind("bond"):
        pytest.skip("this kernel has no bonding")
    service.net.ip("link add bond0 type bond mode active-backup miimon 20")
    service.net.ip("link set bond0 up")
    for name in ("m0", "m1"):
        service.net.link(name)
        service.net.ip(f"link set {name} down")
        service.net.ip(f"link set {name} master bond0")
    service.net.ip("link set bond0 type bond active_slave m0")
    service.configure(["first"], "m0")
    service.configure(["second"], "m1")
    service.wait_state("first", "up")
    service.wait_state("second", "down")

    service.net.ip("link set bond0 type bond active_slave m1")
    service.wait_state("first", "down")
    service.wait_state("second", "up")
