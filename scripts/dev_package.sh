# shellcheck shell=bash
# Packages for Debian: made of the release in build/release, which is built with a package's flags, for
# the release of Debian that this machine runs.

# shellcheck source=scripts/bare_tree.sh
source scripts/bare_tree.sh

# What they have of the build.
package_targets=(object_tracking trackctl trackctl-watch trackctl-what-if trackpolicy qmond
  ledger object-tracking libqmon_infra libqmon_infra_comp)

# The version of the newest entry in debian/changelog.
package_version() { sed -n '1s/.*(\(.*\)).*/\1/p' debian/changelog; }

# Everything has one version: the build's, and its packages'.
check_version() {
  local build
  build=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
  [[ $build == "$(package_version)" ]] ||
    die "CMakeLists.txt has version $build, debian/changelog $(package_version): make them one"
}

# remove_at_exit FOLDER: however this ends.
remove_at_exit() {
  # shellcheck disable=SC2064  # this folder, not what the name stands for later
  trap "rm -rf --one-file-system '$1'" EXIT
}

# pack FOLDER [SETTING...]: the packages of what git knows are in FOLDER then, and nothing else.
# Settings are of the environment of the build; with OT_BUILT=TREE, a finished build is packed.
pack() {
  local packages=$1 log=$1/log place source
  shift
  place=$(mktemp -d "${TMPDIR:-/tmp}/ot-package.XXXXXX")
  remove_at_exit "$place"
  source=$place/source
  rm -rf "$packages"
  mkdir -p "$source" "$packages"
  git ls-files -z --cached --others --exclude-standard | tar --null -cT - | tar -xC "$source"
  (cd "$source" && env "DEB_BUILD_OPTIONS=nocheck parallel=$(nproc)" "$@" \
    dpkg-buildpackage --build=binary --no-sign) >"$log" 2>&1 || {
    tail -30 "$log" >&2
    rm -rf "$place"
    die "the packages cannot be built; all of it is in $log"
  }
  mv "$place"/*.*deb "$packages/"
  rm -rf "$place"
}

# same_packages FOLDER FOLDER: whether they have the same bytes; says which files differ.
same_packages() {
  local package name status=0 scratch
  for package in "$1"/*.deb; do
    name=${package##*/}
    cmp -s "$package" "$2/$name" && continue
    status=1
    say "$name is not the same twice:"
    scratch=$(mktemp -d)
    dpkg-deb -R "$package" "$scratch/one"
    dpkg-deb -R "$2/$name" "$scratch/two"
    (cd "$scratch" && diff -rq one two >&2) || :
    rm -rf "$scratch"
  done
  return "$status"
}

# Built from nothing at another place, by others' clock and with others' habits, the packages have the
# same bytes.
check_reproducible() {
  say "the packages once more, from nothing"
  (umask 0002 && pack build/packages-again TZ=Pacific/Kiritimati LC_ALL=C)
  same_packages build/packages build/packages-again || die "package: not reproducible"
  say "the same bytes twice"
}

# pack_in_tree SUITE FOLDER: the packages for another release, built from nothing in a tree of it.
pack_in_tree() {
  local tree log=$2/log
  rm -rf "$2"
  mkdir -p "$2"
  tree=$(mktemp -d /tmp/ot-package.XXXXXX)
  remove_at_exit "$tree"
  make_bare_tree "$1" "$tree"
  mkdir -p "$tree/srv/package/source"
  git ls-files -z --cached --others --exclude-standard | tar --null -cT - |
    tar -xC "$tree/srv/package/source"
  say "building for $1"
  # shellcheck disable=SC2016  # for the inner shell
  inside "$tree" bash -c '
    set -e
    export DEBIAN_FRONTEND=noninteractive DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)"
    apt-get -qq update
    cd /srv/package/source
    apt-get -qq install -y --no-install-recommends build-essential fakeroot lintian >/dev/null
    apt-get -qq build-dep -y --no-install-recommends . >/dev/null
    dpkg-buildpackage --build=binary --no-sign
    lintian --allow-root --fail-on error ../*.deb \
      --suppress-tags bogus-mail-host,bogus-mail-host-in-debian-changelog' >"$log" 2>&1 || {
    tail -30 "$log" >&2
    rm -rf --one-file-system "$tree"
    die "the packages for $1 cannot be built; all of it is in $log"
  }
  mv "$tree"/srv/package/*.*deb "$2/"
  rm -rf --one-file-system "$tree"
}

# The packages are in build/packages/ then, made of the release, which the tests have tried; those for
# another release of Debian in build/packages-RELEASE/.
dev_package() {
  local settings=() folder=build/packages
  case ${1:-} in
    "" | --twice) ;;
    --release) folder+=-$(suite_of "${2:-}") || exit ;;
    *) die "package: unknown word \"$1\" (--twice, --release 12|13)" ;;
  esac
  check_version
  if [[ ${1:-} == --release ]]; then
    ensure_packages package e2e
    pack_in_tree "$(suite_of "$2")" "$folder"
  else
    ensure_packages run build package
    mapfile -t settings < <(package_settings)
    cmake --preset release "${settings[@]}" >/dev/null
    build_preset release "${package_targets[@]}"
    pack "$folder" "OT_BUILT=$PWD/build/release"
    # Nobody has a public address yet: the packages are for their owner's own machines.
    lintian --allow-root --fail-on error "$folder"/*.deb \
      --suppress-tags bogus-mail-host,bogus-mail-host-in-debian-changelog
  fi
  [[ ${1:-} != --twice ]] || check_reproducible
  ls -l "$folder"
}
