"""The C library, in a program that waits for its followers and its own input by poll, and the Python
package on it."""

import datetime
import json
import queue
import subprocess
import sys
import threading

import pytest

from build_tree import SOURCE
from waiting import wait_until

INVALID, NO_SERVICE, NO_TRACK, REFUSED, TIMEOUT = -1, -2, -3, -4, -5
PRUNE, DRY_RUN = 2, 4
HEADER_FOLDER = SOURCE / "tools/client"


class Client:
    """A running program; what it prints is read as it comes."""

    def __init__(self, service):
        self._process = subprocess.Popen(service.build.command("library_client"),
                                         env=service.build.environment(service.root), text=True,
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         errors="surrogateescape")
        self._patience = service.build.patience
        self._answers = queue.Queue()
        self.events = []
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        lines = []
        for line in self._process.stdout:
            word, _, rest = line.rstrip("\n").partition(" ")
            if word in ("event", "ended"):
                self.events.append((word, *rest.split(" ")) if word == "ended"
                                   else tuple(rest.split(" ")))
            elif word == "answer":
                code, _, text = rest.partition(" ")
                self._answers.put((int(code), text, lines))
                lines = []
            else:
                lines.append(line.rstrip("\n"))

    def ask(self, line):
        """The answer's number, its text, and the lines before it."""
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()
        return self._answers.get(timeout=3 * self._patience)

    def do(self, line):
        code, text, lines = self.ask(line)
        assert code >= 0, text
        return lines

    def wait_for(self, *events):
        """Until these are the last events."""
        wait_until(lambda: tuple(self.events[-len(events):]) == events, self._patience,
                   lambda: f"{events} at the end of {self.events}")

    def close(self):
        self._process.stdin.close()
        self._reader.join()
        assert self._process.wait() == 0


@pytest.fixture
def new_client():
    made = []

    def make(service):
        made.append(Client(service))
        return made[-1]

    yield make
    for client in made:
        client.close()


@pytest.fixture
def client(office, new_client):
    return new_client(office)


def state(track, present, previous="unknown", follower="0"):
    return (follower, "state", track, present, previous)


def mark(kind, follower="0"):
    return (follower, kind, "", "unknown", "unknown")


def test_following_begins_with_what_is_and_goes_on_with_what_changes(office, client):
    office.ctl("set", "other", "interface", "none0")
    client.do("follow reconnect")
    client.wait_for(state("office", "up"), state("other", "unknown"), mark("synced"))
    office.net.ip("link set lan0-p down")
    client.wait_for(state("office", "down", "up"))
    office.ctl("set", "new", "interface", "lan0-p")
    client.wait_for(state("new", "down"))
    office.ctl("delete", "other")
    wait_until(lambda: client.events[-1][1:3] == ("deleted", "other"), office.build.patience,
               "other is told to be deleted")


def test_only_the_tracks_that_are_asked_for(office, client):
    office.ctl("set", "other", "interface", "mark-up")
    client.do("follow reconnect office later")
    client.wait_for(state("office", "up"), mark("synced"))
    office.ctl("set", "later", "and", "office")
    client.wait_for(state("later", "up"))
    office.ctl("delete", "other")
    office.net.ip("link set lan0-p down")
    wait_until(lambda: len(client.events) == 5, office.build.patience, "two changes")
    assert {event[2] for event in client.events[3:]} == {"office", "later"}


def test_after_an_outage_all_is_told_again(office, client):
    client.do("follow reconnect")
    client.do("follow office")
    client.wait_for(state("office", "up", follower="1"), mark("synced", "1"))
    office.daemon.kill()
    wait_until(lambda: ("ended", "1", str(NO_SERVICE)) in client.events, office.build.patience,
               "the follower that does not wait has ended")
    assert mark("lost", "1") in client.events
    wait_until(lambda: mark("lost") in client.events, office.build.patience, "the other one knows")
    code, text, _ = client.ask("get office")
    assert (code, "is not running" in text) == (NO_SERVICE, True)
    assert client.ask("follow office")[0] == NO_SERVICE
    office.net.ip("link set lan0-p down")
    office.start()
    wait_until(lambda: mark("resync") in client.events, office.build.patience, "it is back")
    office.wait_state("office", "down")
    wait_until(lambda: [event for event in client.events if event[1] == "state"][-1][3] == "down",
               office.build.patience, "it is told to be down")
    again = client.events[client.events.index(mark("resync")):]
    assert mark("synced") in again
    assert again[1][:3] == ("0", "state", "office")


def test_a_follower_may_come_before_the_service(new_service, new_client):
    service = new_service()
    client = new_client(service)
    client.do("follow reconnect")
    service.start()
    client.wait_for(mark("synced"))
    assert client.events == [mark("synced")]
    service.ctl("set", "up", "interface", "mark-up")
    client.wait_for(state("up", "up"))


def test_tracks_are_what_trackctl_prints(office, client):
    office.ctl("set", "any", "or", "office", "nobody", "--delay-down", "5")
    office.wait_state("any", "up")
    office.ctl("set", "nowhere", "interface", "none0")
    lines = client.do("list")
    told = [line.split(" ", 6) for line in lines]
    assert [each[1:4] for each in told] == [["any", "up", "or"], ["nowhere", "unknown", "interface"],
                                           ["office", "up", "interface"]]
    for _, name, each_state, _, since, changes, text in told:
        shown = json.loads(office.ctl("show", name, "--json"))
        assert json.loads(text) == {**shown, "state": each_state}
        when = datetime.datetime.fromisoformat(shown["last_change"]).timestamp() * 1000
        assert (int(since), int(changes)) == (when, shown["changes"])
    assert client.do("get any") == [lines[0]]
    assert client.ask("get nobody")[:2] == (NO_TRACK, 'there is no track "nobody"')
    code, text, _ = client.ask("get a/b")
    assert (code, "a/b" in text) == (INVALID, True)


