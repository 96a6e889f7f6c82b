"""What was expected and what came, for the table at the end."""

from __future__ import annotations

from dataclasses import dataclass
from typing import List

from .screen import BOLD, DIM, GREEN, RED, Screen, width_of

OK, MISSING, UNEXPECTED, WRONG, NOT_REACHED = "ok", "missing", "unexpected", "wrong", "not reached"

# What the events mean to a reader, in a few words.
MEANINGS = {
    0xC0008151: "drive failed", 0x80008152: "drive predicts failure", 0xC0008153: "drive fatal",
    0x8000815B: "SSD wear, 80 percent", 0x80008154: "SSD wear, 90 percent", 0xC0008155: "SSD wear, 95 percent",
    0x80008159: "medium errors", 0xC00081B7: "logical drive offline", 0x800081BB: "logical drive degraded",
    0xC00081D1: "log-in failed",
}

# The top two bits of an identifier say how the system log files it.
PRIORITY_OF_SEVERITY = {3: 3, 2: 4, 1: 6}


def event_name(event: int) -> str:
    meaning = MEANINGS.get(event)
    return f"0x{event:08X}" + (f" {meaning}" if meaning else "")


@dataclass(frozen=True)
class Outcome:
    expected: str
    came: str
    result: str


class Outcomes:
    """The rows of the table, in the order in which they were settled."""

    def __init__(self) -> None:
        self._rows: List[Outcome] = []

    def add(self, expected: str, came: str, result: str) -> Outcome:
        self._rows.append(Outcome(expected, came, result))
        return self._rows[-1]

    def __len__(self) -> int:
        return len(self._rows)

    @property
    def agree(self) -> bool:
        """Whether everything came as expected, and nothing else."""
        return bool(self._rows) and all(row.result == OK for row in self._rows)

    def show(self, screen: Screen) -> None:
        titles = Outcome("expected", "came", "result")
        widths = [max(width_of(getattr(row, name)) for row in [*self._rows, titles]) for name in ("expected", "came")]
        screen.heading("Summary")
        self._show_row(screen, titles, widths, DIM)
        for row in self._rows:
            self._show_row(screen, row, widths, GREEN if row.result == OK else RED)
        good = sum(row.result == OK for row in self._rows)
        screen.line()
        verdict = f"{good} of {len(self._rows)} as expected" + (", nothing else was reported." if self.agree else ".")
        screen.paragraph(verdict, BOLD, GREEN if self.agree else RED)

    @staticmethod
    def _show_row(screen: Screen, row: Outcome, widths: List[int], code: str) -> None:
        cells = [text + " " * (width - width_of(text)) for text, width in zip((row.expected, row.came), widths)]
        screen.line(f"  {cells[0]}  {cells[1]}  {row.result}", code)
