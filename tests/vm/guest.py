"""The running virtual machine: one process of the emulator, no accelerator, no disk, no network."""

import os
import select
import subprocess
import time

EMULATOR = "qemu-system-x86_64"
PATIENCE = 120.0  # seconds, for the emulator may share its processor with a whole test run


class Guest:
    def __init__(self, image, initramfs, console):
        """Starts the machine; what its kernel says goes to the file `console`."""
        self.console = console
        self._errors = open(f"{console}.emulator", "w+b")
        self._process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL",  # also when the tests themselves are killed
             EMULATOR, "-machine", "pc", "-accel", "tcg", "-cpu", "max", "-m", "384", "-nodefaults",
             "-no-user-config", "-display", "none", "-no-reboot",
             "-kernel", str(image), "-initrd", str(initramfs),
             "-append", "console=ttyS0 panic=-1 tsc=reliable mitigations=off",
             "-serial", f"file:{console}", "-chardev", "stdio,id=commands,signal=off",
             "-serial", "chardev:commands"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._errors)
        self._unread = b""
        try:
            assert self._answer() == (0, "")
        except BaseException:
            self.close()
            raise

    def run(self, command):
        """Runs one shell command line; its exit status, and its output and errors together."""
        assert "\n" not in command and len(command) < 4000, command
        self._process.stdin.write(command.encode() + b"\n")
        self._process.stdin.flush()
        return self._answer()

    def must(self, command):
        """The output of a command that must succeed."""
        status, output = self.run(command)
        assert status == 0, f"{command}: exit status {status}\n{output}"
        return output

    def close(self):
        self._process.kill()
        self._process.wait()
        self._process.stdin.close()
        self._process.stdout.close()
        self._errors.close()

    def _answer(self):
        end = time.monotonic() + PATIENCE
        while b"\n" not in self._unread:
            self._read(end)
        head, self._unread = self._unread.split(b"\n", 1)
        status, length = map(int, head.split())
        while len(self._unread) < length:
            self._read(end)
        output, self._unread = self._unread[:length], self._unread[length:]
        return status, output.decode(errors="replace")

    def _read(self, end):
        stream = self._process.stdout.fileno()
        ready, _, _ = select.select([stream], [], [], max(0.0, end - time.monotonic()))
        data = os.read(stream, 65536) if ready else b""
        if not data:
            raise AssertionError(f"the virtual machine does not answer:\n{self._said()}")
        self._unread += data

    def _said(self):
        self._errors.seek(0)
        said = self._errors.read()
        with open(self.console, "rb") as stream:
            return (said + stream.read()).decode(errors="replace")
