"""A BFD neighbour that a test drives packet by packet: what it sends is what the test says, and
what it hears is kept with the time at which it came.

RFC 5880, 4.1 for the packet; RFC 5881 for port and TTL.
"""

import dataclasses
import os
import select
import socket
import struct
import time

from priority import PRIORITY
from targets import in_namespace
from waiting import wait_until

PORT = 3784
ADMIN_DOWN, DOWN, INIT, UP = range(4)
POLL, FINAL, AUTHENTICATION, DEMAND, MULTIPOINT = 0x20, 0x10, 0x04, 0x02, 0x01
NO_REASON, EXPIRED, SIGNALED_DOWN, PATH_DOWN, BY_HAND = 0, 1, 3, 5, 7
# Not in Python's socket module. What comes of the first is IP_TTL, and of the second the time at
# which the kernel got the packet, however late it is read.
_IP_RECVTTL = 12
_SO_TIMESTAMPNS = 35
_TIME = struct.Struct("@ll")
# A busy machine may hold packets back, or the test: a session that is to stay up does not fall by it.
RARELY_MISSED = dict(multiplier=20)
_FORMAT = struct.Struct("!BBBBIIIII")


@dataclasses.dataclass
class Packet:
    """Intervals in milliseconds. `length` and `version` may lie."""
    state: int = DOWN
    my: int = 0x5eed
    your: int = 0
    tx: int = 100
    rx: int = 100
    multiplier: int = 3
    flags: int = 0
    reason: int = 0
    version: int = 1
    length: int = _FORMAT.size

    def encode(self):
        return _FORMAT.pack(self.version << 5 | self.reason, self.state << 6 | self.flags,
                            self.multiplier, self.length, self.my, self.your, self.tx * 1000,
                            self.rx * 1000, 0)


@dataclasses.dataclass
class Heard:
    """A packet of the service's, and how it came."""
    packet: Packet
    at: float
    source: tuple
    ttl: int
    tos: int

    @staticmethod
    def decode(data, at, source, ttl, tos):
        assert len(data) == _FORMAT.size, data
        first, second, multiplier, length, my, your, tx, rx, echo = _FORMAT.unpack(data)
        assert (length, echo) == (_FORMAT.size, 0)
        assert tx % 1000 == rx % 1000 == 0
        packet = Packet(second >> 6, my, your, tx // 1000, rx // 1000, multiplier, second & 0x3f,
                        first & 0x1f, first >> 5, length)
        return Heard(packet, at, source, ttl, tos)


class BfdPeer:
    def __init__(self, net, address="10.9.0.2", neighbour="10.9.0.1"):
        """In the namespace of `net`, which has the address. The calling thread, which is the one that
        speaks, has real-time priority until the close; what it starts has not."""
        self._neighbour = neighbour
        self._receiver, self._sender = in_namespace(net.name, lambda: [
            socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)])
        self._receiver.setsockopt(socket.SOL_SOCKET, _SO_TIMESTAMPNS, 1)
        for option in (_IP_RECVTTL, socket.IP_RECVTOS):
            self._receiver.setsockopt(socket.IPPROTO_IP, option, 1)
        self._receiver.bind((address, PORT))
        self._sender.bind((address, 49152))
        self.heard = []
        self.sent = None  # when it has spoken last
        os.sched_setscheduler(0, os.SCHED_RR | os.SCHED_RESET_ON_FORK, os.sched_param(PRIORITY))

    def close(self):
        os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))
        self._receiver.close()
        self._sender.close()

    def send(self, packet=None, ttl=255, extra=b"", **fields):
        """Sends the packet, by default one for the session that was heard last."""
        if packet is None:
            packet = Packet(**{"your": self.last().my if self.heard else 0, **fields})
        self._sender.setsockopt(socket.IPPROTO_IP, socket.IP_TTL, ttl)
        self.sent = time.monotonic()
        self._sender.sendto(packet.encode() + extra, (self._neighbour, PORT))

    def send_bytes(self, data):
        self._sender.setsockopt(socket.IPPROTO_IP, socket.IP_TTL, 255)
        self._sender.sendto(data, (self._neighbour, PORT))

    def last(self):
        return self.heard[-1].packet

    def _take(self):
        data, control, _, source = self._receiver.recvmsg(2048, 256)
        values = {(level, kind): value for level, kind, value in control}
        seconds, nanoseconds = _TIME.unpack(values[socket.SOL_SOCKET, _SO_TIMESTAMPNS])
        late = time.time() - (seconds + nanoseconds / 1e9)
        self.heard.append(Heard.decode(data, time.monotonic() - late, source, *(
            int.from_bytes(values[socket.IPPROTO_IP, kind][:4], "little")
            for kind in (socket.IP_TTL, socket.IP_TOS))))

    def take_all(self):
        """Reads what has come."""
        while select.select([self._receiver], [], [], 0)[0]:
            self._take()

    def listen(self, seconds):
        """What comes within that time."""
        self.take_all()
        before = len(self.heard)
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            if select.select([self._receiver], [], [], left)[0]:
                self._take()
        return self.heard[before:]

    def expect(self, seconds=5, **fields):
        """Waits for a packet with these fields, `flags` being those that must be set; it."""
        looked_at = len(self.heard)

        def found():
            nonlocal looked_at
            if select.select([self._receiver], [], [], 0.05)[0]:
                self._take()
            while looked_at < len(self.heard):
                heard = self.heard[looked_at]
                looked_at += 1
                if all(getattr(heard.packet, name) & value == value if name == "flags"
                       else getattr(heard.packet, name) == value
                       for name, value in fields.items()):
                    return heard
            return None

        return wait_until(found, seconds, f"a packet with {fields}")

    def keep_up(self, seconds, **fields):
        """Speaks as a neighbour that is up for that time, and answers polls; what came."""
        fields = {**RARELY_MISSED, **fields}
        self.take_all()
        before = len(self.heard)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.send(state=UP, **fields)
            for _ in filter(lambda one: one.packet.flags & POLL, self.listen(0.05)):
                self.send(state=UP, flags=FINAL, **fields)
        return self.heard[before:]

    def bring_up(self, **fields):
        fields = {**RARELY_MISSED, **fields}
        self.expect(state=DOWN)
        self.send(state=DOWN, **{"your": 0, **fields})
        self.expect(state=INIT, your=Packet.my)
        self.send(state=INIT, **fields)
        polled = self.expect(state=UP, flags=POLL)
        self.send(state=UP, flags=FINAL, **fields)
        return polled
