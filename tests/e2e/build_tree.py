"""Where the programs under test lie and how they were built.

OT_BUILD_DIR names the build directory (default build/release). With OT_FULL_BUFFERS, a seed, the programs
run on a kernel whose buffers are full more often than they are (full_buffers.cpp). Programs of a thread-sanitizer build
run without address randomisation: its runtime cannot place its shadow memory otherwise.
"""

import os
import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parents[2]


class BuildTree:
    def __init__(self):
        self.path = pathlib.Path(os.environ.get("OT_BUILD_DIR", SOURCE / "build/release")).resolve()
        cache = self.path / "CMakeCache.txt"
        text = cache.read_text() if cache.exists() else ""
        found = re.search(r"^OT_SANITIZE:\w+=(.+)$", text, re.M)
        self.sanitizers = found.group(1).split(",") if found else []

    @property
    def sanitized(self):
        return bool(self.sanitizers)

    @property
    def patience(self):
        """Seconds after which a condition that should hold soon is given up."""
        return 30.0 if self.sanitized else 20.0

    def missing(self, *programs):
        return [name for name in programs if not (self.path / "bin" / name).exists()]

    def command(self, program):
        """The start of an argument vector that runs `program`."""
        prefix = ["setarch", "-R"] if "thread" in self.sanitizers else []
        return prefix + [str(self.path / "bin" / program)]

    def environment(self, root):
        """The environment of a program that belongs to the instance at `root`."""
        environment = {key: value for key, value in os.environ.items() if key != "NOTIFY_SOCKET"}
        environment["OT_ROOT"] = str(root)
        environment["OT_PKG_ROOT"] = str(self.path)
        if "OT_FULL_BUFFERS" in environment:
            loaded = [environment.get("LD_PRELOAD"), str(self.path / "bin/full_buffers.so")]
            environment["LD_PRELOAD"] = " ".join(filter(None, loaded))
        return environment
