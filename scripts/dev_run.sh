# shellcheck shell=bash
# ./dev run: the service on a private prefix in build/run/instance, with a track for every interface of
# this machine; before that, where it is allowed, a link that breaks and heals in a network
# namespace of its own. Only what is started here is ended, by its process id.

run_pids=()
run_scratch=()

# Ends what was started, the last first, so that nobody sees its service go.
dev_run_cleanup() {
  local index pid
  for ((index = ${#run_pids[@]} - 1; index >= 0; --index)); do
    pid=${run_pids[index]}
    kill "$pid" 2>/dev/null || continue # gone already
    wait_for 5 process_has_gone "$pid" || kill -KILL "$pid"
    wait "$pid" 2>/dev/null || : # it was asked to end; its status says no more
  done
  run_pids=()
  if [[ ${#run_scratch[@]} -gt 0 ]]; then
    rm -rf "${run_scratch[@]}"
  fi
}

# fresh_prefix NAME: sets OT_ROOT to an empty folder, build/run/instance/NAME where its sockets' paths are
# short enough for the kernel (107 characters).
fresh_prefix() {
  OT_ROOT=$PWD/build/run/instance/$1
  if [[ ${#OT_ROOT} -gt 70 ]]; then
    OT_ROOT=$(mktemp -d "/tmp/ot-$1.XXXXXX")
    run_scratch+=("$OT_ROOT")
  else
    rm -rf "$OT_ROOT"
    mkdir -p "$OT_ROOT"
  fi
  export OT_ROOT
}

# wait_for SECONDS COMMAND...: until the command succeeds.
wait_for() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@"; do
    [[ $SECONDS -lt $deadline ]] || return 1
    sleep 0.02
  done
}

# A process that ended but was not waited for yet counts as gone.
process_has_gone() { [[ ! -d /proc/$1 || $(ps -o stat= -p "$1") == Z* ]]; }
service_answers() { trackctl show >/dev/null 2>&1; }
track_is() { [[ $(trackctl state "$1") == "$2" ]]; }
shown() { printf '\n$ %s\n' "$*"; "$@"; }

# start_service: starts it below OT_ROOT and waits until it answers. Its log is OT_ROOT/log.
start_service() {
  object_tracking </dev/null >"$OT_ROOT/log" 2>&1 &
  run_pids+=("$!")
  if ! wait_for 10 service_answers; then
    cat "$OT_ROOT/log" >&2
    die "the service did not start; its log is above"
  fi
}

namespace_prefix() {
  if [[ $EUID -eq 0 ]] && unshare --net true 2>/dev/null; then
    echo "unshare --net"
  elif unshare --user --map-root-user --net true 2>/dev/null; then
    echo "unshare --user --map-root-user --net"
  fi
}

# dev_run_demo IF_IMPOSSIBLE: "skip" or "fail".
dev_run_demo() {
  local prefix
  prefix=$(namespace_prefix)
  if [[ -z $prefix ]] || ! command -v ip >/dev/null; then
    [[ $1 == skip ]] || die "the demonstration needs iproute2 and the right to make a network namespace (run it as root)"
    say "no demonstration: this user may not make a network namespace"
    return
  fi
  say "demonstration: a link breaks and heals in a network namespace of its own"
  $prefix scripts/link_demo.sh || die "the demonstration failed"
}

# A track for each interface; names that no track can have are said and left out.
track_interfaces() {
  local path interface
  for path in /sys/class/net/*; do
    interface=${path##*/}
    [[ -d $path ]] || continue # bonding_masters is a file
    trackctl set "$interface" interface "$interface" || say "left out: $interface"
  done
}

dev_run() {
  local demo=skip first
  case ${1:-} in
    "") ;;
    --demo) demo=fail ;;
    *) die "run: unknown word \"$1\" (--demo)" ;;
  esac
  build_preset run
  export PATH=$PWD/build/run/bin:$PATH OT_PKG_ROOT=$PWD/build/run
  dev_run_demo "$demo"

  trap dev_run_cleanup EXIT
  trap 'exit 130' INT TERM
  fresh_prefix here
  say "a service of its own below $OT_ROOT"
  start_service
  track_interfaces
  shown object_tracking show track all-tracks
  first=$(trackctl show | awk 'NR == 3 { print $1 }')
  [[ -z $first ]] || shown object_tracking show track "$first" all
  if [[ -t 0 && -t 1 ]]; then
    say "following events; Ctrl-C ends everything"
    trap 'exit 0' INT
    trackctl events
  fi
}
