"""The first and only file system of the virtual machine: an archive that the kernel unpacks."""

import os
import pathlib
import re
import stat
import subprocess


class Archive:
    """Collects files and writes them as the kernel reads them (cpio, "newc")."""

    def __init__(self):
        self._entries = {}  # path without the leading slash -> (mode, content)

    def folder(self, path):
        """The folder and those above it."""
        parts = pathlib.PurePosixPath(path.strip("/")).parts
        for count in range(1, len(parts) + 1):
            self._entries.setdefault("/".join(parts[:count]), (stat.S_IFDIR | 0o755, b""))

    def file(self, path, content, mode=0o755):
        path = path.strip("/")
        self.folder(str(pathlib.PurePosixPath(path).parent))
        self._entries[path] = (stat.S_IFREG | mode, content)

    def copy(self, source, path=None):
        self.file(path or str(source), pathlib.Path(source).read_bytes())

    def program(self, source, path=None):
        """A program with the shared libraries that the loader finds for it, where it finds them."""
        self.copy(source, path)
        listed = subprocess.run(["ldd", str(source)], check=True, stdout=subprocess.PIPE, text=True)
        assert "not found" not in listed.stdout, listed.stdout
        for library in map(os.path.normpath, re.findall(r"(/\S+) \(0x", listed.stdout)):
            if library.strip("/") not in self._entries:
                self.copy(library)

    def write(self, path):
        with open(path, "wb") as stream:
            for number, (name, (mode, content)) in enumerate(self._entries.items(), 1):
                stream.write(entry(number, name, mode, content))
            stream.write(entry(0, "TRAILER!!!", 0, b""))


def entry(number, name, mode, content):
    # Number, mode, owner, group, links, time, size, device and special device, length of the name.
    fields = (number, mode, 0, 0, 1, 0, len(content), 0, 0, 0, 0, len(name) + 1, 0)
    head = b"070701" + b"".join(b"%08X" % field for field in fields) + name.encode() + b"\0"
    return padded(head) + padded(content)


def padded(data):
    return data + b"\0" * (-len(data) % 4)
