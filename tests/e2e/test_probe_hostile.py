"""All kinds of operations beside each other, on targets that do their worst.

A short while of it, or as many seconds as OT_SECONDS says (1800 for a long night).
"""

import os
import re
import time

import pytest

from hostile_targets import HostileTargets
from probe_fixtures import WithFiles, follows, qmond  # noqa: F401  (a fixture)
from targets import HttpServer

SECONDS = float(os.environ.get("OT_SECONDS", "8"))


@pytest.fixture
def hostile(service):
    service.net.ip("link set lo up")
    targets = HostileTargets(service.net, service.root)
    yield targets
    targets.close()


def http(port, scheme="http", **keys):
    return {"kind": "http", "target": f"{scheme}://127.0.0.1:{port}/", **keys}


def dns(port):
    return {"kind": "dns", "target": f"127.0.0.1:{port}", "query": "www.example.test"}


def command(text):
    return {"kind": "command", "command": ["/bin/sh", "-c", text]}


# What each of them comes to.
OPERATIONS = [
    (http(7100), {1}),
    (http(7101), {1}),
    (http(7102), {6}),
    (http(7103), {6}),
    (http(7104), {6}),
    (http(7105), {2}),
    (http(7106), {2}),
    (http(7107), {6}),
    (http(7108), {1}),
    (http(7108, status=200), {6}),
    (http(7109), {6}),
    (http(7110), {1}),
    (http(7111), {6}),
    (http(7112), {1}),
    (http(7199), {4}),
    (http(7120, "https"), {6}),
    (http(7120, "https", verify=False), {1}),
    (http(7121, "https", verify=False), {1}),
    (http(7122, "https", verify=False), {2}),
    (http(7100, "https"), {6}),
    (http(7106, "https"), {2}),
    (http(7120), {6}),
    ({"kind": "tcp", "target": "127.0.0.1:7106"}, {1}),
    ({"kind": "tcp", "target": "127.0.0.1:7199"}, {4}),
    (dns(7130), {1}),
    (dns(7131), {2}),
    (dns(7132), {2, 6}),
    (dns(7133), {2}),
    (dns(7134), {6}),
    (dns(7135), {2}),
    (dns(7136), {2}),
    (dns(7199), {4}),
    (command("exit 0"), {1}),
    (command("exit 3"), {6}),
    (command("kill -KILL $$"), {6}),
    (command("exec sleep 1000"), {2}),
    (command("sleep 1000 & sleep 1000"), {2}),
    (command("head -c 1000000 /dev/zero"), {1}),
    (command("sleep 1000 & exit 0"), {1}),
    ({"kind": "command", "command": ["/nonexistent"]}, {7}),
    ({"kind": "icmp", "target": "127.0.0.1"}, {1}),
    ({"kind": "icmp", "target": "::1", "size": 60000}, {1}),
    ({"kind": "icmp", "target": "127.0.0.1", "size": 65000}, {1}),
    ({"kind": "icmp", "target": "localhost"}, {1}),
    ({"kind": "tcp", "target": "no-such-host.invalid:1"}, {5}),
    ({"kind": "icmp", "target": "127.0.0.1", "interface": "nowhere"}, {7}),
]


def inheritable_descriptors(pid):
    """What a program started by the process could get hold of beside the standard descriptors. Files
    do not count: libraries read them through and close them before anything is started.
    """
    found = []
    folder = f"/proc/{pid}/fdinfo"
    for number in map(int, os.listdir(folder)):
        try:
            with open(f"{folder}/{number}") as stream:
                flags = int(re.search(r"^flags:\s+(\d+)$", stream.read(), re.M).group(1), 8)
            what = os.readlink(f"/proc/{pid}/fd/{number}")
            if number > 2 and not flags & os.O_CLOEXEC and not what.startswith("/"):
                found.append((number, what))
        except OSError:
            pass  # closed meanwhile
    return found


