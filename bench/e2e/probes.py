"""Measurements of probe tracks: 1,500 of them, polled every 2 s, on operations of a qmond that sends
an ICMP echo to the loopback every second for each."""

import time

import ledger
import process_costs
from output import File
from qmond import Qmond
from service import Service
from table import row
from waiting import wait_until

COUNT = 1500
SECONDS = 20


def probe_track(name, operation):
    track = f"/cfg/gl/object_tracking/track/{name}"
    return [f"set u32 {track}/a 1",
            f"set u32 {track}/type/prb/0x5/op_id {operation}"]


def probes(build):
    instance = Service(build, File)
    qmond = Qmond(instance)
    try:
        instance.net.ip("link set lo up")
        qmond.configure(*({"id": 1 + number, "kind": "icmp", "target": "127.0.0.1",
                           "interval": "1s", "timeout": "500ms"} for number in range(COUNT)))
        qmond.start()
        wait_until(lambda: all(row["code"] == 1 for row in qmond.status().values()), 10,
                   "every operation has a result")
        instance.start()
        commits = [probe_track(f"t{number:04}", 1 + number) for number in range(COUNT)]
        answers = ledger.commit(build, instance.root, commits)
        assert set(answers) == {"0x00000000"}, answers[0]
        instance.wait_state(f"t{COUNT - 1:04}", "up")
        time.sleep(4)  # what configuring left to be done is over by then
        pids = {"service": instance.daemon.pid, "qmond": qmond.daemon.pid}
        before = {name: process_costs.cpu_ns(pid) for name, pid in pids.items()}
        results = sum(row["results"] for row in qmond.status().values())
        begin = time.monotonic()
        time.sleep(SECONDS)
        passed = time.monotonic() - begin
        cpu = {name: (process_costs.cpu_ns(pid) - before[name]) / 1e9
               for name, pid in pids.items()}
        statuses = qmond.status().values()
        rate = (sum(row["results"] for row in statuses) - results) / passed
        memory = {name: process_costs.pss_mb(pid) for name, pid in pids.items()}
    finally:
        qmond.close()
        instance.close()
    assert all(row["code"] == 1 for row in statuses)
    what = "1,500 probe tracks, ICMP every second"
    return [row(f"{what}: CPU of the service, of one processor", 100 * cpu["service"] / passed,
                "%"),
            row(f"{what}: CPU of the service for a poll",
                cpu["service"] * 1e6 / (passed * COUNT / 2), "us"),
            row(f"{what}: CPU of qmond, of one processor", 100 * cpu["qmond"] / passed, "%"),
            row(f"{what}: CPU of qmond for a probe", cpu["qmond"] * 1e6 / (passed * rate), "us"),
            row(f"{what}: results of qmond", rate, "/s"),
            row(f"{what}: memory of the service (PSS)", memory["service"], "MB", 8),
            row(f"{what}: memory of qmond (PSS)", memory["qmond"], "MB")]


STEPS = {"probes": probes}
