"""Connections by a zulstats-worker, a process of its own that is ended when the time for a call is over."""
from __future__ import annotations

import os
import pathlib
import shutil
import socket
import struct
import subprocess
import threading
import time
from typing import List, Optional, Tuple

from ._errors import Error, Timeout

Entry = Tuple[str, int, str, str]

VERSION = 2
_HELLO, _OPEN, _QUERY, _CLOSE, _PHASE, _OPENED, _SAMPLE, _FAILED, _CLOSED = range(9)
_WHAT = ("stats", "stats_by_id", "stats_by_group", "ids", "ids_by_group", "groups")
_WAITS = ("the worker", "the trace file", "the host name", "the connection", "the answer", "the close")
_DEADLINE, _CANNOT_CONNECT = range(2)
_LIMIT = 1 << 20


def _find() -> str:
    """The worker's program: ZULSTATS_WORKER, or where packages and `cmake --install` put it."""
    named = os.environ.get("ZULSTATS_WORKER")
    command = shutil.which("zulstat")
    places = [named] if named else [
        *([pathlib.Path(command).resolve().parent / "../libexec/zulstats/zulstats-worker"] if command else []),
        "/usr/local/libexec/zulstats/zulstats-worker", "/usr/libexec/zulstats/zulstats-worker"]
    for place in places:
        if os.access(place, os.X_OK):
            return str(place)
    raise Error(1006, f"not found: {', '.join(str(place) for place in places)}")


