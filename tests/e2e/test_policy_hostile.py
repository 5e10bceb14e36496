"""What trackpolicy keeps right where things go wrong beside it: full disks, crashes between two
configurations, names that look alike, interfaces that are renamed."""

import os
import signal
import socket
import subprocess
import threading
import time

import pytest

from mounts import Disk
from policy import Trackpolicy, lines, script
from waiting import wait_until

MEMORY = "run/object_tracking/policies"


@pytest.fixture
def policy(service, closing):
    """A trackpolicy beside the service, not started yet; the track "t" follows "mark-up"."""
    service.ctl("set", "t", "interface", "mark-up")
    service.wait_state("t", "up")
    return closing(Trackpolicy(service))


def tell(policy, name, **keys):
    """A command policy that writes down each state."""
    told = policy.path(f"told-{name}")
    argv = script(policy, f"tell-{name}", f'echo "$OT_STATE" >> {told}\n')
    return {"name": name, "track": "t", "kind": "command", "run": argv, "run_as_root": True, **keys}


def told(policy, name):
    return lines(policy.path(f"told-{name}"))


def wait_told(policy, name, expected):
    wait_until(lambda: told(policy, name) == expected, policy.service.build.patience,
               lambda: f"{name}: {expected} in place of {told(policy, name)}")
    policy.wait_doing(name, f"has seen {expected[-1]}")


def test_names_that_look_like_files_beside_each_other_are_remembered_apart(policy):
    policy.configure(tell(policy, "a.new"), tell(policy, "a", hold="300ms"))
    policy.start()
    wait_told(policy, "a.new", ["up"])
    wait_told(policy, "a", ["up"])
    policy.service.net.carrier("mark-up", False)
    wait_told(policy, "a.new", ["up", "down"])
    wait_told(policy, "a", ["up", "down"])
    policy.kill()
    policy.start()
    for name in ("a", "a.new"):
        wait_told(policy, name, ["up", "down"])


def test_a_state_that_could_not_be_remembered_is_not_taken_for_told(policy, closing):
    """The disk is full when "down" is told, and what is remembered still says "up"."""
    disk = closing(Disk(policy.path(MEMORY), "size=64k"))
    policy.configure(tell(policy, "c"))
    policy.start()
    wait_told(policy, "c", ["up"])
    disk.fill()
    policy.service.net.carrier("mark-up", False)
    wait_told(policy, "c", ["up", "down"])
    policy.kill()
    policy.service.net.carrier("mark-up", True)
    policy.service.wait_state("t", "up")
    os.unlink(os.path.join(disk.folder, "fill"))
    policy.start()
    wait_told(policy, "c", ["up", "down", "up"])


@pytest.mark.parametrize("change", [
    pytest.param(lambda row: [], id="removed"),
    pytest.param(lambda row: [{**row, "track": "other"}], id="of-another-track"),
    pytest.param(lambda row: [{"name": row["name"], "track": "t", "kind": "file", "path": "/run/x"}],
                 id="of-another-kind")])
def test_what_a_crash_leaves_running_ends_though_its_policy_is_another_one_now(policy, change):
    left = policy.path("left")
    row = {**tell(policy, "c"), "run": script(policy, "leave", (
        f"sleep 60 &\necho $! > {left}.new\nmv {left}.new {left}\nwait\n"))}
    policy.configure(row)
    policy.start()
    wait_until(lambda: lines(left), policy.service.build.patience, "it runs")
    pid = int(lines(left)[0])
    handle = os.pidfd_open(pid)
    try:
        policy.kill()
        policy.configure(*change(row))
        policy.start()

        def gone():
            return not os.path.exists(f"/proc/{pid}/stat") or (
                open(f"/proc/{pid}/stat").read().split()[2] == "Z")
        wait_until(gone, policy.service.build.patience, "it has ended")
        assert "c" not in os.listdir(policy.path(MEMORY)) or change(row)
    finally:
        try:
            signal.pidfd_send_signal(handle, signal.SIGKILL)
        except ProcessLookupError:
            pass
        os.close(handle)


def test_a_new_link_policy_does_not_act_before_it_knows_what_its_track_stands_on(policy):
    """The track is made after trackpolicy has looked at all tracks, and is down already."""
    net = policy.service.net
    net.link("acc")
    policy.configure({"name": "l", "track": "t", "kind": "link", "interface": "acc"})
    policy.start()
    policy.wait_doing("l", "acc is up")
    net.link("late")
    net.carrier("late", False)
    policy.service.ctl("set", "n", "interface", "late")
    policy.service.wait_state("n", "down")
    policy.configure({"name": "l", "track": "t", "kind": "link", "interface": "acc"},
                     {"name": "n", "track": "n", "kind": "link", "interface": "late"})
    monitor = subprocess.Popen([*net.command(), "ip", "-o", "monitor", "link", "dev", "late"],
                               stdout=subprocess.PIPE, text=True)
    try:
        policy.reload()
        wait_until(lambda: "depends on it" in policy.list()["n"]["problem"],
                   policy.service.build.patience, lambda: policy.list()["n"])
        assert policy.list()["n"]["runs"] == 0
        assert policy.list()["n"]["doing"] == "late is up"
    finally:
        monitor.kill()
        seen = monitor.communicate()[0]
    assert not any("UP" not in line.split("<")[1].split(">")[0].split(",")
                   for line in seen.splitlines()), seen


