# shellcheck shell=bash
# Testing: which programs there are, how each is run, and the record of each run from which
# scripts/test_summary.py computes the last line.

# preset|level. The virtual machine runs one preset: its emulator makes instrumented programs crawl.
# clang is there for the second compiler's warnings and code: it builds the programs, and runs what
# shows most of the platform for the least building.
test_plan=(
  "release|all"
  "release|vm"
  "asan|all"
  "tsan|all"
  "clang|contract"
)

# level|program; "pytest" is the end-to-end suite, "pytest-vm" the one in a virtual machine, the
# others are GoogleTest programs. "all" stands for every level but "vm".
test_programs=(
  "unit|unit_tests"
  "unit|kind_tests"
  "tools|tools_tests"
  "tools|qmond_tests"
  "contract|contract_memory"
  "contract|contract_linux"
  "e2e|pytest"
  "vm|pytest-vm"
)

# folder_of PROGRAM: where the tests of a pytest suite are; nothing for a GoogleTest program.
folder_of() {
  case $1 in
    pytest) echo tests/e2e ;;
    pytest-vm) echo tests/vm ;;
  esac
}

# at_once PROGRAM: how a pytest suite is spread. End-to-end tests mostly wait, each for its own
# instance; each file of the other suite has a virtual machine, which takes a processor.
at_once() {
  case $1 in
    pytest) printf '%s ' -n 4 ;;
    pytest-vm) printf '%s ' -n 2 --dist loadfile ;;
  esac
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
  local preset=$1 program=$2 record=$3 status=0 launcher=() report folder
  shift 3
  report=$PWD/build/$preset/reports/$program.xml
  mkdir -p "${report%/*}"
  rm -f "$report"
  [[ $preset == tsan ]] && launcher=(without_aslr)
  say "$preset: $program"
  folder=$(folder_of "$program")
  if [[ -n $folder ]]; then
    # shellcheck disable=SC2046  # a list of words
    OT_BUILD_DIR=$PWD/build/$preset "${launcher[@]}" /usr/bin/python3 -m pytest -q \
      -p no:cacheprovider $(at_once "$program") --junit-xml="$report" "$folder" "$@" || status=$?
  elif [[ -x build/$preset/bin/$program ]]; then
    "${launcher[@]}" "build/$preset/bin/$program" --gtest_brief=1 --gtest_output="xml:$report" \
      "$@" || status=$?
  else
    status=127
    echo "build/$preset/bin/$program was not built" >&2
  fi
  printf '%s\t%s\t%s\t%s\n' "$preset" "$program" "$status" "$report" >>"$record"
}

# targets_of LEVEL PRESET: what must be built; nothing stands for everything.
targets_of() {
  local row
  [[ $1 == all || $1 == e2e ]] && return
  if [[ $2 == clang || $1 == vm ]]; then
    echo object_tracking trackctl qmond contract_linux
  fi
  for row in "${test_programs[@]}"; do
    [[ $row == "$1|"* && -z $(folder_of "${row#*|}") ]] && echo "${row#*|}"
  done
}

# run_level PRESET LEVEL RECORD [ARGS]: the programs of one level, or of "all".
run_level() {
  local row its preset=$1 level=$2 record=$3
  shift 3
  for row in "${test_programs[@]}"; do
    its=${row%%|*}
    if [[ $level == "$its" || ($level == all && $its != vm) ]]; then
      run_program "$preset" "${row#*|}" "$record" "$@"
    fi
  done
}

say_what_is_left_out() {
  [[ $EUID -eq 0 ]] && return
  say "not root: tests that need the rights of root on this machine skip themselves; the summary" \
    "names them with their reason"
}

dev_test() {
  local level="" preset record row plan=("${test_plan[@]}")
  case ${1:-} in
    unit | tools | contract | e2e | vm)
      level=$1
      plan=("debug|$level")
      shift
      ;;
  esac
  while [[ $# -gt 0 ]]; do
    case $1 in
      --preset) [[ $# -ge 2 ]] || die "--preset needs a name: debug, release, asan or tsan"
        plan=("$2|${level:-all}"); shift 2 ;;
      --) shift; break ;;
      *) die "test: unknown word \"$1\" (unit, contract, tools, e2e, vm, --preset P, -- ARGS)" ;;
    esac
  done
  say_what_is_left_out
  mkdir -p build
  record=$(mktemp build/test-record.XXXXXX)
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
  for row in "${plan[@]}"; do
    preset=${row%%|*}
    level=${row#*|}
    # A preset that does not build counts as a failure; the others are still told apart.
    # shellcheck disable=SC2046  # a list of words
    if build_preset "$preset" $(targets_of "$level" "$preset"); then
      run_level "$preset" "$level" "$record" "$@"
    else
      printf '%s\tbuild\t1\t-\n' "$preset" >>"$record"
    fi
  done
  local status=0
  /usr/bin/python3 scripts/test_summary.py "$record" || status=$?
  rm -f "$record"
  return "$status"
}
