# shellcheck shell=bash
# Packages for Debian: built from what git knows, in a folder of their own, for the release that this
# machine runs.

# The version of the newest entry in debian/changelog.
package_version() { sed -n '1s/.*(\(.*\)).*/\1/p' debian/changelog; }

# Everything has one version: the build's, and its packages'.
check_version() {
  local build
  build=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
  [[ $build == "$(package_version)" ]] ||
    die "CMakeLists.txt has version $build, debian/changelog $(package_version): make them one"
}

# The packages are in build/packages/ then, and nothing else.
dev_package() {
  local source=build/package/source
  ensure_packages run build package
  check_version
  rm -rf build/package build/packages
  mkdir -p "$source" build/packages
  git ls-files -z --cached --others --exclude-standard | tar --null -cT - | tar -xC "$source"
  (cd "$source" && DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" \
    dpkg-buildpackage --build=binary --no-sign) >build/package/log 2>&1 || {
    tail -30 build/package/log >&2
    die "the packages cannot be built; all of it is in build/package/log"
  }
  mv build/package/*.*deb build/packages/
  rm -rf "$source"
  # Nobody has a public address yet: the packages are for their owner's own machines.
  lintian --allow-root --fail-on error build/packages/*.deb \
    --suppress-tags bogus-mail-host,bogus-mail-host-in-debian-changelog
  ls -l build/packages
}
