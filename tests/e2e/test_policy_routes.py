"""Routes and interfaces that follow tracks: what the kernel has in the end."""

import os
import subprocess

import pytest

from build_tree import SOURCE
from policy import Trackpolicy
from waiting import wait_until

PROTOCOL = "113"


def route(name, track, to, **keys):
    return {"name": name, "track": track, "kind": "route", "to": to, **keys}


def link(name, track, interface):
    return {"name": name, "track": track, "kind": "link", "interface": interface}


class Site:
    """Two uplinks with a track on each, and trackpolicy, not started yet."""

    def __init__(self, service):
        self.service = service
        self.net = service.net
        for number in (1, 2):
            self.net.link(f"wan{number}")
            self.net.ip(f"address add 192.0.{number}.2/24 dev wan{number}")
            service.ctl("set", f"up{number}", "interface", f"wan{number}")
            service.wait_state(f"up{number}", "up")
        self.policy = Trackpolicy(service)

    def close(self):
        self.policy.close()

    def without_ipv6(self):
        """Its addresses, which come and go with the links, would make trackpolicy look again."""
        subprocess.run([*self.net.command(), "sysctl", "-qw", "net.ipv6.conf.all.disable_ipv6=1"],
                       check=True)

    def routes(self, family="-4", which=("proto", PROTOCOL)):
        """Those of ours, as `ip` writes them."""
        text = self.net.ip(" ".join([family, "route show table all", *which]))
        return sorted(" ".join(line.split()).replace(f" proto {PROTOCOL}", "")
                      for line in text.splitlines())

    def wait_routes(self, expected, family="-4"):
        wait_until(lambda: self.routes(family) == expected, self.service.build.patience,
                   lambda: f"{expected} in place of {self.routes(family)}")

    def is_up(self, interface):
        return "UP" in self.net.query(f"link show {interface}")[0]["flags"]

    def wait_up(self, interface, up):
        wait_until(lambda: self.is_up(interface) == up, self.service.build.patience,
                   f"{interface} {'up' if up else 'down'}")

    def wait_doing(self, name, doing):
        self.policy.wait_doing(name, doing)

    def problem(self, name):
        return self.policy.list()[name]["problem"]

    def wait_problem(self, name, text):
        wait_until(lambda: text in self.problem(name), self.service.build.patience,
                   lambda: f"{text!r} in place of {self.policy.list()[name]}")


@pytest.fixture
def site(service, closing):
    return closing(Site(service))


def test_default_routes_follow_their_uplinks(site):
    site.policy.configure(route("first", "up1", "default", via="192.0.1.1", metric=10),
                          route("second", "up2", "default", via="192.0.2.1", metric=20))
    site.policy.start()
    both = ["default via 192.0.1.1 dev wan1 metric 10", "default via 192.0.2.1 dev wan2 metric 20"]
    site.wait_routes(both)
    site.net.carrier("wan1", False)
    site.wait_routes(both[1:])
    site.wait_doing("first", "withheld by up1: default via 192.0.1.1 metric 10")
    site.net.carrier("wan1", True)
    site.wait_routes(both)
    site.wait_doing("first", "installed: default via 192.0.1.1 metric 10")


