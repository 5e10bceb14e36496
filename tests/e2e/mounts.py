"""What a program under test finds in its mount namespace: file systems that are small, full or
read-only, a group that this machine does not have, a journal of the test's own."""

import os
import subprocess

GROUP = "object_tracking"
GROUP_ID = 54321


class Mounts:
    """A namespace like the one given, in which shell commands have been run before the program."""

    def __init__(self, net, *commands):
        self._net = net
        self._script = "; ".join(["set -e", *commands, 'exec "$@"'])

    def command(self):
        return [*self._net.command(), "unshare", "--mount", "sh", "-c", self._script, "sh"]


def with_the_group(service):
    """The commands after which the service's group exists, whatever this machine has."""
    path = os.path.join(service.root, "group")
    with open("/etc/group") as stream:
        lines = [line for line in stream if not line.startswith(GROUP + ":")]
    with open(path, "w") as stream:
        stream.writelines([*lines, f"{GROUP}:x:{GROUP_ID}:\n"])
    return [f"mount --bind {path} /etc/group"]


class Disk:
    """A file system in memory, mounted on `folder`, which is made."""

    def __init__(self, folder, options):
        os.makedirs(folder, exist_ok=True)
        self.folder = folder
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"mode=755,{options}", "none", folder],
                       check=True)

    def fill(self):
        with open(os.path.join(self.folder, "fill"), "ab", buffering=0) as stream:
            size = 1 << 20
            while size >= 1:
                try:
                    stream.write(b"x" * size)
                except OSError:
                    size //= 2

    def leave(self, size):
        """Fills it but for so many bytes."""
        self.fill()
        path = os.path.join(self.folder, "fill")
        os.truncate(path, os.path.getsize(path) - size)

    def fill_inodes(self):
        try:
            for number in range(1 << 20):
                os.close(os.open(os.path.join(self.folder, f"fill{number}"),
                                 os.O_CREAT | os.O_WRONLY))
        except OSError:
            pass

    def make_read_only(self):
        subprocess.run(["mount", "-o", "remount,ro", self.folder], check=True)

    def free(self):
        status = os.statvfs(self.folder)
        return status.f_bavail * status.f_frsize

    def close(self):
        subprocess.run(["umount", "--lazy", self.folder], check=True)
