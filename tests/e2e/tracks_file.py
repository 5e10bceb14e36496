"""Random configurations, random files that say them, and what apply has to make of them."""

import os
import shutil
from dataclasses import dataclass, field

DEFAULTS = {"--rate": "300", "--debounce": "3"}
KINDS = ("interface", "route", "probe", "bfd", "and", "or", "weight", "percentage")
NAMES = [f"t{number}" for number in range(10)] + ["-dash", "include", "x" * 31, "a.b:c_d-e", "7"]
INTERFACES = ("wan0", "lan0", "nowhere", "e" * 15, "größe", "-dash", "a#b")

# Lines that no configuration has room for, and which no other line makes right.
WRONG = (
    "odd interfce wan0", "odd", "odd interface", "odd interface a/b", "odd interface wan0 lan0",
    "odd interface wan0 --delay-up 65536", "odd interface wan0 --delay-up x", "o%d interface wan0",
    "odd interface wan0 --delay-up 1 --delay-up 2", "odd interface wan0 --help", "odd --help",
    "not interface wan0", "all-tracks interface wan0", "y" * 32 + " interface wan0",
    "odd route 10.0.0.1/8", "odd route 10.0.0.0/33", "odd route 0.0.0.0/0", "odd route 10.0.0.0",
    "odd probe 0", "odd probe 2147483648", "odd bfd 192.0.2.1", "odd bfd 192.0.2 --interface e",
    "odd bfd 192.0.2.200 --interface e --rate 9", "odd and", "odd or t1 not", "odd and t1 not t1",
    "odd and odd", "odd weight --up 5 --down 5 t1=1", "odd weight --up 5 t1=1",
    "odd weight --up 5 --down 1 t1", "odd percentage --up 5 --down 1", "include nowhere.conf",
    "odd interface wan0 \x01", "odd interface wan0 --delay-up 4294967297",
)


@dataclass
class Track:
    kind: str
    object: tuple = ()
    options: dict = field(default_factory=dict)  # all that have a value
    members: dict = field(default_factory=dict)  # the word behind or before each name
    up: int = 0
    down: int = 0


def random_track(chance, name, number):
    """`number` sets its probe operation and BFD peer apart from those of other tracks. A delay that
    runs does not run out while a test lasts."""
    made = Track(chance.choice(KINDS), up=chance.choice((0, 0, 65534, 65535)),
                 down=chance.choice((0, 0, 65534, 65535)))
    others = chance.sample([one for one in (*NAMES, "nobody") if one != name],
                           chance.choice((1, 2, 5, 12)))
    if made.kind == "interface":
        made.object = (chance.choice(INTERFACES),)
    elif made.kind == "route":
        made.object = (chance.choice(("10.1.0.0/16", "10.0.0.0/8", "192.0.2.7/32", "128.0.0.0/1")),)
        made.options = chance.choice(({}, {"--vrf": "red"}, {"--vrf": "v" * 15}))
    elif made.kind == "probe":
        made.object = (str(chance.choice((number, 2147483647 - number))),)
    elif made.kind == "bfd":
        made.object = (f"192.0.2.{number}",)
        made.options = {"--interface": chance.choice(INTERFACES[:3]),
                        "--rate": chance.choice(("10", "300", "60000")),
                        "--debounce": chance.choice(("1", "3", "255"))}
    elif made.kind in ("and", "or"):
        made.members = {other: chance.choice(("", "not")) for other in others}
    else:
        made.options = {"--up": chance.choice(("90", "4294967295")),
                        "--down": chance.choice(("1", "50"))}
        made.members = {other: chance.choice(("0", "7", "4294967295"))
                        if made.kind == "weight" else "" for other in others}
    return made


def random_configuration(chance):
    """No two of its tracks are in conflict."""
    numbers = chance.sample(range(1, 50), len(NAMES))
    return {name: random_track(chance, name, number) for name, number in zip(NAMES, numbers)
            if chance.random() < 0.7}


def changed(chance, configuration):
    """Another configuration, with much of the same in it."""
    other = random_configuration(chance)
    mixed = {name: chance.choice((configuration, configuration, other)).get(name)
             for name in chance.sample(NAMES, len(NAMES))}
    return {name: track for name, track in mixed.items() if track is not None}


