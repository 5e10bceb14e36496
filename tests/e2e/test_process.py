"""The daemon as a program: its arguments, its service manager, and what it does when it cannot
work."""

import os
import select
import subprocess

import pytest

from daemon import Daemon

USAGE = (
    "usage: object_tracking                                      run the service\n"
    "       object_tracking show track NAME|all-tracks [all]     show tracks\n"
    "       object_tracking --restore                            put the last good configuration\n"
    "                                                            back; the service must not run\n"
    "       object_tracking --help | --version\n")


def test_help(new_service):
    result = new_service().run("object_tracking", "--help")
    assert (result.returncode, result.stdout, result.stderr) == (0, USAGE, "")


def test_unknown_argument(new_service):
    result = new_service().run("object_tracking", "frobnicate")
    assert (result.returncode, result.stdout, result.stderr) == (2, "", USAGE)


def test_show_without_a_service_is_quiet(new_service):
    assert new_service().show("all-tracks") == ""


def refused(service):
    """Starts the daemon, which must refuse; its message."""
    daemon = Daemon(service.build, service.net, service.root, service.log)
    assert daemon.wait_exit() == 1
    assert "cannot start" in daemon.output()
    return daemon.output()


@pytest.fixture
def on_a_disk(new_service):
    """Makes an instance whose prefix is a file system of the size given; not started yet."""
    roots = []

    def make(size):
        service = new_service()
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "none", service.root],
                       check=True)
        roots.append(service)
        return service

    yield make
    for service in roots:
        try:
            if service.daemon is not None and service.daemon.running:
                service.stop()
        finally:
            subprocess.run(["umount", "--lazy", service.root], check=True)


def test_a_disk_that_is_too_small_is_refused(on_a_disk):
    assert "No space left on device" in refused(on_a_disk("1m"))


def test_a_disk_that_fills_up_does_not_stop_configuration(on_a_disk):
    """The stores have their space from the start."""
    service = on_a_disk("32m")
    service.start()
    service.net.link("lan0")
    with pytest.raises(OSError), open(os.path.join(service.root, "fill"), "wb") as stream:
        while True:
            stream.write(b"x" * 65536)
            stream.flush()
    service.configure([f"t{number}" for number in range(50)], "lan0")
    service.wait_state("t49", "up")
    service.net.ip("link set lan0 down")
    service.wait_state("t49", "down")


def test_the_watchdog_is_fed_while_nothing_happens(new_service, monkeypatch):
    monkeypatch.setenv("WATCHDOG_USEC", "400000")
    service = new_service()
    service.start()
    for _ in range(5):
        ready, _, _ = select.select([service.daemon.notify], [], [], service.build.patience)
        assert ready
        assert service.daemon.notify.recv(4096) == b"WATCHDOG=1"
