"""A program in the sandbox that its packaged unit makes: rights, groups, limits, system calls, address
families, what of /proc it sees. The service manager itself is not needed, and not there.

ProtectSystem=, the other file systems and IPAddressDeny= are left out: what a unit's test writes lies
below a prefix of its own.
"""

import functools
import json
import re
import subprocess

import pytest

from build_tree import SOURCE
from mounts import GROUP, GROUP_ID, Mounts, with_the_group
from users import NOBODY

# The last that is done before the program runs: the filters forbid some of what makes the rest.
APPLY_FILTERS = """
import json, os, sys
sys.path.insert(0, "/usr/lib/python3/dist-packages")
from seccomp import ALLOW, EQ, ERRNO, MASKED_EQ, Arg, SyscallFilter
wanted = json.loads(sys.argv[1])
calls = SyscallFilter(ERRNO(1))
for name in wanted["calls"]:
    try:
        calls.add_rule(ALLOW, name)
    except (RuntimeError, ValueError, OSError):
        pass  # of another architecture
others = SyscallFilter(ALLOW)
for family in range(46):
    if family not in wanted["families"]:
        others.add_rule(ERRNO(97), "socket", Arg(0, EQ, family))
others.add_rule(ERRNO(1), "mmap", Arg(2, MASKED_EQ, 6, 6))
others.add_rule(ERRNO(1), "mprotect", Arg(2, MASKED_EQ, 4, 4))
if wanted["no_realtime"]:
    for policy in (1, 2, 6):
        others.add_rule(ERRNO(1), "sched_setscheduler", Arg(1, EQ, policy))
others.load()
calls.load()
os.execv(sys.argv[2], sys.argv[2:])
"""
FAMILIES = {"AF_UNIX": 1, "AF_INET": 2, "AF_INET6": 10, "AF_NETLINK": 16}


def needs_filters():
    pytest.importorskip("seccomp", reason="python3-seccomp is not installed")
    if subprocess.run(["sh", "-c", "command -v systemd-analyze"],
                      stdout=subprocess.DEVNULL).returncode != 0:
        pytest.skip("systemd-analyze, which knows the sets of system calls, is not installed")


@functools.cache
def call_sets():
    """The sets of system calls that units name: "@privileged" to its members."""
    text = subprocess.run(["systemd-analyze", "syscall-filter", "--no-pager"], check=True,
                          stdout=subprocess.PIPE, text=True).stdout
    sets = {}
    for line in text.splitlines():
        if line.startswith("@"):
            sets[line.strip()] = members = []
        elif line.startswith("    ") and not line.strip().startswith("#"):
            members.append(line.strip())
    return sets


def calls_of(names):
    """The system calls of a list of names and sets."""
    found = set()
    for name in names:
        found |= calls_of(call_sets()[name]) if name.startswith("@") else {name}
    return found


class Unit:
    """The [Service] of a unit below packaging/, with drop-ins read after it."""

    def __init__(self, name, *dropins):
        self._settings = {}
        for path in (SOURCE / "packaging" / name, *dropins):
            section = path.read_text().split("[Service]\n")[1].split("\n[")[0]
            for key, value in re.findall(r"^(\w+)=(.*)$", section, re.M):
                if value == "":
                    self._settings[key] = []
                self._settings.setdefault(key, []).append(value)

    def words(self, key):
        return " ".join(self._settings.get(key, [])).split()

    def last(self, key):
        return self._settings.get(key, [""])[-1]

    def calls(self):
        """The system calls that its program may use: lists that allow, less those that begin with ~."""
        allowed = calls_of(["@default"])
        for line in self._settings["SystemCallFilter"]:
            if line.startswith("~"):
                allowed -= calls_of(line[1:].split())
            else:
                allowed |= calls_of(line.split())
        return sorted(allowed)


class Sandbox:
    """The namespace of an instance, for a program of a unit. `user` is the one of a unit that is not
    root's, whatever its name there: this machine need not have it."""

    def __init__(self, service, unit, user=0):
        # Not a sandbox in the sandbox of another of the instance's programs.
        self.outside = getattr(service.net, "outside", service.net)
        self._unit, self._user = unit, user
        self._mounts = Mounts(self.outside, *with_the_group(service), *self._proc(), *self._limits())

    def __getattr__(self, name):
        return getattr(self.outside, name)

    def _proc(self):
        if self._unit.last("ProtectProc") == "invisible":
            yield "mount -t proc -o hidepid=invisible proc /proc"
        if self._unit.last("ProtectKernelTunables") == "yes":
            yield "mount --bind -o ro /proc/sys /proc/sys"

    def _limits(self):
        for key, option in (("LimitNOFILE", "nofile"), ("LimitRTPRIO", "rtprio")):
            if self._unit.last(key):
                # Some containers raise no limits; their kernel's are what there is then.
                yield f"prlimit --pid $$ --{option}={self._unit.last(key)} 2>/dev/null || :"

    def _rights(self):
        names = [name.removeprefix("CAP_").lower()
                 for name in self._unit.words("CapabilityBoundingSet")]
        rights = ",".join(["-all", *(f"+{name}" for name in names)])
        group = GROUP_ID if self._unit.last("Group") == GROUP else NOBODY
        others = ["0"] if "root" in self._unit.words("SupplementaryGroups") else []
        as_user = ["--reuid", str(self._user)] if self._user else []
        ambient = [f"--{kind}-caps={rights}" for kind in ("inh", "ambient")
                   if self._unit.words("AmbientCapabilities")]
        return ["setpriv", f"--bounding-set={rights}", "--no-new-privs", *as_user, "--regid",
                str(group), *(["--groups", *others] if others else ["--clear-groups"]), *ambient]

    def command(self):
        families = [FAMILIES[name] for name in self._unit.words("RestrictAddressFamilies")]
        wanted = {"calls": self._unit.calls(), "families": families,
                  "no_realtime": self._unit.last("RestrictRealtime") == "yes"}
        return [*self._mounts.command(), *self._rights(), "/usr/bin/python3", "-c", APPLY_FILTERS,
                json.dumps(wanted)]


def rights_of(pid):
    """What the kernel says a process may: the fields of its status that tell so."""
    with open(f"/proc/{pid}/status") as stream:
        fields = dict(line.rstrip("\n").split(":\t", 1) for line in stream if ":\t" in line)
    return {"uid": int(fields["Uid"].split()[1]), "gid": int(fields["Gid"].split()[1]),
            "bounding": int(fields["CapBnd"], 16), "effective": int(fields["CapEff"], 16),
            "no_new_privileges": fields["NoNewPrivs"] == "1",
            "filters": int(fields["Seccomp_filters"])}
