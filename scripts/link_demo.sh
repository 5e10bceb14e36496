#!/usr/bin/env bash
# The demonstration of ./dev run: a service of its own follows one end of a virtual cable while the
# other end goes down and comes back. Runs inside a network namespace that ends with it, with the
# programs in PATH and OT_PKG_ROOT set.
set -euo pipefail
source scripts/dev_say.sh
source scripts/dev_run.sh

trap dev_run_cleanup EXIT
trap 'exit 130' INT TERM
fresh_prefix demo
ip link set lo up
ip link add cable0 type veth peer name far0
ip link set cable0 up
ip link set far0 up
start_service

shown trackctl set uplink interface cable0 --delay-up 1
wait_for 5 track_is uplink up || die "the track did not come up"
trackctl events 2>"$OT_ROOT/following" &
run_pids+=("$!")
wait_for 5 test -s "$OT_ROOT/following" || die "nothing follows the events"

say "the far end of the cable goes down"
shown ip link set far0 down
wait_for 5 track_is uplink down || die "the track did not go down"
say "the far end comes back; the track waits for its delay of 1 s"
shown ip link set far0 up
wait_for 5 track_is uplink up || die "the track did not come back"
shown object_tracking show track uplink all
