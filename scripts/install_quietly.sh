#!/usr/bin/env bash
# install_quietly.sh PACKAGE...: installs Debian packages without starting the services that come
# with them, now or at the next boot: the tests run such programs themselves, and the machine is
# only borrowed. To be run as root.
set -euo pipefail

policy=/usr/sbin/policy-rc.d
kept=$(mktemp -d)

# Asked by every package before it starts a service; 101 is its word for "do not".
deny_starts() {
  [[ ! -e $policy ]] || cp -a "$policy" "$kept/policy"
  printf '#!/bin/sh\nexit 101\n' >"$kept/deny"
  install -m 755 "$kept/deny" "$policy"
}

restore_policy() {
  if [[ -e $kept/policy ]]; then
    cp -a "$kept/policy" "$policy"
  else
    rm -f "$policy"
  fi
  rm -r "$kept"
}

services() {
  local file
  for file in /etc/init.d/*; do
    echo "${file##*/}"
  done | sort
}

before=$(services)
trap restore_policy EXIT
deny_starts
apt-get update -qq
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >/dev/null
for service in $(comm -13 <(echo "$before") <(services)); do
  update-rc.d "$service" disable
done
