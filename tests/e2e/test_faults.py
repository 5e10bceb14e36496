"""Faults of the machine: disks that are full, have no inodes or cannot be written; stores that are
damaged. The service runs, or says which file it is about and what would be right."""

import os
import signal
import time

import pytest

from daemon import Daemon
from mounts import Disk
from waiting import wait_until

CONFIGURATION = "var/lib/object_tracking/configuration.mdb"
COPY = "var/lib/object_tracking/configuration.copy"
OPERATIONAL = "run/object_tracking/operational.mdb"
MEGABYTE = 1 << 20


def says(service, text):
    """The message comes to the daemon's log."""
    wait_until(lambda: text in service.daemon.output(), service.build.patience, text)


def refusal(service):
    """Starts the daemon, which must end by itself, with status 1; its message."""
    daemon = Daemon(service.build, service.net, service.root, service.log)
    assert daemon.wait_exit() == 1, daemon.output()
    assert "object_tracking: cannot start: " in daemon.output()
    return daemon.output()


@pytest.fixture
def disk(new_service):
    """Makes an instance of which the given folder is a disk of its own; not started yet."""
    disks = []

    def make(folder, options):
        service = new_service()
        disks.append((service, Disk(os.path.join(service.root, folder), options)))
        return service, disks[-1][1]

    yield make
    for service, made in disks:
        try:
            if service.daemon is not None and service.daemon.running:
                service.stop()
        finally:
            made.close()


def configured(service):
    service.net.link("lan0")
    service.ctl("set", "office", "interface", "lan0")
    service.wait_state("office", "up")


FULL = [(Disk.fill, "No space left on device"),
        (Disk.fill_inodes, "(the file system has no inodes left)"),
        (Disk.make_read_only, "Read-only file system")]


@pytest.mark.parametrize("folder", ["run", "var"])
@pytest.mark.parametrize("spoil, reason", FULL, ids=["full", "no inodes", "read-only"])
def test_a_disk_without_room_at_the_first_start_is_named(disk, folder, spoil, reason):
    service, made = disk(folder, "size=32m,nr_inodes=100")
    spoil(made)
    said = refusal(service)
    assert os.path.join(service.root, folder) in said
    assert reason in said


@pytest.mark.parametrize("folder", ["run", "var"])
def test_a_start_on_a_full_disk_leaves_nothing_half_done(disk, folder):
    service, made = disk(folder, "size=32m")
    made.fill()
    refusal(service)
    os.unlink(os.path.join(made.folder, "fill"))
    service.start()
    configured(service)


def test_however_little_room_is_left_the_start_is_refused_in_words(disk):
    """A file that is written through memory must have its space before: else a signal ends it."""
    for pages in range(12):
        service, made = disk("run", "size=4m")
        made.leave(pages * 4096)
        assert os.path.join(service.root, "run/object_tracking") in refusal(service), pages


def test_the_last_of_a_disk_is_left_to_others(disk):
    service, made = disk("run", "size=5000k")
    before = made.free()
    said = refusal(service)
    assert OPERATIONAL in said and "4096 kB" in said and "1024 kB are left to others" in said
    assert made.free() > before - MEGABYTE // 4


def test_the_configuration_does_without_its_space_on_a_small_disk(disk):
    service, made = disk("var", "size=8m")
    service.start()
    configured(service)
    assert made.free() > 6 * MEGABYTE
    says(service, "changes are refused while the disk is full")
    made.fill()
    result = service.run("trackctl", "set", "more", "interface", "lan0")
    assert result.returncode in (0, 1)
    service.net.ip("link set lan0 down")
    service.wait_state("office", "down")


