"""The state of a router's tracks: read it, follow it, configure it.

    import object_tracking

    with object_tracking.open() as tracks:
        for event in tracks.follow("uplink"):
            print(event.track, event.state)

A `Tracks` and what it makes belong to one thread at a time. Everything raises `Error` when it fails.
"""

from __future__ import annotations

import asyncio
import ctypes
import datetime
import enum
import json
import math
import time
import weakref
from collections.abc import AsyncIterator, Callable, Iterable, Iterator, Mapping
from dataclasses import dataclass
from types import TracebackType
from typing import TYPE_CHECKING, Any

from . import _library
from ._library import lib

if TYPE_CHECKING:
    from typing_extensions import Self

__all__ = ["AsyncFollower", "Changes", "Error", "Event", "Follower", "InvalidError", "Kind",
           "NoServiceError", "NoTrackError", "RefusedError", "State", "TimedOutError", "Track",
           "Tracks", "open", "version"]


class State(enum.Enum):
    UNKNOWN = "unknown"
    UP = "up"
    DOWN = "down"

    def __str__(self) -> str:
        return self.value


class Kind(enum.Enum):
    """What an event tells."""
    STATE = "state"      #: a track and its state: at first of every track, then each change
    SYNCED = "synced"    #: every track has been told
    DELETED = "deleted"  #: a track is no more
    LOST = "lost"        #: the service has gone; what is known may be old
    RESYNC = "resync"    #: it is back; every track is told again, then SYNCED

    def __str__(self) -> str:
        return self.value


_STATES = (State.UNKNOWN, State.UP, State.DOWN)
_KINDS = {_library.STATE: Kind.STATE, _library.SYNCED: Kind.SYNCED, _library.DELETED: Kind.DELETED,
          _library.LOST: Kind.LOST, _library.RESYNC: Kind.RESYNC}


class Error(Exception):
    """What went wrong, for people."""


class InvalidError(Error, ValueError):
    """A name, a line or a text is wrong."""


class NoServiceError(Error):
    """The service is not running, or has ended."""


class NoTrackError(Error, KeyError):
    """There is no such track."""

    def __str__(self) -> str:
        return str(self.args[0])


class RefusedError(Error):
    """The service does not do it."""


class TimedOutError(Error, TimeoutError):
    """The time is over."""


_ERRORS: dict[int, type[Exception]] = {
    _library.INVALID: InvalidError, _library.NO_SERVICE: NoServiceError,
    _library.NO_TRACK: NoTrackError, _library.REFUSED: RefusedError,
    _library.TIMEOUT: TimedOutError, _library.NO_MEMORY: MemoryError}


@dataclass(frozen=True)
class Event:
    kind: Kind
    track: str               #: of STATE and DELETED; "" otherwise
    state: State             #: of STATE
    previous: State          #: the one told before
    time: datetime.datetime  #: when this process learned of it


@dataclass(frozen=True)
class Track:
    name: str
    state: State
    since: datetime.datetime | None  #: of the last publication
    changes: int
    kind: str
    details: Mapping[str, Any]       #: all there is to know, as `trackctl show NAME --json` has it


@dataclass(frozen=True)
class Changes:
    """What applying a text has changed, or would."""
    made: int
    changed: int
    deleted: int
    lines: tuple[str, ...]
    warnings: tuple[str, ...]

    def __bool__(self) -> bool:
        return bool(self.lines)


def version() -> str:
    """That of the library."""
    return _library.decode(lib.otrack_version())


def open() -> Tracks:  # noqa: A001  as one opens a file
    """Asks nothing of the service, which need not run yet."""
    return Tracks()


def _time(milliseconds: int) -> datetime.datetime:
    return datetime.datetime.fromtimestamp(milliseconds / 1000, datetime.timezone.utc).astimezone()


def _state(number: int) -> State:
    return _STATES[number] if number < len(_STATES) else State.UNKNOWN


def _encoded(text: str) -> bytes:
    try:
        return _library.encode(text)
    except ValueError as error:
        raise InvalidError(str(error)) from None


def _names(tracks: tuple[str, ...]) -> tuple[Any, int]:
    try:
        return _library.text_array(tracks)
    except ValueError as error:
        raise InvalidError(str(error)) from None


