"""1,500 tracks, and not one more."""

import ledger

NAMES = [f"t{number:04}" for number in range(1500)]
REFUSED = "0xa64c8c00"


def test_the_1501st_track_is_refused_until_one_is_deleted(service):
    service.net.link("lan0")
    service.configure(NAMES, "lan0")

    result = service.run("trackctl", "set", "extra", "interface", "lan0")
    assert result.returncode == 1
    assert REFUSED in result.stderr
    assert "maximum" in result.stderr.lower()
    answer, = service.commit([ledger.track_items("extra", "lan0")])
    assert answer.startswith(REFUSED)
    assert service.show("extra", "all") == ""

    service.ctl("delete", "t0700")
    service.ctl("set", "extra", "interface", "lan0")
    assert service.state("extra") == "up"


def test_all_1500_tracks_follow_their_interface(service):
    service.net.link("lan0")
    # The limit leaves no room for the follower's marks: it subscribes first.
    events = service.follow()
    service.configure(NAMES, "lan0")
    assert events.wait_count(1500) == [(name, "up") for name in NAMES]

    service.net.ip("link set lan0 down")
    assert events.wait_count(1500) == [(name, "down") for name in reversed(NAMES)]
    brief = service.show("all-tracks").splitlines()
    assert len(brief) == 2 + 1500
    assert all(line.endswith("Down ") for line in brief[2:])
    detail = service.show("all-tracks", "all")
    assert sorted(line.split()[1] for line in detail.splitlines() if line.startswith("Track ")) \
        == NAMES
