"""Explanations of tracks, with the real programs and the kernel's interfaces and routes."""

import json
import re
import subprocess

import pytest
from probe_fixtures import qmond  # noqa: F401
from waiting import wait_until

TIME = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d")


@pytest.fixture
def running(service):
    service.net.link("if-a")
    service.net.link("if-b")
    return service


def apply(service, *lines):
    service.ctl("apply", service.write_tracks(*lines), "--prune")


def explained(service, name):
    return TIME.sub("TIME", service.ctl("explain", name))


def tree(service, name):
    return json.loads(service.ctl("explain", name, "--json"))


def findings(service, name):
    return tree(service, name)["object"]["findings"]


def test_an_interface_is_explained_in_every_state(running):
    running.ctl("set", "uplink", "interface", "if-a")
    running.wait_state("uplink", "up")
    assert explained(running, "uplink") == (
        "uplink is up since TIME\n  interface if-a\n    it is up and has a carrier\n")
    running.net.carrier("if-a", on=False)
    running.wait_state("uplink", "down")
    assert findings(running, "uplink") == [
        "it is up, but has no carrier: the interface below it, or the far end, is down"]
    running.net.ip("link set if-a down")
    assert findings(running, "uplink") == [
        "it is administratively down; `ip link set if-a up` changes that"]
    running.net.ip("link del if-a")
    assert findings(running, "uplink") == ["there is no interface if-a"]


def test_after_a_restart_nobody_knows_since_when(running):
    running.ctl("set", "uplink", "interface", "if-a")
    running.wait_state("uplink", "up")
    running.stop()
    running.start()
    assert explained(running, "uplink") == (
        "uplink is up\n  interface if-a\n    it is up and has a carrier\n")


def test_a_route_is_explained_in_every_state(running):
    running.ctl("set", "wide", "route", "198.51.0.0/16")
    running.wait_state("wide", "down")
    assert findings(running, "wide") == ["no usable route to it is in the table"]
    running.net.ip("route add 198.0.0.0/8 dev if-a")
    assert findings(running, "wide") == [
        "it is not in the table; 198.51.0.0 goes by the shorter 198.0.0.0/8, by if-a"]
    running.net.ip("route add 198.51.0.0/16 dev if-b")
    running.wait_state("wide", "up")
    assert findings(running, "wide") == ["it is in the table, by if-b"]
    running.net.ip("route add 198.51.0.0/24 dev if-a")
    running.wait_state("wide", "down")
    assert findings(running, "wide") == [
        "the longest match of 198.51.0.0 is the longer 198.51.0.0/24, by if-a"]
    running.ctl("set", "red", "route", "198.51.0.0/16", "--vrf", "red")
    assert findings(running, "red") == ["there is no VRF red"]


def test_an_operation_is_explained_in_every_state(running, qmond):
    running.ctl("set", "web", "probe", "7")
    assert findings(running, "web") == [
        "the probe service does not run, so operation 7 has no result"]
    qmond.configure({"id": 8, "kind": "command", "command": ["/bin/true"]})
    qmond.start()
    assert findings(running, "web") == [
        "there is no operation 7; /etc/object_tracking/probes.toml defines them"]
    qmond.stop()
    qmond.configure({"id": 7, "kind": "command", "command": ["/bin/false"]})
    qmond.start()
    wait_until(lambda: "return code" in findings(running, "web")[0], running.build.patience,
               "a result")
    assert findings(running, "web") == [
        "its result: Bad answer (return code 6)", "the operation: command /bin/false"]


def test_a_session_is_explained(running):
    running.ctl("set", "peer", "bfd", "192.0.2.1", "--interface", "if-z")
    wait_until(lambda: findings(running, "peer")[0].startswith("it is not run: "),
               running.build.patience, lambda: findings(running, "peer"))
    running.net.ip("addr add 192.0.2.2/24 dev if-a")
    running.ctl("set", "near", "bfd", "192.0.2.1", "--interface", "if-a")
    wait_until(lambda: findings(running, "near")[0] == "the session is down; the peer says down",
               running.build.patience, "a session that is down")


