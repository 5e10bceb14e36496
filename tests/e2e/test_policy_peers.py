"""Policies with what a router runs beside them: FRR's shell, and a keepalived that follows a file."""

import os
import re
import shutil
import subprocess
import tempfile

import pytest

from build_tree import SOURCE
from frr import Frr
from policy import lines, script
from waiting import wait_until


@pytest.fixture
def frr(service):
    made = Frr(service.net)
    yield made
    made.close()


def describing(text):
    return ["configure terminal", "interface mark-up", f"description {text}"]


def test_frr_is_told_each_state(policy, frr):
    # While zebra joins it, mgmtd refuses what is configured.
    policy.configure({"name": "r", "track": "t", "kind": "frr", "run_as_root": True,
                      "retry": 100, "retry_delay": "100ms",
                      "vtysh": [shutil.which("vtysh"), "--vty_socket", frr.directory],
                      "up": describing("in use"), "down": describing("not in use")})

    def told(state, text):
        policy.wait_doing("r", f"has seen {state}")
        assert frr.description("mark-up") == text
    policy.start()
    told("up", "in use")
    policy.service.net.carrier("mark-up", False)
    told("down", "not in use")
    assert policy.list()["r"]["failures"] == 0


def test_a_line_that_frr_refuses_is_a_failure_and_nothing_behind_it_is_done(policy, frr):
    policy.configure({"name": "r", "track": "t", "kind": "frr", "run_as_root": True,
                      "vtysh": [shutil.which("vtysh"), "--vty_socket", frr.directory],
                      "up": ["configure terminal", "no such line", *describing("in use")[1:]]})
    policy.start()
    policy.wait_doing("r", "has seen up")
    row = policy.list()["r"]
    assert row["failures"] == 1 and row["problem"].startswith("the command for up: exit status")
    policy.wait_said("r: % Unknown command")
    assert frr.description("mark-up") is None


def test_frr_that_comes_later_is_told_by_a_further_attempt(policy):
    seen = policy.path("seen")
    shell = script(policy, "vtysh", f'echo "$@" >> {seen}; [ -e {seen}.frr ]\n')
    policy.configure({"name": "r", "track": "t", "kind": "frr", "run_as_root": True,
                      "vtysh": shell + ["-N", "x"], "retry": 100, "retry_delay": "100ms",
                      "up": ["configure terminal", "a b"]})
    policy.start()
    wait_until(lambda: len(lines(seen)) > 1, policy.service.build.patience, "a further attempt")
    assert set(lines(seen)) == {"-N x -c configure terminal -c a b"}
    with open(f"{seen}.frr", "w"):
        pass
    policy.wait_doing("r", "has seen up")
    assert policy.list()["r"]["failures"] == 0


def test_shells_of_frr_run_one_after_the_other(policy):
    """Two at once refuse each other's lines in later releases of FRR."""
    seen = policy.path("seen")
    shell = script(policy, "vtysh", f'echo "$2" >> {seen}\nwhile [ ! -e {seen}.go ]; do sleep 0.05; done\n')
    other = script(policy, "other", f'echo "$2" >> {seen}\n')

    def lines_for(name, vtysh):
        return {"name": name, "track": "t", "kind": "frr", "run_as_root": True, "vtysh": vtysh,
                "up": [name]}
    policy.configure(lines_for("a", shell), lines_for("b", shell), lines_for("c", shell),
                     lines_for("d", other))
    policy.start()
    policy.wait_doing("d", "has seen up")  # another FRR's shell waits for none of this one's
    policy.wait_doing("a", "runs for up")
    assert [policy.list()[name]["doing"] for name in "bc"] == ["waits for room to run for up"] * 2
    with open(f"{seen}.go", "w"):
        pass
    for name in "abc":
        policy.wait_doing(name, "has seen up")
    assert sorted(lines(seen)[:2]) == ["a", "d"] and lines(seen)[2:] == ["b", "c"]


def test_one_that_waits_for_a_shell_holds_up_no_others(policy):
    """Beside as many commands as may run at a time."""
    held = policy.path("held")
    wait = script(policy, "wait", f'while [ ! -e {held}.$OT_POLICY ]; do sleep 0.05; done\n')
    running = [f"k{number:02}" for number in range(31)] + ["r0"]

    def policy_for(name):
        made = {"name": name, "track": "t", "run_as_root": True}
        return made | ({"kind": "frr", "vtysh": wait, "up": ["a"]} if name.startswith("r")
                       else {"kind": "command", "run": wait})

    def end(name):
        with open(f"{held}.{name}", "w"):
            pass
        policy.wait_doing(name, "has seen up")
    policy.configure(*map(policy_for, [*running, "r1", "z"]))
    policy.start()
    for name in ("r1", "z"):
        policy.wait_doing(name, "waits for room to run for up")
    end("k00")
    policy.wait_doing("z", "runs for up")
    assert policy.list()["r1"]["doing"] == "waits for room to run for up"
    for name in [*running[1:], "r1", "z"]:
        end(name)


def test_the_example_for_frr_has_no_errors(policy):
    example = os.path.join(policy.folder, "frr.toml")
    shutil.copyfile(SOURCE / "examples/policies-frr.toml", example)
    os.chmod(example, 0o644)
    assert policy.service.ctl("policy", "check") == f"{policy.folder}: 1 policy, no errors\n"
    assert policy.service.ctl("policy", "test", "away", "down").endswith(
        ': /usr/bin/vtysh -c "configure terminal" -c "router bgp 65000" -c '
        '"neighbor 192.0.2.9 shutdown"\n')


