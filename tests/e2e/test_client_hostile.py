"""What programs and their surroundings do to the C library: wrong arguments, signals at every moment,
no descriptors left, a fork, a service that hangs, and strangers at its sockets."""

import contextlib
import os
import signal
import socket
import subprocess
import threading

from seeds import seeded_chance
from test_client_library import python

PRELUDE = """
import asyncio, ctypes, math, os, resource, select, signal, sys, threading, time
import object_tracking
from object_tracking import Kind, _library
lib = _library.lib
tracks = object_tracking.open()
client = tracks._client

def name_of(call):
    try:
        call()
    except Exception as error:
        return type(error).__name__

"""


def run(service, program):
    """What the program prints."""
    process = python(service, PRELUDE + program)
    output, errors = process.communicate(timeout=60)
    assert (process.returncode, errors) == (0, "")
    return output.splitlines()


def test_what_waits_to_be_handed_over_keeps_the_descriptor_readable(office):
    office.ctl("set", "other", "interface", "mark-up")
    assert run(office, """
for names in ((), ("nobody",)):
    follower = tracks.follow(*names)
    told = 0
    while select.select([follower], [], [], 0)[0]:
        told += follower.next(0) is not None
    print(told, follower.next(0))
""") == ["3 None", "1 None"]


def test_wrong_arguments_are_told(office):
    invalid = "-1"
    assert run(office, """
made = ctypes.c_void_p()
event = ctypes.POINTER(_library.EventStruct)()
names, count = _library.text_array(["office"])
none = (ctypes.c_char_p * 1)(None)
print(lib.otrack_open(None), lib.otrack_list_read(None, ctypes.byref(made)),
      lib.otrack_list_read(client, None))
print(lib.otrack_get(client, None, ctypes.byref(made)), lib.otrack_get(client, b"office", None))
print(lib.otrack_set(client, None), lib.otrack_delete(client, None))
print(lib.otrack_apply(client, None, 0, None), lib.otrack_apply(client, b"", 1, None),
      lib.otrack_apply(client, b"", 8, None))
print(lib.otrack_follow(client, None, 1, 0, ctypes.byref(made)),
      lib.otrack_follow(client, none, 1, 0, ctypes.byref(made)),
      lib.otrack_follow(client, names, 1, 2, ctypes.byref(made)),
      lib.otrack_follow(client, names, 1, 0, None))
print(lib.otrack_follower_next(None, 0, ctypes.byref(event)),
      lib.otrack_follower_dispatch(None, None, None))
print(lib.otrack_wait(client, names, 1, 3, 0), lib.otrack_wait(client, none, 1, 1, 0))
print(lib.otrack_wait(client, None, 0, 1, 0), lib.otrack_error(None) is not None, made.value)
follower = tracks.follow()
print(lib.otrack_follower_next(follower._follower, 0, None),
      lib.otrack_follower_dispatch(follower._follower, None, None), follower.next(0).track)
for release in (lib.otrack_close, lib.otrack_list_free, lib.otrack_track_free,
                lib.otrack_follower_close, lib.otrack_changes_free):
    release(None)
for call in (lambda: tracks.set("a\\0b"), lambda: tracks["\\udc80"], lambda: tracks.wait("a/b"),
             lambda: tracks.wait(""), lambda: tracks.follow("\\0"), lambda: tracks.follow(""),
             lambda: tracks.follow("x" * 35), lambda: tracks.set("a and b\\nc and d")):
    print(name_of(call))
tracks.wait("office", timeout=math.inf)
""") == [*(" ".join([invalid] * count) for count in (3, 2, 2, 3, 4, 2, 2)), "0 True None",
         "-1 -1 office", *["InvalidError"] * 8]


