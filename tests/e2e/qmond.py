"""A qmond beside an instance of the service, in the same namespace and below the same prefix."""

import json
import os
import re
import signal

from daemon import Daemon
from waiting import wait_until


def toml_value(value):
    """JSON's texts, numbers, truths and lists mean the same in TOML."""
    return json.dumps(value)


class Qmond:
    def __init__(self, service):
        self.service = service
        self.config = os.path.join(service.root, "etc/object_tracking/probes.toml")
        self.log = os.path.join(service.root, "qmond.log")
        self.daemon = None
        os.makedirs(os.path.dirname(self.config), exist_ok=True)

    def configure(self, *operations):
        """Writes the configuration; an operation is a dictionary of its keys."""
        defaults = {"interval": "200ms", "timeout": "150ms"}
        if self.service.build.sanitized:
            defaults = {"interval": "1s", "timeout": "900ms"}
        tables = [("[defaults]", defaults), *(("[[operation]]", one) for one in operations)]
        with open(self.config, "w") as stream:
            for heading, keys in tables:
                stream.write(heading + "\n")
                stream.writelines(f"{key} = {toml_value(value)}\n" for key, value in keys.items())

    def start(self, arguments=("--commands-as-root",)):
        """The tests are root and mean their commands to be."""
        self.daemon = Daemon(self.service.build, self.service.net, self.service.root, self.log,
                             program="qmond", arguments=arguments)
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
        said = re.compile(r"qmond: (?:not )?reloaded.*\r?\n")
        return wait_until(lambda: said.search(self.daemon.output()[len(before):]),
                          self.service.build.patience, "reloaded").group(0).strip()

    def status(self):
        """Operation to its row of the status."""
        result = self.service.run("qmond", "status", "--json")
        assert result.returncode == 0, result.stderr
        return {row["operation"]: row for row in json.loads(result.stdout)}

    def wait_code(self, operation, code):
        """Waits until the operation publishes the code; returns its row."""
        def row():
            found = self.status()[operation]
            return found if found["code"] == code else None
        return wait_until(row, self.service.build.patience, f"operation {operation}: code {code}")

    def wait_new_result(self, operation):
        """Waits until a probe that began after this call has its result."""
        wanted = self.status()[operation]["results"] + 2
        wait_until(lambda: self.status()[operation]["results"] >= wanted,
                   self.service.build.patience, f"operation {operation}: a new result")
