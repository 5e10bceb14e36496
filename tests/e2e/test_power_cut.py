"""A power cut at any instant loses nothing that was answered.

The service's writes to its configuration's store are written down while tracks are changed. For a
cut at a random place among them the file is put together as a disk may have it then: what was made
durable is there, of the rest any part. OT_ROUNDS sets how many cuts are tried, OT_SEED repeats a
run."""

import json
import os
import struct

import pytest

from seeds import seeded_chance

CUTS = int(os.environ.get("OT_ROUNDS", "25"))
CHANGES = 40
SECTOR = 512

KINDS = (
    ("interface", "wan0"),
    ("interface", "lan0", "--delay-up", "2"),
    ("route", "10.9.0.0/16", "--vrf", "red", "--delay-down", "3"),
    ("and", "t0", "not", "x"),
    ("weight", "--up", "30", "--down", "10", "x=10", "y=20"),
)


def store_of(service):
    return os.path.join(service.root, "var/lib/object_tracking/configuration.mdb")


def configured(service):
    """What is configured, without what changes by itself."""
    changing = ("state", "changes", "last_change", "pending")
    tracks = json.loads(service.ctl("show", "--json"))
    for track in tracks:
        for key in changing:
            del track[key]
        (track["object"] or {}).pop("next_hop", None)
        for member in track["members"]:
            del member["state"]
    return json.dumps(sorted(tracks, key=lambda track: track["name"]))


def records(log):
    """(end in the log, kind, offset, bytes) of each write."""
    at = 0
    while at < len(log):
        kind, offset, length = struct.unpack_from("<cQQ", log, at)
        at += 17 + length
        yield at, kind, offset, log[at - length:at]


def after_cut(content, log, cut, rng):
    """The file when the power fails after `cut` bytes of the log."""
    content = bytearray(content)
    loose = []

    def put(offset, data):
        content[offset:offset + len(data)] = data

    for end, kind, offset, data in records(log):
        if end > cut:
            break
        if kind == b"w":
            loose.append((offset, data))
        elif kind == b"d":
            put(offset, data)
        else:
            for write in loose:
                put(*write)
            loose.clear()
    for offset, data in loose:
        for start in range(0, len(data), SECTOR):
            if rng.randrange(2):
                put(offset + start, data[start:start + SECTOR])
    return bytes(content)


def test_a_power_cut_loses_nothing_that_was_answered(new_service, build, monkeypatch):
    if build.sanitized:
        pytest.skip("a sanitizer's runtime wants to be loaded first")
    rng = seeded_chance()
    service = new_service()
    service.start()
    service.ctl("set", "t0", "interface", "wan0")
    service.stop()
    with open(store_of(service), "rb") as stream:
        before = stream.read()
    path = os.path.join(service.root, "writes")
    with monkeypatch.context() as environment:
        environment.setenv("LD_PRELOAD", str(build.path / "bin" / "write_log.so"))
        environment.setenv("OT_WRITE_LOG", path)
        service.start()
    states = [configured(service)]
    answered = [os.path.getsize(path) if os.path.exists(path) else 0]
    for _ in range(CHANGES):
        name = f"t{rng.randrange(1, 5)}"
        if rng.randrange(4) == 0 and f'"{name}"' in states[-1]:
            service.ctl("delete", name)
        else:
            service.ctl("set", name, *rng.choice(KINDS))
        states.append(configured(service))
        answered.append(os.path.getsize(path))
    service.crash()
    with open(path, "rb") as stream:
        log = stream.read()
    assert answered[-1] == len(log) > answered[0]
    cuts = [end for end, *_ in records(log)]
    for _ in range(CUTS):
        cut = rng.choice(cuts)
        done = max(index for index, end in enumerate(answered) if end <= cut) if cut >= answered[0] \
            else 0
        again = new_service()
        os.makedirs(os.path.dirname(store_of(again)), mode=0o700)
        with open(os.open(store_of(again), os.O_WRONLY | os.O_CREAT, 0o600), "wb") as stream:
            stream.write(after_cut(before, log, cut, rng))
        again.start()
        assert configured(again) in states[done:done + 2], f"cut at {cut} of {len(log)}"
        again.crash()
