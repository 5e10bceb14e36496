"""What probes are aimed at: servers in the namespace of a test that behave as the test says."""

import contextlib
import ctypes
import os
import socket
import subprocess
import threading

_libc = ctypes.CDLL(None, use_errno=True)
_CLONE_NEWNET = 0x40000000


def in_namespace(name, call):
    """Calls `call` in a thread that is in the network namespace; sockets it makes stay there."""
    outcome = {}

    def run():
        descriptor = os.open(f"/run/netns/{name}", os.O_RDONLY | os.O_CLOEXEC)
        try:
            if _libc.setns(descriptor, _CLONE_NEWNET) != 0:
                raise OSError(ctypes.get_errno(), "setns")
            outcome["value"] = call()
        except OSError as error:
            outcome["error"] = error
        finally:
            os.close(descriptor)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    if "error" in outcome:
        raise outcome["error"]
    return outcome["value"]


class TcpListener:
    """Accepts by the kernel's doing only, until its queue is full: then it hangs."""

    def __init__(self, net, port):
        self._net = net
        self._port = port
        self._fillers = []
        self._listener = in_namespace(net.name, self._listen)

    def _listen(self):
        listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(("127.0.0.1", self._port))
        listener.listen(64)
        return listener

    def hang(self):
        """Fills the queue of connections, so that the kernel drops further requests."""
        self._listener.listen(0)
        for _ in range(8):
            filler = in_namespace(self._net.name, socket.socket)
            filler.setblocking(False)
            filler.connect_ex(("127.0.0.1", self._port))
            self._fillers.append(filler)

    def close(self):
        for one in (*self._fillers, self._listener):
            one.close()


class HttpServer:
    """Answers every request with the bytes `answer`, or not at all when that is None. Around an
    answer it is in the context that `answering` makes."""

    def __init__(self, net, port, address="127.0.0.1"):
        self.answer = b""
        self.answering = contextlib.nullcontext
        self._held = []
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self._listener = in_namespace(
            net.name, lambda: socket.create_server((address, port), family=family))
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    @staticmethod
    def status(code):
        return f"HTTP/1.1 {code} Text\r\nContent-Length: 2\r\n\r\nok".encode()

    def _serve(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            answer = self.answer
            if answer is None:
                self._held.append(connection)
                continue
            with connection:
                try:
                    connection.recv(65536)
                    with self.answering():
                        connection.sendall(answer)
                except OSError:
                    pass  # a client that did not wait

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        for one in (*self._held, self._listener):
            one.close()


class DnsServer:
    """dnsmasq, which knows www.example.test and nobody else."""

    def __init__(self, net, port):
        self.process = subprocess.Popen(
            [*net.command(), "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null",
             "--no-resolv", "--no-hosts", f"--port={port}", "--listen-address=127.0.0.1",
             "--bind-interfaces", "--address=/www.example.test/192.0.2.7", "--pid-file",
             "--user=root"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def close(self):
        self.process.kill()
        self.process.wait()
