"""An instance of the service in the virtual machine, in a network namespace of its own."""

import itertools
import json
import shlex

import ledger
from waiting import wait_until

PATIENCE = 60.0
BATCH = 30  # lines that a command line has room for
_numbers = itertools.count(1)


class GuestNamespace:
    def __init__(self, guest):
        self._guest = guest
        self.name = f"n{next(_numbers)}"
        self._guest.must(f"ip netns add {self.name} && ip -n {self.name} link set lo up")

    def close(self):
        self._guest.must(f"ip netns del {self.name}")

    def ip(self, *commands):
        """Runs `ip` commands in one process; what they print."""
        lines = "".join(f"{line}\\n" for line in commands)
        return self._guest.must(f"printf '{lines}' | ip -n {self.name} -batch -")

    def try_batch(self, commands):
        """Runs `ip` commands; those that the kernel refuses change nothing."""
        for begin in range(0, len(commands), BATCH):
            lines = "".join(f"{line}\\n" for line in commands[begin:begin + BATCH])
            self._guest.run(f"printf '{lines}' | ip -n {self.name} -force -batch -")

    def query(self, text, *options):
        """What `ip` prints for the words of `text`, as JSON."""
        options = shlex.join(options)
        return json.loads(self._guest.must(f"ip -n {self.name} -j {options} {text} 2>/dev/null") or "[]")

    def link(self, *names):
        """Veth pairs that are up: each a name and its peer NAME-p, which gives the carrier."""
        self.ip(*(f"link {line}" for name in names
                  for line in (f"add {name} type veth peer name {name}-p", f"set {name}-p up",
                               f"set {name} up")))
        for name in names:
            wait_until(lambda name=name: "state UP" in self.ip(f"link show {name}"), PATIENCE,
                       f"{name} up")

    def vrf(self, name, table):
        self.ip(f"link add {name} type vrf table {table}", f"link set {name} up")


class GuestService:
    settling = 20.0  # seconds, less than the 30 after which the service looks at everything

    def __init__(self, guest):
        self.guest = guest
        self.net = GuestNamespace(guest)
        self.root = f"/run/{self.net.name}"
        self._environment = f"OT_ROOT={self.root} OT_PKG_ROOT=/usr"  # where the libraries are
        guest.must(f"mkdir {self.root}")
        self._follower = None
        self._others = []  # qmond, trackpolicy
        self._start()

    def _start(self):
        self._pid = self._spawn("object_tracking", "log")
        wait_until(lambda: self.guest.run(f"{self._environment} trackctl show")[0] == 0, PATIENCE,
                   "the service ready")

    def restart(self):
        self._end(self._pid)
        self._start()

    def _end(self, pid):
        """Lets a program end, cleanly."""
        self.guest.must(f"kill {pid}")
        wait_until(lambda: self.guest.run(f"kill -0 {pid}")[0] != 0, PATIENCE,
                   f"the end of process {pid}")

    def _spawn(self, command, output):
        """Starts a program of the build in the namespace; its process number."""
        return int(self.guest.must(
            f"{self._environment} ip netns exec {self.net.name} {command} "
            f">>{self.root}/{output} 2>&1 & echo $!"))

    def close(self):
        """The service must end cleanly."""
        for pid in filter(None, (self._follower, *self._others)):
            self._end(pid)
        self._end(self._pid)
        self.net.close()
        self.guest.must(f"rm -r {self.root}")

    def log(self):
        return self.guest.run(f"cat {self.root}/log")[1]

    def ctl(self, *arguments):
        """Runs trackctl, which must succeed; what it printed."""
        return self.guest.must(f"{self._environment} trackctl {shlex.join(arguments)}")

    def commit(self, commits):
        """Makes each list of changes a commit; all must be accepted."""
        path = f"{self.root}/commits"
        lines = ledger.commit_text(commits).splitlines()
        for begin in range(0, len(lines), BATCH):
            words = shlex.join(lines[begin:begin + BATCH])  # a command is one line
            self.guest.must(f"printf '%s\\n' {words} >>{path}")
        self.guest.must(f"{self._environment} ledger_put <{path} && rm {path}")

    def show(self, name):
        return self.guest.must(f"{self._environment} object_tracking show track {name} all")

    def tracks(self):
        """Every track as programs read it."""
        return json.loads(self.ctl("show", "--json"))

    def states(self):
        """Every track's name and state."""
        return {track["name"]: track["state"] for track in self.tracks()}

    def wait_states(self, **wanted):
        """Waits until each of the named tracks has its state."""
        def reached():
            states = self.states()
            return all(states.get(name) == state for name, state in wanted.items())
        try:
            wait_until(reached, PATIENCE, f"{wanted}")
        except AssertionError as error:
            raise AssertionError(f"{error}; they are {self.states()}\n{self.log()}") from error

    def start_qmond(self, *operations):
        """Starts the probe service with these [[operation]] tables."""
        self._write("etc/object_tracking/probes.toml", "".join(operations))
        self._start_other("qmond", "qmond status")

    def start_trackpolicy(self, *policies):
        """Starts trackpolicy with these [[policy]] tables."""
        self._write("etc/object_tracking/policies.d/10.toml", "".join(policies))
        self._start_other("trackpolicy", "trackctl policy list")

    def _write(self, name, text):
        path = f"{self.root}/{name}"
        text = shlex.quote(text.replace("\n", "\\n"))  # a command is one line
        self.guest.must(f"mkdir -p {path.rpartition('/')[0]} && printf %b {text} >{path}")

    def _start_other(self, program, question):
        """Starts a program that is ready when it answers."""
        self._others.append(self._spawn(program, f"{program}-log"))
        wait_until(lambda: self.guest.run(f"{self._environment} {question}")[0] == 0, PATIENCE,
                   f"{program} ready")

    def qmond_status(self):
        return json.loads(self.guest.must(f"{self._environment} qmond status --json"))

    def follow(self):
        """Begins to note events."""
        self._follower = self._spawn("trackctl events --json", "events")
        wait_until(lambda: "following events" in self.guest.run(f"cat {self.root}/events")[1],
                   PATIENCE, "a follower")

    def events(self):
        """The events up to now as (track, state)."""
        lines = self.guest.must(f"cat {self.root}/events").splitlines()
        events = [json.loads(line) for line in lines if line.startswith("{")]
        return [(event["track"], event["state"]) for event in events]

    def wait_events(self, *events):
        """Waits until exactly these have come since follow()."""
        wait_until(lambda: len(self.events()) >= len(events), PATIENCE, f"events {events}")
        assert self.events() == list(events)
