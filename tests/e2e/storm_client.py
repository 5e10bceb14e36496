"""What test_client_storm.py lets a process of its own do with the library: it follows by poll, beside
a pipe that commands come by, and keeps a view for each follower as its events make it, while threads
with clients of their own change the configuration. Every event has to fit the view before it.

A line of JSON on the standard input is a command; so is its answer."""

import ctypes
import gc
import json
import os
import random
import select
import sys
import threading

import object_tracking
from object_tracking import _library

NAMES = [f"n{number}" for number in range(40)]
INTERFACES = ["mark-up", "mark-dn", "flip", "none0"]
WORDS = ["unknown", "up", "down"]


class View:
    """What a program that takes over all events of a follower knows."""

    def __init__(self, client, names, reconnect):
        self.client, self.names, self.reconnect = client, names, reconnect
        self.callback = _library.EVENT_CALLBACK(self.take)
        self.wrong = []
        self.syncs = self.ends = 0
        self.open()

    def open(self):
        self.states, self.phase = {}, "telling"
        made = ctypes.c_void_p()
        array, count = _library.text_array(self.names)
        result = _library.lib.otrack_follow(self.client._client, array, count,
                                            int(self.reconnect), ctypes.byref(made))
        self.follower = made if result == 0 else None

    def take(self, pointer, _):
        event = pointer.contents
        kind, track, known = event.kind, event.track.decode(), self.states
        if kind == _library.STATE:
            fits = (self.phase != "away" and event.previous == known.get(track, 0)
                    and known.get(track) != event.state and (not self.names or track in self.names))
            known[track] = event.state
        elif kind == _library.DELETED:
            fits = self.phase == "live" and known.pop(track, None) == event.previous
        elif kind == _library.SYNCED:
            fits, self.phase = self.phase == "telling", "live"
            self.syncs += 1
        elif kind == _library.LOST:
            fits, self.phase = self.phase == "live", "away"
        else:
            # The service may come for the first time, or go again before everything is told.
            fits, self.phase = self.phase != "live", "telling"
            known.clear()
        if not fits:
            self.wrong.append((kind, track, event.state, event.previous, self.phase))

    def dispatch(self):
        if self.follower is None:
            return self.open()
        result = _library.lib.otrack_follower_dispatch(self.follower, self.callback, None)
        if result < 0:
            self.ends += 1
            if self.reconnect:
                self.wrong.append(("ended", result))
            self.close()

    def close(self):
        if self.follower is not None:
            _library.lib.otrack_follower_close(self.follower)
        self.follower = None

    def told(self):
        return {track: WORDS[state] for track, state in self.states.items()}


def line(chance):
    name = chance.choice(NAMES)
    if chance.random() < 0.3:
        members = chance.sample([other for other in NAMES if other != name], 2)
        return f"{name} or {' '.join(members)}"
    return f"{name} interface {chance.choice(INTERFACES)}"


def change(seed, over, answers):
    """Changes until it is over, by a client of this thread."""
    chance = random.Random(seed)
    with object_tracking.open() as tracks:
        while not over.is_set():
            act = chance.random()
            try:
                if act < 0.5:
                    tracks.set(line(chance))
                elif act < 0.8:
                    tracks.delete(chance.choice(NAMES))
                elif act < 0.9:
                    lines = {text.split()[0]: text for text in (line(chance) for _ in range(12))}
                    tracks.apply(lines.values(), prune=chance.random() < 0.2,
                                 dry_run=chance.random() < 0.3)
                else:
                    list(tracks)
                answers["done"] += 1
            except object_tracking.Error as error:
                answers[type(error).__name__] += 1
                if isinstance(error, object_tracking.RefusedError):
                    answers["refusal"] = str(error)
                if isinstance(error, object_tracking.NoServiceError):
                    over.wait(0.01)


def weight():
    gc.collect()
    with open("/proc/self/statm", encoding="ascii") as stream:
        return len(os.listdir("/proc/self/fd")), int(stream.read().split()[1]) * 4


def churn(count):
    """Descriptors and KiB, before and after everything was opened and closed so often."""
    def once():
        with object_tracking.open() as tracks:
            tracks.follow("n0").next(0)
            for _ in tracks.follow(reconnect=False):
                break
            list(tracks)
            for call in (lambda: tracks["nobody"], lambda: tracks.set("no kind"),
                         lambda: tracks.wait("nobody")):
                try:
                    call()
                except object_tracking.Error:
                    pass
    for _ in range(100):
        once()
    before = weight()
    for _ in range(count):
        once()
    return before, weight()


class Storm:
    def __init__(self):
        self.client = object_tracking.open()
        self.views = [View(self.client, [], True), View(self.client, NAMES[:5], True),
                      View(self.client, [], False)]
        self.threads, self.paused, self.answers = [], False, {}
        self.over = threading.Event()

    def start(self, seed, threads):
        self.over.clear()
        self.answers = dict.fromkeys(["done", "NoServiceError", "NoTrackError", "RefusedError",
                                      "TimedOutError", "InvalidError"], 0)
        self.threads = [threading.Thread(target=change, args=(seed + each, self.over, self.answers))
                        for each in range(threads)]
        for thread in self.threads:
            thread.start()

    def pause(self, whether):
        self.paused = whether

    def done(self):
        return self.answers["done"]

    def join(self):
        self.over.set()
        return not any(thread.is_alive() for thread in self.threads) and self.answers

    def look(self):
        """What each view has, what did not fit, and the library's list."""
        listed = {track.name: str(track.state) for track in self.client}
        return {"list": listed, "views": [view.told() for view in self.views],
                "live": [view.phase == "live" and view.follower is not None for view in self.views],
                "wrong": [view.wrong for view in self.views],
                "syncs": [view.syncs for view in self.views]}

    def obey(self, command, *arguments):
        try:
            value = {"start": self.start, "pause": self.pause, "join": self.join, "done": self.done,
                     "look": self.look, "churn": churn}[command](*arguments)
        except object_tracking.Error as error:
            value = {"error": str(error)}
        print(json.dumps(value), flush=True)

    def run(self):
        while True:
            watched = [] if self.paused else [view for view in self.views if view.follower]
            ready, _, _ = select.select([0, *(_library.lib.otrack_follower_fd(view.follower)
                                              for view in watched)], [], [], 0.1)
            if 0 in ready:
                text = sys.stdin.readline()
                if not text:
                    break
                self.obey(*json.loads(text))
            for view in [] if self.paused else self.views:
                if view.follower is None or _library.lib.otrack_follower_fd(view.follower) in ready:
                    view.dispatch()
        for view in self.views:
            view.close()
        self.client.close()


Storm().run()
