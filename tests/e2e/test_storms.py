"""After any storm of changes every route and interface track is what the kernel's tables make it.

OT_ROUNDS sets the number of storms, OT_SEED repeats one: the number that the failed one has
printed."""

import os
import signal

import pytest

import ledger
from build_tree import BuildTree
from netns import NetworkNamespace
from seeds import seeded_chance
from storms import INTERFACES, PREFIXES, Storm
from truth import check_against_the_kernel, settle

ROUNDS = int(os.environ.get("OT_ROUNDS", "10" if BuildTree().sanitized else "30"))
CALMS, CALMS_WITH_CHECKS = 6, 2  # in a storm: each track is looked at
MESSAGES = 50_000
OTHERS = [f"blackhole 172.{16 + number // 250}.{number % 250}.0/24"
          for number in range(MESSAGES // 20)]


@pytest.fixture
def elsewhere():
    net = NetworkNamespace()
    yield net
    net.close()


@pytest.fixture
def chance():
    return seeded_chance()


@pytest.fixture
def storm(service, elsewhere, chance):
    """A router whose routes and interfaces all have a track, and the storm over it."""
    made = Storm(service.net, elsewhere, chance)
    commits = [track(prefix) for prefix in PREFIXES]
    commits += [ledger.track_items(f"on-{name}", name) for name in INTERFACES]
    assert set(service.commit(commits)) == {"0x00000000"}
    settle(service)
    return made


def track(prefix):
    return ledger.route_track_items(name_of(prefix), prefix)


def name_of(prefix):
    return prefix.replace("/", "_")


def track_anew(service, storm, chance):
    """Some tracks go, the storm goes on, and they come again."""
    gone = chance.sample(PREFIXES, 20)
    removals = [ledger.route_track_removal(name_of(prefix)) for prefix in gone]
    assert set(service.commit(removals)) == {"0x00000000"}
    storm.blow(chance.randrange(3))
    assert set(service.commit([track(prefix) for prefix in gone])) == {"0x00000000"}


def crash(service, storm, chance):
    """The storm goes on while the service is not there."""
    service.crash()
    storm.blow(chance.randrange(3))
    service.start()


def nothing(*_):
    pass


AND_THEN = (nothing, nothing, nothing, track_anew, crash)


@pytest.mark.parametrize("_", range(ROUNDS))
def test_every_track_is_right_after_a_storm(service, storm, chance, _):
    for _ in range(CALMS_WITH_CHECKS if service.build.sanitized else CALMS):
        storm.blow(chance.randrange(1, 12))
        chance.choice(AND_THEN)(service, storm, chance)
        storm.blow(chance.randrange(2))
        settle(service)
    storm.end()
    settle(service)
    tracks = service.tracks()
    assert len(tracks) == len(PREFIXES) + len(INTERFACES)
    assert check_against_the_kernel(service.net, tracks) > 0


def test_every_track_is_right_after_lost_messages(service, storm, chance):
    flood = [f"route {verb} {route}" for _ in range(10) for verb in ("add", "del")
             for route in OTHERS]
    assert len(flood) == MESSAGES
    # The kernel keeps messages from the service that concern no track.
    assert service.commit([track("172.16.0.0/12")]) == ["0x00000000"]
    for _ in range(3):
        before = service.daemon.dropped_route_messages()
        service.daemon.process.send_signal(signal.SIGSTOP)
        try:
            storm.blow(chance.randrange(1, 6))
            service.net.ip_batch(flood)
            storm.blow(chance.randrange(1, 6))
            assert service.daemon.dropped_route_messages() > before
        finally:
            service.daemon.process.send_signal(signal.SIGCONT)
        settle(service)
