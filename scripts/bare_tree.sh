# shellcheck shell=bash
# Trees with nothing but the minimal system of a release of Debian, and running programs in them. Needs
# root, for chroot and namespaces of its own; the network is the machine's.

# suite_of RELEASE: the name of a release by its number or name.
suite_of() {
  case $1 in
    12 | bookworm) echo bookworm ;;
    13 | trixie) echo trixie ;;
    *) die "name a release of Debian, 12 or 13" ;;
  esac
}

# make_bare_tree SUITE FOLDER: what was fetched once is kept below build/.
make_bare_tree() {
  local archive=build/trees/minbase-$1.tar
  if [[ ! -s $archive ]]; then
    mkdir -p build/trees
    mmdebstrap --variant=minbase --quiet "$1" "$archive.new"
    mv "$archive.new" "$archive"
  fi
  tar -xpf "$archive" -C "$2" --numeric-owner
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
