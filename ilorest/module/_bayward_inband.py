"""The in-band channel ("blobstore://"): a session through the controller's own Python library, imported only here."""

from __future__ import annotations

import importlib
import io
import logging
import sys

from _bayward_outcome import OTHER, REFUSED, Answer, Deadline, Failure
from _bayward_session import LOGOUT_SECONDS, NO_ACCOUNT, RenewedSession
from _bayward_target import IN_BAND_URL, quoted_path
from _bayward_transport import MAX_BODY_BYTES

_PROBE = "/redfish/v1/Systems/"

# By name: releases of the library keep these classes in different places and add some.
_REFUSALS = frozenset(("InvalidCredentialsError", "SecurityStateError", "HpIloInitialError",
                       "UnauthorizedLoginAttemptError"))
_INSTALL = "install the package python3-ilorest, or configure the controller's https:// URL"

_ACCOUNT = "; register the right account with \"baywardctl account set ACCOUNT\""
_ADVICE = {
    "InvalidCredentialsError": _ACCOUNT, "UnauthorizedLoginAttemptError": _ACCOUNT, "SecurityStateError": _ACCOUNT,
    "HpIloInitialError": "; run as root",
    "ChifDllMissingError": "; install the native library ilorest_chif.so, or configure the controller's https:// URL",
    "ChifDriverMissingOrNotFound": "; load the kernel driver hpilo, or configure the controller's https:// URL",
}


class _Quiet:
    """Keeps what the library prints off the terminal."""

    def __enter__(self) -> None:
        self._streams = sys.stdout, sys.stderr
        # A text stream with all that code may ask of one (encoding, buffer, isatty); it may also be kept.
        nowhere = io.TextIOWrapper(io.BufferedWriter(_Nowhere()), encoding="utf-8", errors="replace")
        sys.stdout = sys.stderr = nowhere

    def __exit__(self, *_: object) -> None:
        sys.stdout, sys.stderr = self._streams


class _Nowhere(io.RawIOBase):
    def writable(self) -> bool:
        return True

    def write(self, data) -> int:  # type: ignore[no-untyped-def, override]
        return len(data)


class InbandSession(RenewedSession):
    """One session over the local channel. Deadlines do not count here: a call to the library cannot be interrupted."""

    def __init__(self) -> None:
        super().__init__()
        self._client = None
        self._account: str | None = None
        self._password: str | None = None

    def log_in(self, account: str, password: str, deadline: Deadline) -> None:
        """Open the channel, and a session when there is an account. Raises Failure."""
        self._account = _optional(account)
        self._password = _optional(password)
        self._open(deadline)
        if self._account is None:
            # Without an account the channel may still serve, as long as no security is required: a read tells.
            answer = self._get(_PROBE, deadline)
            if answer.status in (401, 403):
                raise Failure(REFUSED, "The controller wants an account for in-band access too; "
                                       "register one with \"baywardctl account set ACCOUNT\".")
            if not answer.succeeded():
                raise Failure(OTHER, f"The controller answered {_PROBE} in-band with status {answer.status}.")

    def log_out(self) -> None:
        """End the session and let go of the channel. Never raises."""
        self._account = self._password = None
        self._end(Deadline(LOGOUT_SECONDS))

    def _end(self, deadline: Deadline) -> None:
        client, self._client = self._client, None
        try:
            with _Quiet():
                if client is not None and client.session_key:
                    client.logout()
        except BaseException:  # whatever the library does, nothing depends on it any more
            pass

    def _open(self, deadline: Deadline) -> None:
        library = _library()
        try:
            with _Quiet(), _Mapped("log-in"):
                self._client = library.RedfishClient(base_url=IN_BAND_URL, username=self._account,
                                                     password=self._password)
                self._log_in(self._client)
        except Failure:
            self._end(deadline)
            raise

    def _log_in(self, client) -> None:  # type: ignore[no-untyped-def]
        try:
            client.login()
        except Exception:
            if self._account is not None:
                raise
        if self._account is not None and not client.session_key:
            raise Failure(OTHER, "The controller's in-band answer to the log-in holds no session token.")

    def is_open(self) -> bool:
        return self._client is not None

    def _get(self, path: str, deadline: Deadline) -> Answer:
        with _Quiet(), _Mapped(f"GET {path}"):
            answer = self._client.get(quoted_path(path))
            text = answer.read
            body = text if isinstance(text, bytes) else str(text or "").encode("utf-8", "replace")
            if len(body) > MAX_BODY_BYTES:
                raise Failure(OTHER, f"An answer of the controller is larger than {MAX_BODY_BYTES} bytes.")
            return Answer(int(answer.status), body)


class _Mapped:
    """Turns what the library raises into a Failure, judged by the names of its classes."""

    def __init__(self, step: str) -> None:
        self._step = step

    def __enter__(self) -> None:
        pass

    def __exit__(self, kind: type | None, error: BaseException | None, _: object) -> None:
        if kind is None or isinstance(error, Failure):
            return
        names = [base.__name__ for base in kind.__mro__]
        refused = not _REFUSALS.isdisjoint(names)
        advice = next((_ADVICE[name] for name in names if name in _ADVICE), "")
        raise Failure(REFUSED if refused else OTHER, f"In-band {self._step} failed: {kind.__name__}{advice}.") from None


def _optional(text: str) -> str | None:
    return None if text in ("", NO_ACCOUNT) else text


def _library():  # type: ignore[no-untyped-def]
    """The library, told apart from the generic one of the same name. Raises Failure that says how to get it."""
    try:
        with _Quiet():
            library = importlib.import_module("redfish")
            importlib.import_module("redfish.hpilo")
    except BaseException as error:
        absent = error.name if isinstance(error, ModuleNotFoundError) else ""
        reasons = {"redfish": "In-band access needs the controller's Python library",
                   "redfish.hpilo": "The Python package redfish is not the controller's library"}
        reason = reasons.get(absent, f"The controller's Python library does not load ({error})")
        raise Failure(OTHER, f"{reason}: {_INSTALL}.") from None
    log = logging.getLogger("redfish")
    if not log.handlers:
        log.addHandler(logging.NullHandler())  # its lines may hold tokens
    log.propagate = False
    return library
