"""The probe service beside the tracks: restarted, killed, reconfigured, and not there at all."""

import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time

import pytest

from build_tree import SOURCE
from output import Pipe
from probe_fixtures import WithFiles, follows, qmond  # noqa: F401  (a fixture)
from waiting import wait_until

ECHO = {"kind": "icmp", "target": "127.0.0.1"}
REFUSED = {"kind": "tcp", "target": "127.0.0.1:7005"}


def connected(qmond):
    """Whether the service says that it is connected to the probe service."""
    rows = json.loads(qmond.service.ctl("engine", "--json"))
    return next(row["connected"] for row in rows if row["service"] == "probe")


def test_a_track_is_unknown_while_qmond_is_gone_and_follows_when_it_is_back(qmond):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    events = qmond.service.follow(tracks=["t"])
    qmond.service.ctl("set", "t", "probe", "1")
    follows(qmond, "t", 1, 1, "up")
    assert connected(qmond)
    qmond.kill()
    qmond.service.wait_detail("t", "qmon operation not in progress")
    assert qmond.service.state("t") == "unknown"
    assert not connected(qmond)
    qmond.start()
    wait_until(lambda: connected(qmond), 10, "the probe service")
    follows(qmond, "t", 1, 1, "up")
    qmond.stop()
    qmond.service.wait_state("t", "unknown")
    qmond.start()
    follows(qmond, "t", 1, 1, "up")
    events.expect(("t", "up"), ("t", "unknown"), ("t", "up"), ("t", "unknown"), ("t", "up"))


def test_a_qmond_that_hangs_counts_as_gone(qmond):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.service.ctl("set", "t", "probe", "1")
    follows(qmond, "t", 1, 1, "up")
    qmond.daemon.process.send_signal(signal.SIGSTOP)
    try:
        qmond.service.wait_state("t", "unknown")
    finally:
        qmond.daemon.process.send_signal(signal.SIGCONT)
    # Until its first heartbeat it counts as gone for everybody.
    wait_until(lambda: qmond.service.run("qmond", "status").returncode == 0,
               qmond.service.build.patience, "a heartbeat")
    follows(qmond, "t", 1, 1, "up")


HEARTBEAT = 24  # its offset in the table: u64, milliseconds of the monotonic clock


def replace(path):
    with open(path + ".other", "wb") as other:
        other.write(os.urandom(100000))
    os.rename(path + ".other", path)


def put(path, offset, content):
    with open(path, "r+b") as table:
        table.seek(offset)
        table.write(content)


TABLE_DAMAGE = {
    "cut off": lambda path: os.truncate(path, 0),
    "cut off behind its head": lambda path: os.truncate(path, 64),
    "garbage": lambda path: put(path, 0, os.urandom(os.path.getsize(path))),
    "garbage behind its head": lambda path: put(path, 64, os.urandom(os.path.getsize(path) - 64)),
    "replaced": replace,
    "deleted": os.unlink,
    "a heartbeat from the future": lambda path: put(
        path, HEARTBEAT, (int(time.monotonic() * 1000) + 3600_000).to_bytes(8, sys.byteorder)),
}


@pytest.mark.parametrize("damage", TABLE_DAMAGE)
def test_a_damaged_table_makes_the_track_unknown_and_hurts_nobody(qmond, damage):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.service.ctl("set", "t", "probe", "1")
    follows(qmond, "t", 1, 1, "up")
    qmond.daemon.process.send_signal(signal.SIGSTOP)
    TABLE_DAMAGE[damage](os.path.join(qmond.service.root, "run/qmond/statistics"))
    qmond.service.wait_state("t", "unknown")
    qmond.kill()
    qmond.start()
    follows(qmond, "t", 1, 1, "up")
    assert qmond.service.daemon.running


