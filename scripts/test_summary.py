#!/usr/bin/env python3
"""Adds up what the test programs themselves reported.

Reads a record of runs (preset, program, exit status and report, tab separated) and the JUnit
reports of GoogleTest and pytest. A program that left no report, ran no test, or ended badly
although every test passed (a sanitizer's finding at exit) counts as one failure more. The last line
is "N passed, N failed", with ", N skipped" when any; the exit status is 1 on any failure.
"""

import collections
import glob
import sys
import xml.etree.ElementTree as ElementTree

Counts = collections.namedtuple("Counts", "passed failed skipped")


def read_reports(path):
    """The test cases of a report, and of the shards' beside it."""
    yield from read_report(path)
    for shard in sorted(glob.glob(f"{glob.escape(path[:-len('.xml')])}-[0-9].xml")):
        yield from read_report(shard)


def read_report(path):
    """The test cases of a report as (name, outcome, reason)."""
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        name = f"{case.get('classname', '')}.{case.get('name', '')}"
        if case.get("status") == "notrun":
            continue
        bad = case.find("failure") if case.find("failure") is not None else case.find("error")
        skipped = case.find("skipped")
        if bad is not None:
            yield name, "failed", first_line(bad)
        elif skipped is not None:
            yield name, "skipped", first_line(skipped)
        else:
            yield name, "passed", ""


def first_line(element):
    text = (element.get("message") or element.text or "").strip()
    lines = [line for line in text.splitlines() if line.strip()]
    # GoogleTest's first line is the place in the source; the reason follows it.
    if len(lines) > 1 and lines[0].rsplit(":", 1)[-1].isdigit():
        return lines[1].strip()
    return lines[0].strip() if lines else ""


def add_up(program, status, report, failures, reasons):
    """Counts of one run; what failed and why tests were skipped is added to the two collections."""
    if program == "build":
        failures.append("the build failed")
        return Counts(0, 1, 0)
    try:
        cases = list(read_reports(report))
    except (OSError, ElementTree.ParseError):
        failures.append(f"left no report (exit status {status})")
        return Counts(0, 1, 0)
    tally = collections.Counter(outcome for _, outcome, _ in cases)
    failed = tally["failed"]
    for name, outcome, reason in cases:
        if outcome == "failed":
            failures.append(f"{name}: {reason}")
        elif outcome == "skipped":
            reasons[reason] += 1
    if not cases:
        failures.append("ran no test")
        failed += 1
    elif status != 0 and failed == 0:
        failures.append(f"ended with status {status} although no test failed")
        failed += 1
    return Counts(tally["passed"], failed, tally["skipped"])


def main():
    total = Counts(0, 0, 0)
    reasons = collections.Counter()
    all_failures = []
    print("\n== summary", flush=True)
    with open(sys.argv[1], encoding="utf-8") as record:
        runs = [line.rstrip("\n").split("\t") for line in record]
    for preset, program, status, report in runs:
        failures = []
        counts = add_up(program, int(status), report, failures, reasons)
        total = Counts(*(a + b for a, b in zip(total, counts)))
        print(f"{preset:8} {program:16} {counts.passed:5} passed {counts.failed:4} failed"
              f" {counts.skipped:4} skipped")
        all_failures += [f"FAILED {preset} {program}: {text}" for text in failures]
    if not runs:
        all_failures.append("FAILED no program was run")
        total = total._replace(failed=1)
    for reason, count in sorted(reasons.items()):
        print(f"skipped {count}: {reason}")
    print("\n".join(all_failures), end="\n" if all_failures else "")
    skipped = f", {total.skipped} skipped" if total.skipped else ""
    print(f"{total.passed} passed, {total.failed} failed{skipped}")
    return 1 if total.failed else 0


if __name__ == "__main__":
    sys.exit(main())
