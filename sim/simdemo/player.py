"""Plays a scenario against a running host and shows what the service makes of it."""

from __future__ import annotations

import fnmatch
import os
import time
from pathlib import PurePosixPath
from typing import Callable, Dict, List, Optional, Sequence, Set, Type, Union

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
    "Start to monitor.": "The next look, one interval from now, is the baseline; after it only what changes is reported, "
                         "each change once.",
}

# What happens on the server, told to a reader; of a verb that is not here its own help is shown.
_HAPPENINGS = {
    "predict-drive": "drive {1} of controller {0} predicts that it will fail",
    "fail-drive": "drive {1} of controller {0} fails",
    "wear-drive": "the SSD in place {1} of controller {0} has used {2} percent of its rated life",
    "heal-drive": "drive {1} of controller {0} is as new again",
    "offline-volume": "logical drive {1} of controller {0} goes offline",
    "heal-volume": "logical drive {1} of controller {0} is back",
    "remove-drive": "drive {1} of controller {0} is pulled out",
    "restore-drive": "drive {1} of controller {0} is put back",
    "medium-errors": "the error log of drive {1} of controller {0} holds {2} medium errors",
    "account": "the password of the account {0} is changed, and every session ends",
}
# The reader's lines about single drives come with every look; those that repeat are left out.
_READER = "<VK0999>"


def _files(step: scenario.ExpectFiles) -> str:
    return f"{step.count} files {PurePosixPath(step.pattern).name}"


class Stopped(Exception):
    """The scenario cannot go on; the reason is among the outcomes."""


