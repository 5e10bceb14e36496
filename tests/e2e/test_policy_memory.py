"""What trackpolicy knows of what was before: crashes between two configurations, a full disk, names that
look alike, penalties, what commands have left running, states that came meanwhile."""

import contextlib
import ctypes
import os
import resource
import select
import signal
import time

import pytest

from mounts import Disk
from policy import lines, script
from tracing import Tracing
from waiting import wait_until

MEMORY = "run/object_tracking/policies"


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


class Orphans:
    """While the block lasts this process is the parent of those that have lost theirs, and may wait for
    them, as an init process does at once."""

    PR_SET_CHILD_SUBREAPER = 36

    def __enter__(self):
        self._set(1)

    def __exit__(self, *_):
        self._set(0)

    def _set(self, on):
        assert ctypes.CDLL(None).prctl(self.PR_SET_CHILD_SUBREAPER, on, 0, 0, 0) == 0


class Leftover:
    """A process that a command has started and written down."""

    def __init__(self, policy, path):
        wait_until(lambda: lines(path), policy.service.build.patience, "it runs")
        self.patience = policy.service.build.patience
        self.process = int(lines(path)[0])
        self.handle = os.pidfd_open(self.process)

    def wait_gone(self):
        assert select.select([self.handle], [], [], self.patience)[0], "it still runs"

    def close(self):
        try:
            signal.pidfd_send_signal(self.handle, signal.SIGKILL)
        except ProcessLookupError:
            pass
        os.close(self.handle)


def leave(policy, path, then):
    """A script that leaves a process behind, and then."""
    return script(policy, "leave", f"sleep 60 &\necho $! > {path}.new\n"
                                   f"mv {path}.new {path}\n{then}\n")


def test_what_a_command_leaves_behind_ends_with_it(policy, closing):
    left, go = policy.path("left"), policy.path("go")
    os.mkfifo(go)
    policy.configure({**tell(policy, "c"), "run": leave(policy, left, f"read line < {go}")})
    policy.start()
    leftover = closing(Leftover(policy, left))
    with open(go, "w") as stream:
        stream.write("end\n")
    leftover.wait_gone()
    policy.wait_doing("c", "has seen up")
    assert policy.list()["c"]["failures"] == 0


@pytest.mark.parametrize("change", [
    pytest.param(lambda row: [], id="removed"),
    pytest.param(lambda row: [{**row, "track": "other"}], id="of-another-track"),
    pytest.param(lambda row: [{"name": row["name"], "track": "t", "kind": "file", "path": "/run/x"}],
                 id="of-another-kind")])
@pytest.mark.parametrize("reaped", [False, True])
def test_what_a_crash_leaves_running_ends_though_its_policy_is_another_one_now(policy, closing,
                                                                               change, reaped):
    left = policy.path("left")
    row = {**tell(policy, "c"), "run": leave(policy, left, "wait")}
    policy.configure(row)
    policy.start()
    leftover = closing(Leftover(policy, left))
    with Orphans():
        policy.kill()
        if reaped:
            os.waitpid(os.getpgid(leftover.process), 0)
        policy.configure(*change(row))
        policy.start()
        leftover.wait_gone()
    wait_until(lambda: "c" not in os.listdir(policy.path(MEMORY)) or change(row),
               policy.service.build.patience, "nothing is remembered of it")


def test_a_crash_as_soon_as_a_command_runs_leaves_nothing_running(policy, closing):
    """Also when it takes long to remember that it runs."""
    left = policy.path("left")
    row = {**tell(policy, "c"), "run": leave(policy, left, "wait")}
    policy.configure()
    policy.start()
    with contextlib.closing(Tracing(policy.daemon.pid, "-f", "-o", "/dev/null",
                                    "-e", "inject=rename:delay_enter=300000")):
        policy.configure(row)
        policy.daemon.process.send_signal(signal.SIGHUP)
        leftover = closing(Leftover(policy, left))
        policy.kill()
    policy.configure()
    policy.start()
    leftover.wait_gone()


def test_a_command_that_finds_no_descriptors_fails_and_the_next_one_runs(policy):
    """Whichever of those that it takes is missing."""
    if policy.service.build.sanitized:
        pytest.skip("the sanitizer looks at memory by means of a pipe, for which none is left")
    policy.configure(tell(policy, "c", every=True))
    policy.start()
    wait_told(policy, "c", ["up"])
    refusal = "the command for up: cannot be run: Too many open files"
    folder = f"/proc/{policy.daemon.pid}/fd"
    _, most = limits = resource.prlimit(policy.daemon.pid, resource.RLIMIT_NOFILE)
    refused = 0
    for more in range(9):
        policy.service.net.carrier("mark-up", False)
        policy.wait_doing("c", "has seen down")
        highest = max(int(number) for number in os.listdir(folder))
        resource.prlimit(policy.daemon.pid, resource.RLIMIT_NOFILE, (highest + 1 + more, most))
        policy.service.net.carrier("mark-up", True)

        def tried(before=refused):
            return policy.daemon.output().count(refusal) > before or told(policy, "c")[-1] == "up"
        wait_until(tried, policy.service.build.patience, "it is run, or refused")
        resource.prlimit(policy.daemon.pid, resource.RLIMIT_NOFILE, limits)
        policy.wait_doing("c", "has seen up")
        refused = policy.list()["c"]["failures"]
        assert policy.daemon.output().count(refusal) == refused
    assert 2 < refused < 9 and told(policy, "c")[-1] == "up"


def test_flaps_are_not_forgotten_by_a_crash(policy):
    half_life = 15  # seconds: a crash and a start take their time on a slow machine
    policy.configure(tell(policy, "c", half_life=f"{half_life}s", suppress=1000, reuse=500),
                     tell(policy, "free"))
    policy.start()
    wait_told(policy, "c", ["up"])
    policy.service.net.carrier("mark-up", False)
    wait_told(policy, "c", ["up", "down"])
    policy.service.net.carrier("mark-up", True)
    wait_told(policy, "free", ["up", "down", "up"])
    before = policy.list()["c"]
    assert before["held"] == "up" and 0 < before["suppressed_ms"] <= 1000 * half_life
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
    """They are compared 30 seconds after they were read; it sleeps, and events wait then. That a
    track was deleted that was down is known from there only."""
    policy.service.ctl("set", "short", "interface", "mark-dn")
    policy.service.wait_state("short", "down")
    policy.configure(tell(policy, "c", every=True), tell(policy, "d", track="short"))
    policy.start()
    wait_told(policy, "c", ["up"])
    wait_told(policy, "d", ["down"])
    compared = time.monotonic() + 31
    policy.service.ctl("delete", "short")
    os.kill(policy.daemon.pid, signal.SIGSTOP)
    for state in ("down", "up") * 3:
        policy.service.net.carrier("mark-up", state == "up")
        policy.service.wait_state("t", state)
    wait_until(lambda: time.monotonic() > compared, 40, "the time has come")
    os.kill(policy.daemon.pid, signal.SIGCONT)
    wait_told(policy, "c", ["up"] + ["down", "up"] * 3)
    wait_told(policy, "d", ["down", "unknown"])
