"""What is the user's in FRR stays his while the service runs sessions by the shell's socket, and nothing of the
service's is left."""

import os
import signal
import time

import pytest

import bfd_engines
from bfd_site import BfddSite
from bird import BfdSession
from waiting import wait_until

BFD = ("configure terminal", "bfd")
OF_THE_USER = (*BFD, "profile fast", "receive-interval 70", "exit",
               "peer 10.9.1.2 interface e1", "profile fast", "exit",
               "peer 10.9.77.2 multihop local-address 10.9.1.1", "exit")


@pytest.fixture(**bfd_engines.parametrized(bfd_engines.VTY))
def engine(request):
    return request.param


@pytest.fixture
def new_site(new_service, engine, closing, monkeypatch):
    return lambda **options: closing(BfddSite(new_service(), engine, monkeypatch, 2, **options))


@pytest.fixture
def site(new_site):
    """Two links; the service is not started yet."""
    return new_site()


@pytest.fixture
def patient_site(new_site):
    """As site, with sessions that outlast a machine that stands still for a moment."""
    return new_site(interval=300)


def without_ours(lines):
    """The configuration; nothing of the service's is in it. An empty section, which FRR shows once
    somebody has looked into it, says nothing."""
    text = "\n".join(line for line in lines if line.strip(" !"))
    assert "object-tracking" not in text
    return text.replace("bfd\nexit\n", "")


def test_the_engine_is_named_with_its_release(site):
    site.service.start()
    wait_until(lambda: "vty socket" in site.engine()[1], 10, "the engine")
    version = site.frr.vtysh("show version").split()[1]
    assert site.engine()[1].startswith(f"FRR {version}, vty socket")


def test_the_users_configuration_is_as_before(site):
    site.frr.vtysh(*OF_THE_USER)
    before = without_ours(site.frr.configuration())
    site.service.start()
    site.configure(0)
    site.configure(1)
    site.wait(0, "up")
    site.wait(1, "up")
    assert site.marks() == {"10.9.0.2"}
    site.service.ctl("delete", "t0")
    site.service.ctl("delete", "t1")
    wait_until(lambda: not site.marks(), 10, "no session of ours")
    wait_until(lambda: without_ours(site.frr.configuration()) == before, 10, "as before")
    site.configure(0)
    site.wait(0, "up")
    site.service.stop()
    assert without_ours(site.frr.configuration()) == before


def test_logging_that_the_user_has_switched_on_stays_on(site):
    site.frr.vtysh("configure terminal", "debug bfd peer")
    site.service.start()
    site.configure(0)
    site.wait(0, "up")
    site.service.stop()
    assert "debug bfd peer" in site.frr.configuration()


def test_a_crash_leaves_nothing_for_good(site):
    before = without_ours(site.frr.configuration())
    site.up()
    site.service.crash()
    site.service.start()
    site.wait_all("up")
    site.service.stop()
    assert without_ours(site.frr.configuration()) == before


def sessions_up(site, links):
    """Waits for the neighbour to have the sessions on these links up; its view of them, with the
    time of the last change."""
    def there():
        sessions = site.peer.bfd()
        return [sessions.get(f"10.9.{number}.1") for number in links]

    wait_until(lambda: all(session and session.state == "Up" for session in there()), 10,
               "the neighbour's sessions")
    return there()


def test_the_neighbour_does_not_notice_a_crash(patient_site):
    site = patient_site.up()
    before = sessions_up(site, site.links)
    site.service.crash()
    time_of_start = time.monotonic()
    site.service.start()
    site.wait_all("up")
    # By then what nobody wants would be gone.
    wait_until(lambda: time.monotonic() - time_of_start > 4, 10, "leftovers are tidied up")
    assert len(site.marks()) == 2
    assert all(map(BfdSession.is_still, sessions_up(site, site.links), before))


def test_a_peer_that_somebody_deletes_is_made_again(site):
    site.service.start()
    site.configure(0)
    site.wait(0, "up")
    follower = site.service.follow(["t0"])
    site.frr.vtysh(*BFD, "no peer 10.9.0.2 interface e0")
    follower.expect(("t0", "down"))
    follower.expect(("t0", "up"))
    assert site.marks() == {"10.9.0.2"}


def test_another_address_of_ours_is_spoken_from(site):
    site.service.start()
    site.configure(0)
    site.wait(0, "up")
    follower = site.service.follow(["t0"])
    net = site.service.net
    net.ip_batch(["addr del 10.9.0.1/24 dev e0", "addr add 10.9.0.7/24 dev e0"])
    follower.expect(("t0", "down"))
    wait_until(lambda: any("10.9.0.7" in line for line in site.frr.configuration()), 10,
               "the other address")
    net.ip_batch(["addr del 10.9.0.7/24 dev e0", "addr add 10.9.0.1/24 dev e0"])
    follower.expect(("t0", "up"))
    site.service.ctl("delete", "t0")
    wait_until(lambda: site.frr.peers() == [], 10, "no session")


def test_a_refused_session_says_why(site):
    """FRR takes no peer with an interface beside the same one without."""
    site.service.start()
    site.configure(0)
    site.wait(0, "up")
    assert site.marks() == {"10.9.0.2"}
    # Not between the two commands, of which each is done at once, shall the service make its own again.
    pid = site.service.daemon.pid
    os.kill(pid, signal.SIGSTOP)
    try:
        site.frr.vtysh(*BFD, "no peer 10.9.0.2 interface e0", "peer 10.9.0.2", "exit")
    finally:
        os.kill(pid, signal.SIGCONT)
    wait_until(lambda: [peer.get("interface") for peer in site.frr.peers()] == [None], 10,
               "the user's peer")
    site.wait(0, "up")
    assert not site.marks()


def test_a_session_of_a_routing_protocol_is_left_alone(site):
    if not site.frr.has("mgmtd"):
        pytest.skip("this release's staticd knows no BFD")
    site.frr.start_staticd({"192.0.2.0/24": "10.9.0.2 bfd"})
    site.service.start()
    wait_until(lambda: site.frr.states().get("10.9.0.2"), 10, "staticd's session")
    site.configure(0)
    site.wait(0, "up")
    [before] = site.frr.peers()
    assert (before["type"], before["receive-interval"]) == ("dynamic", 300)
    site.service.ctl("delete", "t0")
    site.service.stop()
    [after] = site.frr.peers()
    assert (after["type"], after["id"], after["status"]) == ("dynamic", before["id"], "up")


def test_a_session_of_ours_that_a_protocol_comes_to_use_never_falls_for_us(patient_site):
    site = patient_site
    if not site.frr.has("mgmtd"):
        pytest.skip("this release's staticd knows no BFD")
    site.service.start()
    site.configure(0)
    site.wait(0, "up")
    site.frr.start_staticd({"192.0.2.0/24": "10.9.0.2 bfd"})
    wait_until(lambda: "(status: installed)" in site.frr.vtysh("show bfd static route"), 10,
               "staticd knows of the session")
    before = sessions_up(site, [0])
    site.service.stop()
    wait_until(lambda: [peer["type"] for peer in site.frr.peers()] == ["dynamic"], 10,
               "staticd's session")
    assert all(map(BfdSession.is_still, sessions_up(site, [0]), before))
