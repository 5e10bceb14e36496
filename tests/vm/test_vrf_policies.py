"""Routes of policies in the table of a VRF, whose device comes, goes and changes its table."""

import json

import pytest

from guest_service import PATIENCE
from waiting import wait_until

POLICY = """[[policy]]
name = "out"
track = "uplink"
kind = "route"
to = "198.51.100.0/24"
via = "10.0.0.2"
dev = "r0"
vrf = "red"
"""
ROUTE = "198.51.100.0/24 via 10.0.0.2 dev r0 proto 113"


def make_red(net, table):
    net.vrf("red", table)
    net.ip("link set r0 master red")


def tables(net):
    """The tables that have the policy's route."""
    return sorted(int(route.get("table", 254))
                  for route in net.query("route show table all proto 113"))


def wait_tables(service, *wanted):
    wait_until(lambda: tables(service.net) == list(wanted), PATIENCE,
               lambda: f"the route in {wanted}; it is in {tables(service.net)}")


def row(service):
    return json.loads(service.ctl("policy", "list", "--json"))[0]


@pytest.fixture
def router(service):
    """The link r0 in the VRF red, of table 10, and a policy for a route there while it is up."""
    service.net.link("r0")
    service.net.ip("address add 10.0.0.1/24 dev r0")
    make_red(service.net, 10)
    service.ctl("set", "uplink", "interface", "r0")
    service.wait_states(uplink="up")
    service.start_trackpolicy(POLICY)
    wait_tables(service, 10)
    return service


def test_a_route_follows_its_track_in_the_table_of_its_vrf(router):
    router.net.ip("link set r0-p down")
    wait_tables(router)
    router.net.ip("link set r0-p up")
    wait_tables(router, 10)
    router.net.ip("route del 198.51.100.0/24 table 10")
    wait_tables(router, 10)
    assert ROUTE in router.net.ip("route show table 10")


@pytest.mark.parametrize("table", [10, 20])
def test_a_route_goes_with_its_vrf_and_comes_back_with_it(router, table):
    router.net.ip("link del red")
    wait_until(lambda: row(router)["problem"] == 'there is no VRF "red"', PATIENCE,
               lambda: f"no VRF; {row(router)}")
    make_red(router.net, table)
    wait_tables(router, table)
    wait_until(lambda: row(router)["problem"] == "", PATIENCE, lambda: f"{row(router)}")
    assert row(router)["doing"].startswith("installed: ")


def test_a_route_of_somebody_else_in_that_table_stays(router):
    router.net.ip("route add 198.51.100.0/24 via 10.0.0.2 dev r0 table 10 metric 5 proto static")
    router.net.ip("link set r0-p down")
    wait_tables(router)
    router.net.ip("link set r0-p up")
    wait_tables(router, 10)
    assert "proto static metric 5" in router.net.ip("route show table 10")