def test_an_interface_that_is_renamed_while_it_is_set_down_is_set_up_again(policy):
    net = policy.service.net
    net.link("acc")
    policy.configure({"name": "l", "track": "t", "kind": "link", "interface": "acc"})
    policy.start()
    policy.wait_doing("l", "acc is up")

    def up(name):
        return "UP" in net.query(f"link show {name}")[0]["flags"]
    net.carrier("mark-up", False)
    wait_until(lambda: not up("acc"), policy.service.build.patience, "acc is set down")
    net.ip("link set acc name other")
    wait_until(lambda: up("other"), policy.service.build.patience,
               lambda: f"other is set up again: {policy.list()}")
    # As it was once more.
    net.ip_batch(["link set other down", "link set other name acc", "link set acc up"])
    wait_until(lambda: not up("acc"), policy.service.build.patience, "acc is set down")
    policy.kill()
    net.ip("link set acc name third")
    policy.start()
    wait_until(lambda: up("third"), policy.service.build.patience, "third is set up again")


def test_flaps_are_not_forgotten_by_a_crash(policy):
    policy.configure(tell(policy, "c", half_life="6s", suppress=1000, reuse=500),
                     tell(policy, "free"))
    policy.start()
    wait_told(policy, "c", ["up"])
    policy.service.net.carrier("mark-up", False)
    wait_told(policy, "c", ["up", "down"])
    policy.service.net.carrier("mark-up", True)
    wait_told(policy, "free", ["up", "down", "up"])
    before = policy.list()["c"]
    assert before["held"] == "up" and before["suppressed_ms"] > 0
    policy.kill()
    policy.start()
    wait_until(lambda: policy.list()["c"]["service"] == "reachable",
               policy.service.build.patience, "it knows the states")
    after = policy.list()["c"]
    assert after["held"] == "up" and 0 < after["suppressed_ms"] < before["suppressed_ms"]
    assert 500 < after["penalty"] < before["penalty"]
    assert told(policy, "c") == ["up", "down"]
    wait_told(policy, "c", ["up", "down", "up"])


def test_a_policy_that_is_told_each_state_misses_none_when_all_states_are_compared(policy):
    """They are compared 30 seconds after they were read; it sleeps, and events wait then."""
    policy.configure(tell(policy, "c", every=True))
    policy.start()
    wait_told(policy, "c", ["up"])
    compared = time.monotonic() + 31
    os.kill(policy.daemon.pid, signal.SIGSTOP)
    for state in ("down", "up") * 3:
        policy.service.net.carrier("mark-up", state == "up")
        policy.service.wait_state("t", state)
    wait_until(lambda: time.monotonic() > compared, 40, "the time has come")
    os.kill(policy.daemon.pid, signal.SIGCONT)
    wait_told(policy, "c", ["up"] + ["down", "up"] * 3)


def test_who_asks_one_that_is_stopped_waits_for_some_seconds_only(policy, closing):
    policy.configure(tell(policy, "c"))
    policy.start()
    wait_told(policy, "c", ["up"])
    os.kill(policy.daemon.pid, signal.SIGSTOP)
    try:
        for _ in range(200):  # until no further one is taken
            one = closing(socket.socket(socket.AF_UNIX))
            one.setblocking(False)
            try:
                one.connect(policy.path("run/object_tracking/policy.sock"))
            except BlockingIOError:
                break
        else:
            pytest.fail("everybody is taken")
        command = policy.service.build.command("trackctl")
        asking = [subprocess.Popen([*command, *words], stdout=subprocess.PIPE, text=True,
                                   stderr=subprocess.PIPE, stdin=subprocess.DEVNULL,
                                   env=policy.service.build.environment(policy.service.root))
                  for words in (["policy", "list"], ["metrics"])]
        try:
            (_, said), (measured, _) = (each.communicate(timeout=30) for each in asking)
        finally:
            for each in asking:
                each.kill()
                each.wait()
        assert "trackpolicy does not answer" in said
        assert "object_tracking_trackpolicy_up 0\n" in measured
        assert 'object_tracking_track_state{track="t",type="interface",state="up"} 1' in measured
        assert [each.returncode for each in asking] == [1, 0]
    finally:
        os.kill(policy.daemon.pid, signal.SIGCONT)


@pytest.mark.parametrize("text", [b"[\n", b"", b"\xff\n]\n", b"[{]\n"])
def test_garbage_from_the_status_socket_is_no_answer(policy, closing, text):
    path = policy.path("run/object_tracking/policy.sock")
    listener = closing(socket.socket(socket.AF_UNIX))
    listener.bind(path)
    listener.listen()

    def answer():
        for _ in range(2):
            with listener.accept()[0] as one:
                one.sendall(text)
    answering = threading.Thread(target=answer, daemon=True)
    answering.start()
    listed = policy.service.run("trackctl", "policy", "list")
    assert listed.returncode == 1 and "trackpolicy does not answer" in listed.stderr
    assert "object_tracking_trackpolicy_up 0\n" in policy.service.ctl("metrics")
    answering.join()
