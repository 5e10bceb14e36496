"""What people and their scripts are used to: help, durations, waiting, JSON, a terminal's lines,
completion."""

import json
import os
import pty
import re
import shutil
import subprocess
import threading
import time

import pytest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BASH_COMPLETION = os.path.join(REPOSITORY, "packaging", "trackctl.bash-completion")
ZSH_COMPLETION = os.path.join(REPOSITORY, "packaging", "trackctl.zsh-completion")
MANUAL = os.path.join(REPOSITORY, "docs", "man", "trackctl.1")


def commands(service):
    return re.findall(r"^  trackctl (\S+)", service.ctl("--help"), re.M)


def test_help_in_either_order(service):
    for command in commands(service):
        assert service.ctl("help", command) == service.ctl(command, "--help")
    assert "IFNAME" in service.ctl("help", "set", "interface")
    for command in ("list", "test", "check"):
        assert service.ctl("help", "policy", command) == service.ctl("policy", command, "--help")
    for help_of_all in (["help"], ["help", "help"], ["help", "--help"]):
        assert service.ctl(*help_of_all) == service.ctl("--help")


def test_the_manual_and_the_completion_know_every_command(service):
    with open(MANUAL) as stream:
        manual = stream.read()
    known = service.ctl("complete", "").split()
    for command in commands(service):
        assert f".B trackctl {command}" in manual
        assert command in known


def test_a_command_that_is_nearly_right(service):
    result = service.run("trackctl", "shwo")
    assert result.returncode == 2
    assert 'is it "show"? `trackctl --help` lists them' in result.stderr


def test_help_of_what_there_is_not(service):
    result = service.run("trackctl", "help", "set", "nothing")
    assert result.returncode == 2
    assert 'there is no kind of track "nothing"; the kinds are: interface, ' in result.stderr
    for words, wrong in ((["show", "extra"], 'help: nothing is known of "extra"; it takes a command'),
                         (["set", "interface", "x"],
                          'help: nothing is known of "x"; it takes "set" and a kind'),
                         (["policy", "list", "x"],
                          'help: nothing is known of "x"; it takes "policy" and a command of it'),
                         (["policy", "nothing"],
                          "policy: list, test or check? `trackctl policy --help` tells more")):
        result = service.run("trackctl", "help", *words)
        assert (result.returncode, result.stderr) == (2, f"trackctl: {wrong}\n")
    with open("/dev/full", "w", encoding="utf-8") as full:
        for words in (["help"], ["help", "show"], ["show", "--help"], ["--version"]):
            result = subprocess.run([*service.build.command("trackctl"), *words], stdout=full,
                                    stderr=subprocess.PIPE, text=True)
            assert (result.returncode, result.stderr) == (
                1, "trackctl: standard output cannot be written\n"), words


def test_names_give_the_terminal_no_orders(service):
    for words in (["\033[31m"], ["explain", "\033[31m"], ["what-if", "\033[31m=up"]):
        assert "?[31m" in service.run("trackctl", *words).stderr
        assert "\033" not in service.run("trackctl", *words).stderr


def test_durations_are_exported_in_seconds(office):
    office.ctl("set", "office", "interface", "lan0", "--delay-up", "2m", "--delay-down", "1h1m1")
    assert office.ctl("export") == "office interface lan0 --delay-up 120 --delay-down 3661\n"
    office.ctl("delay", "office", "--up", "5s", "--down", "0")
    assert office.ctl("export") == "office interface lan0 --delay-up 5\n"


def test_json_of_everything_that_is_printed(office, tmp_path):
    file = tmp_path / "tracks.conf"
    file.write_text("spare interface lan1\n")
    assert json.loads(office.ctl("state", "office", "--json")) == {"name": "office", "state": "up"}
    assert json.loads(office.ctl("debug", "--json")) == {
        "detail": False, "error": False, "notification": False}
    assert json.loads(office.ctl("export", "--json")) == [
        {"name": "office", "line": "office interface lan0"}]
    assert json.loads(office.ctl("apply", str(file), "--json")) == {
        "dry_run": False, "made": 1, "changed": 0, "deleted": 0,
        "changes": ["+ spare interface lan1"]}
    result = office.run("trackctl", "diff", str(file), "--json")
    assert (result.returncode, json.loads(result.stdout)["changes"]) == (1, [
        "- office interface lan0"])


