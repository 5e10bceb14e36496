"""Tracks that come and go leave nothing behind in the process."""

import re

import pytest

import ledger
from probe_fixtures import qmond  # noqa: F401  (a fixture)
from waiting import wait_until

CYCLES = 2000
SLACK_KB = 128


def anonymous_kb(pid):
    """The memory that is the process's own: no file's pages, which are the kernel's to keep."""
    with open(f"/proc/{pid}/smaps_rollup") as stream:
        return int(re.search(r"^Anonymous:\s+(\d+) kB", stream.read(), re.M).group(1))


def test_thousands_of_tracks_created_and_deleted(service):
    if service.build.sanitized:
        pytest.skip("a sanitizer's own records grow with every allocation")
    service.net.link("lan0")
    track = "/cfg/gl/object_tracking/track/churn"
    delays = [f"{track}/delay_up", f"{track}/delay_down"]
    create = ledger.track_items("churn", "lan0") + [f"set u32 {item} 3" for item in delays]
    remove = [f"delete {item}" for item in delays] + ledger.track_removal("churn")

    def cycle(count):
        assert set(service.commit([create, remove] * count)) == {"0x00000000"}

    cycle(CYCLES)
    taken = [anonymous_kb(service.daemon.pid)]
    # Queues and caches have their size at some time, later on a busy machine; what is lost with each
    # track is lost every time.
    while len(taken) < 2 or taken[-1] - taken[-2] > SLACK_KB:
        assert len(taken) <= 5, f"{taken} kB"
        cycle(CYCLES)
        taken.append(anonymous_kb(service.daemon.pid))


def test_qmond_gives_back_what_reading_its_operations_took(qmond):
    if qmond.service.build.sanitized:
        pytest.skip("a sanitizer keeps what was freed")
    echo = {"kind": "icmp", "target": "127.0.0.1", "interval": "60s"}
    operations = [{"id": number, **echo} for number in range(1, 3001)]
    qmond.configure(*operations[:1])
    qmond.start()
    before = anonymous_kb(qmond.daemon.pid)
    qmond.configure(*operations)
    assert "2999 operations added" in qmond.reload()
    wait_until(lambda: anonymous_kb(qmond.daemon.pid) - before < 0.75 * len(operations), 5,
               "at most 0.75 kB an operation")
    qmond.stop()
    qmond.start()
    wait_until(lambda: anonymous_kb(qmond.daemon.pid) - before < 0.75 * len(operations), 5,
               "at most 0.75 kB an operation")
