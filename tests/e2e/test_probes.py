"""Probe tracks on real targets: the track follows what each of them does within two polls."""

import contextlib
import os
import re
import shutil
import signal
import socket
import subprocess
import threading
import time

import pytest

from netns import NetworkNamespace
from probe_fixtures import WithFiles, follows, qmond  # noqa: F401  (a fixture)
from targets import DnsServer, HttpServer, TcpListener, in_namespace
from waiting import wait_until

needs_dnsmasq = pytest.mark.skipif(shutil.which("dnsmasq") is None,
                                   reason="needs dnsmasq (dnsmasq-base)")


@pytest.fixture
def peer(service):
    """Another namespace at 10.1.0.2, behind the service's own interface "to-peer"."""
    other = NetworkNamespace()
    try:
        service.net.ip(f"link add to-peer type veth peer name up0 netns {other.name}")
        service.net.ip("address add 10.1.0.1/24 dev to-peer")
        other.ip("address add 10.1.0.2/24 dev up0")
        other.ip("link set up0 up")
        service.net.up("to-peer")
        yield other
    finally:
        other.close()


def set_ping_groups(net, groups):
    """Who may have datagram ICMP sockets in the namespace."""
    subprocess.run([*net.command(), "sysctl", "-q", f"net.ipv4.ping_group_range={groups}"],
                   check=True)


class Unprivileged:
    """The namespace of an instance, for a process without capabilities."""

    def __init__(self, net):
        self._net = net

    def __getattr__(self, name):
        return getattr(self._net, name)

    def command(self):
        return [*self._net.command(), "setpriv", "--bounding-set=-all", "--no-new-privs"]


def forward():
    with open("/proc/sys/net/ipv4/ip_forward", "w") as switch:
        switch.write("1")


def probe(qmond, **keys):
    """Starts qmond with operation 1 and makes the track `t` that follows it."""
    qmond.configure({"id": 1, **keys})
    qmond.start()
    qmond.service.ctl("set", "t", "probe", "1")


# Who may have datagram ICMP sockets: nobody, then a raw one is used, or everybody.
@pytest.mark.parametrize("groups", ["1 0", "0 2147483647"])
def test_an_echo_peer_goes_away_and_returns(qmond, peer, groups):
    set_ping_groups(qmond.service.net, groups)
    events = qmond.service.follow(tracks=["t"])
    probe(qmond, kind="icmp", target="10.1.0.2")
    follows(qmond, "t", 1, 1, "up")
    peer.ip("link set up0 down")
    qmond.wait_new_result(1)
    assert qmond.status()[1]["text"] in ("No answer (timeout)", "Unreachable")
    qmond.service.wait_state("t", "down")
    peer.ip("link set up0 up")
    follows(qmond, "t", 1, 1, "up")
    events.expect(("t", "up"), ("t", "down"), ("t", "up"))


@pytest.mark.parametrize("groups", ["1 0", "0 2147483647"])
def test_a_peer_without_a_way_to_it_is_unreachable(qmond, peer, groups):
    set_ping_groups(qmond.service.net, groups)
    probe(qmond, kind="icmp", target="192.0.2.1")
    follows(qmond, "t", 1, 3, "down")
    # The way ends at the next router, which says so by ICMP.
    qmond.configure({"id": 1, "kind": "icmp", "target": "192.0.2.1", "timeout": "200ms"},
                    {"id": 2, "kind": "icmp", "target": "10.1.0.2"})
    in_namespace(peer.name, forward)
    qmond.service.net.ip("route add 192.0.2.0/24 via 10.1.0.2")
    qmond.reload()
    qmond.wait_code(2, 1)
    assert qmond.wait_code(1, 3)["successes"] == 0


def test_without_icmp_sockets_only_icmp_cannot_run(qmond):
    set_ping_groups(qmond.service.net, "1 0")
    qmond.configure({"id": 1, "kind": "icmp", "target": "127.0.0.1"},
                    {"id": 2, "kind": "tcp", "target": "127.0.0.1:7001"})
    qmond.service.net = Unprivileged(qmond.service.net)
    qmond.start()
    qmond.wait_code(1, 7)
    qmond.wait_code(2, 4)


