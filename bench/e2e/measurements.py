"""Measurements of the whole system: the daemon in a namespace of its own, with veth pairs whose
carrier is taken away and given back. Each step starts from an instance of its own."""

import contextlib
import os
import statistics
import subprocess
import time

import process_costs
from output import File
from service import Service
from table import row

MANY = [f"t{number:04}" for number in range(1500)]
IDLE_SECONDS = 20
SHARED_MEMORY = "/dev/shm"  # as /run is
SETTLED_SECONDS = 11  # the copy of the configuration is written, and bfdd was looked for the last time


@contextlib.contextmanager
def running(build, names=(), interface="wan0"):
    """An instance with tracks on a veth of that name; it starts with the tracks configured."""
    instance = Service(build, File)
    try:
        instance.net.link(interface)
        instance.start()
        instance.configure(names, interface)
        if names:
            instance.wait_state(names[-1], "up")
        yield instance
    finally:
        instance.close()


def changes(instance, events, rounds, gap_ms, what=("link", "wan0", "wan0-p")):
    """Runs change_latency; its lines as (direction, kernel ns, first ns, last ns)."""
    command = [*instance.net.command(), *instance.build.command("change_latency"), *what,
               str(events), str(rounds), str(gap_ms)]
    result = subprocess.run(command, env=instance.build.environment(instance.root), check=True,
                            stdout=subprocess.PIPE, text=True)
    lines = [line.split() for line in result.stdout.splitlines()]
    return [(line[0], *map(int, line[1:])) for line in lines]


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(fraction * len(ordered)))]


def latency(build):
    rows = []
    with running(build, ["one"]) as instance:
        changes(instance, 1, 20, 5)  # warm
        measured = changes(instance, 1, 250, 5)
    for direction in ("down", "up"):
        own = [entry for entry in measured if entry[0] == direction]
        over = [(first - kernel) / 1e6 for _, kernel, first, _ in own]
        kernel = statistics.median(entry[1] for entry in own) / 1e6
        what = f"carrier {direction} -> subscriber, after the kernel's message"
        rows += [row(f"{what}, median of {len(own)}", statistics.median(over), "ms", 0.10),
                 row(f"{what}, p99", percentile(over, 0.99), "ms"),
                 row(f"carrier {direction}: the kernel's own message after the request, median",
                     kernel, "ms")]
    return rows


def burst(build):
    with running(build, MANY) as instance:
        changes(instance, len(MANY), 2, 300)  # warm
        before = process_costs.cpu_ns(instance.daemon.pid)
        measured = changes(instance, len(MANY), 20, 300)
        cpu = process_costs.cpu_ns(instance.daemon.pid) - before
    first = statistics.median((entry[2] - entry[1]) / 1e6 for entry in measured)
    last = statistics.median((entry[3] - entry[1]) / 1e6 for entry in measured)
    worst = max((entry[3] - entry[1]) / 1e6 for entry in measured)
    what = "1,500 tracks on one interface"
    return [
        row(f"{what}, first event after the kernel's message", first, "ms"),
        row(f"{what}, last event, median of {len(measured)}", last, "ms", 3),
        row(f"{what}, last event, worst", worst, "ms"),
        row(f"{what}, the last event's time for each track", last * 1e3 / len(MANY), "us", 2),
        row("CPU of the service for a publication, all of it",
            cpu / 1e3 / (len(measured) * len(MANY)), "us", 3),
    ]


def show(build):
    with running(build, MANY) as instance:
        walls, cpus = [], []
        for _ in range(20):
            command = [*build.command("object_tracking"), "show", "track", "all-tracks", "all"]
            begin = time.perf_counter()
            process = subprocess.Popen(command, env=build.environment(instance.root),
                                       stdout=subprocess.DEVNULL)
            _, status, usage = os.wait4(process.pid, 0)
            walls.append((time.perf_counter() - begin) * 1e3)
            cpus.append((usage.ru_utime + usage.ru_stime) * 1e3)
            process.returncode = os.waitstatus_to_exitcode(status)
            assert process.returncode == 0
        assert instance.show("all-tracks", "all").count("\nTrack ") == len(MANY)
    what = "show track all-tracks all, 1,500 tracks, whole process"
    return [row(f"{what}, median of {len(walls)}", statistics.median(walls), "ms", 20),
            row(f"{what}, its CPU", statistics.median(cpus), "ms")]


def memory(build):
    with running(build) as instance:
        time.sleep(SETTLED_SECONDS)
        empty = process_costs.pss_mb(instance.daemon.pid)
        instance.configure(MANY, "wan0")
        time.sleep(SETTLED_SECONDS)
        full = process_costs.pss_mb(instance.daemon.pid)
    return [row("memory (PSS), no tracks", empty, "MB", 2),
            row("memory (PSS), 1,500 tracks", full, "MB", 5)]


def start(build):
    with running(build, MANY) as instance:
        times = []
        for _ in range(10):
            instance.stop()
            times.append(instance.start() * 1e3)
        instance.crash()
        after_crash = instance.start() * 1e3
    return [row(f"start with 1,500 tracks to ready, median of {len(times)}",
                statistics.median(times), "ms", 50),
            row("start with 1,500 tracks to ready after a kill", after_crash, "ms")]


def idle(build):
    with running(build, MANY) as instance:
        time.sleep(SETTLED_SECONDS)
        pid = instance.daemon.pid
        before = process_costs.switches(pid), process_costs.cpu_ns(pid)
        time.sleep(IDLE_SECONDS)
        after = process_costs.switches(pid), process_costs.cpu_ns(pid)
    return [row(f"idle for {IDLE_SECONDS} s with 1,500 tracks: wake-ups", after[0] - before[0],
                "", 0),
            row(f"idle for {IDLE_SECONDS} s with 1,500 tracks: CPU",
                (after[1] - before[1]) / 1e3, "us")]


STEPS = {"latency": latency, "burst": burst, "show": show, "memory": memory, "start": start,
         "idle": idle}
