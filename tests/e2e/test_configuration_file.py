"""The configuration as a file: export, apply and diff with the real programs. OT_SEED repeats a run."""

import json
import os
import subprocess

import pytest

from seeds import seeded_chance

LINES = (
    "uplink interface wan0 --delay-up 5",
    "backup interface lan0",
    "customers route 203.0.113.0/24 --vrf red --delay-down 3",
    "web probe 7",
    "peer bfd 192.0.2.1 --interface wan0 --rate 50 --debounce 3",
    "site and uplink not backup peer",
    "cap weight --up 100 --down 30 uplink=70 backup=40",
    "most percentage --up 100 --down 51 web uplink backup",
)


@pytest.fixture
def running(service):
    service.net.link("wan0")
    service.net.link("lan0")
    return service


def test_a_file_makes_what_it_says_and_the_difference_is_told(running):
    path = running.write_tracks("# my tracks", "", *LINES)
    assert running.ctl_outcome("diff", path)[0] == 1
    assert running.ctl_outcome("apply", path, "--dry-run") == (
        0, "".join(f"+ {line}\n" for line in LINES) +
        "8 to be made, 0 to be changed, 0 to be deleted\n", "")
    assert running.ctl("export") == ""
    assert running.ctl("apply", path).endswith("8 made, 0 changed, 0 deleted\n")
    assert running.ctl_outcome("apply", path) == (0, "", "")
    assert running.ctl_outcome("diff", path) == (0, "", "")
    assert running.ctl("export") == "".join(f"{line}\n" for line in sorted(LINES))
    assert running.ctl("export", "web", "site") == f"{LINES[5]}\n{LINES[3]}\n"
    running.wait_state("backup", "up")
    changed = [line.replace("--delay-up 5", "--delay-up 10") for line in LINES[:3]]
    path = running.write_tracks(*changed, "web interface wan0")
    assert running.ctl_outcome("apply", path) == (
        0, "~ uplink delay-up 5 → 10\n~ web probe 7 → interface wan0\n"
        "0 made, 2 changed, 0 deleted\n", "")
    assert running.ctl_outcome("apply", path, "--prune")[1].splitlines()[-1] == \
        "0 made, 0 changed, 4 deleted"
    assert running.ctl("export") == "".join(
        f"{line}\n" for line in sorted([*changed, "web interface wan0"]))


def test_nothing_is_changed_by_a_file_with_an_error(running):
    running.ctl("set", "uplink", "interface", "wan0")
    before = running.ctl("export")
    bad = running.write_tracks("new interface wan0", "uplink interfce wan0", "include nowhere")
    assert running.ctl_outcome("apply", bad, "--prune") == (
        2, "", f"trackctl: 2 errors, nothing is changed:\n  {bad}:2: there is no kind of track "
        '"interfce"; the kinds are: interface, route, probe, bfd, and, or, weight, percentage\n'
        f"  {bad}:3: {os.path.dirname(bad)}/nowhere: No such file or directory\n")
    refused = running.write_tracks("new interface wan0", "self and self", "uplink probe 1")
    for command in ("apply", "--prune"), ("apply", "--dry-run"), ("diff",):
        assert running.ctl_outcome(*command, refused) == (
            2, "", f'trackctl: 1 error, nothing is changed:\n  {refused}:2: list "self" names '
            "itself as a member, which no list can\n")
    assert running.ctl("export") == before


def test_what_cannot_be_read_or_written_is_an_error_and_no_empty_file(running):
    running.ctl("set", "uplink", "interface", "wan0")
    for redirection, arguments, status in (
            ("<&-", ("apply", "-", "--prune"), 2), ("</", ("apply", "-", "--prune"), 2),
            ("</", ("diff", "-"), 2), (">&-", ("export",), 1), (">/dev/full", ("export",), 1),
            (">&-", ("diff", "/dev/null"), 2), (">/dev/full", ("diff", "/dev/null"), 2)):
        shell = ("sh", "-c", f'exec "$@" {redirection}', "sh")
        result = running.run("trackctl", *arguments, prefix=shell)
        assert result.returncode == status, (redirection, arguments, result.stderr)
    assert running.ctl("export") == "uplink interface wan0\n"


