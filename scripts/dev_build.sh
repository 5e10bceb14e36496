# shellcheck shell=bash
# Building: one CMake preset, in build/PRESET.

# sets_of PRESET: the package sets that its build needs.
sets_of() {
  case $1 in
    run) echo run ;;
    asan | fuzz) echo run build clang ;;
    bench | lint) echo run build bench ;;
    *) echo run build ;;
  esac
}

# configure_preset PRESET: where that was not done yet, or before the presets changed. The preset
# "bench" adds to the folder of another.
configure_preset() {
  local rules=build/$1/build.ninja
  if [[ ! -f $rules || CMakePresets.json -nt $rules ]]; then
    cmake --preset "$1" >/dev/null
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