def test_flaps_are_shown_with_their_penalty_and_the_state_that_waits(policy):
    told = policy.path("told")
    half_life = 15  # seconds: the penalty of the first flap must not be gone before the second
    policy.configure({"name": "c", "track": "t", "kind": "command", "run_as_root": True,
                      "run": script(policy, "tell", f'echo "$OT_STATE" >> {told}\n'),
                      "half_life": f"{half_life}s", "suppress": 1500, "reuse": 1400})
    policy.start()
    wait_until(lambda: lines(told) == ["up"], policy.service.build.patience, "told up")
    for up in (False, True, False, True):
        policy.service.net.carrier("mark-up", up)
        policy.service.wait_state("t", "up" if up else "down")
    rows = wait_until(lambda: (found := policy.list())["c"]["held"] == "up" and found,
                      policy.service.build.patience, lambda: policy.list())
    row = rows["c"]
    assert 1400 <= row["penalty"] <= 2000 and 0 < row["suppressed_ms"] <= 1000 * half_life
    shown = policy.service.ctl("policy", "list")
    assert re.search(r"; up is held until \S+ \S+; penalty \d+, suppressed until ", shown), shown
    wait_until(lambda: lines(told)[-2:] == ["down", "up"] and policy.list()["c"]["held"] is None,
               half_life + policy.service.build.patience, lambda: policy.list())
    assert policy.list()["c"]["suppressed_ms"] == 0


class Keepalived:
    """A keepalived with the example's configuration, whose priority changes it writes to a FIFO."""

    def __init__(self, service, state_file):
        self._folder = tempfile.mkdtemp(prefix="keepalived-")
        fifo = os.path.join(self._folder, "states")
        os.mkfifo(fifo)
        self._reader = os.open(fifo, os.O_RDWR | os.O_NONBLOCK)
        self._text = ""
        example = (SOURCE / "examples/keepalived-track-file.conf").read_text()
        assert 'file "/run/object_tracking/uplink.state"' in example
        service.net.link("lan0")
        service.net.ip("address add 198.51.100.2/24 dev lan0")
        configuration = example.replace("/run/object_tracking/uplink.state", state_file)
        configuration = configuration.replace("interface eth1", "interface lan0\n    advert_int 255")
        with open(os.path.join(self._folder, "conf"), "w", encoding="ascii") as stream:
            stream.write("global_defs {\n    script_user root\n    vrrp_notify_fifo " + fifo +
                         "\n    vrrp_notify_priority_changes true\n}\n" + configuration)
        self._process = subprocess.Popen(
            [*service.net.command(), "keepalived", "--dont-fork", "--log-console", "--vrrp",
             "--use-file", f"{self._folder}/conf", "--pid", f"{self._folder}/pid", "--vrrp_pid",
             f"{self._folder}/vrrp_pid"], stdin=subprocess.DEVNULL,
            stdout=open(f"{self._folder}/log", "wb"), stderr=subprocess.STDOUT)

    def priority(self):
        """What it has said last; None while it has said nothing."""
        try:
            self._text += os.read(self._reader, 65536).decode()
        except BlockingIOError:
            pass
        said = re.findall(r'INSTANCE "lan" \w+ (\d+)\n', self._text)
        return int(said[-1]) if said else None

    def log(self):
        with open(f"{self._folder}/log") as stream:
            return self._text + stream.read()

    def close(self):
        self._process.terminate()
        self._process.wait()
        os.close(self._reader)
        shutil.rmtree(self._folder)


def test_keepalived_follows_a_file(policy):
    os.makedirs(policy.path("run/site"))
    policy.configure({"name": "f", "track": "t", "kind": "file", "path": "/run/site/uplink.state",
                      "text_up": 0, "text_down": 1, "grace": "100ms"})
    policy.start()
    state_file = policy.path("run/site/uplink.state")
    wait_until(lambda: lines(state_file) == ["0"], policy.service.build.patience, "the file")
    keepalived = Keepalived(policy.service, state_file)

    def follows(priority):
        wait_until(lambda: keepalived.priority() == priority, policy.service.build.patience,
                   lambda: f"{priority} in:\n{keepalived.log()}")
    try:
        follows(120)
        policy.service.net.carrier("mark-up", False)
        follows(70)
        policy.service.net.carrier("mark-up", True)
        follows(120)
        policy.service.crash()
        follows(70)
        policy.service.start()
        follows(120)
    finally:
        keepalived.close()


def test_a_script_that_sleeps_for_a_minute_delays_nobody(policy):
    told = policy.path("told")
    os.makedirs(policy.path("run/site"))
    policy.configure(
        {"name": "a-slow", "track": "t", "kind": "command", "run": ["/bin/sleep", "60"],
         "timeout": "2m", "run_as_root": True},
        {"name": "b", "track": "t", "kind": "command", "run_as_root": True,
         "run": script(policy, "tell", f'echo "$OT_STATE" >> {told}\n')},
        {"name": "c", "track": "t", "kind": "file", "path": "/run/site/t"})
    policy.start()
    expected = ["up"]
    for up in (True, False, True, False):
        if not up or len(expected) > 1:
            policy.service.net.carrier("mark-up", up)
            expected.append("up" if up else "down")
        wait_until(lambda: lines(told) == expected, policy.service.build.patience, "b acts")
        wait_until(lambda up=up: lines(policy.path("run/site/t")) == ["1" if up else "0"],
                   policy.service.build.patience, "c acts")
    assert policy.list()["a-slow"]["doing"] == "runs for up, 1 waiting"
