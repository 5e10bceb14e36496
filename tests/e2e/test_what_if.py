"""What-if against what then really happens, with the real programs. OT_SEED repeats a run, OT_ROUNDS
makes it longer."""

import json
import os

import pytest
from seeds import seeded_chance
from waiting import wait_until

LINKS = ("if-a", "if-b", "if-c", "if-d")


@pytest.fixture
def running(service):
    for name in LINKS:
        service.net.link(name)
    return service


def asked(service, *arguments):
    return json.loads(service.ctl("what-if", *arguments, "--json"))


def up_tracks(service):
    """The names of all tracks, each with whether it is up; None while a delay runs."""
    tracks = service.tracks()
    if any(track["pending"] for track in tracks):
        return None
    return {track["name"]: track["state"] == "up" for track in tracks}


def settled(service):
    """As up_tracks, when nothing moves: two looks with a calculation of the lists between them."""
    looks = []

    def look():
        looks.append(up_tracks(service))
        if looks[-1] is None:
            return False
        service.ctl("set", "canary", "or", "not", "nobody")
        service.wait_state("canary", "up")
        service.ctl("delete", "canary")
        return up_tracks(service) == looks[-1]

    wait_until(look, service.build.patience, "states that stay")
    return looks[-1]


def predicted(before, answer):
    after = dict(before)
    for change in answer["changes"]:
        if change["to"] == "gone":
            del after[change["track"]]
        else:
            after[change["track"]] = change["to"] == "up"
    return after


def random_lines(chance):
    followers = [f"t{number} interface {chance.choice(LINKS)}"
                 for number in range(chance.randrange(2, 5))]
    names = [line.split()[0] for line in followers] + ["missing"]
    lists = []
    for number in range(chance.randrange(2, 6)):
        members = chance.sample(names, chance.randrange(1, min(4, len(names)) + 1))
        up = chance.randrange(30, 101)
        lists.append(f"l{number} " + chance.choice((
            "and " + " ".join(chance.choice(("", "not ")) + name for name in members),
            "or " + " ".join(chance.choice(("", "not ")) + name for name in members),
            f"weight --up {up} --down {chance.randrange(up)} " +
            " ".join(f"{name}={chance.randrange(50)}" for name in members),
            f"percentage --up {up} --down {chance.randrange(up)} " + " ".join(members))))
        names.append(f"l{number}")
    # A list of lists that comes later, perhaps in a cycle.
    lists.append(f"l9 and {chance.choice(names)} not l{chance.randrange(10, 12)}")
    return [line + chance.choice(("", "", "", " --delay-up 1")) +
            chance.choice(("", "", "", " --delay-down 1")) for line in followers + lists]


def test_it_agrees_with_what_then_happens(running):
    chance = seeded_chance()
    carriers = dict.fromkeys(LINKS, True)
    for _ in range(int(os.environ.get("OT_ROUNDS", "2"))):
        lines = random_lines(chance)
        path = running.write_tracks(*lines)
        before = settled(running)
        answer = asked(running, "--file", path, "--prune")
        # Nothing is known of interfaces that no track followed: say what they are.
        known = [f"{each['track']}={'up' if carriers[each['object'].split()[1]] else 'down'}"
                 for each in answer["not_known"]]
        answer = asked(running, "--file", path, "--prune", *known)
        assert answer["not_known"] == []
        running.ctl("apply", path, "--prune")
        expected = predicted(before, answer)
        wait_until(lambda: up_tracks(running) == expected, running.build.patience,  # noqa: B023
                   f"{lines}: {answer}, from {before}")
        before = settled(running)
        assert before == expected, f"{lines}: {answer}"

        followers = {line.split()[0]: line.split()[2] for line in lines if " interface " in line}
        link = chance.choice(list(followers.values()))
        carriers[link] = not carriers[link]
        track = next(name for name in followers if followers[name] == link)
        answer = asked(running, f"{track}={'up' if carriers[link] else 'down'}")
        assert answer["unmet"] == []
        assert settled(running) == before  # nothing was changed
        running.net.carrier(link, on=carriers[link])
        expected = predicted(before, answer)
        wait_until(lambda: up_tracks(running) == expected, running.build.patience,  # noqa: B023
                   f"{lines}: {answer}, from {before}")
        assert settled(running) == expected, f"{lines}: {answer}, from {before}"


def test_changes_are_told_with_their_delays(running):
    configured = running.write_tracks("uplink interface if-a", "backup interface if-b",
                                      "site and uplink --delay-down 5", "any or site backup")
    running.ctl("apply", configured)
    running.wait_state("any", "up")
    assert running.ctl("what-if", "uplink=down", "backup=down") == (
        "backup  up -> down  at once\nuplink  up -> down  at once\n"
        "site    up -> down  after 5 s\nany     up -> down  after 5 s\n")
    for words in (["site=down"], ["--file", configured, "site=down"]):
        assert running.ctl("what-if", *words) == "site  up -> down  after 5 s\n"
    assert running.ctl("what-if", "uplink=up") == "no track would change\n"
    path = running.write_tracks("uplink interface if-a", "site or uplink new", "new interface if-c")
    assert running.ctl("what-if", "--file", path) == (
        "new   new -> unknown  at once\nsite  up -> unknown   at once\n"
        "site  unknown -> up   at once\n"  # it is made anew
        "note: nothing is known of interface if-c, which new follows; it counts as not up "
        "(assume what it is with new=up)\n")
    assert [track["state"] for track in running.tracks()] == ["up"] * 4


def test_what_cannot_be_asked_is_refused(running):
    running.ctl("set", "uplink", "interface", "if-a")
    assert running.ctl_outcome("what-if", "nobody=up") == (
        1, "", 'trackctl: there is no track "nobody"; `trackctl show` lists those there are\n')
    assert running.ctl_outcome("what-if", "uplink=sideways") == (
        2, "", 'trackctl: "uplink=sideways" is not NAME=up or NAME=down\n')
    assert running.ctl_outcome("what-if")[0] == 2
    assert running.ctl_outcome("what-if", "--file", "/nowhere")[0] == 2
    running.stop()
    assert running.ctl_outcome("what-if", "uplink=down")[0] == 3


def test_it_answers_for_as_many_tracks_as_there_can_be(running):
    lines = [f"t{number} interface if-a" for number in range(750)]
    lines += [f"l{number} and {'t' if number == 0 else 'l'}{max(number - 1, 0)}"
              for number in range(750)]
    running.ctl("apply", running.write_tracks(*lines))
    running.wait_state("l749", "up")
    assert len(asked(running, "t0=down")["changes"]) == 1500
