"""A session with the controller over HTTPS: log-in, requests with one renewal when it expired, log-out."""

from __future__ import annotations

import json
import urllib.parse

from _bayward_outcome import OTHER, REFUSED, Answer, Deadline, Failure
from _bayward_target import Target
from _bayward_transport import Connection

SESSIONS = "/redfish/v1/SessionService/Sessions/"
LOGOUT_SECONDS = 5.0
NO_ACCOUNT = "None"  # what the service gives for an account or password that it does not have


class HttpsSession:
    """One session. The account is kept while the session is open, because an expired one has to be renewed."""

    def __init__(self, target: Target) -> None:
        self._connection = Connection(target)
        self._account = ""
        self._password = ""
        self._token = ""
        self._location = ""

    def log_in(self, account: str, password: str, deadline: Deadline) -> None:
        """Open the session. Raises Failure: REFUSED only when the controller refused the account itself."""
        if account in ("", NO_ACCOUNT):
            raise Failure(REFUSED, "There is no account of the controller; register one with the account tool.")
        self._account, self._password = account, password
        self._open(deadline)

    def fetch(self, path: str, deadline: Deadline) -> Answer:
        """GET a path. An expired session is opened once more and the request sent again."""
        answer = self._get(path, deadline)
        if self._expired(answer):
            self._token = self._location = ""
            self._open(deadline)
            answer = self._get(path, deadline)
        return answer

    def log_out(self) -> None:
        """End the session on the controller, which allows only few, and close the connection. Never raises."""
        token, location = self._token, self._location
        self._account = self._password = self._token = self._location = ""
        try:
            if token and location:
                self._connection.exchange("DELETE", location, {"X-Auth-Token": token}, None, Deadline(LOGOUT_SECONDS))
        except Failure:
            pass  # it ends by itself on the controller, after its idle time
        finally:
            self._connection.close()

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
            raise Failure(OTHER, "The controller's answer to the log-in holds no session token.")
        else:
            raise Failure(OTHER, f"The log-in to the controller failed with HTTP status {answer.status}.")

    def _get(self, path: str, deadline: Deadline) -> Answer:
        return self._connection.get(path, {"X-Auth-Token": self._token, "Accept": "application/json"}, deadline)

    @staticmethod
    def _expired(answer: Answer) -> bool:
        return answer.status == 401 or (answer.status in (400, 403) and b"NoValidSession" in answer.body)


def _session_path(answer: Answer) -> str:
    """The path to delete at log-out: that of the Location, whatever host it names, or the id in the body."""
    try:
        path = urllib.parse.urlsplit(answer.location).path
        if not path:
            path = json.loads(answer.body)["@odata.id"]
    except (ValueError, KeyError, TypeError, RecursionError):
        return ""
    # A DELETE goes to nothing but a session.
    inside = isinstance(path, str) and path.lower().startswith(SESSIONS.lower()) and ".." not in path
    return path if inside and len(path) > len(SESSIONS) else ""
