#!/usr/bin/env python3
"""Calls a command for every change of a track's state, with TRACK and STATE in its environment.

    follow_events.py uplink -- logger "uplink changed"

Follows again when the service was restarted, and begins with the state that the track has then, so
that no change is missed in between.
"""

import json
import os
import subprocess
import sys
import time

SERVICE_NOT_RUNNING = 3


def call(command, track, state):
    subprocess.run(command, env={**os.environ, "TRACK": track, "STATE": state}, check=False)


def follow(track, command, known):
    """Follows until the service goes; returns the exit status of trackctl and the last state."""
    with subprocess.Popen(["trackctl", "events", "--json", "--track", track],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as events:
        if not events.stderr.readline().endswith("following events\n"):
            return events.wait(), known
        # From here on nothing is missed; what changed before is learnt by asking.
        present = subprocess.run(["trackctl", "state", track], stdout=subprocess.PIPE, text=True,
                                 check=False).stdout.strip()
        states = [present] if present else []
        while True:
            for state in states:
                if state != known:
                    call(command, track, state)
                known = state
            line = events.stdout.readline()
            if not line:
                return events.wait(), known
            states = [json.loads(line)["state"]]


def main():
    if len(sys.argv) < 4 or sys.argv[2] != "--":
        sys.exit(f"usage: {sys.argv[0]} TRACK -- COMMAND [ARGUMENT...]")
    known = None
    while True:
        status, known = follow(sys.argv[1], sys.argv[3:], known)
        if status != SERVICE_NOT_RUNNING:
            sys.exit(status)
        time.sleep(1)  # until the service is back


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
