"""boot.py IMAGE FOLDER CONSOLE: boots a Debian tree, an ext4 image, in a virtual machine with the files
of FOLDER in /srv/install, and lets booted.sh run there, until that asks for a reboot and once more behind
it. Shows what it says; the exit status is 0 when it has said that it has passed. What kernel and systemd
say goes to the file CONSOLE. The image stays as it is. Needs no rights, no network and no accelerator."""

import pathlib
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = ROOT / "tests/install"
sys.path.insert(0, str(ROOT / "tests/vm"))

from guest import EMULATOR  # noqa: E402
from initramfs import Archive  # noqa: E402
from kernel import find_kernel  # noqa: E402

MODULES = ("virtio_pci", "virtio_blk", "veth")
UNIT = "install-test.service"
SECONDS = 900  # for all of it, on a busy machine; it takes two minutes on a quiet one
BOOTS = ("-- a reboot", "-- passed")  # the last word of each


def make_initramfs(kernel, folder, path):
    archive = Archive()
    for empty in ("bin", "dev", "proc", "tree"):
        archive.folder(empty)
    archive.copy(HERE / "init", "/init")
    archive.copy("/bin/busybox", "/bin/busybox")
    names = []
    for name, content in kernel.modules(MODULES).items():
        names.append(f"/modules.d/{name}.ko")
        archive.file(names[-1], content)
    archive.file("/modules", "\n".join(names).encode())
    archive.file(f"/added/etc/systemd/system/{UNIT}", (HERE / UNIT).read_bytes(), 0o644)
    for file in filter(pathlib.Path.is_file, sorted(folder.rglob("*"))):
        archive.copy(file, f"/added/srv/install/{file.relative_to(folder)}")
    archive.write(path)


def emulator(disk, kernel, initramfs, console):
    # The machine's kernel needs no modules of the tree, and Debian 13's minimum has nothing to load any.
    masks = ("getty.target", "e2scrub_reap.service", "systemd-modules-load.service")
    return [
        "setpriv", "--pdeathsig", "KILL",  # also when the test itself is killed
        EMULATOR, "-machine", "pc", "-accel", "tcg", "-cpu", "max", "-smp", "2", "-m", "768",
        "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot",
        "-drive", f"file={disk},if=virtio,format=raw,cache=unsafe",
        "-kernel", str(kernel.image), "-initrd", str(initramfs),
        "-append", "console=ttyS0 panic=-1 tsc=reliable mitigations=off systemd.show_status=yes "
                   f"systemd.unit={UNIT} {' '.join(f'systemd.mask={unit}' for unit in masks)}",
        "-chardev", f"file,id=console,path={console},append=on", "-serial", "chardev:console",
        "-serial", "stdio"]


def run(command, seconds):
    """Shows the machine's second serial port until it ends or the test has passed; the last line."""
    machine = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                               errors="replace")
    late = threading.Timer(seconds, machine.kill)
    late.start()
    last = ""
    try:
        for line in machine.stdout:
            last = line.rstrip()
            print(last, flush=True)
            if last == BOOTS[-1]:
                break
    finally:
        late.cancel()
        machine.kill()
        machine.wait()
    return last


def boots(image, folder, console, scratch):
    """Whether each boot of the same disk has said its last word."""
    kernel = find_kernel(ROOT / "build/vm/kernel")
    initramfs, disk = scratch / "initramfs", scratch / "disk"
    make_initramfs(kernel, folder, initramfs)
    subprocess.run(["cp", "--sparse=always", image, disk], check=True)
    console.unlink(missing_ok=True)
    end = time.monotonic() + SECONDS
    return all(run(emulator(disk, kernel, initramfs, console), end - time.monotonic()) == last
               for last in BOOTS)


def main():
    image, folder, console = map(pathlib.Path, sys.argv[1:])
    with tempfile.TemporaryDirectory() as scratch:
        passed = boots(image, folder, console, pathlib.Path(scratch))
    if not passed:
        print(f"install test: the booted system has not passed; its console is in {console}",
              file=sys.stderr)
    return not passed


if __name__ == "__main__":
    sys.exit(main())
