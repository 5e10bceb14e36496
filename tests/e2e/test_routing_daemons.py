"""Route tracks while a routing daemon installs thousands of routes, is restarted and is killed."""

import pytest

import ledger
from bird import Bird, static_routes
from frr import Frr
from truth import settle
from waiting import wait_until

GATEWAYS = {f"172.{16 + number // 250}.{number % 250}.0/24": f"10.0.{number % 2}.2"
            for number in range(5000)}
TRACKED = [*list(GATEWAYS)[::50], "10.0.0.0/24", "10.0.1.0/24", "172.0.0.0/15"]
HALF = len(GATEWAYS) // 2
PATIENCE = 30


@pytest.fixture
def router(service):
    for number in range(2):
        service.net.link(f"w{number}")
        service.net.ip(f"address add 10.0.{number}.1/24 dev w{number}")
    commits = [ledger.route_track_items(f"r{number}", prefix)
               for number, prefix in enumerate(TRACKED)]
    assert set(service.commit(commits)) == {"0x00000000"}
    return service


def installed(service):
    return len(service.net.query("route show root 172.0.0.0/8"))


def right_with(service, count):
    """Waits until so many routes are installed; then every track has to be right soon."""
    wait_until(lambda: installed(service) == count, PATIENCE, f"{count} routes")
    settle(service)


@pytest.fixture
def frr(router):
    daemons = Frr(router.net)
    yield daemons
    daemons.close()


def test_the_routes_of_frr(router, frr):
    frr.start_staticd(GATEWAYS)
    right_with(router, len(GATEWAYS))
    frr.kill("staticd")
    right_with(router, 0)
    frr.start_staticd(GATEWAYS)
    right_with(router, len(GATEWAYS))
    router.net.carrier("w1", on=False)
    right_with(router, HALF)
    router.net.carrier("w1", on=True)
    right_with(router, len(GATEWAYS))


def test_the_routes_of_a_zebra_that_is_killed_and_restarted(router, frr):
    frr.start_staticd(GATEWAYS)
    right_with(router, len(GATEWAYS))
    frr.kill("zebra")
    right_with(router, len(GATEWAYS))
    frr.start_zebra()  # installs them anew
    right_with(router, len(GATEWAYS))
    frr.stop("zebra")  # takes them along
    right_with(router, 0)
    frr.start_zebra()
    right_with(router, len(GATEWAYS))


@pytest.fixture
def bird(router):
    daemon = Bird(router.net, static_routes(GATEWAYS))
    yield daemon
    daemon.close()


def test_the_routes_of_bird(router, bird):
    bird.start()
    right_with(router, len(GATEWAYS))
    bird.kill()
    right_with(router, len(GATEWAYS))
    bird.start()
    right_with(router, len(GATEWAYS))
    bird.stop()  # takes them along
    right_with(router, 0)
    bird.start()
    right_with(router, len(GATEWAYS))
    router.net.ip("link set w1 down")
    right_with(router, HALF)
    router.net.ip("link set w1 up")
    right_with(router, len(GATEWAYS))
    bird.kill()
    router.net.ip("link set w0 down")
    right_with(router, HALF)
