# shellcheck shell=bash
# What the install tests say, and how they wait.

step() { echo "-- $*"; }
fail() {
  echo "install test: $*" >&2
  exit 1
}

# within SECONDS WHAT COMMAND...: waits until the command succeeds.
within() {
  local end=$((SECONDS + $1)) seconds=$1 what=$2
  shift 2
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < end)) || fail "not within $seconds seconds: $what"
    sleep 0.05
  done
}

says() { grep -q -- "$2" "$1"; }

# write_configuration LINK: a track of that link, a probe with its track, and policies of the first.
write_configuration() {
  printf '%s\n' "uplink interface $1" "target probe 7" >/etc/object_tracking/tracks.conf
  cat >/etc/object_tracking/probes.toml <<'P'
[[operation]]
id = 7
kind = "icmp"
target = "127.0.0.1"
interval = "1s"
timeout = "500ms"
P
  cat >/etc/object_tracking/policies.d/test.toml <<'P'
[[policy]]
name = "told"
track = "uplink"
kind = "file"
path = "/run/object_tracking/told"
text_up = 1
text_down = 0

[[policy]]
name = "heard"
track = "uplink"
kind = "command"
run = ["/bin/sh", "-c", "echo $OT_STATE >>/run/object_tracking/heard"]
run_as_root = true
P
}

remove_configuration() {
  rm /etc/object_tracking/{tracks.conf,probes.toml,policies.d/test.toml}
}

# What purging must not leave.
nothing_left() {
  local left
  for left in /etc/object_tracking /var/lib/object_tracking /run/object_tracking /pkg/lib; do
    [[ ! -e $left ]] || fail "purging leaves $left: $(ls -A "$left")"
  done
}