class Player:
    """Plays one scenario, once."""

    def __init__(self, steps: Sequence[scenario.Step], screen: Screen, host: SimHost, controller: ControllerProcess,
                 feed: Feed, outcomes: Outcomes, every_line: bool, config: Dict[str, Dict[str, str]]) -> None:
        """`every_line` also shows the trace lines that repeat with every look at the controller.

        `config` is what the service was started with; a restart may add to it.
        """
        self._steps = steps
        self._screen = screen
        self._host = host
        self._controller = controller
        self._feed = feed
        self._outcomes = outcomes
        self._pending: List[Reported] = []  # events that no step has expected yet
        self._lines: List[Union[TraceLine, SyslogLine]] = []  # since the step before the present one
        self._to_explain = dict(_EXPLANATIONS)
        self._every_line = every_line
        self._config = config
        self._reader_lines: Set[str] = set()
        self._scene = 0
        self._players: Dict[Type[object], Callable[..., None]] = {
            scenario.Scene: self._play_scene, scenario.Say: self._play_say, scenario.Pause: self._play_pause,
            scenario.Sim: self._play_sim, scenario.Run: self._play_run, scenario.Restart: self._play_restart,
            scenario.Place: self._play_place, scenario.WaitFor: self._play_wait_for,
            scenario.ExpectEvent: self._play_expect, scenario.ExpectFiles: self._play_files,
            scenario.ExpectQuiet: self._play_quiet}

    def play(self) -> None:
        """Plays all steps, then stops the service. What cannot be played any more is counted as not reached."""
        steps = [step for step in self._steps if type(step) in self._players]
        for position, step in enumerate(steps):
            settled = len(self._outcomes)
            try:
                self._players[type(step)](step)
            except Stopped:
                told = len(self._outcomes) - settled  # 0 when the service ended under this very step
                self._give_up(steps[position + told:])
                break
        self._screen.heading("The service is stopped, as Ctrl+C stops it")
        self._stop_service()
        for event in self._pending:
            self._outcomes.add("nothing", event_name(event.event), UNEXPECTED)
        for text in self._feed.unclaimed():
            self._outcomes.add("nothing", f'"{text.splitlines()[0][:40]}" in the system log alone', UNEXPECTED)

    def _give_up(self, steps: Sequence[scenario.Step]) -> None:
        for step in steps:
            if isinstance(step, scenario.ExpectEvent):
                self._outcomes.add(event_name(step.event), "", NOT_REACHED)
            elif isinstance(step, scenario.ExpectFiles):
                self._outcomes.add(_files(step), "", NOT_REACHED)
            elif isinstance(step, scenario.WaitFor):
                self._outcomes.add(f'"{step.text}"', "", NOT_REACHED)

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
        happening = _HAPPENINGS.get(step.verb, verbs.find(step.verb).help).format(*step.arguments)
        self._screen.paragraph(f"On the server: {happening}.", BOLD, CYAN)
        self._lines.clear()
        self._controller.control.call(step.verb, *step.arguments)

    def _play_run(self, step: scenario.Run) -> None:
        words = " ".join(step.command)
        self._screen.paragraph(f"The administrator runs: {words}", BOLD, CYAN)
        self._lines.clear()
        answer = self._host.run(step.command, stdin=step.stdin)
        for line in (answer.stdout + answer.stderr).splitlines():
            self._screen.entry("output", line, CYAN)
        if answer.returncode != 0:
            self._settle(words, f"exit status {answer.returncode}", WRONG)
            raise Stopped

    def _play_restart(self, step: scenario.Restart) -> None:
        pace = f", its clock {step.speed:g} times as fast" if step.speed != 1 else ""
        self._screen.paragraph(f"The service is stopped and started anew{pace}.", BOLD, CYAN)
        if not self._stop_service():
            raise Stopped
        for section, key, value in step.configuration:
            self._config.setdefault(section, {})[key] = value
        self._host.write_config(self._config)
        self._lines.clear()
        self._host.start_service(stand_alone=True, faketime=f"+0 x{step.speed:g}" if step.speed != 1 else None)

    def _play_place(self, step: scenario.Place) -> None:
        paths = [step.pattern.replace("{}", f"{number:02}") for number in range(1, step.count + 1)]
        for path in paths:
            self._host.outer(path).write_bytes(b"")
        if paths:
            named = paths[0] if len(paths) == 1 else f"{paths[0]} to {PurePosixPath(paths[-1]).name}"
            self._screen.paragraph(f"On the server: the log folder holds {named}.", BOLD, CYAN)

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
        self._watch(step.within, lambda: find() is not None, name)
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

    def _play_files(self, step: scenario.ExpectFiles) -> None:
        path = PurePosixPath(step.pattern)
        folder = self._host.outer(str(path.parent))

        def count() -> int:
            return len(fnmatch.filter(os.listdir(folder), path.name))

        begin = time.monotonic()
        self._watch(step.within, lambda: count() == step.count, _files(step))
        found = count()
        came = f"after {time.monotonic() - begin:.1f} s" if found == step.count else f"{found} files"
        self._settle(_files(step), came, OK if found == step.count else WRONG)

    def _play_quiet(self, step: scenario.ExpectQuiet) -> None:
        before = len(self._pending)
        self._watch(step.seconds, lambda: len(self._pending) > before, f"{step.seconds:.0f} s of silence")
        # What broke the silence stays pending and is told as unexpected at the end.
        quiet = len(self._pending) == before
        self._settle(f"{step.seconds:.0f} s of silence", "no event" if quiet else event_name(self._pending[-1].event),
                     OK if quiet else WRONG)

    def _stop_service(self) -> bool:
        """Whether it ran until now and has ended well."""
        if not self._host.running:
            self._show_new()
            self._settle("service runs to the end", f"exit status {self._host.wait_exit(1)}", WRONG)
            return False
        self._host.signal(2)
        begin = time.monotonic()
        self._watch(_STOP_SECONDS, lambda: not self._host.running, "the end of the service", needs_service=False)
        self._show_new()
        if self._host.running:
            self._settle("service stops", f"still runs after {_STOP_SECONDS:.0f} s", WRONG)
            return False
        status = self._host.wait_exit(1)
        self._settle("service stops", f"after {time.monotonic() - begin:.1f} s" + (f", exit status {status}" if status else ""),
                     OK if status == 0 else WRONG)
        return bool(status == 0)

    # Watching

    def _watch(self, seconds: float, done: Callable[[], bool], what: str, needs_service: bool = True) -> bool:
        """Shows what comes until `done` is true (returned) or the time is over. An ended service ends the scenario."""
        begin = time.monotonic()
        while True:
            self._show_new()
            if done():
                return True
            if needs_service and not self._host.running:
                raise Stopped
            passed = time.monotonic() - begin
            left = seconds - passed
            if left <= 0:
                return False
            self._screen.waiting(f"waiting for {what} ({passed:.0f} s)")
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
            if self._repeats(item.text):
                continue
            self._screen.entry("trace", item.text, DIM, DIM)
            for text in [text for text in self._to_explain if text in item.text]:
                self._screen.paragraph(self._to_explain.pop(text))

    def _repeats(self, text: str) -> bool:
        if self._every_line or not text.startswith(_READER):
            return False
        known = text in self._reader_lines
        self._reader_lines.add(text)
        return known

    def _settle(self, expected: str, came: str, result: str) -> None:
        self._outcomes.add(expected, came, result)
        good = result == OK
        self._screen.entry(result, f"{expected}: {came}" if came else expected, GREEN if good else f"{BOLD};{RED}",
                           GREEN if good else RED)
