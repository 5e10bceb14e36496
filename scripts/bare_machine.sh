#!/usr/bin/env bash
# bare_machine.sh RELEASE [COMMAND...]: what a newcomer meets. Makes a tree with nothing but the
# minimal system of Debian RELEASE (12 or 13), clones the last commit into it, runs `./dev COMMAND`
# there (default: run --demo) and removes it again. Every line of output carries the seconds since
# the clone. Needs root, for chroot and namespaces of its own; the network is the machine's.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/dev_say.sh
source scripts/bare_tree.sh

suite=$(suite_of "${1:-}")
shift
[[ $# -gt 0 ]] || set -- run --demo
[[ $EUID -eq 0 ]] || die "bare: only root can make such a tree"
[[ -z $(git status --porcelain) ]] || say "what is not committed is left out"

tree=$(mktemp -d /tmp/ot-bare.XXXXXX)
trap 'rm -rf --one-file-system "$tree"' EXIT
trap 'exit 130' INT TERM
say "a bare $suite in $tree"
make_bare_tree "$suite" "$tree"

# stamped: puts the seconds since the script reached this before every line.
stamped() {
  local line start=$SECONDS
  while IFS= read -r line || [[ -n $line ]]; do
    printf '%5d  %s\n' $((SECONDS - start)) "$line"
  done
}

{
  git clone -q . "$tree/srv/object_tracking" &&
    inside "$tree" /srv/object_tracking/dev "$@"
} 2>&1 | stamped
