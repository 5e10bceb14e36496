"""A file makes exactly the configuration that it says, or nothing: whatever is configured, however the
file is written, and whoever else is at work or killed meanwhile.

OT_ROUNDS sets the number of files, OT_SEED repeats a run: the number that it has printed."""

import itertools
import os
import subprocess
import threading
from concurrent import futures

import pytest

from build_tree import BuildTree
from seeds import seeded_chance
from tracks_file import (Files, WRONG, changed, in_conflict, parsed, random_configuration, words_of)

# A sanitizer makes each command five times as slow, and a command a round is what this is.
ROUNDS = int(os.environ.get("OT_ROUNDS", 6 if BuildTree().sanitized else 25))


@pytest.fixture
def chance():
    return seeded_chance()


@pytest.fixture
def running(service):
    service.net.link("wan0")
    service.net.link("lan0", up=False)
    return service


def configuration(service):
    return parsed(service.ctl("export"))


def write(service, chance, wanted):
    lines = [words_of(chance, name, track) for name, track in wanted.items()]
    return Files(chance, service.root).write(lines)


def difference(wanted, present, prune):
    """What is said of it: the tracks that are made, changed and deleted."""
    made = {name for name in wanted if name not in present}
    differ = {name for name in wanted if name in present and wanted[name] != present[name]}
    gone = {name for name in present if prune and name not in wanted}
    return made, differ, gone


def said(output):
    """The same as it was printed; the last line has to agree."""
    lines = output.splitlines()
    names = {sign: {line.split()[1] for line in lines[:-1] if line[0] == sign} for sign in "+~-"}
    if lines:
        numbers = [int(part.split()[0]) for part in lines[-1].split(", ")]
        assert numbers == [len(names[sign]) for sign in "+~-"]
        assert len(lines) - 1 == sum(numbers)
    return names["+"], names["~"], names["-"]


def histories(service):
    return {track["name"]: (track["changes"], track["last_change"]) for track in service.tracks()
            if track["type"] == "interface"}


def check_apply(service, chance, path, wanted, present):
    """Applies the file in one of the ways there are; the configuration afterwards."""
    prune, dry = chance.random() < 0.6, chance.random() < 0.3
    before = histories(service)
    result = service.run("trackctl", "apply", *["--prune"] * prune, *["--dry-run"] * dry, path)
    if in_conflict(wanted, {} if prune else present):
        assert (result.returncode, result.stdout) == (2, ""), result.stderr
        assert configuration(service) == present
        return present
    assert result.returncode == 0, result.stderr
    expected = difference(wanted, present, prune)
    assert said(result.stdout) == expected
    after = present if dry else wanted if prune else present | wanted
    assert configuration(service) == after
    touched = set.union(*expected)
    now = histories(service)
    assert all(now[name] == history for name, history in before.items() if name not in touched)
    return after


def check_diff(service, path, wanted, present):
    result = service.run("trackctl", "diff", path)
    if in_conflict(wanted, {}):
        assert (result.returncode, result.stdout) == (2, ""), result.stderr
        return
    expected = difference(wanted, present, True)
    assert result.returncode == (1 if any(expected) else 0), result.stderr
    assert said(result.stdout) == expected


def check_export(service):
    """What is exported is what would make it, after everything was deleted too."""
    exported = service.ctl("export")
    path = os.path.join(service.root, "exported.conf")
    with open(path, "w", encoding="utf-8") as stream:
        stream.write(exported)
    assert service.ctl("apply", "--prune", "--dry-run", path) == ""
    assert service.ctl("diff", path) == ""
    service.ctl("apply", "--prune", "/dev/null")
    assert service.ctl("export") == ""
    service.ctl("apply", path)
    assert service.ctl("export") == exported


def test_a_file_makes_what_it_says_however_it_is_written(running, chance):
    present = {}
    for _ in range(ROUNDS):
        wanted = changed(chance, present)
        path = write(running, chance, wanted)
        check_diff(running, path, wanted, present)
        present = check_apply(running, chance, path, wanted, present)
        if chance.random() < 0.2:
            check_export(running)


