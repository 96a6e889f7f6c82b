"""Faults armed for requests: what to answer instead, or how to spoil the delivery of the answer."""

from __future__ import annotations

import fnmatch
import threading
from typing import Any, Dict, List, Optional

# Faults that take the place of an answer; the others spoil how it is delivered.
ANSWERS = ("status", "not-ready", "missing", "body", "redirect")


class Fault:
    """One armed fault.

    kind: status, not-ready, missing, body, redirect (answers); drop-before, drop-during, hang-headers, hang-body, cut,
    wire, trickle, close (deliveries). `pattern` is matched against the path without trailing slash, with and without its
    query, or with "METHOD " before it. `times` None: for ever.
    """

    def __init__(self, kind: str, pattern: str, times: Optional[int] = None, code: int = 200, text: str = "",
                 count: int = 0, seconds: Optional[float] = None) -> None:
        self.kind = kind
        self.pattern = pattern.rstrip("/") or "/"
        self.times = times
        self.code = code
        self.text = text
        self.count = count
        self.seconds = seconds

    def matches(self, method: str, path: str, query: str) -> bool:
        plain = path.rstrip("/") or "/"
        names = [plain, f"{method} {plain}"]
        if query:
            names += [f"{path}?{query}", f"{method} {path}?{query}"]
        return any(fnmatch.fnmatchcase(name, self.pattern) for name in names)

    def describe(self) -> Dict[str, Any]:
        return {"kind": self.kind, "pattern": self.pattern, "left": "forever" if self.times is None else self.times}


class FaultBoard:
    """The faults in force. The one armed last wins; one that is used up is forgotten."""

    def __init__(self) -> None:
        self._faults: List[Fault] = []
        # One event for each answer that hangs now.
        self._hanging: List[threading.Event] = []
        self._lock = threading.Lock()

    def arm(self, fault: Fault) -> None:
        with self._lock:
            self._faults.append(fault)

    def take(self, method: str, path: str, query: str, answers: bool) -> Optional[Fault]:
        """The fault for this request, counted as used once. `answers` chooses between the two sorts."""
        with self._lock:
            for fault in reversed(self._faults):
                if (fault.kind in ANSWERS) != answers or not fault.matches(method, path, query):
                    continue
                if fault.times is not None:
                    fault.times -= 1
                    if fault.times <= 0:
                        self._faults.remove(fault)
                return fault
            return None

    def spoils(self, method: str, path: str) -> bool:
        """Whether a request for the path would meet a fault. Counts nothing."""
        with self._lock:
            return any(fault.matches(method, path, "") for fault in self._faults)

    def wait(self, fault: Fault) -> bool:
        """Hang as the fault says: its seconds, or until release or clear. Whether it was one of these."""
        released = threading.Event()
        with self._lock:
            self._hanging.append(released)
        told = released.wait(fault.seconds)
        with self._lock:
            if released in self._hanging:
                self._hanging.remove(released)
        return told

    def release(self) -> int:
        """Let every answer that hangs go on; the number of them."""
        with self._lock:
            hanging, self._hanging = self._hanging, []
        for released in hanging:
            released.set()
        return len(hanging)

    def clear(self) -> int:
        """Forget every fault and let every answer that hangs go on."""
        with self._lock:
            count = len(self._faults)
            self._faults.clear()
        self.release()
        return count

    def describe(self) -> List[Dict[str, Any]]:
        with self._lock:
            return [fault.describe() for fault in self._faults]
