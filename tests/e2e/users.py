"""Users with fewer rights than the tests have, and what they run: a program of the build, or some
Python of the tests, which reaches them whatever they may read."""

import contextlib
import json
import os
import subprocess
import sys

import pytest

from daemon import Daemon
from mounts import GROUP_ID, Mounts, with_the_group

NOBODY = 65534
OPERATOR = {"user": NOBODY, "group": NOBODY, "extra_groups": [GROUP_ID]}
STRANGER = {"user": NOBODY, "group": NOBODY, "extra_groups": []}


def prefix(user):
    """The start of an argument vector that runs a program as that user."""
    groups = ",".join(str(number) for number in user["extra_groups"])
    return ("setpriv", "--reuid", str(user["user"]), "--regid", str(user["group"]),
            *(("--groups", groups) if groups else ("--clear-groups",)))


def start_with_the_group(service, *commands, limits=()):
    """Starts the daemon where the service's group exists, after the shell commands."""
    os.chmod(service.root, 0o755)  # so that nothing but the service keeps anybody out
    for folder in ("run", "var"):
        os.makedirs(os.path.join(service.root, folder), mode=0o755, exist_ok=True)
    mounts = Mounts(service.net, *with_the_group(service), *commands)
    if limits:
        command = mounts.command
        mounts.command = lambda: [*command(), *limits]
    service.daemon = Daemon(service.build, mounts, service.root, service.log)
    service.daemon.wait_ready()


def files_in(folder):
    """Names and what the kernel says of them; what has been renamed meanwhile has another name."""
    for name in os.listdir(folder):
        with contextlib.suppress(FileNotFoundError):
            yield name, os.lstat(os.path.join(folder, name))


def needs_readable_build(build):
    reach = subprocess.run([*prefix(STRANGER), "test", "-r", build.path / "pkg/lib/libledger.so"])
    if reach.returncode != 0:
        pytest.skip("another user cannot read the build: the checkout lies in a closed folder")


def start_python(user, source, *arguments):
    """A Python process of that user; `source` may use what raw_client.py defines."""
    with open(os.path.join(os.path.dirname(__file__), "raw_client.py")) as stream:
        library = stream.read()
    return subprocess.Popen([sys.executable, "-c", library + source, *map(str, arguments)],
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd="/",
                            **user)


def run_python(user, source, *arguments):
    """What such a process prints, read as JSON."""
    process = start_python(user, source, *arguments)
    output, _ = process.communicate()
    assert process.returncode == 0
    return json.loads(output)
