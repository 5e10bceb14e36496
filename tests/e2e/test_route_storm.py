"""Route tracks while thousands of other routes change, faster than the service can be notified."""

import json
import signal
import subprocess
import time

import pytest

from lateness import Lateness
from waiting import wait_until

GATEWAY = "10.0.0.2"
TRACKS = 40
RATE = 10_000
AT_FIRST = {number: number % 2 == 1 for number in range(1, TRACKS + 1)}  # which routes are there


def route(number):
    return f"192.0.2.{number}/32"


class Storm:
    """Runs route_storm in the service's namespace, ahead of whatever else this machine does: its rate
    is what the service has to stand."""

    def __init__(self, service, seconds):
        self._patience = seconds + service.build.patience
        self._process = subprocess.Popen(
            [*service.net.command(), "nice", "-n", "-10", *service.build.command("route_storm"), "up0",
             str(RATE), str(seconds)], stdout=subprocess.PIPE, text=True)

    @property
    def blows(self):
        return self._process.poll() is None

    def end(self):
        """The number of changes it has made, all in time."""
        printed, _ = self._process.communicate(timeout=self._patience)
        assert self._process.returncode == 0
        return int(printed)

    def close(self):
        if self.blows:
            self._process.kill()
        self._process.communicate()


@pytest.fixture
def storm(routed):
    """Starts a storm of a length that a build with checks can stand, too."""
    seconds = 4 if routed.build.sanitized else 10
    begun = []

    def begin():
        begun.append(Storm(routed, seconds))
        return begun[-1], seconds

    yield begin
    for one in begun:
        one.close()


@pytest.fixture
def routed(service):
    """Tracks r1, r2 ... of as many routes."""
    service.net.link("up0")
    service.net.ip("address add 10.0.0.1/24 dev up0")
    for number in AT_FIRST:
        service.ctl("set", f"r{number}", "route", route(number))
    change(service, AT_FIRST)
    return service


def change(service, wanted):
    """Makes each numbered route be there or not."""
    service.net.ip_batch([
        f"route replace {route(number)} via {GATEWAY}" if there else
        f"route replace blackhole {route(number)}" for number, there in wanted.items()])


def concern_somebody(service):
    """Of the storm's routes, whose messages the kernel keeps from the service otherwise."""
    service.ctl("set", "storm", "route", "172.16.0.0/16")


def right(service, wanted):
    shown = {track["name"]: track["state"] for track in json.loads(service.ctl("show", "--json"))}
    return all(shown[f"r{number}"] == ("up" if there else "down")
               for number, there in wanted.items())


def test_a_storm_of_other_routes_changes_nothing(routed, storm):
    wait_until(lambda: right(routed, AT_FIRST), routed.build.patience, "the states before")
    events = routed.follow()
    other, seconds = storm()
    assert other.end() == RATE * seconds
    events.expect_nothing()
    assert right(routed, AT_FIRST)


def test_after_lost_messages_every_track_is_right_within_a_second(routed, storm):
    """The service is stopped until messages to it are lost; meanwhile tracked routes change. That
    happens again and again, in the middle of the storm and at its end."""
    concern_somebody(routed)
    within = routed.build.patience if routed.build.sanitized else 1.0
    other, seconds = storm()
    wanted = AT_FIRST
    rounds = 0
    while other.blows:
        before = routed.daemon.dropped_route_messages()
        routed.daemon.process.send_signal(signal.SIGSTOP)
        try:
            wait_until(lambda: routed.daemon.dropped_route_messages() > before or not other.blows,
                       routed.build.patience, "messages lost")
            lost = routed.daemon.dropped_route_messages() > before
            wanted = {number: not there for number, there in wanted.items()}
            change(routed, wanted)
        finally:
            routed.daemon.process.send_signal(signal.SIGCONT)
        began = time.monotonic()
        with Lateness() as machine:
            wait_until(lambda: right(routed, wanted), routed.build.patience,
                       f"every track right in round {rounds}")
        assert time.monotonic() - began - machine.chain(2) < within, machine.longest
        rounds += lost
    assert other.end() == RATE * seconds
    assert rounds >= 1
    assert right(routed, wanted)
