"""Whatever is killed while tracks change and others delete and add routes: in the end the kernel's
routes, the interfaces and the files are what policies and states say, and nobody else's route has
changed. OT_ROUNDS makes it longer, OT_SEED repeats it."""

import os

from policy import Trackpolicy, lines
from seeds import seeded_chance
from waiting import wait_until

ROUNDS = int(os.environ.get("OT_ROUNDS", "5"))
TRACKS = ("a", "b", "c")
PREFIXES = [f"198.51.100.{16 * n}/28" for n in range(8)] + [f"2001:db8:{n}::/48" for n in range(1, 5)]


class Storm:
    """Each track follows an interface of its own; a route or two, an access interface and a file
    follow each track. All routes leave through "out"."""

    def __init__(self, rng, service):
        self.rng, self.service, self.net = rng, service, service.net
        self.policy = Trackpolicy(service)
        os.makedirs(self.policy.path("run/site"))
        self.net.link("out")
        self.net.ip("address add 192.0.2.2/24 dev out")
        self.up = {}
        self.down_by_hand = set()
        self.foreign = set()
        for name in TRACKS:
            self.net.link(f"up-{name}")
            self.net.link(f"acc-{name}")
            service.ctl("set", name, "interface", f"up-{name}")
            service.wait_state(name, "up")
            self.up[name] = True
        self.configure()

    def configure(self):
        """Some of the policies that there could be; each prefix belongs to one track."""
        self.routes = {}
        rows = []
        for number, prefix in enumerate(PREFIXES):
            if self.rng.random() < 0.8:
                track = self.rng.choice(TRACKS)
                self.routes[prefix] = track
                gateway = {} if ":" in prefix else {"via": "192.0.2.1"}
                rows.append({"name": f"r{number}", "track": track, "kind": "route", "to": prefix,
                             "dev": "out", "metric": 5, **gateway})
        self.links = [name for name in TRACKS if self.rng.random() < 0.7]
        rows += [{"name": f"l-{name}", "track": name, "kind": "link", "interface": f"acc-{name}"}
                 for name in self.links]
        rows += [{"name": f"f-{name}", "track": name, "kind": "file", "grace": "30s",
                  "path": f"/run/site/{name}", "text_up": "up", "text_down": "down"}
                 for name in TRACKS]
        self.policy.configure(*rows)

    # --- What happens -----------------------------------------------------------------------------

    def change_track(self):
        name = self.rng.choice(TRACKS)
        self.up[name] = not self.up[name]
        self.net.carrier(f"up-{name}", self.up[name])

    def delete_ours(self):
        self.net.try_batch([f"route del {prefix} proto 113"
                            for prefix in self.rng.sample(PREFIXES, 3)])

    def leave_behind(self):
        self.net.try_batch(["route add 203.0.113.64/28 dev out proto 113"])

    def change_foreign(self):
        """A prefix of ours with another metric, or one of nobody's."""
        prefix = self.rng.choice([*PREFIXES, "203.0.113.0/24"])
        action = "del" if prefix in self.foreign else "add"
        self.net.ip(f"route {action} {prefix} dev out metric 50 proto static")
        self.foreign ^= {prefix}

    def shake_out(self):
        self.net.ip("link set out down")
        self.net.ip("link set out up")
        # What the others lose with it is not for us to bring back.
        self.net.try_batch([f"route add {prefix} dev out metric 50 proto static"
                            for prefix in self.foreign])

    def set_up_by_hand(self):
        self.net.ip(f"link set acc-{self.rng.choice(TRACKS)} up")

    def reload(self):
        self.configure()
        self.policy.reload()

    def kill(self):
        victims = self.rng.choice(["policy", "service", "both"])
        if victims != "policy":
            self.service.crash()
        if victims != "service":
            self.policy.kill()
            if self.rng.random() < 0.5:
                self.configure()
        for _ in range(self.rng.randrange(3)):
            self.change_something()
        if victims != "policy":
            self.service.start()
        if victims != "service":
            self.policy.start()

    def change_something(self):
        self.rng.choice([self.change_track, self.change_track, self.delete_ours, self.leave_behind,
                         self.change_foreign, self.shake_out, self.set_up_by_hand])()

    # --- What is there in the end -----------------------------------------------------------------

    def routes_of(self, protocol):
        found = set()
        for family in ("-4", "-6"):
            for each in self.net.query(f"{family} route show table all proto {protocol}"):
                found.add((each["dst"], each.get("metric", 0), each["dev"]))
        return found

    def disagreement(self):
        """What is wrong, or nothing."""
        expected = {(prefix, 5, "out") for prefix, track in self.routes.items() if self.up[track]}
        if self.routes_of(113) != expected:
            return f"routes {self.routes_of(113)} in place of {expected}"
        foreign = {(prefix, 50, "out") for prefix in self.foreign}
        if self.routes_of("static") != foreign:
            return f"others' routes {self.routes_of('static')} in place of {foreign}"
        for name in TRACKS:
            flags = self.net.query(f"link show acc-{name}")[0]["flags"]
            if ("UP" in flags) != (self.up[name] or name not in self.links):
                return f"acc-{name} {flags}, {name} is {self.up[name]}"
            written = lines(self.policy.path(f"run/site/{name}"))
            if written != ["up" if self.up[name] else "down"]:
                return f"file of {name}: {written}"
        return ""


def test_in_the_end_the_kernel_has_what_policies_and_states_say(service):
    storm = Storm(seeded_chance(), service)
    storm.policy.start()
    try:
        for _ in range(ROUNDS):
            for _ in range(storm.rng.randrange(1, 6)):
                storm.change_something()
            storm.rng.choice([storm.kill, storm.kill, storm.reload])()
            for _ in range(storm.rng.randrange(4)):
                storm.change_something()
            wait_until(lambda: not storm.disagreement(), service.build.patience, storm.disagreement)
    finally:
        storm.policy.close()
