"""The Debian packages in systems with nothing but Debian's minimum: a tree in which nothing boots, and
a booted one in a virtual machine. OT_RELEASE names the release of Debian, else it is this machine's.

The packages are made of the release build, so for this machine's release they cost half a minute; for
another one they are built from nothing, in a tree of that release.
"""

import os
import pathlib
import platform
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
NEEDED = ("mmdebstrap", "dpkg-buildpackage", "mkfs.ext4", "qemu-system-x86_64", "busybox")
LIMIT = "1800"  # seconds; three minutes do, but for a build from nothing


@pytest.fixture
def release():
    if os.geteuid() != 0:
        pytest.skip("needs root: a bare system is made with chroot")
    if platform.machine() != "x86_64":
        pytest.skip(f"the virtual machine's kernel is for x86_64, not {platform.machine()}")
    missing = [name for name in NEEDED if shutil.which(name) is None]
    if missing:
        pytest.skip(f"not installed: {', '.join(missing)}")
    return [os.environ["OT_RELEASE"]] if "OT_RELEASE" in os.environ else []


def run(*command):
    # It ends what they have started, too.
    subprocess.run(["timeout", "--kill-after=20", LIMIT, *command], cwd=ROOT, check=True,
                   stdin=subprocess.DEVNULL)


def test_the_packages_install_run_upgrade_and_leave_nothing(release):
    run("./dev", "package", *(["--release"] if release else []), *release)
    run("scripts/install_test.sh", *release)
