"""Measurements of probe tracks: 1,500 of them, polled every 2 s, on operations of a qmond that sends
an ICMP echo every second for each. Beside it in the same run fping, which does the same and tells
nobody: once with its packets sent evenly, as qmond sends them, and once all of a second in one go."""

import contextlib
import os
import re
import signal
import subprocess
import time

import ledger
import process_costs
from measurements import SHARED_MEMORY
from netns import NetworkNamespace
from output import File
from qmond import Qmond
from service import Service
from table import row
from waiting import wait_until

COUNT = 1500
SECONDS = float(os.environ.get("OT_PROBE_SECONDS", 20))
PORTIONS = 40

TARGETS = [f"127.1.{number // 250}.{number % 250 + 1}" for number in range(COUNT)]


def probe_track(name, operation):
    track = f"/cfg/gl/object_tracking/track/{name}"
    return [f"set u32 {track}/a 1",
            f"set u32 {track}/type/prb/0x5/op_id {operation}"]


def spent(pids):
    """What each process costs while SECONDS pass: shares of a processor."""
    before = {name: process_costs.cpu_ns(pid) for name, pid in pids.items()}
    begin = time.monotonic()
    time.sleep(SECONDS)
    passed = time.monotonic() - begin
    return {name: (process_costs.cpu_ns(pid) - before[name]) / 1e9 / passed
            for name, pid in pids.items()}


def fping(gap_ms):
    """What a probe costs an fping of all targets that waits so long between two packets: seconds of
    a processor. In a namespace of its own: it would get the answers to others' packets as well."""
    command = ["fping", "-l", "-q", "-i", str(gap_ms), "-p", "1000", "-t", "500", *TARGETS]
    net = NetworkNamespace()
    try:
        net.ip("link set lo up")
        with subprocess.Popen([*net.command(), *command], stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True) as process:
            begin = time.monotonic()
            time.sleep(2)
            cpu = spent({"fping": process.pid})["fping"]
            passed = time.monotonic() - begin
            process.send_signal(signal.SIGINT)
            lines = [line for line in process.stderr if "min/avg/max" in line]
    finally:
        net.close()
    sent = [int(re.search(r"xmt/rcv/%loss = (\d+)/", line).group(1)) for line in lines]
    assert len(sent) == COUNT, "fping has not reached all targets"
    return cpu / (sum(sent) / passed)


@contextlib.contextmanager
def probing(build):
    """A service and a qmond with all operations, which all have a result."""
    instance = Service(build, File, folder=SHARED_MEMORY)
    qmond = Qmond(instance)
    try:
        instance.net.ip("link set lo up")
        qmond.configure(*({"id": 1 + number, "kind": "icmp", "target": target, "interval": "1s",
                           "timeout": "500ms"} for number, target in enumerate(TARGETS)))
        qmond.start()
        wait_until(lambda: all(row["code"] == 1 for row in qmond.status().values()), 10,
                   "every operation has a result")
        instance.start()
        yield instance, qmond
    finally:
        qmond.close()
        instance.close()


def configure(build, instance):
    """The tracks, spread so that their polls are spread over the two seconds as well."""
    begin = time.monotonic()
    for portion in range(PORTIONS):
        commits = [probe_track(f"t{number:04}", 1 + number)
                   for number in range(portion, COUNT, PORTIONS)]
        answers = ledger.commit(build, instance.root, commits)
        assert set(answers) == {"0x00000000"}, answers[0]
        time.sleep(max(0, begin + 2 * (portion + 1) / PORTIONS - time.monotonic()))


def probes(build):
    evenly, at_once = fping(0.6), fping(0)
    with probing(build) as (instance, qmond):
        configure(build, instance)
        instance.wait_state(f"t{COUNT - 1:04}", "up")
        time.sleep(4)  # what configuring left to be done is over by then
        results = sum(row["results"] for row in qmond.status().values())
        begin = time.monotonic()
        cpu = spent({"service": instance.daemon.pid, "qmond": qmond.daemon.pid})
        statuses = qmond.status().values()
        rate = (sum(row["results"] for row in statuses) - results) / (time.monotonic() - begin)
        memory = {name: process_costs.pss_mb(program.pid)
                  for name, program in (("service", instance.daemon), ("qmond", qmond.daemon))}
    assert all(row["code"] == 1 for row in statuses)
    what = "1,500 probe tracks, ICMP every second"
    both = (cpu["service"] + cpu["qmond"]) / rate
    return [row(f"{what}: CPU of the service, of one processor", 100 * cpu["service"], "%"),
            row(f"{what}: CPU of the service for a poll", cpu["service"] * 1e6 / (COUNT / 2), "us",
                5),
            row(f"{what}: CPU of qmond, of one processor", 100 * cpu["qmond"], "%"),
            row(f"{what}: CPU of qmond for a probe", cpu["qmond"] * 1e6 / rate, "us"),
            row(f"{what}: results of qmond", rate, "/s"),
            row("fping, the same targets, sent evenly: CPU for a probe", evenly * 1e6, "us"),
            row("fping, the same targets, sent in one go: CPU for a probe", at_once * 1e6, "us"),
            row("service and qmond together, CPU of fping's, sent evenly", both / evenly, "", 0.5),
            row("service and qmond together, CPU of fping's, sent in one go", both / at_once, ""),
            row(f"{what}: memory of the service (PSS)", memory["service"], "MB", 5),
            row(f"{what}: memory of qmond (PSS)", memory["qmond"], "MB", 4)]


STEPS = {"probes": probes}
