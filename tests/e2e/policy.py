"""A trackpolicy beside an instance of the service, below the same prefix."""

import json
import os

from companion import Companion, write_tables
from waiting import wait_until


class Trackpolicy(Companion):
    def __init__(self, service):
        super().__init__(service, "trackpolicy")
        self.folder = os.path.join(service.root, "etc/object_tracking/policies.d")
        os.makedirs(self.folder, mode=0o755, exist_ok=True)

    def path(self, name):
        return os.path.join(self.service.root, name)

    def configure(self, *policies, file="10.toml"):
        """Writes a file of policies; a policy is a dictionary of its keys."""
        path = os.path.join(self.folder, file)
        write_tables(path, [("[[policy]]", keys) for keys in policies])
        os.chmod(path, 0o644)

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