def test_all_that_a_route_can_have_is_kept_as_it_is(site):
    """What the kernel reports of each is what was asked for: a comparison finds nothing to do."""
    site.net.ip("-6 address add 2001:db8::2/64 dev wan1 nodad")
    site.policy.configure(
        route("a", "up2", "198.51.100.0/24", via="203.0.113.1", dev="wan1", onlink=True, mtu=1400,
              table=1000, metric=7, source="192.0.1.2"),
        route("b", "up2", "203.0.113.0/24", dev="wan1"),
        route("c", "up2", "2001:db8:1::/48", via="2001:db8::1", mtu=1300),
        route("d", "up2", "default", via="fe80::1", dev="wan1", metric=5, onlink=True),
        route("e", "up2", "2001:db8:2::/48", dev="wan1", source="2001:db8::2", table=1000))
    site.policy.start()
    four = ["198.51.100.0/24 via 203.0.113.1 dev wan1 table 1000 src 192.0.1.2 metric 7 onlink "
            "mtu 1400", "203.0.113.0/24 dev wan1 scope link"]
    six = ["2001:db8:1::/48 via 2001:db8::1 dev wan1 metric 1024 mtu 1300 pref medium",
           "2001:db8:2::/48 dev wan1 table 1000 src 2001:db8::2 metric 1024 pref medium",
           "default via fe80::1 dev wan1 metric 5 onlink pref medium"]
    site.wait_routes(four)
    site.wait_routes(six, "-6")
    runs = dict.fromkeys("abcde", 1)
    wait_until(lambda: {name: row["runs"] for name, row in site.policy.list().items()} == runs,
               site.service.build.patience, "each is done once")
    site.net.ip("address add 192.0.1.99/32 dev mark-up")  # makes it compare
    site.net.ip(f"route del 203.0.113.0/24 dev wan1 proto {PROTOCOL}")
    wait_until(lambda: site.policy.list()["b"]["runs"] == 2, site.service.build.patience, "again")
    assert {**runs, "b": 2} == {name: row["runs"] for name, row in site.policy.list().items()}
    site.net.carrier("wan2", False)
    site.wait_routes([])
    site.wait_routes([], "-6")


def test_what_others_take_away_comes_back(site):
    site.without_ipv6()
    site.policy.configure(route("r", "up2", "198.51.100.0/24", via="192.0.1.1"))
    site.policy.start()
    expected = ["198.51.100.0/24 via 192.0.1.1 dev wan1"]
    site.wait_routes(expected)
    site.net.ip("route del 198.51.100.0/24")
    site.wait_routes(expected)
    for more in "mtu lock 1400", "advmss 1000", "realm 7", "initcwnd 3":
        site.net.ip(f"route change 198.51.100.0/24 via 192.0.1.1 proto {PROTOCOL} {more}")
        site.wait_routes(expected)
    site.net.ip("link set wan1 down")  # takes the route without a word
    site.wait_problem("r", "Network is unreachable")
    site.net.ip("link set wan1 up")
    site.wait_routes(expected)
    site.net.ip("address del 192.0.1.2/24 dev wan1")
    site.wait_problem("r", "Network is unreachable")
    site.net.ip("address add 192.0.1.2/24 dev wan1")
    site.wait_routes(expected)
    site.net.ip("link del wan1")
    site.wait_problem("r", "Network is unreachable")
    site.net.link("wan1")
    site.net.ip("address add 192.0.1.2/24 dev wan1")
    site.wait_routes(expected)
    assert site.problem("r") == ""


def test_ipv6_waits_for_an_address_that_is_still_being_checked(site):
    site.policy.configure(route("r", "up2", "2001:db8:1::/48", via="2001:db8::1", dev="wan1",
                                source="2001:db8::2"))
    site.policy.start()
    site.wait_problem("r", "No route to host")
    site.net.ip("-6 address add 2001:db8::2/64 dev wan1")
    site.wait_routes(["2001:db8:1::/48 via 2001:db8::1 dev wan1 src 2001:db8::2 metric 1024 pref "
                      "medium"], "-6")


def test_a_route_of_somebody_else_is_never_touched(site):
    site.without_ipv6()
    site.net.ip("route add default via 192.0.1.9 metric 10 proto static")
    foreign = site.routes(which=("proto", "static"))
    site.policy.configure(route("r", "up2", "default", via="192.0.1.1", metric=10))
    site.policy.start()
    site.wait_problem("r", "File exists: somebody else's route to the same destination")
    site.wait_doing("r", "refused: default via 192.0.1.1 metric 10")
    assert site.policy.wait_said("r: File exists") == 1
    site.net.carrier("wan2", False)
    site.wait_doing("r", "withheld by up2: default via 192.0.1.1 metric 10")
    assert site.routes(which=("proto", "static")) == foreign
    site.net.carrier("wan2", True)
    site.wait_problem("r", "File exists")
    site.net.ip("route del default via 192.0.1.9 metric 10")
    site.net.ip("address add 192.0.1.77/32 dev mark-up")  # need not wait for the next attempt
    site.wait_routes(["default via 192.0.1.1 dev wan1 metric 10"])
    # The same key beside ours, and ours replaced.
    site.net.ip("route append default via 192.0.1.9 metric 10 proto static")
    site.net.carrier("wan2", False)
    site.wait_routes([])
    assert site.routes(which=("proto", "static")) == foreign
    site.net.ip("route del default via 192.0.1.9 metric 10")
    site.net.carrier("wan2", True)
    site.wait_routes(["default via 192.0.1.1 dev wan1 metric 10"])
    site.net.ip("route replace default via 192.0.1.9 metric 10 proto static")
    site.wait_problem("r", "File exists")
    assert site.routes(which=("proto", "static")) == foreign


