"""The packaged units: how much each lets its program do, and that the program does its work so."""

import json
import os
import re
import shutil
import stat
import subprocess

import pytest

from bfd_site import Site
from build_tree import SOURCE
from frr import Frr
from mounts import GROUP_ID
from policy import Trackpolicy, lines, script
from qmond import Qmond
from unit_sandbox import Sandbox, Unit, needs_filters, rights_of
from users import NOBODY, OPERATOR, files_in, needs_readable_build, prefix
from waiting import wait_until

UNITS = sorted(path.name for path in (SOURCE / "packaging").glob("*.service"))
EXPOSURE_MAX = 2.0
NET_ADMIN, KILL, SETGID, SETUID, NET_RAW = (1 << bit for bit in (12, 5, 6, 7, 13))


def analyze(*arguments):
    if shutil.which("systemd-analyze") is None:
        pytest.skip("systemd-analyze is not installed")
    result = subprocess.run(["systemd-analyze", *arguments], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True)
    if "unrecognized option" in result.stdout:
        pytest.skip("this systemd-analyze is too old for " + " ".join(arguments[:2]))
    return result


@pytest.mark.parametrize("unit", UNITS)
def test_no_unit_is_more_exposed_than_it_has_to_be(unit):
    said = analyze("security", "--offline=true", "--no-pager", SOURCE / "packaging" / unit)
    assert said.returncode == 0, said.stdout
    exposure = float(re.search(r"Overall exposure level for \S+: ([\d.]+)", said.stdout).group(1))
    assert exposure <= EXPOSURE_MAX, said.stdout


def test_the_units_hold_no_mistakes(tmp_path):
    """With programs that are there in place of those that need not be installed."""
    for path in (SOURCE / "packaging").iterdir():
        if path.suffix in (".service", ".socket"):
            text = re.sub(r"^(Exec\w+=)/usr/s?bin/\w+", r"\1/bin/true", path.read_text(), flags=re.M)
            (tmp_path / path.name).write_text(text)
    for unit in UNITS:
        said = analyze("verify", "--man=no", tmp_path / unit)
        assert (said.returncode, said.stdout) == (0, ""), unit


def test_the_example_drop_in_is_understood(tmp_path):
    shutil.copy(SOURCE / "packaging/trackpolicy.service", tmp_path)
    unit = tmp_path / "trackpolicy.service"
    unit.write_text(re.sub(r"/usr/s?bin/\w+", "/bin/true", unit.read_text()))
    dropins = tmp_path / "trackpolicy.service.d"
    dropins.mkdir()
    shutil.copy(SOURCE / "examples/trackpolicy-commands.conf", dropins)
    said = analyze("verify", "--man=no", unit)
    assert (said.returncode, said.stdout) == (0, "")


# --- The programs in their sandboxes --------------------------------------------------------------

@pytest.fixture
def boxed(new_service):
    """An instance that starts as its unit has it."""
    needs_filters()
    service = new_service()
    if service.build.sanitized:
        pytest.skip("the sanitizers' runtimes need system calls that units do not grant")
    os.chmod(service.root, 0o755)
    for folder in ("run", "var"):
        os.mkdir(os.path.join(service.root, folder), mode=0o755)
    service.net = Sandbox(service, Unit("object_tracking.service"))
    return service


def test_the_service_follows_links_and_keeps_its_states(boxed):
    boxed.start()
    rights = rights_of(boxed.daemon.pid)
    assert rights["filters"] == 2 and rights.pop("filters")
    assert rights == {"uid": 0, "gid": GROUP_ID, "bounding": NET_ADMIN, "effective": NET_ADMIN,
                      "no_new_privileges": True}
    boxed.ctl("set", "t", "interface", "mark-up")
    boxed.wait_state("t", "up")
    boxed.net.carrier("mark-up", False)
    boxed.wait_state("t", "down")
    boxed.crash()
    boxed.start()
    assert boxed.state("t") == "down"


def test_files_are_the_groups_without_the_right_to_give_them_away(boxed):
    needs_readable_build(boxed.build)
    boxed.start()
    folder = os.path.join(boxed.root, "run/object_tracking")
    for name, found in files_in(folder):
        rights = 0o660 if stat.S_ISSOCK(found.st_mode) else 0o600
        assert (found.st_gid, stat.S_IMODE(found.st_mode)) == (GROUP_ID, rights), name
    made = boxed.run("trackctl", "set", "t", "interface", "mark-up", prefix=prefix(OPERATOR))
    assert made.returncode == 0, made.stderr


