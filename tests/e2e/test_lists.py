"""Lists of tracks, three levels deep, over interfaces."""

import json
import re

import pytest

TIME = re.compile(r"last change \d\d:\d\d:\d\d \S+ \w{3} \w{3} \d\d \d{4}\n")


def masked(text):
    return TIME.sub("last change TIME\n", text)


def shown(service, name):
    return json.loads(service.ctl("show", name, "--json"))


@pytest.fixture
def site(service):
    """Tracks a, b, c on the interfaces if-a, if-b, if-c; both = a and b; anyway = both or c;
    site = anyway, delayed."""
    for name in ("a", "b", "c"):
        service.net.link(f"if-{name}")
        service.ctl("set", name, "interface", f"if-{name}")
        service.wait_state(name, "up")
    # The lists of lists come first: a member may be missing.
    service.ctl("set", "site", "and", "anyway", "not", "maintenance", "--delay-down", "1")
    service.ctl("set", "anyway", "or", "both", "c")
    service.ctl("set", "both", "and", "a", "b")
    service.wait_state("site", "up")
    return service


def events_of_burst(service, events, canary):
    """The events up to a calculation that begins now: a list of that name is made for it."""
    service.ctl("set", canary, "or", "not", "nobody")
    seen = []
    while (canary, "up") not in seen:
        seen += events.wait_count(1)
    return seen[:-1]


def test_a_change_travels_through_all_levels_in_one_calculation(site):
    site.ctl("delay", "site", "--down", "0")
    site.net.ip("link set if-c down")
    site.wait_state("c", "down")
    events = site.follow()
    site.net.carrier("if-b", on=False)
    events.expect(("b", "down"))
    # One calculation publishes them all, in the order in which the passes come to them.
    assert events.wait_count(3) == [("both", "down"), ("anyway", "down"), ("site", "down")]
    site.net.carrier("if-b", on=True)
    events.expect(("b", "up"), ("both", "up"), ("anyway", "up"), ("site", "up"))
    assert events_of_burst(site, events, "canary") == []


def test_a_list_holds_its_change_back(site):
    site.ctl("delay", "site", "--down", "100")
    site.net.ip("link set if-c down")
    site.net.ip("link set if-a down")
    site.wait_state("anyway", "down")
    site.wait_detail("site", "delayed Down (")
    assert site.state("site") == "up"
    assert shown(site, "site")["pending"]["state"] == "down"
    site.net.ip("link set if-c up")
    site.wait_detail("site", "is UP \n")
    assert site.state("site") == "up"


def test_the_delay_of_a_list_runs_out(site):
    site.net.ip("link set if-c down")
    site.net.ip("link set if-a down")
    site.wait_state("site", "down")
    assert site.state("anyway") == "down"


def test_fast_flaps_cost_one_calculation(site):
    """Changes less than 20 ms apart are served by one calculation. On a busy machine a burst may be
    torn apart, so it may take some attempts."""
    events = site.follow()
    flaps = [f"link set if-b-p {state}" for _ in range(3) for state in ("down", "up")]
    for attempt in range(20):
        site.net.ip_batch([*flaps, "link set if-b-p down"])
        site.wait_state("both", "down")
        seen = events_of_burst(site, events, f"canary{attempt}")
        if seen.count(("b", "down")) >= 2 and seen.count(("both", "down")) == 1:
            return
        site.net.carrier("if-b", on=True)
        site.wait_state("both", "up")
        events_of_burst(site, events, f"pause{attempt}")
    pytest.fail("every burst was followed change by change")


def test_a_member_may_go_and_come_without_a_fix_up(site):
    site.ctl("delete", "c")
    site.net.ip("link set if-a down")
    site.wait_state("anyway", "down")
    site.ctl("set", "c", "interface", "if-c")
    site.wait_state("anyway", "up")
    assert shown(site, "anyway")["members"] == [
        {"name": "both", "state": "down", "not": False, "missing": False},
        {"name": "c", "state": "up", "not": False, "missing": False}]


def test_a_crash_changes_no_list(site):
    site.ctl("delay", "site", "--down", "0")
    site.net.ip("link set if-a down")
    site.wait_state("both", "down")
    site.ctl("set", "most", "percentage", "--up", "100", "--down", "60", "a", "b", "c")
    site.wait_state("most", "up")
    names = ("both", "anyway", "site", "most")
    before = {name: site.state(name) for name in names}
    assert before == {"both": "down", "anyway": "up", "site": "up", "most": "up"}
    site.crash()
    site.start()
    assert {name: site.state(name) for name in names} == before
    events = site.follow()
    assert events_of_burst(site, events, "canary") == []
    assert {name: site.state(name) for name in names} == before
    assert all("\t0 changes, last change" in site.show(name, "all") for name in names)
    site.net.ip("link set if-a up")
    events.expect(("a", "up"), ("both", "up"))


