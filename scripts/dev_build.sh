# shellcheck shell=bash
# Building: one CMake preset, in build/PRESET.

# build_preset PRESET [TARGET...]: configures where needed and builds (all targets when none given).
build_preset() {
  local preset=$1 target_args=()
  shift
  [[ $# -gt 0 ]] && target_args=(--target "$@")
  ensure_packages
  say "building $preset${*:+ ($*)}"
  if [[ ! -f build/$preset/build.ninja ]]; then
    cmake --preset "$preset" >/dev/null || return
  fi
  cmake --build --preset "$preset" "${target_args[@]}"
}

dev_build() {
  build_preset "${1:-release}" "${@:2}"
}
