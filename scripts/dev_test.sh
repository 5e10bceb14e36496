# shellcheck shell=bash
# Testing: which programs there are, how each is run, and the record of each run from which
# scripts/test_summary.py computes the last line.

# preset|levels. A preset is built while the one before it is tested. The virtual machine runs one
# preset: its emulator makes instrumented programs crawl. The soak tests are run on their own. asan and
# tsan are built by clang, the second compiler, which takes half as long with sanitizers as g++. odr
# only merges what the programs are linked from, and thereby looks for one name that is defined twice.
test_plan=(
  "release|unit tools contract e2e vm install"
  "asan|unit tools contract e2e"
  "tsan|unit tools contract e2e"
  "odr|"
)

# level|program; "pytest" is the end-to-end suite, "pytest-soak" what of it takes long,
# "pytest-full-buffers" all of it where writing is refused more often than needed, "pytest-vm" the one in
# a virtual machine, "pytest-install" installs the packages, the others are GoogleTest programs.
test_programs=(
  "unit|unit_tests"
  "unit|kind_tests"
  "soak|soak_tests"
  "soak|pytest-soak"
  "soak|pytest-full-buffers"
  "tools|tools_tests"
  "tools|qmond_tests"
  "contract|contract_memory"
  "contract|contract_linux"
  "e2e|pytest"
  "vm|pytest-vm"
  "install|pytest-install"
)

# folder_of PROGRAM: where the tests of a pytest suite are, a folder or a file; nothing for a
# GoogleTest program.
folder_of() {
  case $1 in
    pytest | pytest-full-buffers) echo tests/e2e ;;
    pytest-soak) echo tests/e2e/test_probe_hostile.py ;;
    pytest-vm) echo tests/vm ;;
    pytest-install) echo tests/install ;;
  esac
}

# at_once PROGRAM: how a pytest suite is spread. End-to-end tests mostly wait, each for its own
# instance; each file of the other suite has a virtual machine, which takes a processor.
at_once() {
  case $1 in
    pytest | pytest-full-buffers) printf '%s ' -n 5 ;;
    pytest-vm) printf '%s ' -n 2 --dist loadfile ;;
  esac
}

# shards_of PROGRAM: in how many processes a GoogleTest program runs at once. The tests of the Linux
# platform mostly wait; these others compute for a minute or more.
shards_of() {
  case $1 in
    contract_linux) echo 5 ;;
    unit_tests | soak_tests) echo 2 ;;
    *) echo 1 ;;
  esac
}

# run_shards PROGRAM REPORT COMMAND...: runs a GoogleTest program; its exit status. The reports of
# the shards but the first stand beside REPORT.
run_shards() {
  local program=$1 report=$2 shards index status=0 pids=()
  shift 2
  shards=$(shards_of "$program")
  for ((index = 1; index < shards; index++)); do
    GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$index \
      "$@" --gtest_output="xml:${report%.xml}-$index.xml" &
    pids+=($!)
  done
  GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=0 "$@" --gtest_output="xml:$report" || status=$?
  for index in "${pids[@]}"; do
    wait "$index" || status=$?
  done
  return "$status"
}

# The thread sanitizer's runtime needs the old memory layout on newer kernels.
without_aslr() {
  if setarch -R true 2>/dev/null; then
    setarch -R "$@"
  else
    "$@"
  fi
}

# run_program PRESET PROGRAM RECORD [ARGS]: runs one program; appends "preset, program, exit
# status, report" to RECORD. Never fails itself: what went wrong stands in the record.
run_program() {
  local preset=$1 program=$2 record=$3 status=0 launcher=() setting="" report folder
  shift 3
  report=$PWD/build/$preset/reports/$program.xml
  mkdir -p "${report%/*}"
  rm -f "$report" "${report%.xml}"-[0-9].xml
  [[ $preset == tsan ]] && launcher=(without_aslr)
  case $program in # the arguments are for the GoogleTest program beside them
    pytest-soak) setting=OT_SECONDS=${OT_SECONDS:-30} ;;
    pytest-full-buffers) setting=OT_FULL_BUFFERS=${OT_FULL_BUFFERS:-$RANDOM} ;;
  esac
  if [[ -n $setting ]]; then
    launcher+=(env "$setting")
    set --
  fi
  say "$preset: $program${setting:+, $setting} (after $((SECONDS / 60)) min $((SECONDS % 60)) s)"
  folder=$(folder_of "$program")
  if [[ -n $folder ]]; then
    # shellcheck disable=SC2046  # a list of words
    OT_BUILD_DIR=$PWD/build/$preset "${launcher[@]}" /usr/bin/python3 -m pytest -q \
      -p no:cacheprovider $(at_once "$program") --junit-xml="$report" "$folder" "$@" || status=$?
  elif [[ -x build/$preset/bin/$program ]]; then
    run_shards "$program" "$report" "${launcher[@]}" "build/$preset/bin/$program" \
      --gtest_brief=1 "$@" || status=$?
  else
    status=127
    echo "build/$preset/bin/$program was not built" >&2
  fi
  printf '%s\t%s\t%s\t%s\n' "$preset" "$program" "$status" "$report" >>"$record"
}