# --- state ----------------------------------------------------------------------------------------

def test_state_of_several(office):
    office.ctl("set", "spare", "interface", "mark-dn")
    office.wait_state("spare", "down")
    result = office.run("trackctl", "state", "office", "spare")
    assert (result.returncode, result.stdout) == (10, "office up\nspare down\n")
    assert office.run("trackctl", "state", "office", "nobody").returncode == 1
    office.ctl("set", "later", "or", "nobody", "--delay-down", "1000")
    assert office.run("trackctl", "state", "office", "later").returncode == 11
    assert office.run("trackctl", "state", "later", "office", "spare").returncode == 10


def test_waiting_goes_on_with_the_change(office):
    office.net.link("lan1", up=False)
    office.ctl("set", "spare", "interface", "lan1")
    results = []
    waiting = threading.Thread(target=lambda: results.append(
        office.run("trackctl", "state", "office", "spare", "--wait", "up", "--timeout", "1m")))
    waiting.start()
    office.net.ip("link set lan1 up")
    waiting.join()
    assert (results[0].returncode, results[0].stdout) == (0, "office up\nspare up\n")


def test_waiting_ends_with_its_time(office):
    began = time.monotonic()
    result = office.run("trackctl", "state", "office", "--wait", "down", "--timeout", "1s")
    assert (result.returncode, result.stdout) == (12, "up\n")
    assert "not all down within 1s: office is up" in result.stderr
    assert 0.9 < time.monotonic() - began < 30
    assert office.run("trackctl", "state", "office", "--wait", "up").returncode == 0
    assert office.run("trackctl", "state", "office", "--timeout", "1s").returncode == 2


# --- show on a terminal ---------------------------------------------------------------------------

def on_terminal(service, *arguments, **environment):
    """What trackctl prints on a terminal of 80 columns."""
    leader, follower = pty.openpty()
    os.set_blocking(leader, True)
    variables = {**service.build.environment(service.root), "TERM": "xterm", **environment}
    process = subprocess.Popen([*service.build.command("trackctl"), *arguments], env=variables,
                               stdin=subprocess.DEVNULL, stdout=follower)
    os.close(follower)
    text = b""
    try:
        while part := os.read(leader, 65536):
            text += part
    except OSError:  # the other end is closed
        pass
    os.close(leader)
    assert process.wait() == 0
    return text.decode().replace("\r\n", "\n")


def test_show_on_a_terminal(office):
    members = [f"member-{number:02}" for number in range(12)]
    office.ctl("set", "all", "and", "office", *members, "--delay-up", "100")
    text = on_terminal(office, "show", NO_COLOR="1")
    lines = text.splitlines()
    assert lines[0].split() == ["Track", "State", "For", "Follows"]
    assert lines[1].startswith("all     ") and lines[-1].startswith("office  up ")
    assert all(len(line) <= 80 for line in lines)
    assert set(members) <= set(text.split())
    assert "\033" not in text
    assert "\033[32mup     \033[0m" in on_terminal(office, "show")
    assert "\033" not in on_terminal(office, "show", TERM="dumb")
    detail = on_terminal(office, "show", "all", "--detail", NO_COLOR="1")
    assert "  delays     up 1m40s, down none\n" in detail
    assert "member-03  down   not configured\n" in detail
    assert office.ctl("show", "office") == office.show("office")


# --- completion -----------------------------------------------------------------------------------

def complete(service, *words):
    return service.ctl("complete", *words).split()