def test_a_route_that_somebody_replaces_is_refused_from_then_on(site):
    site.without_ipv6()
    site.policy.configure(route("r", "up2", "default", via="192.0.1.1", metric=10))
    site.policy.start()
    site.wait_doing("r", "installed: default via 192.0.1.1 metric 10")
    site.net.ip("route replace default via 192.0.1.9 metric 10 proto static")
    site.wait_problem("r", "File exists")
    assert site.routes(which=("proto", "static")) == ["default via 192.0.1.9 dev wan1 metric 10"]


def test_somebodys_next_hop_beside_ours_stays(site):
    """IPv6 makes one route with two next hops of it, which the kernel reports as ours."""
    site.net.ip("-6 address add 2001:db8::2/64 dev wan1 nodad")
    site.policy.configure(route("r", "up2", "2001:db8:1::/48", via="2001:db8::1"))
    site.policy.start()
    site.wait_doing("r", "installed: 2001:db8:1::/48 via 2001:db8::1")
    site.net.ip("-6 route append 2001:db8:1::/48 via 2001:db8::9 metric 1024 proto static")
    site.net.carrier("wan2", False)
    site.wait_routes([], "-6")
    assert "via 2001:db8::9" in site.net.ip("-6 route show 2001:db8:1::/48 proto static")
    site.net.carrier("wan2", True)
    site.wait_problem("r", "File exists: somebody else's route")


def test_routes_outlive_trackpolicy_and_are_compared_at_its_next_start(site):
    keys = {"via": "192.0.1.1"}
    site.policy.configure(route("a", "up2", "198.51.100.0/25", **keys),
                          route("b", "up2", "198.51.100.128/25", **keys))
    site.policy.start()
    a, b = "198.51.100.0/25 via 192.0.1.1 dev wan1", "198.51.100.128/25 via 192.0.1.1 dev wan1"
    site.wait_routes([a, b])
    site.policy.stop()
    assert site.routes() == [a, b]
    site.net.ip("route del 198.51.100.128/25")
    site.net.ip(f"route add 203.0.113.0/24 via 192.0.1.1 proto {PROTOCOL}")  # of ours, left behind
    site.policy.configure(route("b", "up2", "198.51.100.128/25", **keys))
    site.policy.start()
    site.wait_routes([b])
    site.policy.configure()
    assert site.policy.reload().endswith("reloaded: 0 policies")
    site.wait_routes([])


def test_what_is_left_of_policies_that_there_are_no_more_goes_at_the_start(site):
    site.policy.configure(route("r", "up2", "198.51.100.0/24", dev="wan1"),
                          link("l", "up2", "mark-up"))
    site.policy.start()
    site.wait_routes(["198.51.100.0/24 dev wan1 scope link"])
    site.net.carrier("wan2", False)
    site.wait_up("mark-up", False)
    site.policy.kill()
    site.net.ip(f"route add 198.51.100.0/24 dev wan1 proto {PROTOCOL}")
    site.policy.configure()
    site.policy.start()
    site.wait_routes([])
    site.wait_up("mark-up", True)
    memory = site.policy.path("run/object_tracking/policies/.links")
    wait_until(lambda: not os.path.exists(memory), site.service.build.patience, "no memory")


