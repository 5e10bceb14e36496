"""The programs of docs/api.md and of the header, as they are written there, on a real service: what
stands on the page is taken from it, built and run."""

import contextlib
import os
import re
import shutil
import subprocess
import sys

import pytest

from build_tree import SOURCE

PAGE = SOURCE / "docs/api.md"
HEADER = SOURCE / "tools/client/object_tracking.h"

# The programs of the page, and by what each is found; what is not named here is not run.
PARTS = {"build": "cc follow.c", "apply": "otrack_apply(client", "python": 'tracks.set("uplink',
         "tasks": "import asyncio"}

PROGRAM = """#include <object_tracking.h>
#include <stdio.h>
int main(void) {
%s
}
"""


def blocks(text):
    """The indented programs of a page."""
    found = re.findall(r"(?:^(?:    .*)?\n)+", text, re.M)
    return [re.sub(r"^    ", "", block, flags=re.M).strip() + "\n" for block in found
            if block.strip()]


def block(name):
    (found,) = [each for each in blocks(PAGE.read_text(encoding="utf-8")) if PARTS[name] in each]
    return found


@pytest.fixture
def router(service, tmp_path):
    """A service with an interface eth0, and what a program on it needs."""
    if service.build.sanitized:
        pytest.skip("a program would need the sanitizer's runtime first")
    service.net.link("eth0")
    library = service.build.path / "lib"
    (tmp_path / "object-tracking.pc").write_text(
        f"Name: object-tracking\nDescription: in a build tree\nVersion: 1\n"
        f"Libs: -L{library} -lobject-tracking\nCflags: -I{HEADER.parent}\n", encoding="utf-8")
    service.programs = {**service.build.environment(service.root), "LD_LIBRARY_PATH": str(library),
                        "PKG_CONFIG_PATH": str(tmp_path), "PYTHONPATH": str(SOURCE / "python"),
                        "PYTHONUNBUFFERED": "1",
                        "OBJECT_TRACKING_LIBRARY": str(library / "libobject-tracking.so.1")}
    return service


@contextlib.contextmanager
def started(router, *command):
    process = subprocess.Popen(command, env={**os.environ, **router.programs}, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    try:
        yield process
    finally:
        process.kill()
        process.communicate()


def built(router, tmp_path, body):
    """The path of a program of these lines, which may use `client`."""
    (tmp_path / "program.c").write_text(PROGRAM % body, encoding="utf-8")
    subprocess.run('cc -std=c99 -Wall -Wextra -Werror program.c '
                   '$(pkg-config --cflags --libs object-tracking) -o program', shell=True, check=True,
                   cwd=tmp_path, env={**os.environ, **router.programs})
    return tmp_path / "program"


def test_no_program_of_the_page_is_unknown_here():
    assert sorted(map(block, PARTS)) == sorted(blocks(PAGE.read_text(encoding="utf-8")))


def test_the_example_is_built_as_the_page_says(router, tmp_path):
    router.ctl("set", "uplink", "interface", "eth0")
    router.wait_state("uplink", "up")
    shutil.copy(SOURCE / "examples/follow.c", tmp_path)
    subprocess.run(block("build"), shell=True, check=True, cwd=tmp_path,
                   env={**os.environ, **router.programs})
    with started(router, tmp_path / "follow") as process:
        assert process.stdout.readline() == "uplink is up\n"


def test_the_header_begins_with_a_program(router, tmp_path):
    text = re.match(r"/\*(.*?)\*/", HEADER.read_text(encoding="utf-8"), re.S).group(1)
    (body,) = blocks(re.sub(r"^ \* ?", "", text, flags=re.M))
    router.ctl("set", "uplink", "interface", "eth0")
    router.wait_state("uplink", "up")
    with started(router, "stdbuf", "-oL", built(router, tmp_path, body)) as process:
        assert process.stdout.readline() == "uplink is up\n"
        router.net.ip("link set eth0 down")
        assert process.stdout.readline() == "uplink is down\n"


def test_applying_says_what_would_be_made(router, tmp_path):
    body = ("otrack_client *client;\notrack_changes *changes;\nif (otrack_open(&client) != OTRACK_OK)"
            " return 1;\n" + block("apply"))
    program = built(router, tmp_path, body)

    def run():
        with started(router, program) as process:
            return process.communicate(timeout=60)

    assert run() == ("+ uplink interface eth0 --delay-up 5\n", "")
    assert "uplink" not in router.ctl("export")
    router.daemon.kill()
    output, errors = run()
    assert (output, "not running" in errors) == ("", True)


def test_python_sets_reads_and_follows(router):
    with started(router, sys.executable, "-B", "-c", block("python")) as process:
        state, since = process.stdout.readline().split(" ", 1)
        assert state in ("up", "unknown") and (since == "None\n" or since[:2] == "20"), since
        words = process.stdout.readline().split()
        assert words[2:4] == ["state", "uplink"], process.stderr
        while words[2:] != ["state", "uplink", "up"]:
            words = process.stdout.readline().split()
        router.net.ip("link set eth0 down")
        while words[2:] != ["state", "uplink", "down"]:
            words = process.stdout.readline().split()


def test_python_follows_beside_other_tasks(router):
    router.ctl("set", "uplink", "interface", "eth0")
    router.wait_state("uplink", "up")
    with started(router, sys.executable, "-B", "-c", block("tasks")) as process:
        assert process.stdout.readline() == "state uplink up\n"
        assert process.stdout.readline() == "synced  unknown\n"


def test_what_the_page_says_of_python_calls(router):
    router.ctl("set", "uplink", "interface", "eth0")
    router.wait_state("uplink", "up")
    calls = re.findall(r"`(tracks[.\[][^`]*)`", PAGE.read_text(encoding="utf-8"))
    program = f"""
import object_tracking
tracks = object_tracking.open()
lines = ["uplink interface eth0", "other interface eth0"]
for call in {calls!r}:
    try:
        print(call, "->", eval(call))
    except object_tracking.Error as error:
        print(call, "->", type(error).__mro__[1:3], isinstance(error, KeyError))
try:
    tracks.wait("uplink", state=object_tracking.State.DOWN, timeout=0.01)
except TimeoutError as error:
    print(type(error).__name__, isinstance(error, object_tracking.Error))
try:
    tracks.set("uplink nonsense")
except ValueError as error:
    print(type(error).__name__, isinstance(error, object_tracking.Error))
"""
    with started(router, sys.executable, "-B", "-c", program) as process:
        output, errors = process.communicate(timeout=60)
    assert errors == ""
    assert output.splitlines() == [
        'tracks.wait("uplink", timeout=30) -> None',
        "tracks[\"nobody\"] -> (<class 'object_tracking.Error'>, <class 'KeyError'>) True",
        "tracks.apply(lines, prune=True, dry_run=True) -> Changes(made=1, changed=0, deleted=0, "
        "lines=('+ other interface eth0',), warnings=())",
        "TimedOutError True", "InvalidError True"]
