"""The rounds of a run: what is done to the server in each, and what the service must make of it."""

from __future__ import annotations

import random
import time
from collections import Counter
from contextlib import contextmanager
from typing import Any, Callable, Dict, Iterator, List, Optional, Tuple

from expansion import expansion
from soakerrors import ErrorLines, most_unplanned
from soaklogs import Journal, Mark
from soakmedium import MediumErrors
from soakmodule import ModuleLoads
from soakserver import Server
from soakvitals import Vitals
from soakworld import MEGA, SMART, Change, World, blank, random_change, transitions
from tooled import Tooled
from watched import LOGIN_FAILED, Event

HOUR, WEEK = 3700, 7 * 86400 + 3600  # seconds, both with some to spare
SESSIONS = 2  # its own, and one that it could not end and that ends by itself
PATIENCE = 120.0  # seconds; far more than anything takes on a busy machine

# The first look is the start-up's, the second takes the baseline, the third compares.
_BASELINE = 3

Verb = Tuple[Any, ...]

_ARRAYS = "GET */SmartStorage/ArrayControllers"
_ARRAY = "GET */ArrayControllers/0"
_VOLUMES = "GET */ArrayControllers/0/LogicalDrives"
_STORAGE = "GET */Systems/1/Storage"
_COLLECTIONS = (_ARRAYS, _VOLUMES, _STORAGE)
_ANYWHERE = (*_COLLECTIONS, _ARRAY)


def _failing(forms: int) -> List[Verb]:
    """Faults with which a read fails and with it the session's look at the storage: a new log-in, a new silent baseline.
    Each meets all the forms in which a collection is asked for."""
    return [
        *[(kind, where, *more, forms if where in _COLLECTIONS else 1) for where in _ANYWHERE for kind, *more in (
            ("status", 500), ("status", 503), ("drop", "during"), ("cut", 40), ("body", "[1, 2, 3]"), ("body", ""),
            ("body", '{"@odata.id":"/redfish/v1/Systems/1", "Model":'), ("body", "<html>\u0000\u00ff"),
            ("wire", "220 smtp.example.net ESMTP\r\n"), ("wire", "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n{}"))],
        ("body", _VOLUMES, '{"Members": null}', forms),
        # Taken for the plain form whichever was asked for.
        ("body", _VOLUMES, '{"Members": [{"@odata.id": "https://192.0.2.9/redfish/v1"}]}', 1),
        ("status", _ARRAYS, 401, 2 * forms),  # refused to a fresh session too
        ("hang", _ARRAY, "headers", "forever", 1),
        ("hang", _STORAGE, "body", "forever", forms),
    ]


# The log-in survives it: what changes meanwhile is reported.
_SURVIVED: List[Verb] = [
    ("expire-sessions",), ("close-connections",),
    *[(kind, where, *more) for where in _ANYWHERE for kind, *more in (
        ("drop", "before", 1), ("not-ready", 1), ("not-ready", 2), ("missing", 1), ("status", 401, 1))],
]


