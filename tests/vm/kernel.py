"""The kernel of the small virtual machine: Debian's cloud kernel, downloaded and unpacked, never
installed.

It stays in build/vm/kernel, so a machine is asked for it once. Nothing of it runs outside the
virtual machine. Newer releases keep modules elsewhere and compressed.
"""

import fcntl
import lzma
import pathlib
import re
import shutil
import subprocess
import tempfile

META_PACKAGE = "linux-image-cloud-amd64"
# A module's name in the kernel's tree is also what `depends=` in another one calls it.
MODULES = ("vrf", "veth", "dummy", "8021q", "bonding")


class KernelUnavailable(Exception):
    pass


class Kernel:
    def __init__(self, folder):
        """An unpacked package."""
        self.image = next(folder.glob("boot/vmlinuz-*"))
        self._files = {path.name.split(".ko")[0]: path
                       for path in folder.glob("**/modules/*/kernel/**/*.ko*")}

    def modules(self, names=MODULES):
        """The modules' content by name, in the order in which they can be loaded."""
        ordered = {}
        for name in names:
            self._add(name, ordered)
        return ordered

    def _add(self, name, ordered):
        if name in ordered:
            return
        path = self._files[name]
        content = path.read_bytes()
        if path.suffix == ".xz":
            content = lzma.decompress(content)
        depends = re.search(rb"\0depends=([^\0]*)\0", content).group(1).decode()
        for needed in filter(None, depends.split(",")):
            # Some are called with a dash in one place and an underscore in the other.
            self._add(needed if needed in self._files else needed.replace("_", "-"), ordered)
        ordered[name] = content


def find_kernel(cache):
    """The kernel in the folder `cache`, which is filled at the first use, by one process."""
    cache.parent.mkdir(parents=True, exist_ok=True)
    with open(f"{cache}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        _fill(cache)
    return Kernel(cache)


def _fill(cache):
    if not cache.exists():
        with tempfile.TemporaryDirectory(dir=cache.parent) as scratch:
            unpacked = pathlib.Path(scratch) / "unpacked"
            _run("dpkg-deb", "-x", _download(scratch), str(unpacked))
            shutil.move(unpacked, cache)


def _download(folder):
    """The path of the package that the meta package stands for."""
    try:
        _run("apt-get", "download", "-qq", _kernel_package(), folder=folder)
    except KernelUnavailable:  # a fresh machine has no lists yet, an old one has old lists
        _run("apt-get", "update", "-qq")
        _run("apt-get", "download", "-qq", _kernel_package(), folder=folder)
    return next(str(path) for path in pathlib.Path(folder).glob("*.deb"))


def _kernel_package():
    listed = _run("apt-cache", "depends", "--important", META_PACKAGE)
    found = re.search(r"Depends: (linux-image-\S+)", listed)
    if found is None:
        raise KernelUnavailable(f"apt knows no {META_PACKAGE}")
    return found.group(1)


def _run(*command, folder=None):
    try:
        done = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True)
    except OSError as error:
        raise KernelUnavailable(f"{command[0]}: {error.strerror}") from error
    if done.returncode != 0:
        raise KernelUnavailable(f"{' '.join(command[:2])}: {done.stdout.strip()}")
    return done.stdout
