"""Line states of kinds of interfaces that not every kernel has."""

import pytest


def test_a_dummy_is_up_while_it_is_enabled(service):
    service.net.ip("link add dum0 type dummy")
    service.ctl("set", "t", "interface", "dum0")
    service.wait_states(t="down")
    service.follow()
    service.net.ip("link set dum0 up")
    service.wait_events(("t", "up"))
    service.net.ip("link set dum0 down")
    service.wait_events(("t", "up"), ("t", "down"))


@pytest.fixture
def vlan(service):
    """A VLAN v0 on the link p0, with a track of each and of a route over the VLAN, all up."""
    service.net.link("p0")
    service.net.ip("link add v0 link p0 type vlan id 7", "link set v0 up",
                   "address add 10.0.0.1/24 dev v0")
    service.ctl("set", "trunk", "interface", "p0")
    service.ctl("set", "vlan", "interface", "v0")
    service.ctl("set", "net", "route", "10.0.0.0/24")
    service.wait_states(trunk="up", vlan="up", net="up")
    return service


@pytest.mark.parametrize("end,begin", [
    ("link set p0-p down", "link set p0-p up"),
    ("link set p0 down", "link set p0 up"),
    ("link set v0 down", "link set v0 up"),
    ("link del v0", "link add v0 link p0 type vlan id 7"),
])
def test_a_vlan_follows_its_link_and_its_own_switch(vlan, end, begin):
    vlan.net.ip(end)
    vlan.wait_states(vlan="down", net="down")
    vlan.net.ip(begin, "link set v0 up", "address replace 10.0.0.1/24 dev v0")
    vlan.wait_states(trunk="up", vlan="up", net="up")


@pytest.fixture
def bond(service):
    """An active-backup bond of m0, active, and m1, with a track of each."""
    net = service.net
    net.ip("link add bond0 type bond mode active-backup miimon 20", "link set bond0 up")
    net.link("m0", "m1")
    net.ip("link set m0 down", "link set m0 master bond0", "link set m1 down",
           "link set m1 master bond0", "link set bond0 type bond active_slave m0")
    for name in ("m0", "m1", "bond0"):
        service.ctl("set", name, "interface", name)
    service.wait_states(m0="up", m1="down", bond0="up")
    return service


def test_the_backup_of_a_bond_is_down(bond):
    bond.net.ip("link set bond0 type bond active_slave m1")
    bond.wait_states(m0="down", m1="up", bond0="up")


def test_the_backup_of_a_bond_takes_over(bond):
    bond.net.ip("link set m0-p down")
    bond.wait_states(m0="down", m1="up", bond0="up")
    bond.net.ip("link set m1-p down")
    bond.wait_states(m0="down", m1="down", bond0="down")
    bond.net.ip("link set m0-p up")
    bond.wait_states(m0="up", m1="down", bond0="up")


def test_a_released_member_stands_for_itself(bond):
    bond.net.ip("link set m1 nomaster", "link set m1 up")
    bond.wait_states(m0="up", m1="up", bond0="up")


def test_a_vrf_device_and_its_member(service):
    service.net.link("r0")
    service.net.vrf("red", 10)
    service.ctl("set", "vrf", "interface", "red")
    service.ctl("set", "member", "interface", "r0")
    service.wait_states(vrf="up", member="up")
    service.net.ip("link set r0 master red")
    service.net.ip("link set red down")
    service.wait_states(vrf="down", member="up")