class Rounds:
    """Plays rounds until it is told to end. Every broken promise is a Violation.

    Between two rounds a session is open, a baseline is taken, and `_seen` is what the service has seen last.
    """

    def __init__(self, watched: Tooled, server: Server, journal: Journal, vitals: Vitals, medium: MediumErrors,
                 loads: ModuleLoads, rng: random.Random, speed: float, warm_cycles: int) -> None:
        self._watched = watched
        self._server = server
        self._journal = journal
        self._vitals = vitals
        self._medium = medium
        self._loads = loads
        self._errors = ErrorLines(journal, lambda: medium.ssacli_fails, lambda: watched.host.children() != [])
        self._rng = rng
        self._speed = speed
        self._warm_cycles = warm_cycles
        self._failing = _failing(expansion().forms)
        self._world = World()
        self._seen = World()
        self._ahead = 0
        self._password = server.process.password
        self._passwords = 0
        self._first_walk = server.walks()
        self.rounds: Counter = Counter()
        self.faults: Counter = Counter()
        #: Events that had to be reported, and transitions that had to stay silent because a log-in was lost.
        self.reported = self.silent = 0
        #: Log-ins that were lost without a fault of the run: on a busy machine a time limit may pass by itself.
        self.unplanned = 0
        #: Starts of the interpreter until memory counted as warmed up.
        self.warm_loads: Optional[int] = None
        self._kinds: Dict[str, Tuple[int, Callable[[], None]]] = {
            "failing read": (27, self._failing_read), "changes": (28, self._changes),
            "changes at any moment": (14, self._changes_at_any_moment),
            "survived fault": (14, self._survived_fault), "no session left": (5, self._no_session_left),
            "password changed": (2, self._password_changed), "controller restarted": (2, self._controller_restarted),
            "RAID controller gone and back": (2, self._controller_gone_and_back),
            "system log restarted": (1, self._system_log_restarted), "hour passed": (1, self._hour_passed)}

    # ---- Going on ----

    @property
    def cycles(self) -> int:
        """Looks at the storage."""
        return self._server.walks() - self._first_walk

    def wait_baseline(self) -> None:
        self._wait(lambda: self.cycles >= _BASELINE, "baseline")

    def play(self) -> None:
        """One round."""
        if self._medium.wants_week:
            self._pass_time("week passed", WEEK)
            self._medium.wants_week = False
        names = list(self._kinds)
        name, = self._rng.choices(names, [self._kinds[name][0] for name in names])
        self.rounds[name] += 1
        self._kinds[name][1]()
        self._look_around()

    def finish(self) -> None:
        """Leaves everything good, so that the service ends in peace."""
        self._server.call("clear-faults")
        self._settle()
        self._errors.look()
        allowed = most_unplanned(sum(self.rounds.values()))
        if self.unplanned > allowed:
            raise self._journal.violation(f"{self.unplanned} log-ins were lost by themselves; {allowed} may be.")

    def _wait(self, condition: Callable[[], object], what: str, patience: float = PATIENCE) -> None:
        deadline = time.monotonic() + patience
        while True:
            self._journal.poll()
            if condition():
                return
            if not self._watched.host.running:
                raise self._journal.violation("The service has ended.")
            if time.monotonic() > deadline:
                raise self._journal.violation(f"No {what} within {patience:.0f} seconds.")
            if self.cycles >= _BASELINE:
                self._vitals.look(self.cycles, self.cycles >= self._warm_cycles)
            time.sleep(0.03)

    def _look_around(self) -> None:
        """What must hold between any two rounds."""
        self._errors.look()
        self._medium.step()
        loads = self._loads.count()
        if self.warm_loads is None and self._vitals.warm_kib is not None:
            self.warm_loads = loads
        sessions = self._server.sessions()
        if sessions > SESSIONS:
            raise self._journal.violation(f"{sessions} sessions are open; {SESSIONS} are allowed.")
        try:
            self._wait(self._journal.logs_agree, "agreement of both logs")
        except Exception as error:
            raise self._journal.violation(f"The logs differ: {self._journal.disagreement()}") from error

    # ---- Parts of rounds ----

    @contextmanager
    def _held(self) -> Iterator[None]:
        """Keeps the next look at the storage at its beginning; what changes meanwhile is seen together."""
        held = self._server.held_walks()
        self._server.call("hang", "GET /redfish/v1/Systems", "headers", "forever", 1)
        self._wait(lambda: self._server.held_walks() > held, "look at the storage")
        yield
        self._server.call("release")

    def _change(self, changes: List[Change]) -> None:
        for change in changes:
            for verb in change.verbs:
                self._server.call(*verb)  # type: ignore[arg-type]
            self._world.items[change.item] = change.condition

    def _some_changes(self) -> List[Change]:
        items = self._rng.sample(list(self._world.items), self._rng.choice((1, 1, 2, 3, 5)))
        return [random_change(self._world, item, self._rng) for item in items]

    def _settle(self) -> None:
        """Waits until a session is open and has looked at the storage at least twice."""
        while True:
            self._wait(lambda: not self._journal.away, "log-in")
            state, walks = self._sessions(), self._server.walks()
            self._wait(lambda: self._server.walks() >= walks + 3 or self._sessions() != state, "look at the storage")
            if self._sessions() == state:
                return

    def _sessions(self) -> Tuple[int, int, bool]:
        return self._journal.lost, self._journal.back, self._journal.away

    def _must_report(self, mark: Mark, looks: int) -> None:
        """The changes since the last round are reported, once, and nothing else; `looks` is when they had been made."""
        expected = transitions(self._seen, self._world)

        def told() -> bool:
            return not expected - self._since(mark) and self._server.walks() >= looks + (1 if expected else 2)

        self._wait(lambda: self._sessions() != (mark.lost, mark.back, False) or told()
                   or self._server.walks() >= looks + 5, "look at the storage")
        if self._sessions() != (mark.lost, mark.back, False):
            self._lost_by_itself(mark)
            return
        found = self._since(mark)
        if found != expected:
            raise self._differs(found, expected)
        self.reported += sum(expected.values())
        self._seen = self._world.copy()

    def _after_outage(self, mark: Mark, expected: "Counter[Event]") -> None:
        """The log-in was lost: these events and no others; what has changed belongs to the new baseline."""
        self._wait(lambda: self._journal.back > mark.back, "new log-in")
        self._settle()
        found, more = self._since(mark), self._journal.back - mark.back - 1
        # It may have been lost once more, by itself, in the middle of the changes.
        allowed = expected + self._imaginable() if more else expected
        if expected - found or found - allowed:
            raise self._differs(found, expected)
        self.unplanned += more
        self.reported += sum(expected.values())
        self.silent += sum(transitions(self._seen, self._world).values())
        self._seen = self._world.copy()

    def _lost_by_itself(self, mark: Mark) -> None:
        """A log-in was lost while nothing was done to it. Which changes are in the new baseline is anybody's guess."""
        self._settle()
        self.unplanned += self._journal.back - mark.back
        found = self._since(mark)
        if found - self._imaginable():
            raise self._differs(found, transitions(self._seen, self._world))
        self._seen = self._world.copy()

    def _imaginable(self) -> "Counter[Event]":
        """What can be reported once each when the changes were looked at one by one."""
        return transitions(self._seen, self._world) | transitions(blank(), self._world)

    def _since(self, mark: Mark) -> "Counter[Event]":
        return Counter(self._journal.events[mark.events:])

    def _differs(self, found: "Counter[Event]", expected: "Counter[Event]") -> Exception:
        missing, surplus = expected - found, found - expected
        lines = [f"missing ({count}): {event.line}" for event, count in missing.items()]
        lines += [f"too much ({count}): {event.line}" for event, count in surplus.items()]
        return self._journal.violation("\n".join(["The events are not those that the changes make:", *lines]))

    # ---- Rounds ----

    def _changes(self) -> None:
        mark = self._journal.mark()
        with self._held():
            self._change(self._some_changes())
            looks = self._server.walks()
        self._must_report(mark, looks)

    def _changes_at_any_moment(self) -> None:
        mark = self._journal.mark()
        self._change([change for change in self._some_changes() if change.gradual])
        looks = self._server.walks() + 1
        self._must_report(mark, looks)

    def _survived_fault(self) -> None:
        mark = self._journal.mark()
        with self._held():
            self._change(self._some_changes())
            self._arm(self._rng.choice(_SURVIVED))
            looks = self._server.walks()
        self._must_report(mark, looks)

    def _failing_read(self) -> None:
        mark = self._journal.mark()
        with self._held():
            self._change(self._some_changes() if self._rng.random() < 0.5 else [])
            self._arm(self._rng.choice(self._failing))
        self._after_outage(mark, Counter())
        self._server.call("clear-faults")

    def _arm(self, verb: Verb) -> None:
        kind, _, *more = (*verb, "")
        self.faults[f"{kind} {more[0]}" if kind in ("status", "drop", "hang") else kind] += 1
        self._server.call(*verb)

    def _no_session_left(self) -> None:
        self.faults["no session left"] += 1
        mark = self._journal.mark()
        with self._held():
            self._change(self._some_changes())
            self._server.call("session-limit", 0)
            self._server.call("expire-sessions")
        more = self._rng.randint(1, 3)
        self._wait(lambda: self._journal.lost >= mark.lost + more, "failed log-ins")
        self._server.call("session-limit", 16)
        self._after_outage(mark, Counter())

    def _password_changed(self) -> None:
        """Reported once; tried again after an hour, or when it is registered anew."""
        self.faults["password changed"] += 1
        mark = self._journal.mark()
        self._passwords += 1
        self._password = f"soak-secret-{self._passwords}"
        self._server.call("account", self._server.process.account, self._password)
        self._wait(lambda: self._journal.refused > mark.refused, "refused log-in")
        if self._rng.random() < 0.5:
            self._jump(HOUR)
            self._wait(lambda: self._journal.refused > mark.refused + 1, "second refused log-in")
        self._watched.register(self._server.process.account, self._password)
        self._after_outage(mark, Counter([LOGIN_FAILED]))

    def _controller_restarted(self) -> None:
        """All that was done to the server is undone meanwhile."""
        self.faults["controller restarted"] += 1
        mark = self._journal.mark()
        self._server.stop()
        more = self._rng.randint(1, 3)
        self._wait(lambda: self._journal.lost >= mark.lost + more, "failed log-ins")
        self._server.start(password=self._password)
        self._world = World()
        self._after_outage(mark, Counter())

    def _controller_gone_and_back(self) -> None:
        controller = self._rng.choice((SMART, MEGA))
        for verb, there in (("remove-controller", False), ("restore-controller", True)):
            mark = self._journal.mark()
            with self._held():
                self._server.call(verb, controller)
                self._world.controllers[controller] = there
                looks = self._server.walks()
            self._must_report(mark, looks)

    def _system_log_restarted(self) -> None:
        self.faults["system log restarted"] += 1
        self._wait(self._journal.logs_agree, "agreement of both logs")
        self._watched.host.restart_syslog()
        self._changes()

    def _hour_passed(self) -> None:
        self._pass_time("hour passed", HOUR)

    def _pass_time(self, name: str, seconds: int) -> None:
        """A jump of the clock may end a read or a log-in that is under way; nothing is reported for it."""
        self.faults[name] += 1
        self._wait(lambda: self._watched.host.children() == [], "moment without a tool")
        mark = self._journal.mark()
        self._jump(seconds)
        walks = self._server.walks()
        self._wait(lambda: self._server.walks() >= walks + 3 or self._journal.away, "look at the storage")
        self._settle()
        found = self._since(mark)
        if found:
            raise self._differs(found, Counter())

    def _jump(self, seconds: int) -> None:
        self._ahead += seconds
        self._errors.clock_jumped()
        assert self._watched.clock is not None
        self._watched.clock.set(self._ahead, self._speed)
