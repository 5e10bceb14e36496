"""Tracks that come and go leave nothing behind in the process."""

import re

import pytest

import ledger

CYCLES = 2000
SLACK_KB = 128


def pss_kb(pid):
    with open(f"/proc/{pid}/smaps_rollup") as stream:
        return int(re.search(r"^Pss:\s+(\d+) kB", stream.read(), re.M).group(1))


@pytest.mark.parametrize("delays", [False, True])
def test_thousands_of_tracks_created_and_deleted(service, delays):
    if service.build.sanitized:
        pytest.skip("a sanitizer's own books grow with every allocation")
    service.net.link("lan0")
    track = "/cfg/gl/object_tracking/track/churn"
    extra = [f"{track}/delay_up", f"{track}/delay_down"] if delays else []
    create = ledger.track_items("churn", "lan0") + [f"set u32 {item} 3" for item in extra]
    remove = ledger.track_removal("churn")
    remove[-1:-1] = [f"delete {item}" for item in extra]

    def cycle(count):
        assert set(service.commit([create, remove] * count)) == {"0x00000000"}

    cycle(CYCLES // 4)
    before = pss_kb(service.daemon.pid)
    cycle(CYCLES)
    assert pss_kb(service.daemon.pid) - before <= SLACK_KB