def test_thresholds_follow_their_members(site):
    site.ctl("set", "sum", "weight", "--up", "10", "--down", "5", "a=3", "b=3", "c=5")
    site.wait_state("sum", "down")  # 11
    site.net.ip("link set if-c down")
    site.wait_state("sum", "up")  # 6
    site.net.ip("link set if-b down")
    site.wait_state("sum", "down")  # 3
    assert masked(site.show("sum", "all")) == (
        "\nTrack sum \n"
        "\tList threshold weight is DOWN \n"
        "\t3 changes, last change TIME\n"
        "\t\tobject a UP\n\t\tobject b DOWN\n\t\tobject c DOWN\n")


def test_set_changes_only_what_differs(site):
    site.ctl("set", "sum", "weight", "--up", "100", "--down", "5", "a=3", "b=3", "c=5")
    site.wait_state("sum", "up")
    site.ctl("set", "sum", "weight", "--up", "4", "--down", "3", "a=3", "c=5", "d=7")
    site.wait_state("sum", "down")  # 8 > 4
    view = shown(site, "sum")
    assert view["limits"] == {"up": 4, "down": 3}
    assert {one["name"]: (one["weight"], one["missing"]) for one in view["members"]} == {
        "a": (3, False), "c": (5, False), "d": (7, True)}
    changes = view["changes"]
    site.ctl("set", "sum", "weight", "--up", "4", "--down", "3", "d=7", "a=3", "c=5")
    assert shown(site, "sum") == view
    site.ctl("set", "both", "or", "a", "nobody")
    site.wait_state("both", "up")
    assert shown(site, "both")["type"] == "or"
    assert shown(site, "sum")["changes"] == changes


def test_refusals_say_why(site):
    for words, status, text in [
            (("x", "and", "x"), 1, "A list cannot name itself as a member"),
            (("x", "and"), 2, "MEMBER"),
            (("x", "and", "a", "not"), 2, "needs a MEMBER"),
            (("x", "or", "a", "a"), 2, "named twice"),
            (("x", "weight", "--up", "5", "--down", "5", "a=1"), 2, "not greater than"),
            (("x", "weight", "--up", "0", "--down", "0", "a=1"), 2, "from 1 to 4294967295"),
            (("x", "weight", "--up", "5", "a=1"), 2, "--down"),
            (("x", "weight", "--up", "5", "--down", "1", "a"), 2, "a=WEIGHT")]:
        result = site.run("trackctl", "set", *words)
        assert (result.returncode, result.stdout) == (status, ""), result.stderr
        assert text in result.stderr
    assert site.run("trackctl", "state", "x").returncode == 1
    result = site.run("trackctl", "set", "x", "percentage", "--up", "100", "--down", "1", "a=50")
    assert result.returncode == 0
    assert "the weight of member \"a\" counts as 1" in result.stderr


def test_a_set_that_closes_a_cycle_warns_and_is_done(service):
    service.ctl("set", "a", "or", "b", "x")
    service.ctl("set", "b", "and", "not", "c")
    closing = service.run("trackctl", "set", "c", "weight", "--up", "9", "--down", "1", "a=2")
    assert (closing.returncode, closing.stdout) == (0, "")
    assert closing.stderr == (
        "trackctl: warning: these lists contain each other and wait for each other: "
        "c -> a -> b -> c; they keep the states they have until one of them is changed\n")
    assert shown(service, "c")["members"][0]["name"] == "a"
    opened = service.run("trackctl", "set", "b", "and", "x")
    assert (opened.returncode, opened.stderr) == (0, "")


def test_the_service_itself_refuses_bad_limits(service):
    limits = "/cfg/gl/object_tracking/track/x/type/list/0x7/thld_limits/val_up"
    answers = service.commit([[f"set u32 {limits}/0x5/val_dn 5"],
                              [f"set u32 {limits}/0x0/val_dn 0"]])
    assert answers[0].startswith("0xa64c8e00")
    assert "Threshold Up value should be > Threshold Down Value" in answers[0]
    assert answers[1].startswith("0x00000016")
