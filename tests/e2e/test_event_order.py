"""What the service does first when a link changes, seen from its system calls: the event leaves before
anything is stored, logged or asked, and its loop never asks what may wait for the kernel's lock."""

import re

import pytest

from tracing import Tracing
from waiting import wait_until

# What is asked about links (RTM_GETLINK) waits while a change of a link is under way.
WAITS = re.compile(r"nlmsg_type=(RTM_GETLINK|0x12 )")
CALLS = "trace=sendto,recvmmsg,write,pwrite64,writev,pwritev"


class Calls(Tracing):
    """The system calls of a process, from the moment at which its first thread was attached to; in a
    file for each thread, since in a common one another thread's call may split a line in two."""

    def __init__(self, pid, folder):
        self._pid = pid
        self._folder = folder
        super().__init__(pid, "-ff", "-o", folder / "calls", "-e", CALLS)

    def lines(self):
        """Those of the first thread so far, and those of all others."""
        lines = {path.suffix: path.read_text(encoding="utf-8").splitlines()
                 for path in self._folder.glob("calls.*")}
        own = lines.pop(f".{self._pid}", [])
        return own, [line for thread in lines.values() for line in thread]


@pytest.mark.parametrize("on", [False, True])
def test_the_event_leaves_first_and_the_loop_waits_for_no_lock(service, tmp_path, on):
    service.net.link("w0")
    service.net.link("w1")
    service.net.carrier("w0", on=not on)
    service.net.ip("route add 192.0.2.0/24 dev w1")
    service.configure(["t"], "w0")
    service.ctl("set", "r", "route", "192.0.2.0/24")
    service.wait_state("r", "up")
    service.wait_state("t", "down" if on else "up")
    follower = service.follow(["t"])
    calls = Calls(service.daemon.pid, tmp_path)
    try:
        service.net.carrier("w0", on=on)
        follower.expect(("t", "up" if on else "down"))
        # The looks at routes that follow are over when another change of them has come through.
        service.net.ip("route del 192.0.2.0/24")
        service.wait_state("r", "down")
        wait_until(lambda: any(map(WAITS.search, calls.lines()[1])), service.build.patience,
                   "another thread waits for the change to be whole")
    finally:
        calls.close()
    own, _ = calls.lines()
    event = next(index for index, line in enumerate(own) if re.search(r'sendto\(\d+, "t\\0', line))
    # Nothing between the kernel's message and the event.
    assert "recvmmsg(" in own[event - 1], own[event - 5:event + 1]
    assert not any(map(WAITS.search, own))
