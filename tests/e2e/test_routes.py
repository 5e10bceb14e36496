"""Route tracks in the default VRF, on the routes of a real kernel."""

import re

import pytest

ROUTE = "192.0.2.0/24"
GATEWAY = "10.0.0.2"
TIME = re.compile(r"last change \d\d:\d\d:\d\d \S+ \w{3} \w{3} \d\d \d{4}\n")


@pytest.fixture
def routed(service):
    """A track `r` that is up: its route leaves through the interface `up0`."""
    service.net.link("up0")
    service.net.ip("address add 10.0.0.1/24 dev up0")
    service.net.ip(f"route add {ROUTE} via {GATEWAY}")
    service.ctl("set", "r", "route", ROUTE)
    service.wait_state("r", "up")
    return service


def settled(service, gateway=GATEWAY, device="up0"):
    """Returns once the service has seen everything the kernel did before."""
    service.ctl("set", "canary", "route", "198.51.100.0/24")
    service.net.ip(f"route add 198.51.100.0/24 via {gateway} onlink dev {device}")
    service.wait_state("canary", "up")
    service.net.ip("route del 198.51.100.0/24")
    service.wait_state("canary", "down")


def test_follows_a_route_that_is_deleted_and_added(routed):
    events = routed.follow(tracks=["r"])
    routed.net.ip(f"route del {ROUTE}")
    events.expect(("r", "down"))
    routed.net.ip(f"route add {ROUTE} via {GATEWAY}")
    events.expect(("r", "up"))


def test_a_replaced_route_stays_up_without_an_event(routed):
    events = routed.follow(tracks=["r"])
    routed.net.ip(f"route replace {ROUTE} via 10.0.0.3")
    settled(routed)
    routed.net.ip(f"route del {ROUTE}")
    events.expect(("r", "down"))


def test_a_covering_route_is_not_the_route(routed):
    routed.net.ip(f"route add default via {GATEWAY}")
    routed.net.ip(f"route del {ROUTE}")
    routed.wait_state("r", "down")
    routed.net.ip(f"route add 192.0.0.0/16 via {GATEWAY}")
    settled(routed)
    assert routed.state("r") == "down"


def test_a_more_specific_route_hides_the_route(routed):
    routed.net.ip("route add 192.0.2.0/25 via 10.0.0.3")
    routed.wait_state("r", "down")
    routed.net.ip("route del 192.0.2.0/25")
    routed.wait_state("r", "up")


# The kernel announces the end of the route in none of these.
@pytest.mark.parametrize("command", [
    "link set up0 down",
    "link set up0-p down",
    "address del 10.0.0.1/24 dev up0",
    "link del up0",
])
def test_the_end_of_a_route_is_seen_without_an_announcement(routed, command):
    events = routed.follow(tracks=["r"])
    routed.net.ip(command)
    events.expect(("r", "down"))


def test_a_route_comes_back_with_its_carrier(routed):
    routed.net.carrier("up0", on=False)
    routed.wait_state("r", "down")
    routed.net.carrier("up0", on=True)
    routed.wait_state("r", "up")


def test_the_end_of_a_next_hop_object(service):
    service.net.link("up0")
    service.net.ip("address add 10.0.0.1/24 dev up0")
    service.net.ip(f"nexthop add id 7 via {GATEWAY} dev up0")
    service.net.ip(f"route add {ROUTE} nhid 7")
    service.ctl("set", "r", "route", ROUTE)
    service.wait_state("r", "up")
    service.net.ip("nexthop del id 7")
    service.wait_state("r", "down")


def test_a_multipath_route_is_up_while_one_path_is(service):
    for number in (1, 2):
        service.net.link(f"up{number}")
        service.net.ip(f"address add 10.0.{number}.1/24 dev up{number}")
    service.net.ip(f"route add {ROUTE} nexthop via 10.0.1.2 nexthop via 10.0.2.2")
    service.ctl("set", "r", "route", ROUTE)
    service.wait_state("r", "up")
    service.net.carrier("up1", on=False)
    settled(service, "10.0.2.2", "up2")
    assert service.state("r") == "up"
    service.net.carrier("up2", on=False)
    service.wait_state("r", "down")


@pytest.mark.parametrize("kind", ["blackhole", "unreachable", "prohibit"])
def test_a_route_that_refuses_packets_is_none(routed, kind):
    routed.net.ip(f"route replace {kind} {ROUTE}")
    routed.wait_state("r", "down")