# targets_of PRESET LEVEL...: what must be built.
targets_of() {
  local row level programs=() tests=()
  [[ $1 == odr ]] && return # its default: all programs of the product
  for level in "${@:2}"; do
    [[ $level == e2e || $level == soak || $level == vm ]] &&
      programs=(object_tracking trackctl trackpolicy qmond)
    [[ $level == vm ]] && tests+=(contract_linux ledger_put)
    [[ $level == install ]] && programs=("${package_targets[@]}")
    [[ $level == e2e || $level == soak ]] && tests+=(ledger_put route_storm library_client)
    [[ ($level == e2e || $level == soak) && $1 != *san ]] &&
      tests+=(write_log held_disk full_buffers)
    for row in "${test_programs[@]}"; do
      [[ $row == "$level|"* && -z $(folder_of "${row#*|}") ]] && tests+=("${row#*|}")
    done
  done
  printf '%s\n' "${programs[@]}" "${tests[@]}" | sort -u
}

# run_level PRESET LEVEL RECORD [ARGS]: the programs of one level. A sanitizer's runtime wants to be
# loaded first, where the library of full buffers would have to be.
run_level() {
  local row preset=$1 level=$2 record=$3
  shift 3
  for row in "${test_programs[@]}"; do
    [[ $row != "$level|"* || ($preset == *san && $row == *-full-buffers) ]] ||
      run_program "$preset" "${row#*|}" "$record" "$@"
  done
}

# build_each ROW...: builds the presets of a plan, one after the other, and prints the row, with the
# status of its build before it, when a preset is ready to be tested. But for the first one, that
# happens while others are tested, which go before; what it prints is then shown if it fails.
build_each() {
  local row preset status log
  for row in "$@"; do
    preset=${row%%|*}
    status=0
    log=/dev/stderr
    if [[ $row != "$1" ]]; then
      renice -n 10 -p "$BASHPID" >/dev/null || :
      log=build/$preset.log
    fi
    # shellcheck disable=SC2046,SC2086  # lists of words
    build_preset "$preset" $(targets_of "$preset" ${row#*|}) >>"$log" 2>&1 || status=$?
    [[ $status -eq 0 || $log == /dev/stderr ]] || cat "$log" >&2
    echo "$status|$row"
  done
}

# test_sets ROW...: the package sets for a plan.
test_sets() {
  local row
  for row in "$@"; do
    sets_of "${row%%|*}"
    [[ ${row#*|} != *e2e* && ${row#*|} != *soak* && ${row#*|} != *vm* ]] || echo e2e
    [[ ${row#*|} != *install* ]] || echo e2e package
  done
}

say_what_is_left_out() {
  [[ $EUID -eq 0 ]] && return
  say "not root: tests that need the rights of root on this machine skip themselves; the summary" \
    "names them with their reason"
}

dev_test() {
  local level="" preset record row status plan=("${test_plan[@]}")
  case ${1:-} in
    unit | soak | tools | contract | e2e | vm | install)
      level=$1
      plan=("debug|$level")
      [[ $level != soak && $level != install ]] || plan=("release|$level")
      shift
      ;;
  esac
  while [[ $# -gt 0 ]]; do
    case $1 in
      --preset) [[ $# -ge 2 ]] || die "--preset needs a name: debug, release, asan or tsan"
        plan=("$2|${level:-unit tools contract e2e}"); shift 2 ;;
      --release) [[ $# -ge 2 ]] || die "--release needs a release of Debian, 12 or 13"
        export OT_RELEASE=$2; shift 2 ;;
      --) shift; break ;;
      *) die "test: unknown word \"$1\" (unit, soak, tools, contract, e2e, vm, install, --preset P, --release 12|13, -- ARGS)" ;;
    esac
  done
  say_what_is_left_out
  # shellcheck disable=SC2046  # a list of words
  ensure_packages $(test_sets "${plan[@]}")
  mkdir -p build
  record=$(mktemp build/test-record.XXXXXX)
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
  while IFS='|' read -r status preset row <&3; do
    # A preset that does not build counts as a failure; the others are still tested.
    if [[ $status -ne 0 ]]; then
      printf '%s\tbuild\t1\t-\n' "$preset" >>"$record"
      continue
    fi
    for level in $row; do
      run_level "$preset" "$level" "$record" "$@"
    done
  done 3< <(rm -f build/*.log; build_each "${plan[@]}")
  status=0
  /usr/bin/python3 scripts/test_summary.py "$record" || status=$?
  rm -f "$record"
  return "$status"
}