class Punctuality:
    """When each operation last had a new result: that is never late."""

    def __init__(self, build, status):
        # What the machine may be late, above all a small one that runs instrumented programs.
        self._grace = 6.0 if build.sanitized else 3.0
        self._latest = {}
        self.look(status)

    def look(self, status):
        now = time.monotonic()
        for operation, row in status.items():
            results, since = self._latest.get(operation, (None, now))
            if results != row["results"]:
                self._latest[operation] = (row["results"], now)
                continue
            late = now - since - (row["interval_ms"] + row["timeout_ms"]) / 1000
            assert late < self._grace, f"{late:.1f} s late: {row}"


def test_no_target_hurts_another_operation_or_qmond(qmond, hostile):
    pace = {"interval": "1s", "timeout": "900ms"}
    if qmond.service.build.sanitized:
        pace = {"interval": "2s", "timeout": "1800ms"}
    qmond.configure(*({"id": number, **keys, **pace}
                      for number, (keys, _) in enumerate(OPERATIONS, 1)))
    qmond.start()
    punctuality = Punctuality(qmond.service.build, qmond.status())
    codes = {number: set() for number in qmond.status()}

    def look():
        assert qmond.daemon.running, qmond.daemon.output()
        assert inheritable_descriptors(qmond.daemon.pid) == []
        status = qmond.status()
        punctuality.look(status)
        for number, row in status.items():
            codes[number].add(row["latest_code"])
        return status

    def missing():
        """On a busy machine an answer may come too late once, but not always."""
        return {number: (keys, codes[number]) for number, (keys, wanted)
                in enumerate(OPERATIONS, 1) if not codes[number] & wanted}

    end = time.monotonic() + SECONDS
    patience_end = end + qmond.service.build.patience
    while time.monotonic() < end or missing():
        status = look()
        assert time.monotonic() < patience_end, missing()
    false = {number: keys for number, (keys, wanted) in enumerate(OPERATIONS, 1)
             if 1 not in wanted and status[number]["successes"]}
    assert not false


def test_a_track_follows_its_target_while_others_keep_qmond_busy(qmond, hostile):
    server = HttpServer(qmond.service.net, 7002)
    try:
        server.answer = HttpServer.status(200)
        # Sockets that are never empty for as long as these last.
        hostile.start_floods()
        floods = [{"id": 10 + number, **dns(7140 + number), "interval": "1s", "timeout": "1s"}
                  for number in range(4)]
        bodies = [{"id": 20 + number, **http(7101)} for number in range(4)]
        qmond.configure({"id": 1, **http(7002)}, *floods, *bodies)
        qmond.start()
        qmond.service.ctl("set", "t", "probe", "1")
        follows(qmond, "t", 1, 1, "up")
        punctuality = Punctuality(qmond.service.build, qmond.status())
        server.answer = None
        follows(qmond, "t", 1, 2, "down")
        punctuality.look(qmond.status())
        for number in range(4):
            qmond.wait_new_result(20 + number)
            qmond.wait_code(20 + number, 1)
    finally:
        server.close()


AUTHORITIES = "/etc/ssl/certs/ca-certificates.crt"


@pytest.mark.skipif(not os.path.exists(AUTHORITIES), reason="needs the file of ca-certificates")
def test_a_certificate_that_has_expired_is_a_bad_answer(qmond, hostile):
    """Both are trusted; their time is all that they differ in."""
    trusted = os.path.join(qmond.service.root, "trusted.pem")
    with open(trusted, "w") as stream:
        for name in ("expired", "valid"):
            with open(os.path.join(qmond.service.root, f"{name}.pem")) as one:
                stream.write(one.read())
    qmond.service.net = WithFiles(qmond.service.net, {AUTHORITIES: trusted})
    qmond.configure({"id": 1, **http(7120, "https")}, {"id": 2, **http(7123, "https")})
    qmond.start()
    qmond.wait_code(2, 1)
    assert qmond.wait_code(1, 6)["successes"] == 0