def test_an_error_writes_no_output(office):
    process = python(office, PRELUDE + """
follower = tracks.follow(reconnect=False)
for _ in range(2):
    follower.next(0)
print("there", flush=True)
while follower.next(20).kind is not Kind.LOST:
    pass
event = ctypes.cast(1, ctypes.POINTER(_library.EventStruct))
print(lib.otrack_follower_next(follower._follower, 20000, ctypes.byref(event)),
      ctypes.cast(event, ctypes.c_void_p).value)
""")
    assert process.stdout.readline() == "there\n"
    office.crash()
    assert process.communicate(timeout=60) == ("-2 1\n", "")


def test_a_dispatch_counts_what_it_hands_over_and_then_says_that_it_has_ended(office):
    process = python(office, PRELUDE + """
follower = tracks.follow(reconnect=False)
told = []
on_event = _library.EVENT_CALLBACK(lambda event, context: told.append(event.contents.kind))
dispatch = lambda: lib.otrack_follower_dispatch(follower._follower, on_event, None)
print(dispatch(), told, flush=True)
sys.stdin.readline()
select.select([follower], [], [], 60)
print(follower.next(0).state, dispatch(), told[2:], dispatch(), dispatch())
""", stdin=subprocess.PIPE)
    assert process.stdout.readline() == "2 [1, 2]\n"
    office.net.ip("link set lan0-p down")
    office.wait_state("office", "down")
    office.crash()
    assert process.communicate("\n", timeout=60) == ("down 1 [4] -2 -2\n", "")


def test_no_signal_ends_a_call(office):
    assert run(office, """
signal.signal(signal.SIGALRM, lambda *_: None)
signal.setitimer(signal.ITIMER_REAL, 0.0001, 0.0001)
for number in range(300):
    with object_tracking.open() as others:
        assert others["office"].name == "office"
        others.follow("office", reconnect=False).close()
        list(others)
        others.wait("office", timeout=20)
        others.set(f"other interface {('mark-up', 'mark-dn')[number % 2]}")
signal.setitimer(signal.ITIMER_REAL, 0)
""") == []


def test_a_program_without_descriptors_is_not_told_that_no_service_runs(office):
    assert run(office, """
_, most = resource.getrlimit(resource.RLIMIT_NOFILE)
used = len(os.listdir("/proc/self/fd")) - 1
told = []
for more in range(20):
    resource.setrlimit(resource.RLIMIT_NOFILE, (used + more, most))
    told.append(name_of(lambda: tracks["office"].name) or
                name_of(lambda: tracks.follow("office", reconnect=False).close()))
print(set(told[:-5]) <= {"RefusedError", None}, told[0], told[-1])
""") == ["True RefusedError None"]


def test_what_is_not_used_any_more_is_closed(office):
    assert run(office, """
list(tracks)
before = len(os.listdir("/proc/self/fd"))
for _ in range(20):
    for event in tracks.follow("office"):
        break
print(len(os.listdir("/proc/self/fd")) - before)
""") == ["0"]


def test_a_child_uses_a_client_of_its_own(office):
    assert run(office, """
follower = tracks.follow("office")
if os.fork() == 0:
    with object_tracking.open() as others:
        print(others["office"].name, others.follow("office").next(0).track, flush=True)
    os._exit(0)
os.wait()
print(tracks["office"].name, follower.next(0).kind, follower.next(0).kind, follower.next(0))
""") == ["office office", "office state synced None"]


def test_ctrl_c_ends_a_wait(office):
    office.ctl("set", "down", "interface", "mark-dn")
    assert run(office, """
signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's background jobs ignore it
follower = tracks.follow("nobody")  # Python drops what it is interrupted by while it closes one
for call in (lambda: tracks.wait("down"), lambda: tracks.wait("down", timeout=3600),
             lambda: follower.next(3600)):
    try:
        threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT)).start()
        while True:
            call()
    except KeyboardInterrupt:
        print("ended")
""") == ["ended"] * 3


