"""What the service writes while it runs, as it comes, and the events in it."""

from __future__ import annotations

import re
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Dict, List, Tuple, Union

from simhost import SimHost, SyslogEntry

_EVENT_LINE = re.compile(r"\[EV\] (0x[0-9a-f]+) ")
_STAMP = re.compile(r"^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d+ ?")
_PLACE = re.compile(r"%(\d|n|%)")
# The system log gets an event before the trace log does, but it passes through another process.
_SYSLOG_LAG = 0.15


@dataclass(frozen=True)
class SyslogLine:
    """One system log entry. `opens` says that it is the first line of a message."""
    priority: int
    text: str
    opens: bool


@dataclass(frozen=True)
class TraceLine:
    text: str


@dataclass(frozen=True)
class Reported:
    """An event as the trace log tells it, with the message that the system log got; empty when it got none."""
    event: int
    message: str
    priority: int
    at: float  # time.monotonic()


Item = Union[SyslogLine, TraceLine, Reported]


class Catalogue:
    """The first words of every message in one language, by event; the rest of a message follows its first line."""

    def __init__(self, path: Path, language: str) -> None:
        self._openings: Dict[int, str] = {}
        section = ""
        for line in path.read_text(encoding="utf-8").splitlines():
            if line.startswith("["):
                section = line[1:line.index("]")]
            elif section == language and "=" in line and not line.startswith("#"):
                key, text = line.split("=", 1)
                self._openings[int(key, 16)] = _PLACE.split(text, maxsplit=1)[0]

    def opens_message(self, text: str) -> bool:
        return any(text.startswith(opening) for opening in self._openings.values())

    def fits(self, event: int, message: str) -> bool:
        """Whether the message is the one the catalogue has for the event."""
        opening = self._openings.get(event)
        return opening is not None and message.startswith(opening)


class Feed:
    """Reads both logs of a host. `poll` gives what is new, each system log message before its trace line."""

    def __init__(self, host: SimHost, catalogue: Catalogue, encoding: str) -> None:
        self._host = host
        self._catalogue = catalogue
        self._encoding = encoding
        self._seen_trace = 0
        self._seen_syslog = 0
        self._messages: List[Tuple[int, str]] = []  # not yet claimed by an event: priority, text

    def poll(self) -> List[Item]:
        trace = self._host.trace_lines()[self._seen_trace:]
        if any(_EVENT_LINE.search(line) for line in trace):
            time.sleep(_SYSLOG_LAG)
        items: List[Item] = list(self._new_syslog())
        self._seen_trace += len(trace)
        for line in trace:
            items.append(TraceLine(_STAMP.sub("", line)))
            match = _EVENT_LINE.search(line)
            if match:
                priority, message = self._messages.pop(0) if self._messages else (-1, "")
                items.append(Reported(int(match[1], 16), message, priority, time.monotonic()))
        return items

    def _new_syslog(self) -> List[SyslogLine]:
        entries: List[SyslogEntry] = self._host.syslog_entries()[self._seen_syslog:]
        self._seen_syslog += len(entries)
        lines = []
        for entry in entries:
            if entry.identity != "bayward":
                continue
            text = entry.text(self._encoding)
            opens = self._catalogue.opens_message(text) or not self._messages
            if opens:
                self._messages.append((entry.priority, text))
            else:
                priority, begun = self._messages[-1]
                self._messages[-1] = (priority, begun + "\n" + text)
            lines.append(SyslogLine(entry.priority, text, opens))
        return lines

    def unclaimed(self) -> List[str]:
        """System log messages that no event of the trace log belongs to."""
        return [text for _, text in self._messages]

    def fits_catalogue(self, reported: Reported) -> bool:
        return self._catalogue.fits(reported.event, reported.message)
