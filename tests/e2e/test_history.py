"""`trackctl history`: what changed, why, and how long each state lasted."""

import datetime
import json
import time

from waiting import wait_until


def history(service, *arguments):
    return json.loads(service.ctl("history", *arguments, "--json"))


def kept_of(kept, track):
    return [row for row in kept["changes"] if row["track"] == track]


def changes(service, *arguments):
    return [(row["track"], row["from"], row["to"], row["cause"])
            for row in history(service, *arguments)["changes"]]


def test_every_cause(service):
    service.net.link("lan0")
    service.ctl("set", "uplink", "interface", "lan0")
    service.wait_state("uplink", "up")
    service.ctl("set", "any", "or", "uplink")
    service.wait_state("any", "up")
    service.ctl("delay", "any", "--down", "1")
    service.net.ip("link set lan0 down")
    service.wait_state("any", "down")
    service.ctl("delete", "any")
    known = [("uplink", "unknown", "up"), ("any", "unknown", "up"), ("uplink", "up", "down"),
             ("any", "up", "down")]
    assert [row[:3] for row in changes(service)] == known
    assert [row[3] for row in changes(service)][1:] == ["list", "object", "delay"]
    assert changes(service, "any") == [("any", "unknown", "up", "list"),
                                       ("any", "up", "down", "delay")]
    lasted = history(service, "any")["changes"][1]["lasted_ms"]
    assert 1000 <= lasted < 60000
    assert history(service, "any")["summary"]["state"] == "gone"
    assert history(service, "uplink")["summary"]["flaps"] == 1
    assert service.ctl("history", "uplink", "--since", "1h").splitlines()[-1].startswith(
        "uplink is down; it left up once and was up ")


def test_it_begins_anew_with_the_service(service):
    service.net.link("lan0")
    service.ctl("set", "uplink", "interface", "lan0")
    service.wait_state("uplink", "up")
    first = history(service)["since"]
    service.stop()
    service.net.ip("link set lan0 down")
    service.start()
    assert changes(service) == [("uplink", "up", "down", "restart")]
    assert history(service)["since"] > first
    assert history(service)["complete"] is True


def test_the_time_of_a_track_is_from_when_it_was_made_to_when_it_went(service):
    began = history(service)["since"]
    wait_until(lambda: time.time() > datetime.datetime.fromisoformat(began).timestamp() + 1, 5,
               "another second")
    service.ctl("set", "nobody", "interface", "lan9")
    assert history(service, "nobody")["changes"] == []
    assert history(service, "nobody")["summary"]["since"] > began
    service.net.link("lan0")
    service.ctl("set", "uplink", "interface", "lan0")
    service.wait_state("uplink", "up")
    assert history(service, "uplink")["summary"]["up_percent"] == 100
    service.ctl("delete", "uplink")
    gone = history(service, "uplink")
    assert (gone["summary"]["state"], gone["summary"]["up_percent"]) == ("gone", 100)
    assert gone["summary"]["until"] == gone["changes"][-1]["time"]


def test_more_changes_than_a_page(service):
    tracks = [f"t{number:03}" for number in range(300)]
    service.net.link("lan0")
    service.configure(tracks, "lan0")
    service.net.ip("link set lan0 down")
    wait_until(lambda: len(changes(service)) == 600, service.build.patience, "all changes")
    assert sorted(row[0] for row in changes(service)) == sorted(tracks * 2)


def test_the_oldest_are_forgotten(service):
    service.net.link("lan0")
    service.ctl("apply", service.write_tracks(
        *(f"t{number} interface lan0" for number in range(1100))))
    for change, state in enumerate(("down", "up", "down"), start=2):
        service.net.ip(f"link set lan0 {state}")
        wait_until(lambda change=change: all(
            track["changes"] == change for track in service.tracks()), service.build.patience, state)
    kept = history(service)
    assert (kept["complete"], len(kept["changes"])) == (False, 4096)
    assert service.ctl("history").splitlines()[0].endswith("; the oldest are forgotten.")
    # What came before the oldest that is kept is not known.
    assert history(service, "t0")["summary"]["since"] == kept_of(kept, "t0")[0]["time"]


def test_refusals(service):
    for arguments, status, text in (
            (["nobody"], 1, 'there is no track "nobody"'),
            (["--since", "yesterday"], 2, '--since "yesterday" is no time; give how long ago')):
        result = service.run("trackctl", "history", *arguments)
        assert (result.returncode, result.stdout) == (status, "")
        assert text in result.stderr
