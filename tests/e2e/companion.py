"""A daemon beside an instance of the service, below the same prefix, with a configuration of its own."""

import json
import os
import re
import select
import signal

from daemon import Daemon
from output import Terminal
from waiting import wait_until


class Companion:
    def __init__(self, service, program):
        """Not started yet."""
        assert not service.build.missing(program), f"build {program} first"
        self.service = service
        self.program = program
        self.log = os.path.join(service.root, f"{program}.log")
        self.daemon = None

    def start(self, output=Terminal, namespace=None, arguments=()):
        """`namespace`: as the service's, with changes (mounts.py)."""
        self.daemon = Daemon(self.service.build, namespace or self.service.net, self.service.root,
                             self.log, output, program=self.program, arguments=arguments)
        self.daemon.wait_ready()

    def stop(self):
        self.daemon.stop()

    def kill(self):
        self.daemon.kill()

    def close(self):
        if self.daemon is not None and self.daemon.running:
            self.daemon.stop()

    def reload(self):
        """Lets it read its configuration again; returns what it says about that."""
        before = self.daemon.output()
        self.daemon.process.send_signal(signal.SIGHUP)
        said = re.compile(rf"{self.program}: (?:not )?reloaded.*\r?\n")
        found = wait_until(lambda: said.search(self.daemon.output()[len(before):]),
                           self.service.build.patience, "reloaded")
        # What it tells its service manager about that, which has to be read by somebody.
        while select.select([self.daemon.notify], [], [], 0)[0]:
            self.daemon.notify.recv(4096)
        return found.group(0).strip()


def write_tables(path, tables):
    """Writes TOML: pairs of a heading and a dictionary of its keys. JSON's texts, numbers, truths and
    lists mean the same in it."""
    with open(path, "w", encoding="utf-8") as stream:
        for heading, keys in tables:
            stream.write(heading + "\n")
            stream.writelines(f"{key} = {json.dumps(value)}\n" for key, value in keys.items())
