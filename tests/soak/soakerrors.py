"""What a run puts up with, for its own faults or a busy machine explain it, and what it does not."""

from __future__ import annotations

from typing import Callable

from soaklogs import Journal

# The log manager's lines about a tool that failed: the archive is not saved, the report not made.
_SAVE, _REPORT = "<VK0902> [ER] log-manager 98 (command: ", "<VK0902> [ER] log-manager 118 (command: "

# Of all rounds, those in which a log-in may be lost by itself; a short run may have had one bad moment.
_UNPLANNED, _FEWEST = 0.02, 3


def most_unplanned(rounds: int) -> int:
    """How many log-ins may be lost by themselves in so many rounds."""
    return max(_FEWEST, int(rounds * _UNPLANNED))


class ErrorLines:
    """Judges the error lines that stand for no lost session. Each must come while a fault holds that can cause it:

    - ssacli fails, by the story of the medium errors;
    - the clock has jumped past the deadline of a tool that was running, which ends it.

    That a report fails is said once in a run, however often it does.
    """

    def __init__(self, journal: Journal, ssacli_fails: Callable[[], bool], tool_runs: Callable[[], bool]) -> None:
        self._journal = journal
        self._ssacli_fails = ssacli_fails
        self._tool_runs = tool_runs
        self._judged = 0
        #: Looks until no line can come from the latest jump any more.
        self._after_jump = 0

    def clock_jumped(self) -> None:
        """To be called before it jumps."""
        # One more look when no tool runs any more: its line may still be on its way to the log.
        self._after_jump = 2

    def look(self) -> None:
        """To be called between any two rounds, before a fault of ssacli can end."""
        runs = self._tool_runs()
        self._journal.poll()
        explained = self._ssacli_fails() or self._after_jump > 0
        for text in self._journal.errors[self._judged:]:
            if not text.startswith((_SAVE, _REPORT)) or not explained:
                raise self._journal.violation(f"An error that nothing can have caused: {text}")
        self._judged = len(self._journal.errors)
        reports = sum(text.startswith(_REPORT) for text in self._journal.errors)
        if reports > 1:
            raise self._journal.violation(f"That a report fails is said {reports} times.")
        if not runs:
            self._after_jump = max(0, self._after_jump - 1)
