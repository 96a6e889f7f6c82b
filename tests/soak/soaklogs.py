"""What the run writes, read as it grows: the trace log across its rotations, the system log, the controller's log."""

from __future__ import annotations

import os
import re
from collections import Counter
from pathlib import Path
from typing import BinaryIO, Dict, Iterable, List, NamedTuple, Optional

from watched import Event

from simhost import SyslogEntry

_STAMPED = re.compile(r"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3}) (.*)")
_MEDIUM = 0x80008159
_CONTEXT = 15


class Violation(Exception):
    """The service broke a promise. The text tells which one, and shows the lines around it."""


class Tail:
    """The complete lines of a growing file, each given once, from its beginning.

    A file that is renamed away is read to its end before the new one of that name; one that is deleted before it could
    be read to its end is a Violation, for then lines were never seen.
    """

    def __init__(self, path: Path, backup: Optional[Path] = None) -> None:
        self._path = path
        self._backup = backup
        self._file: Optional[BinaryIO] = None
        self._rest = b""

    def lines(self) -> List[str]:
        found: List[bytes] = []
        while True:
            if self._file is None:
                try:
                    self._file = open(self._path, "rb")
                except FileNotFoundError:
                    break
            replaced = self._replaced()
            # Nothing is added to a file after it was renamed, so this look sees its end.
            data = self._rest + self._file.read()
            *whole, self._rest = data.split(b"\n")
            found += whole
            if not replaced:
                break
            self._check_backup()
            self._file.close()
            self._file = None
        return [line.decode("utf-8", errors="replace") for line in found]

    def _replaced(self) -> bool:
        assert self._file is not None
        try:
            return not os.path.samestat(os.fstat(self._file.fileno()), os.stat(self._path))
        except FileNotFoundError:
            return False  # between the renaming and the first line of the new file

    def _check_backup(self) -> None:
        assert self._file is not None
        if self._backup is None or not os.path.samestat(os.fstat(self._file.fileno()), os.stat(self._backup)):
            raise Violation(f"{self._path.name} was replaced twice between two looks at it; lines of it are lost.")


class Mark(NamedTuple):
    """A place in the journal."""
    events: int
    lost: int
    back: int
    refused: int


class Journal:
    """All that was reported and traced so far.

    known   every event that may ever be reported for drives and volumes; another one is a Violation
    """

    def __init__(self, trace: Tail, syslog: Tail, known: Iterable[Event]) -> None:
        self._trace = trace
        self._syslog = syslog
        self._known: Dict[str, Event] = {event.line: event for event in known}
        self._recent: List[str] = []
        #: Of the monitoring thread, in the order in which they came.
        self.events: List[Event] = []
        #: Lines about medium errors, whole (without stamp), events included.
        self.medium: List[str] = []
        #: How often the controller was lost, was reached again, refused the account.
        self.lost = self.back = self.refused = 0
        #: True while the log-in that comes last in the log is one that failed, or a session that broke.
        self.away = False
        #: Texts of the errors that stand for no lost session.
        self.errors: List[str] = []
        self.lines = 0
        #: Of entries in the system log: seen, and still to come (below zero: seen and not explained).
        self.entries = 0
        self._due: Counter = Counter()

    def mark(self) -> Mark:
        self.poll()
        return Mark(len(self.events), self.lost, self.back, self.refused)

    def poll(self) -> None:
        """Takes in what was written since the last look."""
        lines = self._trace.lines()
        for line in lines:
            self._take(line)
        for line in self._syslog.lines():
            entry = SyslogEntry.parse(line.encode("utf-8"))
            self.entries += 1
            self._due[(entry.priority, entry.facility, entry.identity, entry.text())] -= 1

    def _take(self, line: str) -> None:
        self.lines += 1
        self._recent.append(line)
        del self._recent[:-200]
        match = _STAMPED.fullmatch(line)
        if match is None:
            raise self.violation(f"A line of the trace log has no stamp: {line!r}")
        text = match[2]
        if "[EV]" in text:
            self._take_event(text)
        elif text.startswith("<VK0956> [ER]"):
            self.lost += 1
            self.away = True
        elif text.startswith("<VK0954> [ER]"):
            self.refused += 1
            self.away = True
        elif text.startswith("<VK0950> [TR]"):
            self.back += 1
            self.away = False
        elif "[ER]" in text:
            self.errors.append(text)

    def _take_event(self, text: str) -> None:
        if text.startswith("[EV] ("):
            self.medium.append(text)
            return
        event = self._known.get(text)
        if event is None:
            raise self.violation(f"An event that nothing can have caused: {text}")
        if event.identifier == _MEDIUM:
            self.medium.append(text)
        else:
            self.events.append(event)
        for sentence in event.sentences():
            self._due[(event.priority, "daemon", "bayward", sentence)] += 1

    def learn(self, event: Event) -> None:
        """One more event that may be reported."""
        self._known[event.line] = event

    def logs_agree(self) -> bool:
        """Whether both logs tell the same, each event as often in the one as in the other."""
        self.poll()
        return not any(self._due.values())

    def disagreement(self) -> str:
        return "; ".join(f"{'missing from' if count > 0 else 'only in'} the system log ({abs(count)}): {entry[3]}"
                         for entry, count in self._due.items() if count)

    def violation(self, text: str) -> Violation:
        """The text with the last lines of the trace log, those about drives that are well left out."""
        telling = [line for line in self._recent if "<VK0999>" not in line]
        return Violation("\n".join([text, "The trace log before:", *(f"    {line}" for line in telling[-_CONTEXT:])]))