@pytest.mark.parametrize("folder", ["run", "var"])
@pytest.mark.parametrize("spoil", [Disk.fill, Disk.fill_inodes], ids=["full", "no inodes"])
def test_a_restart_on_a_full_disk_keeps_everything(disk, folder, spoil):
    service, made = disk(folder, "size=32m,nr_inodes=100")
    service.start()
    configured(service)
    service.crash()
    spoil(made)
    if folder == "run" and spoil is Disk.fill_inodes:
        os.unlink(os.path.join(made.folder, "fill0"))  # for the sockets, which are made anew
        os.unlink(os.path.join(made.folder, "fill1"))
    service.start()
    if folder == "run" and spoil is Disk.fill:
        says(service, "the start count is not kept: ")
    assert service.state("office") == "up"
    service.net.ip("link set lan0 down")
    service.wait_state("office", "down")


# --- Damaged stores ------------------------------------------------------------------------------


def overwrite(path, offset, length):
    with open(path, "r+b") as stream:
        stream.seek(offset)
        stream.write(b"\xa5" * length)


DAMAGE = {
    "empty": lambda path: os.truncate(path, 0),
    "cut after its head": lambda path: os.truncate(path, 8192),
    "garbage": lambda path: overwrite(path, 0, 16384),
    "garbage behind its head": lambda path: overwrite(path, 8192, 65536),
    "of a stranger": lambda path: os.chown(path, 65534, 65534),
    "others can write": lambda path: os.chmod(path, 0o666),
    "a link": lambda path: (os.rename(path, path + ".away"), os.symlink(path + ".away", path)),
}


def seen(path):
    """What there is to know of a file."""
    state = os.lstat(path)
    content = os.readlink(path) if os.path.islink(path) else open(path, "rb").read()
    return state.st_ino, state.st_mode, state.st_uid, state.st_mtime_ns, content


@pytest.mark.parametrize("damage", DAMAGE)
def test_a_configuration_that_is_no_good_is_kept_and_its_copy_put_back(service, damage):
    configured(service)
    service.stop()
    path = os.path.join(service.root, CONFIGURATION)
    DAMAGE[damage](path)
    before = seen(path)
    said = refusal(service)
    assert path in said and "it is left as it is" in said
    assert "`object_tracking --restore` puts the copy of" in said
    assert refusal(service) == said
    assert seen(path) == before

    result = service.run("object_tracking", "--restore")
    assert result.returncode == 0, result.stderr
    kept = result.stdout.strip().rsplit(" ", 1)[1]
    assert seen(kept) == before
    service.start()
    assert service.state("office") == "up"
    service.net.ip("link set lan0 down")
    service.wait_state("office", "down")


def test_a_configuration_that_is_gone_is_not_taken_for_empty(service):
    configured(service)
    service.stop()
    os.unlink(os.path.join(service.root, CONFIGURATION))
    said = refusal(service)
    assert "it is missing, but its copy is there. `object_tracking --restore` makes it from" in said
    assert "it is left as it is" not in said
    assert said.strip().endswith(f"move {os.path.join(service.root, COPY)} away")
    assert service.run("object_tracking", "--restore").returncode == 0
    service.start()
    assert service.state("office") == "up"


def test_without_a_copy_the_operator_is_told_what_is_left(service):
    configured(service)
    service.stop()
    os.unlink(os.path.join(service.root, COPY))
    os.truncate(os.path.join(service.root, CONFIGURATION), 0)
    said = refusal(service)
    assert "There is no copy of it" in said and "--restore" not in said
    result = service.run("object_tracking", "--restore")
    assert (result.returncode, result.stdout) == (1, "")
    assert f"{COPY}: there is no copy of the configuration" in result.stderr
    assert "Put a backup of your own there" in result.stderr
    os.unlink(os.path.join(service.root, CONFIGURATION))
    service.start()
    assert service.show("office") == service.show("nobody")


LOCK_DAMAGE = {
    "a directory": (lambda path: os.mkdir(path), "Is a directory"),
    "of a stranger": (lambda path: (open(path, "w").close(), os.chown(path, 65534, 65534)),
                      "it belongs to user 65534"),
    "a link": (lambda path: os.symlink("/dev/null", path), "it is a symbolic link"),
}


