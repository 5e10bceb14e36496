"""A qmond beside an instance of the service, in the same namespace and below the same prefix."""

import json
import os

from companion import Companion, write_tables
from waiting import wait_until


class Qmond(Companion):
    def __init__(self, service):
        super().__init__(service, "qmond")
        self.config = os.path.join(service.root, "etc/object_tracking/probes.toml")
        os.makedirs(os.path.dirname(self.config), exist_ok=True)

    def configure(self, *operations):
        """Writes the configuration; an operation is a dictionary of its keys."""
        # A timeout that a busy machine keeps, too.
        defaults = {"interval": "500ms", "timeout": "450ms"}
        if self.service.build.sanitized:
            defaults = {"interval": "1s", "timeout": "900ms"}
        write_tables(self.config, [("[defaults]", defaults),
                                   *(("[[operation]]", one) for one in operations)])

    def start(self, arguments=("--commands-as-root",), **options):
        """The tests are root and mean their commands to be."""
        super().start(arguments=arguments, **options)

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
