"""The wall clock is set, an hour ahead and then a day back: nothing comes sooner or later, nothing is taken
for a change, and the times that people read go along. A router without a battery for its clock starts
with a wrong one."""

import json
from datetime import datetime, timedelta

import pytest

from guest_service import PATIENCE
from waiting import wait_until

PROBE = """[[operation]]
id = 7
kind = "icmp"
target = "127.0.0.1"
interval = "1s"
timeout = "900ms"
"""
POLICY = """[[policy]]
name = "tells"
track = "flaps"
kind = "command"
run = ["/bin/sh", "-c", "echo $OT_STATE >>{root}/told"]
run_as_root = true
every = true
half_life = "{half_life}s"
suppress = 5000
"""
STEPS = (3600, -86400)  # seconds
MILLISECOND = timedelta(milliseconds=1)
SLACK = timedelta(seconds=2)  # whole seconds, and what passes between two questions
MINUTES = timedelta(minutes=5)  # for what went before
DELAY = 10  # seconds
HALF_LIFE = 20  # seconds


class Router:
    """What is asked of the running service, with the guest's clocks."""

    def __init__(self, service):
        self.service = service

    def uptime(self):
        return float(self.service.guest.must("cut -d ' ' -f 1 /proc/uptime"))

    def now(self):
        return datetime.fromisoformat(self.service.guest.must("date -u -Iseconds").strip())

    def step(self, seconds):
        self.service.guest.must(f"date -u -s @$(($(date +%s) + {seconds}))")

    def set_link(self, name, state):
        self.service.net.ip(f"link set {name}-p {state}")

    def flap(self):
        for state in ("down", "up"):
            self.set_link("r1", state)
            self.service.wait_states(flaps=state)

    def policy(self):
        return json.loads(self.service.ctl("policy", "list", "--json"))[0]

    def told(self):
        return self.service.guest.must(f"cat {self.service.root}/told").split()

    def results(self):
        return self.service.qmond_status()[0]["results"]

    def history(self, *words):
        return json.loads(self.service.ctl("history", *words, "--json"))


@pytest.fixture
def router(service):
    service.net.link("r0", "r1")
    service.ctl("set", "slow", "interface", "r0", "--delay-down", str(DELAY))
    service.ctl("set", "flaps", "interface", "r1")
    service.ctl("set", "target", "probe", "7")
    service.start_qmond(PROBE)
    service.start_trackpolicy(POLICY.format(root=service.root, half_life=HALF_LIFE))
    service.wait_states(slow="up", flaps="up", target="up")
    it = Router(service)
    wait_until(lambda: it.told() == ["up"], PATIENCE, "the first state told")
    service.follow()
    return it


def test_delays_go_on(router):
    for count, seconds in enumerate(STEPS, 1):
        router.set_link("r0", "up")
        router.service.wait_states(slow="up")
        began = router.uptime()
        router.set_link("r0", "down")
        wait_until(lambda: any(track["pending"] for track in router.service.tracks()), PATIENCE,
                   "a delay that runs")
        router.step(seconds)
        router.service.wait_states(slow="down")
        assert DELAY <= router.uptime() - began < 2 * DELAY
        router.service.wait_events(*[("slow", "down"), ("slow", "up")] * (count - 1), ("slow", "down"))


def test_probes_go_on(router):
    for seconds in STEPS:
        router.step(seconds)
        began, results = router.uptime(), router.results()
        wait_until(lambda: router.results() >= results + 3, PATIENCE, "three more probes")  # noqa: B023
        assert 2 <= router.uptime() - began < 10
    assert router.service.states()["target"] == "up"
    assert router.service.events() == []


def test_policies_go_on(router):
    router.flap()
    for count, seconds in enumerate(STEPS, 2):
        began, penalty = router.uptime(), router.policy()["penalty"]
        router.step(seconds)
        left, passed = router.policy()["penalty"], router.uptime() - began
        assert penalty * 0.5 ** (passed / HALF_LIFE) - 1 <= left <= penalty
        router.flap()
        wait_until(lambda: router.told() == ["up", *["down", "up"] * count],  # noqa: B023
                   PATIENCE, router.told)


def test_the_past_goes_along(router):
    began = router.uptime()
    router.flap()
    for count, seconds in enumerate(STEPS, 2):
        router.step(seconds)
        router.flap()
        now, passed = router.now(), timedelta(seconds=router.uptime() - began)
        told = router.history("flaps", "--since", "10m")
        flaps = told["changes"][1:]  # behind the first state
        assert len(flaps) == 2 * count
        for change in flaps:
            assert now - passed - SLACK <= datetime.fromisoformat(change["time"]) <= now + SLACK
        assert 0 <= sum(change["lasted_ms"] for change in flaps[1:]) <= passed / MILLISECOND
        assert now - passed - MINUTES <= datetime.fromisoformat(told["summary"]["since"]) <= now
        assert told["summary"]["up_percent"] > 0