def test_an_ipv6_peer_answers(qmond):
    probe(qmond, kind="icmp", target="::1", size=1400)
    follows(qmond, "t", 1, 1, "up")


def test_a_tcp_listener_refuses_and_then_hangs(qmond):
    probe(qmond, kind="tcp", target="127.0.0.1:7001")
    follows(qmond, "t", 1, 4, "down")
    listener = TcpListener(qmond.service.net, 7001)
    try:
        follows(qmond, "t", 1, 1, "up")
        listener.hang()
        follows(qmond, "t", 1, 2, "down")
    finally:
        listener.close()


def test_an_http_server_answers_well_badly_and_not_at_all(qmond):
    server = HttpServer(qmond.service.net, 7002)
    hints = b"HTTP/1.1 103 Early Hints\r\nLink: </style.css>\r\n\r\n"
    try:
        server.answer = HttpServer.status(200)
        probe(qmond, kind="http", target="http://127.0.0.1:7002/health")
        follows(qmond, "t", 1, 1, "up")
        for bad, code in ((HttpServer.status(503), 6), (hints + HttpServer.status(200), 1),
                          (b"\x00garbage\xff\r\n\r\n" * 50, 6), (HttpServer.status(204), 1),
                          (None, 2)):
            server.answer = bad
            follows(qmond, "t", 1, code, "up" if code == 1 else "down")
    finally:
        server.close()
    follows(qmond, "t", 1, 4, "down")


@pytest.mark.parametrize("address", ["127.0.0.1", "::1"])
def test_an_http_server_is_asked_itself_whatever_proxies_there_are(qmond, monkeypatch, address):
    for name in ("http_proxy", "all_proxy", "HTTPS_PROXY", "ALL_PROXY"):
        monkeypatch.setenv(name, "http://127.0.0.1:9")
    monkeypatch.delenv("no_proxy", raising=False)
    monkeypatch.delenv("NO_PROXY", raising=False)
    server = HttpServer(qmond.service.net, 7002, address)
    server.answer = HttpServer.status(200)
    try:
        host = f"[{address}]" if ":" in address else address
        probe(qmond, kind="http", target=f"http://{host}:7002/")
        follows(qmond, "t", 1, 1, "up")
    finally:
        server.close()


PATIENT_S = 2


def while_not_running(qmond):
    """A context of a server in which the answer reaches a qmond that does not run, as on a machine
    that is moved or that is busy, until its timeout is over."""
    @contextlib.contextmanager
    def context():
        qmond.daemon.process.send_signal(signal.SIGSTOP)
        try:
            yield
            time.sleep(1.2 * PATIENT_S)  # that this time is over is what it is about
        finally:
            qmond.daemon.process.send_signal(signal.SIGCONT)
    return context


# One of those whose first probe does not wait long, and whose second one comes when all is over.
ONCE = {"id": 34, "interval": "10s", "timeout": f"{PATIENT_S}s"}


def expect_first_result_good(qmond, **operation):
    qmond.configure({**ONCE, **operation})
    qmond.start()
    wait_until(lambda: qmond.status()[34]["results"] == 1, qmond.service.build.patience, "a result")
    assert qmond.status()[34]["code"] == 1


def test_an_answer_that_came_while_qmond_did_not_run_counts(qmond):
    server = HttpServer(qmond.service.net, 7002)
    server.answer = HttpServer.status(200)
    server.answering = while_not_running(qmond)
    try:
        expect_first_result_good(qmond, kind="http", target="http://127.0.0.1:7002/")
    finally:
        server.close()


@needs_dnsmasq
def test_a_dns_server_answers_and_does_not(qmond):
    server = DnsServer(qmond.service.net, 7003)
    try:
        probe(qmond, kind="dns", target="127.0.0.1:7003", query="www.example.test")
        follows(qmond, "t", 1, 1, "up")
        server.process.send_signal(signal.SIGSTOP)
        follows(qmond, "t", 1, 2, "down")
        server.process.send_signal(signal.SIGCONT)
        follows(qmond, "t", 1, 1, "up")
    finally:
        server.close()
    follows(qmond, "t", 1, 4, "down")