def test_a_track_may_be_there_before_qmond_and_before_its_operation(qmond):
    qmond.service.ctl("set", "t", "probe", "1")
    assert qmond.service.state("t") == "unknown"
    qmond.configure()
    qmond.start()
    assert qmond.service.state("t") == "unknown"
    qmond.configure({"id": 1, **ECHO})
    assert qmond.reload() == "qmond: reloaded: 1 operations added, 0 changed, 0 removed, 0 kept"
    follows(qmond, "t", 1, 1, "up")
    qmond.configure()
    assert qmond.reload() == "qmond: reloaded: 0 operations added, 0 changed, 1 removed, 0 kept"
    qmond.service.wait_state("t", "unknown")


def test_a_track_is_given_another_operation(qmond):
    qmond.configure({"id": 1, **ECHO}, {"id": 2, **REFUSED})
    qmond.start()
    qmond.service.ctl("set", "t", "probe", "1")
    follows(qmond, "t", 1, 1, "up")
    qmond.service.ctl("set", "t", "probe", "2")
    follows(qmond, "t", 2, 4, "down")
    qmond.service.ctl("set", "u", "probe", "1")
    follows(qmond, "u", 1, 1, "up")


def test_an_operation_is_followed_by_one_track_only(qmond):
    qmond.service.ctl("set", "t", "probe", "1")
    result = qmond.service.run("trackctl", "set", "u", "probe", "1")
    assert result.returncode == 1
    assert "The probe operation is already tracked (0xa64c8800)" in result.stderr


def test_the_views_show_code_and_round_trip_time(qmond):
    qmond.configure({"id": 1, **ECHO}, {"id": 2, **REFUSED})
    qmond.start()
    qmond.service.ctl("set", "good", "probe", "1")
    qmond.service.ctl("set", "bad", "probe", "2")
    follows(qmond, "good", 1, 1, "up")
    follows(qmond, "bad", 2, 4, "down")
    good = qmond.service.show("good", "all")
    assert "\tProbe Monitor 1 reachability \n" in good
    assert "\tLatest operation return code: OK \n" in good
    assert re.search(r"\tLatest RTT \(millisecs\) : \d+ \n", good)
    assert "\tLatest operation return code: Refused \n" in qmond.service.show("bad", "all")
    assert re.search(r"^good .*reachability", qmond.service.show("all-tracks"), re.M)


def test_a_reload_leaves_what_is_the_same_alone(qmond):
    slow = {"id": 1, "kind": "command", "command": ["/bin/true"], "interval": "1h",
            "timeout": "5s"}
    qmond.configure(slow, {"id": 2, **ECHO}, {"id": 3, **ECHO})
    qmond.start()
    before = wait_until(lambda: qmond.status()[1]["results"] and qmond.status(),
                        qmond.service.build.patience + 10, "a first result of the slow one")
    pid = qmond.daemon.pid
    qmond.configure(slow, {"id": 2, **REFUSED}, {"id": 4, **ECHO})
    assert qmond.reload() == "qmond: reloaded: 1 operations added, 1 changed, 1 removed, 1 kept"
    qmond.wait_code(2, 4)
    qmond.wait_code(4, 1)
    after = qmond.status()
    assert after[1] == before[1], "it has not begun anew"
    assert 3 not in after
    assert os.path.exists(f"/proc/{pid}")


def test_who_does_not_read_what_it_says_holds_no_probe_up(qmond):
    """A pipe that is full takes no more; what did not fit comes when it is read."""
    qmond.configure({"id": 1, **ECHO})
    qmond.start(output=Pipe)
    qmond.wait_code(1, 1)
    qmond.daemon.printed.fill()
    qmond.configure({"id": 1, **ECHO, "tos": 256})
    qmond.daemon.process.send_signal(signal.SIGHUP)
    qmond.daemon.wait_ready()
    qmond.wait_new_result(1)
    text = qmond.daemon.printed.read_until(
        b"qmond: not reloaded; the configuration in force stays\n")
    assert re.search(r"probes\.toml:\d+:\d+: .*tos", text)


