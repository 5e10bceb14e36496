"""`trackctl metrics`: its text as a strict reader of it finds it, in a file, and over HTTP."""

import os
import socket
import stat
import subprocess
import threading
import urllib.request

import pytest
from prometheus_client.openmetrics.parser import text_string_to_metric_families as openmetrics
from prometheus_client.parser import text_string_to_metric_families as prometheus

from policy import Trackpolicy
from waiting import wait_until

PREFIX = "object_tracking_"


def samples_of(families):
    """(name without the prefix, labels) to value; every one once, and every metric described."""
    found = {}
    for family in families:
        assert family.documentation and family.type in ("counter", "gauge"), family
        for sample in family.samples:
            assert sample.name.startswith(PREFIX)
            key = (sample.name[len(PREFIX):], frozenset(sample.labels.items()))
            assert key not in found, f"{key} twice"
            found[key] = sample.value
    return found


class Samples:
    def __init__(self, text, parse=openmetrics):
        self._found = samples_of(parse(text))

    def __call__(self, name, **labels):
        """The one value with these labels, and perhaps others; None when there is none."""
        values = [value for (each, has), value in self._found.items()
                  if each == name and labels.items() <= set(has)]
        assert len(values) <= 1, (name, labels)
        return values[0] if values else None

    def tracks(self):
        return {dict(labels)["track"] for name, labels in self._found if name == "track_state"}


def metrics(service):
    return Samples(service.ctl("metrics"))


def test_what_the_service_knows_is_measured(service):
    service.net.link("lan0")
    service.net.ip("addr add 192.0.2.2/24 dev lan0")
    for line in ("up1 interface mark-up", "dn1 interface mark-dn --delay-up 60", "probe1 probe 7",
                 "peer1 bfd 192.0.2.1 --interface lan0", "list1 or up1 dn1"):
        service.ctl("set", *line.split())
    wait_until(lambda: metrics(service)("bfd_session_state", track="peer1", state="down") == 1,
               service.build.patience, "the session")
    for up, state in ((True, "up"), (False, "down"), (True, "up")):
        service.net.carrier("mark-up", up)
        service.wait_state("up1", state)
        service.wait_state("list1", state)
    service.net.ip("link set mark-dn up")
    wait_until(lambda: metrics(service)("track_delay_remaining_seconds", track="dn1"),
               service.build.patience, "the delay runs")
    seen = metrics(service)
    for track in service.tracks():
        states = {state: seen("track_state", track=track["name"], type=track["type"], state=state)
                  for state in ("up", "down", "unknown")}
        assert states == {state: state == track["state"] for state in states}, track
        assert seen("track_changes_total", track=track["name"]) == track["changes"]
    assert seen("track_changes_total", track="up1") >= 3
    assert 0 <= seen("track_since_change_seconds", track="up1") < 60
    assert 0 < seen("track_delay_remaining_seconds", track="dn1", state="up") <= 60
    assert seen("track_delay_remaining_seconds", track="up1") is None
    assert seen("probe_return_code", track="probe1", operation="7") == 0
    assert seen("probe_round_trip_seconds", track="probe1") is None
    assert seen("bfd_session_state", track="peer1", state="down") == 1
    assert seen("bfd_session_state", track="peer1", state="up") == 0
    assert seen("bfd_session_ups_total", track="peer1") == 0
    assert seen("engine_connected", service="interfaces") == 1
    assert 0 < seen("loop_longest_turn_seconds") < 10
    assert (seen("service_up"), seen("trackpolicy_up")) == (1, 0)


def test_names_of_any_kind_are_different_tracks(service):
    names = ["n" * 38 + "a", "n" * 38 + "b", 'a"b', "a\\b", "a\\\\b", "Z\u00fcrich", "{x}", "a,b=c"]
    service.configure(names, "mark-up")
    service.wait_state("{x}", "up")
    assert metrics(service).tracks() == set(names)


