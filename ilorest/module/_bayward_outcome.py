"""What every part of the module shares: result codes, the failure that carries one, answers, time limits, reporting."""

from __future__ import annotations

import time

OPENED = 200   # a session is open
REFUSED = 401  # the credentials or the controller's security state
OTHER = 10001  # every other failure

_quiet = False
# Lines said: the last one logged, the last one noted for who takes reports, and that one while it is not taken.
_logged = _noted = _untaken = ""

_PRINTABLE = bytes(code if 0x20 <= code <= 0x7E else ord("?") for code in range(256))


class Failure(Exception):
    """A failed step with the result code that the caller of the module gets for it."""

    def __init__(self, code: int, text: str) -> None:
        super().__init__(text)
        self.code = code


class Unanswered(Failure):
    """No whole answer came: the controller took too long, or its connection could not be opened or broke off."""


class Answer:
    """One answer of the controller. `token` and `location` are the session headers, empty when absent."""

    __slots__ = ("status", "body", "token", "location")

    def __init__(self, status: int, body: bytes, token: str = "", location: str = "") -> None:
        self.status = status
        self.body = body
        self.token = token
        self.location = location

    def succeeded(self) -> bool:
        return 200 <= self.status <= 299

    def lacks_session(self) -> bool:
        """Whether the request was refused because the session has expired, as far as the answer tells."""
        return self.status == 401 or (self.status in (400, 403) and b"NoValidSession" in self.body)


class Deadline:
    """A point in time (monotonic clock) by which something has to be finished."""

    def __init__(self, seconds: float) -> None:
        self._end = time.monotonic() + seconds

    def left(self, limit: float) -> float:
        """Seconds left, at most `limit`; always above 0. Raises Unanswered(OTHER) when the time is up."""
        left = self._end - time.monotonic()
        if left <= 0:
            raise Unanswered(OTHER, "The controller took too long to answer.")
        return min(limit, left)


def printable(text: str) -> str:
    """The text with every control and non-ASCII character as "?"."""
    if text.isascii() and text.isprintable():
        return text
    return text.encode("ascii", "replace").translate(_PRINTABLE).decode("ascii")


def report(text: str) -> None:
    """Say why something failed, in one line; a cause that stays is logged once, not at every request."""
    global _logged, _noted, _untaken
    line = printable(text[:300])
    if line != _logged:
        _logged = line
        if not _quiet:
            import logging  # a megabyte that a service without failures does not need

            logging.getLogger("baywardilorest").warning("%s", line)
    if line != _noted:
        _noted = _untaken = line


def be_quiet(quiet: bool) -> None:
    """Whether what is said is kept from the log, by who takes reports and shows them."""
    global _quiet
    _quiet = quiet


def take_report() -> str:
    """The last line that was said and not taken yet; empty when there is none. Each log-in may say the same anew."""
    global _untaken
    line, _untaken = _untaken, ""
    return line


def begin_attempt() -> None:
    """A log-in begins, which says why it fails to who takes reports, also when that is what the last one said."""
    global _noted
    _noted = ""


def forget_report() -> None:
    """Something worked again: the same failure is news when it comes back."""
    global _logged, _noted
    _logged = _noted = ""
