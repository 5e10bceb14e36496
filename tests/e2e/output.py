"""Where a program's output goes: to a terminal that is copied to a file as it comes, to the file
itself, or into a pipe that the test reads.

The daemon writes its messages to standard error only when that is a terminal, or when the machine
has no other place for them. The tests shall see them on every machine; the measurements shall not
pay for a terminal.
"""

import os
import threading
import tty


class Terminal:
    def __init__(self, path):
        """What is written to the descriptor `end` is appended to the file."""
        self._master, self.end = os.openpty()
        tty.setraw(self.end)
        self._copier = threading.Thread(target=self._copy, args=(path,), daemon=True)
        self._copier.start()

    def _copy(self, path):
        with open(path, "ab", buffering=0) as log:
            try:
                while data := os.read(self._master, 65536):
                    log.write(data)
            except OSError:
                pass  # how a terminal says that nobody holds its other end

    def started(self):
        """The program holds the other end now; this process lets go of it."""
        os.close(self.end)

    def close(self):
        """After the program has ended: waits until all is in the file."""
        self._copier.join()
        os.close(self._master)


class File:
    def __init__(self, path):
        self.end = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND)

    def started(self):
        os.close(self.end)

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

    def read_until(self, text):
        """What was written up to `text`, and what came with it."""
        while text not in self._read:
            part = self._other.read(65536)
            assert part, f"the output ended without {text!r}"
            self._read += part
            self._log.write(part)
        return self._read.decode()

    def close(self):
        self._other.close()
        self._log.close()
