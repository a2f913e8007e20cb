"""Statistics of a Gateway.

    import zulstats

    with zulstats.connect("gw1", 7531, timeout=5) as gateway:
        for row in gateway.stats():
            if row.rc >= 0:
                print(row.id, row.value)

Queries return Rows, a list of Row: copies, which nothing that comes later changes. Rows fit csv.writer.writerows and
pandas.DataFrame; to_dict() maps identifiers to values.

Failures are zulstats.Error, with the library's code (libzulstats(3) has them), its name and what to do about it, or with
one of this module:

    1002 NOT_OPEN        the connection is not open
    1003 INVALID_TEXT    a host, identifier or file name has a NUL in it, or an identifier a colon
    1004 NOTHING_ASKED   no identifier or group is given, or an empty one
    1005 QUERY_TOO_LONG  the identifiers or groups take more than 32765 characters together
    1006 WORKER_FAILED   zulstats-worker cannot be started
    1007 WORKER_ENDED    zulstats-worker has ended unexpectedly
    1008 NO_LIBRARY      libzulstats.so.1 cannot be loaded

A connection that a failure has ended is closed by itself. Arguments of a wrong type are TypeError, a timeout that is not
above 0 is ValueError.

Without `timeout` calls are made in this process, by libzulstats.so.1: they wait for the Gateway without limit, and the
connection belongs to the thread that opened it; another may close it, which ends a query that waits. Ctrl-C during such a
call waits too: the call first closes the connection, for which a silent Gateway lets it wait on. `timeout` is the way out.

With `timeout`, in seconds for each call, they are made by a zulstats-worker, which is ended when the time is over; that is
zulstats.Timeout, and the connection is closed. Threads take turns with it; it ends with the thread that opened it. What
interrupts a call, Ctrl-C for one, closes the connection.

A process that fork() has made owns none of its parent's connections: queries are RESULT_SET_PID_MISMATCH, and close() leaves
the parent's alone.

Texts are what the Gateway sent, as UTF-8; other bytes become surrogates ("surrogateescape").
"""
from __future__ import annotations

import operator
import sys
from typing import Any, Dict, Iterable, List, NamedTuple, Optional, Union

from . import _library, _worker
from ._errors import CODES, Error, Timeout

__all__ = ["CODES", "Connection", "Error", "Row", "Rows", "Timeout", "connect", "library_version", "set_trace"]
__version__ = "1.2.0"

# Longest query string that the library takes as it is.
_LONGEST_QUERY = 32765


class Row(NamedTuple):
    """One entry of an answer. Where rc is negative the element failed, and id and value are empty."""

    element: str  #: what was asked for, as the Gateway repeats it
    rc: int  #: the Gateway's code for the element
    id: str  #: of the statistic or group
    value: str  #: of the statistic; empty in lists of identifiers

    @property
    def number(self) -> Optional[Union[int, float]]:
        """The value where it is a decimal number, without loss where it is a whole one; else None."""
        text = self.value
        if not text.isascii() or "_" in text or text != text.strip():
            return None
        try:
            return int(text)
        except ValueError:
            pass
        try:
            number = float(text)
        except ValueError:
            return None
        return number if abs(number) != float("inf") and number == number else None


class Rows(List[Row]):
    """The rows of one answer, in its order."""

    def to_dict(self) -> Dict[str, str]:
        """Values by identifier, without failed elements; of an identifier that stands twice the last one."""
        return {row.id: row.value for row in self if row.rc >= 0}

    def failed(self) -> "Rows":
        """The elements that failed."""
        return Rows(row for row in self if row.rc < 0)


class Connection:
    """A connection to a Gateway, from connect(). close(), or `with`, ends it."""

    def __init__(self, host: str, port: int, timeout: Optional[float] = None) -> None:
        self._channel: Any = None
        name = _encoded(host)
        port = operator.index(port)
        if not 1 <= port <= 65535:
            raise Error(-107)
        self._channel = _library.Channel(name, port) if timeout is None else _worker.Channel(name, port, timeout)
        #: the Gateway's statistics protocol version, such as "1_0_0_0"
        self.protocol_version: str = self._channel.protocol_version

    def __enter__(self) -> "Connection":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    @property
    def is_open(self) -> bool:
        channel = self._channel
        return channel is not None and channel.is_open

    def close(self) -> None:
        """Closes the connection; a second time does nothing. Waits for the Gateway, with a timeout no longer than that."""
        channel, self._channel = self._channel, None
        if channel is not None:
            channel.close()

    def stats(self) -> Rows:
        """All statistics."""
        return self._ask("stats", None)

    def stats_by_id(self, *names: Union[str, Iterable[str]]) -> Rows:
        """The statistics with these identifiers: arguments, or lists of them."""
        return self._ask("stats_by_id", names)

    def stats_by_group(self, *names: Union[str, Iterable[str]]) -> Rows:
        """The statistics of these groups."""
        return self._ask("stats_by_group", names)

    def ids(self) -> Rows:
        """The identifiers of all statistics."""
        return self._ask("ids", None)

    def ids_by_group(self, *names: Union[str, Iterable[str]]) -> Rows:
        """The identifiers of the statistics of these groups."""
        return self._ask("ids_by_group", names)

    def groups(self) -> Rows:
        """The identifiers of all resource groups."""
        return self._ask("groups", None)

    def _ask(self, what: str, names: Optional[Iterable[Union[str, Iterable[str]]]]) -> Rows:
        query = b"" if names is None else _joined(names)
        channel = self._channel
        if channel is None:
            raise Error(1002)
        try:
            return Rows(Row(*entry) for entry in channel.ask(what, query))
        finally:
            if not channel.is_open:
                self._channel = None


def connect(host: str, port: int, timeout: Optional[float] = None) -> Connection:
    """Opens a connection to the Gateway at a host, name or address, and port; `timeout` is in seconds for each call."""
    return Connection(host, port, timeout)


def library_version() -> str:
    """The version of libzulstats, "1_1_0_0"."""
    return _library.version()


def set_trace(level: int, file: Optional[str] = None) -> None:
    """The trace of the calls made in this process: its level, 0 to 5, and a file that it is appended to, or standard error."""
    level = operator.index(level)
    if not 0 <= level <= 5:
        raise Error(-104)
    _library.set_trace(level, None if file is None else _encoded(file, sys.getfilesystemencoding()))


def _encoded(text: str, encoding: str = "utf-8") -> bytes:
    try:
        encoded = str.encode(text, encoding, "surrogateescape")
    except UnicodeEncodeError as failure:
        raise Error(1003, str(failure)) from None
    if b"\0" in encoded:
        raise Error(1003)
    return encoded


def _joined(names: Iterable[Union[str, Iterable[str]]]) -> bytes:
    query = b""
    for name in (name for each in names for name in ([each] if isinstance(each, str) else each)):
        encoded = _encoded(name)
        if not encoded:
            raise Error(1004)
        if b":" in encoded:
            raise Error(1003)
        query += b":" + encoded if query else encoded
        if len(query) > _LONGEST_QUERY:
            raise Error(1005)
    if not query:
        raise Error(1004)  # which would ask for everything
    return query
