"""The operator's tool: what it changes, what it refuses, what it answers."""

import datetime
import json
import time

import pytest


@pytest.fixture
def office(service):
    service.net.link("lan0")
    service.net.link("lan1", up=False)
    service.ctl("set", "office", "interface", "lan0")
    service.wait_state("office", "up")
    return service


def change_line(service, name):
    """The counter and the time of the last change, as shown."""
    return [line for line in service.show(name, "all").splitlines() if "last change" in line]


def test_the_same_set_again_changes_nothing(office):
    office.ctl("set", "guard", "interface", "lan0", "--delay-up", "2", "--delay-down", "3")
    events = office.follow()
    before = change_line(office, "guard")
    office.ctl("set", "guard", "interface", "lan0", "--delay-up", "2", "--delay-down", "3")
    assert change_line(office, "guard") == before
    events.expect_nothing()


def test_set_moves_a_track_to_another_interface(office):
    office.ctl("set", "office", "interface", "lan1")
    assert office.state("office") == "down"
    assert "\tInterface lan1 line-protocol\n" in office.show("office", "all")
    events = office.follow()
    # It has let go of the first one.
    office.net.ip("link set lan0 down")
    events.expect_nothing()
    office.net.ip("link set lan1 up")
    events.expect(("office", "up"))


def test_set_says_the_whole_truth_about_delays(office):
    office.ctl("set", "office", "interface", "lan0", "--delay-down", "100")
    began = time.monotonic()
    office.net.ip("link set lan0 down")
    office.wait_delayed("office", "Down", 100, began)
    office.net.ip("link set lan0 up")
    office.wait_detail("office", "Line protocol is UP \n")

    # Without the option the delay is none.
    office.ctl("set", "office", "interface", "lan0")
    office.net.ip("link set lan0 down")
    office.wait_state("office", "down")


def test_delay_changes_one_and_leaves_the_other(office):
    office.ctl("delay", "office", "--up", "50", "--down", "60")
    office.ctl("delay", "office", "--up", "70")
    began = time.monotonic()
    office.net.ip("link set lan0 down")
    office.wait_delayed("office", "Down", 60, began)


def test_delete(office):
    office.ctl("delete", "office")
    assert office.show("office", "all") == ""
    result = office.run("trackctl", "delete", "office")
    assert result.returncode == 1
    assert "office" in result.stderr


@pytest.mark.parametrize("name,text,status", [
    ("up-track", "up\n", 0),
    ("down-track", "down\n", 10),
])
def test_state_answers_by_text_and_status(office, name, text, status):
    office.ctl("set", "up-track", "interface", "lan0")
    office.ctl("set", "down-track", "interface", "lan1")
    result = office.run("trackctl", "state", name)
    assert (result.returncode, result.stdout, result.stderr) == (status, text, "")


def test_state_of_a_track_that_is_not_configured(office):
    result = office.run("trackctl", "state", "nosuch")
    assert (result.returncode, result.stdout) == (1, "")
    assert "nosuch" in result.stderr


def test_json_of_one_track(office):
    office.ctl("delay", "office", "--up", "5", "--down", "6")
    shown = json.loads(office.ctl("show", "office", "--json"))
    changed = datetime.datetime.fromisoformat(shown.pop("last_change")).timestamp()
    assert abs(changed - time.time()) < 60
    assert shown == {
        "name": "office", "type": "interface", "state": "up", "changes": 1, "delay_up": 5,
        "delay_down": 6, "pending": None, "object": {"interface": "lan0"}, "members": [],
        "limits": None, "tracked_by": []}


def test_json_of_all_tracks(office):
    office.ctl("set", "guest", "interface", "nosuch0")
    shown = json.loads(office.ctl("show", "--json"))
    assert {track["name"]: track["state"] for track in shown} == {"office": "up", "guest": "down"}


@pytest.mark.parametrize("arguments", [
    [],
    ["frobnicate"],
    ["set"],
    ["set", "office"],
    ["set", "office", "interface"],
    ["set", "office", "bicycle", "lan0"],
    ["set", "office", "interface", "lan0", "--delay-up", "soon"],
    ["set", "office", "interface", "lan0", "--delay-up", "-1"],
    ["set", "office", "interface", "lan0", "--delay-up", "65536"],
    ["delay", "office"],
    ["events", "--state", "sideways"],
    ["debug", "everything", "on"],
])
def test_wrong_usage(office, arguments):
    result = office.run("trackctl", *arguments)
    assert result.returncode == 2, result
    assert result.stdout == ""
    assert result.stderr != ""


@pytest.mark.parametrize("name", ["", "n" * 33, "a/b", "a b", "tr\u00e4ck"])
def test_names_that_are_refused(office, name):
    result = office.run("trackctl", "set", name, "interface", "lan0")
    assert result.returncode == 2, result
    assert "name" in result.stderr
    assert office.show("all-tracks").count("\n") == 3


def test_a_track_keeps_its_type(office):
    track = "/cfg/gl/object_tracking/track/office"
    answer, = office.commit([[f"set u32 {track}/type/route/0x2/a 1"]])
    assert answer.startswith("0xa64c8200")
    assert office.state("office") == "up"


def test_commits_outside_the_tree_are_refused(office):
    path = "/cfg/gl/object_tracking/track/office/colour"
    answer, = office.commit([[f"set u32 {path} 1"]])
    assert not answer.startswith("0x00000000")
    assert path in answer


def test_a_refused_change_refuses_its_whole_commit(office):
    answer, = office.commit([["set u32 /cfg/gl/object_tracking/track/new/delay_up 5",
                              "set u32 /cfg/gl/object_tracking/track/office/colour 1"]])
    assert not answer.startswith("0x00000000")
    assert office.show("new", "all") == ""
