"""Traffic of a client whose router loses the far end of an uplink: it stops for what the probes take
to notice, and hardly more."""

import subprocess
import sys
import time

from lateness import Lateness
from netns import NetworkNamespace
from policy import Trackpolicy
from probe_fixtures import qmond, two_polls  # noqa: F401 (a fixture)
from waiting import wait_until

SERVER = "203.0.113.1"

ECHO = f"""
import socket
server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
server.bind(("{SERVER}", 7))
print("ready", flush=True)
while True:
    data, client = server.recvfrom(100)
    try:
        server.sendto(data, client)
    except OSError:
        pass  # this end has gone
"""

# Asks every 5 ms until its input ends; prints when the longest time without an answer was over, and
# how long it was.
ASK = f"""
import select, socket, sys, time
asking = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
asking.connect(("{SERVER}", 7))
asking.setblocking(False)
answered, longest = None, (0.0, 0.0)
while True:
    try:
        asking.send(b"x")
    except OSError:
        pass  # no route at the moment
    ready, _, _ = select.select([asking, sys.stdin], [], [], 0.005)
    if sys.stdin in ready:
        break
    if asking in ready:
        try:
            asking.recv(100)
        except OSError:
            continue
        now = time.monotonic()
        if answered is None:
            print("ready", flush=True)
        elif now - answered > longest[0]:
            longest = (now - answered, now)
        answered = now
        time.sleep(0.005)
print(*longest)
"""


def run_inside(net, text):
    process = subprocess.Popen([*net.command(), sys.executable, "-c", text], text=True,
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert process.stdout.readline() == "ready\n"
    return process


class Network:
    """A client behind the router, and two far ends that both answer for the server."""

    def __init__(self, router):
        self.router = router
        self.client, self.far = NetworkNamespace(), (NetworkNamespace(), NetworkNamespace())
        self.processes = []
        router.ip_batch(["link set lo up",
                         f"link add acc0 type veth peer name eth0 netns {self.client.name}",
                         "address add 10.0.0.1/24 dev acc0", "link set acc0 up"])
        self.client.ip_batch(["address add 10.0.0.2/24 dev eth0", "link set eth0 up",
                              "route add default via 10.0.0.1"])
        for number, far in enumerate(self.far, 1):
            router.ip_batch([f"link add wan{number} type veth peer name eth0 netns {far.name}",
                             f"address add 192.0.{number}.2/24 dev wan{number}",
                             f"link set wan{number} up"])
            far.ip_batch([f"address add 192.0.{number}.1/24 dev eth0", "link set lo up",
                          "link set eth0 up", f"address add {SERVER}/32 dev lo",
                          f"route add 10.0.0.0/24 via 192.0.{number}.2"])
            self.processes.append(run_inside(far, ECHO))
        subprocess.run([*router.command(), "sysctl", "-qw", "net.ipv4.ip_forward=1"], check=True)

    def close(self):
        for process in self.processes:
            process.kill()
            process.wait()
            process.stdin.close()
            process.stdout.close()
        for net in (self.client, *self.far):
            net.close()


def test_a_client_loses_no_more_than_what_the_probes_take_to_notice(service, qmond, closing):
    net = closing(Network(service.net))
    # Probes that are answered in time by a busy machine, too.
    qmond.configure(*({"id": number, "kind": "icmp", "target": f"192.0.{number}.1", "interval": "1s",
                       "timeout": "900ms", "interface": f"wan{number}"} for number in (1, 2)))
    qmond.start()
    policy = closing(Trackpolicy(service))
    rows = []
    for number in (1, 2):
        service.ctl("set", f"way{number}", "probe", str(number))
        rows.append({"name": f"way{number}", "track": f"way{number}", "kind": "route",
                     "to": "default", "via": f"192.0.{number}.1", "metric": 10 * number})
    policy.configure(*rows)
    policy.start()
    policy.wait_installed(2)
    asking = run_inside(net.client, ASK)
    net.processes.append(asking)
    follower = service.follow(["way1"])
    policy.wait_installed(2)
    follower.take(0)  # what was before
    with Lateness() as machine:
        died = time.monotonic()
        net.far[0].ip("address flush dev eth0")  # its interface stays up
        follower.expect(("way1", "down"))
        noticed = time.monotonic()
        wait_until(lambda: policy.list()["way1"]["doing"].startswith("withheld"),
                   service.build.patience, "withheld")
        time_of_answers = 20 * 0.005
        wait_until(lambda: time.monotonic() > noticed + time_of_answers, 5, "more answers")
    asking.stdin.close()
    lost, over = map(float, asking.stdout.read().split())
    assert over > died and lost > 0.1, "it was not noticed that the far end had gone"
    assert over - died <= max(noticed - died, two_polls(service.build) / 2) + 0.05 + machine.chain(2)
