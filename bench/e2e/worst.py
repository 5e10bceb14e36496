"""The configurations that the service accepts and that cost it most, and the longest turn of its
loop with each, as `trackctl engine` reports it. The configuration is made by one run of the service,
and measured in the next."""

import contextlib
import json
import os
import subprocess
import time

import ledger
from output import File
from service import Service
from table import row

TRACKS = 1500
SERVICES = 57_000
BUCKETS = 2039  # of the table of tracks
TURN_MS = 20
COMMIT = 500  # items
LARGEST = 16000  # items that one commit takes, nearly


def track_path(name, item):
    return f"/cfg/gl/object_tracking/track/{name}/{item}"


def bucket(name):
    """Where the table's walk meets a track."""
    value = 0
    for char in name.encode():
        value = (((value << 7) + char) & 0xffffffff) % BUCKETS * 65599 + char & 0xffffffff
    return value % BUCKETS


def fill(instance, items):
    """Commits items until all are there or no more are taken; how many are."""
    taken = 0
    for at in range(0, len(items), COMMIT):
        answer = instance.commit([items[at:at + COMMIT]])[0]
        if answer[:10] != "0x00000000":
            break
        taken += len(items[at:at + COMMIT])
    return taken


@contextlib.contextmanager
def configured(build, make):
    """An instance with a track `leaf` on wan0 and what `make` commits, started anew after that."""
    instance = Service(build, File)
    try:
        instance.net.link("wan0")
        instance.start()
        instance.configure(["leaf"], "wan0")
        made = make(instance)
        instance.stop()
        instance.start()
        # What others do on the machine is no part of a turn.
        os.sched_setscheduler(instance.daemon.pid, os.SCHED_FIFO, os.sched_param(1))
        instance.wait_state("leaf", "up")
        yield instance, made
    finally:
        instance.close()


def longest_turn(instance):
    rows = json.loads(instance.ctl("engine", "--json"))
    return next(entry["longest_turn_ms"] for entry in rows if entry["service"] == "loop")


def look(instance):
    """Everything that an operator can ask for; the seconds that it took."""
    begin = time.monotonic()
    instance.show("all-tracks", "all")
    took = time.monotonic() - begin
    instance.show()
    instance.show("leaf", "all")
    subprocess.run([*instance.build.command("trackctl"), "show", "--json"], check=True,
                   env=instance.build.environment(instance.root), stdout=subprocess.DEVNULL)
    return took


def flap(instance, rounds=10):
    for _ in range(rounds):
        for state in ("down", "up"):
            instance.net.ip(f"link set wan0 {state}")
            time.sleep(0.25)  # several calculations, each 20 ms after what the last one published


def tracked_by(build):
    def make(instance):
        names = [f"t{number:04}" for number in range(TRACKS - 1)]
        instance.configure(names, "wan0")
        return fill(instance, [
            f"set text /cfg/if/act/e{number:05}/service-a/track_name {names[number % len(names)]}"
            for number in range(SERVICES)])
    with configured(build, make) as (instance, made):
        took = look(instance)
        turn = longest_turn(instance)
    what = f"{made:,} interfaces that name {TRACKS:,} tracks"
    return [row(f"{what}: longest turn, all shown", turn, "ms", TURN_MS),
            row(f"{what}: show all-tracks all, whole process", took * 1e3, "ms")]


def lists(build, what, order, members, kind=4):
    """Lists whose members are `members(names, index)` by turns, as many as are taken."""
    def make(instance):
        names = order([f"l{number:04}" for number in range(TRACKS - 1)])
        items = []
        for name in names:
            items += [f"set u32 {track_path(name, 'a')} 1",
                      f"set u32 {track_path(name, f'type/list/0x{kind:x}/a')} 1"]
            if kind == 7:
                items.append(f"set u32 {track_path(name, 'type/list/0x7/thld_limits/val_up')}"
                             "/0xffffffff/val_dn 1")
        made = fill(instance, items)
        assert made == len(items), made
        return fill(instance, [
            f"set u32 {track_path(name, f'type/list/0x{kind:x}/object/{member}/a')}"
            f" {1 if kind == 7 else 0}"
            for place in range(200) for index, name in enumerate(names)
            for member in [members(names, index, place)] if member is not None])
    with configured(build, make) as (instance, made):
        flap(instance)
        calculated = longest_turn(instance)
        look(instance)
        shown = longest_turn(instance)
    text = f"{TRACKS - 1:,} lists with {made:,} members, {what}"
    return [row(f"{text}: longest turn, all changing", calculated, "ms", TURN_MS),
            row(f"{text}: longest turn, all shown too", shown, "ms", TURN_MS)]


def in_worst_order(names):
    return sorted(names, key=bucket)


def next_ones(names, index, place):
    """The lists behind it in the table, and the leaf at the end."""
    at = index + 1 + place
    return names[at] if at < len(names) else "leaf" if at == len(names) else None


def two_at_the_ends(names, index, place):
    if index in (0, len(names) - 1):
        return names[-1 - index] if place == 0 else None
    return "leaf" if place == 0 else f"nobody{place}"


def commits(build):
    """The largest commits: of services, of members, of tracks."""
    def turn(items):
        with configured(build, lambda instance: None) as (instance, _):
            answer = instance.commit([items])[0]
            assert answer == "0x00000000", answer[:200]
            return longest_turn(instance)
    services = [f"set text /cfg/if/act/e{number:05}/service-a/track_name leaf"
                for number in range(LARGEST)]
    tracks = [line for number in range(TRACKS - 1)
              for line in ledger.track_items(f"t{number:04}", "wan0")]
    members = [f"set u32 {track_path('list', 'a')} 1",
               f"set u32 {track_path('list', 'type/list/0x4/a')} 1",
               *(f"set u32 {track_path('list', f'type/list/0x4/object/m{number}/a')} 0"
                 for number in range(LARGEST))]
    return [row(f"a commit of {LARGEST:,} services: longest turn", turn(services), "ms", TURN_MS),
            row(f"a commit of a list of {LARGEST:,} members: longest turn", turn(members), "ms", TURN_MS),
            row(f"a commit of {TRACKS - 1:,} tracks: longest turn", turn(tracks), "ms", TURN_MS)]


def turns(build):
    return [*commits(build),
            *tracked_by(build),
            *lists(build, "boolean, worst order", in_worst_order, next_ones),
            *lists(build, "weighted, worst order", in_worst_order, next_ones, 7),
            *lists(build, "two of them in a cycle", in_worst_order, two_at_the_ends)]


STEPS = {"turns": turns}