def test_candidates(office):
    folder = os.path.join(office.root, "etc", "object_tracking")
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "probes.toml"), "w") as stream:
        stream.write("[[operation]]\nid = 17\n[[operation]]\n id=4 # another\n")
    assert complete(office, "sta") == ["state"]
    assert complete(office, "set", "off") == ["office"]
    assert complete(office, "set", "new", "pr") == ["probe"]
    assert complete(office, "set", "new", "probe", "") == ["--delay-down", "--delay-up", "17", "4"]
    assert "lo" in complete(office, "set", "new", "interface", "")
    assert "lo" in complete(office, "set", "new", "bfd", "192.0.2.1", "--interface", "")
    assert complete(office, "set", "new", "route", "192.0.2.0/24", "--v") == ["--vrf"]
    assert complete(office, "set", "new", "and", "not", "o") == ["office"]
    assert complete(office, "delay", "office", "--up", "") == []
    assert complete(office, "delay", "office", "--up", "5", "--") == ["--down"]
    assert complete(office, "state", "office", "--wait", "") == ["down", "up"]
    assert complete(office, "apply", "") == ["--dry-run", "--json", "--prune", "@files"]
    assert complete(office, "apply", "tracks.conf", "--") == ["--dry-run", "--json", "--prune"]
    assert complete(office, "apply", "--prune", "tracks.c") == ["@files"]
    assert complete(office, "events", "--track", "") == ["office"]
    assert complete(office, "frobnicate", "") == []


def test_candidates_of_help(service):
    assert complete(service, "help", "") == sorted(commands(service))
    assert complete(service, "help", "set", "we") == ["weight"]
    assert complete(service, "help", "policy", "") == ["check", "list", "test"]
    assert complete(service, "help", "show", "") == []
    assert complete(service, "help", "set", "weight", "") == []
    for word in complete(service, "help", ""):
        assert service.run("trackctl", "help", word).returncode == 0


def test_candidates_without_a_service(service):
    service.stop()
    assert complete(service, "show", "") == ["--detail", "--json"]


def shell(service, *command):
    environment = service.build.environment(service.root)
    environment["PATH"] = os.path.dirname(service.build.command("trackctl")[-1]) + ":" + os.environ[
        "PATH"]
    result = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert result.stderr == ""
    return result.stdout.split()


@pytest.mark.parametrize("line,found", [
    ("trackctl show off", ["office"]),
    ("trackctl set new and not o", ["office"]),
    ("trackctl state office --wait ", ["down", "up"]),
    ("trackctl show a:b:", ["c"]),  # the shell completes what is behind a colon
    ("trackctl diff /etc/hos", ["/etc/host.conf", "/etc/hostname", "/etc/hosts"]),
])
def test_bash(office, line, found):
    office.ctl("set", "a:b:c", "interface", "lan0")
    script = (f"source {BASH_COMPLETION}; COMP_LINE='{line}'; COMP_POINT={len(line)}; "
              "_trackctl; printf '%s\\n' \"${COMPREPLY[@]}\"")
    result = shell(office, "bash", "-c", script)
    assert set(result) >= set(found) if "/etc" in line else result == found


def test_bash_goes_into_folders_and_quotes_names(service, tmp_path):
    (tmp_path / "folder").mkdir()
    (tmp_path / "of lines").write_text("wrong\n")
    leader, follower = pty.openpty()
    environment = service.build.environment(service.root)
    tools = os.path.dirname(service.build.command("trackctl")[-1])
    environment.update(TERM="dumb", PS1="", PATH=f"{tools}:{os.environ['PATH']}")
    process = subprocess.Popen(["bash", "--norc", "-i"], env=environment, stdin=follower,
                               stdout=follower, stderr=follower, start_new_session=True)
    os.close(follower)
    os.write(leader, (f"source {BASH_COMPLETION}\ncd {tmp_path}\ntrackctl diff fol\t\n"
                      "trackctl diff of\t\nexit\n").encode())
    text = b""
    try:
        while part := os.read(leader, 65536):
            text += part
    except OSError:  # the shell has ended
        pass
    os.close(leader)
    process.wait()
    assert b"\n  folder/: it is a folder" in text
    assert b"\n  of lines:1: a line is NAME KIND" in text


@pytest.mark.skipif(shutil.which("zsh") is None, reason="zsh is not installed")
def test_zsh(office):
    for words, found in (("trackctl show off", ["office"]), ("trackctl diff /etc/hos", ["FILES"])):
        script = (f"compadd() {{ shift; print -l -- $@ }}; _files() {{ print FILES }}; "
                  f"words=({words}); CURRENT={len(words.split())}; "
                  f"_trackctl() {{ source {ZSH_COMPLETION} }}; _trackctl")
        assert shell(office, "zsh", "-f", "-c", script) == found
