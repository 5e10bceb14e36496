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
    mmdebstrap --variant=minbase --quiet --format=tar "$1" "$archive.new"
    mv "$archive.new" "$archive"
  fi
  tar -xpf "$archive" -C "$2" --numeric-owner
}

# The packages that a tree needs to boot, and what ours depend on: a booted one has no network.
boot_packages=systemd-sysv,iproute2,python3,liblmdb0,libmnl0,libcurl4,libc-ares2,libncursesw6,procps

# boot_image SUITE: the file of that tree, another one for other packages.
boot_image() { echo "$PWD/build/trees/boot-$1-$(cksum <<<"$boot_packages" | cut -d " " -f 1).img"; }

# make_boot_image SUITE: a tree that boots, as an ext4 file system, kept below build/.
make_boot_image() {
  local image scratch
  image=$(boot_image "$1")
  [[ ! -s $image ]] || return 0
  mkdir -p build/trees
  scratch=$(mktemp -d /tmp/ot-boot.XXXXXX)
  # shellcheck disable=SC2016  # the tree is the hook's
  if mmdebstrap --variant=minbase --quiet --include="$boot_packages" --customize-hook='
    cd "$1" && rm -rf usr/share/doc/* usr/share/man/* usr/share/locale/* var/lib/apt/lists/* \
      var/cache/apt/*.bin etc/systemd/system/timers.target.wants
    tr -d - </proc/sys/kernel/random/uuid >etc/machine-id' "$1" "$scratch/tree" &&
    mkfs.ext4 -q -d "$scratch/tree" "$image.new" 1G >"$scratch/log"; then
    mv "$image.new" "$image"
  fi
  rm -rf --one-file-system "$scratch" "$image.new"
  [[ -s $image ]]
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
