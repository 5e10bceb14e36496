"""What the tests of probe tracks share."""

import shlex

import pytest

from qmond import Qmond
from waiting import wait_until


@pytest.fixture
def qmond(service):
    """A qmond beside the service, not started yet."""
    service.net.ip("link set lo up")
    made = Qmond(service)
    yield made
    made.close()


class WithFiles:
    """The namespace of an instance, for a process that finds other files at some paths."""

    def __init__(self, net, files):
        self._net = net
        self._files = files  # path to the file that is found there

    def __getattr__(self, name):
        return getattr(self._net, name)

    def command(self):
        mounts = "".join(f"mount --bind {shlex.quote(file)} {shlex.quote(path)} && "
                         for path, file in self._files.items())
        return [*self._net.command(), "unshare", "--mount", "sh", "-c", mounts + 'exec "$0" "$@"']


def two_polls(build):
    """Seconds within which a track follows what its operation publishes, and some for trackctl."""
    return 4.5 if not build.sanitized else 10.0


def follows(qmond, track, operation, code, state):
    """The operation publishes the code, and the track follows within two polls."""
    qmond.wait_code(operation, code)
    wait_until(lambda: qmond.service.state(track) == state, two_polls(qmond.service.build),
               f"{track} {state} after code {code}")
