#!/bin/bash
# booted.sh FOLDER: in a booted system, installs the packages of FOLDER with the units that they bring,
# lets a service crash and hang, upgrades to the packages of FOLDER/later, boots anew, removes and purges.
# What it says goes to the second serial port; when it ends well, the virtual machine reboots.
set -euo pipefail
here=$1
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 SYSTEMD_COLORS=no HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin
# shellcheck source=tests/install/steps.sh
source "$here/steps.sh"
services=(object_tracking trackpolicy qmond)
# What systemd says of units that wait for each other, and of those that keep it waiting.
disorder="ordering cycle|deleted to break|destructive|Dependency failed|timed out"

# What went wrong is in the journal.
finish() {
  local status=$?
  [[ $status -eq 0 ]] || {
    systemctl --failed --no-legend --plain
    journalctl --no-pager -b -o short-monotonic -n 60
  }
  exit "$status"
}
trap finish EXIT

property() { systemctl show --value -p "$1" "$2"; }
is_active() { [[ $(property ActiveState "$1") == active ]]; }
state_is() { [[ $(trackctl state "$1") == "$2" ]]; }
restarted() { [[ $(property NRestarts "$1") == "$2" ]] && is_active "$1"; }
must_be() { [[ $(property ActiveState "$1") == "$2" ]] || fail "$1 is $(property ActiveState "$1"), not $2"; }
heard() { [[ $(cat /run/object_tracking/heard) == "$1" ]]; }
last_heard() { [[ $(tail -1 /run/object_tracking/heard) == "$1" ]]; }
routed() { ip route | grep -q -- "$1"; }
scrape() {
  python3 -c 'import urllib.request as r; print(r.urlopen("http://127.0.0.1:9765/metrics").read().decode())' \
    >/tmp/metrics
  says /tmp/metrics 'object_tracking_track_state{track="uplink",type="interface",state="up"} 1' ||
    fail "the scrape says: $(cat /tmp/metrics)"
}
all_up() {
  within 30 "the link's track is up" state_is uplink up
  within 30 "the probe's track is up" state_is target up
}

