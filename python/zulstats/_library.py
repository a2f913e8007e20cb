"""Connections by libzulstats.so.1 in this process."""
from __future__ import annotations

import collections
import ctypes
import os
import threading
from ctypes import POINTER, byref, c_char, c_char_p, c_int, c_int32, c_void_p
from typing import Deque, List, Optional, Tuple

from ._errors import Error

Entry = Tuple[str, int, str, str]

_END = -113
_LOST = -102
_OTHER_PROCESS = -123
_OTHER_THREAD = -124
_ENDS_CONNECTION = (_LOST, -122)  # after these the library has removed the connection
_LEFT_OPEN = "stats_by_group"  # but after this one, which leaves it to the caller


class StatData(ctypes.Structure):
    _fields_ = [("eyecatcher", c_char * 8), ("queryElementPtr", c_void_p), ("queryElementLen", c_int32),
                ("queryElementRC", c_int32), ("statIdLen", c_int32), ("statIdPtr", c_void_p),
                ("statValueLen", c_int32), ("statValuePtr", c_void_p)]


class IdData(ctypes.Structure):
    _fields_ = [("eyecatcher", c_char * 8), ("queryElementPtr", c_void_p), ("queryElementLen", c_int32),
                ("queryElementRC", c_int32), ("idLen", c_int32), ("idPtr", c_void_p)]


# What is asked for: the call, and whether it takes a query string and answers with values.
_CALLS = {
    "stats": ("getStats", False, True),
    "stats_by_id": ("getStatsByStatId", True, True),
    "stats_by_group": ("getStatsByStatGroupId", True, True),
    "ids": ("getStatIds", False, False),
    "ids_by_group": ("getStatIdsByStatGroupId", True, False),
    "groups": ("getResourceGroupIds", False, False),
}

_PROTOTYPES = {
    "openRemoteGatewayConnection": (c_char_p, c_int, POINTER(c_void_p), POINTER(c_void_p)),
    "closeGatewayConnection": (POINTER(c_void_p),),
    "getFirstStat": (c_void_p, POINTER(StatData)),
    "getNextStat": (c_void_p, POINTER(StatData)),
    "getFirstId": (c_void_p, POINTER(IdData)),
    "getNextId": (c_void_p, POINTER(IdData)),
    "getStatsAPIVersion": (POINTER(c_char_p),),
    "setAPITraceLevel": (c_int,),
    "setAPITraceFile": (c_char_p,),
    **{call: (c_void_p, *((c_char_p,) if takes_query else ()), POINTER(c_void_p))
       for call, takes_query, _ in _CALLS.values()},
}

_loaded: Optional[ctypes.CDLL] = None


def _library() -> ctypes.CDLL:
    """The library, loaded by the first call: ZULSTATS_LIBRARY, or libzulstats.so.1 where the system finds it."""
    global _loaded
    if _loaded is None:
        try:
            loaded = ctypes.CDLL(os.environ.get("ZULSTATS_LIBRARY", "libzulstats.so.1"))
            for name, arguments in _PROTOTYPES.items():
                getattr(loaded, name).argtypes = arguments
        except (OSError, AttributeError) as failure:
            raise Error(1008, str(failure)) from failure
        _loaded = loaded
    return _loaded


def _check(rc: int) -> None:
    if rc != 0:
        raise Error(rc)


def _text(address: Optional[int], length: int) -> str:
    return ctypes.string_at(address, length).decode("utf-8", "surrogateescape") if address and length > 0 else ""


def version() -> str:
    text = c_char_p()
    _check(_library().getStatsAPIVersion(byref(text)))
    return (text.value or b"").decode()


def set_trace(level: int, file: Optional[bytes]) -> None:
    _check(_library().setAPITraceFile(file))
    _check(_library().setAPITraceLevel(level))


# Connections that their close has not found, for the process has more than the library finds: the process that opened
# each, and its token. The end of another one lets the library find them.
_unclosed: Deque[Tuple[int, c_void_p]] = collections.deque()


def _close(library: ctypes.CDLL, token: c_void_p) -> bool:
    """Closes a connection, or keeps it for later; tells whether it is closed."""
    try:
        library.closeGatewayConnection(byref(token))
    finally:
        if token:  # the library sets the token of what it has closed to NULL
            _unclosed.append((os.getpid(), token))
    return not token