def test_a_reload_that_needs_a_larger_table_is_followed(qmond):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.service.ctl("set", "t", "probe", "1")
    follows(qmond, "t", 1, 1, "up")
    events = qmond.service.follow(tracks=["t"])
    qmond.configure({"id": 1, **ECHO}, *({"id": 100 + n, **REFUSED} for n in range(200)))
    assert "200 operations added" in qmond.reload()
    qmond.service.ctl("set", "u", "probe", "299")
    follows(qmond, "u", 299, 4, "down")
    assert qmond.service.state("t") == "up"
    qmond.configure({"id": 1, **REFUSED})
    qmond.reload()
    follows(qmond, "t", 1, 4, "down")
    event, = events.wait_count(1)
    if event == ("t", "unknown"):  # seen between the reload and the first result
        event, = events.wait_count(1)
    assert event == ("t", "down")


def test_a_configuration_with_errors_changes_nothing(qmond):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.wait_code(1, 1)
    qmond.configure({"id": 1, "kind": "icmp"}, {"id": 2, **ECHO})
    assert qmond.reload() == "qmond: not reloaded; the configuration in force stays"
    assert f'{qmond.config}:4:1: the operation has no "target"' in qmond.daemon.output()
    assert set(qmond.status()) == {1}


def test_qmond_does_not_start_on_errors(qmond):
    qmond.configure({"id": 0, **ECHO}, {"id": 2, "kind": "ping"})
    result = qmond.service.run("qmond")
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == (
        f"{qmond.config}:5:6: id: must be a number from 1 to 2147483647\n"
        f"{qmond.config}:10:8: kind: must be one of icmp, tcp, http, dns, command\n"
        "qmond: the configuration has errors; nothing was started\n")
    result = qmond.service.run("qmond", "--check", qmond.config)
    assert result.returncode == 1
    assert result.stderr.count("\n") == 2


def test_check_and_status_say_how_it_is(qmond):
    qmond.configure({"id": 1, **ECHO}, {"id": 2, **ECHO})
    result = qmond.service.run("qmond", "--check", qmond.config)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == f"{qmond.config}: 2 operations, no errors\n"
    result = qmond.service.run("qmond", "status")
    assert result.returncode == 3
    assert result.stderr.startswith("qmond: qmond is not running")
    assert qmond.service.run("qmond", "status", "--yaml").returncode == 2
    qmond.start()
    qmond.wait_code(1, 1)
    lines = qmond.service.run("qmond", "status").stdout.splitlines()
    assert lines[0].split() == ["OPERATION", "TARGET", "CODE", "TEXT", "RTT", "LAST", "20"]
    assert lines[1].split()[:5] == ["1", "icmp", "127.0.0.1", "1", "OK"]


def test_status_says_why_the_table_cannot_be_read(qmond):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.wait_code(1, 1)
    table = os.path.join(qmond.service.root, "run/qmond/statistics")
    os.chmod(table, 0o640)
    result = subprocess.run(
        ["setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups",
         *qmond.service.build.command("qmond"), "status"],
        env=qmond.service.build.environment(qmond.service.root), capture_output=True, text=True,
        stdin=subprocess.DEVNULL)
    assert result.returncode == 1
    assert "run it as root or as a member of the group qmond" in result.stderr
    qmond.stop()
    with open(table, "wb") as damaged:
        damaged.write(b"nonsense")
    result = qmond.service.run("qmond", "status")
    assert result.returncode == 1
    assert "it is no table of results; qmond makes it anew when it starts" in result.stderr


@pytest.mark.parametrize("probe", [
    ECHO, {**REFUSED}, {"kind": "dns", "target": "127.0.0.1", "query": "a.example"}],
    ids=["icmp", "tcp", "dns"])
def test_a_source_that_is_not_ours_cannot_run(qmond, probe):
    qmond.configure({"id": 1, **probe, "source": "203.0.113.9"})
    qmond.start()
    qmond.wait_code(1, 7)


