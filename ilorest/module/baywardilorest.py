"""The service's door to the management controller: every function takes texts and returns, whatever happens.

A result code is 200 (session open), 401 (credentials or security state refused) or 10001 (any other failure).
One thread uses the module; one session is open at a time. Why something failed is logged as a warning and, for a host
without a terminal, can be fetched with `take_report`.

Time limits over HTTPS: connecting 5 s and the TLS handshake 5 s, 30 s without a byte, 45 s for a whole log-in or `get`
(with redirects and a renewed session), 5 s for a log-out. Two waits have no limit of ours:
  - looking up the controller's name, once per log-in, which is the resolver's to end (`timeout` and `attempts` in
    /etc/resolv.conf); a URL with an address never waits for it;
  - a call over the in-band channel ("blobstore://"), which the controller's library neither limits nor lets interrupt.
"""

from __future__ import annotations

import os

import _bayward_resources
import _bayward_session
import _bayward_shaping
import _bayward_vnic
from _bayward_outcome import OPENED, OTHER, Deadline, Failure, be_quiet, begin_attempt, forget_report, report
from _bayward_outcome import take_report  # noqa: F401: one of the module's functions
from _bayward_target import Target, parse_target

SERVICE_ROOT = "/redfish/v1/"


class _Open:
    """The open session and the resources read through it."""

    def __init__(self, target: Target, session, expand: bool) -> None:  # type: ignore[no-untyped-def]
        self.target = target
        self.session = session
        # In-band nothing limits how long the controller takes for a large answer.
        self.resources = _bayward_resources.Resources(session, expand and not target.in_band)


_open: _Open | None = None
_ca_file = ""
_expand = True


def _answered(function):  # type: ignore[no-untyped-def]
    """The edge of the module: failures become their code, and nothing is raised into the interpreter's host."""

    def answered(*arguments):  # type: ignore[no-untyped-def]
        try:
            return function(*arguments)
        except BaseException as error:
            return _code_of(error, function.__name__)

    answered.__name__ = function.__name__
    answered.__doc__ = function.__doc__
    return answered


def _code_of(error: BaseException, function: str) -> int:
    """The result code for a failure, which is reported too; not even a failing report is raised."""
    code = error.code if isinstance(error, Failure) else OTHER
    try:
        report(str(error) if isinstance(error, Failure) else _unexpected(error, function))
    except BaseException:
        pass
    return code


def _unexpected(error: BaseException, function: str) -> str:
    """Where it happened, for the maintainers; not its text, which may hold anything."""
    place = error.__traceback__
    while place is not None and place.tb_next is not None:
        place = place.tb_next
    where = "" if place is None else f" at {os.path.basename(place.tb_frame.f_code.co_filename)}:{place.tb_lineno}"
    return f"An error of the service itself: {type(error).__name__} in {function}(){where}; please report it."


def configure(settings: dict) -> None:
    """Take over the settings, from the next log-in on. Unknown ones are ignored.

    "ca file"   absolute path of a PEM file, read at each log-in: the certificate's chain and host name are verified
                with it, and a log-in whose certificate fails, or whose CA file is of no use, is 10001. Empty or absent:
                the connection is encrypted but not verified.
    "expand"    False: every resource is asked for by itself. Otherwise collections are asked with their members in
                place where the controller can do that, which saves most of the requests; what `get` gives is the same.
    "quiet"     True: why something failed is told to who takes reports alone, not logged.
    """
    global _ca_file, _expand
    _ca_file = settings.get("ca file", "")
    _expand = settings.get("expand", True)
    be_quiet(settings.get("quiet", False))


@_answered
def init(host: str, account: str, password: str) -> int:
    """Log in to the controller; a session that was open is closed first. 200, 401 or 10001."""
    _log_in(host, account, password)
    return OPENED


@_answered
def get(path: str) -> str:
    """The resource as JSON text, also an error answer that says "not there yet"; 401 or 10001 on failure."""
    text = _resources().get(path)
    forget_report()
    return text


@_answered
def is_ip_assigned(host: str) -> bool | None:
    """Whether this host has the address on the virtual-NIC link; None when that cannot be told; 10001 on failure."""
    return _bayward_vnic.is_assigned(host)


@_answered
def get_vnic(host: str, account: str, password: str) -> int:
    """Open a session over the virtual NIC, as `init` does."""
    _log_in(host, account, password)
    return OPENED


@_answered
def get_v1(host: str, account: str, password: str) -> str:
    """The service root as JSON text; 401 or 10001 on failure. Logs in unless a session with that host is open."""
    _ensure_open(host, account, password)
    return _resources().get(SERVICE_ROOT)


@_answered
def get_prodgen(host: str, account: str, password: str) -> str:
    """The controller's product generation, such as "iLO 6"; 401 or 10001 on failure. Logs in as `get_v1` does."""
    _ensure_open(host, account, password)
    root = _bayward_shaping.parse_object(_resources().get(SERVICE_ROOT).encode("ascii"))
    generation = _bayward_shaping.member(root, "Oem", "Hpe", "Moniker", "PRODGEN")
    if not isinstance(generation, str) or not generation:
        raise Failure(OTHER, "The controller's service root does not name a product generation.")
    return generation


@_answered
def close() -> None:
    """Log out, within 5 seconds over HTTPS, and close the connection."""
    _close()


def _log_in(host: str, account: str, password: str) -> None:
    global _open
    begin_attempt()
    _close()
    target = parse_target(host)
    session = _session_for(target)
    try:
        session.log_in(account, password, Deadline(_bayward_resources.GET_SECONDS))
    except BaseException:
        session.log_out()
        raise
    _open = _Open(target, session, _expand)
    forget_report()


def _close() -> None:
    global _open
    closing, _open = _open, None
    if closing is not None:
        closing.session.log_out()


def _session_for(target: Target):  # type: ignore[no-untyped-def]
    if not target.in_band:
        return _bayward_session.HttpsSession(target, _ca_file)
    import _bayward_inband  # only servers that are reached in-band pay for it

    return _bayward_inband.InbandSession()


def _resources() -> _bayward_resources.Resources:
    if _open is None:
        raise Failure(OTHER, "There is no session with the controller.")
    return _open.resources


def _ensure_open(host: str, account: str, password: str) -> None:
    if _open is None or _open.target != parse_target(host):
        _log_in(host, account, password)