@needs_dnsmasq
def test_a_dns_server_that_does_not_know_the_name_is_no_good(qmond):
    server = DnsServer(qmond.service.net, 7003)
    try:
        probe(qmond, kind="dns", target="127.0.0.1:7003", query="other.example.test")
        follows(qmond, "t", 1, 6, "down")
    finally:
        server.close()


def script(qmond, text):
    """An operation's command that runs the shell script with the instance's folder as $1."""
    path = os.path.join(qmond.service.root, "probe.sh")
    with open(path, "w") as stream:
        stream.write(text)
    return ["/bin/sh", path, qmond.service.root]


def test_a_command_that_exits_with_0_and_1(qmond):
    good = os.path.join(qmond.service.root, "good")
    probe(qmond, kind="command", command=script(qmond, 'test -e "$1/good"\n'))
    follows(qmond, "t", 1, 6, "down")
    with open(good, "w"):
        pass
    follows(qmond, "t", 1, 1, "up")
    os.unlink(good)
    follows(qmond, "t", 1, 6, "down")


def test_a_command_that_is_not_there_cannot_run(qmond):
    probe(qmond, kind="command", command=["/nonexistent/probe"])
    follows(qmond, "t", 1, 7, "down")


def test_a_command_finds_every_signal_as_usual(qmond):
    """None is blocked, as the daemon's own are, and none is ignored but what the C library keeps to
    itself. A shell would unblock them."""
    libc_own = 1 << 31 | 1 << 32
    seen = os.path.join(qmond.service.root, "status")
    probe(qmond, kind="command", command=["/bin/dd", "if=/proc/self/status", f"of={seen}"])
    follows(qmond, "t", 1, 1, "up")

    def masks():
        """None while the next one is at it."""
        with open(seen) as stream:
            found = re.findall(r"^Sig(?:Blk|Ign):\s+(\w{16})$", stream.read(), re.M)
        return found if len(found) == 2 else None
    found = wait_until(masks, qmond.service.build.patience, "the signals' masks")
    assert [int(mask, 16) & ~libc_own for mask in found] == [0, 0]


def gone(pid_file):
    """Whether the process named in the file has ended; false as long as there is no file."""
    try:
        with open(pid_file) as stream:
            return not os.path.exists(f"/proc/{int(stream.read())}")
    except (FileNotFoundError, ValueError):
        return False


@pytest.mark.parametrize("text, code", [
    ('echo $$ >"$1/leader"; sleep 1000 & echo $! >"$1/child"; wait\n', 2),  # hangs, and forks
    ('echo $$ >"$1/leader"; sleep 1000 & echo $! >"$1/child"; exit 0\n', 1),  # leaves a child
])
def test_a_command_ends_with_all_that_it_started(qmond, text, code):
    probe(qmond, kind="command", command=script(qmond, text))
    follows(qmond, "t", 1, code, "up" if code == 1 else "down")
    qmond.stop()
    for name in ("leader", "child"):
        path = os.path.join(qmond.service.root, name)
        wait_until(lambda path=path: gone(path), qmond.service.build.patience, f"{name} has ended")


