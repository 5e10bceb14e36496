"""The ways to have FRR's bfdd run the sessions of a service: by either of its sockets, and of which
release it is."""

import re

import pytest

from frr_release import MACHINE, debian13


class ControlSocket:
    """The older one, which bfdd has before FRR 10.2."""

    socket = "bfdd.sock"
    makes_dormant = True  # sessions whose interface is not there

    def release(self):
        if not MACHINE.has_control_socket():
            pytest.skip("this FRR's bfdd has no control socket (10.2 and later)")
        return MACHINE

    def marks(self, frr):
        """What tells the service's sessions in bfdd from those of others: a text each."""
        return {peer["label"] for peer in frr.peers() if peer.get("label", "").startswith("ot-")}


class VtySocket:
    """That of bfdd's shell."""

    socket = "bfdd.vty"
    makes_dormant = False

    def release(self):
        return MACHINE

    def marks(self, frr):
        return set(re.findall(r"peer (\S+) .*\n  profile object-tracking-",
                              "\n".join(frr.configuration())))


class VtySocketOfDebian13(VtySocket):
    """The same of FRR 10.3, where the machine's own is older."""

    def release(self):
        if not MACHINE.has_control_socket():
            pytest.skip("this machine's own FRR has no control socket either")
        release, reason = debian13()
        if release is None:
            pytest.skip(reason)
        return release


VTY = {"vty": VtySocket(), "vty-trixie": VtySocketOfDebian13()}
ALL = {"control": ControlSocket(), **VTY}


def parametrized(engines):
    """The parameters of a fixture."""
    return {"params": list(engines.values()), "ids": list(engines)}
