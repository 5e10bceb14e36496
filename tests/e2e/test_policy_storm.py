"""Policies of all kinds at once, while tracks change, others take things away, policies are changed and
broken, and whatever runs is killed: in the end commands, files, routes and interfaces are what policies
and states say, and each command was told each state once, one after the other. OT_ROUNDS makes it longer,
OT_SEED repeats it."""

import os
import time

from policy import Trackpolicy, lines
from policy_mixture import ACCESS, Mixture, routes_there
from policy_trace import Traces
from seeds import seeded_chance
from waiting import wait_until

ROUNDS = int(os.environ.get("OT_ROUNDS", "3"))
INTERFACES = ("a", "b", "c")  # tracks of an interface each; "any" is up when a or b is


class Storm:
    def __init__(self, rng, service):
        self.rng, self.service, self.net = rng, service, service.net
        os.chmod(service.root, 0o755)
        self.policy = Trackpolicy(service)
        os.makedirs(self.policy.path("run/site"))
        self.traces = Traces(self.policy.path("told"))
        self.mixture = Mixture(rng, self.policy, self.traces)
        self.net.link("out")
        self.net.ip("address add 192.0.2.2/24 dev out")
        for name in ACCESS:
            self.net.link(name)
        self.patience = 2 * service.build.patience
        self.up = {}
        self.deleted = self.was_deleted = False  # the track c
        self.down_by_hand = set()
        for name in INTERFACES:
            self.net.link(f"up-{name}")
            self.up[name] = True
            self.make(name)
        service.ctl("set", "any", "or", "a", "b")
        self.mixture.configure()

    def make(self, name):
        self.service.ctl("set", name, "interface", f"up-{name}")

    def states(self):
        found = {name: "up" if self.up[name] else "down" for name in INTERFACES}
        found["any"] = "up" if self.up["a"] or self.up["b"] else "down"
        if self.deleted:
            found["c"] = "unknown"
        return found

    # --- What happens to tracks and to what policies keep ----------------------------------------------

    def change_track(self):
        name = self.rng.choice(INTERFACES)
        self.up[name] = not self.up[name]
        self.net.carrier(f"up-{name}", self.up[name])

    def flap(self):
        """Faster than anybody can follow; in the end it is as it was."""
        name = self.rng.choice(INTERFACES)
        words = ["down", "up"] if self.up[name] else ["up", "down"]
        self.net.ip_batch([f"link set up-{name}-p {word}" for word in words * self.rng.randrange(1, 5)])

    def delete_routes(self):
        self.net.try_batch([f"{family} route flush table {table} proto 113"
                            for family in ("-4", "-6") for table in (254, 77)])

    def leave_route_behind(self):
        self.net.try_batch([f"route add 203.0.113.64/28 dev out proto 113 metric {self.rng.randrange(9)}"])

    def shake_out(self):
        """What goes with an interface or its address, or by its failure."""
        self.net.ip_batch(self.rng.choice([
            ["link set out down", "link set out up"],
            ["address del 192.0.2.2/24 dev out", "address add 192.0.2.2/24 dev out"],
            ["link set out-p down", "link set out-p up"]]))

    def set_up_by_hand(self):
        name = self.rng.choice(ACCESS)
        self.net.ip(f"link set {name} up")
        self.down_by_hand.discard(name)

    def set_down_by_hand(self):
        """One that no policy has down, and none is about to change."""
        self.settle()
        busy = self.mixture.held_down(self.states()) | self.mixture.undecided(self.states())
        for name in set(ACCESS) - busy:
            self.net.ip(f"link set {name} down")
            self.down_by_hand.add(name)

    def make_access_anew(self):
        name = self.rng.choice(ACCESS)
        self.net.ip_batch([f"link del {name}", f"link add {name} type veth peer name {name}-p",
                           f"link set {name}-p up", f"link set {name} up"])
        self.down_by_hand.discard(name)

    # --- What happens to programs -----------------------------------------------------------------------

    def reload(self):
        changed = self.mixture.configure()
        self.traces.mark("changed", changed)
        assert self.policy.reload().startswith("trackpolicy: reloaded")
        self.traces.mark("changed", changed)

    def reload_broken(self):
        """The policies in force stay; then it is mended."""
        path = os.path.join(self.policy.folder, "30.toml")
        with open(path, "w") as stream:
            stream.write(self.rng.choice(['[[policy]]\nname = "c-a"\n', "[[policy]\n", "x = 1\n"]))
        assert self.policy.reload().startswith("trackpolicy: not reloaded")
        self.change_track()
        os.unlink(path)

    def scribble(self):
        """What others do to files is put right at the next comparison."""
        for path, _ in self.mixture.files():
            what = self.rng.randrange(3)
            if what == 0 and os.path.exists(path):
                os.unlink(path)
            elif what == 1:
                with open(path, "w") as stream:
                    stream.write("scribble")
        if self.rng.random() < 0.5:
            self.policy.reload()
        else:
            self.end_policy()
            self.policy.start()

    def delete_track(self):
        self.service.ctl("delete", "c")
        for _ in range(self.rng.randrange(3)):
            self.change_something()
        self.was_deleted = True
        self.make("c")

    def end_policy(self):
        self.rng.choice([self.policy.kill, self.policy.kill, self.policy.stop])()
        self.traces.mark("killed", self.mixture.commands())

    def end_programs(self):
        victims = self.rng.choice(["policy", "service", "both"])
        if victims == "service" and self.rng.random() < 0.3:
            self.be_away()
        elif victims != "policy":
            self.service.crash()
        if victims != "service":
            self.end_policy()
            if self.rng.random() < 0.3:
                self.traces.mark("changed", self.mixture.configure())
        for _ in range(self.rng.randrange(3)):
            self.change_something()
        for start in self.rng.sample([self.service.start] * (victims != "policy")
                                     + [self.policy.start] * (victims != "service"),
                                     1 + (victims == "both")):
            start()

    def be_away(self):
        """The service is gone for longer than the short grace, and not than the long one. What it has
        said before is done when trackpolicy knows that it is gone."""
        self.wait_service("reachable")
        self.service.crash()
        self.wait_service("gone")
        patient = {path: lines(path) for path, row in self.mixture.files() if row["grace"] == "30s"}
        hasty = {path: row for path, row in self.mixture.files() if row["grace"] != "30s"}

        def wrong():
            return {path: lines(path) for path, row in hasty.items()
                    if lines(path) != [self.mixture.text(row, "down")]}
        wait_until(lambda: not wrong(), self.patience, wrong)
        late = {path for path, row in self.mixture.files() if {"hold", "half_life"} & row.keys()}
        assert {path for path in patient if lines(path) != patient[path]} <= late

    def wait_service(self, wanted):
        """Until that is what trackpolicy knows of it."""
        wait_until(lambda: {row["service"] for row in self.policy.list().values()} == {wanted},
                   self.patience, f"the service is {wanted}")

    def change_something(self):
        self.rng.choice([self.change_track] * 4 + [
            self.flap, self.delete_routes, self.leave_route_behind, self.shake_out, self.set_up_by_hand,
            self.make_access_anew])()

    def change_more(self):
        self.rng.choice([self.end_programs] * 4 + [
            self.reload, self.reload, self.reload_broken, self.scribble, self.delete_track,
            self.set_down_by_hand, self.tell_each])()

    def tell_each(self):
        """With time to see each state, a policy with `every` is told each."""
        self.settle()
        told = {row["name"]: self.traces.count(row["name"]) for row in self.mixture.of("command")
                if row.get("every") and row["track"] == "a" and "hold" not in row
                and "half_life" not in row}
        times = self.rng.randrange(2, 30)
        for _ in range(times):
            self.up["a"] = not self.up["a"]
            self.net.carrier("up-a", self.up["a"])
            self.service.wait_state("a", self.states()["a"])
        self.settle()
        for name, before in told.items():
            wait_until(lambda: self.traces.count(name) == before + times, self.patience,
                       lambda: f"{name} {before} + {times}: {lines(self.traces.path(name))}")

    # --- What is there in the end -----------------------------------------------------------------------

    def routes_wrong(self):
        there, expected = routes_there(self.net), self.mixture.routes(self.states())
        if there.keys() != expected.keys():
            return f"routes {there} in place of {expected}"
        return {key: there[key] for key in there if len(there[key]) != 1 or not there[key] <= expected[key]}

    def interfaces_wrong(self):
        down = self.mixture.held_down(self.states()) | self.down_by_hand
        for name in set(ACCESS) - self.mixture.undecided(self.states()):
            if ("UP" in self.net.query(f"link show {name}")[0]["flags"]) != (name not in down):
                return f"{name}, down should be {down}"
        if "UP" not in self.net.query("link show up-a")[0]["flags"]:
            return "what the track a depends on is down"
        return ""

    def disagreement(self):
        """What is wrong, or nothing."""
        states = self.states()
        for row in self.mixture.of("command", "frr"):
            if self.traces.last(row["name"]) != states[row["track"]]:
                return f"{row} is not told {states[row['track']]}"
        for path, row in self.mixture.files():
            if lines(path) != [self.mixture.text(row, states[row["track"]])]:
                return f"{row} says {lines(path)}, {row['track']} is {states[row['track']]}"
        return self.interfaces_wrong() or self.routes_wrong()

    def settle(self):
        wait_until(lambda: not self.disagreement(), self.patience,
                   lambda: f"{self.disagreement()}\nstates {self.states()}\n{self.policy.list()}")
        for row in self.mixture.of("command", "frr"):
            known = not (row["track"] == "c" and self.was_deleted)
            wrong = self.traces.wrong(row["name"], known)
            assert not wrong, f"{wrong}\n{row}\n{lines(self.traces.path(row['name']))}"


def test_in_the_end_everything_is_what_policies_and_states_say(service):
    storm = Storm(seeded_chance(), service)
    storm.policy.start()
    began = time.monotonic()
    try:
        for number in range(ROUNDS):
            for _ in range(storm.rng.randrange(1, 6)):
                storm.change_something()
            storm.change_more()
            for _ in range(storm.rng.randrange(4)):
                storm.change_something()
            storm.settle()
    finally:
        print(f"{number + 1} rounds in {time.monotonic() - began:.0f} s")
        storm.policy.close()
