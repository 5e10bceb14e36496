#!/usr/bin/env bash
# install_test.sh PACKAGES: installs the packages of a folder in a bare tree of the release that this
# machine runs, uses, removes and purges them there (tests/install/inside.sh). Needs root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/dev_say.sh
source scripts/bare_tree.sh

packages=$1
suite=$(suite_of "$(. /etc/os-release && echo "$VERSION_CODENAME")")
tree=$(mktemp -d /tmp/ot-install.XXXXXX)
trap 'rm -rf --one-file-system "$tree"' EXIT
trap 'exit 130' INT TERM
say "a bare $suite in $tree"
make_bare_tree "$suite" "$tree"
mkdir -p "$tree/srv/install"
cp "$packages"/*.deb tests/install/* examples/follow.c "$tree/srv/install/"
inside "$tree" /srv/install/inside.sh /srv/install
