"""Route tracks beside a table of a million routes."""

import pytest

import ledger
from truth import settle

COUNT = 1_000_000
TRACKED = [f"198.18.{number}.0/24" for number in range(100)]
ONLY_TRACKED = "route show root 198.18.0.0/15"


def others(count):
    return [f"{20 + (number >> 16)}.{number >> 8 & 255}.{number & 255}.0/24"
            for number in range(count)]


def cpu(service):
    """The seconds of processor time that the service has had."""
    with open(f"/proc/{service.daemon.pid}/schedstat", encoding="ascii") as stream:
        return int(stream.read().split()[0]) / 1e9


def change(service, lines):
    """Runs the commands and waits until all tracks are right; prints what a message has cost."""
    before, dropped = cpu(service), service.daemon.dropped_route_messages()
    service.net.ip_batch(lines)
    settle(service, ONLY_TRACKED)
    spent = (cpu(service) - before) / len(lines) * 1e6
    dropped = service.daemon.dropped_route_messages() - dropped
    print(f"{len(lines)} messages: {spent:.2f} us of processor time each, {dropped} dropped")


def test_a_million_routes_beside_the_tracked_ones(service):
    if service.build.sanitized:
        pytest.skip("a million messages take a program with checks too long")
    service.net.link("w0")
    service.net.ip("address add 10.0.0.1/24 dev w0")
    commits = [ledger.route_track_items(f"r{number}", prefix)
               for number, prefix in enumerate(TRACKED)]
    assert set(service.commit(commits)) == {"0x00000000"}
    lines = [f"route add {prefix} via 10.0.0.2" for prefix in others(COUNT)]
    for number, prefix in enumerate(TRACKED):
        lines.insert(number * COUNT // len(TRACKED), f"route add {prefix} via 10.0.0.2")
    change(service, lines)
    assert all(track["state"] == "up" for track in service.tracks())
    change(service, [f"route replace blackhole {prefix}" for prefix in TRACKED])
    assert all(track["state"] == "down" for track in service.tracks())
    change(service, [f"route {verb} {prefix} via 10.0.0.3" for prefix in others(50_000)
                     for verb in ("append", "del")])
    change(service, [f"route replace {prefix} via 10.0.0.3" for prefix in TRACKED])
    service.net.carrier("w0", on=False)
    settle(service, ONLY_TRACKED)
    assert all(track["state"] == "down" for track in service.tracks())
    service.net.carrier("w0", on=True)
    settle(service, ONLY_TRACKED)
    assert all(track["state"] == "up" for track in service.tracks())