def test_an_operation_leaves_through_its_interface(qmond, peer):
    qmond.service.net.link("other")
    qmond.service.net.ip("address add 10.2.0.1/24 dev other")
    qmond.configure(
        {"id": 1, "kind": "icmp", "target": "10.1.0.2", "interface": "to-peer"},
        {"id": 2, "kind": "icmp", "target": "10.1.0.2", "interface": "other"},
        {"id": 3, "kind": "tcp", "target": "10.1.0.2:9", "interface": "to-peer"},
        {"id": 4, "kind": "tcp", "target": "10.1.0.2:9", "interface": "other"},
        {"id": 5, "kind": "icmp", "target": "10.1.0.2", "interface": "not-there"},
        {"id": 6, "kind": "icmp", "target": "10.1.0.2", "source": "10.1.0.1"},
        {"id": 7, "kind": "tcp", "target": "10.1.0.2:9", "source": "10.9.9.9"},
        {"id": 8, "kind": "http", "target": "http://10.1.0.2:9", "interface": "to-peer"},
        {"id": 9, "kind": "http", "target": "http://10.1.0.2:9", "interface": "other"},
        {"id": 10, "kind": "http", "target": "http://10.1.0.2:9", "source": "10.9.9.9"})
    qmond.start()
    for operation, code in ((1, 1), (3, 4), (5, 7), (6, 1), (7, 7), (8, 4), (10, 7)):
        qmond.wait_code(operation, code)
    for operation in (2, 4, 9):
        assert qmond.status()[operation]["successes"] == 0
        qmond.wait_new_result(operation)
        assert qmond.status()[operation]["code"] in (2, 3)


class SilentServer:
    """A name server that hears every question and answers none."""

    def __init__(self, net, address):
        self._socket = in_namespace(net.name, lambda: socket.socket(type=socket.SOCK_DGRAM))
        self._socket.bind((address, 53))

    def close(self):
        self._socket.close()


class HalfServer(SilentServer):
    """A name server that answers for addresses of one family only, and is silent about the other.
    It takes `delay` seconds for an answer, which nobody is to keep."""

    LOCALHOST = {1: b"\x00\x04\x7f\x00\x00\x01", 28: b"\x00\x10" + b"\x00" * 15 + b"\x01"}

    def __init__(self, net, address, record_type, silent_type, delay=0):
        super().__init__(net, address)
        self.delay = delay
        self.answering = contextlib.nullcontext
        self._answers = []
        self._types = (record_type, silent_type)
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def _serve(self):
        known, silent = self._types
        while True:
            query, client = self._socket.recvfrom(512)
            if not query:
                return
            # A question is a name, which a zero byte ends, a type and a class. The options that
            # follow it where c-ares is newer (1.34 sends a cookie) are none of this server's.
            question = query[12:query.index(0, 12) + 5]
            asked = int.from_bytes(question[-4:-2], "big")
            if asked == silent:
                continue
            count = int(asked == known)
            record = b"\xc0\x0c" + question[-4:] + bytes(4) + self.LOCALHOST[known]
            answer = query[:2] + b"\x81\x80\x00\x01" + bytes([0, count]) + bytes(4) + question
            self._answers.append(threading.Timer(self.delay, self._answer,
                                                 (answer + record * count, client)))
            self._answers[-1].start()

    def _answer(self, answer, client):
        with self.answering():
            self._socket.sendto(answer, client)

    def close(self):
        self._socket.sendto(b"", self._socket.getsockname())
        self._thread.join()
        for answer in self._answers:
            answer.join()
        super().close()


@pytest.fixture
def name_servers(qmond):
    """127.0.0.1 knows www.example.test as 192.0.2.7, where nobody listens; 127.0.0.2 is silent."""
    qmond.service.net.ip("address add 192.0.2.7/32 dev lo")
    made = [DnsServer(qmond.service.net, 53), SilentServer(qmond.service.net, "127.0.0.2")]
    yield NameServers(qmond)
    for each in made:
        each.close()


class NameServers:
    """The system's file of name servers, as qmond finds it."""

    def __init__(self, qmond):
        self._path = os.path.join(qmond.service.root, "resolv.conf")
        self.set("127.0.0.2")
        qmond.service.net = WithFiles(qmond.service.net, {"/etc/resolv.conf": self._path})

    def set(self, *addresses, unseen=False):
        before = os.stat(self._path) if unseen else None
        with open(self._path, "w") as stream:
            stream.writelines(f"nameserver {address}\n" for address in addresses)
        if unseen:
            os.utime(self._path, ns=(before.st_atime_ns, before.st_mtime_ns))


