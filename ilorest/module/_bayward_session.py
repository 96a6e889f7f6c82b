"""A session with the controller over HTTPS: log-in, requests with one renewal when it expired, log-out."""

from __future__ import annotations

import json
import re
import urllib.parse

from _bayward_outcome import OTHER, REFUSED, Answer, Deadline, Failure
from _bayward_shaping import parse_object
from _bayward_target import Target
from _bayward_transport import Connection

SESSIONS = "/redfish/v1/SessionService/Sessions/"
LOGOUT_SECONDS = 5.0
NO_ACCOUNT = "None"  # what the service gives for an account or password that it does not have

_SESSION = re.compile(re.escape(SESSIONS) + "([^/?#]+)/?", re.IGNORECASE)


class RenewedSession:
    """Reads resources through a session, which the class derived from it opens and ends, and renews an expired one."""

    def __init__(self) -> None:
        # A resource that is refused to a fresh session too: it is not worth a log-in each time it is asked for.
        self._refused = ""
        self.log_ins = 0  # renewals so far

    def fetch(self, path: str, deadline: Deadline) -> Answer:
        """GET a path. An expired session is opened once more and the request sent again."""
        if self.is_open():
            answer = self._get(path, deadline)
            if not answer.lacks_session() or path == self._refused:
                return answer
            # Perhaps only this resource is refused; then the session still counts among the few of the controller.
            self._end(deadline)
        self._open(deadline)
        self.log_ins += 1
        answer = self._get(path, deadline)
        if answer.lacks_session():
            self._refused = path
        return answer

    def is_open(self) -> bool:
        """Whether there is a session, as far as is known without asking; not after a log-in that failed."""
        raise NotImplementedError

    def _open(self, deadline: Deadline) -> None:
        """Open a session. Raises Failure."""
        raise NotImplementedError

    def _end(self, deadline: Deadline) -> None:
        """Try to end the session; when that fails, it ends by itself on the controller, after its idle time."""
        raise NotImplementedError

    def _get(self, path: str, deadline: Deadline) -> Answer:
        """GET a path through the open session. Raises Failure."""
        raise NotImplementedError


class HttpsSession(RenewedSession):
    """One session. The account is kept while the session is open, because an expired one has to be renewed."""

    def __init__(self, target: Target, ca_file: str = "") -> None:
        """The CA file, when there is one, is read here. Raises Failure when it is of no use."""
        super().__init__()
        self._connection = Connection(target, ca_file)
        self._account = ""
        self._password = ""
        self._token = ""
        self._location = ""

    def log_in(self, account: str, password: str, deadline: Deadline) -> None:
        """Open the session. Raises Failure: REFUSED only when the controller refused the account itself."""
        if account in ("", NO_ACCOUNT):
            raise Failure(REFUSED, "No account of the controller is registered; "
                                   "register one with \"baywardctl account set ACCOUNT\".")
        self._account, self._password = account, password
        self._open(deadline)

    def log_out(self) -> None:
        """End the session on the controller, which allows only few, and close the connection. Never raises."""
        self._account = self._password = ""
        self._end(Deadline(LOGOUT_SECONDS))
        self._connection.close()

    def _end(self, deadline: Deadline) -> None:
        token, location = self._token, self._location
        self._token = self._location = ""
        if not token or not location:
            return
        try:
            limit = Deadline(deadline.left(LOGOUT_SECONDS))
            self._connection.exchange("DELETE", location, {"X-Auth-Token": token}, None, limit)
        except Exception:  # not even a full memory keeps a caller from going on
            pass

    def _open(self, deadline: Deadline) -> None:
        body = json.dumps({"UserName": self._account, "Password": self._password}).encode("ascii")
        headers = {"Content-Type": "application/json", "Accept": "application/json"}
        answer = self._connection.exchange("POST", SESSIONS, headers, body, deadline)
        if answer.status in (200, 201) and answer.token:
            self._token = answer.token
            self._location = _session_path(answer)
        elif answer.status == 401 or (answer.status in (400, 403) and b"UnauthorizedLoginAttempt" in answer.body):
            raise Failure(REFUSED, "The controller refused the account or its password.")
        elif answer.status in (200, 201):
            raise Failure(OTHER, "The answer to the log-in holds no session token; "
                                 "check that the configured URL is the controller's.")
        else:
            raise Failure(OTHER, f"The log-in to the controller failed with HTTP status {answer.status}; "
                                 "it may be restarting or have no session left.")

    def is_open(self) -> bool:
        return bool(self._token)

    def _get(self, path: str, deadline: Deadline) -> Answer:
        return self._connection.get(path, {"X-Auth-Token": self._token, "Accept": "application/json"}, deadline)


def _session_path(answer: Answer) -> str:
    """The path to delete at log-out: that of the Location, whatever host it names, or the id in the body."""
    try:
        path = _as_session(urllib.parse.urlsplit(answer.location).path)
    except ValueError:
        path = ""
    if not path:
        try:
            path = _as_session(parse_object(answer.body).get("@odata.id"))
        except Failure:
            pass
    return path


def _as_session(path: object) -> str:
    """The path when it is that of one session, else nothing: a DELETE goes to nothing but a session."""
    match = _SESSION.fullmatch(path) if isinstance(path, str) else None
    if match is None:
        return ""
    name = urllib.parse.unquote(match[1])
    return "" if name == "." or ".." in name or "/" in name else match[0]
