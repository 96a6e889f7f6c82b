"""The sessions of the controller: one account, a limited table, an idle time-out."""

from __future__ import annotations

import secrets
import threading
import time
from typing import Callable, Dict, List, Optional


class LoginRefused(Exception):
    """Account or password is wrong."""


class TableFull(Exception):
    """As many sessions are open as the controller allows."""


class Session:
    """One open session; `name` is the last part of its resource path."""

    def __init__(self, name: str, token: str, account: str, used: float) -> None:
        self.name = name
        self.token = token
        self.account = account
        self.used = used


class SessionTable:
    """All open sessions. `limit` is the most at a time, `idle_seconds` ends unused ones (0: never)."""

    def __init__(self, account: str, password: str, limit: int, idle_seconds: float,
                 clock: Callable[[], float] = time.monotonic) -> None:
        self._account = account
        self._password = password
        self.limit = limit
        self.idle_seconds = idle_seconds
        self._clock = clock
        self._by_token: Dict[str, Session] = {}
        self._lock = threading.Lock()
        self.logins = 0
        self.refused_logins = 0

    def login(self, account: str, password: str) -> Session:
        with self._lock:
            if (account, password) != (self._account, self._password):
                self.refused_logins += 1
                raise LoginRefused()
            self._drop_idle()
            if len(self._by_token) >= self.limit:
                raise TableFull()
            self.logins += 1
            session = Session(f"{account}{secrets.token_hex(8)}", secrets.token_hex(16), account,
                              self._clock())
            self._by_token[session.token] = session
            return session

    def check(self, token: Optional[str]) -> Optional[Session]:
        """The session of a token, which counts as used now; None when there is none (any more)."""
        with self._lock:
            self._drop_idle()
            session = self._by_token.get(token or "")
            if session is not None:
                session.used = self._clock()
            return session

    def open_sessions(self) -> List[Session]:
        with self._lock:
            self._drop_idle()
            return list(self._by_token.values())

    def close(self, name: str) -> bool:
        """End a session; False when there is none of that name."""
        with self._lock:
            for token, session in self._by_token.items():
                if session.name == name:
                    del self._by_token[token]
                    return True
            return False

    def expire_all(self) -> int:
        with self._lock:
            count = len(self._by_token)
            self._by_token.clear()
            return count

    def change_account(self, account: str, password: str) -> None:
        """Another account and password from now on; every open session ends."""
        with self._lock:
            self._account, self._password = account, password
            self._by_token.clear()

    def reset_counters(self) -> None:
        with self._lock:
            self.logins = self.refused_logins = 0

    def _drop_idle(self) -> None:
        if self.idle_seconds > 0:
            oldest = self._clock() - self.idle_seconds
            self._by_token = {t: s for t, s in self._by_token.items() if s.used >= oldest}
