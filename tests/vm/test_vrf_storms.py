"""After any storm over VRFs, their tables, rules and links every track is what the kernel's tables
make it. OT_ROUNDS sets the number of storms, OT_SEED repeats one."""

import os

import pytest

import ledger
from guest_service import GuestNamespace
from seeds import seeded_chance
from storms import addresses
from truth import settle

ROUNDS = int(os.environ.get("OT_ROUNDS", "3"))
CALMS = 5  # in a storm: each track is looked at
VRFS = ("red", "blue", "green", "white")
TABLES = (10, 10, 20, 30, 254)  # often the same one for two
LINKS = range(3)
SINGLES = ("192.0.2.0/24", "192.0.2.0/25", "192.0.2.0/32", "192.0.0.0/16", "198.51.100.0/24")
CONNECTED = [prefix for number in LINKS
             for prefix in (f"10.0.{number}.0/24", f"10.0.{number}.1/32", f"10.1.{number}.0/31",
                            f"10.1.{number}.0/32")]
PREFERENCES = range(100, 104)


class VrfStorm:
    def __init__(self, net, elsewhere, chance):
        self._net = net
        self._elsewhere = elsewhere
        self._chance = chance
        self._net.try_batch([line for number in LINKS for line in self._plug(number)])

    def blow(self, batches):
        kinds = (self.routes, self.routes, self.rules, self.devices, self.devices, self.members,
                 self.links)
        for _ in range(batches):
            lines = self._chance.choice(kinds)()
            print("\n".join(lines) + "\n--")  # shown with a failure
            self._net.try_batch(lines)

    # --- Batches ---------------------------------------------------------------------------------

    def routes(self):
        return [self._route() for _ in range(self._chance.randrange(1, 30))]

    def rules(self):
        lines = [self._rule() for _ in range(self._chance.randrange(1, 4))]
        lines.append(f"route replace default dev {self._link()} table 100")
        return lines + [self._route() for _ in range(self._chance.randrange(4))]

    def devices(self):
        """A VRF device comes, goes, is made anew at one stroke, is switched or gets another name."""
        vrf = self._chance.choice(VRFS)
        make = [f"link add {vrf} type vrf table {self._chance.choice(TABLES)}",
                f"link set {vrf} up"]
        remove = [f"link del {vrf}"]
        rename = [f"link set {vrf} down", f"link set {vrf} name {self._chance.choice(VRFS)}",
                  *(f"link set {name} up" for name in VRFS)]
        join = [f"link set {self._link()} master {vrf}", self._route()]
        return self._chance.choice((make, make + join, remove, remove + make + join, rename,
                                    [f"link set {vrf} down"], [f"link set {vrf} up"]))

    def members(self):
        return [self._chance.choice((f"link set {self._link()} nomaster",
                                     f"link set {self._link()} master {self._chance.choice(VRFS)}"))
                for _ in range(self._chance.randrange(1, 4))] + [self._route()]

    def links(self):
        number = self._chance.choice(LINKS)
        state = self._chance.choice(("up", "down"))
        verb = self._chance.choice(("add", "del"))
        address = self._chance.choice(addresses(number))
        change = self._chance.choice(([f"link set a{number} {state}"],
                                      [f"link set a{number}-p {state}"],
                                      [f"address {verb} {address} dev a{number}"],
                                      [f"link del a{number}", *self._plug(number)],
                                      None, None))
        return change or self._move(number)

    # --- Single commands -------------------------------------------------------------------------

    def _route(self):
        table = self._chance.choice((10, 20, 30, "main"))
        prefix = self._chance.choice(SINGLES)
        number = self._chance.choice(LINKS)
        return self._chance.choice((
            f"route replace {prefix} via 10.0.{number}.2 dev a{number} table {table}",
            f"route replace {prefix} dev a{number} table {table}",
            f"route replace {self._refusal()} {prefix} table {table}",
            f"route replace {self._refusal()} default metric 4278198272 table {table}",
            f"route del {prefix} table {table}", f"route del default table {table}"))

    def _refusal(self):
        return self._chance.choice(("blackhole", "unreachable", "prohibit", "throw"))

    def _rule(self):
        vrf = self._chance.choice(VRFS)
        action = self._chance.choice((
            "lookup 100", "not fwmark 0x51 lookup 100", "unreachable", "prohibit", "blackhole",
            f"oif {vrf} lookup 100", f"oif {vrf} unreachable", f"iif {vrf} lookup 100",
            f"oif {vrf} blackhole"))
        preference = self._chance.choice(PREFERENCES)
        return self._chance.choice((f"rule add pref {preference} {action}",
                                    f"rule add pref {preference} {action}",
                                    f"rule del pref {preference}",
                                    "rule add pref 32765 lookup local", "rule del pref 32765",
                                    "rule del pref 0 lookup local", "rule add pref 0 lookup local"))

    @staticmethod
    def _plug(number):
        return [f"link add a{number} type veth peer name a{number}-p", f"link set a{number}-p up",
                f"link set a{number} up",
                *(f"address replace {address} dev a{number}" for address in addresses(number))]

    def _move(self, number):
        """To the other namespace and back."""
        self._net.try_batch([f"link set a{number} netns {self._elsewhere.name}"])
        self._elsewhere.try_batch([f"link set a{number} netns {self._net.name}"])
        return self._plug(number)

    def _link(self):
        return f"a{self._chance.choice(LINKS)}"


@pytest.fixture
def elsewhere(guest):
    net = GuestNamespace(guest)
    yield net
    net.close()


@pytest.fixture
def chance():
    return seeded_chance()


@pytest.fixture
def tracked(service):
    """A track of each route in each VRF and of each interface."""
    commits = [ledger.route_track_items(f"{vrf or 'default'}-{prefix.replace('/', '_')}",
                                         prefix, vrf)
               for vrf in (None, *VRFS) for prefix in (*SINGLES, *CONNECTED)]
    commits += [ledger.track_items(f"on-{name}", name)
                for name in (*VRFS, *(f"a{number}" for number in LINKS))]
    service.commit(commits)
    assert len(service.tracks()) == len(commits)
    return service


@pytest.mark.parametrize("_", range(ROUNDS))
def test_every_track_is_right_after_a_storm(tracked, elsewhere, chance, _):
    storm = VrfStorm(tracked.net, elsewhere, chance)
    settle(tracked)
    for _ in range(CALMS):
        storm.blow(chance.randrange(1, 8))
        settle(tracked)
