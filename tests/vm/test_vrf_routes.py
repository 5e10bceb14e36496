"""Route tracks in VRFs: which table's routes count."""

import re

import pytest

ROUTE = "192.0.2.0/24"
TIME = re.compile(r"last change \d\d:\d\d:\d\d \S+ \w{3} \w{3} +\d+ \d{4}\n")


@pytest.fixture
def router(service):
    """VRFs red (table 10) and blue (20), and the default one. Each has a link, r0, b0 and d0, all
    with the same address, and a track of the same route, named after the VRF."""
    net = service.net
    net.vrf("red", 10)
    net.vrf("blue", 20)
    net.link("r0", "b0", "d0")
    net.ip("link set r0 master red", "link set b0 master blue",
           *(f"address add 10.0.0.1/24 dev {link}" for link in ("r0", "b0", "d0")))
    service.ctl("set", "red", "route", ROUTE, "--vrf", "red")
    service.ctl("set", "blue", "route", ROUTE, "--vrf", "blue")
    service.ctl("set", "default", "route", ROUTE)
    return service


def add(router, table, device):
    router.net.ip(f"route add {ROUTE} via 10.0.0.2 dev {device} table {table}")


def delete(router, table):
    router.net.ip(f"route del {ROUTE} table {table}")


def test_a_route_of_the_vrf_alone(router):
    router.follow()
    add(router, 10, "r0")
    router.wait_events(("red", "up"))
    router.wait_states(red="up", blue="down", default="down")
    delete(router, 10)
    router.wait_events(("red", "up"), ("red", "down"))


def test_a_route_of_the_main_table_does_not_count_for_a_vrf_that_falls_through_to_it(router):
    router.follow()
    add(router, "main", "d0")
    router.wait_events(("default", "up"))
    # The kernel would send the VRF's packets along that route all the same.
    assert f"{ROUTE}" in router.net.ip("route get fibmatch 192.0.2.1 oif red")
    router.wait_states(red="down", blue="down", default="up")


def test_routes_of_the_vrf_and_of_the_main_table_are_two(router):
    router.follow()
    add(router, 10, "r0")
    add(router, "main", "d0")
    router.wait_events(("red", "up"), ("default", "up"))
    delete(router, 10)
    router.wait_events(("red", "up"), ("default", "up"), ("red", "down"))
    router.wait_states(red="down", default="up")
    add(router, 10, "r0")
    router.wait_states(red="up")
    delete(router, "main")
    router.wait_states(red="up", default="down")


def test_the_same_prefix_in_two_vrfs(router):
    router.follow()
    add(router, 10, "r0")
    add(router, 20, "b0")
    router.wait_events(("red", "up"), ("blue", "up"))
    delete(router, 10)
    router.wait_events(("red", "up"), ("blue", "up"), ("red", "down"))
    router.wait_states(red="down", blue="up", default="down")


@pytest.mark.parametrize("covering", ["default via 10.0.0.2 dev r0", "192.0.0.0/16 dev r0",
                                      "unreachable default metric 4278198272"])
def test_a_covering_route_of_the_vrf_is_not_the_route(router, covering):
    router.net.ip(f"route add {covering} table 10")
    add(router, 10, "r0")
    router.wait_states(red="up")
    delete(router, 10)
    router.wait_states(red="down")


def test_an_address_that_is_the_routers_own_in_the_default_vrf(router):
    """Its local table answers first, also for a VRF."""
    own = "203.0.113.1/32"
    router.ctl("set", "own-red", "route", own, "--vrf", "red")
    router.ctl("set", "own-default", "route", own)
    router.net.ip("address add 203.0.113.1/32 dev d0")
    router.wait_states(**{"own-default": "up", "own-red": "down"})
    router.net.ip("route add 203.0.113.1/32 via 10.0.0.2 dev r0 table 10")
    router.wait_states(**{"own-default": "up", "own-red": "up"})
    router.net.ip("address del 203.0.113.1/32 dev d0")
    router.wait_states(**{"own-default": "down", "own-red": "up"})
    router.net.ip("route del 203.0.113.1/32 table 10")
    router.wait_states(**{"own-red": "down"})


def test_an_address_that_is_the_routers_own_in_the_vrf(router):
    router.ctl("set", "own-red", "route", "203.0.113.1/32", "--vrf", "red")
    router.ctl("set", "own-default", "route", "203.0.113.1/32")
    router.net.ip("address add 203.0.113.1/32 dev r0")
    router.wait_states(**{"own-red": "up", "own-default": "down"})
    router.net.ip("address del 203.0.113.1/32 dev r0")
    router.wait_states(**{"own-red": "down"})


