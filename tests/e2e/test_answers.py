"""What trackctl says about tracks, held against what happens and against what else it says: what-if
against the events of the change, explain's advice by following it, history against the events, and all
views against one another. OT_SEED repeats a run, OT_ROUNDS makes it longer.
"""

import datetime
import itertools
import json
import os
import signal
import subprocess

from follower import FOLLOWING
from seeds import seeded_chance
from waiting import wait_until

LINKS = ("if-a", "if-b", "if-c")
PREFIXES = ("198.51.1.0/24", "198.51.2.0/24")
SOAK = "OT_ROUNDS" in os.environ
WORDS = {True: "up", False: "down"}


class Record:
    """Every event of the service, as it came."""

    def __init__(self, service):
        self._path = os.path.join(service.root, "events")
        with open(self._path, "wb") as output:
            self._process = subprocess.Popen(
                [*service.build.command("trackctl"), "events", "--json"], stdout=output,
                env=service.build.environment(service.root), stdin=subprocess.DEVNULL,
                stderr=subprocess.PIPE)
        assert self._process.stderr.readline() == FOLLOWING

    def close(self):
        self._process.send_signal(signal.SIGTERM)
        self._process.communicate()

    def events(self):
        with open(self._path, encoding="utf-8") as stream:
            return [json.loads(line) for line in stream.read().splitlines()]

    def catch_up(self, site):
        """Waits for all that happened before the canary came up for the last time."""
        wait_until(lambda: sum(event["track"] == "canary" and event["state"] == "up"
                               for event in self.events()) == site.canaries,
                   site.service.build.patience, f"event {site.canaries} of the canary")


class Site:
    """A router's interfaces and routes, whose states change on demand, and the tracks on them."""

    def __init__(self, service):
        self.service = service
        for link in LINKS:
            service.net.link(link)
        self.up = {**dict.fromkeys(LINKS, True), **dict.fromkeys(PREFIXES, False)}
        self.tracks = {}  # name to object, of those that are no lists
        self.canaries = 0  # how often that track came up
        self.early = set()  # names of lists that can change before what-if's time

    def turn(self, thing, up):
        if thing in LINKS:
            self.service.net.carrier(thing, on=up)
        else:
            self.service.net.ip(f"route {'add' if up else 'del'} {thing} dev mark-up")
        self.up[thing] = up

    def configure(self, lines):
        self.service.ctl("apply", self.service.write_tracks(*lines), "--prune")
        words = [line.split() for line in lines]
        self.tracks = {line[0]: line[2] for line in words if line[2] in self.up}
        self.early = threshold_lists(words)

    def follower(self, thing):
        """A track on that object; none when there is none."""
        return next((name for name, other in self.tracks.items() if other == thing), None)

    def asked(self, assumed):
        """What-if's answer; `assumed` is an object to whether it is up."""
        return json.loads(self.service.ctl("what-if", *(
            f"{self.follower(thing)}={WORDS[up]}" for thing, up in assumed.items()), "--json"))


def threshold_lists(words):
    """Those and the lists on them. They count what members are before their delays, so any calculation
    brings their change forward: also that which a track that was just deleted has asked for."""
    found = set()
    for line in words:  # members stand before their lists
        if line[1] in ("weight", "percentage") or found & {word.split("=")[0] for word in line[2:]}:
            found.add(line[0])
    return found


def random_lines(chance):
    tracks = [f"t{number} interface {chance.choice(LINKS)}" for number in range(3)]
    tracks += [f"r{number} route {prefix}" for number, prefix in enumerate(PREFIXES)]
    names = [line.split()[0] for line in tracks] + ["missing"]
    for number in range(5):
        members = chance.sample(names, chance.randrange(1, 5))
        negated = " ".join(chance.choice(("", "not ")) + name for name in members)
        up = chance.randrange(30, 101)
        limits = f"--up {up} --down {chance.randrange(up)}"
        tracks.append(f"l{number} " + chance.choice((
            f"and {negated}", f"or {negated}", f"percentage {limits} " + " ".join(members),
            f"weight {limits} " + " ".join(f"{name}={chance.randrange(50)}" for name in members))))
        names.append(f"l{number}")
    return [line + chance.choice(("", "", "", " --delay-up 1")) +
            chance.choice(("", "", "", " --delay-down 1")) for line in tracks]


def states_of(service):
    return {track["name"]: track["state"] for track in service.tracks()}


def settled(site):
    """The state of every track, when nothing moves: two looks with a calculation between them."""
    service, looks = site.service, []

    def delays_run():
        return json.loads(service.ctl("what-if", "--file", "/dev/null", "--json"))["changes"] != []

    def look():
        if delays_run():
            return False
        looks.append(states_of(service))
        service.ctl("set", "canary", "or", "not", "nobody")
        service.wait_state("canary", "up")
        site.canaries += 1
        service.ctl("delete", "canary")
        return not delays_run() and states_of(service) == looks[-1]

    wait_until(look, service.build.patience, "states that stay")
    return looks[-1]


def after(states, answer):
    """The states that follow from an answer of what-if."""
    return {**states, **{change["track"]: change["to"] for change in answer["changes"]}}


def by_track(rows, key):
    """Each track's rows, or what they have for that key."""
    found = {}
    for row in rows:
        if row["track"] != "canary":
            found.setdefault(row["track"], []).append(row if key is None else row[key])
    return found


def new_states(rows, key, before=()):
    """Without those that say once more what is so already."""
    states = dict(before)
    kept = []
    for row in rows:
        if states.get(row["track"]) != row[key]:
            kept.append(row)
        states[row["track"]] = row[key]
    return kept


def moment(text):
    return datetime.datetime.fromisoformat(text).timestamp()


