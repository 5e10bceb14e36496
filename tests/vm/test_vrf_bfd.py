"""BFD sessions are run in the default VRF; one whose interface is in another says so."""

import json

from guest_service import PATIENCE
from waiting import wait_until

IN_A_VRF = "the interface is in a VRF; sessions are run in the default VRF only"


def wait_problem(service, wanted):
    def has():
        session = json.loads(service.ctl("show", "peer", "--json"))["object"]["session"]
        return session is not None and session["problem"] == wanted
    wait_until(has, PATIENCE, f"a session with the problem {wanted}")


def test_a_session_over_an_interface_of_a_vrf_says_why_it_is_not_run(service):
    service.net.link("r0")
    service.net.ip("address add 10.0.0.1/24 dev r0")
    service.net.vrf("red", 10)
    service.ctl("set", "peer", "bfd", "10.0.0.2", "--interface", "r0", "--rate", "300",
                "--debounce", "3")
    wait_problem(service, None)
    service.net.ip("link set r0 master red")
    wait_problem(service, IN_A_VRF)
    service.net.ip("link set r0 nomaster")
    wait_problem(service, None)