def test_connected_networks_with_the_same_address(router):
    for name, words in (("c-red", ["--vrf", "red"]), ("c-blue", ["--vrf", "blue"]), ("c", [])):
        router.ctl("set", name, "route", "10.0.0.0/24", *words)
        router.wait_states(**{name: "up"})
    router.net.ip("address del 10.0.0.1/24 dev r0")
    router.wait_states(**{"c-red": "down", "c-blue": "up", "c": "up"})
    router.net.ip("link set d0 down")
    router.wait_states(**{"c-red": "down", "c-blue": "up", "c": "down"})
    router.net.ip("link set b0-p down")
    router.wait_states(**{"c-blue": "down"})
    router.net.ip("link set b0-p up")
    router.wait_states(**{"c-blue": "up"})


def test_show_prints_vrf_and_first_hop(router):
    add(router, 10, "r0")
    router.wait_states(red="up")
    assert TIME.sub("last change TIME\n", router.ctl("show", "red", "--detail")) == (
        "\nTrack red \n"
        "\tIp route 192.0.2.0 255.255.255.0 reachability ip vrf red\n"
        "\tReachability is UP \n"
        "\tFirst Hop interface r0\n"
        "\t2 changes, last change TIME\n")
    assert TIME.sub("last change TIME\n", router.ctl("show", "blue", "--detail")) == (
        "\nTrack blue \n"
        "\tIp route 192.0.2.0 255.255.255.0 reachability ip vrf blue\n"
        "\tReachability is DOWN \n"
        "\t1 change, last change TIME\n")


def test_vrfs_that_share_a_table_both_follow_it(router):
    """Also when the sharing has ended, whichever of them goes."""
    router.net.ip("link add green type vrf table 10", "link set green up")
    router.ctl("set", "green", "route", ROUTE, "--vrf", "green")
    add(router, 10, "r0")
    router.wait_states(red="up", green="up", blue="down", default="down")
    delete(router, 10)
    router.wait_states(red="down", green="down")
    router.net.ip("link del green")
    add(router, 10, "r0")
    router.wait_states(red="up", green="down")
    router.net.ip("link add green type vrf table 10", "link set green up")
    router.wait_states(red="up", green="up")
    router.net.ip("link set r0 nomaster", "link del red")
    router.wait_states(red="down")
    router.net.ip("link set r0 master green")
    router.net.ip(f"route replace {ROUTE} via 10.0.0.2 dev r0 table 10")
    router.wait_states(green="up", red="down")
    delete(router, 10)
    router.wait_states(green="down")
    router.net.ip("link add red type vrf table 30", "link set red up")
    router.net.ip(f"route add {ROUTE} via 10.0.0.2 dev d0 table 30")
    router.wait_states(red="up", green="down")


def test_a_vrf_on_the_main_table(router):
    router.net.ip("link add green type vrf table 254", "link set green up")
    router.ctl("set", "green", "route", ROUTE, "--vrf", "green")
    add(router, "main", "d0")
    router.wait_states(green="up", default="up", red="down")
    delete(router, "main")
    router.wait_states(green="down", default="down")
    add(router, "main", "d0")
    router.wait_states(green="up", default="up")
    router.net.ip("link del green")
    router.wait_states(green="down", default="up")
    delete(router, "main")
    router.wait_states(green="down", default="down")


@pytest.mark.parametrize("rule", ["pref 100 lookup 100", "pref 100 oif red lookup 100",
                                  "pref 100 unreachable", "pref 100 lookup main"])
def test_a_policy_rule_hides_no_route_of_a_vrf(router, rule):
    router.net.ip(f"route add {ROUTE} via 10.0.0.2 dev d0 table 100",
                  "route add 192.0.0.0/8 via 10.0.0.2 dev d0")
    add(router, 10, "r0")
    router.wait_states(red="up")
    router.net.ip(f"rule add {rule}")
    router.net.ip(f"route add {ROUTE} via 10.0.0.2 dev b0 table 20")
    router.wait_states(red="up", blue="up", default="down")
    delete(router, 10)
    router.wait_states(red="down", blue="up")
    add(router, 10, "r0")
    router.wait_states(red="up", blue="up")


def test_a_connected_network_that_begins_with_our_own_address(router):
    router.ctl("set", "link", "route", "10.9.0.0/31", "--vrf", "red")
    router.ctl("set", "own", "route", "10.9.0.0/32", "--vrf", "red")
    # What the neighbour's address is elsewhere says nothing of it here.
    router.ctl("set", "elsewhere", "route", "10.9.0.1/32", "--vrf", "blue")
    router.net.ip("address add 10.9.0.0/31 dev r0")
    router.wait_states(link="up", own="up", elsewhere="down")
    router.net.ip("address del 10.9.0.0/31 dev r0")
    router.wait_states(link="down", own="down", elsewhere="down")
