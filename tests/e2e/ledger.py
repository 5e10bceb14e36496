"""Raw commits through the ledger, many in one process: the test tool ledger_put."""

import ipaddress
import subprocess


def track_items(name, interface):
    """The changes that configure an interface track, as one commit."""
    track = f"/cfg/gl/object_tracking/track/{name}"
    return [
        f"set u32 {track}/a 1",
        f"set u32 {track}/type/interface/0x1/a 1",
        f"set text {track}/type/interface/0x1/info/interface {interface}",
    ]


def route_track_items(name, prefix, vrf=None):
    """The changes that configure a track of a route, in the default VRF or another, as one commit."""
    track = f"/cfg/gl/object_tracking/track/{name}"
    network = ipaddress.IPv4Network(prefix)
    return [
        f"set u32 {track}/a 1",
        f"set u32 {track}/type/route/0x2/a 1",
        *([f"set text {track}/type/route/0x2/info/vrf {vrf}"] if vrf else []),
        f"set tuple {track}/type/route/0x2/info/ip_address "
        f"{network.network_address} {network.netmask}",
    ]


def route_track_removal(name):
    """The changes that remove such a track, as one commit."""
    track = f"/cfg/gl/object_tracking/track/{name}"
    return [
        f"delete {track}/type/route/0x2/info/ip_address",
        f"delete {track}/type/route/0x2/a",
        f"delete {track}/a",
    ]


def track_removal(name):
    """The changes that remove an interface track, as one commit."""
    track = f"/cfg/gl/object_tracking/track/{name}"
    return [
        f"delete {track}/type/interface/0x1/info/interface",
        f"delete {track}/type/interface/0x1/a",
        f"delete {track}/a",
    ]


def commit_text(commits):
    """What ledger_put reads: each list of changes is a commit."""
    return "".join("\n".join([*changes, "commit\n"]) for changes in commits)


def commit(build, root, commits):
    """Makes each list of changes a commit; returns one answer line for each ("0x00000000": done),
    with its refusals behind it."""
    text = commit_text(commits)
    result = subprocess.run(build.command("ledger_put"), env=build.environment(root), input=text,
                            stdout=subprocess.PIPE, text=True)
    assert result.returncode in (0, 1), f"ledger_put ended with {result.returncode}"
    answers = []
    for line in result.stdout.splitlines():
        if line.startswith("\t"):
            answers[-1] += line
        else:
            answers.append(line)
    assert len(answers) == len(commits)
    return answers
