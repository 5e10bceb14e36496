"""Policies of kind route: how long after the kernel's message of a lost or regained carrier the last
of many routes has gone or come."""

import contextlib
import statistics
import subprocess
import sys

from measurements import MANY, running
from policy import Trackpolicy
from table import row

ROUNDS = 20

# In the namespace: changes the carrier and prints, for each change, the milliseconds from the
# kernel's message about the link to its last message about our routes.
WATCH = r"""
import socket, struct, subprocess, sys, time
PROTOCOL, COUNT, ROUNDS = map(int, sys.argv[1:])
NEWLINK, NEWROUTE, DELROUTE, LOWER_UP = 16, 24, 25, 1 << 16
LINK, IPV4_ROUTES, RCVBUFFORCE = 1, 0x40, 33
index = socket.if_nametoindex("wan0")
events = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
events.setsockopt(socket.SOL_SOCKET, RCVBUFFORCE, 64 << 20)
events.bind((0, LINK | IPV4_ROUTES))
for number in range(2 * ROUNDS):
    up = number % 2
    subprocess.run(["ip", "link", "set", "wan0-p", "up" if up else "down"], check=True)
    begun, left = None, COUNT
    while left:
        data = events.recv(65536)
        now = time.monotonic()
        kind = struct.unpack_from("=H", data, 4)[0]
        if kind == NEWLINK and begun is None:
            of, flags = struct.unpack_from("=iI", data, 20)
            if of == index and bool(flags & LOWER_UP) == bool(up):
                begun = now
        elif kind in (NEWROUTE, DELROUTE) and data[21] == PROTOCOL:
            assert (kind == NEWROUTE) == bool(up)
            left -= 1
    print("up" if up else "down", (now - begun) * 1e3, flush=True)
    time.sleep(0.3)
"""


@contextlib.contextmanager
def with_routes(build, tracks):
    """A trackpolicy with as many routes as MANY, a policy each, which share the tracks."""
    with running(build, tracks) as instance:
        policy = Trackpolicy(instance)
        policy.configure(*({"name": f"r{number}", "track": tracks[number % len(tracks)],
                            "kind": "route", "to": f"10.{number // 250}.{number % 250}.0/24",
                            "dev": "mark-up"} for number in range(len(MANY))))
        policy.start()
        try:
            policy.wait_installed(len(MANY))
            yield instance
        finally:
            policy.close()


def changes(instance):
    command = [*instance.net.command(), sys.executable, "-c", WATCH, "84", str(len(MANY)),
               str(ROUNDS)]
    printed = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    return [(word, float(passed)) for word, passed in map(str.split, printed.splitlines())]


def policies(build):
    rows = []
    for what, tracks in (("a track each", MANY), ("one track", MANY[:1])):
        with with_routes(build, tracks) as instance:
            measured = changes(instance)
        for direction, word in (("down", "withdrawn"), ("up", "installed")):
            times = [passed for way, passed in measured if way == direction]
            name = f"1,500 routes on one link, {what}: the last one {word} after the link's message"
            rows += [row(f"{name}, median of {len(times)}", statistics.median(times), "ms", 50),
                     row(f"{name}, worst", max(times), "ms")]
    return rows


STEPS = {"policies": policies}