NAMED = {"id": 1, "kind": "tcp", "target": "www.example.test:7001"}


@needs_dnsmasq
def test_the_next_name_server_is_asked_when_the_first_is_silent(qmond, name_servers):
    name_servers.set("127.0.0.2", "127.0.0.1")
    qmond.configure(NAMED)
    qmond.start()
    for _ in range(2):
        qmond.wait_code(1, 4)
        qmond.wait_new_result(1)


@needs_dnsmasq
def test_a_change_of_the_name_servers_is_noticed(qmond, name_servers):
    qmond.configure(NAMED)
    qmond.start()
    qmond.wait_code(1, 5)
    name_servers.set("127.0.0.1")
    qmond.wait_code(1, 4)
    # One that shows neither in the size of the file nor in its time shows with a reload.
    name_servers.set("127.0.0.2", unseen=True)
    qmond.wait_new_result(1)
    assert qmond.status()[1]["code"] == 4
    qmond.reload()
    qmond.wait_code(1, 5)


# 127.0.0.1 refuses and ::1 answers, which tells which of them was taken.
@pytest.mark.parametrize("known, silent, code", [(1, 28, 4), (1, 0, 4), (28, 0, 1)])
def test_a_name_server_may_know_one_family_only_and_not_answer_for_the_other(
        qmond, known, silent, code):
    server = HalfServer(qmond.service.net, "127.0.0.3", known, silent)
    listener = in_namespace(qmond.service.net.name,
                            lambda: socket.create_server(("::1", 7001), family=socket.AF_INET6))
    try:
        NameServers(qmond).set("127.0.0.3")
        qmond.configure(NAMED)
        qmond.start()
        qmond.wait_code(1, code)
    finally:
        listener.close()
        server.close()


def test_the_time_that_a_name_takes_is_no_round_trip_time(qmond):
    # Newer c-ares hears no answer to a try that it has given up, which it does at half the timeout.
    server = HalfServer(qmond.service.net, "127.0.0.3", 1, 0, delay=1.5)
    listener = TcpListener(qmond.service.net, 7001)
    try:
        NameServers(qmond).set("127.0.0.3")
        qmond.configure({**NAMED, "interval": "4300ms", "timeout": "4200ms"})
        qmond.start()
        assert qmond.wait_code(1, 1)["rtt_ms"] < 1400
    finally:
        listener.close()
        server.close()


def test_a_name_server_that_has_become_slow_is_heard_again(qmond):
    """Newer c-ares waits for a server as long as that has taken before."""
    server = HalfServer(qmond.service.net, "127.0.0.3", 1, 0)
    listener = TcpListener(qmond.service.net, 7001)
    try:
        NameServers(qmond).set("127.0.0.3")
        qmond.configure({**NAMED, "interval": "1200ms", "timeout": "1100ms"})
        qmond.start()
        for _ in range(2):
            qmond.wait_code(1, 1)
            qmond.wait_new_result(1)
        server.delay = 0.6
        qmond.wait_new_result(1)
        qmond.wait_code(1, 1)
    finally:
        listener.close()
        server.close()


def test_a_name_that_became_known_while_qmond_did_not_run_counts(qmond):
    server = HalfServer(qmond.service.net, "127.0.0.3", 1, 28)
    server.answering = while_not_running(qmond)
    listener = TcpListener(qmond.service.net, 7001)
    try:
        NameServers(qmond).set("127.0.0.3")
        expect_first_result_good(qmond, kind="tcp", target="www.example.test:7001")
    finally:
        listener.close()
        server.close()


def test_names_are_resolved(qmond):
    qmond.configure({"id": 1, "kind": "icmp", "target": "localhost"},
                    {"id": 2, "kind": "tcp", "target": "localhost:7004"},
                    {"id": 3, "kind": "icmp", "target": "no-such-host.invalid"},
                    {"id": 4, "kind": "icmp", "target": "box.LocalHost"})
    qmond.start()
    for operation, code in ((1, 1), (2, 4), (3, 5), (4, 1)):
        qmond.wait_code(operation, code)
