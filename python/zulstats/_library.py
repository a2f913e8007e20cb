"""Connections by libzulstats.so.1 in this process."""
from __future__ import annotations

import ctypes
import ctypes.util
import os
from ctypes import POINTER, byref, c_char, c_char_p, c_int, c_int32, c_void_p
from typing import Iterator, Optional, Tuple

from ._errors import Error

Entry = Tuple[str, int, str, str]

_END = -113
_ENDS_CONNECTION = (-102, -122, -101)  # after these the library has removed the connection, or does not know it
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
        loaded = ctypes.CDLL(os.environ.get("ZULSTATS_LIBRARY", "libzulstats.so.1"))
        for name, arguments in _PROTOTYPES.items():
            getattr(loaded, name).argtypes = arguments
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


def set_trace(level: int, file: Optional[str]) -> None:
    if file is not None and "\0" in file:
        raise Error(1003)
    _check(_library().setAPITraceFile(None if file is None else os.fsencode(file)))
    _check(_library().setAPITraceLevel(level))


class Channel:
    """One connection of this process; the thread that made it uses it."""

    def __init__(self, host: str, port: int) -> None:
        self._library = _library()
        self._token = c_void_p()
        self._process = os.getpid()
        text = c_void_p()
        _check(self._library.openRemoteGatewayConnection(host.encode("utf-8", "surrogateescape"), port,
                                                         byref(self._token), byref(text)))
        self.protocol_version = (ctypes.string_at(text.value) if text.value else b"").decode("utf-8", "replace")
        free = ctypes.CDLL(None).free
        free.argtypes = (c_void_p,)
        free(text)

    @property
    def is_open(self) -> bool:
        return bool(self._token)

    def close(self) -> None:
        if self._token and self._process == os.getpid():
            self._library.closeGatewayConnection(byref(self._token))
        self._token = c_void_p()

    def ask(self, what: str, query: bytes) -> Iterator[Entry]:
        call, takes_query, has_values = _CALLS[what]
        result = c_void_p()
        arguments = (query,) if takes_query else ()
        rc = getattr(self._library, call)(self._token, *arguments, byref(result))
        if rc in _ENDS_CONNECTION:
            if what == _LEFT_OPEN:
                self.close()
            self._token = c_void_p()
        _check(rc)
        record = StatData() if has_values else IdData()
        step = self._library.getFirstStat if has_values else self._library.getFirstId
        while True:
            rc = step(result, byref(record))
            if rc == _END:
                return
            _check(rc)
            step = self._library.getNextStat if has_values else self._library.getNextId
            element = _text(record.queryElementPtr, record.queryElementLen)
            if record.queryElementRC < 0:
                yield element, record.queryElementRC, "", ""
            elif has_values:
                yield (element, record.queryElementRC, _text(record.statIdPtr, record.statIdLen),
                       _text(record.statValuePtr, record.statValueLen))
            else:
                yield element, record.queryElementRC, _text(record.idPtr, record.idLen), ""