def test_after_the_last_route_an_instance_is_one_without_routes(site):
    mark = site.policy.path("run/object_tracking/policies/.routes")
    site.policy.configure(route("r", "up1", "203.0.113.0/24", via="192.0.1.1"))
    site.policy.start()
    site.wait_routes(["203.0.113.0/24 via 192.0.1.1 dev wan1"])
    assert os.path.exists(mark)
    site.policy.configure()
    site.policy.reload()
    site.wait_routes([])
    wait_until(lambda: not os.path.exists(mark), site.service.build.patience, "no mark")


def test_what_was_refused_is_tried_again_when_something_has_changed(site):
    """At once with an address, and within 5 seconds when a route makes the gateway reachable."""
    site.without_ipv6()
    site.policy.configure(route("a", "up1", "203.0.113.0/24", via="198.51.100.1"),
                          route("b", "up1", "203.0.114.0/24", via="198.51.101.1"))
    site.policy.start()
    site.wait_problem("a", "the gateway is on none of the router's networks")
    site.wait_problem("b", "the gateway is on none of the router's networks")
    site.net.ip("address add 198.51.100.2/24 dev wan1")
    wait_until(lambda: len(site.routes()) == 1, 3, "well before the next attempt")
    site.net.ip("route add 198.51.101.0/24 dev wan1 scope link")
    site.wait_routes(["203.0.113.0/24 via 198.51.100.1 dev wan1",
                      "203.0.114.0/24 via 198.51.101.1 dev wan1"])


def test_an_instance_without_routes_leaves_those_of_others_alone(site):
    site.net.ip(f"route add 203.0.113.0/24 via 192.0.1.1 proto {PROTOCOL}")
    site.policy.configure(link("l", "up2", "mark-dn"))
    site.policy.start()
    site.wait_doing("l", "mark-dn is down, and not by trackpolicy")
    assert site.routes() == ["203.0.113.0/24 via 192.0.1.1 dev wan1"]


def test_an_access_interface_follows_its_uplink(site):
    site.policy.configure(link("l", "up1", "mark-up"), link("own", "up1", "mark-dn"))
    site.policy.start()
    site.wait_doing("l", "mark-up is up")
    site.net.carrier("wan1", False)
    site.wait_up("mark-up", False)
    site.wait_doing("l", "mark-up is set down")
    site.policy.kill()
    site.policy.start()
    site.wait_doing("own", "mark-dn is down, and not by trackpolicy")
    site.net.carrier("wan1", True)
    site.wait_up("mark-up", True)
    assert not site.is_up("mark-dn")  # it was set down before, by the operator


def test_an_interface_that_the_track_depends_on_is_not_set_down(site):
    site.service.ctl("set", "all", "and", "up2", "way")
    site.net.ip("route add 203.0.113.0/24 dev mark-up")
    site.service.ctl("set", "way", "route", "203.0.113.0/24")
    site.service.wait_state("all", "up")
    site.policy.configure(link("l", "all", "mark-up"))
    said = site.service.run("trackctl", "policy", "check")
    assert (said.returncode, said.stderr) == (
        1, 'l: mark-up is not set down: track "all" depends on it (way has its route through it), '
           "and would never be up again\n")
    assert site.service.run("trackctl", "policy", "check", "--files-only").returncode == 0
    site.policy.start()
    site.wait_problem("l", 'track "all" depends on it')
    site.net.carrier("wan2", False)
    site.service.wait_state("all", "down")
    # What the track has come to depend on meanwhile counts, too.
    site.policy.configure(link("m", "up1", "wan2"))
    site.policy.reload()
    site.service.ctl("set", "up1", "interface", "wan2")
    site.wait_problem("m", 'track "up1" depends on it (up1 follows it)')
    assert site.is_up("wan2") and site.is_up("mark-up")


def test_what_lies_below_the_interface_of_a_track_is_not_set_down_either(site):
    """As a VLAN on its interface, one end of a veth stands on the other."""
    site.policy.configure(link("l", "up1", "wan1-p"), link("m", "up1", "mark-dn"))
    said = site.service.run("trackctl", "policy", "check", prefix=site.net.command())
    assert (said.returncode, said.stderr) == (
        1, 'l: wan1-p is not set down: track "up1" depends on it (up1 follows wan1, which lies on '
           "it), and would never be up again\n")
    site.policy.start()
    site.wait_problem("l", "up1 follows wan1, which lies on it")
    site.net.ip("link set wan1 down")
    site.service.wait_state("up1", "down")
    site.wait_doing("l", "wan1-p is up")


