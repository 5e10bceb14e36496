"""Random changes to a router's interfaces, routes, policy rules and next-hop objects.

A storm is many batches of `ip` commands, made by chance and one after the other without a pause. Not
all of them make sense where they strike; what the kernel refuses changes nothing. The same seed makes
the same commands.
"""

import os

from seeds import seeded_chance

LINKS = range(6)
PATHS = 5  # next-hop objects 1 to PATHS; groups of them have the numbers from GROUPS on
GROUPS = range(11, 14)
REFUSALS = ("blackhole", "unreachable", "prohibit", "throw")
SIZES = (3, 5, 7, 9, 20, 100, 501)  # of a batch
PREFERENCES = range(100, 108)
SIDE_TABLES = (100, 200)
# The rule of the local table changes its place, as with VRFs, or goes.
LOCAL_FIRST = "rule add pref 0 lookup local\nrule del pref 32765 lookup local"
LOCAL_GONE = "rule del pref 0 lookup local"
LOCAL_LAST = f"rule add pref 32765 lookup local\n{LOCAL_GONE}"

# Routes of all lengths for one address: only the longest one of each family can be up.
FAMILIES = [[f"10.{number}.0.0/{length}" for length in (16, 17, 18, 20, 24, 25, 26, 30, 31, 32)]
            for number in range(128, 148)]
# Two of them are for many hosts at once, and one is covered by a route of the local table.
SINGLES = ["224.0.0.0/4", "239.1.0.0/16", "240.0.0.0/4", "127.9.0.0/16",
           *(f"192.168.{number}.0/24" for number in range(66))]
ROUTES = [prefix for family in FAMILIES for prefix in family] + SINGLES


def addresses(number):
    """The router's own on a link: one of a /24, and the even or odd one of a /31."""
    return [f"10.0.{number}.1/24", f"10.1.{number}.{number % 2}/31"]


CONNECTED = [prefix for number in LINKS
             for prefix in (f"10.0.{number}.0/24", f"10.0.{number}.1/32", f"10.1.{number}.0/31",
                            f"10.1.{number}.0/32", f"10.1.{number}.1/32")]
PREFIXES = ROUTES + CONNECTED
INTERFACES = ["lo"] + [f"{name}{number}{end}" for number in LINKS
                       for name, end in (("w", ""), ("r", ""), ("w", "-p"))]


def bfd_storm(build):
    """How long a storm of BFD sessions lasts, OT_SECONDS or what a usual test may take, and its
    chance."""
    seconds = float(os.environ.get("OT_SECONDS", 8 if build.sanitized else 15))
    return seconds, seeded_chance()


