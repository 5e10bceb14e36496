# shellcheck shell=bash
# What ./dev itself has to say, apart from the output of what it runs.

say() { printf '== %s\n' "$*" >&2; }
die() {
  printf './dev: %s\n' "$*" >&2
  exit 1
}
