"""Where BFD tracks are tested: the service in one namespace, its neighbour in another, and links
between the two."""

import functools
import json
import os
import typing

import pytest

import bfd_engines
from bird import Bird, bfd_sessions
from frr import Frr
from frr_release import MACHINE, debian13
from netns import NetworkNamespace
from waiting import wait_until

INTERVAL, MULTIPLIER = 50, 3
DETECTION = INTERVAL * MULTIPLIER / 1000


class FrrSession(typing.NamedTuple):
    """A session as FRR's bfdd says it: its state as BIRD would say it, and why it is so."""
    state: str
    diagnostic: str
    remote_diagnostic: str


class FrrPeer:
    """FRR at the other end; as a Bird."""

    def __init__(self, net, neighbours, interval, release=MACHINE):
        self._frr = Frr(net, release)
        self._interval = interval
        self._commands = ["configure terminal", "bfd"]
        for address, interface in neighbours:
            local = address[:-1] + "2"
            self._commands += [f"peer {address} interface {interface} local-address {local}",
                               f"receive-interval {interval}", f"transmit-interval {interval}",
                               f"detect-multiplier {MULTIPLIER}", "exit"]

    def start(self):
        self._frr.start_bfdd("bfdd.vty")
        self._frr.vtysh(*self._commands)

    def stop(self):
        self._frr.stop("bfdd")

    def kill(self):
        self._frr.kill("bfdd")

    def bfd(self):
        return {peer["peer"]: FrrSession(peer["status"].capitalize(), peer.get("diagnostic"),
                                         peer.get("remote-diagnostic"))
                for peer in self._frr.peers()}

    def shut(self, number, shut):
        """Administratively down, or not."""
        self._frr.vtysh(*self._commands[:2], self._commands[2 + 5 * number],
                        "shutdown" if shut else "no shutdown")

    def set_interval(self, interval):
        self._frr.vtysh(*[command.replace(f"-interval {self._interval}", f"-interval {interval}")
                          for command in self._commands])

    def close(self):
        self._frr.close()


def bird_peer(net, neighbours, interval):
    return Bird(net, bfd_sessions(neighbours, interval, MULTIPLIER))


def debian13_peer(net, neighbours, interval):
    release, reason = debian13()
    if release is None:
        pytest.skip(reason)
    return FrrPeer(net, neighbours, interval, release)


PEERS = {"bird": bird_peer, "frr": FrrPeer, "frr-trixie": debian13_peer}


class Site:
    """The service runs the sessions itself, and is not started yet; the neighbour is. Link N is the
    interface eN, 10.9.N.1 here and 10.9.N.2 there, and its track is tN."""

    def __init__(self, service, links=1, interval=INTERVAL, peer="bird"):
        self.service = service
        self.links = range(links)
        self.interval = interval
        self.peer = None
        self.far = NetworkNamespace()
        try:
            for number in self.links:
                self.plug(number)
            neighbours = [(f"10.9.{number}.1", f"e{number}") for number in self.links]
            self.peer = PEERS[peer](self.far, neighbours, interval)
            self.peer.start()
        except BaseException:
            Site.close(self)
            raise

    def close(self):
        for part in (self.peer, self.far):
            if part is not None:
                part.close()

    def plug(self, number):
        near, far = self.service.net, self.far
        near.ip(f"link add e{number} type veth peer name e{number} netns {far.name}")
        near.ip(f"addr add 10.9.{number}.1/24 dev e{number}")
        far.ip(f"addr add 10.9.{number}.2/24 dev e{number}")
        for net in (near, far):
            net.ip(f"link set e{number} up")

    def far_links(self, changes):
        """`changes`: (number, up) pairs, all in one go."""
        self.far.ip_batch([f"link set e{number} {'up' if up else 'down'}"
                           for number, up in changes])

    def far_link(self, number, up):
        self.far_links([(number, up)])

    def configure(self, number):
        self.service.ctl("set", f"t{number}", "bfd", f"10.9.{number}.2", "--interface",
                         f"e{number}", "--rate", str(self.interval), "--debounce",
                         str(MULTIPLIER))

    def up(self):
        """The service runs, and all tracks are made and up."""
        self.service.start()
        for number in self.links:
            self.configure(number)
        self.wait_all("up")
        return self

    def wait(self, number, state):
        self.service.wait_state(f"t{number}", state)

    def states(self):
        """Track name to state."""
        return {track["name"]: track["state"] for track in self.service.tracks()}

    def wait_all(self, state):
        wanted = {f"t{number}": state for number in self.links}
        wait_until(lambda: self.states() == wanted, self.service.build.patience * 2,
                   f"{len(wanted)} tracks {state}")

    def wait_asleep(self, number):
        """Waits until whoever runs the sessions has that one, which has no interface, if he is one
        to take it at all."""

    def within(self, seconds):
        """The time that a test may take for what takes `seconds`: instrumented programs get more."""
        return self.service.build.patience if self.service.build.sanitized else seconds

    def engine(self):
        """What `trackctl engine` tells of BFD: connected, and the words."""
        shown = json.loads(self.service.ctl("engine", "--json"))
        [row] = [row for row in shown if row["service"] == "bfd"]
        return row["connected"], row["detail"]

    def wait_engine(self, connected, words, patience=20):
        wait_until(lambda: self.engine()[0] == connected and words in self.engine()[1], patience,
                   f"engine {words}")

    def state_there(self, number):
        """Of the session, as the neighbour sees it; None when it has none."""
        session = self.peer.bfd().get(f"10.9.{number}.1")
        return session and session.state

    def wait_peer(self, state, number=0):
        wait_until(lambda: self.state_there(number) == state,
                   self.service.build.patience, f"the neighbour's session {state}")


class BfddSite(Site):
    """A bfdd of FRR beside the service runs the sessions, by one of its sockets; the neighbour is a
    BIRD."""

    def __init__(self, service, engine, environment, links=1, interval=INTERVAL):
        """`environment`: pytest's, which tells the service of the socket."""
        release = engine.release()
        self._engine = engine
        self.frr = None
        super().__init__(service, links, interval)
        try:
            self.frr = Frr(service.net, release)
            self.start_bfdd()
        except BaseException:
            self.close()
            raise
        run = os.path.join(service.root, "run")
        os.makedirs(run, exist_ok=True)
        os.symlink(self.frr.directory, os.path.join(run, "frr"))
        environment.setenv("OT_BFDD_SOCKET", os.path.join(run, "frr", engine.socket))

    def close(self):
        if self.frr is not None:
            self.frr.close()
        super().close()

    def start_bfdd(self):
        self.frr.start_bfdd(self._engine.socket)

    def marks(self):
        """Of the sessions that bfdd has for the service."""
        return self._engine.marks(self.frr)

    def wait_asleep(self, number):
        if self._engine.makes_dormant:
            wait_until(lambda: self.frr.states() == {f"10.9.{number}.2": False}, 10, "the session")


def _own(peer, service, environment, **options):
    del environment
    return Site(service, peer=peer, **options)


def _bfdd(engine, service, environment, **options):
    return BfddSite(service, engine, environment, **options)


# Whoever runs the sessions, and whoever is at the other end: a function each that makes the site,
# from the service, pytest's environment, `links` and `interval`.
EVERY = {**{f"own-{peer}": functools.partial(_own, peer) for peer in PEERS},
         **{name: functools.partial(_bfdd, engine) for name, engine in bfd_engines.ALL.items()}}
