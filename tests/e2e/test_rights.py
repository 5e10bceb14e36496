"""Who may do what: root, the members of the service's group, the user of probe commands."""

import fcntl
import os
import shutil
import stat
import subprocess

import pytest

from build_tree import SOURCE
from mounts import GROUP_ID, Mounts, with_the_group
from probe_fixtures import qmond  # noqa: F401  (a fixture)
from qmond import Qmond
from raw_client import READ_ONLY
from test_faults import refusal
from users import (NOBODY, OPERATOR, STRANGER, files_in, needs_readable_build, prefix, run_python,
                   start_with_the_group)
from waiting import wait_until

FOLDERS = ("run/object_tracking", "var/lib/object_tracking")
STATE = "/oper/gl/object-tracking/office"


@pytest.fixture
def office(new_service):
    """An instance whose group exists, with a track that is up."""
    service = new_service()
    start_with_the_group(service)
    service.net.link("lan0")
    service.ctl("set", "office", "interface", "lan0")
    service.wait_state("office", "up")
    return service


def socket_path(service):
    return os.path.join(service.root, "run/object_tracking/ledger.sock")


def test_an_operator_operates(office):
    needs_readable_build(office.build)
    for arguments in (["set", "mine", "interface", "lan0"], ["state", "mine"], ["show"],
                      ["debug", "detail", "on"], ["debug", "detail", "off"], ["delete", "mine"]):
        result = office.run("trackctl", *arguments, prefix=prefix(OPERATOR))
        assert result.returncode == 0, (arguments, result.stderr)


FORGERY = """
ledger = Ledger(sys.argv[1]).greet()
path = text(sys.argv[2])
say([ledger.call("Set", path + u32_value(2)), ledger.call("Delete", path),
     ledger.call("Set", path + text("x") + u32_value(2)),
     ledger.call("Set", text("/cfg/gl/object_tracking/track/x/a") + u32_value(1)),
     ledger.call("Set", text("/debug/track/detail") + u32_value(0)),
     ledger.call("Get", path)])
"""
ANSWERS = [READ_ONLY, READ_ONLY, 0x40820e00, 22, 0, 0]


@pytest.mark.parametrize("user", [OPERATOR, {}], ids=["operator", "root"])
def test_published_states_are_written_by_the_service_alone(office, user):
    assert run_python(user, FORGERY, socket_path(office), STATE) == ANSWERS
    assert office.state("office") == "up"
    assert office.show("office") != office.show("nobody")


# What a user gets at: names of files that can be opened, locked, and of sockets that can be
# connected to.
REACH = """
found = []
for folder in sys.argv[1:]:
    try:
        names = [".", *os.listdir(folder)]
    except OSError:
        names = [".", "ledger.lock", "ledger.sock", "events.sock", "operational.mdb", "start_count",
                 "operational.mdb-lock", "configuration.mdb", "configuration.mdb-lock",
                 "configuration.copy"]
    for name in names:
        path = os.path.join(folder, name)
        for kind in (socket.SOCK_STREAM, socket.SOCK_SEQPACKET, socket.SOCK_DGRAM):
            try:
                socket.socket(socket.AF_UNIX, kind).connect(path)
                found.append("connect " + name)
            except OSError:
                pass
        for flags in (os.O_RDONLY, os.O_WRONLY, os.O_RDWR):
            try:
                fcntl.flock(os.open(path, flags), fcntl.LOCK_EX | fcntl.LOCK_NB)
                found.append(f"open {name}")
            except OSError:
                pass
say(sorted(found))
"""


@pytest.mark.parametrize("user, reached", [
    # The folder itself can be read, since it holds the sockets.
    (OPERATOR, ["connect events.sock", "connect ledger.sock", "open ."]),
    (STRANGER, []),
], ids=["operator", "stranger"])
def test_every_socket_and_file_is_tried(office, user, reached):
    folders = [os.path.join(office.root, folder) for folder in FOLDERS]
    assert run_python(user, REACH, *folders) == reached


def test_only_the_owner_reaches_the_files(office):
    for folder in FOLDERS:
        for name, state in files_in(os.path.join(office.root, folder)):
            rights = 0o660 if stat.S_ISSOCK(state.st_mode) else 0o600
            assert stat.S_IMODE(state.st_mode) == rights, name


# --- Probe commands ------------------------------------------------------------------------------

ATTEMPT = """#!/bin/sh
exec > {report} 2>&1
id -u; id -G
echo /proc/$$/fd/*
export OT_ROOT={root} OT_PKG_ROOT={build}
{build}/bin/trackctl delete office; echo $?
"""