# A wait in C is deaf to Ctrl-C, so none is longer.
_SLICE = 0.25


def _end(seconds: float | None) -> float:
    """The moment at which a wait is over."""
    return math.inf if seconds is None else time.monotonic() + seconds


def _slice_until(end: float) -> int:
    """Milliseconds."""
    return math.ceil(min(max(end - time.monotonic(), 0), _SLICE) * 1000)


class Tracks:
    def __init__(self) -> None:
        client = ctypes.c_void_p()
        if lib.otrack_open(ctypes.byref(client)) != 0:
            raise MemoryError
        self._client: ctypes.c_void_p | None = client
        self._followers: weakref.WeakSet[_Followed] = weakref.WeakSet()

    def close(self) -> None:
        """And everything that follows by it."""
        for follower in tuple(self._followers):
            follower.close()
        if self._client is not None:
            lib.otrack_close(self._client)
            self._client = None

    def __enter__(self) -> Tracks:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_client", None) is not None:
            self.close()

    @property
    def _open_client(self) -> ctypes.c_void_p:
        if self._client is None:
            raise ValueError("it is closed")
        return self._client

    def _check(self, result: int) -> int:
        if result < 0:
            text = _library.decode(lib.otrack_error(self._open_client) or b"")
            raise _ERRORS.get(result, Error)(text or _library.decode(lib.otrack_strerror(result)))
        return result

    # --- Reading

    def __iter__(self) -> Iterator[Track]:
        """All tracks by name, each as it is at some moment of the call."""
        tracks = ctypes.c_void_p()
        self._check(lib.otrack_list_read(self._open_client, ctypes.byref(tracks)))
        try:
            found = [_track(lib.otrack_list_at(tracks, index))
                     for index in range(lib.otrack_list_count(tracks))]
        finally:
            lib.otrack_list_free(tracks)
        return iter(found)

    def __getitem__(self, name: str) -> Track:
        """Raises NoTrackError, which is a KeyError."""
        track = ctypes.c_void_p()
        self._check(lib.otrack_get(self._open_client, _encoded(name), ctypes.byref(track)))
        try:
            return _track(track)
        finally:
            lib.otrack_track_free(track)

    # --- Following

    def follow(self, *tracks: str, reconnect: bool = True) -> Follower:
        """These tracks, or every one. It begins with their states. When the service goes, it waits
        for it to come back; without `reconnect` it ends, with NoServiceError."""
        return Follower(self, tracks, reconnect)

    def follow_async(self, *tracks: str, reconnect: bool = True) -> AsyncFollower:
        """The same for `async for`."""
        return AsyncFollower(self, tracks, reconnect)

    def wait(self, *tracks: str, state: State = State.UP, timeout: float | None = None) -> None:
        """Until all of them are in the state; raises TimedOutError after so many seconds."""
        end = _end(timeout)
        names, count = _names(tracks)
        # Tells of tracks that do not exist, and whether there is something to wait for.
        result = lib.otrack_wait(self._open_client, names, count, _STATES.index(state), 0)
        if result != _library.TIMEOUT or timeout == 0:
            self._check(result)
            return
        with self.follow(*tracks, reconnect=False) as follower:
            _wait_for(follower, set(tracks), state, end)

    # --- Configuration

    def set(self, line: str) -> None:
        """What `trackctl set` takes: "uplink interface eth0 --delay-up 5"."""
        self._check(lib.otrack_set(self._open_client, _encoded(line)))

    def delete(self, name: str) -> None:
        self._check(lib.otrack_delete(self._open_client, _encoded(name)))

    def apply(self, text: str | Iterable[str], *, prune: bool = False,
              dry_run: bool = False) -> Changes:
        """Makes the tracks what the lines say, all of them or nothing."""
        whole = text if isinstance(text, str) else "\n".join(text)
        flags = (_library.PRUNE if prune else 0) | (_library.DRY_RUN if dry_run else 0)
        changes = ctypes.c_void_p()
        self._check(lib.otrack_apply(self._open_client, _encoded(whole), flags,
                                     ctypes.byref(changes)))
        try:
            return Changes(lib.otrack_changes_made(changes), lib.otrack_changes_changed(changes),
                           lib.otrack_changes_deleted(changes),
                           tuple(_library.decode(lib.otrack_changes_text(changes)).splitlines()),
                           tuple(_library.decode(lib.otrack_changes_warnings(changes)).splitlines()))
        finally:
            lib.otrack_changes_free(changes)


