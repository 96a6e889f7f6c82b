"""What the demonstration prints: aligned, wrapped and coloured on a terminal, plain lines everywhere else."""

from __future__ import annotations

import os
import shutil
import sys
import time
import unicodedata
from typing import List, TextIO

BOLD, DIM, RED, GREEN, YELLOW, CYAN = "1", "2", "31", "32", "33", "36"

_MARGIN = 2
_TIME = 6  # width of "1:23.4"
_LABEL = 9
_SPINNER = "|/-\\"
_NARROWEST = 50


def width_of(text: str) -> int:
    """Columns that the text takes on a terminal; East Asian characters take two."""
    return sum(2 if unicodedata.east_asian_width(character) in "WF" else 1 for character in text)


def wrap(text: str, columns: int) -> List[str]:
    """The text in lines of at most so many columns, broken at blanks where there are any, else between characters."""
    lines: List[str] = []
    line, used, blank = "", 0, -1
    for character in text:
        if used + width_of(character) > columns and line:
            if character == " ":
                lines.append(line)
                line, used, blank = "", 0, -1
                continue
            if blank > 0:
                lines.append(line[:blank])
                line = line[blank + 1:]
            else:
                lines.append(line)
                line = ""
            used, blank = width_of(line), line.rfind(" ")
        if character == " ":
            if not line and lines:
                continue
            blank = len(line)
        line += character
        used += width_of(character)
    return lines + [line] if line or not lines else lines


class Screen:
    """Prints to one stream. The clock starts with the first call of `start_clock`."""

    def __init__(self, stream: TextIO, colour: bool) -> None:
        """`colour` only allows colours; a stream that is no terminal, or NO_COLOR in the environment, forbids them."""
        self._stream = stream
        self._terminal = stream.isatty() and os.environ.get("TERM", "") != "dumb"
        self._colour = colour and self._terminal and not os.environ.get("NO_COLOR")
        self._rule = "─" if (stream.encoding or "").lower().replace("-", "") == "utf8" else "-"
        self._begin = time.monotonic()
        self._waiting = ""

    def start_clock(self) -> None:
        self._begin = time.monotonic()

    def _columns(self) -> int:
        return max(shutil.get_terminal_size().columns - 1, _NARROWEST) if self._terminal else 1 << 20

    def _paint(self, text: str, *codes: str) -> str:
        wanted = [code for code in codes if code]
        return f"\033[{';'.join(wanted)}m{text}\033[0m" if self._colour and wanted and text else text

    def line(self, text: str = "", *codes: str) -> None:
        self.clear_waiting()
        print(self._paint(text, *codes), file=self._stream, flush=True)

    def heading(self, text: str) -> None:
        columns = min(self._columns(), 78)
        self.line()
        self.line(f"{self._rule * 2} {text} {self._rule * max(columns - width_of(text) - 4, 2)}", BOLD)

    def paragraph(self, text: str, *codes: str) -> None:
        for part in wrap(text, self._columns() - _MARGIN):
            self.line(" " * _MARGIN + part, *codes)

    def entry(self, label: str, text: str, label_code: str = "", text_code: str = "") -> None:
        """A line of one of the logs, or what became of an expectation: time, label, text. No label continues an entry."""
        begin = " " * (_MARGIN + _TIME + 1 + _LABEL)
        if label:
            minutes, tenths = divmod(int((time.monotonic() - self._begin) * 10), 600)
            stamp = f"{minutes}:{tenths // 10:02}.{tenths % 10}"
            begin = (" " * _MARGIN + self._paint(f"{stamp:>{_TIME}} ", DIM)
                     + self._paint(f"{label:<{_LABEL}}", label_code))
        indent = _MARGIN + _TIME + 1 + _LABEL
        for part in wrap(text, self._columns() - indent):
            self.line(begin + self._paint(part, text_code))
            begin = " " * indent

    def waiting(self, text: str) -> None:
        """Shows on a terminal, until the next line, that something is being waited for."""
        if not self._terminal:
            return
        sign = _SPINNER[int(time.monotonic() * 5) % len(_SPINNER)]
        shown = f"{' ' * _MARGIN}{sign} {text}"[:self._columns()]
        if shown != self._waiting:
            self._stream.write("\r\033[K" + self._paint(shown, DIM))
            self._stream.flush()
            self._waiting = shown

    def clear_waiting(self) -> None:
        if self._waiting:
            self._stream.write("\r\033[K")
            self._stream.flush()
            self._waiting = ""


def standard_screen(colour: bool) -> Screen:
    return Screen(sys.stdout, colour)
