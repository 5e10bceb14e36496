"""The example module for Ansible: what it changes, what it says of it, and its check and diff modes."""

import json
import os
import shutil
import subprocess

import pytest

from build_tree import SOURCE

EXAMPLE = SOURCE / "examples/ansible"
LINES = "# two ways out\nwan interface mark-up --delay-up 1\nspare interface mark-dn\n"


class Ansible:
    """Ansible on this machine, for an instance of the service."""

    def __init__(self, service, folder):
        if shutil.which("ansible-playbook") is None:
            pytest.skip("ansible-core is not installed")
        self.printed = ""
        build = service.build
        self._environment = {
            **build.environment(service.root), "HOME": str(folder), "LC_ALL": "C.UTF-8",
            "PATH": f"{build.path}/bin:{os.environ['PATH']}", "ANSIBLE_NOCOLOR": "1",
            "ANSIBLE_LOCAL_TEMP": f"{folder}/local", "ANSIBLE_REMOTE_TEMP": f"{folder}/remote",
            "ANSIBLE_LOCALHOST_WARNING": "0", "ANSIBLE_DEPRECATION_WARNINGS": "0"}

    def run(self, *words):
        return subprocess.run(words, env=self._environment, cwd=EXAMPLE, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def module(self, *options, **arguments):
        """Its status and its result."""
        done = self.run("ansible", "all", "-i", "localhost,", "-c", "local", "-M", "library",
                        "-e", "ansible_python_interpreter=/usr/bin/python3",
                        "-m", "object_tracking_tracks", "-a", json.dumps(arguments), *options)
        self.printed = done.stdout
        result, _ = json.JSONDecoder().raw_decode(done.stdout[done.stdout.index("{\n"):])
        return done.returncode, result

    def playbook(self, *options):
        return self.run("ansible-playbook", "-i", "localhost,", "-c", "local", "-e",
                        "ansible_python_interpreter=/usr/bin/python3", "tracks.yml", *options)


@pytest.fixture
def ansible(service, tmp_path):
    return Ansible(service, tmp_path)


def test_it_changes_what_differs_and_nothing_again(service, ansible):
    status, result = ansible.module(text=LINES)
    assert (status, result["changed"], result["made"]) == (0, True, 2)
    assert result["changes"] == ["+ wan interface mark-up --delay-up 1", "+ spare interface mark-dn"]
    status, result = ansible.module(text=LINES)
    assert (status, result["changed"], result["changes"]) == (0, False, [])
    status, result = ansible.module(text="wan interface mark-up --delay-up 2")
    assert (status, result["changed"], result["modified"], result["deleted"]) == (0, True, 1, 0)
    assert service.ctl("export") == "spare interface mark-dn\nwan interface mark-up --delay-up 2\n"


def test_a_file_of_the_router_is_applied_and_what_it_does_not_name_goes(service, ansible):
    service.ctl("set", "old", "interface", "mark-up")
    path = os.path.join(service.root, "tracks.conf")
    with open(path, "w") as stream:
        stream.write(LINES)
    status, result = ansible.module(src=path)
    assert (status, result["made"], result["deleted"]) == (0, 2, 0)
    status, result = ansible.module(src=path, prune=True)
    assert (status, result["changed"], result["deleted"]) == (0, True, 1)
    assert result["changes"] == ["- old interface mark-up"]


@pytest.mark.parametrize("name", ["-", "--dry-run"])
def test_a_file_is_one_whatever_its_name_and_nothing_else_is_read(service, ansible, name):
    service.ctl("set", "old", "interface", "mark-up")
    status, result = ansible.module(src=name, prune=True)
    assert status != 0 and result["rc"] == 2
    assert f"/{name}: No such file or directory" in result["msg"]
    assert service.ctl("export") == "old interface mark-up\n"


def test_check_mode_changes_nothing_and_diff_mode_shows_what_it_would(service, ansible):
    status, result = ansible.module("--check", text=LINES)
    assert (status, result["changed"], result["made"]) == (0, True, 2)
    assert service.ctl("export") == ""
    shown = ansible.playbook("--check", "--diff", "-e", '{"uplinks": {"wan": "mark-up"}}')
    assert shown.returncode == 0, shown.stdout
    assert "+ wan interface mark-up --delay-up 5\n+ internet or wan\n" in shown.stdout
    assert service.ctl("export") == ""


def test_wrong_lines_are_told_with_their_numbers_and_nothing_is_changed(service, ansible):
    status, result = ansible.module(text=LINES + "web interfce eth0\nfar route 1.2.3.4/33\n")
    assert status != 0 and result["rc"] == 2
    assert [(error["file"], error["line"]) for error in result["errors"]] == [("text", 4), ("text", 5)]
    assert result["errors"][0]["text"].startswith('there is no kind of track "interfce"')
    assert 'text:4: there is no kind of track "interfce"' in result["msg"]
    assert service.ctl("export") == ""


def test_what_is_missing_is_told(service, ansible):
    status, result = ansible.module(text="site or nobody")
    assert status == 0 and result["changed"]
    assert '[WARNING]: text:1: there is no track "nobody" yet\n' in ansible.printed
    status, result = ansible.module(prune=True)
    assert status != 0 and "one of the following is required: text, src" in result["msg"]
    service.stop()
    status, result = ansible.module(text=LINES)
    assert status != 0 and result["rc"] == 3 and "the service is not running" in result["msg"]


def test_the_example_makes_its_tracks_once(service, ansible):
    uplinks = ("-e", '{"uplinks": {"wan": "mark-up", "spare": "mark-dn"}}')
    first = ansible.playbook(*uplinks)
    assert first.returncode == 0 and "changed=1 " in first.stdout, first.stdout
    assert service.ctl("export") == ("internet or wan spare\nspare interface mark-dn --delay-up 5\n"
                                     "wan interface mark-up --delay-up 5\n")
    service.wait_state("internet", "up")
    again = ansible.playbook(*uplinks)
    assert again.returncode == 0 and "changed=0 " in again.stdout, again.stdout
