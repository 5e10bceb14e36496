"""Where a program's output goes: to a terminal that is copied to a file as it comes, or to the
file itself.

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
