"""A trackpolicy beside an instance of the service, below the same prefix."""

import json
import os
import re
import select
import signal

from daemon import Daemon
from output import Terminal
from waiting import wait_until


class Trackpolicy:
    def __init__(self, service):
        assert not service.build.missing("trackpolicy"), "build trackpolicy first"
        self.service = service
        self.folder = os.path.join(service.root, "etc/object_tracking/policies.d")
        self.log = os.path.join(service.root, "policy.log")
        self.daemon = None
        os.makedirs(self.folder, mode=0o755, exist_ok=True)

    def path(self, name):
        return os.path.join(self.service.root, name)

    def configure(self, *policies, file="10.toml"):
        """Writes a file of policies; a policy is a dictionary of its keys."""
        with open(os.path.join(self.folder, file), "w") as stream:
            for keys in policies:
                stream.write("[[policy]]\n")
                # JSON's texts, numbers, truths and lists mean the same in TOML.
                stream.writelines(f"{key} = {json.dumps(value)}\n" for key, value in keys.items())
        os.chmod(os.path.join(self.folder, file), 0o644)

    def start(self, output=Terminal, namespace=None):
        """`namespace`: as the service's, with changes (mounts.py)."""
        self.daemon = Daemon(self.service.build, namespace or self.service.net, self.service.root,
                             self.log, output, program="trackpolicy")
        self.daemon.wait_ready()

    def stop(self):
        self.daemon.stop()

    def kill(self):
        self.daemon.kill()

    def close(self):
        if self.daemon is not None and self.daemon.running:
            self.daemon.stop()

    def reload(self):
        """Lets it read its policies again; returns what it says about that."""
        before = self.daemon.output()
        self.daemon.process.send_signal(signal.SIGHUP)
        said = re.compile(r"trackpolicy: (?:not )?reloaded.*\r?\n")
        found = wait_until(lambda: said.search(self.daemon.output()[len(before):]),
                           self.service.build.patience, "reloaded")
        # What it tells its service manager about that, which has to be read by somebody.
        while select.select([self.daemon.notify], [], [], 0)[0]:
            self.daemon.notify.recv(4096)
        return found.group(0).strip()

    def wait_said(self, text):
        """Waits for it in the output, which is copied to the file in its own time; returns how often
        it is there."""
        wait_until(lambda: text in self.daemon.output(), self.service.build.patience,
                   lambda: f"{text!r} in {self.daemon.output()}")
        return self.daemon.output().count(text)

    def list(self):
        """Policy to its row."""
        return {row["policy"]: row
                for row in json.loads(self.service.ctl("policy", "list", "--json"))}

    def wait_installed(self, count):
        """So many routes are in the kernel."""
        def installed():
            return sum(row["doing"].startswith("installed") for row in self.list().values())
        wait_until(lambda: installed() == count, self.service.build.patience,
                   lambda: f"{count} routes in place of {installed()}")

    def wait_doing(self, name, doing):
        wait_until(lambda: self.list()[name]["doing"] == doing, self.service.build.patience,
                   lambda: f"{name}: {doing!r} in place of {self.list()[name]}")


def script(policy, name, text):
    """A shell script below the prefix, as an argument vector."""
    path = policy.path(name)
    with open(path, "w") as stream:
        stream.write("#!/bin/sh\n" + text)
    os.chmod(path, 0o755)
    return [path]


def lines(path):
    try:
        with open(path) as stream:
            return stream.read().splitlines()
    except FileNotFoundError:
        return []
