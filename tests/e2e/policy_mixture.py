"""Random policies of all kinds for a storm, and what each asks for when the states are such and such."""

import os

from policy import script
from policy_trace import TELL

TRACKS = ("a", "b", "c", "any")
GATEWAYS = ("192.0.2.1", "192.0.2.3")
ACCESS = ("acc-0", "acc-1", "acc-2")


class Mixture:
    def __init__(self, rng, policy, traces):
        self.rng, self.policy = rng, policy
        self.tell = script(policy, "tell", TELL.format(folder=traces.folder))
        self.rows = {}

    def configure(self):
        """Draws policies anew and writes them; returns the names of those that are not what they were."""
        before = self.rows
        drawn = []
        for track in TRACKS:
            drawn += [self.command(track, "c"), self.command(track, "e", every=True),
                      self.failing(track), self.frr(track), self.file(track, "30s"),
                      self.file(track, "200ms")]
        drawn += [self.route(number) for number in range(10)]
        drawn += [self.link(number) for number in range(5)]
        drawn += [{"name": f"self-{track}", "track": track, "kind": "link", "interface": "up-a"}
                  for track in ("a", "any")]
        self.rows = {row["name"]: row for row in drawn if self.rng.random() < 0.8}
        self.write()
        return {name for name in {*before, *self.rows} if before.get(name) != self.rows.get(name)}

    def write(self):
        """In two files, each with some of them."""
        rows = list(self.rows.values())
        self.rng.shuffle(rows)
        half = len(rows) // 2
        self.policy.configure(*rows[:half], file="10.toml")
        self.policy.configure(*rows[half:], file="20.toml")

    def delay(self):
        """A state is held, or flaps are damped, or neither."""
        return self.rng.choice([{}, {}, {}, {"hold": "150ms"}, {"half_life": "100ms"},
                                {"half_life": "200ms", "hold": "50ms", "suppress": 1500}])

    def user(self):
        return self.rng.choice([{"user": "nobody"}, {"run_as_root": True}])

    def command(self, track, letter, **keys):
        return {"name": f"{letter}-{track}", "track": track, "kind": "command",
                "run": [*self.tell, self.rng.choice(["0", "0.03"]), "never"],
                **self.delay(), **self.user(), **keys}

    def failing(self, track):
        """At each state once, or always."""
        mode = self.rng.choice(["first", "always"])
        return {"name": f"x-{track}", "track": track, "kind": "command", "run_as_root": True,
                "run": [*self.tell, "0.01", mode], "retry": 1, "retry_delay": "100ms"}

    def frr(self, track):
        """What stands for vtysh writes down what it was told as the others do; what it is given is
        behind its own words."""
        return {"name": f"v-{track}", "track": track, "kind": "frr", "run_as_root": True,
                "vtysh": [*self.tell, "0", "never"], "up": ["x"], "down": ["y"], "unknown": ["z"],
                **self.delay()}

    def file(self, track, grace):
        return {"name": f"f-{track}-{grace}", "track": track, "kind": "file", "grace": grace,
                "path": f"/run/site/{track}-{grace}", "text_up": self.rng.choice([1, "up"]),
                "text_down": self.rng.choice(["down", -5]), **self.delay()}

    def route(self, number):
        """The first two have the same destination, by different gateways."""
        row = {"name": f"r{number}", "track": self.rng.choice(TRACKS), "kind": "route", "metric": 5,
               "dev": "out", **self.delay()}
        if number < 2:
            return {**row, "to": "203.0.113.0/24", "via": GATEWAYS[number]}
        if number < 6:
            return {**row, "to": f"198.51.100.{16 * number}/28", "via": GATEWAYS[0],
                    **self.rng.choice([{}, {"table": 77}, {"mtu": 1400}])}
        return {**row, "to": f"2001:db8:{number}::/48", **self.rng.choice([{}, {"table": 77}])}

    def link(self, number):
        row = {"name": f"l{number}", "track": self.rng.choice(TRACKS), "kind": "link",
               "interface": self.rng.choice(ACCESS), **self.delay()}
        return row

    # --- What is asked for --------------------------------------------------------------------------

    def of(self, *kinds):
        return [row for row in self.rows.values() if row["kind"] in kinds]

    def commands(self):
        return [row["name"] for row in self.of("command", "frr")]

    def routes(self, states):
        """Destination, table and metric to the gateways of which one has to be there."""
        found = {}
        for row in self.of("route"):
            if states[row["track"]] == "up":
                key = (row["to"], row.get("table", 254), row["metric"])
                found.setdefault(key, set()).add((row.get("via"), row.get("mtu")))
        return found

    def held_down(self, states):
        """The interfaces that have to be down."""
        return {row["interface"] for row in self.of("link") if states[row["track"]] == "down"} - {"up-a"}

    def undecided(self, states):
        """Those of which nobody can say it: a policy's track is unknown."""
        return {row["interface"] for row in self.of("link") if states[row["track"]] == "unknown"}

    def text(self, row, state):
        return str(row["text_up" if state == "up" else "text_down"])

    def files(self):
        return [(os.path.join(self.policy.service.root, row["path"].lstrip("/")), row)
                for row in self.of("file")]


def routes_there(net):
    """Destination, table and metric of our routes in the kernel to their gateways."""
    found = {}
    for family in ("-4", "-6"):
        for each in net.query(f"{family} -d route show table all proto 113"):
            table = {"main": 254}.get(each.get("table", "main")) or int(each["table"])
            mtu = (each.get("metrics") or [{}])[0].get("mtu")
            assert each["dev"] == "out"
            found.setdefault((each["dst"], table, each["metric"]), set()).add(
                (each.get("gateway"), mtu))
    return found
