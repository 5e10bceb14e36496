"""A keepalived whose VRRP instances follow links and report their states to a FIFO."""

import os
import shutil
import subprocess
import tempfile

from waiting import wait_until

INSTANCE = """
vrrp_instance {name} {{
    state BACKUP
    interface k0
    virtual_router_id {number}
    priority 100
    advert_int 255
    virtual_ipaddress {{
        10.255.1.{number}/32
    }}
    track_interface {{
        {link}
    }}
    {notify}
}}
"""


class Keepalived:
    """`followers`: (name, link) pairs, at most 255. No instance becomes a master while this lives:
    they wait for somebody else's word for more than twelve minutes. `notify`: a line of shell that
    each change runs, with what it prints going to the FIFO `told`."""

    def __init__(self, net, followers, notify=None):
        self._net = net
        self.directory = tempfile.mkdtemp(prefix="keepalived-")
        self.fifo = f"{self.directory}/states"
        os.mkfifo(self.fifo)
        self.told = f"{self.directory}/told"
        os.mkfifo(self.told)
        run = f"{self.directory}/notify"
        with open(run, "w", encoding="ascii") as stream:
            stream.write(f"#!/bin/sh\n{notify} > {self.told}\n")
        os.chmod(run, 0o755)
        net.link("k0")
        net.ip("address add 10.255.0.1/16 dev k0")
        with open(f"{self.directory}/conf", "w", encoding="ascii") as conf:
            conf.write("global_defs {\n    vrrp_version 2\n    script_user root\n"
                       f"    vrrp_notify_fifo {self.fifo}\n}}\n")
            for number, (name, link) in enumerate(followers, 1):
                conf.write(INSTANCE.format(name=name, number=number, link=link,
                                           notify=f'notify "{run}"' if notify else ""))
        self._reader = os.open(self.fifo, os.O_RDWR | os.O_NONBLOCK)
        self._kept = os.open(self.told, os.O_RDWR)  # so that no script waits for a reader
        self._process = subprocess.Popen(
            [*net.command(), "keepalived", "--dont-fork", "--vrrp", "--use-file",
             f"{self.directory}/conf", "--pid", f"{self.directory}/pid", "--vrrp_pid",
             f"{self.directory}/vrrp_pid"], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        text = b""

        def all_told():
            nonlocal text
            try:
                text += os.read(self._reader, 65536)
            except BlockingIOError:
                pass
            return text.count(b" BACKUP ") >= len(followers)

        wait_until(all_told, 30, "keepalived follows its links")

    def close(self):
        self._process.terminate()
        self._process.wait()
        os.close(self._reader)
        os.close(self._kept)
        shutil.rmtree(self.directory)