def _close_unclosed(library: ctypes.CDLL) -> None:
    """Closes what can be closed now: each that is closed may let the library find another."""
    closed = True
    while closed and _unclosed:
        closed = False
        for _ in range(len(_unclosed)):
            try:
                process, token = _unclosed.popleft()
            except IndexError:  # another thread closes them, too
                return
            if process == os.getpid():
                closed = _close(library, token) or closed


def _entries(library: ctypes.CDLL, result: c_void_p, has_values: bool) -> List[Entry]:
    """A walk over an answer."""
    found: List[Entry] = []
    record = StatData() if has_values else IdData()
    step = library.getFirstStat if has_values else library.getFirstId
    while True:
        rc = step(result, byref(record))
        if rc == _END:
            return found
        _check(rc)
        step = library.getNextStat if has_values else library.getNextId
        element = _text(record.queryElementPtr, record.queryElementLen)
        if record.queryElementRC < 0:
            found.append((element, record.queryElementRC, "", ""))
        elif has_values:
            found.append((element, record.queryElementRC, _text(record.statIdPtr, record.statIdLen),
                          _text(record.statValuePtr, record.statValueLen)))
        else:
            found.append((element, record.queryElementRC, _text(record.idPtr, record.idLen), ""))


class Channel:
    """One connection of this process. The thread that made it asks; any may close it, which ends a query that waits.

    A signal handler may raise between a call of the library and the look at its code. What the call has done is then told
    by what it has written; where that does not tell either, the token is given up, for a later connection may have it.
    """

    _token: Optional[c_void_p] = None

    def __init__(self, host: bytes, port: int) -> None:
        self._library = _library()
        self._process = os.getpid()
        self._thread = threading.get_ident()
        # Guards the token, and is held over a walk: a close takes the storage of the answer.
        self._lock = threading.RLock()
        self._busy = False  # its thread is inside ask
        self._unsure = False  # a query is made, and its code has not been seen: it may have ended the connection
        self._close_wanted = False  # by the end of ask
        token, text = c_void_p(), c_void_p()
        try:
            _check(self._library.openRemoteGatewayConnection(host, port, byref(token), byref(text)))
            self.protocol_version = (ctypes.string_at(text.value) if text.value else b"").decode("utf-8", "replace")
        except BaseException:
            if token:
                _close(self._library, token)
            raise
        finally:
            free = ctypes.CDLL(None).free
            free.argtypes = (c_void_p,)
            free(text)
        self._token = token

    def __del__(self) -> None:
        self.close()

    @property
    def is_open(self) -> bool:
        return self._token is not None

    def close(self) -> None:
        if self._token is None:
            return
        if self._process != os.getpid():
            self._token = None
            return
        with self._lock:
            if self._busy and self._thread == threading.get_ident():
                self._close_wanted = True  # a signal handler closes what is in use
                return
            waits = self._busy and self._unsure
            given_up = self._unsure and not waits
            token, self._token = self._token, None
        if token is None or given_up:
            return
        if waits:
            self._library.closeGatewayConnection(byref(token))  # not found: the query has just ended it
        elif _close(self._library, token):
            _close_unclosed(self._library)

    def ask(self, what: str, query: bytes) -> List[Entry]:
        if self._process != os.getpid():
            raise Error(_OTHER_PROCESS)
        if self._thread != threading.get_ident():
            raise Error(_OTHER_THREAD)
        if self._busy:
            raise Error(1002, "a signal handler asks during a query")
        token = self._token
        if token is None:
            raise Error(1002)
        try:
            self._busy = True
            return self._answer(token, what, query)
        finally:
            self._busy = False
            if self._close_wanted:
                self.close()

    def _answer(self, token: c_void_p, what: str, query: bytes) -> List[Entry]:
        call, takes_query, has_values = _CALLS[what]
        arguments = (query,) if takes_query else ()
        result = c_void_p()
        rc = None
        self._unsure = True
        try:
            rc = getattr(self._library, call)(token, *arguments, byref(result))
        finally:
            ended = rc in _ENDS_CONNECTION if rc is not None else not result
            if ended and what == _LEFT_OPEN:
                self._close_wanted = True
            elif ended:
                self._token = None
            self._unsure = False
        if ended and what != _LEFT_OPEN:
            _close_unclosed(self._library)
        with self._lock:
            if self._token is None and not ended:
                raise Error(_LOST, "another thread has closed the connection")
            _check(rc)
            return _entries(self._library, result, has_values)