def test_a_list_is_explained_with_what_would_bring_it_up(running):
    apply(running, "uplink interface if-a", "backup interface if-z",
          "any or uplink backup", "site and any not backup gone", "cap weight --up 9 --down 5 "
          "uplink=4 backup=3", "both and uplink any --delay-down 60")
    running.wait_state("any", "up")
    assert explained(running, "site") == (
        "site is down since TIME\n"
        '  "and" list, up when all of its members count as up: 2 of 3 do\n'
        "  - any is up since TIME; it counts as up\n"
        '      "or" list, up when one of its members counts as up: 1 of 2 do\n'
        "      - uplink is up since TIME; it counts as up\n"
        "          interface if-a\n"
        "            it is up and has a carrier\n"
        "      - backup is unknown since TIME; it counts as down\n"
        "          interface if-z\n"
        "            there is no interface if-z\n"
        "  - not backup is unknown; it counts as up; see above\n"
        "  - gone: there is no such track; it counts as down\n"
        "nothing that its members follow can bring it up: some are missing, or in each other's "
        "way\n")
    assert tree(running, "cap")["remedy"] == [{"track": "backup", "to": "up"}]
    answer = json.loads(running.ctl("what-if", "backup=up", "--json"))
    assert ("cap", "up") in [(each["track"], each["to"]) for each in answer["changes"]]

    running.net.carrier("if-a", on=False)
    running.wait_state("any", "down")
    wait_until(lambda: tree(running, "both")["delay"], running.build.patience, "a running delay")
    delay = tree(running, "both")["delay"]
    assert delay["to"] == "down" and 0 < delay["remaining_ms"] <= 60_000
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d", delay["ends"])
    assert "it will be down at TIME, when its delay is over, in " in explained(running, "both")


def test_a_track_that_no_words_make_is_explained(running):
    running.ctl("set", "hash", "interface", "#x")  # a comment in a file
    assert explained(running, "hash") == (
        "hash is unknown since TIME\n  interface #x\n    there is no interface #x\n")
    long = "n" * 39  # records carry 32 of them
    running.configure([long], "if-a")
    running.wait_state(long, "up")
    assert explained(running, long) == (
        f"{long} is up since TIME\n  interface if-a\n    it is up and has a carrier\n")


def test_json_of_a_name_that_is_no_text(running):
    running.ctl("set", "uplink", "interface", b"i\xfff")
    assert tree(running, "uplink")["object"]["what"] == "interface i\N{REPLACEMENT CHARACTER}f"
    track = b"/cfg/gl/object_tracking/track/b\xffd"
    commit = b"".join(b"set %s %s/%s\n" % (kind, track, item) for kind, item in (
        (b"u32", b"a 1"), (b"u32", b"type/interface/0x1/a 1"),
        (b"text", b"type/interface/0x1/info/interface if-a")))
    subprocess.run(running.build.command("ledger_put"), input=commit + b"commit\n", check=True,
                   env=running.build.environment(running.root), stdout=subprocess.DEVNULL)
    answer = json.loads(running.ctl("what-if", b"b\xffd=down", "--json"))
    assert [change["track"] for change in answer["changes"]] == ["b\N{REPLACEMENT CHARACTER}d"]


def test_what_cannot_be_explained_is_refused(running):
    result = running.run("trackctl", "explain", "nobody")
    assert (result.returncode, result.stderr) == (
        1, 'trackctl: there is no track "nobody"; `trackctl show` lists those there are\n')
    assert running.run("trackctl", "explain").returncode == 2
    running.stop()
    assert running.run("trackctl", "explain", "nobody").returncode == 3


def test_what_the_kernel_does_not_tell_is_said(running):
    apply(running, "uplink interface if-a", "there route 198.51.100.0/24")
    running.wait_state("uplink", "up")

    def said(name, *prefix):
        result = running.run("trackctl", "explain", name, prefix=prefix)
        assert (result.returncode, result.stderr) == (0, "")
        return result.stdout.splitlines()[2:]

    failing = ("env", "ASAN_OPTIONS=detect_leaks=0",  # it does not work under strace
               "strace", "-f", "-qq", "-o", "/dev/null", "-e", "inject=sendto:error=ENOBUFS")
    assert said("uplink", *failing) == [
        "    the kernel's interfaces cannot be read: No buffer space available"]
    assert said("there", *failing) == [
        "    the kernel's routes cannot be read: No buffer space available"]
    # The tool runs in the namespace of the tests, and may not leave it.
    for name in ("uplink", "there"):
        assert said(name, "setpriv", "--bounding-set", "-sys_admin") == [
            "    it cannot be seen from here: the service runs in another network namespace, which "
            "only root may enter"]
