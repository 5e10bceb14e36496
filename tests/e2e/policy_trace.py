"""What commands of policies have been told, as they wrote it down, and whether that is what was promised:
one at a time, none twice, each with the state before it. The test writes down beside it what it did."""

import os

from policy import lines

TELL = """\
log={folder}/$OT_POLICY
echo "begin $OT_STATE $$ $OT_PREVIOUS" >> $log
sleep $1
case $2 in
never) ;;
always) echo "fail $OT_STATE $$" >> $log; exit 1 ;;
first) if test ! -e $log.tried; then
        touch $log.tried; echo "fail $OT_STATE $$" >> $log; exit 1
    fi
    rm $log.tried ;;
esac
echo "end $OT_STATE $$" >> $log
"""
STATES = frozenset(("up", "down", "unknown"))


class Trace:
    """The account of one policy. `told`: the states of which any may have been told last."""

    def __init__(self, name):
        self.name = name
        self.told = {"unknown"}
        self.running = None    # state and process
        self.let_go = None     # what ran when the policy was changed
        self.failed = None     # what may have done a part of its work: then the state before is told again
        self.just_ended = None  # what was told before the line "end" that was the last one
        self.tellings = []

    def read(self, path):
        """Returns what is wrong, or nothing."""
        for number, line in enumerate(lines(path), 1):
            word, *rest = line.split()
            wrong = getattr(self, word)(*rest)
            if wrong:
                return f"{self.name}, line {number}, {line!r}: {wrong}"
        return ""

    def begin(self, state, process, before):
        if self.running is not None:
            return f"{self.running} was still running"
        if before not in self.told:
            return f"told before: {self.told}"
        if self.told == {state} and self.failed is None:
            return "told twice"
        self.told = {before}
        self.running = (state, process)
        self.let_go = self.just_ended = None
        self.tellings.append(state)
        return ""

    def end(self, *what):
        if self.running != what:
            return "" if what == self.let_go else f"{self.running} was running"
        state = what[0]
        self.just_ended = set(self.told)
        self.told = {state}
        self.running = self.failed = None
        return ""

    def fail(self, *what):
        if self.running != what:
            return "" if what == self.let_go else f"{self.running} was running"
        state = what[0]
        # Told it is only after the last attempt.
        self.failed = state
        self.told = self.told | {state}
        self.running = None
        return ""

    def killed(self):
        """trackpolicy was ended: what ran counts as not told, and so may what ended right before."""
        self.told = self.told | (self.just_ended or set())
        self.failed = self.failed or self.running or self.just_ended
        self.running = None
        return ""

    def changed(self):
        """The policy is another one from here on; what still runs of it may come to its end, but not
        beside what comes next."""
        self.let_go = self.running or self.let_go
        self.told = set(STATES)
        self.running = self.failed = self.just_ended = None
        return ""


class Traces:
    def __init__(self, folder):
        self.folder = folder
        os.makedirs(folder)
        os.chmod(folder, 0o777)

    def path(self, name):
        return os.path.join(self.folder, name)

    def mark(self, word, names):
        for name in names:
            with open(self.path(name), "a") as stream:
                os.fchmod(stream.fileno(), 0o666)
                stream.write(word + "\n")

    def last(self, name):
        """What was told last, once that has come to its end."""
        words = [line.split() for line in lines(self.path(name))]
        words = [each for each in words if each[0] in ("begin", "end", "fail")]
        return words[-1][1] if words and words[-1][0] != "begin" else None

    def count(self, name):
        return sum(line.startswith("begin") for line in lines(self.path(name)))

    def wrong(self, name, never_unknown):
        trace = Trace(name)
        found = trace.read(self.path(name))
        if not found and never_unknown and "unknown" in trace.tellings:
            return f"{name}: unknown was told of a track that is always known"
        return found