@pytest.mark.parametrize("store", [CONFIGURATION, OPERATIONAL])
@pytest.mark.parametrize("damage", LOCK_DAMAGE)
def test_a_bad_lock_file_is_not_taken_for_a_bad_store(service, store, damage):
    configured(service)
    service.stop()
    lock = os.path.join(service.root, store) + "-lock"
    os.unlink(lock)
    spoil, fault = LOCK_DAMAGE[damage]
    spoil(lock)
    said = refusal(service)
    assert f"{lock}: {fault}" in said and "the store is good: move this file away" in said
    os.rename(lock, lock + ".away")
    service.start()
    assert service.state("office") == "up"


def test_a_store_and_its_copy_that_are_no_good_are_both_told_of(service):
    configured(service)
    service.stop()
    os.unlink(os.path.join(service.root, CONFIGURATION))
    overwrite(os.path.join(service.root, COPY), 40, 8)
    said = refusal(service)
    assert "The copy is no good" in said and "--restore" not in said


@pytest.mark.parametrize("name", ["ledger.sock", "events.sock"])
def test_a_directory_in_the_place_of_a_socket_is_named(service, name):
    service.stop()
    path = os.path.join(service.root, "run/object_tracking", name)
    if os.path.lexists(path):
        os.unlink(path)
    os.mkdir(path)
    text = f"{path}: it is a directory, where the service makes its socket; move it away"
    if name == "ledger.sock":
        assert text in refusal(service)
    else:
        service.start()
        says(service, "events are not published: " + text)


def test_a_damaged_copy_is_not_put_back(service):
    configured(service)
    service.stop()
    overwrite(os.path.join(service.root, COPY), 40, 8)
    os.truncate(os.path.join(service.root, CONFIGURATION), 0)
    assert "There is no good copy of it" in refusal(service)
    result = service.run("object_tracking", "--restore")
    assert result.returncode == 1 and "the copy is damaged" in result.stderr
    assert os.path.getsize(os.path.join(service.root, CONFIGURATION)) == 0


def test_nothing_is_restored_under_a_running_service(service):
    configured(service)
    result = service.run("object_tracking", "--restore")
    assert result.returncode == 1
    assert f"process {service.daemon.pid} holds" in result.stderr
    assert service.state("office") == "up"


@pytest.mark.parametrize("damage", DAMAGE)
def test_damaged_operational_data_is_set_aside_and_made_anew(service, damage):
    configured(service)
    service.stop()
    path = os.path.join(service.root, OPERATIONAL)
    DAMAGE[damage](path)
    before = seen(path)
    service.start()
    says(service, f"; it is kept as {path}.damaged, and the states are published anew")
    assert seen(path + ".damaged") == before
    service.wait_state("office", "up")


# --- A service that hangs ------------------------------------------------------------------------


def test_tools_do_not_hang_with_a_service_that_does(service):
    configured(service)
    os.kill(service.daemon.pid, signal.SIGSTOP)
    try:
        begin = time.monotonic()
        result = service.run("object_tracking", "show", "track", "office")
        assert time.monotonic() - begin < 5
        assert (result.returncode, result.stdout) == (0, "")
        assert result.stderr == "object_tracking: The service does not answer\n"
        for arguments in (["state", "office"], ["events"]):
            result = service.run("trackctl", *arguments)
            assert result.returncode == 1
            assert "The service does not answer (0x40821200)" in result.stderr
        # Who sets a time is not held up for the seconds that these take.
        result = service.run("trackctl", "state", "office", "--wait", "up", "--timeout", "1s")
        assert (result.returncode, result.stdout) == (12, "")
        assert result.stderr == "trackctl: the service does not answer\n"
    finally:
        os.kill(service.daemon.pid, signal.SIGCONT)
    service.wait_state("office", "up")
