"""A configuration becomes durable beside the loop: while the disk takes its time, only commits wait."""

import os
import subprocess

import pytest

from waiting import wait_until


class HeldDisk:
    """A service whose configuration does not become durable while hold() is in force."""

    def __init__(self, service, monkeypatch):
        self.service = service
        self._hold = os.path.join(service.root, "hold")
        self._setting = []
        service.net.link("wan0")
        library = service.build.path / "bin" / "held_disk.so"
        assert library.exists(), "build it first"  # the loader would only warn
        with monkeypatch.context() as environment:
            environment.setenv("LD_PRELOAD", str(library))
            environment.setenv("OT_HELD_DISK", self._hold)
            service.start()
        service.ctl("set", "wan", "interface", "wan0")
        service.wait_state("wan", "up")

    def hold(self):
        with open(self._hold, "w", encoding="ascii"):
            pass

    def release(self):
        os.unlink(self._hold)

    def wait_reached(self):
        wait_until(lambda: os.path.exists(self._hold + ".reached"), self.service.build.patience,
                   "a commit at the disk")

    def begin(self, *arguments):
        """trackctl in the background."""
        service = self.service
        self._setting.append(subprocess.Popen(
            [*service.build.command("trackctl"), *arguments],
            env=service.build.environment(service.root), stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True))
        return self._setting[-1]

    def close(self):
        for process in self._setting:
            process.kill()
            process.communicate()


@pytest.fixture
def disk(new_service, build, monkeypatch):
    if build.sanitized:
        pytest.skip("a sanitizer's runtime wants to be loaded first")
    held = HeldDisk(new_service(), monkeypatch)
    yield held
    held.close()


def ended(process):
    output, error = process.communicate(timeout=30)
    return process.returncode, output, error


def names(service):
    return [track["name"] for track in service.tracks()]


def test_events_and_readers_do_not_wait_for_the_disk(disk):
    service = disk.service
    follower = service.follow(["wan"])
    disk.hold()
    setting = disk.begin("set", "other", "interface", "lan0")
    disk.wait_reached()
    for state in ("down", "up", "down"):
        service.net.ip(f"link set wan0 {state}")
        follower.expect(("wan", state))
    assert service.state("wan") == "down"
    assert names(service) == ["wan"]
    assert setting.poll() is None
    disk.release()
    assert ended(setting) == (0, "", "")
    assert sorted(names(service)) == ["other", "wan"]


def test_commits_behind_it_are_made_in_their_order(disk):
    service = disk.service
    disk.hold()
    first = disk.begin("set", "a", "interface", "lan0")
    disk.wait_reached()
    # Whatever their order is, each finds what those before it have made.
    behind = [disk.begin("delay", "wan", "--up", str(seconds)) for seconds in (3, 4)]
    refused = disk.begin("set", "c", "and", "c")
    assert all(process.poll() is None for process in (first, *behind, refused))
    disk.release()
    assert ended(first) == (0, "", "")
    assert [ended(process)[0] for process in behind] == [0, 0]
    assert ended(refused)[0] == 1
    assert sorted(names(service)) == ["a", "wan"]


def test_a_kill_at_the_disk_leaves_the_old_or_the_new_configuration(disk):
    service = disk.service
    disk.hold()
    setting = disk.begin("set", "wan", "and", "one", "two")
    disk.wait_reached()
    service.crash()
    assert ended(setting) == (3, "", "trackctl: setting track \"wan\": the service ended before it "
                              "answered; `trackctl show` tells whether the change was made\n")
    disk.release()
    service.start()
    track, = service.tracks()
    assert (track["name"], track["type"]) in (("wan", "interface"), ("wan", "and"))


def test_a_client_that_leaves_disturbs_nobody(disk):
    service = disk.service
    disk.hold()
    setting = disk.begin("set", "a", "interface", "lan0")
    disk.wait_reached()
    setting.kill()
    setting.wait()
    behind = disk.begin("set", "b", "interface", "lan0")
    assert names(service) == ["wan"]
    disk.release()
    assert ended(behind) == (0, "", "")
    assert sorted(names(service)) == ["a", "b", "wan"]


def test_a_stop_at_the_disk_waits_and_loses_nothing(disk):
    service = disk.service
    disk.hold()
    setting = disk.begin("set", "a", "interface", "lan0")
    disk.wait_reached()
    service.daemon.process.terminate()
    wait_until(lambda: "lan0" not in service.run("trackctl", "show").stdout, 10, "the stop")
    assert service.daemon.running
    disk.release()
    assert service.daemon.wait_exit() == 0
    assert ended(setting)[0] != 0
    service.start()
    assert sorted(names(service)) == ["a", "wan"]