def test_a_wait_is_for_all_of_its_tracks_at_once(office):
    office.net.link("spare", up=False)
    office.ctl("set", "spare", "interface", "spare")
    process = python(office, PRELUDE + """
names, count = _library.text_array(["office", "spare"])
results = []
before = len(os.listdir("/proc/self/fd"))
waiting = threading.Thread(target=lambda: results.append(
    lib.otrack_wait(client, names, count, 1, 30000)))
waiting.start()
while len(os.listdir("/proc/self/fd")) == before:
    time.sleep(0.001)
print("follows", flush=True)
waiting.join()
print(results, [str(tracks[name].state) for name in ("office", "spare")], flush=True)
""")
    assert process.stdout.readline() == "follows\n"
    office.net.ip("link set lan0-p down")
    office.wait_state("office", "down")
    office.net.ip("link set spare up")
    office.wait_state("spare", "up")
    assert process.poll() is None
    office.net.ip("link set lan0-p up")
    output, errors = process.communicate(timeout=60)
    assert (output, errors) == ("[0] ['up', 'up']\n", "")


def test_a_wait_in_python_is_for_all_of_its_tracks_at_once(office):
    assert run(office, """
from object_tracking import Event, State, TimedOutError, _wait_for

def told(*events):
    made = [Event(Kind.STATE, name, state, State.UNKNOWN, None) for name, state in events] + [None]
    class Script:
        def _next_until(self, end):
            return made.pop(0)
    try:
        _wait_for(Script(), {"a", "b"}, State.UP, 0)
        print("all up", len(made))
    except TimedOutError:
        print("not all")

told(("a", State.UP), ("a", State.DOWN), ("b", State.UP))
told(("a", State.UP), ("a", State.DOWN), ("b", State.UP), ("a", State.UP))
""") == ["not all", "all up 1"]


def test_an_asynchronous_follower_ends_when_it_is_closed(office):
    assert run(office, """
async def main():
    follower = tracks.follow_async("office")
    synced = asyncio.Event()
    async def all_of_it():
        told = []
        async for event in follower:
            told.append(str(event.kind))
            if event.kind is Kind.SYNCED:
                synced.set()
        return told
    task = asyncio.create_task(all_of_it())
    await asyncio.wait_for(synced.wait(), 20)
    for _ in range(5):
        await asyncio.sleep(0)
    follower.close()
    print(await asyncio.wait_for(task, 20))

asyncio.run(main())
""") == ["['state', 'synced']"]


def test_an_asynchronous_follower_is_closed_after_its_loop_too(office):
    assert run(office, """
async def wait_for_more(follower, synced):
    async for event in follower:
        if event.kind is Kind.SYNCED:
            synced.set()

async def leave_it_waiting(follower):
    synced = asyncio.Event()
    left.append(asyncio.ensure_future(wait_for_more(follower, synced)))
    await synced.wait()
    while follower._wake is None:
        await asyncio.sleep(0)

left = []
loop = asyncio.new_event_loop()
open_before = len(os.listdir("/proc/self/fd"))
with tracks.follow_async("office") as follower:
    loop.run_until_complete(leave_it_waiting(follower))
    loop.close()
print(len(os.listdir("/proc/self/fd")) <= open_before, flush=True)
os._exit(0)  # or asyncio complains of the task
""") == ["True"]


def test_a_wait_that_is_cancelled_leaves_nothing_in_the_loop(office):
    assert run(office, """
async def main():
    follower = tracks.follow_async("office", reconnect=False)
    while (await anext(follower)).kind is not Kind.SYNCED:
        pass
    waiting = asyncio.ensure_future(anext(follower))
    while follower._wake is None:
        await asyncio.sleep(0)
    waiting.cancel()
    await asyncio.wait([waiting])
    print(asyncio.get_running_loop().remove_reader(follower.fileno()))

asyncio.run(main())
""") == ["False"]