def test_the_example_has_no_errors(qmond):
    # A copy: who has checked the sources out decides who owns them.
    shutil.copyfile(SOURCE / "examples/probes.toml", qmond.config)
    result = qmond.service.run("qmond", "--check", qmond.config)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == f"{qmond.config}: 5 operations, no errors\n"


def reload_as_the_unit_does(qmond):
    """Runs what `systemctl reload` would; the exit status of the first that fails, or 0."""
    unit = (SOURCE / "packaging/qmond.service").read_text()
    lines = re.findall(r"^ExecReload=(.*)$", unit, re.M)
    assert lines
    words = {"/usr/sbin/qmond": qmond.service.build.command("qmond"),
             "/etc/object_tracking/probes.toml": [qmond.config],
             "$MAINPID": [str(qmond.daemon.pid)]}
    for line in lines:
        command = [part for word in shlex.split(line) for part in words.get(word, [word])]
        result = subprocess.run(command, env=qmond.service.build.environment(qmond.service.root),
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)
        if result.returncode != 0:
            return result.returncode
    return 0


def test_a_reload_of_the_unit_fails_on_errors_and_keeps_what_runs(qmond):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.wait_code(1, 1)
    for bad in ({"id": 2, "kind": "ping"}, {"id": 2, "kind": "icmp"}):
        qmond.configure({"id": 1, **ECHO}, bad)
        assert reload_as_the_unit_does(qmond) == 1
        qmond.wait_new_result(1)
        assert set(qmond.status()) == {1}
    qmond.configure({"id": 1, **ECHO}, {"id": 2, **REFUSED})
    assert reload_as_the_unit_does(qmond) == 0
    wait_until(lambda: set(qmond.status()) == {1, 2}, qmond.service.build.patience, "reloaded")


@pytest.mark.parametrize("spoil, reason", [
    (lambda path: os.chmod(path, 0o664), "others may write to it; only its owner may (chmod go-w)"),
    (lambda path: os.chown(path, 65534, 65534),
     "it belongs to user 65534; it must belong to user 0")])
def test_a_configuration_that_others_may_write_is_refused(qmond, spoil, reason):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.wait_code(1, 1)
    qmond.configure({"id": 2, **ECHO})
    spoil(qmond.config)
    assert qmond.reload() == "qmond: not reloaded; the configuration in force stays"
    assert f"{qmond.config}: {reason}\n" in qmond.daemon.output().replace("\r", "")
    assert set(qmond.status()) == {1}
    qmond.stop()
    result = qmond.service.run("qmond")
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr.startswith(f"{qmond.config}: {reason}\n")


def test_root_runs_no_commands_unless_it_is_told_to(qmond):
    touched = os.path.join(qmond.service.root, "touched")
    toucher = {"id": 7, "kind": "command", "command": ["/usr/bin/touch", touched]}
    qmond.configure({"id": 1, **ECHO}, toucher)
    result = qmond.service.run("qmond")
    assert (result.returncode, result.stdout) == (1, "")
    reason = (f"{qmond.config}: operation 7 would run its command as root; run qmond as a user of "
              "its own, as its unit does, or with --commands-as-root\n")
    assert result.stderr.startswith(reason)
    qmond.configure({"id": 1, **ECHO})
    qmond.start(arguments=())
    qmond.wait_code(1, 1)
    qmond.configure({"id": 1, **ECHO}, toucher)
    assert qmond.reload() == "qmond: not reloaded; the configuration in force stays"
    assert reason in qmond.daemon.output().replace("\r", "")
    assert not os.path.exists(touched)
    qmond.stop()
    qmond.start()
    qmond.wait_code(7, 1)
    assert os.path.exists(touched)


def test_only_one_qmond_runs_on_a_prefix(qmond):
    qmond.configure()
    qmond.start()
    second = qmond.service.run("qmond")
    assert second.returncode == 1
    assert second.stderr == f"qmond: another qmond runs below {qmond.service.root}/run/qmond\n"


