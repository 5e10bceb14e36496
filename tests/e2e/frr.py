"""FRR's zebra, bfdd and staticd, and mgmtd where there is one, in a network namespace, with everything they
write in a directory of their own."""

import glob
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile

from frr_release import MACHINE, PROGRAMS
from priority import REALTIME
from waiting import wait_until

PATIENCE = 30
ACCEPTS = 0x10000  # the flag of a listening socket in /proc/net/unix


def has_control_socket():
    """Whether this machine's bfdd has the socket that is older than the shell's."""
    return MACHINE.has_control_socket()


def listens(process, path):
    """Whether connections to its socket of that name are taken. The kernel is asked: a client that is
    gone at once, while zebra of FRR 10.3 starts, has it leave out the routes of its interfaces."""
    with open(f"/proc/{process.pid}/net/unix", encoding="ascii", errors="replace") as rows:
        sockets = [row.split() for row in rows][1:]
    return any(int(row[3], 16) & ACCEPTS and row[7:] == [path] for row in sockets)


class Frr:
    def __init__(self, net, release=MACHINE):
        self._net = net
        self._release = release
        self._processes = {}
        self._pids = []
        # The daemons run as their own user and make their sockets here. Releases with mgmtd have
        # some that only a name space of theirs sets apart, which is a folder of this one.
        runs = "/run/frr" if release.has("mgmtd") else "/tmp"
        os.makedirs(release.outside(runs), exist_ok=True)
        self.directory = tempfile.mkdtemp(prefix="frr-", dir=release.outside(runs))
        self._inside = os.path.join(runs, os.path.basename(self.directory))
        os.chown(self.directory, *release.owner())
        os.chmod(self.directory, 0o755)
        try:
            if release.has("mgmtd"):
                self._start("mgmtd", "mgmtd.vty")  # later releases configure the others through it
            self.start_zebra()
        except BaseException:
            self.close()
            raise

    def _path(self, name):
        """As this machine finds it."""
        return os.path.join(self.directory, name)

    def _name(self, name):
        """As the daemons do."""
        return os.path.join(self._inside, name)

    def _start(self, name, listening, *options, priority=()):
        apart = ("-N", os.path.basename(self._inside)) if self._release.has("mgmtd") else ()
        silent = ("-f", "/dev/null") if self._release.takes(name, "--config_file") else ()
        with open(self._path(f"{name}.out"), "ab") as out:
            self._processes[name] = subprocess.Popen(
                [*self._net.command(), *priority, *self._release.command(), f"{PROGRAMS}/{name}", *apart,
                 "--vty_socket", self._inside, "-z", self._name("zserv.api"),
                 "-i", self._name(f"{name}.pid"), *silent, "-P", "0",
                 "--log", f"file:{self._name(f'{name}.log')}", *options],
                stdin=subprocess.DEVNULL, stdout=out, stderr=out)
        self._pids.append(self._processes[name].pid)
        for path in (listening, f"{name}.vty"):
            wait_until(lambda path=path: listens(self._processes[name], self._name(path)), PATIENCE,
                       f"{name} listens")

    def has(self, program):
        """Whether this release has it."""
        return self._release.has(program)

    def start_zebra(self):
        self._start("zebra", "zserv.api", "-s", "2097152")

    def start_staticd(self, gateways):
        """With the routes `gateways`: prefix to gateway."""
        self._start("staticd", "staticd.vty")
        with open(self._path("routes"), "w", encoding="ascii") as routes:
            routes.writelines(f"ip route {prefix} {gateway}\n"
                              for prefix, gateway in gateways.items())
        self.run_file(self._path("routes"))

    def start_bfdd(self, listening="bfdd.sock", priority=REALTIME):
        """Returns when its socket of that name and its shell take connections."""
        control = ("--bfdctl", self._name("bfdd.sock"))
        self._start("bfdd", listening, *(control if self._release.has_control_socket() else ()),
                    priority=priority)

    def kill(self, name):
        process = self._processes.pop(name)
        process.kill()
        process.wait()

    def stop(self, name):
        """As systemd would."""
        process = self._processes.pop(name)
        process.terminate()
        process.wait(PATIENCE)

    def freeze(self, name, frozen=True):
        """Has the daemon do nothing, or go on."""
        self._processes[name].send_signal(signal.SIGSTOP if frozen else signal.SIGCONT)

    def _shell(self):
        return [*self._release.command(), "vtysh", "--vty_socket", self._inside]

    def _run(self, *options):
        """What the shell prints. It is run again while mgmtd refuses it, for another shell or because
        zebra joins it."""
        def attempt():
            done = subprocess.run([*self._shell(), *options], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, text=True)
            return None if done.returncode and "could not lock" in done.stdout else done
        done = wait_until(attempt, PATIENCE, "mgmtd refuses no more")
        assert done.returncode == 0, done
        return done.stdout

    def vtysh(self, *commands):
        """Runs commands of FRR's own shell; what they print."""
        return self._run(*(word for command in commands for word in ("-c", command)))

    def description(self, interface):
        """As zebra has it, which is asked alone: mgmtd of FRR 10.3 loses lines, with success, that it is
        given while another shell, or what is left of one, is with it."""
        shown = self._run("-d", "zebra", "-c", f"show interface {interface}")
        found = re.search(r"^ +Description: (.*)$", shown, re.MULTILINE)
        return found and found[1]

    def run_file(self, path):
        """Runs the commands of a file in the directory, as configuration."""
        self._run("-f", self._name(os.path.basename(path)))

    def pid(self, name):
        return self._processes[name].pid

    def configuration(self):
        """What bfdd's own part of the running configuration is: its lines."""
        return self.vtysh("show running-config bfdd").splitlines()

    def peers(self):
        """bfdd's own view: a list of objects."""
        return json.loads(self.vtysh("show bfd peers json"))

    def states(self):
        """The peer's address to whether its session is up."""
        return {peer["peer"]: peer["status"] == "up" for peer in self.peers()}

    def close(self):
        for process in self._processes.values():
            process.send_signal(signal.SIGTERM)
            process.send_signal(signal.SIGCONT)
        for process in self._processes.values():
            try:
                process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self._processes.clear()
        shutil.rmtree(self.directory)
        for pid in self._pids:  # what killed daemons leave behind
            for rest in glob.glob(self._release.outside(f"/var/tmp/frr/*.{pid}")):
                shutil.rmtree(rest)
