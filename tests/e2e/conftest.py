"""Fixtures of the end-to-end tests: the build under test and a running instance of the service.

The tests need the right to make network namespaces; without it they are skipped, with the reason.
"""

import contextlib
import os
import shutil

import pytest

from build_tree import BuildTree
from policy import Trackpolicy
from service import Service


@pytest.fixture(scope="session")
def build():
    tree = BuildTree()
    if os.geteuid() != 0:
        pytest.skip("needs root: the tests make network namespaces")
    missing = tree.missing("object_tracking", "trackctl", "qmond", "ledger_put", "route_storm")
    assert not missing, f"{tree.path} lacks {', '.join(missing)}: build it first"
    return tree


def scratch_folder():
    """Where instances live: in memory if there is room, since thousands of commits would otherwise
    wait for a disk. No test takes the machine's power away."""
    memory = "/dev/shm"
    roomy = os.path.isdir(memory) and shutil.disk_usage(memory).free > 2**30
    return memory if roomy else None


@pytest.fixture
def new_service(build):
    """Makes further instances, not started yet; all are ended with the test."""
    made = []

    def make():
        made.append(Service(build, folder=scratch_folder()))
        return made[-1]

    yield make
    errors = []
    for instance in made:
        try:
            instance.close()
        except AssertionError as error:
            errors.append(str(error))
    assert not errors, "\n".join(errors)


@pytest.fixture
def service(new_service):
    """A running instance."""
    instance = new_service()
    instance.start()
    return instance


@pytest.fixture
def office(service):
    """A running instance with a track "office" that is up, of an interface lan0."""
    service.net.link("lan0")
    service.ctl("set", "office", "interface", "lan0")
    service.wait_state("office", "up")
    return service


@pytest.fixture
def closing():
    """Closes with the test what it is called with, the last first, and returns it."""
    with contextlib.ExitStack() as parts:
        yield lambda part: parts.enter_context(contextlib.closing(part))


@pytest.fixture
def policy(service, closing):
    """A trackpolicy beside the service, not started yet; the track "t" follows "mark-up"."""
    service.ctl("set", "t", "interface", "mark-up")
    service.wait_state("t", "up")
    return closing(Trackpolicy(service))
