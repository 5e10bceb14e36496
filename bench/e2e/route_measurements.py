"""Measurements of route tracks: the daemon in a namespace of its own, with routes that are added and
deleted, or that lose the carrier of their interface."""

import contextlib
import statistics
import time

import process_costs
from measurements import SETTLED_SECONDS, changes, percentile, running
from table import row

MANY = [(f"r{number:04}", f"10.{number // 250}.{number % 250}.0/24") for number in range(1500)]
GAP_MS = 150  # a change meets a service at rest, not one that still follows the change before
LOOKS = 2  # at the first event of a burst, and when it is over
ONE = "192.0.2.0/24"


@contextlib.contextmanager
def routed(build, tracks):
    """An instance whose tracks are up; their routes leave through wan0."""
    with running(build) as instance:
        instance.net.ip_batch([f"route add {prefix} dev wan0" for _, prefix in tracks])
        for name, prefix in tracks:
            instance.ctl("set", name, "route", prefix)
        instance.wait_state(tracks[-1][0], "up")
        yield instance


def route_latency(build):
    rows = []
    with routed(build, [("one", ONE)]) as instance:
        for what, gap, target in (("route", GAP_MS, 0.15), ("route in a burst", 5, None)):
            changes(instance, 1, 5, gap, ("route", ONE, "wan0"))  # warm
            measured = changes(instance, 1, 100, gap, ("route", ONE, "wan0"))
            for direction, word in (("down", "deleted"), ("up", "added")):
                over = [(first - kernel) / 1e6
                        for way, kernel, first, _ in measured if way == direction]
                name = f"{what} {word} -> subscriber, after the kernel's message"
                rows += [row(f"{name}, median of {len(over)}", statistics.median(over), "ms",
                             target),
                         row(f"{name}, p99", percentile(over, 0.99), "ms")]
    return rows


def routes(build):
    with routed(build, MANY) as instance:
        time.sleep(SETTLED_SECONDS)
        memory = process_costs.pss_mb(instance.daemon.pid)
        carrier = ("link", "wan0", "wan0-p")
        changes(instance, len(MANY), 2, 300, carrier)  # warm
        measured = changes(instance, len(MANY), 10, 300, carrier)
        last = [(entry[3] - entry[1]) / 1e6 for entry in measured]
        look_us = look_again_us(instance)
        starts = []
        for _ in range(10):
            instance.stop()
            starts.append(instance.start() * 1e3)
        instance.wait_state(MANY[-1][0], "up")
    what = "1,500 routes"
    return [row(f"{what} losing or regaining a carrier: last event after the kernel's message,"
                f" median of {len(last)}", statistics.median(last), "ms", 10),
            row(f"{what} looked up again, CPU", look_us / 1e3, "ms"),
            row(f"{what}: memory (PSS)", memory, "MB", 5),
            row(f"{what}: start to ready, median of {len(starts)}", statistics.median(starts),
                "ms", 50)]


def look_again_us(instance, events=20):
    """The service's CPU for looking at all routes, microseconds, by events that concern none."""
    before = process_costs.cpu_ns(instance.daemon.pid)
    for number in range(events):
        instance.net.ip(f"address {'del' if number % 2 else 'add'} 203.0.113.1/32 dev mark-up")
        time.sleep(GAP_MS / 1e3)
    cpu = process_costs.cpu_ns(instance.daemon.pid) - before
    return cpu / 1e3 / events / LOOKS


STEPS = {"route_latency": route_latency, "routes": routes}
