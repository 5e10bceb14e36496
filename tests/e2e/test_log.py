"""A log that nobody reads: the service goes on as if somebody did, and says afterwards what is
missing."""

import os
import socket

import pytest

from daemon import Daemon
from mounts import Mounts
from waiting import wait_until

TRACKS = [f"t{number:03}" for number in range(400)]
# With all tracks, more lines than are kept for anybody.
FLAPS = 35


class UnreadTerminal:
    """A terminal of which nobody reads what is written to it."""

    def __init__(self, path):
        self.reader, self.end = os.openpty()
        open(path, "a").close()

    def started(self):
        os.close(self.end)

    def catch_up(self):
        pass

    def close(self):
        os.close(self.reader)


class UnreadPipe(UnreadTerminal):
    def __init__(self, path):
        self.reader, self.end = os.pipe()
        open(path, "a").close()


def flap(service):
    """Everything happens at its time."""
    service.configure(TRACKS, "lan0")
    events = service.follow()
    for _ in range(FLAPS):
        service.net.ip("link set lan0 down")
        events.wait_count(len(TRACKS))
        service.net.up("lan0")
        events.wait_count(len(TRACKS))
    service.ctl("show")


@pytest.mark.parametrize("output", [UnreadTerminal, UnreadPipe], ids=["terminal", "pipe"])
def test_standard_error_that_is_not_read_holds_nothing_up(new_service, output):
    service = new_service()
    service.daemon = Daemon(service.build, service.net, service.root, service.log, output)
    service.daemon.wait_ready()
    service.net.link("lan0")
    flap(service)
    service.stop()


@pytest.fixture
def journal(new_service):
    """An instance that finds a journal's socket, of which nobody reads; and the socket."""
    service = new_service()
    folder = os.path.join(service.root, "journal")
    os.mkdir(folder)
    reader = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    reader.bind(os.path.join(folder, "socket"))
    reader.setblocking(False)
    mounts = Mounts(service.net, "mount -t tmpfs none /run", "mkdir -p /run/systemd/journal",
                    f"mount --bind {folder} /run/systemd/journal")
    service.daemon = Daemon(service.build, mounts, service.root, service.log)
    service.daemon.wait_ready()
    service.net.link("lan0")
    yield service, reader
    reader.close()


def received(reader):
    messages = []
    try:
        while True:
            messages.append(reader.recv(65536))
    except BlockingIOError:
        return messages


def test_a_journal_that_is_not_read_holds_nothing_up(journal):
    service, reader = journal
    flap(service)
    # From here on it is read.
    messages = []

    def report():
        messages.extend(received(reader))
        return any(b"OT_MESSAGE=LOG_DROPPED\n" in message for message in messages)

    for _ in range(200):
        if report():
            break
        service.net.ip("link set lan0 down")
        service.wait_state(TRACKS[0], "down")
        service.net.up("lan0")
        service.wait_state(TRACKS[0], "up")
    dropped = next(message for message in messages if b"OT_MESSAGE=LOG_DROPPED\n" in message)
    assert b" lines of the log were dropped: it was not read\n" in dropped
    assert int(dropped.split(b"LOG_DROPPED: ")[1].split(b" ")[0]) > 1000
    service.stop()


def test_a_change_has_its_track_and_states_as_fields_in_the_journal(journal):
    service, reader = journal
    service.configure(["uplink"], "lan0")
    messages = []

    def told():
        messages.extend(received(reader))
        return any(message.endswith(b"\nOT_TRACK=uplink\nOT_STATE=up\nOT_PREVIOUS=unknown\n")
                   for message in messages)
    wait_until(told, service.build.patience, lambda: messages)
    service.stop()
