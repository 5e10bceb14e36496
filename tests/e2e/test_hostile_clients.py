"""Clients that misbehave hurt themselves only: the service goes on and stays small."""

import os
import random
import signal
import socket
import stat

from waiting import wait_until

# With 500 tracks, some megabytes of events: more than is kept for anybody.
FLAPS = 40


def sockets(service):
    folder = os.path.join(service.root, "run/object_tracking")
    paths = [os.path.join(folder, name) for name in sorted(os.listdir(folder))]
    found = [path for path in paths if stat.S_ISSOCK(os.stat(path).st_mode)]
    assert found
    return found


def connect(path):
    """A connection, or none where this kind of socket does not take a plain stream."""
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    client.settimeout(1)
    try:
        client.connect(path)
    except OSError:
        client.close()
        return None
    return client


def descriptors(service):
    return len(os.listdir(f"/proc/{service.daemon.pid}/fd"))


def works(service):
    """It reacts and it answers."""
    service.net.ip("link set lan0 down")
    service.wait_state("office", "down")
    service.net.ip("link set lan0 up")
    service.wait_state("office", "up")
    service.ctl("set", "more", "interface", "lan0")
    service.ctl("delete", "more")


def test_garbage_is_thrown_out(office):
    before = descriptors(office)
    chance = random.Random(7)
    for path in sockets(office):
        for size in (1, 16, 300, 65536):
            client = connect(path)
            if client is None:
                continue
            with client:
                try:
                    client.sendall(chance.randbytes(size))
                except OSError:
                    pass  # thrown out in the middle of it
    works(office)
    wait_until(lambda: descriptors(office) <= before, office.build.patience, "connections closed")


def test_connections_that_say_nothing_do_not_lock_others_out(office):
    before = descriptors(office)
    silent = [client for path in sockets(office) for _ in range(120) if (client := connect(path))]
    try:
        works(office)
        wait_until(lambda: descriptors(office) <= before, office.build.patience,
                   "silent connections closed")
    finally:
        for client in silent:
            client.close()


def test_a_follower_that_stops_reading_is_cut_off_alone(office):
    names = [f"t{number:03}" for number in range(500)]
    office.configure(names, "lan0")
    stuck, well = office.follow(), office.follow()
    os.kill(stuck.process.pid, signal.SIGSTOP)
    try:
        for _ in range(FLAPS):
            office.net.ip("link set lan0 down")
            well.wait_count(len(names) + 1)
            office.net.up("lan0")
            well.wait_count(len(names) + 1)
        well.expect_nothing()
    finally:
        os.kill(stuck.process.pid, signal.SIGCONT)
    # It gets what was under way and then learns that it has been cut off.
    assert stuck.drain() < 2 * FLAPS * (len(names) + 1)
    assert stuck.process.wait(office.build.patience) == 3
    works(office)
