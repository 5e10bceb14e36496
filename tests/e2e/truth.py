"""What every track has to be, worked out from the kernel's own tables, and the wait until it is.

The tables are read whole and matched here: neither a policy rule nor a message nor a look-up of the
kernel's stands between a table and what is expected of its tracks. Where no rule can change the
kernel's own answer (`ip route get fibmatch`), that answer has to be the same as the one from here.

Of an instance it needs `net.query`, `tracks()` and `settling`, the seconds within which every track
has to be right: so it serves this machine and the virtual one.
"""

import ipaddress
import json
import subprocess
import time

MAIN, LOCAL = 254, 255
TABLES = {"default": 253, "main": MAIN, "local": LOCAL}
NO_ROUTES = ("broadcast", "anycast", "multicast")
REFUSING = ("blackhole", "unreachable", "prohibit", "throw")
EVERYTHING = "route show table all"
USUAL_RULES = {(0, "local"), (32766, "main"), (32767, "default")}


def address_number(text):
    return int(ipaddress.IPv4Address(text))


def prefix_of(track):
    """The number of its address, and its length."""
    mask = address_number(track["object"]["mask"])
    return address_number(track["object"]["prefix"]), bin(mask).count("1")


class Kernel:
    """One look at the routes and interfaces of a namespace."""

    def __init__(self, net, routes=EVERYTHING):
        """`routes`: the question for the routes, when the whole would be too much to read."""
        self.links = {link["ifname"]: link for link in net.query("link show", "-d")}
        self._routes = {}  # (table, network, length) -> its routes, the first one first
        self._own = set()  # (table, address)
        for route in net.query(routes, "-4"):
            self._add(route)

    def _add(self, route):
        if route.get("tos") or route.get("type") in NO_ROUTES:
            return
        destination = "0.0.0.0/0" if route["dst"] == "default" else route["dst"]
        network = ipaddress.IPv4Network(destination)
        table = route.get("table", "main")
        key = (TABLES.get(table) or int(table), int(network.network_address), network.prefixlen)
        if route.get("type") == "local" and network.prefixlen == 32:
            self._own.add(key[:2])
            return
        self._routes.setdefault(key, []).append(route)
        self._routes[key].sort(key=lambda one: one.get("metric", 0))

    def match(self, table, address):
        """The length of the longest match that takes packets; None when there is none."""
        for length in range(32, -1, -1):
            network = address >> (32 - length) << (32 - length)
            for route in self._routes.get((table, network, length), ()):
                if route.get("type") in REFUSING:
                    return None
                hops = [hop for hop in route.get("nexthops", [route])
                        if "dead" not in hop["flags"]]
                if hops:
                    without_carrier = all("linkdown" in hop["flags"] for hop in hops)
                    return None if without_carrier else length
        return None

    def table(self, vrf):
        """The table of a VRF; None while there is no such VRF."""
        if vrf == "default":
            return MAIN
        info = self.links.get(vrf, {}).get("linkinfo", {})
        if info.get("info_kind") != "vrf":
            return None
        name = info["info_data"]["table"]
        return TABLES.get(name) or int(name)

    def route_is_up(self, vrf, address, length):
        """The router's own addresses count for themselves only. A VRF has them in its table; so has the
        main table those of a VRF that shares it."""
        table = self.table(vrf)
        places = (table, LOCAL) if vrf == "default" else (table,)
        if length == 32 and any((place, address) in self._own for place in places):
            return True
        return table is not None and self.match(table, address) == length

    def interface_is_up(self, name):
        link = self.links[name]
        standby = link.get("linkinfo", {}).get("info_slave_data", {}).get("state") == "BACKUP"
        return ("UP" in link["flags"] and "LOWER_UP" in link["flags"]
                and link["operstate"] in ("UP", "UNKNOWN") and not standby)

    def is_switched_off(self, vrf):
        """Such a VRF forwards nothing, whatever its table holds."""
        return self.table(vrf) is not None and vrf in self.links and (
            "UP" not in self.links[vrf]["flags"])

    def states(self, track):
        """Which states a track may have."""
        follows = track["object"]
        if track["type"] == "interface" and follows["interface"] not in self.links:
            return ("down", "unknown")  # unknown: there never was one
        if track["type"] == "route" and self.is_switched_off(follows["vrf"]):
            return ("up", "down")
        up = (self.interface_is_up(follows["interface"]) if track["type"] == "interface"
              else self.route_is_up(follows["vrf"], *prefix_of(track)))
        return ("up",) if up else ("down",)


