"""BIRD in a network namespace of a test, with everything it writes in a directory of its own."""

import os
import shutil
import subprocess
import tempfile
import typing

from priority import REALTIME

PATIENCE = 30


def bfd_sessions(neighbours, interval, multiplier):
    """The configuration of the other end of sessions. `neighbours`: (address, interface) pairs;
    `interval` in milliseconds."""
    sessions = "\n".join(f'neighbor {address} dev "{interface}";'
                         for address, interface in neighbours)
    return f"""
        protocol bfd {{
          accept ipv4 direct;
          interface "*" {{
            min rx interval {interval} ms;
            min tx interval {interval} ms;
            multiplier {multiplier};
          }};
          {sessions}
        }}"""


def static_routes(gateways):
    """The configuration that has the kernel take routes: prefix to gateway."""
    routes = "\n".join(f"route {prefix} via {gateway};" for prefix, gateway in gateways.items())
    return f"""
        protocol kernel {{ ipv4 {{ export all; }}; }}
        protocol static {{ ipv4; {routes} }}"""


class BfdSession(typing.NamedTuple):
    state: str
    since: str

    def seconds(self):
        """The time of the last change, in seconds of the day."""
        hours, minutes, seconds = self.since.split(":")
        return int(hours) * 3600 + int(minutes) * 60 + float(seconds)

    def is_still(self, before):
        """Whether it is as it was and nothing happened in between. BIRD tells ages, so that a time
        differs by how long it takes to tell it; a session that falls and rises takes longer."""
        return self.state == before.state and abs(self.seconds() - before.seconds()) < 0.5


class Bird:
    def __init__(self, net, configuration):
        """Not started yet."""
        assert shutil.which("bird"), "the package bird2 is not installed"
        self._net = net
        self._directory = tempfile.mkdtemp(prefix="bird-")
        self._process = None
        with open(self._path("conf"), "w", encoding="ascii") as conf:
            conf.write(f"""
                router id 192.0.2.2;
                protocol device {{ scan time 1; }}
                {configuration}""")

    def _path(self, name):
        return os.path.join(self._directory, name)

    def start(self):
        with open(self._path("log"), "ab") as log:
            self._process = subprocess.Popen(
                [*self._net.command(), *REALTIME, "bird", "-f", "-c", self._path("conf"),
                 "-s", self._path("ctl")], stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def stop(self):
        """As systemd would."""
        self._process.terminate()
        self._process.wait(PATIENCE)

    def kill(self):
        self._process.kill()
        self._process.wait()

    def bfd(self):
        """BIRD's own view: the address of each neighbour to the state of its session and the time
        of its last change. Empty while it does not answer."""
        printed = subprocess.run(["birdc", "-s", self._path("ctl"), "show", "bfd", "sessions"],
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, text=True).stdout
        rows = [line.split() for line in printed.splitlines()]
        return {row[0]: BfdSession(row[2], row[3]) for row in rows
                if len(row) >= 4 and row[0][0].isdigit()}

    def close(self):
        if self._process is not None and self._process.poll() is None:
            self.kill()
        shutil.rmtree(self._directory)