def test_configuration_is_checked_made_and_told(office, client):
    client.do("set backup interface mark-dn --delay-up 5")
    assert "backup interface mark-dn --delay-up 5" in office.ctl("export").splitlines()
    for line, reason in (("backup", "NAME KIND"), ("backup interface", "IFNAME"),
                         ("include /etc/passwd", "passwd"), ("--help", "NAME KIND"),
                         ("", "one track is set")):
        code, text, _ = client.ask(f"set {line}")
        assert (code, reason in text) == (INVALID, True), (line, text)
    told = client.do(f"apply {PRUNE | DRY_RUN} office interface lan0\\nx and office nobody")
    assert told[0] == "changes 1 0 1"
    assert sorted(told[1:3]) == ["+ x and office nobody", "- backup interface mark-dn --delay-up 5"]
    assert "nobody" in told[3] and len(told) == 4
    assert client.do("apply 0 office interface lan0\\n# nothing") == ["changes 0 0 0"]
    before = office.ctl("export")
    code, text, _ = client.ask("apply 0 y and office\\nz nonsense")
    assert (code, "text:2" in text) == (INVALID, True)
    assert office.ctl("export") == before
    client.do("delete backup")
    assert client.ask("delete backup")[:2] == (NO_TRACK, 'there is no track "backup"')


def test_waiting(office, client):
    client.do("wait up 0 office")
    assert client.ask("wait down 50 office")[0] == TIMEOUT
    assert client.ask("wait down 50 office nobody")[:2] == (NO_TRACK,
                                                            'there is no track "nobody"')
    threading.Timer(0.2, office.net.ip, ("link set lan0-p down",)).start()
    client.do("wait down 20000 office")
    assert office.state("office") == "down"


def test_a_thousand_followers(office, new_client):
    count = 200 if office.build.sanitized else 1000
    client = new_client(office)
    client.do(f"many {count}")
    wait_until(lambda: len(client.events) == 2 * count, office.build.patience, "all are synced")
    office.net.ip("link set lan0-p down")
    wait_until(lambda: len(client.events) == 3 * count, office.build.patience, "all are told")
    assert {event[1:] for event in client.events[2 * count:]} == {state("office", "down", "up")[1:]}


def python(service, program, **options):
    if service.build.sanitized:
        pytest.skip("a sanitizer's runtime wants to be loaded first")
    environment = {**service.build.environment(service.root), "PYTHONPATH": str(SOURCE / "python"),
                   "OBJECT_TRACKING_LIBRARY": str(service.build.path / "lib/libobject-tracking.so.1")}
    return subprocess.Popen([sys.executable, "-B", "-c", program], env=environment, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)


def test_python_reads_configures_and_follows(office):
    program = """
import object_tracking
from object_tracking import Kind, State

with object_tracking.open() as tracks:
    tracks.set("any or office nobody")
    tracks.wait("any", timeout=20)
    print([(track.name, str(track.state), track.kind) for track in tracks])
    print(tracks["any"].details["members"][0]["name"], tracks["any"].since.tzinfo is not None)
    for call in (lambda: tracks["nobody"], lambda: tracks.set("x y"),
                 lambda: tracks.wait("any", state=State.DOWN, timeout=0.01)):
        try:
            call()
        except (KeyError, ValueError, TimeoutError) as error:
            print(type(error).__name__, error)
    print(tracks.apply(["office interface lan0"], prune=True))
    print(bool(tracks.apply("office interface lan0", prune=True)))
    with tracks.follow("office") as follower:
        print(follower.next(20).state, follower.next(20).kind, follower.next(0), flush=True)
        for event in follower:
            print(event.track, event.previous, "->", event.state)
            break
"""
    process = python(office, program)
    end = threading.Timer(30, process.kill)
    end.start()
    lines = [process.stdout.readline().rstrip("\n") for _ in range(9)]
    office.net.ip("link set lan0-p down")
    # communicate() would not know of what has been read ahead.
    lines += process.stdout.read().splitlines()
    end.cancel()
    assert (process.stderr.read(), process.wait()) == ("", 0)
    assert lines == [
        "[('any', 'up', 'or'), ('office', 'up', 'interface')]", "office True",
        'NoTrackError there is no track "nobody"',
        "InvalidError 1 error, nothing is changed:", *lines[4:5],
        "TimedOutError the time is over",
        "Changes(made=0, changed=0, deleted=1, lines=('- any or nobody office',), warnings=())",
        "False", "up synced None", "office up -> down"]
    assert "line:1" in lines[4]


def test_python_follows_beside_other_tasks(office):
    program = """
import asyncio
import object_tracking

async def tick():
    for _ in range(3):
        await asyncio.sleep(0.01)
    print("ticked", flush=True)

async def main():
    task = asyncio.create_task(tick())
    with object_tracking.open() as tracks:
        async for event in tracks.follow_async():
            print(event.kind, event.track, event.state, flush=True)
            if event.kind is object_tracking.Kind.LOST:
                break
    await task

asyncio.run(main())
"""
    process = python(office, program)
    told = [process.stdout.readline() for _ in range(3)]
    told.remove("ticked\n")  # whenever: the other task waits for nothing of the service
    assert told == ["state office up\n", "synced  unknown\n"]
    office.net.ip("link set lan0-p down")
    assert process.stdout.readline() == "state office down\n"
    office.crash()
    assert process.communicate(timeout=30) == ("lost  unknown\n", "")
