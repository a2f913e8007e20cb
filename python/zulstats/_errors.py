"""What fails, and the words for it."""
from __future__ import annotations

from typing import Any, Dict, Tuple

from ._codes import CODES as LIBRARY_CODES

#: The codes of the C++ header and of this module; 1001 is the former's alone.
OWN_CODES: Dict[int, Tuple[str, str, str]] = {
    1001: ("STALE", "the rows belong to a former query or walk, or to a connection that has ended",
           "Finish with the rows before the next query, or take a snapshot."),
    1002: ("NOT_OPEN", "the connection is not open", "Open a new connection."),
    1003: ("INVALID_TEXT", "a host, identifier or file name has a NUL in it, or an identifier a colon",
           "Pass texts without a NUL, and identifiers one by one."),
    1004: ("NOTHING_ASKED", "no identifier or group is given, or an empty one",
           "Name one at least; without names all are asked for by another call."),
    1005: ("QUERY_TOO_LONG", "the identifiers or groups take more than 32765 characters together",
           "Ask in several queries."),
    1006: ("WORKER_FAILED", "zulstats-worker cannot be started",
           "Install zulstats-worker, name it in ZULSTATS_WORKER, or leave the timeout out."),
    1007: ("WORKER_ENDED", "zulstats-worker has ended unexpectedly", "Open a new connection."),
    1008: ("NO_LIBRARY", "libzulstats.so.1 cannot be loaded",
           "Install libzulstats, or name the library in ZULSTATS_LIBRARY."),
}

#: number: name, meaning, hint. The library's codes and OWN_CODES.
CODES: Dict[int, Tuple[str, str, str]] = {**LIBRARY_CODES, **OWN_CODES}


class Error(Exception):
    """A failed call: `rc` is its code, `name` and `hint` belong to it. `detail` has what is known beyond, or is empty."""

    def __init__(self, rc: int, detail: str = "") -> None:
        self.rc = rc
        self.name, meaning, self.hint = CODES.get(rc, (f"code {rc}", f"code {rc}", ""))
        self.detail = detail
        super().__init__(meaning + (f": {detail}" if detail else ""))

    def __reduce__(self) -> Any:
        return type(self), (self.rc, self.detail)


class Timeout(Error, TimeoutError):
    """The time for a call was over; `detail` tells what it waited for. `rc` is that of a lost connection."""

    def __init__(self, detail: str) -> None:
        super().__init__(-102, detail)
        self.args = (f"no answer in time: {detail}",)

    def __reduce__(self) -> Any:
        return type(self), (self.detail,)