def test_a_line_that_is_wrong_is_told_and_keeps_all_from_being_done(running, chance):
    present = random_configuration(chance)
    running.ctl("apply", write(running, chance, present))
    for wrong in chance.sample(WRONG, min(ROUNDS, len(WRONG))):
        lines = [" ".join(words_of(chance, name, track))
                 for name, track in changed(chance, present).items()]
        place = chance.randrange(len(lines) + 1)
        path = os.path.join(running.root, "wrong.conf")
        with open(path, "w", encoding="utf-8") as stream:
            stream.writelines(line + "\n" for line in [*lines[:place], wrong, *lines[place:]])
        for command in ("apply", "--prune"), ("apply", "--dry-run"), ("diff",):
            result = running.run("trackctl", *command, path)
            assert (result.returncode, result.stdout) == (2, ""), (wrong, result.stderr)
            assert f"\n  {path}:{place + 1}: " in result.stderr, (wrong, result.stderr)
        assert configuration(running) == present


def start(service, *arguments):
    return subprocess.Popen([*service.build.command("trackctl"), *arguments],
                            env=service.build.environment(service.root), text=True,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE)


def changed_without_conflicts(chance, present):
    """What can be applied beside `present`, none of which has to go before it."""
    while in_conflict(made := changed(chance, present), present):
        pass
    return made


def test_two_files_at_once_leave_one_of_them(running, chance):
    for _ in range(ROUNDS):
        before, first, second = (random_configuration(chance) for _ in range(3))
        running.ctl("apply", "--prune", write(running, chance, before))
        others = os.path.join(running.root, "others")
        files = (write(running, chance, first),
                 Files(chance, others).write([words_of(chance, *one) for one in second.items()]))
        writers = [start(running, "apply", "--prune", path) for path in files]
        outcomes = [(*writer.communicate(), writer.returncode) for writer in writers]
        assert [code for _, _, code in outcomes] == [0, 0], outcomes
        assert configuration(running) in (first, second)


def test_what_is_read_is_what_one_commit_has_left(running):
    """However many requests it takes."""
    pair = ("first", "second")
    delays = [running.write_tracks(*(f"{name} interface wan0 --delay-up {seconds}" for name in pair),
                                   file=f"pair{seconds}.conf") for seconds in (1, 2)]
    running.ctl("apply", running.write_tracks(*(f"first{number} interface wan0 --delay-up 5"
                                                for number in range(1498))))
    running.ctl("apply", delays[0])
    ended = threading.Event()

    def keep_changing():
        for path in itertools.cycle(delays):
            if ended.is_set():
                return
            running.ctl("apply", path)
    with futures.ThreadPoolExecutor() as pool:
        changing = pool.submit(keep_changing)
        try:
            for _ in range(ROUNDS):
                found = configuration(running)
                assert found["first"] == found["second"]
                assert running.ctl("apply", "--dry-run", delays[0]).count("\n") in (0, 3)
        finally:
            ended.set()
        changing.result()


def test_a_track_that_is_deleted_meanwhile_is_whole_or_gone(running, chance):
    for _ in range(ROUNDS):
        present = random_configuration(chance)
        running.ctl("apply", "--prune", write(running, chance, present))
        wanted = changed_without_conflicts(chance, present)
        writer = start(running, "apply", write(running, chance, wanted))
        gone = chance.sample(sorted(present), 3)
        for name in gone:
            running.run("trackctl", "delete", "--", name)
        output, error = writer.communicate()
        assert writer.returncode == 0, error
        found = configuration(running)
        expected = present | wanted
        assert {name: track for name, track in found.items() if name not in gone} == \
            {name: track for name, track in expected.items() if name not in gone}, output
        assert all(found[name] == wanted.get(name) for name in gone if name in found), output


@pytest.mark.parametrize("whom", ("trackctl", "service"))
def test_who_is_killed_leaves_all_or_nothing(running, chance, whom):
    possible = [{}]
    for _ in range(max(ROUNDS // 3, 1)):
        wanted = random_configuration(chance)
        writer = start(running, "apply", "--prune", write(running, chance, wanted))
        try:
            writer.wait(chance.random() * 0.02)
        except subprocess.TimeoutExpired:
            pass
        if whom == "service":
            running.crash()
            running.start()
        else:
            writer.kill()
        writer.communicate()
        found = configuration(running)
        assert found in [*possible, wanted]
        # What a client has asked for before its end may be made after it.
        possible = [found] if whom == "service" or found == wanted else [found, wanted]
