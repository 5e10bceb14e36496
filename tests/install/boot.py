"""boot.py IMAGE FOLDER CONSOLE: boots a Debian tree, an ext4 image, in a virtual machine with the files
of FOLDER in /srv/install, and lets booted.sh run there. Shows what that says; the exit status is 0 when
it has said that it has passed. What kernel and systemd say goes to the file CONSOLE. The image stays as
it is. Needs no rights, no network and no accelerator."""

import pathlib
import subprocess
import sys
import tempfile
import threading

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = ROOT / "tests/install"
sys.path.insert(0, str(ROOT / "tests/vm"))

from guest import EMULATOR  # noqa: E402
from initramfs import Archive  # noqa: E402
from kernel import find_kernel  # noqa: E402

MODULES = ("virtio_pci", "virtio_blk", "veth")
UNIT = "install-test.service"
SECONDS = 900  # for all of it, on a busy machine; it takes two minutes on a quiet one
PASSED = "-- passed"


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


def emulator(image, kernel, initramfs, console):
    return [
        "setpriv", "--pdeathsig", "KILL",  # also when the test itself is killed
        EMULATOR, "-machine", "pc", "-accel", "tcg", "-cpu", "max", "-smp", "2", "-m", "768",
        "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot",
        "-drive", f"file={image},if=virtio,format=raw,snapshot=on",
        "-kernel", str(kernel.image), "-initrd", str(initramfs),
        "-append", "console=ttyS0 panic=-1 tsc=reliable mitigations=off systemd.show_status=yes "
                   f"systemd.unit={UNIT} systemd.mask=getty.target systemd.mask=e2scrub_reap.service",
        "-serial", f"file:{console}", "-serial", "stdio"]


def run(command):
    """Shows the machine's second serial port; the last line of it."""
    machine = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                               errors="replace")
    late = threading.Timer(SECONDS, machine.kill)
    late.start()
    last = ""
    try:
        for line in machine.stdout:
            last = line.rstrip()
            print(last, flush=True)
    finally:
        late.cancel()
        machine.kill()
        machine.wait()
    return last


def main():
    image, folder, console = map(pathlib.Path, sys.argv[1:])
    kernel = find_kernel(ROOT / "build/vm/kernel")
    with tempfile.TemporaryDirectory() as scratch:
        initramfs = pathlib.Path(scratch) / "initramfs"
        make_initramfs(kernel, folder, initramfs)
        last = run(emulator(image, kernel, initramfs, console))
    if last != PASSED:
        print(f"install test: the booted system has not passed; its console is in {console}",
              file=sys.stderr)
    return last != PASSED


if __name__ == "__main__":
    sys.exit(main())