def test_a_vrf_that_does_not_exist_leaves_the_track_down(routed):
    routed.ctl("set", "red", "route", ROUTE, "--vrf", "nosuch")
    settled(routed)
    assert routed.state("red") == "down"
    assert routed.state("r") == "up"


def test_show_prints_route_and_first_hop(routed):
    assert TIME.sub("last change TIME\n", routed.show("r", "all")) == (
        "\nTrack r \n"
        "\tIp route 192.0.2.0 255.255.255.0 reachability ip vrf default\n"
        "\tReachability is UP \n"
        "\tFirst Hop interface up0\n"
        "\t1 change, last change TIME\n")
    assert routed.show("r").splitlines()[2] == (
        "r                                ip route 192.0.2.0/24 vrf default         "
        "reachability     Up   ")


def test_a_restart_takes_the_state_over_without_an_event(routed):
    routed.crash()
    routed.start()
    events = routed.follow(tracks=["r"])
    routed.wait_state("r", "up")
    settled(routed)
    routed.net.ip(f"route del {ROUTE}")
    events.expect(("r", "down"))


def test_another_route_and_another_vrf_take_effect(routed):
    routed.ctl("set", "r", "route", "203.0.113.0/24")
    routed.wait_state("r", "down")
    routed.ctl("set", "r", "route", ROUTE)
    routed.wait_state("r", "up")
    routed.ctl("set", "r", "route", ROUTE, "--vrf", "nosuch")
    routed.wait_state("r", "down")


def test_deleting_the_last_track_lets_the_route_go(routed):
    routed.ctl("set", "twin", "route", ROUTE)
    routed.wait_state("twin", "up")
    routed.ctl("delete", "r")
    routed.net.ip(f"route del {ROUTE}")
    routed.wait_state("twin", "down")
    routed.ctl("delete", "twin")
    assert "192.0.2" not in routed.show("all-tracks")


@pytest.mark.parametrize("arguments,text", [
    (["192.0.2.1/24"],
     'trackctl: route "192.0.2.1/24" has host bits set; the network is 192.0.2.0/24\n'),
    (["0.0.0.0/0"],
     'trackctl: route "0.0.0.0/0" cannot be tracked: the FIB takes no registration for address '
     "0.0.0.0; track a prefix behind it instead\n"),
    (["10.0.0.0/0"],
     'trackctl: route "10.0.0.0/0" cannot be tracked: the FIB takes no registration for address '
     "0.0.0.0; track a prefix behind it instead\n"),
    (["192.0.2.0/24", "--vrf", "v" * 16],
     f'trackctl: VRF name "{"v" * 16}" has 16 characters; at most 15 can be, since a VRF is a '
     "Linux device\n"),
])
def test_bad_routes_are_refused(service, arguments, text):
    result = service.run("trackctl", "set", "r", "route", *arguments)
    assert (result.returncode, result.stderr) == (2, text)


def test_a_flood_of_other_routes_leaves_every_track_right(routed):
    """Thousands of unrelated changes around the one that matters."""
    for number in range(3):
        routed.net.ip_batch([f"route add 172.{16 + i // 250}.{i % 250}.0/24 via {GATEWAY}"
                             for i in range(3750)])
        routed.net.ip(f"route {'del' if number % 2 == 0 else 'add'} {ROUTE}"
                      + ("" if number % 2 == 0 else f" via {GATEWAY}"))
        routed.net.ip_batch([f"route del 172.{16 + i // 250}.{i % 250}.0/24"
                             for i in range(3750)])
        routed.wait_state("r", "down" if number % 2 == 0 else "up")


# What hides the main table from a packet hides it from nobody who asks what is in it.
@pytest.mark.parametrize("rule", [
    "pref 100 lookup 100",
    "pref 100 to 192.0.2.0/24 lookup 100",
    "pref 100 not fwmark 0xca6c lookup 100",
    "pref 100 iif lo lookup 100",
    "pref 100 unreachable",
    "pref 100 blackhole",
    "pref 100 prohibit",
    "pref 100 lookup main suppress_prefixlength 31",
])
def test_a_policy_rule_hides_no_route(routed, rule):
    events = routed.follow(tracks=["r"])
    routed.net.ip("route add 192.0.0.0/8 via 10.0.0.3 table 100")
    routed.net.ip(f"rule add {rule}")
    settled(routed)
    assert routed.state("r") == "up"
    routed.net.ip(f"route del {ROUTE}")
    events.expect(("r", "down"))
    routed.net.ip(f"route add {ROUTE} via {GATEWAY} onlink dev up0")
    events.expect(("r", "up"))
    routed.net.ip(f"rule del {rule}")
    routed.net.ip(f"route del {ROUTE}")
    events.expect(("r", "down"))


