"""An instance of the service with its namespace, its private prefix and its tools."""

import json
import os
import re
import shutil
import subprocess
import tempfile
import time

import ledger
from daemon import Daemon
from follower import Follower
from netns import NetworkNamespace
from output import Terminal
from waiting import wait_until


class Service:
    def __init__(self, build, output=Terminal, folder=None, net=None):
        """`net`: a namespace of the caller's; else it gets one of its own."""
        self.build = build
        self._output = output
        # Short, since socket paths below it are limited to 107 bytes.
        self.root = tempfile.mkdtemp(prefix="ot-", dir=folder)
        self.log = os.path.join(self.root, "log")
        self.daemon = None
        self._followers = []
        try:
            self._own_net = NetworkNamespace() if net is None else None
            self.net = net or self._own_net
        except subprocess.CalledProcessError:
            shutil.rmtree(self.root)
            raise
        self.net.link("mark-up")
        self.net.link("mark-dn", up=False)

    # --- The daemon ------------------------------------------------------------------------------

    def start(self):
        """Starts the daemon; returns the seconds until it was ready."""
        self.daemon = Daemon(self.build, self.net, self.root, self.log, self._output)
        return self.daemon.wait_ready()

    def stop(self):
        self._close_followers()
        self.daemon.stop()

    def crash(self):
        self._close_followers()
        self.daemon.kill()

    def close(self):
        """Ends everything; fails when a daemon that still ran did not end cleanly."""
        try:
            self._close_followers()
            if self.daemon is not None and self.daemon.running:
                self.daemon.stop()
        finally:
            if self.daemon is not None and self.daemon.running:
                self.daemon.kill()
            if self._own_net is not None:
                self._own_net.close()
            shutil.rmtree(self.root)

    def _close_followers(self):
        for follower in self._followers:
            follower.close()
        self._followers.clear()

    # --- The tools -------------------------------------------------------------------------------

    def run(self, program, *arguments, prefix=()):
        """Runs a program of the build against this instance; the completed process."""
        return subprocess.run([*prefix, *self.build.command(program), *arguments],
                              env=self.build.environment(self.root), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def ctl(self, *arguments):
        """Runs trackctl, which must succeed; what it printed."""
        result = self.run("trackctl", *arguments)
        assert result.returncode == 0, f"trackctl {arguments}: {result.stderr}"
        return result.stdout

    def ctl_outcome(self, *arguments):
        """Runs trackctl, which may fail: exit status, output and errors."""
        result = self.run("trackctl", *arguments)
        return result.returncode, result.stdout, result.stderr

    def write_tracks(self, *lines, file="tracks.conf"):
        """A file for `trackctl apply`; its path."""
        path = os.path.join(self.root, file)
        with open(path, "w", encoding="utf-8") as stream:
            stream.writelines(line + "\n" for line in lines)
        return path

    def show(self, *arguments):
        """`object_tracking show track ...`, which always ends with 0."""
        result = self.run("object_tracking", "show", "track", *arguments)
        assert (result.returncode, result.stderr) == (0, "")
        return result.stdout

    def commit(self, commits):
        return ledger.commit(self.build, self.root, commits)

    def configure(self, names, interface):
        """Makes interface tracks, a commit each."""
        answers = self.commit([ledger.track_items(name, interface) for name in names])
        assert set(answers) <= {"0x00000000"}, answers

    def follow(self, tracks=(), state=None):
        follower = Follower(self, tracks, state)
        self._followers.append(follower)
        return follower

    # --- What is seen ----------------------------------------------------------------------------

    def tracks(self):
        """Every track as programs read it."""
        return json.loads(self.ctl("show", "--json"))

    @property
    def settling(self):
        """Seconds within which the tracks follow whatever happened. That is less than the time after
        which the service looks at everything in any case."""
        return 15.0 if self.build.sanitized else 5.0

    def state(self, name):
        return self.run("trackctl", "state", name).stdout.strip()

    def wait_state(self, name, state):
        wait_until(lambda: self.state(name) == state, self.build.patience, f"{name} {state}")

    def wait_detail(self, name, text):
        """Waits until the detailed view of a track holds `text`."""
        wait_until(lambda: text in self.show(name, "all"), self.build.patience,
                   f"{text!r} in the view of {name}")

    def wait_delayed(self, name, to, seconds, began):
        """Waits until the detailed view of a track says that a change is held back, and that of so many
        seconds is left what can be left since `began`, a moment before the change."""
        said = re.compile(rf", delayed {to} \((\d+) secs remaining\)\n")
        found = wait_until(lambda: said.search(self.show(name, "all")), self.build.patience,
                           f"{name} delayed {to}")
        gone = time.monotonic() - began
        assert seconds - gone <= int(found[1]) <= seconds, f"{found[1]} s of {seconds} after {gone} s"
