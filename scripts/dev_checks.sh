# shellcheck shell=bash
# Checks that need no test run: formatting, headers that compile alone, clang-tidy, and fuzzing.

source_files() { git ls-files --cached --others --exclude-standard -- "*.$1"; }

# The release's own formatter has the last word where it is run: versions of it differ in small things.
dev_format() {
  ensure_packages lint
  { source_files h; source_files cpp; } | xargs clang-format -i
}

# Every header includes what it uses.
check_headers() {
  source_files h | xargs -P "$(nproc)" -I{} sh -c \
    'echo "#include \"{}\"" | g++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I. -x c++ -'
}

dev_lint() {
  local failed=0 files=("$@")
  # shellcheck disable=SC2046  # a list of words
  ensure_packages lint $(sets_of lint)
  say "$(clang-format --version)"
  { source_files h; source_files cpp; } | xargs clang-format --dry-run -Werror || failed=1
  say "headers alone"
  check_headers || failed=1
  say "includes run downwards"
  scripts/check_includes || failed=1
  say "standard headers"
  scripts/check_standard_headers || failed=1
  say "shellcheck"
  shellcheck -x dev scripts/*.sh scripts/merge_for_odr tests/install/*.sh .ci/run packaging/*.bash-completion || failed=1
  say "clang-tidy"
  configure_preset lint # no precompiled headers: clang cannot read those of g++
  if [[ ${#files[@]} -eq 0 ]]; then
    mapfile -t files < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' \
      build/lint/compile_commands.json | sort -u)
  fi
  printf '%s\0' "${files[@]}" |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/lint --quiet 2>/dev/null || failed=1
  return "$failed"
}

# One libFuzzer program for each tests/fuzz/*.cpp; findings stay in build/fuzz/findings/.
dev_fuzz() {
  local seconds=${1:-60} program name failed=0
  build_preset fuzz
  for program in build/fuzz/bin/*_fuzz; do
    [[ -x $program ]] || die "there is no fuzz program in build/fuzz/bin"
    name=${program##*/}
    mkdir -p "build/fuzz/corpus/$name" build/fuzz/findings
    say "$name for $seconds s"
    "$program" -max_total_time="$seconds" -print_final_stats=1 -timeout=5 \
      -artifact_prefix="build/fuzz/findings/$name-" "build/fuzz/corpus/$name" || failed=1
  done
  return "$failed"
}

dev_bench() {
  build_preset bench
  if [[ ! -x bench/run ]]; then
    die "bench/run is missing"
  fi
  OT_BUILD_DIR=$PWD/build/release bench/run "$@"
}

dev_bare() { scripts/bare_machine.sh "$@"; }
