"""What an operator waits for: trackctl as whole processes, on 1,500 tracks of all kinds. Beside it in
the same run `nft -f` with as many elements of a set, a tool that also hands a whole file over in one
go, and a process that does nothing, which is what starting one costs here."""

import contextlib
import shutil
import statistics
import subprocess
import tempfile
import time

from netns import NetworkNamespace
from output import File
from service import Service
from table import row

COUNT = 1500
KINDS = (
    "interface e{n} --delay-up 5",
    "route 10.{high}.{low}.0/24 --delay-down 2",
    "probe {n}",
    "bfd 10.{high}.{low}.1 --interface e{n}",
    "and {before} not {first}",
    "or {before} {first}",
    "weight --up 50 --down 10 {before}=20 {first}=30",
    "percentage --up 60 --down 40 {before} {first}",
)
DISK, MEMORY = "/var/tmp", "/dev/shm"


def name(number):
    return f"t{number:04}"


def lines():
    """A file of tracks. Lists have the tracks of the lines before as members, as files do."""
    for number in range(COUNT):
        fields = {"n": number + 1, "high": number // 250, "low": number % 250,
                  "before": name(number - 1), "first": name(number // 8 * 8)}
        yield f"{name(number)} {KINDS[number % len(KINDS)].format(**fields)}\n"


def elements():
    """An nftables file that makes a set of as many addresses anew."""
    addresses = ", ".join(f"10.{n // 250}.{n % 250}.1" for n in range(COUNT))
    yield ("table ip bench {}\ndelete table ip bench\ntable ip bench {\n set tracked {\n"
           f"  type ipv4_addr\n  elements = {{ {addresses} }}\n }}\n}}\n")


def write(path, text):
    with open(path, "w", encoding="ascii") as stream:
        stream.writelines(text)
    return path


def wall_ms(command, environment=None, expected=(0,)):
    begin = time.perf_counter()
    process = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL,
                             stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False)
    passed = (time.perf_counter() - begin) * 1e3
    assert process.returncode in expected, (command, process.stderr)
    return passed


class Kit:
    """trackctl on an instance below a folder, and how long each of its runs took."""

    def __init__(self, build, folder):
        self._build = build
        self.service = Service(build, File, folder=folder)
        self.service.start()
        self.file = write(f"{self.service.root}/tracks.conf", lines())
        self.empty = write(f"{self.service.root}/empty.conf", [])

    def wall_ms(self, *arguments, expected=(0,)):
        return wall_ms([*self._build.command("trackctl"), *arguments],
                       self._build.environment(self.service.root), expected)

    def median_ms(self, times, *arguments):
        return statistics.median(self.wall_ms(*arguments) for _ in range(times))

    def set_ms(self):
        """Each time another track, made and not changed."""
        return statistics.median(self.wall_ms("set", f"s{number}", "interface", f"e{number}")
                                 for number in range(40))

    def apply_ms(self, times):
        """All tracks new each time."""
        taken = []
        for _ in range(times):
            self.wall_ms("apply", self.empty, "--prune")
            taken.append(self.wall_ms("apply", self.file))
        return statistics.median(taken)


@contextlib.contextmanager
def kit_on(build, folder):
    instance = Kit(build, folder)
    try:
        yield instance
    finally:
        instance.service.close()


def nft_ms(times):
    """`nft -f` in a namespace of its own, the set made anew each time."""
    net = NetworkNamespace()
    folder = tempfile.mkdtemp(prefix="nft-")
    try:
        # One process, as trackctl is: what enters the namespace is not counted.
        file = write(f"{folder}/set.nft", elements())
        script = ("import sys, time, subprocess\n"
                  "for _ in range(int(sys.argv[1])):\n"
                  "    begin = time.perf_counter()\n"
                  "    subprocess.run(['nft', '-f', sys.argv[2]], check=True)\n"
                  "    print((time.perf_counter() - begin) * 1e3)\n")
        told = subprocess.run([*net.command(), "python3", "-c", script, str(times), file],
                              check=True, stdout=subprocess.PIPE, text=True).stdout
        return statistics.median(map(float, told.split()))
    finally:
        shutil.rmtree(folder)
        net.close()


def kit(build):
    nothing = statistics.median(wall_ms(["/bin/true"]) for _ in range(40))
    nft = nft_ms(10)
    with kit_on(build, MEMORY) as instance:
        set_in_memory = instance.set_ms()
    with kit_on(build, DISK) as instance:
        set_on_disk = instance.set_ms()
        applied = instance.apply_ms(5)
        unchanged = instance.median_ms(10, "apply", instance.file)
        difference = instance.median_ms(10, "diff", instance.file)
        shown = instance.median_ms(20, "show")
        measured = instance.median_ms(20, "metrics")
        assert len(instance.service.tracks()) == COUNT
    what = "1,500 tracks of all kinds"
    return [row("a process that does nothing", nothing, "ms"),
            row("trackctl set, one track, whole process, stores in memory", set_in_memory, "ms", 3),
            row("trackctl set, one track, whole process, stores on disk", set_on_disk, "ms"),
            row(f"trackctl apply, {what}, all new", applied, "ms", 1000),
            row(f"trackctl apply, {what}, unchanged", unchanged, "ms", 200),
            row(f"trackctl diff, {what}, unchanged", difference, "ms", 200),
            row(f"trackctl show, {what}", shown, "ms", 20),
            row(f"trackctl metrics, {what}", measured, "ms", 30),
            row("nft -f, a set of 1,500 elements made anew", nft, "ms"),
            row(f"trackctl apply, {what}, all new, over nft -f", applied / nft, "times"),
            row(f"trackctl apply, {what}, unchanged, over nft -f", unchanged / nft, "times")]


STEPS = {"kit": kit}
