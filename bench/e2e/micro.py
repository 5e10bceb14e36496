"""The Google Benchmark programs, each run once; their figures become rows of the table."""

import json
import subprocess

from table import row

# Figures with a target, by the benchmark's name: microseconds of CPU.
TARGETS_US = {"publish_linux": 3, "list_calculation/ordinary": 1_000, "list_calculation": 20_000,
              "list_cycle": 20_000, "list_change": 20_000}


def target(name):
    """By the name without the arguments behind it."""
    return next((most for prefix, most in TARGETS_US.items()
                 if name == prefix or name.startswith(prefix + "/")), None)


def runner(program):
    def run(build):
        if build.missing(program):
            raise SystemExit(f"{program} is not built in {build.path}")
        result = subprocess.run(
            [*build.command(program), "--benchmark_format=json", "--benchmark_min_time=0.5"],
            check=True, stdout=subprocess.PIPE, text=True)
        rows = []
        for entry in json.loads(result.stdout)["benchmarks"]:
            to_us = {"ns": 1e-3, "us": 1.0, "ms": 1e3}[entry["time_unit"]]
            # A benchmark that publishes many a round says what one costs, in seconds.
            value = entry["per_publication"] * 1e6 if "per_publication" in entry \
                else entry["cpu_time"] * to_us
            rows.append(row(f"CPU of {entry['name']}", value, "us",
                            target(entry["name"])))
        return rows
    return run


STEPS = {program: runner(program) for program in ("bench_memory", "bench_linux")}