installs() {
  step "install: units start as Debian does"
  apt-get -qq install -y --no-install-recommends "$here"/*.deb >/dev/null
  for unit in object_tracking trackpolicy qmond object_tracking-tracks; do
    [[ $(systemctl is-enabled "$unit") == enabled ]] || fail "$unit is not enabled"
  done
  must_be object_tracking.service active
  must_be trackpolicy.service active
  must_be qmond.service inactive # it has no probes yet
  must_be object_tracking-metrics.socket inactive
  [[ $(stat -c %G:%a /run/object_tracking) == object_tracking:750 ]] ||
    fail "/run/object_tracking: $(stat -c %U:%G:%a /run/object_tracking)"
}

configures() {
  step "a link tracked from tracks.conf, a probe, policies"
  ip link add uplink0 type veth peer name far0
  ip link set uplink0 up
  ip link set far0 up
  write_configuration uplink0
  systemctl start object_tracking-tracks qmond
  systemctl reload trackpolicy qmond
  all_up
  within 30 "the file policy has told" says /run/object_tracking/told 1
  within 30 "the command policy has told" heard up
  python3 "$here/follow.py" >/tmp/python.out 2>&1 &
  "$here/follow" >>/tmp/follow.out 2>&1 &
  within 30 "the C program follows" says /tmp/follow.out "uplink is up"
  within 30 "the Python program follows" says /tmp/python.out "state uplink up"
  ip link set far0 down
  within 30 "the C program is told" says /tmp/follow.out "uplink is down"
  within 30 "the Python program is told" says /tmp/python.out "state uplink down"
  within 30 "the command policy has told again" heard $'up\ndown'
  ip link set far0 up
  all_up
  within 30 "the command policy has told up" heard $'up\ndown\nup'
}

serves_metrics() {
  step "a scrape of the metrics"
  systemctl start object_tracking-metrics.socket
  scrape
}

crashes() {
  local service
  step "killed services are back"
  for service in "${services[@]}"; do
    systemctl kill --kill-whom=main --signal=KILL "$service"
  done
  for service in "${services[@]}"; do
    within 30 "$service is back" restarted "$service" 1
  done
  all_up
  step "the watchdog ends services that hang, and they are back"
  for service in "${services[@]}"; do
    systemctl kill --kill-whom=main --signal=STOP "$service"
  done
  for service in "${services[@]}"; do
    within 60 "the watchdog has ended $service" restarted "$service" 2
    # No grep behind it, which would end at the first match, and it with a signal then.
    [[ $(journalctl -q --no-pager -u "$service") == *"Watchdog timeout"* ]] ||
      fail "it was not the watchdog"
  done
  all_up
  heard $'up\ndown\nup' || fail "a policy has acted after a crash: $(cat /run/object_tracking/heard)"
}

upgrades() {
  local service one two
  step "an upgrade: restarted, nothing lost, nothing flaps"
  : >/tmp/follow.out
  for service in "${services[@]}"; do
    one+=" $(property MainPID "$service")"
  done
  apt-get -qq install -y --no-install-recommends "$here"/later/*.deb >/dev/null
  for service in "${services[@]}"; do
    must_be "$service" active
    two=$(property MainPID "$service")
    [[ " $one " != *" $two "* ]] || fail "$service goes on with its old program"
  done
  [[ $(dpkg-query -W -f '${Version}' object-tracking) == *later ]] || fail "the version is the old one"
  is_active object_tracking-metrics.socket || fail "the metrics are not served any more"
  is_active object_tracking-tracks || fail "tracks.conf is not applied any more"
  [[ $(head -1 /etc/object_tracking/tracks.conf) == "uplink interface uplink0" ]] || fail "tracks.conf is gone"
  within 30 "the C program has the service back" says /tmp/follow.out "uplink is up"
  # A probe's track has no result until its program has restarted.
  ! grep -aE "uplink is (down|unknown)|no more" /tmp/follow.out || fail "a track has flapped"
  all_up
  heard $'up\ndown\nup' || fail "a policy has acted: $(cat /run/object_tracking/heard)"
  ip link set far0 down
  within 30 "the C program still follows" says /tmp/follow.out "uplink is down"
  within 30 "the policy still acts" heard $'up\ndown\nup\ndown'
  [[ -z $(systemctl --failed --no-legend) ]] || fail "a unit has failed"
}

# What the next boot is to find: a track of the operator's own, one whose link does not come back, a link
# that the boot makes, a route as long as that is up, and the metrics.
prepares_reboot() {
  trackctl set either or uplink target --delay-up 1
  trackctl set gone interface gone0
  ip link add gone0 type veth peer name gone1
  ip link set gone0 up
  ip link set gone1 up
  within 30 "the other link is up" state_is gone up
  state_is uplink down || fail "the link's track is $(trackctl state uplink)"
  cat >/etc/systemd/system/links.service <<'P'
[Unit]
Wants=network.target
Before=network.target
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=ip link add uplink0 type veth peer name far0
ExecStart=ip address add 192.0.2.1/24 dev uplink0
ExecStart=ip link set far0 up
ExecStart=ip link set uplink0 up
[Install]
WantedBy=multi-user.target
P
  cat >/etc/object_tracking/policies.d/route.toml <<'P'
[[policy]]
name = "way"
track = "uplink"
kind = "route"
to = "198.51.100.0/24"
via = "192.0.2.2"
P
  systemctl -q enable links.service object_tracking-metrics.socket
  systemctl reload trackpolicy
}

reboots() {
  local unit end
  step "after the reboot, all is back by itself"
  for unit in "${services[@]/%/.service}" object_tracking-{tracks.service,metrics.socket}; do
    must_be "$unit" active
  done
  all_up
  within 30 "the track made by hand is up" state_is either up
  state_is gone down || fail "a track whose link has not come back is $(trackctl state gone)"
  within 30 "the file policy has told" says /run/object_tracking/told 1
  within 30 "the command policy has told" last_heard up
  within 30 "the route is back" routed "198.51.100.0/24 via 192.0.2.2 dev uplink0 proto trackpolicy"
  scrape
  for unit in "${services[@]}"; do
    [[ $(property NRestarts "$unit") == 0 ]] || fail "$unit did not stay up"
  done
  [[ -z $(systemctl --failed --no-legend) ]] || fail "a unit has failed"
  step "neither boot nor shutdown was held up"
  ! journalctl -q --no-pager -b all _PID=1 | grep -E "$disorder" || fail "systemd complains"
  ! journalctl -q --no-pager -b -p warning "${services[@]/#/-u}" | grep . || fail "a service complains"
  for unit in "${services[@]}"; do
    end=$(journalctl -q --no-pager -b -1 -u "$unit" | tail -2) # what it has used may be told behind its end
    [[ $end == *"Stopped $unit"* ]] || fail "$unit had not stopped: $end"
  done
}

removes() {
  local service
  step "remove and purge"
  apt-get -qq remove -y object-tracking object-tracking-policy object-tracking-probes >/dev/null
  for service in "${services[@]}" object_tracking-metrics.socket; do
    must_be "$service" inactive
  done
  for service in "${services[@]}"; do
    ! grep -lx "$service" /proc/[0-9]*/comm || fail "$service runs on"
  done
  [[ ! -e /usr/bin/trackctl && -e /var/lib/object_tracking/configuration.mdb ]] ||
    fail "removal leaves programs, or takes the configuration"
  remove_configuration
  rm /etc/object_tracking/policies.d/route.toml
  apt-get -qq purge -y object-tracking object-tracking-policy object-tracking-probes libobject-tracking1 >/dev/null
  nothing_left
  ! systemctl list-unit-files --no-legend | grep -E "object_tracking|trackpolicy|qmond" || fail "purging leaves units"
  [[ -z $(systemctl --failed --no-legend) ]] || fail "a unit has failed"
}

if [[ ! -e $here/rebooted ]]; then
  installs
  configures
  serves_metrics
  crashes
  upgrades
  prepares_reboot
  touch "$here/rebooted"
  step "a reboot"
else
  reboots
  removes
  step "passed"
fi
