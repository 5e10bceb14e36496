"""What trackpolicy does when tracks change, and what it does not let itself be done."""

import os
import pwd
import re
import shutil
import signal
import socket
import time

from build_tree import SOURCE
from output import Pipe
from policy import lines, script
from waiting import wait_until


def root_command(argv, **keys):
    return {"name": "c", "track": "t", "kind": "command", "run": argv, "run_as_root": True, **keys}


def state_file(policy, **keys):
    os.makedirs(policy.path("run/site"), exist_ok=True)
    return {"name": "f", "track": "t", "kind": "file", "path": "/run/site/uplink", **keys}


def is_zombie(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as stream:
        return stream.read().rsplit(")", 1)[1].split()[0] == "Z"


def wait_lines(policy, path, expected):
    wait_until(lambda: lines(path) == expected, policy.service.build.patience,
               lambda: f"{expected} in place of {lines(path)}")


def test_commands_and_files_follow_a_track(policy):
    told = policy.path("told")
    policy.configure(
        root_command(script(policy, "tell", f'echo "$OT_TRACK $OT_PREVIOUS $OT_STATE" >> {told}\n'
                                            'echo it is "$OT_STATE"\n')),
        state_file(policy, text_down=-50, text_up=0))
    policy.start()
    wait_lines(policy, told, ["t unknown up"])
    policy.service.net.carrier("mark-up", False)
    wait_lines(policy, told, ["t unknown up", "t up down"])
    wait_lines(policy, policy.path("run/site/uplink"), ["-50"])
    policy.wait_doing("c", "has seen down")
    policy.wait_said("c: it is down\n")
    row = policy.list()["c"]
    assert (row["state"], row["runs"], row["failures"]) == ("down", 2, 0)
    assert policy.service.ctl("policy", "list").splitlines()[1].split()[:6] == [
        "c", "command", "t", "down", "2", "0"]


def test_a_deleted_track_is_unknown_after_a_restart_of_trackpolicy(policy):
    told = policy.path("told")
    policy.configure(root_command(script(policy, "tell", f'echo "$OT_STATE" >> {told}\n')))
    policy.start()
    policy.wait_doing("c", "has seen up")
    policy.stop()
    policy.service.ctl("delete", "t")
    policy.start()
    wait_lines(policy, told, ["up", "unknown"])


def test_a_command_runs_as_its_user_with_nothing_of_ours(policy):
    seen = policy.path("seen")
    os.mkdir(seen)
    os.chmod(policy.service.root, 0o755)
    shutil.chown(seen, "nobody")
    policy.configure({"name": "c", "track": "t", "kind": "command", "user": "nobody",
                      "run": script(policy, "look", f"id -u > {seen}/user; id -G > {seen}/groups\n"
                                    f"ls /proc/self/fd | tr '\\n' ' ' > {seen}/fds\n"
                                    f"grep CapEff /proc/self/status > {seen}/rights\n"
                                    f"env | cut -d= -f1 | sort | tr '\\n' ' ' > {seen}/names\n")})
    policy.start()
    policy.wait_doing("c", "has seen up")
    nobody = pwd.getpwnam("nobody")
    assert lines(f"{seen}/user") == [str(nobody.pw_uid)]
    assert lines(f"{seen}/groups") == [str(nobody.pw_gid)]
    assert lines(f"{seen}/fds") == ["0 1 2 3 "]  # the last is the folder that ls reads
    assert lines(f"{seen}/rights") == ["CapEff:\t0000000000000000"]
    names = lines(f"{seen}/names")[0].split()
    assert set(names) - {"PWD", "SHLVL", "_", "OLDPWD"} == {
        "OT_POLICY", "OT_PREVIOUS", "OT_REASON", "OT_SINCE", "OT_STATE", "OT_TRACK", "PATH"}


def test_a_slow_command_delays_nobody_and_is_ended_with_all_it_started(policy):
    told, child = policy.path("told"), policy.path("child")
    slow = script(policy, "slow", f'trap "" TERM\nsleep 60 & echo $! > {child}\nwait\nsleep 60\n')
    policy.configure(root_command(slow, timeout="300ms", name="slow"),
                     root_command(script(policy, "tell", f'echo "$OT_STATE" >> {told}\n')))
    policy.start()
    wait_lines(policy, told, ["up"])
    policy.service.net.carrier("mark-up", False)
    wait_lines(policy, told, ["up", "down"])
    wait_until(lambda: policy.list()["slow"]["failures"] >= 1, policy.service.build.patience,
               "the slow one has failed")
    assert "took too long" in policy.list()["slow"]["problem"]


def test_a_command_that_ended_in_time_while_trackpolicy_did_not_run_has_not_failed(policy):
    pid, go, limit = policy.path("pid"), policy.path("go"), 3
    policy.configure(root_command(
        script(policy, "wait", f"echo $$ > {pid}\nwhile [ ! -e {go} ]; do sleep 0.02; done\n"),
        timeout=f"{limit}s"))
    policy.start()
    wait_until(lambda: lines(pid), policy.service.build.patience, "the command runs")
    os.kill(policy.daemon.pid, signal.SIGSTOP)
    try:
        open(go, "wb").close()
        wait_until(lambda: is_zombie(int(lines(pid)[0])), limit, "the command has ended")
        time.sleep(limit)  # that its time is over is what this is about
    finally:
        os.kill(policy.daemon.pid, signal.SIGCONT)
    row = wait_until(lambda: policy.list()["c"] if policy.list()["c"]["runs"] else None,
                     policy.service.build.patience, "it was heard of")
    assert (row["runs"], row["failures"], row["problem"]) == (1, 0, "")


def test_who_does_not_read_what_it_says_holds_nobody_up(policy):
    """A pipe that nobody empties is full after 64 KiB."""
    told, loud = policy.path("told"), policy.path("loud")
    policy.configure(
        root_command(script(policy, "shout",
                            f"yes 'of no interest' | head -n 20000\ntouch {loud}\n"), name="loud"),
        root_command(script(policy, "tell", f'echo "$OT_STATE" >> {told}\n')))
    policy.start(output=Pipe)
    wait_until(lambda: os.path.exists(loud), policy.service.build.patience, "all was said")
    policy.service.net.carrier("mark-up", False)
    wait_until(lambda: lines(told)[-1:] == ["down"], policy.service.build.patience, "down is told")
    wait_until(lambda: policy.list()["loud"]["doing"] == "has seen down",
               policy.service.build.patience, "all was said again")
    text = policy.daemon.printed.read_until(b"nobody was reading\n")
    assert text.startswith("loud: of no interest\n")
    assert re.search(r"trackpolicy: \d+ lines were dropped here: nobody was reading\n", text)


def test_what_is_said_while_nobody_reads_comes_when_somebody_does(policy):
    """Nothing else is said after it that would take it along."""
    policy.configure(state_file(policy))
    policy.start(output=Pipe)
    policy.daemon.printed.fill()
    policy.daemon.process.send_signal(signal.SIGHUP)
    policy.daemon.wait_ready()
    policy.daemon.printed.read_until(b"trackpolicy: reloaded: 1 policies\n")


def test_a_command_dies_with_a_trackpolicy_that_is_killed(policy):
    own = policy.path("own")
    policy.configure({**root_command(script(policy, "slow", f"echo $$ > {own}.new\n"
                                            f"mv {own}.new {own}\nexec sleep 60\n"))})
    policy.start()
    wait_until(lambda: lines(own), policy.service.build.patience, "it runs")
    pid = int(lines(own)[0])
    policy.kill()

    def gone():
        try:
            with open(f"/proc/{pid}/stat") as stream:
                return stream.read().split()[2] == "Z"
        except (FileNotFoundError, ProcessLookupError):
            return True
    wait_until(gone, policy.service.build.patience, "it has died")


def test_a_broken_file_keeps_the_old_policies(policy):
    policy.configure(state_file(policy))
    policy.start()
    wait_lines(policy, policy.path("run/site/uplink"), ["1"])
    policy.configure({"name": "g", "kind": "file", "path": "/run/site/other"}, file="20.toml")
    assert policy.reload() == "trackpolicy: not reloaded; the policies in force stay"
    policy.wait_said('20.toml:1:1: the policy has no "track"')
    assert list(policy.list()) == ["f"]
    policy.configure({**state_file(policy), "name": "g", "path": "/run/site/other"}, file="20.toml")
    assert policy.reload() == "trackpolicy: reloaded: 2 policies"
    wait_lines(policy, policy.path("run/site/other"), ["1"])


def test_a_file_says_down_when_the_service_is_gone_and_up_when_it_is_back(policy):
    path = policy.path("run/site/uplink")
    policy.configure(state_file(policy, grace="300ms"))
    policy.start()
    wait_lines(policy, path, ["1"])
    policy.service.crash()
    wait_lines(policy, path, ["0"])
    assert policy.list()["f"]["service"] == "gone"
    line = policy.service.ctl("policy", "list").splitlines()[1]
    assert line.split()[:5] == ["f", "file", "t", "no", "service"]
    policy.service.start()
    wait_lines(policy, path, ["1"])


def test_check_and_test_need_no_trackpolicy_and_do_nothing(policy):
    policy.configure(root_command(["/bin/tell", "it"]), state_file(policy))
    run = policy.service.run
    assert run("trackctl", "policy", "check").stdout == f"{policy.folder}: 2 policies, no errors\n"
    assert policy.service.ctl("policy", "test", "c", "down") == (
        "c: when t becomes down, it runs as root, for at most 30000 ms: /bin/tell it\n")
    assert policy.service.ctl("policy", "test", "f", "down") == (
        'f: when t becomes down, it writes "0" to /run/site/uplink\n')
    assert not os.path.exists(policy.path("run/site/uplink"))
    policy.configure(root_command([]))
    broken = run("trackctl", "policy", "check", os.path.join(policy.folder, "10.toml"))
    assert (broken.returncode, broken.stderr) == (
        1, f"{policy.folder}/10.toml:5:7: run: must be a list of texts: the program and its "
           "arguments\n")
    gone = run("trackctl", "policy", "list")
    assert gone.returncode == 3 and "trackpolicy is not running" in gone.stderr


def test_the_example_has_no_errors_and_keepalived_reads_what_it_writes(policy):
    example = os.path.join(policy.folder, "site.toml")
    shutil.copyfile(SOURCE / "examples/policies.toml", example)
    os.chmod(example, 0o644)
    assert policy.service.ctl("policy", "check") == f"{policy.folder}: 6 policies, no errors\n"
    said = policy.service.ctl("policy", "test", "vrrp-priority", "down")
    path = said.split()[-1]
    assert f'file "{path}"' in (SOURCE / "examples/keepalived-track-file.conf").read_text()


def test_completion_knows_the_policies(policy):
    policy.configure(root_command(["/bin/tell"]), state_file(policy))

    def complete(*words):
        return policy.service.ctl("complete", "policy", *words).split()
    assert complete("") == ["check", "list", "test"]
    assert complete("test", "") == ["c", "f"]
    assert complete("test", "c", "") == ["down", "unknown", "up"]
    assert complete("check", "") == ["--files-only", "@files"]
    assert complete("list", "") == ["--json"]


def test_it_does_not_start_on_what_others_may_have_written(policy):
    policy.configure(state_file(policy))
    os.chmod(policy.folder, 0o777)
    result = policy.service.run("trackpolicy")
    assert result.returncode == 1
    assert "others may write to it" in result.stderr


def test_there_is_one_of_it_and_readers_that_do_not_read_hold_nobody_up(policy):
    policy.configure(state_file(policy))
    policy.start()
    second = policy.service.run("trackpolicy")
    assert second.returncode == 1 and "another trackpolicy runs" in second.stderr
    silent = []
    for _ in range(40):
        silent.append(socket.socket(socket.AF_UNIX))
        silent[-1].connect(policy.path("run/object_tracking/policy.sock"))
    assert list(policy.list()) == ["f"]
    for each in silent:
        each.close()
    mode = os.stat(policy.path("run/object_tracking/policy.sock")).st_mode & 0o777
    assert mode == 0o660
