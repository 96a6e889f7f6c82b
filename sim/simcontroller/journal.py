"""What was asked: counters for the tests, one log line per request."""

from __future__ import annotations

import datetime
import threading
from collections import Counter
from typing import Any, Dict, Optional, TextIO


class Journal:
    """Counts requests and connections, and writes the request log when there is one."""

    def __init__(self, log: Optional[TextIO] = None) -> None:
        self._log = log
        self._lock = threading.Lock()
        self._requests: Counter = Counter()
        self._connections = 0
        self._last_connection = 0

    def connected(self) -> int:
        """Count a connection; its number, from 1 on and never used again."""
        with self._lock:
            self._connections += 1
            self._last_connection += 1
            return self._last_connection

    def request(self, connection: int, method: str, target: str, status: str) -> None:
        """One line: time, connection number, method, path with query, status (or what was done instead)."""
        with self._lock:
            self._requests[f"{method} {target}"] += 1
            if self._log is not None:
                now = datetime.datetime.now().isoformat(timespec="milliseconds")
                self._log.write(f"{now} {connection} {method} {target} {status}\n")
                self._log.flush()

    def counters(self) -> Dict[str, Any]:
        with self._lock:
            return {"requests": dict(self._requests), "total": sum(self._requests.values()),
                    "connections": self._connections}

    def reset(self) -> None:
        with self._lock:
            self._requests.clear()
            self._connections = 0
