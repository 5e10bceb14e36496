"""The C library's functions, as ctypes calls them. `object_tracking.h` says what each does."""

import ctypes
import os
from ctypes import CFUNCTYPE, POINTER, c_char_p, c_int, c_int64, c_size_t, c_uint, c_uint32, c_uint64
from ctypes import c_void_p

INVALID, NO_SERVICE, NO_TRACK, REFUSED, TIMEOUT, NO_MEMORY = range(-1, -7, -1)
RECONNECT, PRUNE, DRY_RUN, NO_WAIT = 1, 2, 4, 8
STATE, SYNCED, DELETED, LOST, RESYNC = range(1, 6)


class EventStruct(ctypes.Structure):
    _fields_ = [("kind", c_uint32), ("state", c_uint32), ("previous", c_uint32),
                ("reserved", c_uint32), ("time", c_int64), ("track", c_char_p)]


_NAMES = POINTER(c_char_p)

# name: result, arguments
_FUNCTIONS = {
    "otrack_version": (c_char_p, []),
    "otrack_strerror": (c_char_p, [c_int]),
    "otrack_open": (c_int, [POINTER(c_void_p)]),
    "otrack_close": (None, [c_void_p]),
    "otrack_error": (c_char_p, [c_void_p]),
    "otrack_list_read": (c_int, [c_void_p, POINTER(c_void_p)]),
    "otrack_list_count": (c_size_t, [c_void_p]),
    "otrack_list_at": (c_void_p, [c_void_p, c_size_t]),
    "otrack_list_free": (None, [c_void_p]),
    "otrack_get": (c_int, [c_void_p, c_char_p, POINTER(c_void_p)]),
    "otrack_track_free": (None, [c_void_p]),
    "otrack_track_name": (c_char_p, [c_void_p]),
    "otrack_track_state": (c_uint32, [c_void_p]),
    "otrack_track_since": (c_int64, [c_void_p]),
    "otrack_track_changes": (c_uint64, [c_void_p]),
    "otrack_track_kind": (c_char_p, [c_void_p]),
    "otrack_track_json": (c_char_p, [c_void_p]),
    "otrack_follow": (c_int, [c_void_p, _NAMES, c_size_t, c_uint, POINTER(c_void_p)]),
    "otrack_follower_fd": (c_int, [c_void_p]),
    "otrack_follower_dispatch": (c_int, [c_void_p, c_void_p, c_void_p]),
    "otrack_follower_next": (c_int, [c_void_p, c_int, POINTER(POINTER(EventStruct))]),
    "otrack_follower_close": (None, [c_void_p]),
    "otrack_wait": (c_int, [c_void_p, _NAMES, c_size_t, c_uint32, c_int]),
    "otrack_set": (c_int, [c_void_p, c_char_p]),
    "otrack_delete": (c_int, [c_void_p, c_char_p]),
    "otrack_apply": (c_int, [c_void_p, c_char_p, c_uint, POINTER(c_void_p)]),
    "otrack_changes_made": (c_size_t, [c_void_p]),
    "otrack_changes_changed": (c_size_t, [c_void_p]),
    "otrack_changes_deleted": (c_size_t, [c_void_p]),
    "otrack_changes_text": (c_char_p, [c_void_p]),
    "otrack_changes_warnings": (c_char_p, [c_void_p]),
    "otrack_changes_free": (None, [c_void_p]),
}

EVENT_CALLBACK = CFUNCTYPE(None, POINTER(EventStruct), c_void_p)


def _load():
    # A build tree's library stands elsewhere.
    library = ctypes.CDLL(os.environ.get("OBJECT_TRACKING_LIBRARY", "libobject-tracking.so.1"))
    for name, (result, arguments) in _FUNCTIONS.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    return library


lib = _load()


def text_array(words):
    """An array of C strings, and their number."""
    encoded = [encode(word) for word in words]
    return (c_char_p * len(encoded))(*encoded), len(encoded)


def encode(text):
    """Raises ValueError for what no C string in UTF-8 is."""
    if "\0" in text:
        raise ValueError("a text has no character 0")
    return text.encode()


def decode(text):
    return text.decode(errors="replace")
