"""Who may write: root and the service's group, nobody else."""

import os
import subprocess

import pytest

from users import files_in

UNPRIVILEGED = ("setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups")


def test_an_unprivileged_user_cannot_configure(service):
    reach = subprocess.run([*UNPRIVILEGED, "test", "-r", service.build.path / "pkg/lib/libledger.so"])
    if reach.returncode != 0:
        pytest.skip("the user nobody cannot read the build: the checkout lies in a closed folder")
    service.net.link("lan0")
    service.ctl("set", "office", "interface", "lan0")
    # Let the user reach the socket's folder, so that the service itself is what refuses.
    os.chmod(service.root, 0o755)
    for arguments in (["set", "mine", "interface", "lan0"], ["delete", "office"],
                      ["debug", "detail", "on"]):
        result = service.run("trackctl", *arguments, prefix=UNPRIVILEGED)
        assert result.returncode in (1, 3), result
        assert result.stdout == ""
        assert result.stderr != ""
    assert service.show("mine", "all") == ""
    assert service.state("office") == "up"


def test_stores_are_closed_to_others(service):
    for folder in ("run/object_tracking", "var/lib/object_tracking"):
        path = os.path.join(service.root, folder)
        for name, found in ((".", os.stat(path)), *files_in(path)):
            assert found.st_mode & 0o007 == 0, os.path.join(path, name)