class Channel:
    """One connection, in a worker. Any thread of the process that made it may use it; they take turns."""

    is_open = False
    _process: Optional["subprocess.Popen[bytes]"] = None
    _socket: Optional[socket.socket] = None

    def __init__(self, host: bytes, port: int, timeout: float) -> None:
        if not 0 < timeout < 1e6:
            raise ValueError(f"timeout is {timeout}, not a number of seconds above 0")
        if len(host) >= _LIMIT // 2:  # no message holds it
            raise Error(-132)
        self._timeout = timeout
        self._owner = os.getpid()
        self._turn = threading.RLock()
        self._busy = False  # the thread that has the turn is inside ask or close
        self._greeted = False  # the worker has shown that it is one
        self._received = b""
        self._waits = 0
        try:
            self._socket, other = socket.socketpair()
            with other:
                program = _find()
                try:  # in a session of its own: Ctrl-C is the program's
                    self._process = subprocess.Popen([program], stdin=other, stdout=other, start_new_session=True)
                except OSError as failure:
                    raise Error(1006, str(failure)) from failure
            self.is_open = True
            self._send(_HELLO, struct.pack("=I", VERSION))
            self._send(_OPEN, struct.pack("=I", len(host)) + host + struct.pack("=iiI", port, 0, 0))
            opened = self._await(_OPENED)
            self.protocol_version = opened[8:].decode("utf-8", "replace")
        except BaseException:
            self._end()
            raise

    def __del__(self) -> None:
        self.close()

    def close(self) -> None:
        if not self.is_open:
            return
        if self._owner != os.getpid():
            self._end()
            return
        with self._turn:
            if self.is_open and not self._busy:  # busy: a signal handler closes
                try:
                    self._busy = True
                    self._send(_CLOSE, b"")
                    self._await(_CLOSED)
                except Error:
                    pass
                finally:
                    self._busy = False
                    self._end()
            self._end()

    def ask(self, what: str, query: bytes) -> List[Entry]:
        if self._owner != os.getpid():
            raise Error(-123)
        with self._turn:
            if self._busy:
                raise Error(1002, "a signal handler asks during a query")
            if not self.is_open:
                raise Error(1002)
            answered = False
            try:
                self._busy = True
                self._send(_QUERY, struct.pack("=B", _WHAT.index(what)) + query)
                entries = _entries(self._await(_SAMPLE))
                answered = True
                return entries
            except (struct.error, IndexError) as failure:
                raise Error(1007, "a message of the worker is not understood") from failure
            finally:
                self._busy = False
                if not answered:  # what is left of the answer would be taken for that of the next query
                    self._end()

    def _end(self) -> None:
        """Ends the worker and with it the connection; in another process, the copy of the socket alone."""
        self.is_open = False
        if self._process is not None:
            if self._owner != os.getpid():
                self._process.returncode = 0  # somebody else's to wait for
            elif self._process.poll() is None:
                self._process.kill()
            self._process.wait()
        if self._socket is not None:
            self._socket.close()

    def _ended(self, detail: str) -> Error:
        """The worker has ended, or is none."""
        self._end()
        return Error(1007 if self._greeted else 1006, detail)

    def _send(self, kind: int, content: bytes) -> None:
        assert self._socket is not None
        self._waits = 0
        try:
            self._socket.settimeout(self._timeout)
            self._socket.sendall(struct.pack("=IB", len(content) + 1, kind) + content)
        except socket.timeout:
            self._end()
            raise Timeout(f"waited {self._timeout:g} s for {_WAITS[self._waits]}") from None
        except OSError as failure:
            raise self._ended("it has ended") from failure

    def _await(self, wanted: int) -> bytes:
        """The content of the next message of this kind."""
        deadline = time.monotonic() + self._timeout
        while True:
            kind, content = self._next(deadline)
            if kind == wanted:
                return content
            if kind == _HELLO and content == struct.pack("=I", VERSION):
                continue
            if kind == _PHASE and len(content) == 1 and content[0] < len(_WAITS):
                self._waits = content[0]
                self._greeted = True
            elif kind == _FAILED and len(content) >= 6:
                self._fail(*struct.unpack_from("=BBi", content), content[6:].decode("utf-8", "replace"))
            else:
                raise self._ended("it is of another version" if kind == _HELLO else "a message is not understood")

    def _fail(self, kind: int, phase: int, rc: int, text: str) -> None:
        self._end()
        if kind == _DEADLINE:
            raise Timeout(text)
        if kind == _CANNOT_CONNECT and rc == 0:
            rc = -132 if phase == 2 else -118
        raise Error(rc if rc != 0 else 1007, text)

    def _next(self, deadline: float) -> Tuple[int, bytes]:
        while True:
            if len(self._received) >= 4:
                (length,) = struct.unpack_from("=I", self._received)
                if not 0 < length < _LIMIT:
                    raise self._ended("a message is not understood")
                if len(self._received) >= 4 + length:
                    message = self._received[4:4 + length]
                    self._received = self._received[4 + length:]
                    return message[0], message[1:]
            assert self._socket is not None
            left = deadline - time.monotonic()
            try:
                if left <= 0:
                    raise socket.timeout
                self._socket.settimeout(left)
                more = self._socket.recv(65536)
            except socket.timeout:
                self._end()
                raise Timeout(f"waited {self._timeout:g} s for {_WAITS[self._waits]}") from None
            except OSError:
                more = b""
            if not more:
                raise self._ended("it has ended")
            self._received += more


def _entries(content: bytes) -> List[Entry]:
    """The entries of a sample: the lengths of all texts come first, then the texts in one piece."""
    elements, items = struct.unpack_from("=II", content, 33)
    table = 41
    text = table + 12 * elements + 8 * items
    found: List[Entry] = []

    def take(length: int) -> str:
        nonlocal text
        if text + length > len(content):
            raise IndexError
        text += length
        return content[text - length:text].decode("utf-8", "surrogateescape")

    for _ in range(elements):
        length, rc, count = struct.unpack_from("=IiI", content, table)
        table += 12
        name = take(length)
        if rc < 0:
            found.append((name, rc, "", ""))
        for _ in range(count):
            id_length, value_length = struct.unpack_from("=II", content, table)
            table += 8
            identifier = take(id_length)
            found.append((name, rc, identifier, take(value_length)))
    return found