def _wait_for(follower: Follower, missing: set[str], state: State, end: float) -> None:
    wanted = frozenset(missing)
    while missing:
        event = follower._next_until(end)
        if event is None:
            raise TimedOutError(_library.decode(lib.otrack_strerror(_library.TIMEOUT)))
        if event.kind is Kind.STATE and event.state is state:
            missing.discard(event.track)
        elif event.track in wanted:
            missing.add(event.track)


def _track(track: ctypes.c_void_p | int) -> Track:
    since = lib.otrack_track_since(track)
    return Track(_library.decode(lib.otrack_track_name(track)),
                 _state(lib.otrack_track_state(track)), _time(since) if since else None,
                 lib.otrack_track_changes(track), _library.decode(lib.otrack_track_kind(track)),
                 json.loads(lib.otrack_track_json(track)))


class _Followed:
    """What both kinds of followers are."""

    _flags = 0

    def __init__(self, tracks: Tracks, names: tuple[str, ...], reconnect: bool) -> None:
        self._tracks = tracks
        follower = ctypes.c_void_p()
        texts, count = _names(names)
        tracks._check(lib.otrack_follow(tracks._open_client, texts, count,
                                        self._flags | (_library.RECONNECT if reconnect else 0),
                                        ctypes.byref(follower)))
        self._follower: ctypes.c_void_p | None = follower
        tracks._followers.add(self)

    def close(self) -> None:
        if self._follower is not None:
            lib.otrack_follower_close(self._follower)
            self._follower = None
            self._tracks._followers.discard(self)

    def __del__(self) -> None:
        if getattr(self, "_follower", None) is not None:
            self.close()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def fileno(self) -> int:
        """Readable when an event waits: for select, poll and event loops."""
        return int(lib.otrack_follower_fd(self._open_follower))

    @property
    def _open_follower(self) -> ctypes.c_void_p:
        if self._follower is None:
            raise ValueError("it is closed")
        return self._follower

    def _next(self, timeout: int) -> Event | None:
        event = ctypes.POINTER(_library.EventStruct)()
        while self._tracks._check(lib.otrack_follower_next(self._open_follower, timeout,
                                                           ctypes.byref(event))) > 0:
            told = event.contents
            if told.kind in _KINDS:
                return Event(_KINDS[told.kind], _library.decode(told.track), _state(told.state),
                             _state(told.previous), _time(told.time))
        return None


class Follower(_Followed):
    """An iterator of events, which waits for the next one."""

    def __iter__(self) -> Follower:
        return self

    def __next__(self) -> Event:
        event = self._next_until(math.inf)
        assert event is not None
        return event

    def _next_until(self, end: float) -> Event | None:
        while True:
            event = self._next(_slice_until(end))
            if event is not None or time.monotonic() >= end:
                return event

    def next(self, timeout: float | None = 0) -> Event | None:
        """The next event, or None when none comes within so many seconds."""
        return self._next_until(_end(timeout))


class AsyncFollower(_Followed):
    """An asynchronous iterator of events; used by one task. It ends when it is closed."""

    _flags = _library.NO_WAIT  # other tasks go on while the service answers
    _wake: Callable[[], None] | None = None

    def __aiter__(self) -> AsyncIterator[Event]:
        return self

    async def __anext__(self) -> Event:
        while self._follower is not None:
            event = self._next(0)
            if event is not None:
                return event
            await self._readable()
        raise StopAsyncIteration

    def close(self) -> None:
        """Ends the iteration too, for the task that waits for its next event."""
        if self._wake is not None:
            self._wake()
        super().close()

    async def _readable(self) -> None:
        loop = asyncio.get_running_loop()
        ready = loop.create_future()
        fd = self.fileno()

        def wake() -> None:
            loop.remove_reader(fd)  # before somebody else may get its number
            self._wake = None
            if not ready.done() and not loop.is_closed():
                ready.set_result(None)

        loop.add_reader(fd, wake)
        self._wake = wake
        try:
            await ready
        finally:
            if self._wake is not None:
                self._wake()
