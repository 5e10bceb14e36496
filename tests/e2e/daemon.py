"""One run of a daemon of ours: started in a namespace, ready, ended, looked over.

Readiness is the datagram that a service sends to NOTIFY_SOCKET. The daemon's pid is that of the
process started here, since `ip netns exec` and `setarch` replace themselves by the program.
"""

import os
import select
import signal
import socket
import subprocess
import time

from output import Terminal

ROUTE_GROUP = 0x40  # IPv4 routes
REPORTS = ("Sanitizer", "runtime error:")


class Daemon:
    def __init__(self, build, namespace, root, log, output=Terminal, program="object_tracking",
                 arguments=()):
        self.build = build
        self.log = log  # path; a run appends to it
        self._notify_path = os.path.join(root, f"notify-{program}")
        self._begin = os.path.getsize(log) if os.path.exists(log) else 0
        if os.path.exists(self._notify_path):
            os.unlink(self._notify_path)
        self.notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_CLOEXEC)
        self.notify.bind(self._notify_path)
        environment = build.environment(root)
        environment["NOTIFY_SOCKET"] = self._notify_path
        self.started = time.monotonic()
        self._output = output(log)
        self._ended = False
        self.process = subprocess.Popen(
            [*namespace.command(), *build.command(program), *arguments], env=environment,
            stdin=subprocess.DEVNULL, stdout=self._output.end, stderr=self._output.end)
        self._output.started()
        self.printed = self._output
        self.pid = self.process.pid

    def output(self):
        """What this run has printed so far."""
        if not self._ended:
            self._output.catch_up()
        with open(self.log, "rb") as stream:
            stream.seek(self._begin)
            return stream.read().decode(errors="replace")

    def wait_ready(self):
        """Returns the seconds from the start to readiness."""
        end = time.monotonic() + self.build.patience
        exited = os.pidfd_open(self.pid)
        try:
            while True:
                left = end - time.monotonic()
                assert left > 0, f"not ready in time:\n{self.output()}"
                readable, _, _ = select.select([self.notify, exited], [], [], left)
                if self.notify in readable:
                    if b"READY=1" in self.notify.recv(4096).split(b"\n"):
                        return time.monotonic() - self.started
                elif exited in readable:
                    raise AssertionError(f"exited before it was ready:\n{self.output()}")
        finally:
            os.close(exited)

    def wait_exit(self):
        """Returns the exit status once the process has ended."""
        try:
            return self.process.wait(self.build.patience)
        finally:
            if self.process.poll() is None:
                self.process.kill()
                self.process.wait()
            if not self._ended:
                self.notify.close()
                self._output.close()
                self._ended = True

    def stop(self):
        """Ends it as systemd would; it must end cleanly and, if instrumented, without a report."""
        self.process.send_signal(signal.SIGTERM)
        status = self.wait_exit()
        output = self.output()
        assert status == 0, f"exit status {status}:\n{output}"
        assert not any(report in output for report in REPORTS), output

    def kill(self):
        self.process.kill()
        self.wait_exit()

    def dropped_route_messages(self):
        """How many the kernel has dropped for the daemon's open sockets."""
        with open(f"/proc/{self.pid}/net/netlink", encoding="ascii") as stream:
            head, *lines = [line.split() for line in stream]
        groups, drops = head.index("Groups"), head.index("Drops")
        return sum(int(line[drops]) for line in lines if int(line[groups], 16) & ROUTE_GROUP)

    @property
    def running(self):
        return self.process.poll() is None
