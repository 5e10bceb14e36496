"""`trackctl engine`: what the service is connected to, since when, and what waits for it."""

import datetime
import json
import re

from waiting import wait_until


def engines(service):
    return {row["service"]: row for row in json.loads(service.ctl("engine", "--json"))}


def test_a_service_without_bfd_and_probes(service):
    now = datetime.datetime.now(datetime.timezone.utc)
    rows = engines(service)
    assert list(rows) == ["bfd", "probe", "fib", "interfaces", "loop"]
    wait_until(lambda: engines(service)["fib"]["connected"], service.build.patience, "the FIB")
    assert engines(service)["interfaces"]["connected"] is True
    assert rows["bfd"]["connected"] is False
    for row in rows.values():
        since = datetime.datetime.fromisoformat(row["since"].replace("Z", "+00:00"))
        assert abs((now - since).total_seconds()) < 60
        assert row["pending"] == 0


def test_what_waits_is_counted(service):
    service.ctl("set", "peer", "bfd", "192.0.2.1", "--interface", "mark-up")
    service.ctl("set", "spare", "interface", "not-there")
    rows = engines(service)
    assert (rows["bfd"]["pending"], rows["interfaces"]["pending"]) == (1, 1)
    service.net.link("not-there")
    wait_until(lambda: engines(service)["interfaces"]["pending"] == 0, service.build.patience,
               "the interface")


def test_the_table(service):
    lines = service.ctl("engine").splitlines()
    assert lines[0].split() == ["Service", "State", "Since", "Pending"]
    assert [line[:17].rstrip() for line in lines[1:-1]] == [
        "BFD engine", "probe service", "FIB", "interface manager"]
    assert re.fullmatch(r"Longest turn of the main loop: \d+\.\d{3} ms, \d{4}-\d\d-\d\d "
                        r"\d\d:\d\d:\d\d", lines[-1])


def test_the_longest_turn_is_kept(service):
    first = engines(service)["loop"]
    assert 0 < first["longest_turn_ms"] < 10_000
    later = engines(service)["loop"]
    assert later["longest_turn_ms"] >= first["longest_turn_ms"]
    assert later["longest_turn_at"] >= first["longest_turn_at"]


def test_a_bfd_track_that_waits_takes_no_delays(service):
    session = ("set", "peer", "bfd", "192.0.2.1", "--interface", "mark-up")
    refused = service.run("trackctl", *session, "--delay-up", "5")
    assert refused.returncode == 1
    assert "the BFD engine is not connected" in refused.stderr
    assert engines(service)["bfd"]["pending"] == 0
    service.ctl(*session)
    refused = service.run("trackctl", "delay", "peer", "--down", "5")
    assert (refused.returncode, "takes no delays" in refused.stderr) == (1, True)
    service.ctl("delay", "peer", "--down", "0")
    assert engines(service)["bfd"]["pending"] == 1


def test_without_a_service(service):
    service.stop()
    assert service.run("trackctl", "engine").returncode == 3