def scheduling(pid, thread):
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/comm") as stream:
            if stream.read().strip() == thread:
                return os.sched_getscheduler(int(task))
    return None


def test_bfd_sessions_come_up_and_fall(boxed, closing):
    site = closing(Site(boxed)).up()
    site.far_link(0, False)
    site.wait_all("down")


def test_the_thread_of_the_bfd_sessions_has_real_time_priority(boxed, closing):
    closing(Site(boxed)).up()
    with open(f"/proc/{boxed.daemon.pid}/limits") as stream:
        [limit] = re.findall(r"^Max realtime priority +(\d+)", stream.read(), re.M)
    if limit == "0":
        pytest.skip("this machine lets no test raise the limit of real-time priorities")
    assert scheduling(boxed.daemon.pid, "ot_bfd") in (os.SCHED_FIFO, os.SCHED_RR)


@pytest.mark.parametrize("arguments, request_text, answer", [
    (["apply", "{file}"], "", "+ t interface mark-up\n1 made, 0 changed, 0 deleted\n"),
    (["metrics", "--http"], "GET /metrics HTTP/1.1\r\nHost: a\r\n\r\n", "HTTP/1.1 200 OK"),
], ids=["object_tracking-tracks", "object_tracking-metrics@"])
def test_a_short_one_does_its_work(boxed, request, arguments, request_text, answer):
    boxed.start()
    file = os.path.join(boxed.root, "tracks.conf")
    with open(file, "w") as stream:
        stream.write("t interface mark-up\n")
    unit = request.node.callspec.id + ".service"
    words = [word.format(file=file) for word in arguments]
    done = subprocess.run([*Sandbox(boxed, Unit(unit)).command(), *boxed.build.command("trackctl"),
                           *words], env=boxed.build.environment(boxed.root), input=request_text,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith(answer)


def test_the_probe_service_probes(boxed):
    boxed.net.ip("link set lo up")
    probes = Qmond(boxed)
    folder = os.path.join(boxed.root, "run/qmond")
    os.mkdir(folder, mode=0o750)
    os.chown(folder, NOBODY, NOBODY)
    probes.configure({"id": 1, "kind": "icmp", "target": "127.0.0.1"},
                     {"id": 2, "kind": "command", "command": ["/bin/true"]})
    needs_readable_build(boxed.build)
    boxed.net = Sandbox(boxed, Unit("qmond.service"), user=NOBODY)
    before = os.umask(0)  # so that it may say that it is ready
    try:
        probes.start(arguments=())
    finally:
        os.umask(before)
    try:
        rights = rights_of(probes.daemon.pid)
        assert (rights["uid"], rights["bounding"]) == (NOBODY, NET_RAW)
        for operation in (1, 2):
            probes.wait_code(operation, 1)
    finally:
        probes.close()


@pytest.fixture
def policy(boxed):
    """A trackpolicy as its unit has it, not started yet; the track "t" follows "mark-up"."""
    boxed.start()
    boxed.ctl("set", "t", "interface", "mark-up")
    boxed.wait_state("t", "up")
    made = Trackpolicy(boxed)
    boxed.net = Sandbox(boxed, Unit("trackpolicy.service"))
    yield made
    made.close()


def command(name, argv, user="nobody", **keys):
    who = {"run_as_root": True} if user == "root" else {"user": user}
    return {"name": name, "track": "t", "kind": "command", "run": argv, **who, **keys}


def test_policies_are_carried_out(policy):
    net = policy.service.net
    net.link("lan0")
    net.link("lan1")
    os.makedirs(policy.path("run/site"))
    policy.configure(
        {"name": "r", "track": "t", "kind": "route", "to": "192.0.2.0/24", "dev": "lan1"},
        {"name": "l", "track": "t", "kind": "link", "interface": "lan0"},
        {"name": "f", "track": "t", "kind": "file", "path": "/run/site/uplink"},
        command("c", ["/usr/bin/id", "-u"]),
        command("nft", ["/usr/sbin/nft", "add", "table", "inet", "site"], "root"),
        command("root", ["/usr/sbin/ip", "address", "add", "192.0.2.9/32", "dev", "lan1"], "root"))
    policy.start()
    rights = rights_of(policy.daemon.pid)
    assert rights["bounding"] == NET_ADMIN | KILL | SETGID | SETUID and rights["filters"] == 2
    for name in ("c", "root", "nft"):
        policy.wait_doing(name, "has seen up")
    policy.wait_said(f"c: {NOBODY}\n")
    assert "192.0.2.9" in net.ip("address show dev lan1")
    policy.wait_installed(1)
    net.carrier("mark-up", False)
    policy.wait_installed(0)
    wait_until(lambda: "UP" not in net.query("link show lan0")[0]["flags"],
               policy.service.build.patience, "lan0 is down")
    wait_until(lambda: lines(policy.path("run/site/uplink")) == ["0"],
               policy.service.build.patience, "the file says so")


def test_frr_is_told_by_its_own_user(policy, closing):
    if shutil.which("vtysh") is None:
        pytest.skip("FRR is not installed")
    frr = closing(Frr(policy.service.net.outside))
    policy.configure({"name": "r", "track": "t", "kind": "frr", "user": "frr",
                      "retry": 100, "retry_delay": "100ms",  # until mgmtd has taken zebra in
                      "vtysh": [shutil.which("vtysh"), "--vty_socket", frr.directory],
                      "up": ["configure terminal", "interface lan0", "description in use"]})
    policy.start()
    policy.wait_doing("r", "has seen up")
    assert frr.description("lan0") == "in use"


def test_a_users_command_is_ended_with_all_it_started(policy):
    policy.configure(command("c", script(policy, "slow", 'trap "" TERM\nsleep 60 &\nsleep 60\n'),
                             timeout="300ms"))
    policy.start()
    wait_until(lambda: policy.list()["c"]["failures"] == 1, policy.service.build.patience, "ended")
    assert "took too long" in policy.list()["c"]["problem"]


def test_a_users_command_is_known_again_after_a_crash(policy):
    """By its time of start, which stands in /proc."""
    policy.configure(command("c", ["/usr/bin/sleep", "60"]))
    policy.start()
    path = policy.path("run/object_tracking/policies/c")

    wait_until(lambda: len(lines(path)) == 2, policy.service.build.patience, "it runs")
    kept, record = lines(path)
    assert json.loads(kept)["begun"] is True

    def started(line):
        return int(line.rpartition(")")[2].split()[19])
    with open(f"/proc/{record.split()[0]}/stat") as stream:
        assert started(stream.read()) == started(record)


# What is left to a user's command. Each says on one line what it was refused, if anything.
TRIES = {
    "an IP socket": "import socket\nsocket.socket(socket.AF_INET, socket.SOCK_DGRAM)",
    "a file of /proc/sys": "open('/proc/sys/net/ipv4/ip_forward', 'r+').write('0')",
    "the processes of root": "import os\nos.stat('/proc/1/stat')",
}


def attempt(policy, title, user):
    path = policy.path("attempt.py")
    with open(path, "w") as stream:
        stream.write(TRIES[title] + "\n")
    os.chmod(path, 0o644)
    policy.configure(command("c", ["/usr/bin/python3", path], user))
    policy.start()
    row = wait_until(lambda: (policy.list()["c"]["runs"] or None) and policy.list()["c"],
                     policy.service.build.patience, "it was run")
    return row["failures"]


@pytest.mark.parametrize("title, user, refused", [
    ("an IP socket", "nobody", "Address family not supported by protocol"),
    ("a file of /proc/sys", "root", "Read-only file system"),
    ("the processes of root", "nobody", "No such file or directory"),
    ("the processes of root", "root", None),
])
def test_what_a_command_may_not_is_said_and_given_back_by_the_drop_in(policy, title, user, refused):
    assert attempt(policy, title, user) == (refused is not None)
    if refused is not None:
        policy.wait_said(refused)
    policy.stop()
    os.unlink(policy.path("run/object_tracking/policies/c"))
    policy.service.net = Sandbox(policy.service, Unit(
        "trackpolicy.service", SOURCE / "examples/trackpolicy-commands.conf"))
    assert attempt(policy, title, user) == 0, policy.daemon.output()
