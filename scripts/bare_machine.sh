#!/usr/bin/env bash
# bare_machine.sh RELEASE [COMMAND...]: what a newcomer meets. Makes a tree with nothing but the
# minimal system of Debian RELEASE (12 or 13), clones the last commit into it, runs `./dev COMMAND`
# there (default: run --demo) and removes it again. Every line of output carries the seconds since
# the clone. Needs root, for chroot and namespaces of its own; the network is the machine's.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/dev_say.sh

case ${1:-} in
  12 | bookworm) suite=bookworm ;;
  13 | trixie) suite=trixie ;;
  *) die "bare: name a release of Debian, 12 or 13" ;;
esac
shift
[[ $# -gt 0 ]] || set -- run --demo
[[ $EUID -eq 0 ]] || die "bare: only root can make such a tree"
[[ -z $(git status --porcelain) ]] || say "what is not committed is left out"

tree=$(mktemp -d /tmp/ot-bare.XXXXXX)
trap 'rm -rf --one-file-system "$tree"' EXIT
trap 'exit 130' INT TERM
say "a bare $suite in $tree"
mmdebstrap --variant=minbase --quiet "$suite" "$tree"

# stamped: puts the seconds since the script reached this before every line.
stamped() {
  local line start=$SECONDS
  while IFS= read -r line || [[ -n $line ]]; do
    printf '%5d  %s\n' $((SECONDS - start)) "$line"
  done
}

# inside TREE COMMAND...: in namespaces that end with it and take every process and mount along. The
# tree becomes the root of its mounts, not of the processes alone, since `ip netns` changes them.
inside() {
  # shellcheck disable=SC2016  # for the inner shell
  unshare --mount --pid --fork --kill-child bash -c '
    set -e
    mount --make-rprivate /
    mount --bind "$1" "$1"
    for folder in dev sys; do mount --rbind "/$folder" "$1/$folder"; done
    mount -t proc proc "$1/proc"
    mount -t tmpfs tmpfs "$1/run"
    mount -t tmpfs tmpfs "$1/dev/shm"
    cd "$1"
    shift
    pivot_root . mnt
    exec env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 TERM=dumb \
      chroot . sh -c "umount -l /mnt && exec \"\$@\"" sh "$@"' bare "$@" </dev/null
}

{
  git clone -q . "$tree/srv/object_tracking" &&
    inside "$tree" /srv/object_tracking/dev "$@"
} 2>&1 | stamped
