"""What fails, and the words for it."""
from __future__ import annotations

from typing import Dict, Tuple

from ._codes import CODES as LIBRARY_CODES

#: number: name, meaning, hint. The library's codes, and those of this module and of the C++ header.
CODES: Dict[int, Tuple[str, str, str]] = {
    **LIBRARY_CODES,
    1002: ("NOT_OPEN", "the connection is not open", "Open a new connection."),
    1003: ("INVALID_TEXT", "a host, identifier or file name has a NUL in it", "Pass texts without a NUL."),
    1004: ("NOTHING_ASKED", "no identifier or group is given",
           "Name one at least; without names all are asked for by another call."),
    1005: ("QUERY_TOO_LONG", "the identifiers or groups take more than 32765 characters together",
           "Ask in several queries."),
    1006: ("WORKER_FAILED", "zulstats-worker cannot be started, or ended unexpectedly",
           "Install zulstats-worker, name it in ZULSTATS_WORKER, or leave the timeout out."),
}


class Error(Exception):
    """A failed call: `rc` is its code, `name` and `hint` belong to it. `detail` has what is known beyond, or is empty."""

    def __init__(self, rc: int, detail: str = "") -> None:
        self.rc = rc
        self.name, meaning, self.hint = CODES.get(rc, (f"code {rc}", f"code {rc}", ""))
        self.detail = detail
        super().__init__(meaning + (f": {detail}" if detail else ""))


class Timeout(Error, TimeoutError):
    """The time for a call was over; `detail` tells what it waited for. `rc` is that of a lost connection."""

    def __init__(self, detail: str) -> None:
        super().__init__(-102, detail)
        self.args = (f"no answer in time: {detail}",)
