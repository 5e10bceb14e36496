"""What trackpolicy keeps right where others do odd things beside it: tracks that are new, interfaces that are
renamed, users with groups, readers and answers that are none."""

import os
import signal
import socket
import subprocess
import threading

import pytest

from mounts import Mounts
from policy import lines, script
from waiting import wait_until


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


def test_a_command_has_all_groups_of_its_user(policy):
    path, seen = policy.path("group"), policy.path("seen")
    with open("/etc/group") as known, open(path, "w") as stream:
        stream.write(known.read() + "extra:x:54322:nobody\n")
    for each, mode in ((policy.service.root, 0o755), (path, 0o644)):
        os.chmod(each, mode)
    with open(seen, "w"):
        os.chmod(seen, 0o666)
    policy.configure({"name": "c", "track": "t", "kind": "command", "user": "nobody",
                      "run": script(policy, "groups", f"id -G >> {seen}\n")})
    policy.start(namespace=Mounts(policy.service.net, f"mount --bind {path} /etc/group"))
    policy.wait_doing("c", "has seen up")
    assert "54322" in lines(seen)[0].split()


def test_who_asks_one_that_is_stopped_waits_for_some_seconds_only(policy, closing):
    policy.configure({"name": "l", "track": "t", "kind": "link", "interface": "mark-dn"})
    policy.start()
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


def test_readers_who_take_nothing_of_a_long_list_are_let_go(policy, closing):
    # A few policies of which there is much to say: a list of many takes a slow machine seconds, and
    # who asks for the next one waits for sixteen of them.
    os.mkdir(policy.path("run/site"))
    policy.configure(*({"name": f"f{number}", "track": "t", "kind": "file",
                        "path": f"/run/site/{number}", "text_up": "x" * 8000} for number in range(40)))
    policy.start()
    wait_until(lambda: "xxx" in policy.list()["f39"]["doing"], policy.service.build.patience, "a list")

    def refused():
        """A busy machine may take as long for their lists as the first of them has."""
        for _ in range(64):  # more than are served at a time
            one = closing(socket.socket(socket.AF_UNIX))
            one.connect(policy.path("run/object_tracking/policy.sock"))
        asked = policy.service.run("trackctl", "policy", "list")
        return asked.returncode != 0 and (asked.returncode, asked.stderr)
    status, said = wait_until(refused, 2 * policy.service.build.patience, "too many")
    assert status == 1 and "trackpolicy does not answer" in said
    wait_until(lambda: policy.service.run("trackctl", "policy", "list").returncode == 0,
               policy.service.build.patience, "there is room again")