def test_qmond_keeps_no_privileges(qmond):
    # A command sees what it was given.
    seen = os.path.join(qmond.service.root, "seen")
    text = (f"{{ grep -E '^(Cap(Prm|Eff|Amb)|NoNewPrivs)' /proc/self/status; env; }} >{seen}.new; "
            f"mv {seen}.new {seen}")
    qmond.configure({"id": 1, "kind": "command", "command": ["/bin/sh", "-c", text]})
    qmond.start()
    qmond.wait_code(1, 1)
    with open(f"/proc/{qmond.daemon.pid}/status") as stream:
        own = dict(re.findall(r"^(\w+):\s+(.*)$", stream.read(), re.M))
    with open(seen) as stream:
        text = stream.read()
    child = dict(re.findall(r"^(\w+):\s+(.*)$", text, re.M))
    for of in (own, child):
        assert [of[name] for name in ("CapPrm", "CapEff", "CapAmb")] == ["0" * 16] * 3
        assert of["NoNewPrivs"] == "1"
    assert set(re.findall(r"^(\w+)=", text, re.M)) <= {"PATH", "QMON_OPERATION", "PWD", "_",
                                                       "SHLVL", "OLDPWD"}


def without_library(net, build, name):
    """The namespace, for a process that does not find that library."""
    return WithFiles(net, {str(build.path / "pkg/lib" / name): "/dev/null"})


@pytest.mark.parametrize("name", ["libqmon_infra.dll", "libqmon_infra_comp.dll"])
def test_without_the_package_a_probe_track_is_refused(new_service, build, name):
    service = new_service()
    net = service.net
    service.net = without_library(net, build, name)
    service.start()
    service.net = net
    result = service.run("trackctl", "set", "t", "probe", "1")
    assert result.returncode == 1
    assert "The probe package is not available (0xa64c8600)" in result.stderr
    assert service.run("trackctl", "show", "t").returncode == 1


def test_without_the_package_a_stored_probe_track_is_unknown(service, build):
    service.ctl("set", "t", "probe", "1")
    service.stop()
    net = service.net
    service.net = without_library(net, build, "libqmon_infra.dll")
    service.start()
    service.net = net
    assert service.state("t") == "unknown"
    service.stop()
    service.start()
    assert service.state("t") == "unknown"


def has_curl(qmond):
    with open(f"/proc/{qmond.daemon.pid}/maps", encoding="ascii") as maps:
        return "/libcurl.so" in maps.read()


HTTP = {"kind": "http", "target": "http://127.0.0.1:7006/"}


def test_the_transfer_library_is_loaded_for_the_first_http_operation(qmond):
    qmond.configure({"id": 1, **ECHO})
    qmond.start()
    qmond.wait_code(1, 1)
    assert not has_curl(qmond)
    qmond.configure({"id": 1, **ECHO}, {"id": 2, **HTTP})
    qmond.reload()
    qmond.wait_code(2, 4)  # refused
    assert has_curl(qmond)


def test_without_the_transfer_library_only_http_operations_cannot_run(qmond, monkeypatch):
    folder = os.path.join(qmond.service.root, "lib")
    os.mkdir(folder)
    with open(os.path.join(folder, "libcurl.so.4"), "wb") as stream:
        stream.write(b"no library")
    qmond.configure({"id": 1, **ECHO}, {"id": 2, **HTTP})
    with monkeypatch.context() as environment:
        environment.setenv("LD_LIBRARY_PATH", folder)
        qmond.start()
    qmond.wait_code(1, 1)
    qmond.wait_code(2, 7)  # cannot run
    qmond.wait_new_result(2)
    said = [line for line in qmond.daemon.output().splitlines() if "http operations" in line]
    assert said == ["qmond: http operations cannot run: "
                    f"{folder}/libcurl.so.4: file too short"]
