"""Medium errors come and go on drives of both RAID tools while the rest of the run goes on."""

from __future__ import annotations

import random
import time
from collections import Counter
from typing import Callable, Dict, Iterator, List, Tuple

from soaklogs import Journal, Tail
from tooled import Traced, mega_errors, mega_event, smart_errors, smart_event
from watched import Event

from simtools.tools import Tools

_SMART, _MEGA = 1, 2
_DRIVES = 2
_SMART_TITLE, _MEGA_TITLE = "HPE Smart Array P408i-a SR Gen10 in slot 0", "HPE MR416i-o Gen11 [Slot=14]"
_LATEST = 0x0005A99E  # minutes of service
_NOW = int(time.time()) // 60 * 60
_WAIT_SECONDS = 300.0
# Device ids that listings show in a column of the usual width; none is used twice, for each is reported once.
_DEVICES = range(100, 1000)


class MediumErrors:
    """A story without end. `step()`, called now and then, goes on with it as soon as its next condition holds.

    Each part of it: drives are exchanged for new ones with medium errors, the tools fail for a while, or a week passes.
    What must be reported then is reported once, and nothing else is.
    """

    def __init__(self, tools: Tools, commands: Tail, journal: Journal, rng: random.Random) -> None:
        """For tools that find no controller yet. `commands`: the log of the tools' command lines."""
        self._tools = tools
        self._commands = commands
        self._journal = journal
        self._rng = rng
        #: Searches for medium errors that have begun, and those of them that have come to storcli64.
        self.searches = self._overviews = 0
        #: True: the run shall let a week pass, and then make it False.
        self.wants_week = False
        #: True while ssacli may fail, or has just done so.
        self.ssacli_fails = False
        self.weeks = self.events = 0
        self.troubles: Counter = Counter()
        self._serials = 0
        self._devices = iter(_DEVICES)
        self._erring: Dict[Tuple[int, int], Traced] = {}
        tools.add_smart_array()
        tools.add_mega_raid()
        for controller in (_SMART, _MEGA):
            for _ in range(_DRIVES):
                tools.add_drive(controller)
        self._story = self._tell()

    def step(self) -> None:
        self._count_commands()
        next(self._story)

    def _count_commands(self) -> None:
        for line in self._commands.lines():
            self.searches += '"file=ADUReport.zip"' in line
            self._overviews += '"arguments": ["show"]' in line

    def _tell(self) -> Iterator[None]:
        parts = (self._exchange, self._exchange, self._exchange, self._trouble, self._week)
        while True:
            yield from self._rng.choice(parts)()

    def _until(self, condition: Callable[[], object], what: str) -> Iterator[None]:
        deadline = time.monotonic() + _WAIT_SECONDS
        while not condition():
            if time.monotonic() > deadline:
                raise self._journal.violation(f"No {what} within {_WAIT_SECONDS:.0f} seconds.")
            yield

    def _wait_searches(self, number: int) -> Iterator[None]:
        """Until so many searches have begun and ended."""
        self._count_commands()
        last = self.searches + number + 1
        yield from self._until(lambda: self.searches >= last, f"search {last} for medium errors")

    def _exchange(self) -> Iterator[None]:
        """One to three drives are new ones, which have medium errors, seldom or often."""
        # Until everything is changed the tools find nothing; a search of several commands may be under way.
        self._tools.ssacli.answer("")
        self._tools.storcli64.answer("", commands="show")
        self._count_commands()
        last = self._overviews + 1
        yield from self._until(lambda: self._overviews >= last, "search that finds nothing")
        expected: List[str] = []
        for controller, drive in self._rng.sample(
                [(c, d) for c in (_SMART, _MEGA) for d in range(1, _DRIVES + 1)], self._rng.randint(1, 3)):
            expected += self._exchange_one(controller, drive, often=self._rng.random() < 0.5)
        self._tools.ssacli.clear()
        self._tools.storcli64.clear()
        yield from self._expect(expected)

    def _exchange_one(self, controller: int, drive: int, often: bool) -> List[str]:
        if controller == _SMART:
            self._serials += 1
            serial, place = f"SOAK{self._serials:06d}", f"1I:1:{drive}"
            count = self._rng.randint(19, 25) if often else self._rng.randint(1, 18)
            self._tools.set_drive(controller, drive, "serial", serial)
            self._tools.medium_errors(controller, drive, times=[_LATEST] * count)
            event, traced = smart_event(_SMART_TITLE, place, serial), smart_errors(count, place, serial)
        else:
            device = next(self._devices, 0)
            if device == 0:
                return []
            count = self._rng.randint(20, 25) if often else self._rng.randint(1, 19)
            self._tools.set_drive(controller, drive, "did", device)
            self._tools.medium_errors(controller, drive, times=[_NOW] * count)
            event, traced = mega_event(_MEGA_TITLE, f"Port=1,Box=1,Bay={drive}"), mega_errors(count, device)
        self._erring[(controller, drive)] = traced
        # What the system log has been told is traced with the next search, and after each week.
        return [self._event(event), traced.line] if often else [traced.line]

    def _event(self, event: Event) -> str:
        self._journal.learn(event)
        self.events += 1
        return event.line

    def _week(self) -> Iterator[None]:
        """Each drive that still has medium errors is traced once more."""
        if not self._erring:
            return
        self.wants_week = True
        yield from self._until(lambda: not self.wants_week, "week that passes")
        self.weeks += 1
        yield from self._expect([traced.line for traced in self._erring.values()])

    def _trouble(self) -> Iterator[None]:
        """A tool fails. Nothing is made of that, and nothing of what the drives had before."""
        ssacli, storcli = self._tools.ssacli, self._tools.storcli64
        troubles: Dict[str, Callable[[], None]] = {
            "ssacli fails": lambda: ssacli.fail(1), "ssacli finds nothing": ssacli.quiet,
            "ssacli writes no archive": lambda: ssacli.archive("none"),
            "ssacli's archive is cut": lambda: ssacli.archive("cut"),
            "ssacli's archive is empty": lambda: ssacli.archive("empty"),
            "ssacli's archive comes late": lambda: ssacli.late(10),
            "ssacli is slow": lambda: ssacli.takes(100, times=1),
            "storcli64 fails": lambda: storcli.fail(1), "storcli64 finds nothing": storcli.quiet,
            "storcli64 hangs": lambda: storcli.hang(commands="/c0 show", times=1),
            "storcli64 is slow": lambda: storcli.takes(30, times=2)}
        name = self._rng.choice(list(troubles))
        self.troubles[name] += 1
        self.ssacli_fails = name == "ssacli fails"
        troubles[name]()
        yield from self._wait_searches(1)
        ssacli.clear()
        storcli.clear()
        yield from self._expect([])
        self.ssacli_fails = False

    def _expect(self, lines: List[str]) -> Iterator[None]:
        """These lines and no others, for one search longer than they take."""
        medium = self._journal.medium
        yield from self._until(lambda: not Counter(lines) - Counter(medium), "line about medium errors: "
                               + "; ".join(lines))
        yield from self._wait_searches(1)
        if Counter(medium) != Counter(lines):
            raise self._journal.violation(f"About medium errors stands {medium} where {lines} belongs.")
        medium.clear()
