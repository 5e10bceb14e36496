"""Where a program's output goes: to a terminal that is copied to a file as it comes, to the file
itself, or into a pipe that the test reads.

The daemon writes its messages to standard error only when that is a terminal, or when the machine
has no other place for them. The tests shall see them on every machine; the measurements shall not
pay for a terminal.
"""

import fcntl
import os
import select
import threading
import time
import tty

PATIENCE = 30  # seconds
MARK = b"\0what was written before this has been copied\0"


def without_marks(data):
    """What stands before, between and behind the marks, and what may be the beginning of one."""
    *parts, last = data.split(MARK)
    begun = next((at for at in range(max(len(last) - len(MARK) + 1, 0), len(last))
                  if MARK.startswith(last[at:])), len(last))
    return [*parts, last[:begun]], last[begun:]


class Terminal:
    def __init__(self, path):
        """What is written to the descriptor `end` is appended to the file."""
        self._master, self.end = os.openpty()
        tty.setraw(self.end)
        # Not the program's, which may have it that writing to its own never waits.
        self._own = os.open(os.ttyname(self.end), os.O_WRONLY | os.O_NOCTTY)
        self._passed = threading.Semaphore(0)
        self._copier = threading.Thread(target=self._copy, args=(path,), daemon=True)
        self._copier.start()

    def _copy(self, path):
        held = b""
        with open(path, "ab", buffering=0) as log:
            try:
                while data := os.read(self._master, 65536):
                    parts, held = without_marks(held + data)
                    log.write(b"".join(parts))
                    for _ in parts[1:]:
                        self._passed.release()
            except OSError:
                pass  # how a terminal says that nobody holds its other end
            log.write(held)

    def started(self):
        """The program holds the other end now; this process lets go of it, but for catch_up()."""
        os.close(self.end)

    def catch_up(self):
        """Returns when all that was written up to now is in the file."""
        os.write(self._own, MARK)
        assert self._passed.acquire(timeout=PATIENCE), "the terminal is not read"

    def close(self):
        """After the program has ended: waits until all is in the file."""
        os.close(self._own)
        self._copier.join()
        os.close(self._master)


class File:
    def __init__(self, path):
        self.end = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND)

    def started(self):
        os.close(self.end)

    def catch_up(self):
        pass

    def close(self):
        pass


class Pipe:
    """A pipe that is read when the test says so."""

    def __init__(self, path):
        self._log = open(path, "ab", buffering=0)
        self._other, self.end = os.pipe()
        self._other = os.fdopen(self._other, "rb", buffering=0)
        self._read = b""

    def started(self):
        os.close(self.end)

    def fill(self):
        """Lets it take no more until it is read."""
        with open(f"/proc/self/fd/{self._other.fileno()}", "wb", buffering=0) as end:
            fcntl.fcntl(end, fcntl.F_SETFL, os.O_NONBLOCK)
            while end.write(b"." * 4096) is not None:
                pass

    def read_until(self, text):
        """What was written up to `text`, and what came with it."""
        end = time.monotonic() + PATIENCE
        while text not in self._read:
            ready, _, _ = select.select([self._other], [], [], max(end - time.monotonic(), 0))
            assert ready, f"{text!r} was not written within {PATIENCE} s"
            part = self._other.read(65536)
            assert part, f"the output ended without {text!r}"
            self._read += part
            self._log.write(part)
        return self._read.decode()

    def catch_up(self):
        """What the test has not read yet is not in the file."""

    def close(self):
        self._other.close()
        self._log.close()