def test_what_one_commit_does_not_take_is_known_before(running):
    members = " ".join(f"m{number}={number}" for number in range(12))
    path = running.write_tracks(*(f"t{number} weight --up 9 --down 1 {members}"
                                  for number in range(1200)))
    for command in ("apply", path), ("apply", "--dry-run", path), ("diff", path):
        assert running.ctl_outcome(*command) == (
            2, "", "trackctl: 1 error, nothing is changed:\n  it would take 18000 changes, and one "
            "commit has at most 16384; apply the file in parts\n")


def test_one_commit_takes_as_many_changes_as_are_told_and_no_more(running):
    members = [f"m{number}=1" for number in range(12)]
    lists = [f"t{number} weight --up 9 --down 1 {' '.join(members)}" for number in range(1092)]
    path = running.write_tracks(*lists, "last weight --up 9 --down 1 m0=1 m1=1")
    assert "it would take 16385 changes" in running.ctl_outcome("apply", path)[2]
    assert running.tracks() == []
    path = running.write_tracks(*lists, "last weight --up 9 --down 1 m0=1")
    assert running.ctl("apply", path).endswith("1093 made, 0 changed, 0 deleted\n")
    assert running.ctl_outcome("diff", path)[:2] == (0, "")


def test_as_many_tracks_as_there_can_be_with_long_names_and_all_options_are_one_commit(running):
    """Of all kinds a BFD track takes the most changes, and a list as many as one with six members."""
    def name(number):
        return f"{number:04}".ljust(31, "x")

    members = " ".join(name(number) for number in range(6))
    delays = "--delay-up 5 --delay-down 6"
    path = running.write_tracks(*(f"{name(number)} or {members} {delays}"
                                  for number in range(6, 1499)))
    running.ctl("apply", path)
    assert running.ctl_outcome("diff", path)[:2] == (0, "")
    assert len(running.tracks()) == 1493


def test_only_the_first_of_very_many_errors_are_told(running):
    path = running.write_tracks(*["odd"] * 1000)
    error = running.ctl_outcome("apply", path)[2].splitlines()
    assert error[0] == "trackctl: 1000 errors, nothing is changed:"
    assert error[100].startswith(f"  {path}:100: ")
    assert error[101:] == ["  ... and 900 more"]


def test_tracks_that_share_a_session_survive_their_file(running):
    lines = [f"{name} bfd 192.0.2.1 --interface wan0 --rate 300 --debounce 3 --shared"
             for name in ("a", "b")]
    running.ctl("apply", running.write_tracks(*lines))
    exported = running.ctl("export")
    assert exported.splitlines() == lines
    running.ctl("apply", running.write_tracks(), "--prune")
    running.ctl("apply", running.write_tracks(*exported.splitlines()))
    assert running.ctl("export") == exported


def test_a_note_is_told_with_its_line(running):
    path = running.write_tracks("uplink interface wan0",
                                "most percentage --up 100 --down 51 uplink=3")
    note = 'the weight of member "uplink" counts as 1, as every member\'s of a percentage list does'
    assert running.ctl_outcome("apply", path)[2] == f"trackctl: {path}:2: note: {note}\n"
    words = "set most percentage --up 100 --down 51 uplink=3".split()
    assert running.ctl_outcome(*words)[2] == f"trackctl: note: {note}\n"


def test_warnings_do_not_keep_a_file_from_being_applied(running):
    path = running.write_tracks("a and b nobody", "b or a")
    code, output, error = running.ctl_outcome("apply", path)
    assert (code, output) == (0, "+ a and b nobody\n+ b or a\n2 made, 0 changed, 0 deleted\n")
    assert error == (
        f'trackctl: {path}:1: warning: there is no track "nobody" yet\n'
        f"trackctl: {path}:1: warning: these lists contain each other and wait for each other: "
        "a -> b -> a; they keep the states they have until one of them is changed\n")


