"""The Redfish service: from a request to an answer, with sessions and $expand, without any transport."""

from __future__ import annotations

import json
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Tuple
from urllib.parse import unquote

from .errors import ErrorBodies
from .sessions import LoginRefused, Session, SessionTable, TableFull
from .tree import LINK, ROOT, ResourceTree, canonical

SERVICE = f"{ROOT}/SessionService"
SESSIONS = f"{SERVICE}/Sessions"
# Readable without a session.
_OPEN = ("/redfish", ROOT)

# How $expand is met: as it should be, not at all, or with an answer that is an error: "refuse" with status 501, "missing"
# as the first firmware did with 404, "fail" with 500.
EXPAND_MODES = ("on", "off", "refuse", "missing", "fail")


class Request(NamedTuple):
    method: str
    path: str
    query: str
    # X-Auth-Token header; None when there is none.
    token: Optional[str]
    # Host header, for absolute addresses in answers.
    host: str
    body: bytes


class Answer(NamedTuple):
    status: int
    body: bytes
    headers: Tuple[Tuple[str, str], ...] = ()


def json_answer(status: int, body: Dict[str, Any], *headers: Tuple[str, str]) -> Answer:
    """An answer with compact JSON, as controllers send it."""
    text = json.dumps(body, separators=(",", ":"), ensure_ascii=False).encode("utf-8")
    return Answer(status, text, headers)


class RestService:
    """Answers requests from a tree and a session table. `redirects`: paths must end in a slash."""

    def __init__(self, tree: ResourceTree, sessions: SessionTable, errors: ErrorBodies, expand: str,
                 redirects: bool = False, spoiled: Callable[[str], bool] = lambda path: False) -> None:
        """`spoiled`: whether a resource asked for itself would meet a fault; it is not put in place of its link then."""
        self.tree = tree
        self.sessions = sessions
        self.errors = errors
        self.expand = expand
        self._redirects = redirects
        self._spoiled = spoiled

    def barrier(self, request: Request) -> Optional[Answer]:
        """What must be answered before anything else: a redirection, or 401 without a valid session."""
        path = canonical(request.path)
        if self._redirects and path.startswith(ROOT) and not request.path.endswith("/"):
            return Answer(308, b"", (("Location", f"{path}/" + (f"?{request.query}" if request.query else "")),))
        if path in _OPEN and request.method in ("GET", "HEAD"):
            return None
        if path == SESSIONS and request.method == "POST":
            return None
        if self.sessions.check(request.token) is None:
            return json_answer(401, self.errors.base("NoValidSession"))
        return None

    def answer(self, request: Request) -> Answer:
        """The answer to a request that passed the barrier."""
        path = canonical(request.path)
        if path == SESSIONS and request.method == "POST":
            return self._login(request)
        if path.startswith(f"{SESSIONS}/") and request.method == "DELETE":
            return self._logout(path)
        if request.method not in ("GET", "HEAD"):
            return json_answer(405, self.errors.base("OperationNotAllowed"), ("Allow", "GET, HEAD"))
        return self._read(request)

    def _read(self, request: Request) -> Answer:
        expand = False
        if _asks_to_expand(request.query):
            if self.expand == "refuse":
                return json_answer(501, self.errors.base("QueryNotSupported"))
            if self.expand == "missing":
                return json_answer(404, self.errors.missing(request.path))
            if self.expand == "fail":
                return json_answer(500, self.errors.base("InternalError"))
            expand = self.expand == "on"
        body = self._session_resource(request) or self.tree.answer(request.path, expand, self._spoiled)
        if body is None:
            return json_answer(404, self.errors.missing(request.path))
        return json_answer(200, body, ("OData-Version", "4.0"))

    # --- sessions ---

    def _login(self, request: Request) -> Answer:
        try:
            given = json.loads(request.body.decode("utf-8"))
            account, password = given["UserName"], given["Password"]
        except (ValueError, KeyError, TypeError):
            return json_answer(400, self.errors.base("MalformedJSON"))
        try:
            session = self.sessions.login(account, password)
        except LoginRefused:
            return json_answer(401, self.errors.unauthorized_login())
        except TableFull:
            return json_answer(503, self.errors.base("SessionLimitExceeded"))
        location = f"https://{request.host}{SESSIONS}/{session.name}/"
        return json_answer(201, _session_body(session, True), ("X-Auth-Token", session.token), ("Location", location),
                           ("OData-Version", "4.0"))

    def _logout(self, path: str) -> Answer:
        if not self.sessions.close(path[len(SESSIONS) + 1:]):
            return json_answer(404, self.errors.missing(path))
        return json_answer(200, self.errors.base("Success"))

    def _session_resource(self, request: Request) -> Optional[Dict[str, Any]]:
        """The session service and what is below it, which change from request to request."""
        path, slash = canonical(request.path), request.path.endswith("/")
        end = "/" if slash else ""
        if path == SERVICE:
            # The time-out is given in minutes; 0 is endless.
            minutes = -(-int(self.sessions.idle_seconds) // 60)
            return {LINK: SERVICE + end, "@odata.type": "#SessionService.v1_0_0.SessionService",
                    "Id": "SessionService", "Name": "Session Service", "ServiceEnabled": True,
                    "SessionTimeout": minutes, "Sessions": {LINK: SESSIONS + end},
                    "Status": {"Health": "OK", "State": "Enabled"}}
        sessions = self.sessions.open_sessions()
        if path == SESSIONS:
            links: List[Dict[str, str]] = [{LINK: f"{SESSIONS}/{session.name}{end}"} for session in sessions]
            return {LINK: SESSIONS + end, "@odata.type": "#SessionCollection.SessionCollection", "Name": "Sessions",
                    "Members": links, "Members@odata.count": len(links)}
        for session in sessions:
            if path == f"{SESSIONS}/{session.name}":
                return _session_body(session, slash)
        return None


def _session_body(session: Session, slash: bool) -> Dict[str, Any]:
    return {LINK: f"{SESSIONS}/{session.name}" + ("/" if slash else ""), "@odata.type": "#Session.v1_0_0.Session",
            "Id": session.name, "Name": "User Session", "UserName": session.account}


def _asks_to_expand(query: str) -> bool:
    return any(unquote(part).startswith("$expand=") for part in query.split("&"))
