"""Servers that behave badly, and how badly: a program of its own, beside a test in its namespace.

Run as `hostile_targets.py FOLDER`, where the certificates are; it prints a line when all of them
listen, and serves until it is killed. Those that take a processor each are a program of their own:
`hostile_targets.py floods`. The numbers are ports on 127.0.0.1; a target's row says what it does to
whoever comes.
"""

import itertools
import socket
import ssl
import struct
import subprocess
import sys
import threading

from certificates import make_certificate

OK = b"HTTP/1.1 200 OK\r\n"
BLOCK = b"x" * 65536


def answer(connection, *parts):
    """Reads a request, then sends the parts, however many there are."""
    connection.recv(65536)
    for part in parts:
        connection.sendall(part)


def send_for_ever(connection, first, more):
    answer(connection, first)
    while True:
        connection.sendall(more)


def drip(connection):
    """A byte of a header at a time, which never comes to an end."""
    connection.recv(65536)
    pause = threading.Event()
    for byte in itertools.chain(OK, itertools.cycle(b"X: y\r\n")):
        connection.sendall(bytes([byte]))
        pause.wait(0.02)


def silent(connection):
    while connection.recv(65536):
        pass


def reset(connection):
    connection.recv(65536)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


# Port to what happens to a connection.
PLAIN = {
    7100: lambda c: answer(c, OK, b"Content-Length: 2\r\n\r\nok"),
    7101: lambda c: send_for_ever(c, OK + b"\r\n", BLOCK),  # a body without an end
    7102: lambda c: send_for_ever(c, OK, b"X-More: and more\r\n" * 100),  # headers without an end
    7103: lambda c: send_for_ever(c, b"", b"HTTP/1.1 100 Continue\r\n\r\n" * 100),
    7104: lambda c: send_for_ever(c, OK + b"X-Long: ", BLOCK),
    7105: drip,
    7106: silent,
    7107: lambda c: answer(c, b"\x00\xff nonsense \r\n\r\n" * 100),
    7108: lambda c: answer(c, b"HTTP/1.1 302 Found\r\nLocation: /\r\nContent-Length: 0\r\n\r\n"),
    7109: reset,
    7110: lambda c: answer(c, OK, b"Content-Length: 99999999999\r\n\r\n", BLOCK),
    7111: lambda c: None,  # closed at once
    7112: lambda c: send_for_ever(c, OK + b"Transfer-Encoding: chunked\r\n\r\n", b"1\r\nx\r\n" * 9999),
}
# The same behind a certificate.
SECURE = {
    7120: (PLAIN[7100], "expired"),
    7121: (PLAIN[7101], "expired"),
    7122: (silent, "expired"),
    7123: (PLAIN[7100], "valid"),
}


def serve_stream(port, treat, context):
    listener = socket.create_server(("127.0.0.1", port), backlog=128)

    def one(connection):
        try:
            if context is not None:
                connection = context.wrap_socket(connection, server_side=True)
            with connection:
                treat(connection)
        except OSError:  # a client that has had enough
            pass

    def run():
        while True:
            threading.Thread(target=one, args=(listener.accept()[0],), daemon=True).start()

    threading.Thread(target=run, daemon=True).start()


def dns_reply(query, name=None, flags=b"\x81\x80"):
    """An answer with one address, to the query's question or to that of another name."""
    question = query[12:] if name is None else name + query[-4:]
    return (query[:2] + flags + b"\x00\x01\x00\x01\x00\x00\x00\x00" + question
            + b"\xc0\x0c\x00\x01\x00\x01\x00\x00\x00\x3c\x00\x04\xc0\x00\x02\x07")


def flood(reply, query, client, pause=0.0):
    """Packets without an end, of another id, to whoever asked last."""
    wrong = bytes([query[0] ^ 1]) + query[1:]
    pacing = threading.Event()
    try:
        while reply.latest == client:
            for _ in range(20):
                reply(wrong, client)
            if pause:
                pacing.wait(pause)
    except OSError:
        pass


# Port to what happens to a query.
DATAGRAMS = {
    7130: lambda reply, query, client: reply(dns_reply(query), client),
    7131: lambda reply, query, client: reply(dns_reply(query, b"\x05other\x00"), client),
    7132: lambda reply, query, client: reply(query[:2] + b"\xff" * 40, client),
    7133: lambda reply, query, client: reply(b"", client),
    7134: lambda reply, query, client: reply(dns_reply(query)[:20], client),
    7135: lambda reply, query, client: None,
    7136: lambda reply, query, client: flood(reply, query, client, 0.005),
}
FLOODS = {port: flood for port in range(7140, 7144)}


def serve_datagrams(port, treat):
    server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    server.bind(("127.0.0.1", port))

    def reply(data, client):
        server.sendto(data, client)

    def run():
        while True:
            try:
                query, client = server.recvfrom(65536)
            except ConnectionError:  # an earlier client that is gone
                continue
            reply.latest = client
            threading.Thread(target=treat, args=(reply, query, client), daemon=True).start()

    threading.Thread(target=run, daemon=True).start()


def serve_all(folder):
    for port, treat in PLAIN.items():
        serve_stream(port, treat, None)
    for port, (treat, name) in SECURE.items():
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(f"{folder}/{name}.pem", f"{folder}/{name}.key")
        serve_stream(port, treat, context)
    for port, treat in DATAGRAMS.items():
        serve_datagrams(port, treat)


def main(what):
    if what == "floods":
        for port, treat in FLOODS.items():
            serve_datagrams(port, treat)
    else:
        serve_all(what)
    print("ready", flush=True)
    sys.stdin.read()


class HostileTargets:
    """All of them, in the namespace."""

    def __init__(self, net, folder):
        make_certificate(folder, "expired", "20200101000000Z", "20200201000000Z")
        make_certificate(folder, "valid", "20200101000000Z", "20491231000000Z")
        self._net = net
        self._processes = []
        self._start(folder)

    def start_floods(self):
        self._start("floods")

    def _start(self, what):
        process = subprocess.Popen([*self._net.command(), sys.executable, __file__, what],
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self._processes.append(process)
        assert process.stdout.readline() == "ready\n"

    def close(self):
        for process in self._processes:
            process.kill()
            process.communicate()


if __name__ == "__main__":
    main(*sys.argv[1:])