def in_conflict(wanted, present):
    """Whether a track of `wanted` follows what only one can, and another one does already."""
    followed = {}
    for name, track in (present | wanted).items():
        if track.kind in ("probe", "bfd"):
            key = (track.kind, track.object, track.options.get("--interface"))
            followed.setdefault(key, []).append(name)
    return any(len(names) > 1 and any(name in wanted for name in names)
               for names in followed.values())


def member_words(track):
    for name, word in track.members.items():
        if track.kind == "weight":
            yield f"{name}={word}"
        else:
            yield from (word, name) if word else (name,)


def words_of(chance, name, track):
    """The words of its line: options before and behind, those with a usual value also left out."""
    options = dict(track.options)
    for key, value in DEFAULTS.items():
        if options.get(key) == value and chance.random() < 0.5:
            del options[key]
    for key, value in (("--delay-up", track.up), ("--delay-down", track.down)):
        if value or chance.random() < 0.1:
            options[key] = str(value)
    before, behind = [], []
    for key, value in chance.sample(list(options.items()), len(options)):
        place = chance.choice((before, behind))
        place.extend(chance.choice(((f"{key}={value}",), (key, value))))
    operands = [*track.object, *member_words(track)]
    if any(word.startswith("-") for word in operands):
        return [name, track.kind, *before, *behind, "--", *operands]
    return [name, track.kind, *before, *operands, *behind]


def parsed(text):
    """The configuration that export has printed."""
    found = {}
    for line in text.splitlines():
        name, kind, *words = line.split()
        track = Track(kind)
        operands, negated, plain = [], "", False
        words = iter(words)
        for word in words:
            if word == "--" and not plain:
                plain = True
            elif word.startswith("--") and not plain:
                track.options[word] = "" if word == "--shared" else next(words)
            elif kind in ("and", "or") and word == "not":
                negated = word
            elif kind in ("and", "or", "weight", "percentage"):
                member, _, weight = word.partition("=")
                track.members[member] = weight or negated
                negated = ""
            else:
                operands.append(word)
        track.object = tuple(operands)
        track.up = int(track.options.pop("--delay-up", 0))
        track.down = int(track.options.pop("--delay-down", 0))
        assert name not in found
        found[name] = track
    return found


class Files:
    """Writes a file with others that it includes, and puts in what makes no difference."""

    COMMENTS = ("", "# no more", "#", "#x \\", "# 'a \"b", "# größe", "#include nowhere")

    def __init__(self, chance, folder):
        self._chance = chance
        self._folder = folder
        self._end = chance.choice(("\n", "\n", "\r\n"))

    def write(self, lines):
        """The path of the file; `lines` are lists of words."""
        chance = self._chance
        shutil.rmtree(os.path.join(self._folder, "parts"), ignore_errors=True)
        parts = chance.choice((0, 0, 1, 3))
        cuts = sorted(chance.sample(range(len(lines) + 1), min(parts, len(lines))))
        main, included = lines[cuts[-1]:] if cuts else lines, []
        for number, (begin, end) in enumerate(zip([0, *cuts], cuts)):
            included.append(self._save(f"parts/{number}.conf", lines[begin:end]))
        for name in (".hidden.conf", ".#0.conf", "0.conf~", "0.conf.dpkg-old", "README"):
            self._save(f"parts/{name}", [["this", "is", "no", "line"]])
        includes = []
        if included:
            includes = chance.choice((
                [["include", "parts"]],
                [["include", os.path.join("parts", os.path.basename(path))] for path in included],
                [["include", path] for path in included]))
        return self._save("tracks.conf", [*includes, *main])

    def _save(self, name, lines):
        path = os.path.join(self._folder, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        text = self._chance.choice(("", "", "\ufeff")) + "".join(map(self._line, lines))
        if self._chance.random() < 0.2:
            text = text.removesuffix(self._end)
        with open(path, "w", encoding="utf-8", newline="") as stream:
            stream.write(text)
        return path

    def _line(self, words):
        chance = self._chance
        text = chance.choice(("", "", " ", "\t", "\r\n", " # a comment \\\n", "\n\n"))
        for position, word in enumerate(words):
            if position:
                text += chance.choice((" ",) * 9 + ("\t", "  \t ", f" \\{self._end}",
                                                    f"\\{self._end}\t "))
            text += word
        comment = chance.choice(self.COMMENTS) if chance.random() < 0.3 else ""
        return text + (chance.choice((" ", "\t")) + comment if comment else "") + self._end
