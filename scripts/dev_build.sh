# shellcheck shell=bash
# Building: one CMake preset, in build/PRESET.

# sets_of PRESET: the package sets that its build needs.
sets_of() {
  case $1 in
    run) echo run ;;
    asan | tsan | fuzz) echo run build clang ;;
    bench | lint) echo run build bench ;;
    *) echo run build ;;
  esac
}

# package_settings: how Debian's packages are built, as words for cmake. A release is built so too:
# what is tested is what the packages have. Line by line what debhelper would say.
package_settings() {
  local flags=(env DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get) libraries units
  libraries=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  units=$(pkg-config --variable=systemdsystemunitdir systemd 2>/dev/null) || units=lib/systemd/system
  printf '%s\n' -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_SYSCONFDIR=/etc \
    -DCMAKE_INSTALL_LOCALSTATEDIR=/var "-DCMAKE_INSTALL_LIBDIR=lib/$libraries" "-DOT_UNIT_DIR=$units" \
    "-DCMAKE_CXX_FLAGS=$("${flags[@]}" CXXFLAGS) $("${flags[@]}" CPPFLAGS)" \
    "-DCMAKE_EXE_LINKER_FLAGS=$("${flags[@]}" LDFLAGS)" \
    "-DCMAKE_SHARED_LINKER_FLAGS=$("${flags[@]}" LDFLAGS)"
}

# configure_preset PRESET: where that was not done yet, or before the presets changed; then from the
# beginning, since a cache does not survive another compiler. The preset "bench" adds to the folder of
# another.
configure_preset() {
  local rules=build/$1/build.ninja settings=()
  if [[ ! -f $rules || CMakePresets.json -nt $rules ]]; then
    case $1 in
      release | bench) mapfile -t settings < <(package_settings) ;;
    esac
    [[ ! -f $rules ]] || settings+=(--fresh)
    cmake --preset "$1" "${settings[@]}" >/dev/null
  fi
}

# build_preset PRESET [TARGET...]: configures where needed and builds (all targets when none given).
build_preset() {
  local preset=$1 target_args=()
  shift
  [[ $# -gt 0 ]] && target_args=(--target "$@")
  # shellcheck disable=SC2046  # a list of words
  ensure_packages $(sets_of "$preset")
  say "building $preset${*:+ ($*)}"
  configure_preset "$preset" || return
  cmake --build --preset "$preset" "${target_args[@]}"
}

dev_build() {
  build_preset "${1:-release}" "${@:2}"
}
