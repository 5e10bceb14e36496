"""FRR's zebra, bfdd and staticd in a network namespace, from the distribution's package but with everything
they write in a directory of their own."""

import glob
import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile

from waiting import wait_until

PROGRAMS = "/usr/lib/frr"
PATIENCE = 10


def has_control_socket():
    """Whether this bfdd has the socket that the service drives it by."""
    assert os.path.exists(f"{PROGRAMS}/bfdd"), "the package frr is not installed"
    options = subprocess.run([f"{PROGRAMS}/bfdd", "--help"], stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, text=True).stdout
    return "--bfdctl" in options


def listens(path):
    with socket.socket(socket.AF_UNIX) as client:
        try:
            client.connect(path)
        except OSError:
            return False
    return True


class Frr:
    def __init__(self, net):
        self._net = net
        self._processes = {}
        self._pids = []
        # The daemons run as their own user and make their sockets here.
        self.directory = tempfile.mkdtemp(prefix="frr-")
        shutil.chown(self.directory, "frr", "frr")
        try:
            self.start_zebra()
        except BaseException:
            self.close()
            raise

    def _path(self, name):
        return os.path.join(self.directory, name)

    def _start(self, name, listening, *options):
        log = self._path(f"{name}.log")
        with open(self._path(f"{name}.out"), "ab") as out:
            self._processes[name] = subprocess.Popen(
                [*self._net.command(), f"{PROGRAMS}/{name}", "--vty_socket", self.directory,
                 "-z", self._path("zserv.api"), "-i", self._path(f"{name}.pid"), "-f", "/dev/null",
                 "-P", "0", "--log", f"file:{log}", *options],
                stdin=subprocess.DEVNULL, stdout=out, stderr=out)
        self._pids.append(self._processes[name].pid)
        for path in (listening, f"{name}.vty"):
            wait_until(lambda path=path: listens(self._path(path)), PATIENCE, f"{name} listens")

    def start_zebra(self):
        self._start("zebra", "zserv.api", "-s", "2097152")

    def start_staticd(self, gateways):
        """With the routes `gateways`: prefix to gateway."""
        if os.path.exists(f"{PROGRAMS}/mgmtd") and "mgmtd" not in self._processes:
            self._start("mgmtd", "mgmtd.vty")  # later releases configure the others through it
        self._start("staticd", "staticd.vty")
        with open(self._path("routes"), "w", encoding="ascii") as routes:
            routes.writelines(f"ip route {prefix} {gateway}\n"
                              for prefix, gateway in gateways.items())
        self.run_file(self._path("routes"))

    def start_bfdd(self):
        """Returns when its control socket and its shell take connections."""
        self._start("bfdd", "bfdd.sock", "--bfdctl", self._path("bfdd.sock"))

    def kill(self, name):
        process = self._processes.pop(name)
        process.kill()
        process.wait()

    def stop(self, name):
        """As systemd would."""
        process = self._processes.pop(name)
        process.terminate()
        process.wait(PATIENCE)

    def vtysh(self, *commands):
        """Runs commands of FRR's own shell; what they print."""
        words = [word for command in commands for word in ("-c", command)]
        return subprocess.run(["vtysh", "--vty_socket", self.directory, *words], check=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True).stdout

    def run_file(self, path):
        """Runs the commands of a file, as configuration."""
        subprocess.run(["vtysh", "--vty_socket", self.directory, "-f", path], check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    def pid(self, name):
        return self._processes[name].pid

    def peers(self):
        """bfdd's own view: a list of objects."""
        return json.loads(self.vtysh("show bfd peers json"))

    def states(self):
        """The peer's address to whether its session is up."""
        return {peer["peer"]: peer["status"] == "up" for peer in self.peers()}

    def close(self):
        for process in self._processes.values():
            process.send_signal(signal.SIGTERM)
        for process in self._processes.values():
            try:
                process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self._processes.clear()
        shutil.rmtree(self.directory)
        for pid in self._pids:  # what killed daemons leave behind
            for rest in glob.glob(f"/var/tmp/frr/*.{pid}"):
                shutil.rmtree(rest)