def test_a_file_is_replaced_as_a_whole_and_tells_the_types_of_counters(service):
    path = os.path.join(service.root, "tracks.prom")
    service.ctl("set", "t", "interface", "mark-up")
    service.wait_state("t", "up")
    service.ctl("metrics", "--prometheus", "--output", path)
    first = os.stat(path)
    assert first.st_mode & 0o777 == 0o644
    with open(path, encoding="utf-8") as reader:
        service.ctl("metrics", "--output", path)
        old = reader.read()
    assert Samples(old, prometheus)("track_state", track="t", state="up") == 1
    assert f"# TYPE {PREFIX}track_changes_total counter\n" in old
    with open(path, encoding="utf-8") as reader:
        assert Samples(reader.read())("track_state", track="t", state="up") == 1
    assert os.stat(path).st_ino != first.st_ino
    assert [name for name in os.listdir(service.root) if name.startswith("tracks.prom")] == [
        "tracks.prom"]
    fifo = os.path.join(service.root, "fifo")  # as /dev/null is no file to be replaced
    os.mkfifo(fifo)
    refused = service.run("trackctl", "metrics", "--output", fifo)
    assert refused.returncode == 1 and "it is no regular file" in refused.stderr
    assert stat.S_ISFIFO(os.stat(fifo).st_mode)
    refused = service.run("trackctl", "metrics", "--output", os.path.join(service.root, "no/where"))
    assert refused.returncode == 1 and "no/where" in refused.stderr


def test_without_the_service_the_text_says_so(service):
    path = os.path.join(service.root, "tracks.prom")
    service.ctl("set", "t", "interface", "mark-up")
    service.ctl("metrics", "--output", path)
    service.stop()
    printed = service.run("trackctl", "metrics")
    assert printed.returncode == 3 and "the service is not running" in printed.stderr
    assert Samples(printed.stdout)("service_up") == 0
    written = service.run("trackctl", "metrics", "--output", path)
    assert (written.returncode, written.stdout) == (3, "")
    with open(path, encoding="utf-8") as reader:
        seen = Samples(reader.read())
    assert seen("service_up") == 0 and not seen.tracks()


def test_policies_are_measured(service):
    policy = Trackpolicy(service)
    service.ctl("set", "t", "interface", "mark-up")
    service.wait_state("t", "up")
    policy.configure({"name": "bad", "track": "t", "kind": "command", "run": ["/bin/false"],
                      "run_as_root": True})
    policy.start()
    try:
        wait_until(lambda: metrics(service)("policy_failures_total", policy="bad"),
                   service.build.patience, "the policy has failed")
        seen = metrics(service)
        assert seen("trackpolicy_up") == 1
        assert seen("policy_runs_total", policy="bad", kind="command", track="t") == 1
        assert seen("policy_problem", policy="bad") == 1
    finally:
        policy.close()


class Listener:
    """Answers each connection as a socket unit with Accept=yes does."""

    def __init__(self, service):
        self._service = service
        self._socket = socket.create_server(("127.0.0.1", 0))
        self.port = self._socket.getsockname()[1]
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def _serve(self):
        while True:
            try:
                connection, _ = self._socket.accept()
            except OSError:
                return
            with connection:
                build = self._service.build
                subprocess.run([*build.command("trackctl"), "metrics", "--http"],
                               env=build.environment(self._service.root), stdin=connection,
                               stdout=connection, check=True)

    def close(self):
        self._socket.shutdown(socket.SHUT_RDWR)
        self._socket.close()
        self._thread.join()


@pytest.fixture
def listener(service):
    made = Listener(service)
    yield made
    made.close()


def test_a_scrape_over_http(service, listener):
    service.configure([f"t{number:03}" for number in range(300)], "mark-up")
    service.wait_state("t299", "up")
    request = urllib.request.Request(
        f"http://127.0.0.1:{listener.port}/metrics",
        headers={"Accept": "application/openmetrics-text;version=1.0.0,text/plain;q=0.5"})
    with urllib.request.urlopen(request, timeout=service.build.patience) as answer:
        assert answer.headers["Content-Type"] == (
            "application/openmetrics-text; version=1.0.0; charset=utf-8")
        text = answer.read().decode()
    assert len(Samples(text).tracks()) == 300
    request = urllib.request.Request(request.full_url, headers={"Accept": "text/plain"})
    with urllib.request.urlopen(request, timeout=service.build.patience) as answer:
        assert Samples(answer.read().decode(), prometheus)("service_up") == 1


def test_who_connects_and_leaves_holds_nobody_up(service, listener):
    for words in (b"", b"GET /met"):
        with socket.create_connection(("127.0.0.1", listener.port)) as silent:
            silent.sendall(words)
    with urllib.request.urlopen(f"http://127.0.0.1:{listener.port}/metrics",
                                timeout=service.build.patience) as answer:
        assert Samples(answer.read().decode())("service_up") == 1
