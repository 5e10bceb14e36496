"""The releases of FRR that the tests run: the machine's own, and that of Debian 13 from a tree with
nothing else in it, which is made once and kept in build/trees."""

import fcntl
import functools
import grp
import os
import pwd
import shutil
import subprocess

from build_tree import SOURCE

PROGRAMS = "/usr/lib/frr"
TREE = SOURCE / "build/trees/trixie-frr"


class Machine:
    """What is installed here."""

    def command(self):
        """The start of an argument vector that runs one of its programs."""
        return []

    def outside(self, path):
        """Where this machine finds what the programs call `path`."""
        return path

    def owner(self):
        """The user and the group that the programs run as."""
        return pwd.getpwnam("frr").pw_uid, grp.getgrnam("frr").gr_gid

    def has(self, program):
        return os.path.exists(self.outside(f"{PROGRAMS}/{program}"))

    def takes(self, program, option):
        """Whether the program has that option."""
        assert self.has(program), "the package frr is not installed"
        return option in subprocess.run([*self.command(), f"{PROGRAMS}/{program}", "--help"],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        text=True).stdout

    def has_control_socket(self):
        """Whether its bfdd has the socket that is older than the shell's."""
        return self.takes("bfdd", "--bfdctl")


class Tree(Machine):
    """What is installed in a tree."""

    def command(self):
        return ["chroot", str(TREE)]

    def outside(self, path):
        return f"{TREE}{path}"

    def owner(self):
        with open(TREE / "etc/passwd", encoding="ascii") as users:
            rows = [line.split(":") for line in users]
        [numbers] = [(int(row[2]), int(row[3])) for row in rows if row[0] == "frr"]
        return numbers


def make_tree():
    """Why it could not be made; an empty text when it is there."""
    TREE.parent.mkdir(parents=True, exist_ok=True)
    with open(TREE.with_suffix(".lock"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # tests run side by side
        if TREE.exists():
            return ""
        if os.geteuid() != 0 or shutil.which("mmdebstrap") is None:
            return "a tree of Debian 13 takes root and the package mmdebstrap"
        part = TREE.with_suffix(".part")
        shutil.rmtree(part, ignore_errors=True)
        made = subprocess.run(["mmdebstrap", "--variant=minbase", "--quiet", "--include=frr",
                               "trixie", str(part)], stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        if made.returncode != 0:
            shutil.rmtree(part, ignore_errors=True)
            return f"no tree of Debian 13: {(made.stderr.splitlines() or ['?'])[-1]}"
        part.rename(TREE)
        return ""


@functools.cache
def debian13():
    """Its FRR, and why there is none."""
    reason = make_tree()
    return (None, reason) if reason else (Tree(), "")


MACHINE = Machine()