def test_a_route_in_a_table_that_a_rule_asks_first_is_none_of_the_main_table(routed):
    routed.net.ip(f"route del {ROUTE}")
    routed.wait_state("r", "down")
    routed.net.ip(f"route add {ROUTE} via 10.0.0.3 table 100")
    routed.net.ip("rule add pref 100 lookup 100")
    settled(routed)
    assert routed.state("r") == "down"


# The router's own address is found before the route to its link.
@pytest.mark.parametrize("own, prefix", [("10.9.0.0/31", "10.9.0.0/31"),
                                         ("10.9.0.1/31", "10.9.0.0/31"),
                                         ("10.9.0.4/30", "10.9.0.4/30")])
def test_a_connected_route_is_up_whichever_address_is_ours(service, own, prefix):
    service.net.link("up0")
    service.ctl("set", "link", "route", prefix)
    service.ctl("set", "self", "route", own.split("/")[0] + "/32")
    service.wait_state("self", "down")
    service.net.ip(f"address add {own} dev up0")
    service.wait_state("link", "up")
    service.wait_state("self", "up")
    service.net.ip(f"address del {own} dev up0")
    service.wait_state("link", "down")
    service.wait_state("self", "down")


def test_a_host_route_to_the_neighbour_is_not_the_connected_route(service):
    service.net.link("up0")
    service.net.ip("address add 10.9.0.0/31 dev up0")
    service.ctl("set", "link", "route", "10.9.0.0/31")
    service.wait_state("link", "up")
    service.net.ip("route add 10.9.0.1/32 dev up0")
    settled(service, "10.9.0.1")
    assert service.state("link") == "up"
    service.net.ip("route del 10.9.0.0/31 dev up0")
    service.wait_state("link", "down")


def test_an_own_address_counts_wherever_the_rules_have_the_local_table(service):
    service.net.link("up0")
    service.net.ip("address add 10.9.0.1/24 dev up0")
    service.ctl("set", "self", "route", "10.9.0.1/32")
    service.wait_state("self", "up")
    service.net.ip("rule add pref 32767 lookup local")
    service.net.ip("rule del pref 0")
    settled(service, "10.9.0.2")
    assert service.state("self") == "up"
    service.net.ip("address del 10.9.0.1/24 dev up0")
    service.wait_state("self", "down")


def test_an_address_that_is_made_our_own_without_an_interface_of_its_own(routed):
    routed.ctl("set", "self", "route", "10.8.0.1/32")
    settled(routed)
    assert routed.state("self") == "down"
    for _ in range(2):
        routed.net.ip("route add local 10.8.0.1/32 dev lo")
        routed.wait_state("self", "up")
        routed.net.ip("route del local 10.8.0.1/32 dev lo")
        routed.wait_state("self", "down")


def test_a_local_network_is_none_of_the_main_table(service):
    service.net.link("up0")
    service.net.ip("address add 10.9.0.1/24 dev up0")
    service.ctl("set", "any", "route", "10.8.0.0/24")
    service.net.ip("route add local 10.8.0.0/24 dev lo")
    settled(service, "10.9.0.2")
    assert service.state("any") == "down"
    service.net.ip("route add 10.8.0.0/24 via 10.9.0.2")
    service.wait_state("any", "up")


def test_a_dead_route_leaves_the_next_shorter_one_in_force(routed):
    """Of two routes that begin alike, the longer one ends with its link."""
    routed.net.link("up1")
    routed.net.ip("address add 10.0.1.1/24 dev up1")
    routed.net.ip(f"route add 192.0.2.0/23 via {GATEWAY}")
    routed.net.ip("route replace 192.0.2.0/24 via 10.0.1.2 dev up1")
    routed.ctl("set", "wide", "route", "192.0.2.0/23")
    routed.wait_state("wide", "down")
    routed.net.ip("link set up1 down")
    routed.wait_state("wide", "up")
    routed.wait_state("r", "down")