def test_what_the_kernel_refuses_is_said_in_words(site):
    site.policy.configure(
        route("none", "up2", "198.51.100.0/28", dev="none0"),
        route("far", "up2", "198.51.100.16/28", via="10.9.9.9"),
        route("down", "up2", "198.51.100.32/28", dev="mark-dn"),
        route("vrf", "up2", "198.51.100.48/28", dev="wan1", vrf="blue"),
        route("bad6", "up2", "2001:db8:1::/48", via="2001:db8:ffff::1"),
        route("src", "up2", "198.51.100.64/28", dev="wan1", source="10.9.9.9"),
        link("gone", "up2", "none1"))
    site.policy.start()
    for name, text in {"none": 'there is no interface "none0"',
                       "far": "Network is unreachable: the gateway is on none",
                       "down": "the kernel: Device for nexthop is not up",
                       "vrf": 'there is no VRF "blue"',
                       "bad6": "the gateway is on none",
                       "src": "Invalid argument (the kernel: Invalid prefsrc address)",
                       "gone": 'there is no interface "none1"'}.items():
        site.wait_problem(name, text)
    text = site.service.ctl("policy", "list")
    assert "refused: 198.51.100.16/28 via 10.9.9.9; Network is unreachable" in text


def test_without_the_right_to_it_is_said(site):
    site.policy.configure(route("r", "up2", "198.51.100.0/24", dev="wan1"),
                          link("l", "up1", "mark-up"))
    net = site.net

    class Bare:
        """The namespace, without the right to change it."""
        def command(self):
            return [*net.command(), "setpriv", "--bounding-set", "-net_admin", "--inh-caps",
                    "-net_admin"]

    site.service.net = Bare()
    site.policy.start()
    site.service.net = net
    site.wait_problem("r", "trackpolicy has not the right to change routes (CAP_NET_ADMIN)")
    net.carrier("wan1", False)
    site.wait_problem("l", "mark-up cannot be set down: Operation not permitted")
    assert site.is_up("mark-up")


def test_what_would_be_done_is_printed_and_not_done(site):
    site.policy.configure(route("r", "up2", "default", via="192.0.1.1", dev="wan1", metric=5),
                          link("l", "up1", "mark-up"))
    def would(name, state):
        return site.service.ctl("policy", "test", name, state).split(", it ", 1)[1].strip()
    assert would("r", "up") == "installs the route default via 192.0.1.1 dev wan1 metric 5"
    assert would("r", "down") == "withdraws the route default via 192.0.1.1 dev wan1 metric 5"
    assert would("l", "down") == "sets mark-up down, unless it is down already"
    assert would("l", "up") == "sets mark-up up again, if this policy has set it down"
    assert would("l", "unknown") == "does nothing: mark-up stays as it is"
    assert site.routes() == [] and site.is_up("mark-up")


def test_many_routes_on_one_link_follow_it_together(site):
    count = 300
    site.policy.configure(*(route(f"r{n}", "up2", f"10.{n // 250}.{n % 250}.0/24", via="192.0.1.1")
                            for n in range(count)))
    site.policy.start()
    for up in (True, False, True):
        site.net.carrier("wan2", up)
        wait_until(lambda: len(site.routes()) == (count if up else 0),
                   site.service.build.patience, "all of them")


def test_the_number_of_our_routes_is_no_one_elses_and_has_a_name():
    known = subprocess.run(["grep", "-sE", rf"^\s*{PROTOCOL}\s", "/etc/iproute2/rt_protos",
                            "/usr/share/iproute2/rt_protos"], stdout=subprocess.PIPE, text=True)
    assert known.stdout == ""
    with open(SOURCE / "packaging/rt_protos.conf", encoding="ascii") as stream:
        assert f"{PROTOCOL}\ttrackpolicy\n" in stream
