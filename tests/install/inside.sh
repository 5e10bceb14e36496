#!/bin/bash
# inside.sh FOLDER: installs the packages of FOLDER in a bare system, uses what they bring as an
# operator does, installs them again under a running service, removes and purges them. Runs in a
# system's tree with a network namespace of its own for what is tracked; nothing boots, so units are
# looked at and not started.
set -euo pipefail
packages=$1
here=$(dirname "$0")
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

# shellcheck source=tests/install/steps.sh
source "$here/steps.sh"

# in_net COMMAND...: where the links to be tracked are.
in_net() { ip netns exec install "$@"; }
state_is() { [[ $(in_net trackctl state "$1") == "$2" ]]; }

running=()
finish() {
  local one
  for one in "${running[@]}"; do
    kill "$one" 2>/dev/null || :
  done
  ip netns delete install 2>/dev/null || :
}
trap finish EXIT

step "install"
apt-get -qq update
apt-get -qq install -y --no-install-recommends "$packages"/*.deb iproute2 gcc libc6-dev pkg-config >/dev/null
for program in object_tracking trackpolicy qmond; do
  [[ $("$program" --version) == "$program "* ]] || fail "$program --version: $("$program" --version)"
done
getent group object_tracking >/dev/null || fail "there is no group object_tracking"
[[ -e /etc/systemd/system/multi-user.target.wants/object_tracking.service ]] ||
  fail "object_tracking.service is not enabled"
[[ ! -e /etc/systemd/system/sockets.target.wants/object_tracking-metrics.socket ]] ||
  fail "the metrics' socket is enabled, which nobody asked for"
# Each release has its own version of the library that parses options.
for command in $(trackctl --help | sed -n 's/^  trackctl \([a-z-]\+\).*/\1/p') \
  $(trackctl set --help | sed -n 's/^  \([a-z]\+\) .*/set:name:\1/p') policy:{list,test,check}; do
  # shellcheck disable=SC2086  # the words of a command
  trackctl ${command//:/ } --help >/dev/null || fail "trackctl ${command//:/ } --help fails"
done

step "a tracked link, a policy and a probe"
ip netns add install
in_net ip link add uplink0 type veth peer name far0
in_net ip link set uplink0 up
in_net ip link set far0 up
in_net ip link set lo up
install -d -m 0750 -g object_tracking /run/object_tracking
write_configuration uplink0
in_net object_tracking >/tmp/service.log 2>&1 &
running+=($!)
service=$!
within 30 "the service answers" in_net trackctl show
in_net trackctl apply /etc/object_tracking/tracks.conf
in_net qmond --check /etc/object_tracking/probes.toml
in_net qmond >/tmp/qmond.log 2>&1 &
running+=($!)
in_net trackctl policy check /etc/object_tracking/policies.d
in_net trackpolicy >/tmp/trackpolicy.log 2>&1 &
running+=($!)
within 30 "uplink is up" state_is uplink up
within 30 "the probed target is up" state_is target up
within 30 "the policy has told" says /run/object_tracking/told 1

step "programs on the C library and the Python package"
read -ra flags < <(pkg-config --cflags --libs object-tracking)
cc -Wall -Wextra -Werror "$here/follow.c" "${flags[@]}" -o "$here/follow"
in_net "$here/follow" >/tmp/follow.out &
running+=($!)
in_net python3 "$here/follow.py" >/tmp/follow_py.out &
python=$!
within 30 "the C program follows" says /tmp/follow.out "uplink is up"
within 30 "the Python program follows" says /tmp/follow_py.out "state uplink up"
in_net ip link set far0 down
within 30 "the C program is told" says /tmp/follow.out "uplink is down"
wait "$python" || fail "the Python program has failed"
within 30 "the policy has told again" says /run/object_tracking/told 0
[[ $(in_net trackctl explain uplink) == *carrier* ]] || fail "explain does not say why"
[[ $(in_net trackctl what-if uplink=up) == *uplink* ]] || fail "what-if does not answer"

step "a crash, and the packages installed anew under a running service"
kill -9 "$service"
wait "$service" 2>/dev/null || :
in_net object_tracking >>/tmp/service.log 2>&1 &
running+=($!)
within 30 "the service is back" state_is uplink down
apt-get -qq install -y --reinstall --no-install-recommends "$packages"/*.deb >/dev/null
state_is uplink down || fail "the track is not what it was"
grep -q uplink0 /etc/object_tracking/tracks.conf || fail "the configuration file is gone"

step "remove and purge"
finish
running=()
apt-get -qq remove -y object-tracking object-tracking-policy object-tracking-probes >/dev/null
[[ ! -e /usr/bin/trackctl && -e /var/lib/object_tracking/configuration.mdb ]] ||
  fail "removal leaves programs, or takes the configuration"
remove_configuration
mount --bind /var/lib/object_tracking /var/lib/object_tracking # as one on a disk of its own
apt-get -qq purge -y object-tracking object-tracking-policy object-tracking-probes libobject-tracking1 >/dev/null
[[ -z $(ls -A /var/lib/object_tracking) ]] || fail "purging leaves files on a disk of its own"
umount /var/lib/object_tracking
rmdir /var/lib/object_tracking
nothing_left
step "passed"
