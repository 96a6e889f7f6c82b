"""Plays a scenario against a running host and shows what the service makes of it."""

from __future__ import annotations

import time
from typing import Callable, Dict, List, Optional, Sequence, Type, Union

from simcontroller import scenario, verbs
from simcontroller.process import ControllerProcess
from simhost import PRIORITIES, SimHost

from .feed import Feed, Reported, SyslogLine, TraceLine
from .outcome import MISSING, NOT_REACHED, OK, PRIORITY_OF_SEVERITY, UNEXPECTED, WRONG, Outcomes, event_name
from .screen import BOLD, CYAN, DIM, GREEN, RED, YELLOW, Screen

_POLL_SECONDS = 0.1
_STOP_SECONDS = 20.0
_PRIORITY_COLOURS = {3: RED, 4: YELLOW}

# What a reader should know when the service writes such a line; each is told once.
_EXPLANATIONS = {
    "Create thread for OS log.": "Each thread has its own work; this one watches the controller. It waits ten seconds "
                                 "before it logs in, and ten more before it takes stock.",
    "Start to monitor.": "The first look is the baseline. From now on only what changes is reported, each change once.",
}


class Stopped(Exception):
    """The scenario cannot go on; the reason is among the outcomes."""


class Player:
    """Plays one scenario, once."""

    def __init__(self, steps: Sequence[scenario.Step], screen: Screen, host: SimHost, controller: ControllerProcess,
                 feed: Feed, outcomes: Outcomes) -> None:
        self._steps = steps
        self._screen = screen
        self._host = host
        self._controller = controller
        self._feed = feed
        self._outcomes = outcomes
        self._pending: List[Reported] = []  # events that no step has expected yet
        self._lines: List[Union[TraceLine, SyslogLine]] = []  # since the step before the present one
        self._to_explain = dict(_EXPLANATIONS)
        self._scene = 0
        self._players: Dict[Type[object], Callable[..., None]] = {
            scenario.Scene: self._play_scene, scenario.Say: self._play_say, scenario.Pause: self._play_pause,
            scenario.Sim: self._play_sim, scenario.Run: self._play_run, scenario.WaitFor: self._play_wait_for,
            scenario.ExpectEvent: self._play_expect, scenario.ExpectQuiet: self._play_quiet}

    def play(self) -> None:
        """Plays all steps, then stops the service. What cannot be played any more is counted as not reached."""
        steps = [step for step in self._steps if type(step) in self._players]
        for position, step in enumerate(steps):
            try:
                self._players[type(step)](step)
            except Stopped:
                for left in steps[position + 1:]:
                    if isinstance(left, (scenario.ExpectEvent, scenario.WaitFor)):
                        expected = event_name(left.event) if isinstance(left, scenario.ExpectEvent) else repr(left.text)
                        self._outcomes.add(expected, "", NOT_REACHED)
                break
        self._stop_service()
        for event in self._pending:
            self._outcomes.add("nothing", event_name(event.event), UNEXPECTED)

    # The steps

    def _play_scene(self, step: scenario.Scene) -> None:
        self._scene += 1
        total = sum(isinstance(each, scenario.Scene) for each in self._steps)
        self._screen.heading(f"{self._scene}/{total} {step.title}")

    def _play_say(self, step: scenario.Say) -> None:
        self._screen.paragraph(step.text)

    def _play_pause(self, step: scenario.Pause) -> None:
        self._watch(step.seconds, lambda: False, "a moment")

    def _play_sim(self, step: scenario.Sim) -> None:
        words = " ".join((step.verb, *step.arguments))
        self._screen.paragraph(f"On the server: {verbs.find(step.verb).help} ({words}).", BOLD)
        self._lines.clear()
        self._controller.control.call(step.verb, *step.arguments)

    def _play_run(self, step: scenario.Run) -> None:
        words = " ".join(step.command)
        self._screen.paragraph(f"The administrator runs: {words}", BOLD)
        self._lines.clear()
        answer = self._host.run(step.command, stdin=step.stdin)
        for line in (answer.stdout + answer.stderr).splitlines():
            self._screen.entry("output", line, CYAN)
        if answer.returncode != 0:
            self._settle(words, f"exit status {answer.returncode}", WRONG)
            raise Stopped

    def _play_wait_for(self, step: scenario.WaitFor) -> None:
        kind = TraceLine if step.log == "trace" else SyslogLine
        begin = time.monotonic()
        found = self._watch(
            step.within, lambda: any(isinstance(line, kind) and step.text in line.text for line in self._lines),
            f'"{step.text}" in the {step.log} log')
        self._lines.clear()
        if not found:
            self._settle(f'"{step.text}"', "", MISSING)
            raise Stopped
        self._settle(f'"{step.text}"', f"after {time.monotonic() - begin:.1f} s", OK)

    def _play_expect(self, step: scenario.ExpectEvent) -> None:
        def find() -> Optional[Reported]:
            return next((event for event in self._pending if event.event == step.event
                         and all(text in event.message for text in step.containing)), None)

        begin = time.monotonic()
        name = event_name(step.event)
        self._watch(step.within, lambda: find() is not None, f"{name}, at most {step.within:.0f} s")
        found = find()
        if found is None:
            self._settle(name, "", MISSING)
            return
        self._pending.remove(found)
        came = f"after {max(found.at - begin, 0):.1f} s"
        if found.priority != PRIORITY_OF_SEVERITY.get(step.event >> 30):
            self._settle(name, f"{came}, with another priority", WRONG)
        elif not self._feed.fits_catalogue(found):
            self._settle(name, f"{came}, with another text", WRONG)
        else:
            self._settle(name, came, OK)

    def _play_quiet(self, step: scenario.ExpectQuiet) -> None:
        before = len(self._pending)
        self._watch(step.seconds, lambda: len(self._pending) > before, f"nothing, for {step.seconds:.0f} s")
        # What broke the silence stays pending and is told as unexpected at the end.
        quiet = len(self._pending) == before
        self._settle(f"silence for {step.seconds:.0f} s", "nothing" if quiet else event_name(self._pending[-1].event),
                     OK if quiet else WRONG)

    def _stop_service(self) -> None:
        if not self._host.running:
            self._show_new()
            self._settle("service runs to the end", f"exit status {self._host.wait_exit(1)}", WRONG)
            return
        self._screen.heading("The service is stopped, as Ctrl+C stops it")
        self._host.signal(2)
        begin = time.monotonic()
        self._watch(_STOP_SECONDS, lambda: not self._host.running, "the end of the service", needs_service=False)
        self._show_new()
        if self._host.running:
            self._settle("service stops", f"still runs after {_STOP_SECONDS:.0f} s", WRONG)
            return
        status = self._host.wait_exit(1)
        self._settle("service stops, exit status 0", f"after {time.monotonic() - begin:.1f} s, exit status {status}",
                     OK if status == 0 else WRONG)

    # Watching

    def _watch(self, seconds: float, done: Callable[[], bool], what: str, needs_service: bool = True) -> bool:
        """Shows what comes until `done` is true (returned) or the time is over. An ended service ends the scenario."""
        deadline = time.monotonic() + seconds
        while True:
            self._show_new()
            if done():
                return True
            if needs_service and not self._host.running:
                raise Stopped
            left = deadline - time.monotonic()
            if left <= 0:
                return False
            self._screen.waiting(f"{left:.0f} s: {what}")
            time.sleep(min(_POLL_SECONDS, left))

    def _show_new(self) -> None:
        for item in self._feed.poll():
            if isinstance(item, Reported):
                self._pending.append(item)
                continue
            self._lines.append(item)
            if isinstance(item, SyslogLine):
                colour = _PRIORITY_COLOURS.get(item.priority, "")
                self._screen.entry(PRIORITIES[item.priority].upper() if item.opens else "", item.text,
                                   f"{BOLD};{colour}" if colour else BOLD, colour if item.opens else "")
                continue
            self._screen.entry("trace", item.text, DIM, DIM)
            for text in [text for text in self._to_explain if text in item.text]:
                self._screen.paragraph(self._to_explain.pop(text))

    def _settle(self, expected: str, came: str, result: str) -> None:
        self._outcomes.add(expected, came, result)
        good = result == OK
        self._screen.entry(result, f"{expected} {came}".strip(), GREEN if good else f"{BOLD};{RED}",
                           GREEN if good else RED)
