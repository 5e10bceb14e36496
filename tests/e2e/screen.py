"""A program on a terminal of a given size, and what stands on its screen."""

import fcntl
import os
import pty
import select
import signal
import struct
import subprocess
import termios
import time

import pyte


class Screen:
    def __init__(self, service, *arguments, columns=80, rows=24, **environment):
        self._screen = pyte.Screen(columns, rows)
        self._stream = pyte.ByteStream(self._screen)
        self._terminal, follower = pty.openpty()
        self._set_size(columns, rows)
        self.cooked = termios.tcgetattr(self._terminal)
        variables = {**service.build.environment(service.root), "TERM": "xterm-256color",
                     "LC_ALL": "C.UTF-8", "TZ": "UTC", **environment}
        variables.pop("LINES", None)
        variables.pop("COLUMNS", None)
        self.process = subprocess.Popen(
            [*service.build.command("trackctl"), *arguments], env=variables, stdin=follower,
            stdout=follower, stderr=follower, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(follower)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        os.close(self._terminal)

    def _set_size(self, columns, rows):
        fcntl.ioctl(self._terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def resize(self, columns, rows):
        """As a window that is made larger or smaller."""
        self._screen.resize(rows, columns)
        self._set_size(columns, rows)

    def type(self, keys):
        os.write(self._terminal, keys.encode())

    def _read(self, seconds):
        if select.select([self._terminal], [], [], seconds)[0]:
            try:
                self._stream.feed(os.read(self._terminal, 65536))
            except OSError:  # nobody has the other end any more
                time.sleep(seconds)

    @property
    def lines(self):
        return [line.rstrip() for line in self._screen.display]

    @property
    def buffer(self):
        return self._screen.buffer

    @property
    def cursor_hidden(self):
        return self._screen.cursor.hidden

    def wait(self, wanted, seconds, what):
        """Reads until `wanted(lines)` is true."""
        end = time.monotonic() + seconds
        while not wanted(self.lines):
            left = end - time.monotonic()
            assert left > 0, f"{what}:\n" + "\n".join(self.lines)
            self._read(min(left, 0.1))

    def wait_end(self, seconds):
        """The exit status; what the program wrote at its end is on the screen."""
        end = time.monotonic() + seconds
        while self.process.poll() is None:
            assert time.monotonic() < end, "it goes on"
            self._read(0.05)
        while select.select([self._terminal], [], [], 0)[0]:
            try:
                part = os.read(self._terminal, 65536)
            except OSError:
                break
            self._stream.feed(part)
        return self.process.returncode

    def signal(self, number=signal.SIGTERM):
        self.process.send_signal(number)

    @property
    def modes(self):
        """Whether lines are edited and echoed as before."""
        return termios.tcgetattr(self._terminal)
