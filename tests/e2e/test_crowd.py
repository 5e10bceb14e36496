"""Crowds of clients: whoever has something under way is served, root always gets in, and whoever
does not is told the truth."""

import os
import time

import pytest

from users import OPERATOR, needs_readable_build, prefix, start_python, start_with_the_group
from waiting import wait_until

CROWD = 2000
PLACES = 512
SUBSCRIBERS = 1000
BUSY = "The service is busy: it has no room for another client (0x40821400)"

# Each client has been served once before the next one comes.
IDLE = """
raise_limit()
clients = []
for _ in range(int(sys.argv[2])):
    clients.append(Ledger(sys.argv[1]).greet())
    assert clients[-1].call("Get", text("/oper/nothing")) == 0x40818600
say(len(clients))
sys.stdin.read()
"""

FOLLOWING = """
raise_limit()
clients = []
for _ in range(int(sys.argv[2])):
    clients.append(Ledger(sys.argv[1]).greet())
    assert clients[-1].call("Subscribe", text("/oper/")) == 0
say(len(clients))
sys.stdin.read()
"""

SUBSCRIBED = """
raise_limit()
clients = []
for _ in range(int(sys.argv[2])):
    client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    client.settimeout(10)
    client.connect(sys.argv[1])
    client.send(struct.pack("<II", 1, 0))
    assert struct.unpack("<i", client.recv(4))[0] == 0
    clients.append(client)
say(len(clients))
sys.stdin.read()
"""

# As many followers as are taken.
FILLING = """
raise_limit()
clients = []
try:
    while True:
        client = Ledger(sys.argv[1])
        client.socket.settimeout(2)
        assert client.greet().call("Subscribe", text("/oper/")) == 0
        clients.append(client)
except OSError:
    pass
assert len(clients) > 8
say(int(sys.argv[2]))
sys.stdin.read()
"""

# Nothing but connections.
SILENT = """
raise_limit()
clients = []
for _ in range(int(sys.argv[2])):
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    client.connect(sys.argv[1])
    clients.append(client)
say(len(clients))
sys.stdin.read()
"""


class Crowd:
    def __init__(self, service, source, name, count, user=OPERATOR):
        path = os.path.join(service.root, "run/object_tracking", name)
        self.process = start_python(user, source, path, count)
        assert self.process.stdout.readline() == f"{count}\n"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.communicate("")
        assert self.process.returncode == 0


def works(service, as_user=()):
    """Reads and writes, and nobody waits for long."""
    for arguments in (["set", "more", "interface", "lan0"], ["show"], ["state", "more"],
                      ["delete", "more"]):
        begin = time.monotonic()
        result = service.run("trackctl", *arguments, prefix=as_user)
        assert result.returncode == 0, (arguments, result.stderr)
        assert time.monotonic() - begin < service.build.patience / 2


@pytest.fixture
def office(new_service):
    service = new_service()
    start_with_the_group(service)
    service.net.link("lan0")
    needs_readable_build(service.build)
    return service


def test_idle_clients_give_way_to_whoever_works(office):
    with Crowd(office, IDLE, "ledger.sock", CROWD):
        works(office)
        works(office, prefix(OPERATOR))
    works(office)


def test_silent_connections_give_way_too(office):
    with Crowd(office, SILENT, "ledger.sock", CROWD):
        works(office)
        works(office, prefix(OPERATOR))


def test_when_all_places_are_in_use_only_root_gets_in(office):
    with Crowd(office, FOLLOWING, "ledger.sock", PLACES):
        works(office)
        result = office.run("trackctl", "show", prefix=prefix(OPERATOR))
        assert result.returncode == 1
        assert BUSY in result.stderr
        result = office.run("object_tracking", "show", "track", "x", prefix=prefix(OPERATOR))
        assert (result.returncode, result.stdout) == (0, "")
        assert result.stderr == "object_tracking: " + BUSY.rsplit(" ", 1)[0] + "\n"
        works(office)
    wait_until(lambda: office.run("trackctl", "show", prefix=prefix(OPERATOR)).returncode == 0,
               office.build.patience, "a place for the operator")


def test_a_thousand_programs_follow_events_and_root_gets_in(office):
    office.ctl("set", "office", "interface", "lan0")
    with Crowd(office, SUBSCRIBED, "events.sock", SUBSCRIBERS):
        result = office.run("trackctl", "events", prefix=prefix(OPERATOR))
        assert result.returncode == 1
        assert BUSY in result.stderr
        events = office.follow(tracks=["office"])
        office.net.ip("link set lan0 down")
        events.expect(("office", "down"))


def processor_seconds(process):
    with open(f"/proc/{process}/stat") as stream:
        fields = stream.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


@pytest.mark.parametrize("name", ["ledger.sock", "events.sock"])
def test_out_of_descriptors_the_loop_does_not_spin(new_service, name):
    service = new_service()
    if service.build.sanitized:
        pytest.skip("the sanitizer looks at memory by means of a pipe, for which none is left")
    start_with_the_group(service, limits=["prlimit", "--nofile=80:80"])
    service.net.link("lan0")
    service.ctl("set", "office", "interface", "lan0")
    silent = SILENT if name == "ledger.sock" else SILENT.replace("SOCK_STREAM", "SOCK_SEQPACKET")
    with Crowd(service, FILLING, "ledger.sock", 0), Crowd(service, silent, name, 50):
        before = processor_seconds(service.daemon.pid)
        begin = time.monotonic()
        for _ in range(5):
            service.net.ip("link set lan0 down")
            service.wait_state("office", "down")
            service.net.up("lan0")
            service.wait_state("office", "up")
        elapsed = time.monotonic() - begin
        assert processor_seconds(service.daemon.pid) - before < 0.5 * elapsed