def test_what_the_file_does_not_change_is_left_alone(running):
    running.ctl("set", "uplink", "interface", "wan0")
    running.wait_state("uplink", "up")
    follower = running.follow(["uplink", "other"])
    path = running.write_tracks("uplink interface wan0", "other interface lan0")
    running.ctl("apply", path)
    follower.expect(("other", "up"))
    changes, = (track["changes"] for track in running.tracks() if track["name"] == "uplink")
    running.ctl("apply", path, "--prune")
    assert [track["changes"] for track in running.tracks() if track["name"] == "uplink"] == \
        [changes]


def random_lines(chance):
    names = [f"t{number}" for number in range(12)]
    lines = []
    for name in names:
        if chance.random() < 0.25:
            continue
        others = chance.sample([one for one in names if one != name], chance.randrange(1, 5))
        lines.append(name + " " + chance.choice((
            f"interface e{chance.randrange(4)}",
            f"route 10.{chance.randrange(4)}.0.0/16" + chance.choice(("", " --vrf red")),
            f"probe {names.index(name) + chance.choice((1, 101))}",
            f"bfd 192.0.2.{names.index(name) + 1} --interface wan0 --rate "
            f"{chance.randrange(50, 90)} --debounce 3",
            "and " + " ".join(chance.choice(("", "not ")) + other for other in others),
            "or " + " ".join(others),
            "weight --up 80 --down 10 " + " ".join(
                f"{other}={chance.randrange(50)}" for other in others),
            "percentage --up 90 --down 40 " + " ".join(others))) +
            chance.choice(("", " --delay-up 2")) + chance.choice(("", " --delay-down 3")))
    return lines


def test_any_configuration_survives_its_file(running):
    chance = seeded_chance()
    for _ in range(int(os.environ.get("OT_ROUNDS", "8"))):
        lines = random_lines(chance)
        path = running.write_tracks(*lines)
        running.ctl("apply", path, "--prune")
        assert running.ctl_outcome("diff", path)[0] == 0
        # Members that were there stay in their places; in a list that is made they are as written.
        running.ctl("apply", running.write_tracks(), "--prune")
        assert json.loads(running.ctl("show", "--json")) == []
        running.ctl("apply", running.write_tracks(*lines))
        exported = running.ctl("export")
        assert exported == "".join(f"{line}\n" for line in sorted(lines, key=str.split))
        path = running.write_tracks(*exported.splitlines())
        assert running.ctl_outcome("diff", path)[0] == 0
        running.crash()
        running.start()
        assert running.ctl_outcome("diff", path)[0] == 0


def test_more_tracks_than_there_can_be_are_refused_however_they_hang_together(running):
    # Who follows such a chain by recursion has no stack left, sooner with a sanitizer.
    count = 15_000 if running.build.sanitized else 60_000
    path = running.write_tracks(*(f"t{number} and t{number + 1}" for number in range(count)))
    assert running.ctl_outcome("apply", path) == (
        2, "", "trackctl: 1 error, nothing is changed:\n"
        f"  there would be {count} tracks, and 1500 can be\n")


def test_an_arrow_is_what_the_locale_can_show(running):
    running.ctl("set", "uplink", "interface", "wan0")
    path = running.write_tracks("uplink interface wan0 --delay-up 5")
    for locale, arrow in (("C", "->"), ("C.UTF-8", "→")):
        lines = running.run("trackctl", "diff", path, prefix=["env", f"LC_ALL={locale}"]).stdout
        assert lines.startswith(f"~ uplink delay-up 0 {arrow} 5\n")
        told = running.run("trackctl", "diff", path, "--json", prefix=["env", f"LC_ALL={locale}"])
        assert json.loads(told.stdout)["changes"] == ["~ uplink delay-up 0 → 5"]


def test_it_says_that_it_waits_for_somebody_to_write(running):
    path = os.path.join(running.root, "fifo")
    os.mkfifo(path)
    with subprocess.Popen([*running.build.command("trackctl"), "apply", path], text=True,
                          env=running.build.environment(running.root), stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        assert process.stderr.readline() == (
            f"trackctl: waiting for {path}, which is no ordinary file\n")
        with open(path, "w", encoding="utf-8") as fifo:
            fifo.write("uplink interface wan0\n")
        assert process.communicate() == (
            "+ uplink interface wan0\n1 made, 0 changed, 0 deleted\n", "")
