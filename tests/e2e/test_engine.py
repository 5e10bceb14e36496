"""`trackctl engine`: what the service is connected to, since when, and what waits for it."""

import datetime
import json
import re

from waiting import wait_until


def engines(service):
    return {row["service"]: row for row in json.loads(service.ctl("engine", "--json"))}


def wait_own_engine(service):
    """It begins in a thread of its own."""
    wait_until(lambda: engines(service)["bfd"]["connected"], service.build.patience, "the engine")


def test_a_service_without_bfd_and_probes(service):
    wait_own_engine(service)
    now = datetime.datetime.now(datetime.timezone.utc)
    rows = engines(service)
    assert list(rows) == ["bfd", "probe", "fib", "interfaces", "loop"]
    wait_until(lambda: engines(service)["fib"]["connected"], service.build.patience, "the FIB")
    assert engines(service)["interfaces"]["connected"] is True
    assert rows["bfd"]["connected"] is True
    assert rows["bfd"]["detail"] == "own engine (no bfdd of FRR runs here)"
    for row in rows.values():
        since = datetime.datetime.fromisoformat(row["since"].replace("Z", "+00:00"))
        assert abs((now - since).total_seconds()) < 60
        assert row["pending"] == 0


def test_an_engine_that_there_is_not_is_told(new_service, monkeypatch):
    monkeypatch.setenv("OT_BFD_ENGINE", "bfdd")
    service = new_service()
    service.start()
    wait_until(lambda: 'OT-SERVICES-5-BFD: OT_BFD_ENGINE is "bfdd": it must be auto, own or frr; auto is'
                       " taken" in service.daemon.output(), service.build.patience, "the log")
    assert engines(service)["bfd"]["detail"] == "own engine (no bfdd of FRR runs here)"


def test_what_waits_is_counted(service):
    service.ctl("set", "peer", "bfd", "192.0.2.1", "--interface", "not-there")
    service.ctl("set", "spare", "interface", "not-there")
    wait_until(lambda: [engines(service)[name]["pending"] for name in ("bfd", "interfaces")] == [1, 1],
               service.build.patience, "both wait")
    service.net.link("not-there")
    service.net.ip("addr add 192.0.2.2/24 dev not-there")
    for name in ("bfd", "interfaces"):
        wait_until(lambda name=name: engines(service)[name]["pending"] == 0,
                   service.build.patience, "the interface")


def test_the_table(service):
    wait_own_engine(service)
    lines = service.ctl("engine").splitlines()
    assert lines[0].split() == ["Service", "State", "Since", "Pending"]
    assert [line[:17].rstrip() for line in lines[1:-2]] == [
        "BFD engine", "probe service", "FIB", "interface manager"]
    assert lines[-2] == "BFD engine: own engine (no bfdd of FRR runs here)"
    assert re.fullmatch(r"Longest turn of the main loop: \d+\.\d{3} ms, \d{4}-\d\d-\d\d "
                        r"\d\d:\d\d:\d\d", lines[-1])


def test_the_longest_turn_is_kept(service):
    first = engines(service)["loop"]
    assert 0 < first["longest_turn_ms"] < 10_000
    later = engines(service)["loop"]
    assert later["longest_turn_ms"] >= first["longest_turn_ms"]
    assert later["longest_turn_at"] >= first["longest_turn_at"]


def test_a_bfd_track_without_a_session_takes_delays_and_is_deleted(service):
    service.ctl("set", "peer", "bfd", "192.0.2.1", "--interface", "not-there", "--delay-up", "5")
    service.ctl("delay", "peer", "--down", "5")
    service.crash()
    service.start()
    assert [(track["name"], track["delay_up"], track["delay_down"], track["object"]["destination"])
            for track in service.tracks()] == [("peer", 5, 5, "192.0.2.1")]
    service.ctl("delete", "peer")
    assert service.tracks() == []


def test_a_session_that_another_track_has_is_refused_unless_it_may_be_shared(service):
    session = ("bfd", "192.0.2.1", "--interface", "mark-up")
    service.ctl("set", "first", *session)
    refused = service.run("trackctl", "set", "second", *session)
    assert refused.returncode == 1
    assert 'track "first" has this session already' in refused.stderr
    assert [track["name"] for track in service.tracks()] == ["first"]
    service.ctl("set", "first", *session)
    service.ctl("set", "second", "bfd", "192.0.2.1", "--interface", "mark-dn")
    service.ctl("set", "third", *session, "--shared")
    assert sorted(track["name"] for track in service.tracks()) == ["first", "second", "third"]


def test_without_a_service(service):
    service.stop()
    assert service.run("trackctl", "engine").returncode == 3
