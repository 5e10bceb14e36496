"""strace beside a process that runs already."""

import pathlib
import re
import shutil
import subprocess

import pytest

from waiting import wait_until


class Tracing:
    """All threads of a process are traced once this is made; the test is skipped where that is not
    possible."""

    def __init__(self, pid, *arguments):
        if shutil.which("strace") is None:
            pytest.skip("strace is not installed")
        self._process = subprocess.Popen(
            ["strace", "-qq", *map(str, arguments), "-p", str(pid)],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            wait_until(lambda: attached(pid), 10, "attached")
        except AssertionError:
            self.close()
            pytest.skip("processes cannot be traced here")

    def close(self):
        self._process.terminate()
        self._process.wait()


def attached(pid):
    """To all threads, one after the other."""
    for path in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        text = path.read_text(encoding="ascii")
        if re.search(r"^TracerPid:\s+(\d+)", text, re.M).group(1) == "0":
            return False
    return True
