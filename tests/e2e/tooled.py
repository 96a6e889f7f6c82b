"""The service with RAID tools, whose search for medium errors is counted in cycles, and what it is expected to write."""

from __future__ import annotations

from contextlib import contextmanager
from pathlib import Path
from typing import Any, Iterator, List, NamedTuple, Optional, Sequence, Set

from watched import Config, ControllerProcess, Event, Watched, wait_until

from simtools.store import SSACLI, TOOLS
from simtools.tools import Tools

REPORT = "ssacli ctrl all diag file=ADUReport.zip"
OVERVIEW = "storcli64 show"
SEARCHING = "<VK0900> [TR] Start cyclic Media Error search."
ENDED = "<VK0900> [TR] Break MediaErrorRoutine by StopEvent."

SMART_ARRAY = "HPE Smart Array P408i-a SR Gen10 in slot 0"
MEGA_RAID = "HPE MR416i-o Gen11"


class Traced(NamedTuple):
    """A line of the trace log about a drive of which the system log is told nothing."""
    line: str

    @property
    def priority(self) -> int:
        raise AssertionError("it never reaches the system log")

    def sentences(self, _language: str = "default") -> List[str]:
        return []


def smart_errors(count: int, location: str, serial: str) -> Traced:
    return Traced(f"[EV] ({count}) Medium Errors detected on [{location}] Serial Number:{serial}")


def smart_event(title: str, location: str, serial: str) -> Event:
    return Event(0x80008159, (f"CTRL({title})", f"PD({location})", f"  Serial Number: {serial}"))


def mega_errors(count: int, device: int) -> Traced:
    return Traced(f"[EV] ({count}) Medium Errors detected on pid:{device}")


def mega_event(controller: str, place: str) -> Event:
    return Event(0x80008159, (f"CTRL({controller})", f"PD({place})", " "))


class Tooled(Watched):
    """A host with the stand-ins of the RAID tools, directed by `tools`.

    only       the tools that are installed
    tools_folder  where their state is kept
    interval   minutes between two searches; with 0 only the pause of 30 seconds, in the middle of each, is left
    Listings may take two minutes: at 60 times the pace that is two seconds, which a busy machine needs.
    """

    def __init__(self, sim: Optional[ControllerProcess] = None, *, speed: float = 60, interval: int = 0,
                 only: Sequence[str] = TOOLS, config: Optional[Config] = None,
                 tools_folder: Optional[Path] = None, **options: Any) -> None:
        found = {"media error": {"check": "true", "interval": interval}, **(config or {})}
        if sim is None:
            found.setdefault("iLO host", {"report": "false"})
        super().__init__(sim, speed=speed, config=found, copy_runtime=True, **options)
        self.tools = sim.tools if sim is not None else Tools.create(tools_folder or self.host.work / "tools")
        self.host.install_tools(self.tools, only)
        self._begins = REPORT if SSACLI in only else OVERVIEW
        self._own_files = self.files()

    def files(self) -> Set[str]:
        """What lies in the folder of the executable."""
        return {path.name for path in self.host.runtime.iterdir()} - {"__pycache__"}

    def left_files(self) -> Set[str]:
        """What the service and its tools have put there."""
        return self.files() - self._own_files

    @contextmanager
    def changing(self) -> Iterator[Tools]:
        """What changes in the block is seen together by a search that begins after it; until then nothing is found."""
        self.tools.ssacli.answer("")
        self.tools.storcli64.answer("", commands="show")
        if self.host.running and OVERVIEW in self.lines():
            # A search of several commands may be under way.
            begun = self.lines().count(OVERVIEW)
            wait_until(lambda: self.lines().count(OVERVIEW) > begun, "a search", 30, self.host)
        yield self.tools
        self.tools.ssacli.clear()
        self.tools.storcli64.clear()

    # Cycles

    def lines(self) -> List[str]:
        """The command lines of the tools so far."""
        return [command.line for command in self.tools.commands()]

    def cycles(self) -> int:
        """How many searches have begun."""
        return self.lines().count(self._begins)

    def wait_cycles(self, number: int = 1, timeout: float = 60.0) -> None:
        """Waits until `number` searches have begun and ended, reports written."""
        last = self.cycles() + number + 1
        wait_until(lambda: self.cycles() >= last, f"{number} searches", timeout, self.host)

    def follow(self, *reports: "Event | Traced", cycles: int = 1, timeout: float = 60.0) -> None:
        """These reports and no others follow those before, and stay alone for `cycles` searches more."""
        self.expect(*reports, walks=0, timeout=timeout)  # type: ignore[arg-type]
        self.wait_cycles(cycles)
        self.assert_reports()

    def wait_pause(self) -> None:
        """Waits until the next search has begun and no tool is run: the report settles, for 30 seconds."""
        begun = self.cycles()
        wait_until(lambda: self.cycles() > begun, "a search", 30, self.host)
        wait_until(lambda: self.host.children() == [], "the end of the tool", 30, self.host)

    def stop_search(self, searching: bool = True) -> None:
        """Ends the service; the search, if it runs, says so once, and nothing is left behind."""
        assert self.stop(60) == 0
        assert self.count_line(ENDED) == int(searching)
        assert self.left_files() == set()
        assert self.left_processes() == []
