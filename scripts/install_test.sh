#!/usr/bin/env bash
# install_test.sh [RELEASE]: installs the packages that ./dev package has made for a release of Debian
# (default: this machine's) in a bare tree of it, uses, removes and purges them there
# (tests/install/inside.sh), and once more in a booted one (tests/install/booted.sh). Needs root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/dev_say.sh
source scripts/bare_tree.sh

suite=$(suite_of "${1:-$(. /etc/os-release && echo "$VERSION_CODENAME")}")
packages=$PWD/build/packages${1:+-$suite}
fetched=$PWD/build/trees/fetched-$suite # what apt has brought, for the next time
place=$(mktemp -d /tmp/ot-install.XXXXXX)
tree=$place/tree
files=$tree/srv/install
trap 'rm -rf --one-file-system "$place"' EXIT
trap 'exit 130' INT TERM

# make_later FOLDER: the packages as a later version, with the same content.
make_later() {
  local package version later=$place/later
  mkdir "$1"
  for package in "$files"/*.deb; do
    dpkg-deb -R "$package" "$later"
    version=$(sed -n 's/^Version: //p' "$later/DEBIAN/control")
    sed -i "/^\(Version\|Depends\):/s/\b${version//./\\.}\b/$version+later/g" "$later/DEBIAN/control"
    dpkg-deb -Zgzip -z1 --root-owner-group -b "$later" "$1" >/dev/null
    rm -rf "$later"
  done
}

say "a bare $suite in $tree"
mkdir "$tree"
make_bare_tree "$suite" "$tree"
mkdir -p "$files" "$fetched"
cp "$packages"/*.deb tests/install/*.* examples/follow.c "$files/"
find "$fetched" -name "*.deb" -exec cp -t "$tree/var/cache/apt/archives" {} +
echo force-unsafe-io >"$tree/etc/dpkg/dpkg.cfg.d/quick"
inside "$tree" /srv/install/inside.sh /srv/install
find "$tree/var/cache/apt/archives" -name "*.deb" -exec cp -t "$fetched" {} +

say "a booted $suite"
rm "$files"/*-dbgsym_*.deb "$files"/libobject-tracking-dev_*.deb
make_later "$files/later"
make_boot_image "$suite"
mkdir -p build/install
timeout 1000 /usr/bin/python3 tests/install/boot.py "$(boot_image "$suite")" "$files" \
  "build/install/console-$suite"
