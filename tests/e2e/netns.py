"""A network namespace of one test, and the interfaces in it."""

import itertools
import json
import os
import subprocess

from waiting import wait_until

_numbers = itertools.count()


class NetworkNamespace:
    def __init__(self):
        self.name = f"ot-{os.getpid()}-{next(_numbers)}"
        subprocess.run(["ip", "netns", "add", self.name], check=True)

    def close(self):
        subprocess.run(["ip", "netns", "del", self.name], check=True)

    def command(self):
        """The start of an argument vector that runs a program inside."""
        return ["ip", "netns", "exec", self.name]

    def ip(self, text):
        """Runs `ip` with the words of `text`; returns what it prints."""
        command = ["ip", "-n", self.name, *text.split()]
        return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout

    def ip_batch(self, lines):
        """Runs many `ip` commands in one process."""
        command = ["ip", "-n", self.name, "-batch", "-"]
        subprocess.run(command, check=True, input="\n".join(lines), text=True)

    def try_batch(self, lines):
        """Runs many `ip` commands in one process; those that the kernel refuses change nothing."""
        command = ["ip", "-n", self.name, "-force", "-batch", "-"]
        subprocess.run(command, input="\n".join(lines), stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, text=True)

    def query(self, text, *options):
        """What `ip` prints for the words of `text`, as JSON."""
        command = ["ip", "-n", self.name, "-j", *options, *text.split()]
        printed = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
        return json.loads(printed or "[]")

    def link(self, name, up=True):
        """A veth pair: `name`, up or down, and its always willing peer `name`-p, which gives the
        carrier."""
        self.ip_batch([f"link add {name} type veth peer name {name}-p",
                       f"link set {name}-p up"])
        if up:
            self.up(name)

    def up(self, name):
        """Sets the interface up, and waits for its line protocol: the kernel settles that in the
        background."""
        self.ip(f"link set {name} up")
        wait_until(lambda: self.links()[name], 30, f"{name} up")

    def has_kind(self, kind):
        """Whether this kernel knows interfaces of that kind."""
        command = ["ip", "-n", self.name, "link", "add", "probe0", "type", kind]
        if subprocess.run(command, stderr=subprocess.DEVNULL).returncode != 0:
            return False
        self.ip("link del probe0")
        return True

    def carrier(self, name, on):
        """Gives the interface `name` its carrier or takes it away."""
        self.ip(f"link set {name}-p {'up' if on else 'down'}")

    def links(self):
        """The kernel's own view: interface name to whether its line protocol is up."""
        up = {}
        for link in json.loads(self.ip("-j link")):
            flags = link["flags"]
            up[link["ifname"]] = ("UP" in flags and "LOWER_UP" in flags
                                  and link["operstate"] in ("UP", "UNKNOWN"))
        return up
