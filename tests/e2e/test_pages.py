"""Reading all tracks while some of them go: nobody gets a part, and nobody gets a track twice."""

import contextlib
import json
import subprocess
import threading

import ledger
from build_tree import BuildTree

STABLE = [f"s{number:03}" for number in range(400)]
READS = 10 if BuildTree().sanitized else 40


@contextlib.contextmanager
def churn(service):
    """Makes and deletes a hundred further tracks, again and again, each time under new names."""
    stop = threading.Event()
    writer = subprocess.Popen(service.build.command("ledger_put"),
                              env=service.build.environment(service.root), text=True,
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def commit(lines):
        writer.stdin.write("\n".join([*lines, "commit\n"]))
        writer.stdin.flush()
        return writer.stdout.readline()

    answers = set()

    def run():
        turn = 0
        while not stop.is_set():
            names = [f"c{turn}-{number}" for number in range(100)]
            for change in (lambda name: ledger.track_items(name, "mark-up"), ledger.track_removal):
                answers.add(commit([line for name in names for line in change(name)]))
            turn += 1

    thread = threading.Thread(target=run)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()
        writer.stdin.close()
        writer.wait()
        writer.stdout.close()
    assert answers == {"0x00000000\n"}


def check(names):
    stable = [name for name in names if name.startswith("s")]
    assert len(stable) == len(set(stable)), "a track was repeated"
    assert len(stable) == len(STABLE), f"only {len(stable)} of {len(STABLE)}"


def test_whoever_reads_in_pages_gets_all_tracks(service):
    service.configure(STABLE, "mark-up")
    with churn(service):
        for _ in range(READS):
            check([track["name"] for track in json.loads(service.ctl("show", "--json"))])
            lines = service.show("all-tracks", "all").splitlines()
            check([line.split()[1] for line in lines if line.startswith("Track ")])
