"""What the tests of probe tracks share."""

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


def two_polls(build):
    """Seconds within which a track follows what its operation publishes, and some for trackctl."""
    return 4.5 if not build.sanitized else 10.0


def follows(qmond, track, operation, code, state):
    """The operation publishes the code, and the track follows within two polls."""
    qmond.wait_code(operation, code)
    wait_until(lambda: qmond.service.state(track) == state, two_polls(qmond.service.build),
               f"{track} {state} after code {code}")