def test_closing_in_python_closes_what_follows(office):
    assert run(office, """
followers = [tracks.follow("office"), tracks.follow_async("office")]
tracks.close()
print([name_of(follower.fileno) for follower in followers], name_of(followers[0].next))
""") == ["['ValueError', 'ValueError'] ValueError"]


def test_what_the_library_makes_is_freed_in_python(office):
    assert run(office, """
def counted(free):
    def count(what):
        freed.append(free.__name__)
        free(what)
    return count
freed = []
for name in "otrack_list_free", "otrack_track_free", "otrack_changes_free":
    setattr(lib, name, counted(getattr(lib, name)))
list(tracks)
tracks["office"]
tracks.apply("office interface office", dry_run=True)
print(freed)
""") == ["['otrack_list_free', 'otrack_track_free', 'otrack_changes_free']"]


def test_what_a_later_library_tells_is_passed_over_in_python(office):
    assert run(office, """
del object_tracking._KINDS[_library.STATE]
print(tracks.follow("office").next(20).kind)
print(object_tracking._state(2), object_tracking._state(3))
""") == ["synced", "down unknown"]


def test_python_tells_warnings_and_the_milliseconds(office):
    assert run(office, """
print(tracks.apply("list or office nobody", dry_run=True).warnings)
begun = time.time()
event = tracks.follow("office").next(20)
print(begun - 0.002 <= event.time.timestamp() <= time.time())
""") == ["('text:1: warning: there is no track \"nobody\" yet',)", "True"]


def test_a_service_that_hangs_is_given_up_and_taken_up_again(office):
    process = python(office, PRELUDE + """
print("there", flush=True)
sys.stdin.readline()
began = time.monotonic()
print(name_of(lambda: list(tracks)), name_of(lambda: tracks.follow(reconnect=False)),
      name_of(lambda: tracks.set("x interface y")))
follower = tracks.follow()
print(time.monotonic() - began < 15, flush=True)
print(follower.next(20).kind, follower.next(20).kind)
""", stdin=subprocess.PIPE)
    assert process.stdout.readline() == "there\n"
    with standing_still(office):
        process.stdin.write("\n")
        process.stdin.flush()
        told = [process.stdout.readline() for _ in range(2)]
    assert told == ["TimedOutError TimedOutError TimedOutError\n", "True\n"]
    assert process.communicate(timeout=60) == ("state synced\n", "")


# How often the process has waited for anything inside of the calls.
WAITS = """
waits = 0

def without_waiting(call):
    global waits
    before = resource.getrusage(resource.RUSAGE_THREAD).ru_nvcsw
    result = call()
    waits += resource.getrusage(resource.RUSAGE_THREAD).ru_nvcsw - before
    return result

def until(follower, kind):
    told = []
    while kind.value not in told:
        assert select.select([follower], [], [], 60)[0]
        while (event := without_waiting(lambda: follower.next(0))) is not None:
            told.append(str(event.kind))
    return told
"""


@contextlib.contextmanager
def standing_still(service):
    os.kill(service.daemon.pid, signal.SIGSTOP)
    try:
        yield
    finally:
        os.kill(service.daemon.pid, signal.SIGCONT)


def test_nothing_that_hands_over_waits_for_a_service_that_hangs(office):
    process = python(office, PRELUDE + WAITS + """
held = tracks.follow()
print(until(held, Kind.SYNCED), flush=True)
sys.stdin.readline()
late = ctypes.c_void_p()
print(without_waiting(lambda: lib.otrack_follow(client, None, 0, 8, ctypes.byref(late))))
event = ctypes.POINTER(_library.EventStruct)()
print({without_waiting(lambda: lib.otrack_follower_next(late, 0, ctypes.byref(event)))
       for _ in range(1000)})
print(until(held, Kind.LOST), waits, flush=True)
lib.otrack_follower_close(late)
print(until(held, Kind.SYNCED), waits)
""", stdin=subprocess.PIPE)
    assert process.stdout.readline() == "['state', 'synced']\n"
    with standing_still(office):
        process.stdin.write("\n")
        process.stdin.flush()
        told = [process.stdout.readline() for _ in range(3)]
    assert told == ["0\n", "{0}\n", "['lost'] 0\n"]
    assert process.communicate(timeout=60) == ("['resync', 'state', 'synced'] 0\n", "")