def answer_comes_true(site, record, assumed):
    """Asks what would happen, then makes it happen: the same changes, in the same order for each track,
    and none before its time."""
    before = settled(site)
    record.catch_up(site)
    answer = site.asked(assumed)
    assert answer["unmet"] == answer["not_known"] == []
    begun, began = len(record.events()), datetime.datetime.now().timestamp()
    for thing, up in assumed.items():
        site.turn(thing, up)
    expected = after(before, answer)
    # Nothing is asked of the service meanwhile that would make it compute its lists.
    wait_until(lambda: states_of(site.service) == expected, site.service.settling,
               lambda: f"{assumed}: {answer}, from {before}; now {states_of(site.service)}")
    assert settled(site) == expected, f"{assumed}: {answer}, from {before}"
    record.catch_up(site)
    if len(assumed) > 1:
        return  # these come one after the other, so a list may see the one without the other
    events = [event for event in record.events()[begun:] if event["track"] != "canary"]
    if any(len(delays) > 1 for delays in by_track(answer["changes"], "after_ms").values()):
        return  # a list that is up for a moment in between, or not
    events = new_states(events, "state", before)
    said, foretold = by_track(events, "state"), by_track(answer["changes"], "to")
    # A change that is brought forward may be another one, or none, together with the others.
    assert {name: said[name] for name in said.keys() - site.early} == {
        name: foretold[name] for name in foretold.keys() - site.early}, f"{assumed}: {answer}"
    times = by_track(events, "time")
    for name, delays in by_track(answer["changes"], "after_ms").items():
        if name in site.early:
            continue
        for time, delay in zip(times[name], delays, strict=True):
            assert moment(time) - began > delay / 1000 - 0.1, f"{name} of {assumed}: {answer}"


def combinations(things):
    """All changes of these objects, those of few first."""
    for count in range(1, len(things) + 1):
        for some in itertools.combinations(things, count):
            yield {thing: not up for thing, up in some}


def advice_is_right(site, record, states, chance):
    """Does what explain says would bring a list up, and sees that nothing less does."""
    down = [name for name in states if name.startswith("l") and states[name] != "up"]
    if not down:
        return
    name = chance.choice(down)
    told = json.loads(site.service.ctl("explain", name, "--json"))
    followed = [(thing, up) for thing, up in site.up.items() if site.follower(thing)]
    advice = None if told["remedy"] is None else {
        site.tracks[change["track"]]: change["to"] == "up" for change in told["remedy"]}
    for changes in itertools.islice(combinations(followed), None if SOAK else 5):
        if advice is not None and len(changes) >= len(advice):
            break
        assert after(states, site.asked(changes))[name] != "up", f"{name}: {changes}, {told}"
    if advice:
        answer_comes_true(site, record, advice)
        assert site.service.state(name) == "up", told


def views_agree(service):
    """All that show a track show the same."""
    tracks = {track["name"]: track for track in service.tracks()}
    states = json.loads(service.run("trackctl", "state", *tracks, "--json").stdout)
    assert {each["name"]: each["state"] for each in states} == {
        name: track["state"] for name, track in tracks.items()}
    for name, track in tracks.items():
        told = json.loads(service.ctl("explain", name, "--json"))
        kept = json.loads(service.ctl("history", name, "--json"))
        assert told["state"] == kept["summary"]["state"] == track["state"], (told, kept, track)
        assert (told["delay_up"], told["delay_down"]) == (track["delay_up"], track["delay_down"])
        assert [member["name"] for member in told["members"]] == [
            member["name"] for member in track["members"]]


def history_is_the_record(service, record):
    """The history is what the events told, or the end of it; times, durations and sums are true."""
    kept = json.loads(service.ctl("history", "--json"))
    heard = by_track(new_states(record.events(), "state"), None)
    noted = by_track(new_states(kept["changes"], "to"), None)
    assert not kept["complete"] or noted.keys() == heard.keys()
    for name, rows in noted.items():
        same = heard[name] if kept["complete"] else heard[name][-len(rows):]
        assert [row["to"] for row in rows] == [event["state"] for event in same], name
        for row, event in list(zip(rows, same))[0 if kept["complete"] else 1:]:  # a repetition else
            late = moment(event["time"]) - moment(row["time"])
            assert -0.01 < late < service.settling, f"{row} {event}"
    for name in noted:
        told = json.loads(service.ctl("history", name, "--json"))
        rows = [row for row in kept["changes"] if row["track"] == name]
        assert told["changes"] == rows
        for row, then in zip(rows, rows[1:]):
            assert then["from"] in (row["to"], "unknown")  # it may have been deleted between them
            if then["lasted_ms"] is not None:
                assert abs((moment(then["time"]) - moment(row["time"])) * 1000 -
                           then["lasted_ms"]) <= 1
        left = [row for row in rows if row["from"] == "up" and row["to"] != "up"]
        assert told["summary"]["flaps"] == len(left)
        assert 0 <= told["summary"]["up_percent"] <= 100


def test_answers_in_a_storm(service, closing):
    chance = seeded_chance()
    site = Site(service)
    record = closing(Record(service))
    for _ in range(int(os.environ.get("OT_ROUNDS", "1"))):
        lines = random_lines(chance)
        print(*lines, sep="\n")  # shown when it fails
        site.configure(lines)
        for count in (1, 1, 2) if SOAK else (1,):
            followed = [thing for thing in site.up if site.follower(thing)]
            some = chance.sample(followed, count)
            answer_comes_true(site, record, {thing: not site.up[thing] for thing in some})
            advice_is_right(site, record, settled(site), chance)
        views_agree(service)
    settled(site)
    record.catch_up(site)
    history_is_the_record(service, record)