def test_probe_commands_can_configure_nothing(office):
    needs_readable_build(office.build)
    probes = Qmond(office)
    report = os.path.join(office.root, "report")
    script = os.path.join(office.root, "attempt")
    with open(report, "w"), open(script, "w") as stream:
        stream.write(ATTEMPT.format(report=report, root=office.root, build=office.build.path))
    os.chmod(report, 0o666)
    os.chmod(script, 0o755)
    folder = os.path.join(office.root, "run/qmond")
    os.makedirs(folder, mode=0o750)
    os.chown(folder, NOBODY, NOBODY)
    probes.configure({"id": 1, "kind": "command", "command": [script], "interval": "500ms",
                      "timeout": "450ms"})
    # Started with a descriptor that nobody was meant to inherit.
    with open("/dev/null") as stream:
        inherited = fcntl.fcntl(stream, fcntl.F_DUPFD, 200)
    environment = {**office.build.environment(office.root)}
    process = subprocess.Popen([*office.net.command(), *prefix(STRANGER),
                                *office.build.command("qmond")],
                               env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               close_fds=False)
    try:
        def reported():
            with open(report) as stream:
                lines = stream.read().splitlines()
            return lines if len(lines) == 5 else None
        lines = wait_until(reported, office.build.patience, "the command's report")
    finally:
        process.terminate()
        process.wait()
        os.close(inherited)
    assert lines[:2] == [str(NOBODY), str(NOBODY)]
    # Its own three, the shell's copy of the script, and the folder that it reads.
    assert {os.path.basename(path) for path in lines[2].split()} <= {"0", "1", "2", "3", "10"}
    assert "Permission denied" in lines[3]
    assert lines[4] == "1"
    assert office.state("office") == "up"


class AsMember:
    """The namespace of an instance, for a process of a user in the service's group."""

    def __init__(self, service):
        self._net = service.net
        self._mounts = Mounts(service.net, *with_the_group(service))

    def __getattr__(self, name):
        return getattr(self._net, name)

    def command(self):
        return [*self._mounts.command(), *prefix(OPERATOR)]


def test_every_table_of_the_probe_service_is_for_the_service_s_group(new_service):
    """Also the one that takes the place of a table that has become too small."""
    service = new_service()
    needs_readable_build(service.build)
    os.chmod(service.root, 0o755)
    probes = Qmond(service)
    for folder in ("run", "run/qmond"):
        path = os.path.join(service.root, folder)
        os.makedirs(path, mode=0o755, exist_ok=True)
    os.chown(path, NOBODY, NOBODY)
    command = {"kind": "command", "command": ["/bin/true"]}
    probes.configure({"id": 1, **command})
    service.net = AsMember(service)
    before = os.umask(0)  # so that it may say that it is ready
    try:
        probes.start()
    finally:
        os.umask(before)
    try:
        table = os.path.join(path, "statistics")
        first = os.stat(table)
        assert (first.st_gid, first.st_mode & 0o777) == (GROUP_ID, 0o640)
        probes.configure(*({"id": 1 + n, **command} for n in range(200)))
        assert "199 operations added" in probes.reload()
        now = os.stat(table)
        assert now.st_ino != first.st_ino
        assert (now.st_gid, now.st_mode & 0o777) == (GROUP_ID, 0o640)
    finally:
        probes.close()


def test_the_packaged_probe_user_is_in_no_group_of_ours():
    sysusers = (SOURCE / "packaging/qmond.sysusers").read_text()
    unit = (SOURCE / "packaging/qmond.service").read_text()
    assert "object_tracking" not in [word for line in sysusers.splitlines()
                                     if not line.startswith("#") for word in line.split()]
    assert "\nUser=qmond\n" in unit and "\nGroup=qmond\n" in unit


# --- Places that others have made ----------------------------------------------------------------

PLACES = {
    "a symbolic link": (lambda path: (os.rename(path, path + ".away"),
                                      os.symlink(path + ".away", path)),
                        "it is a symbolic link"),
    "a stranger's": (lambda path: os.chown(path, NOBODY, NOBODY),
                     f"it belongs to user {NOBODY}; it must belong to user 0"),
    "open to all": (lambda path: os.chmod(path, 0o777), "others may write to it"),
    "a file": (lambda path: (shutil.rmtree(path), open(path, "w").close()), "it is no directory"),
}


@pytest.mark.parametrize("folder", FOLDERS)
@pytest.mark.parametrize("change", PLACES)
def test_a_folder_of_somebody_else_is_refused(service, folder, change):
    service.stop()
    path = os.path.join(service.root, folder)
    spoil, reason = PLACES[change]
    spoil(path)
    assert f"{path}: {reason}" in refusal(service)


@pytest.mark.parametrize("folder", ["run", "var", "var/lib"])
def test_a_folder_above_that_others_may_change_is_refused(service, folder):
    service.stop()
    path = os.path.join(service.root, folder)
    os.chmod(path, 0o777)
    assert f"{path}: others may write to it" in refusal(service)
    os.chmod(path, 0o1777)
    service.start()


def test_the_lock_is_never_taken_through_a_link(service):
    service.stop()
    path = os.path.join(service.root, "run/object_tracking/ledger.lock")
    target = os.path.join(service.root, "precious")
    with open(target, "w") as stream:
        stream.write("precious")
    os.unlink(path)
    os.symlink(target, path)
    assert f"{path}: it is a symbolic link" in refusal(service)
    with open(target) as stream:
        assert stream.read() == "precious"


def test_the_environment_counts_for_nothing_in_a_program_with_more_rights(office, tmp_path):
    needs_readable_build(office.build)
    program = tmp_path / "trackctl"
    shutil.copy(office.build.path / "bin/trackctl", program)
    # The loader takes no folder relative to such a program.
    subprocess.run(["patchelf", "--set-rpath", office.build.path / "pkg/lib", program], check=True)
    os.chown(program, NOBODY, NOBODY)
    os.chmod(program, 0o4755)
    if os.statvfs(tmp_path).f_flag & os.ST_NOSUID:
        pytest.skip("the temporary folder takes no set-user-id programs")
    result = subprocess.run([program, "state", "office"], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True,
                            env=office.build.environment(office.root))
    assert result.returncode in (1, 3), result
    assert office.root not in result.stdout + result.stderr
