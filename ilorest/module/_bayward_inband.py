"""The in-band channel ("blobstore://"): a session through the controller's own Python library, imported only here."""

from __future__ import annotations

import importlib
import logging
import sys

from _bayward_outcome import OTHER, REFUSED, Answer, Deadline, Failure
from _bayward_session import NO_ACCOUNT
from _bayward_transport import MAX_BODY_BYTES

BASE_URL = "blobstore://."
_PROBE = "/redfish/v1/Systems/"

# By name: releases of the library keep these classes in different places and add some.
_REFUSALS = frozenset(("InvalidCredentialsError", "SecurityStateError", "HpIloInitialError",
                       "UnauthorizedLoginAttemptError"))
_INSTALL = "install the package python3-ilorest, or configure the controller's https:// URL"


class _Quiet:
    """Keeps what the library prints off the terminal."""

    def __enter__(self) -> None:
        self._streams = sys.stdout, sys.stderr
        sys.stdout = sys.stderr = _Nowhere()  # type: ignore[assignment]

    def __exit__(self, *_: object) -> None:
        sys.stdout, sys.stderr = self._streams


class _Nowhere:
    def write(self, text: str) -> int:
        return len(text)

    def flush(self) -> None:
        pass


class InbandSession:
    """One session over the local channel. Deadlines do not count here: a call to the library cannot be interrupted."""

    def __init__(self) -> None:
        self._client = None
        self._account: str | None = None
        self._password: str | None = None

    def log_in(self, account: str, password: str, deadline: Deadline) -> None:
        """Open the channel, and a session when there is an account. Raises Failure."""
        self._account = _optional(account)
        self._password = _optional(password)
        self._open(_library())
        if self._account is None:
            # Without an account the channel may still serve, as long as no security is required: a read tells.
            answer = self._get(_PROBE)
            if not answer.succeeded():
                code = REFUSED if answer.status in (401, 403) else OTHER
                raise Failure(code, f"The controller answered in-band with status {answer.status}.")

    def fetch(self, path: str, deadline: Deadline) -> Answer:
        """GET a path. An expired session is opened once more and the request sent again."""
        answer = self._get(path)
        if answer.status == 401:
            self._open(_library())
            answer = self._get(path)
        return answer

    def log_out(self) -> None:
        """End the session and let go of the channel. Never raises."""
        client, self._client = self._client, None
        self._account = self._password = None
        try:
            with _Quiet():
                if client is not None and getattr(client, "session_key", None):
                    client.logout()
        except BaseException:  # a session that is not ended ends by itself on the controller
            pass

    def _open(self, library) -> None:  # type: ignore[no-untyped-def]
        self._client = None
        with _Quiet(), _Mapped("log-in"):
            client = library.RedfishClient(base_url=BASE_URL, username=self._account, password=self._password)
            self._client = client
            try:
                client.login()
            except Exception:
                if self._account is not None:
                    raise
            if self._account is not None and not client.session_key:
                raise Failure(OTHER, "The controller's in-band answer to the log-in holds no session token.")

    def _get(self, path: str) -> Answer:
        with _Quiet(), _Mapped(f"GET {path}"):
            if self._client is None:
                raise Failure(OTHER, "The in-band channel is not open.")
            answer = self._client.get(path)
            text = answer.read
            body = text if isinstance(text, bytes) else str(text or "").encode("utf-8", "replace")
            if len(body) > MAX_BODY_BYTES:
                raise Failure(OTHER, f"an answer of the controller is larger than {MAX_BODY_BYTES} bytes")
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
        refused = not _REFUSALS.isdisjoint(base.__name__ for base in kind.__mro__)
        raise Failure(REFUSED if refused else OTHER, f"In-band {self._step} failed: {kind.__name__}") from None


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
