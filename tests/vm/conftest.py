"""Fixtures of the tests in a small virtual machine, for what many a machine's own kernel lacks: VRF
devices, bonds, VLANs. The emulator needs neither the rights of root nor an accelerator.

One machine serves the tests of a file; each test has a network namespace and an instance in it.
"""

import pathlib
import platform
import shutil
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))

from build_tree import SOURCE, BuildTree  # noqa: E402
from guest import EMULATOR, Guest  # noqa: E402
from guest_service import GuestService  # noqa: E402
from initramfs import Archive  # noqa: E402
from kernel import KernelUnavailable, find_kernel  # noqa: E402

PROGRAMS = ("object_tracking", "trackctl", "qmond", "trackpolicy", "contract_linux", "ledger_put")
# Found in a folder beside the programs' own; the last two by name, when they are needed.
LIBRARIES = ("libledger.so", "libqmon_infra.dll", "libqmon_infra_comp.dll")
BUSYBOX = "/bin/busybox"


@pytest.fixture(scope="session")
def kernel():
    if platform.machine() != "x86_64":
        pytest.skip(f"the virtual machine's kernel is for x86_64, not {platform.machine()}")
    for program in (EMULATOR, BUSYBOX):
        if shutil.which(program) is None:
            pytest.skip(f"{program} is not installed")
    try:
        return find_kernel(SOURCE / "build/vm/kernel")
    except KernelUnavailable as error:
        pytest.skip(f"no kernel for the virtual machine: {error}")


@pytest.fixture(scope="session")
def initramfs(kernel, tmp_path_factory):
    build = BuildTree()
    missing = build.missing(*PROGRAMS)
    assert not missing, f"{build.path} lacks {', '.join(missing)}: build it first"
    archive = Archive()
    for folder in ("dev", "proc", "sys", "run", "tmp", "etc"):
        archive.folder(folder)
    archive.copy(HERE / "init", "/init")
    archive.copy(BUSYBOX, "/bin/busybox")
    archive.program("/bin/sh")  # busybox's own prefers its own `ip`
    archive.program(shutil.which("ip"), "/usr/sbin/ip")
    for program in PROGRAMS:
        archive.program(build.path / "bin" / program, f"/usr/bin/{program}")
    for library in LIBRARIES:
        archive.program(build.path / "pkg/lib" / library, f"/usr/pkg/lib/{library}")
    names = []
    for name, content in kernel.modules().items():
        names.append(f"/modules.d/{name}.ko")
        archive.file(names[-1], content)
    archive.file("/modules", "\n".join(names).encode())
    path = tmp_path_factory.mktemp("vm") / "initramfs"
    archive.write(path)
    return path


@pytest.fixture(scope="module")
def guest(kernel, initramfs):
    machine = Guest(kernel.image, initramfs, str(initramfs.parent / "console"))
    yield machine
    machine.close()


@pytest.fixture
def service(guest):
    instance = GuestService(guest)
    yield instance
    instance.close()
