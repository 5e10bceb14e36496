"""The benchmarks' runner: measures, prints the table, writes the results."""

import argparse
import json
import os
import pathlib
import platform
import sys
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "e2e"))

# pylint: disable=wrong-import-position
import bfd
import kit
import measurements
import micro
import policies
import probes
import route_measurements
import table
import worst
from build_tree import BuildTree
from peers import peers, reactions


def machine():
    """What the figures were measured on."""
    with open("/proc/cpuinfo") as stream:
        models = [line.split(":")[1].strip() for line in stream if line.startswith("model name")]
    return {"processor": models[0] if models else platform.machine(), "cores": os.cpu_count(),
            "kernel": platform.release(), "date": time.strftime("%Y-%m-%d")}


def main():
    steps = {**measurements.STEPS, **route_measurements.STEPS, **probes.STEPS, **bfd.STEPS,
             **worst.STEPS, **policies.STEPS, **kit.STEPS, **peers.STEPS, **reactions.STEPS,
             **micro.STEPS}
    parser = argparse.ArgumentParser(prog="bench/run", description=__doc__)
    parser.add_argument("steps", nargs="*", metavar="STEP",
                        help="only these: " + ", ".join(steps))
    wanted = parser.parse_args().steps or list(steps)
    unknown = [name for name in wanted if name not in steps]
    if unknown:
        parser.error(f"no step is named {unknown[0]}; there are {', '.join(steps)}")

    build = BuildTree()
    rows = []
    for name in wanted:
        print(f"== {name}", file=sys.stderr, flush=True)
        rows += steps[name](build)
    print(table.text(rows))
    results = SOURCE / "build" / "bench" / "results.json"
    results.parent.mkdir(parents=True, exist_ok=True)
    results.write_text(json.dumps({"machine": machine(), "rows": rows}, indent=2) + "\n")
    return 0 if all(row["met"] is not False for row in rows) else 1


if __name__ == "__main__":
    sys.exit(main())
