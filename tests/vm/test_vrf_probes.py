"""Probe operations in a VRF: they leave through it and hear the answers."""

import json

import pytest

from guest_service import PATIENCE, GuestNamespace
from waiting import wait_until


@pytest.fixture
def peer(service, guest):
    """A namespace at 10.0.0.2 that only the VRF red reaches."""
    service.net.vrf("red", 10)
    other = GuestNamespace(guest)
    service.net.ip("link add r0 type veth peer name up0", f"link set up0 netns {other.name}",
                   "link set r0 master red", "address add 10.0.0.1/24 dev r0", "link set r0 up")
    other.ip("address add 10.0.0.2/24 dev up0", "link set up0 up")
    yield other
    other.close()


def operation(number, **keys):
    keys = {"id": number, "interval": "1s", "timeout": "900ms", **keys}
    return "[[operation]]\n" + "".join(f"{key} = {json.dumps(keys[key])}\n" for key in keys)


def test_an_operation_leaves_through_its_vrf(service, guest, peer):
    echo = {"kind": "icmp", "target": "10.0.0.2"}
    connect = {"kind": "tcp", "target": "10.0.0.2:9"}
    service.start_qmond(operation(1, vrf="red", **echo), operation(2, **echo),
                        operation(3, vrf="red", **connect), operation(4, **connect),
                        operation(5, vrf="red", source="10.0.0.1", **echo))
    names = ("in-red", "outside", "connect-in-red", "connect-outside", "from-source")
    for number, name in enumerate(names, 1):
        service.ctl("set", name, "probe", str(number))
    service.wait_states(**{"in-red": "up", "outside": "down", "connect-in-red": "down",
                           "connect-outside": "down", "from-source": "up"})

    def codes():
        return {row["operation"]: row["code"] for row in service.qmond_status()}
    # Refused by the peer itself in the VRF; no way to it outside.
    wanted = {1: 1, 2: 3, 3: 4, 4: 3, 5: 1}
    wait_until(lambda: codes() == wanted, PATIENCE, f"codes {wanted}")
    peer.ip("link set up0 down")
    service.wait_states(**{"in-red": "down"})
    peer.ip("link set up0 up")
    service.wait_states(**{"in-red": "up"})