class Storm:
    def __init__(self, net, elsewhere, chance):
        """Makes the links in `net`, a namespace; `elsewhere` is another one."""
        self._net = net
        self._elsewhere = elsewhere
        self._chance = chance
        self._names = [f"w{number}" for number in LINKS]
        self._net.try_batch(["link set lo up", *(line for number in LINKS
                                                 for line in self._plug(number))])

    def blow(self, batches):
        """So many batches of any kind."""
        kinds = (self.flaps, self.flaps, self.routes, self.rules, self.paths, self.links)
        for _ in range(batches):
            self._chance.choice(kinds)()

    def end(self):
        """Takes away whatever rules there are, and brings every link back."""
        self._batch([LOCAL_FIRST, "rule flush", "rule add pref 32766 lookup main",
                     "rule add pref 32767 lookup default"])
        for number in LINKS:
            self._bring_back(number)

    # --- Batches ---------------------------------------------------------------------------------

    def flaps(self):
        """A few routes come and go, each many times."""
        size = self._chance.choice(SIZES)
        count = min(max(1, size // self._chance.randrange(1, 10)), len(ROUTES))
        flapping = self._chance.sample(ROUTES, count)
        self._batch([self._flap(self._chance.choice(flapping)) for _ in range(size)])

    def routes(self):
        self._batch([self._route(self._chance.choice(ROUTES))
                     for _ in range(self._chance.randrange(3, 60))])

    def rules(self):
        lines = [self._rule() for _ in range(self._chance.randrange(1, 5))]
        for table in SIDE_TABLES:
            destination = self._chance.choice(["default", "10.0.0.0/8", *ROUTES])
            lines.append(f"route replace {destination} dev {self._name()} table {table}")
        local = self._chance.choice([prefix for prefix in ROUTES if not prefix.endswith("/32")])
        lines.append(f"route {self._chance.choice(('add', 'del'))} local {local} dev lo")
        lines += [self._flap(self._chance.choice(ROUTES)) for _ in range(self._chance.randrange(9))]
        self._chance.shuffle(lines)
        self._batch(lines)

    def paths(self):
        lines = [self._path() for _ in range(self._chance.randrange(1, 8))]
        lines += [self._route(self._chance.choice(ROUTES), f"nhid {self._path_number()}")
                  for _ in range(self._chance.randrange(1, 20))]
        self._chance.shuffle(lines)
        self._batch(lines)

    def links(self):
        number = self._chance.choice(LINKS)
        change = self._chance.choice((self._switch, self._carrier, self._rename, self._readdress,
                                      self._exchange, self._move, self._bring_back))
        change(number)

    # --- Single commands -------------------------------------------------------------------------

    def _flap(self, prefix):
        return self._chance.choice((f"route replace {prefix} {self._gateway()}",
                                    f"route replace blackhole {prefix}", f"route del {prefix}"))

    def _route(self, prefix, target=None):
        verb = self._chance.choice(("add", "replace", "append", "del", "del"))
        metric = self._chance.choice(("", "", " metric 10", " metric 20"))
        if verb == "del":
            return f"route del {prefix}{metric}"
        if target is None and self._chance.randrange(4) == 0:
            return f"route {verb} {self._chance.choice(REFUSALS)} {prefix}{metric}"
        return f"route {verb} {prefix}{metric} {target or self._target()}"

    def _target(self):
        return self._chance.choice((
            self._gateway(), self._gateway(), f"dev {self._name()}",
            f"nexthop {self._gateway()} nexthop {self._gateway()}", f"nhid {self._path_number()}"))

    def _gateway(self):
        number = self._chance.choice(LINKS)
        return f"via 10.0.{number}.2 dev {self._names[number]}"

    def _path_number(self):
        return self._chance.choice((*range(1, PATHS + 1), *GROUPS))

    def _path(self):
        path = self._chance.randrange(1, PATHS + 1)
        group = self._chance.choice(GROUPS)
        return self._chance.choice((
            f"nexthop replace id {path} {self._gateway()}",
            f"nexthop replace id {path} dev {self._name()}",
            f"nexthop replace id {path} blackhole",
            f"nexthop replace id {group} group {path}/{self._chance.randrange(1, PATHS + 1)}",
            f"nexthop del id {self._path_number()}"))

    def _rule(self):
        table = self._chance.choice(SIDE_TABLES)
        action = self._chance.choice((
            f"lookup {table}", f"to {self._chance.choice(ROUTES)} lookup {table}",
            f"not fwmark 0x51 lookup {table}", f"iif lo lookup {table}",
            "lookup main suppress_prefixlength 0", "unreachable", "blackhole", "prohibit",
            f"to {self._chance.choice(ROUTES)} unreachable"))
        preference = self._chance.choice(PREFERENCES)
        return self._chance.choice((
            f"rule add pref {preference} {action}", f"rule add pref {preference} {action}",
            f"rule del pref {preference}", "rule del pref 32766",
            "rule add pref 32766 lookup main", LOCAL_LAST, LOCAL_FIRST, LOCAL_GONE))

    # --- Links -----------------------------------------------------------------------------------

    def _plug(self, number):
        return [f"link add w{number} type veth peer name w{number}-p",
                *self._lines_of(number, f"w{number}")]

    @staticmethod
    def _lines_of(number, name):
        return [f"link set {name} up", f"link set w{number}-p up",
                *(f"address replace {address} dev {name}" for address in addresses(number))]

    def _switch(self, number):
        states = self._chance.choices(("up", "down"), k=self._chance.randrange(1, 4))
        self._batch([f"link set {self._names[number]} {state}" for state in states])

    def _carrier(self, number):
        states = self._chance.choices(("up", "down"), k=self._chance.randrange(1, 4))
        self._batch([f"link set w{number}-p {state}" for state in states])

    def _rename(self, number):
        before = self._names[number]
        self._names[number] = f"{'r' if before[0] == 'w' else 'w'}{number}"
        self._batch([f"link set {before} name {self._names[number]}"])

    def _readdress(self, number):
        verbs = self._chance.choices(("add", "del", "replace"), k=self._chance.randrange(1, 5))
        self._batch([f"address {verb} {self._chance.choice(addresses(number))} "
                     f"dev {self._names[number]}" for verb in verbs])

    def _exchange(self, number):
        """Another pair takes the place of this one."""
        before = self._names[number]
        self._names[number] = f"w{number}"
        self._batch([f"link del {before}", *self._plug(number)])

    def _move(self, number):
        """To the other namespace; often back at once."""
        self._batch([f"link set {self._names[number]} netns {self._elsewhere.name}"])
        if self._chance.randrange(3) != 0:
            self._bring_back(number)

    def _bring_back(self, number):
        name = self._names[number]
        self._elsewhere.try_batch([f"link set {name} netns {self._net.name}"])
        self._batch(self._lines_of(number, name))

    def _name(self):
        return self._chance.choice(self._names)

    def _batch(self, lines):
        print("\n".join(lines) + "\n--")  # shown with a failure
        self._net.try_batch(lines)
