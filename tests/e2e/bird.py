"""BIRD as the other end of BFD sessions, in a network namespace of its own."""

import os
import shutil
import subprocess
import tempfile


class Bird:
    def __init__(self, net, neighbours, interval, multiplier):
        """`neighbours`: (address, interface) pairs; `interval` in milliseconds."""
        assert shutil.which("bird"), "the package bird2 is not installed"
        self._net = net
        self._directory = tempfile.mkdtemp(prefix="bird-")
        self._process = None
        sessions = "\n".join(f'neighbor {address} dev "{interface}";'
                             for address, interface in neighbours)
        with open(self._path("conf"), "w", encoding="ascii") as conf:
            conf.write(f"""
                router id 192.0.2.2;
                protocol device {{ scan time 1; }}
                protocol bfd {{
                  accept ipv4 direct;
                  interface "*" {{
                    min rx interval {interval} ms;
                    min tx interval {interval} ms;
                    multiplier {multiplier};
                  }};
                  {sessions}
                }}""")

    def _path(self, name):
        return os.path.join(self._directory, name)

    def start(self):
        with open(self._path("log"), "ab") as log:
            self._process = subprocess.Popen(
                [*self._net.command(), "bird", "-f", "-c", self._path("conf"),
                 "-s", self._path("ctl")], stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def kill(self):
        self._process.kill()
        self._process.wait()

    def close(self):
        if self._process is not None and self._process.poll() is None:
            self.kill()
        shutil.rmtree(self._directory)