def wrong_tracks(service, routes=EVERYTHING):
    """What is wrong now, a line for each track that is."""
    tracks = service.tracks()
    kernel = Kernel(service.net, routes)
    return [f"{track['name']} is {track['state']}, not {kernel.states(track)[0]}: {track['object']}"
            for track in tracks if track["type"] in ("interface", "route")
            and track["state"] not in kernel.states(track)]


def settle(service, routes=EVERYTHING):
    """Returns once every track is right in two looks, one after the other. Those that begin after the
    time in which the tracks have to follow find nothing wrong, however long a look takes."""
    end = time.monotonic() + service.settling
    right = 0
    while right < 2:
        late = time.monotonic() > end
        wrong = wrong_tracks(service, routes)
        right = 0 if wrong else right + 1
        listed = "\n".join([*wrong[:20], *(["..."] if len(wrong) > 20 else [])])
        assert not (late and wrong), \
            f"not within {service.settling} s; {len(wrong)} tracks are wrong:\n{listed}"


# --- The kernel's own answers --------------------------------------------------------------------


def rules_are_usual(net):
    return {(rule["priority"], rule.get("table")) for rule in net.query("rule show")} == USUAL_RULES


def kernel_answers(net, addresses):
    """For each address the answer to `ip route get fibmatch`; None for an error."""
    lines = "".join(f"route get fibmatch {ipaddress.IPv4Address(address)}\n"
                    for address in addresses)
    done = subprocess.run(["ip", "-n", net.name, "-force", "-j", "-batch", "-"], input=lines,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    failed = {int(line.rsplit(":", 1)[1]) for line in done.stderr.splitlines()
              if line.startswith("Command failed ")}
    answers = iter(read_all_json(done.stdout))
    return [None if number in failed else next(answers)[0]
            for number in range(1, len(addresses) + 1)]


def read_all_json(text):
    """The values of a text of several, one behind the other."""
    decoder, values, at = json.JSONDecoder(), [], 0
    text = text.strip()
    while at < len(text):
        value, end = decoder.raw_decode(text, at)
        values.append(value)
        at = end + len(text[end:]) - len(text[end:].lstrip())
    return values


def answered_length(answer):
    """The length that an answer of the main table matched; None when it takes no packets."""
    if answer is None:
        return None
    alone = {"flags": answer["flags"]}
    if all({"dead", "linkdown"} & set(hop["flags"]) for hop in answer.get("nexthops", [alone])):
        return None
    destination = "0.0.0.0/0" if answer["dst"] == "default" else answer["dst"]
    return ipaddress.IPv4Network(destination).prefixlen


def check_against_the_kernel(net, tracks):
    """Where only the usual rules are in force, the matches from here are the kernel's."""
    if not rules_are_usual(net):
        return 0
    kernel = Kernel(net)
    addresses = sorted({prefix_of(track)[0] for track in tracks if track["type"] == "route"
                        and track["object"]["vrf"] == "default"})
    checked = 0
    for address, answer in zip(addresses, kernel_answers(net, addresses)):
        if answer is not None and answer.get("table", "main") != "main":
            continue
        text = ipaddress.IPv4Address(address)
        assert answered_length(answer) == kernel.match(MAIN, address), f"{text}: {answer}"
        checked += 1
    return checked
