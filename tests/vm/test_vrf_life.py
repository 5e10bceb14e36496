"""Route tracks in VRFs whose device, links and tables come and go."""

import pytest

from guest_service import PATIENCE
from waiting import wait_until

ROUTE = "192.0.2.0/24"


def make_red(net, table):
    net.vrf("red", table)
    net.ip("link set r0 master red", f"route add {ROUTE} via 10.0.0.2 dev r0 table {table}")


@pytest.fixture
def router(service):
    """The VRF red (table 10) with the link r0 and a route; tracks `t` of the route and `c` of the
    connected network, up."""
    service.net.link("r0")
    service.net.ip("address add 10.0.0.1/24 dev r0")
    make_red(service.net, 10)
    service.ctl("set", "t", "route", ROUTE, "--vrf", "red")
    service.ctl("set", "c", "route", "10.0.0.0/24", "--vrf", "red")
    service.wait_states(t="up", c="up")
    return service


@pytest.mark.parametrize("table", [10, 20])
def test_a_vrf_deleted_and_created_anew(router, table):
    router.net.ip("link del red")
    router.wait_states(t="down", c="down")
    make_red(router.net, table)
    router.wait_states(t="up", c="up")
    router.net.ip(f"route del {ROUTE} table {table}")
    router.wait_states(t="down", c="up")


@pytest.mark.parametrize("table", [10, 20])
def test_a_vrf_exchanged_at_one_stroke(router, table):
    """All of it in one process, so that the service sees what is left at the end."""
    for _ in range(5):
        router.net.ip("link del red",
                         f"link add red type vrf table {table}",
                         "link set red up",
                         "link set r0 master red",
                         f"route add {ROUTE} via 10.0.0.2 dev r0 table {table}")
        router.wait_states(t="up", c="up")
    router.net.ip(f"route del {ROUTE} table {table}")
    router.wait_states(t="down", c="up")


def test_two_vrfs_that_swap_their_tables(router):
    router.net.vrf("blue", 20)
    router.ctl("set", "b", "route", ROUTE, "--vrf", "blue")
    router.wait_states(t="up", b="down")
    router.net.ip("link del red", "link del blue",
                     "link add blue type vrf table 10", "link set blue up",
                     "link add red type vrf table 20", "link set red up",
                     "link set r0 master blue",
                     f"route add {ROUTE} via 10.0.0.2 dev r0 table 10")
    router.wait_states(t="down", b="up", c="down")


def test_a_track_of_a_vrf_that_comes_later(service):
    service.net.link("r0")
    service.net.ip("address add 10.0.0.1/24 dev r0")
    service.ctl("set", "t", "route", ROUTE, "--vrf", "red")
    service.wait_states(t="down")
    service.follow()
    make_red(service.net, 10)
    service.wait_events(("t", "up"))


def test_a_link_released_and_enslaved(router):
    router.follow()
    router.net.ip("link set r0 nomaster")
    router.wait_states(t="down", c="down")
    router.net.ip("link set r0 master red")
    router.wait_states(t="down", c="up")
    router.net.ip(f"route add {ROUTE} via 10.0.0.2 dev r0 table 10")
    router.wait_states(t="up", c="up")
    wait_until(lambda: len(router.events()) >= 4, PATIENCE, lambda: router.events())
    assert sorted(router.events()) == sorted(
        [("t", "down"), ("c", "down"), ("c", "up"), ("t", "up")])


def test_a_link_moved_to_another_vrf(router):
    router.net.vrf("blue", 20)
    router.ctl("set", "b", "route", "10.0.0.0/24", "--vrf", "blue")
    router.wait_states(b="down")
    router.net.ip("link set r0 master blue")
    router.wait_states(c="down", b="up")


# Whether or not a rule hides its table from packets.
@pytest.mark.parametrize("rules", [[], ["rule add pref 100 unreachable"]])
def test_a_vrf_that_is_down_forwards_nothing(router, rules):
    router.net.ip(*rules, "link set red down")
    router.wait_states(t="down", c="down")
    router.net.ip("link set red up")
    router.wait_states(t="up", c="up")


def test_a_renamed_vrf_is_another_one(router):
    router.ctl("set", "g", "route", ROUTE, "--vrf", "green")
    router.wait_states(g="down")
    router.net.ip("link set red down", "link set red name green", "link set green up")
    router.wait_states(t="down", c="down", g="up")
    router.net.ip("link set green down", "link set green name red", "link set red up")
    router.wait_states(t="up", c="up", g="down")


def test_another_vrf_for_a_track(router):
    router.net.vrf("blue", 20)
    router.ctl("set", "t", "route", ROUTE, "--vrf", "blue")
    router.wait_states(t="down")
    router.ctl("set", "t", "route", ROUTE, "--vrf", "red")
    router.wait_states(t="up")
    router.ctl("set", "t", "route", ROUTE)
    router.wait_states(t="down")


def test_a_track_deleted_while_its_vrf_is_gone(router):
    router.net.ip("link del red")
    router.wait_states(t="down", c="down")
    router.ctl("delete", "t")
    make_red(router.net, 10)
    router.wait_states(c="up")
    router.ctl("set", "t", "route", ROUTE, "--vrf", "red")
    router.wait_states(t="up")


def test_a_restart_keeps_the_states(router):
    router.ctl("set", "later", "route", ROUTE, "--vrf", "nosuch")
    router.restart()
    router.wait_states(t="up", c="up", later="down")
    router.net.ip(f"route del {ROUTE} table 10")
    router.wait_states(t="down", c="up")