def test_what_was_asked_of_a_service_that_hung_comes_when_it_goes_on(office):
    process = python(office, PRELUDE + WAITS + """
sys.stdin.readline()
async def main():
    async with asyncio.timeout(60):
        followers = [tracks.follow_async(reconnect=False) for _ in range(20)]
        print([follower._next(0) for follower in followers].count(None), flush=True)
        told = [[str((await anext(follower)).kind) for _ in range(2)] for follower in followers]
        print(set(map(tuple, told)))
asyncio.run(main())
""", stdin=subprocess.PIPE)
    with standing_still(office):
        process.stdin.write("\n")
        process.stdin.flush()
        assert process.stdout.readline() == "20\n"
    assert process.communicate(timeout=60) == ("{('state', 'synced')}\n", "")


def test_more_names_than_the_service_takes_may_be_followed(office):
    office.ctl("set", "other", "interface", "mark-up")
    process = python(office, PRELUDE + """
names = [f"later{number}" for number in range(3000)]
follower = tracks.follow(*names, "office", "office")
print([(str(event.kind), event.track) for event in (follower.next(20), follower.next(20))], flush=True)
event = follower.next(20)
print(event.track, event.state, follower.next(0), flush=True)
tracks.wait("office", *["office"] * 3000, state=object_tracking.State.DOWN, timeout=20)
tracks.set("later2999 interface mark-up")
print(follower.next(20).track)
""")
    assert process.stdout.readline() == "[('state', 'office'), ('synced', '')]\n"
    office.ctl("delete", "other")
    office.net.ip("link set lan0-p down")
    assert process.communicate(timeout=60) == ("office down None\nlater2999\n", "")


@contextlib.contextmanager
def strangers(root):
    """Others at the service's sockets, who answer everything with bytes by chance."""
    chance = seeded_chance()
    folder = os.path.join(root, "run/object_tracking")
    os.makedirs(folder, exist_ok=True)

    def talk(listener):
        with contextlib.suppress(OSError):
            while True:
                peer, _ = listener.accept()
                with peer, contextlib.suppress(OSError):
                    peer.settimeout(1)
                    peer.recv(65536)
                    if listener.type == socket.SOCK_SEQPACKET and chance.random() < 0.7:
                        peer.sendall(b"\0\0\0\0")
                    elif chance.random() < 0.7:
                        peer.sendall(b"OK 0123456789abcdef0123456789abcdef\r\n")
                    for _ in range(5):
                        peer.sendall(chance.randbytes(chance.randrange(1, 400)))

    with contextlib.ExitStack() as opened:
        for name, kind in (("events.sock", socket.SOCK_SEQPACKET),
                           ("ledger.sock", socket.SOCK_STREAM)):
            listener = opened.enter_context(socket.socket(socket.AF_UNIX, kind))
            listener.bind(os.path.join(folder, name))
            listener.listen(50)
            opened.callback(listener.shutdown, socket.SHUT_RDWR)
            threading.Thread(target=talk, args=(listener,)).start()
        yield


def test_strangers_at_the_sockets_are_errors(new_service):
    service = new_service()
    with strangers(service.root):
        assert run(service, """
told = set()
for _ in range(60):
    with object_tracking.open() as others:
        for call in (lambda: others["office"], lambda: others.follow("office").next(0),
                     lambda: others.follow(reconnect=False), lambda: others.set("x interface y")):
            told.add(name_of(call))
print(told <= {None, "NoServiceError", "RefusedError", "TimedOutError"}, "RefusedError" in told or
      "NoServiceError" in told)
""") == ["True True"]
