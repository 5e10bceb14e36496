"""What a process has cost so far, from /proc."""

import os
import re


def cpu_ns(pid):
    """Time on a processor of all threads, nanoseconds."""
    total = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/schedstat") as stream:
            total += int(stream.read().split()[0])
    return total


def switches(pid):
    """Context switches of all threads, voluntary and not: at rest, one for each wake-up."""
    total = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/status") as stream:
            total += sum(map(int, re.findall(r"ctxt_switches:\s+(\d+)", stream.read())))
    return total


def pss_mb(pid):
    with open(f"/proc/{pid}/smaps_rollup") as stream:
        return int(re.search(r"^Pss:\s+(\d+) kB", stream.read(), re.M).group(1)) / 1024
