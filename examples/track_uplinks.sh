#!/bin/sh
# Tracks the interfaces named as arguments, each under its own name: an interface counts as up after
# 5 s without a break and as down at once. Can be run again at any time; what is so already is not
# touched.
set -eu
[ $# -gt 0 ] || { echo "usage: $0 INTERFACE..." >&2; exit 2; }

for interface in "$@"; do
  trackctl set "$interface" interface "$interface" --delay-up 5
done
trackctl show
