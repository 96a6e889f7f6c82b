"""Scenario files: text to steps, for whoever plays them. The grammar is in README.md."""

from __future__ import annotations

import shlex
from typing import Callable, Dict, List, NamedTuple, Optional, Tuple, Union

from . import verbs
from .errors import UseError

#: Seconds an expectation waits for unless it says otherwise.
DEFAULT_WITHIN = 30.0

_LOGS = ("syslog", "trace")
# What takes the place of a line's end and a tabulator inside the text after <<<.
_ESCAPES = {"\\n": "\n", "\\t": "\t"}


class Server(NamedTuple):
    """Options with which the controller is started; before all steps that do something."""

    line: int
    options: Tuple[str, ...]


class Configure(NamedTuple):
    """A value of the service's configuration file; before all steps that do something."""

    line: int
    section: str
    key: str
    value: str


class Scene(NamedTuple):
    line: int
    title: str


class Say(NamedTuple):
    line: int
    text: str


class Pause(NamedTuple):
    line: int
    seconds: float


class Sim(NamedTuple):
    """A verb for the control socket."""

    line: int
    verb: str
    arguments: Tuple[str, ...]


class Run(NamedTuple):
    """A command of the product, with the text on its standard input; it must succeed."""

    line: int
    command: Tuple[str, ...]
    stdin: str


class Restart(NamedTuple):
    """The service is stopped and started anew, its clock `speed` times as fast, with further configuration."""

    line: int
    speed: float
    configuration: Tuple[Tuple[str, str, str], ...]


class Place(NamedTuple):
    """Files that lie on the host: `count` of them, {} in the pattern counting from 01."""

    line: int
    pattern: str
    count: int


class WaitFor(NamedTuple):
    """The text must appear in a line of the log, from the previous step on."""

    line: int
    text: str
    log: str
    within: float


class ExpectEvent(NamedTuple):
    """The event must be reported exactly once, with every text in its message."""

    line: int
    event: int
    containing: Tuple[str, ...]
    within: float


class ExpectFiles(NamedTuple):
    """So many files of the host must match the pattern."""

    line: int
    count: int
    pattern: str
    within: float


class ExpectQuiet(NamedTuple):
    """No event may be reported for so long."""

    line: int
    seconds: float


Step = Union[Server, Configure, Scene, Say, Pause, Sim, Run, Restart, Place, WaitFor, ExpectEvent, ExpectFiles,
             ExpectQuiet]


class _Line:
    """The words of one line, taken one after the other."""

    def __init__(self, number: int, words: List[str]) -> None:
        self.number = number
        self._words = words

    def word(self, what: str) -> str:
        if not self._words:
            raise ValueError(f"{what} is missing")
        return self._words.pop(0)

    def optional(self, keyword: str) -> bool:
        """Take the keyword when it comes next."""
        if self._words[:1] == [keyword]:
            self._words.pop(0)
            return True
        return False

    def keyword(self, *allowed: str) -> str:
        word = self.word(" or ".join(repr(name) for name in allowed))
        if word not in allowed:
            raise ValueError(f"{word!r} stands where {' or '.join(repr(name) for name in allowed)} belongs")
        return word

    def seconds(self) -> float:
        word = self.word("a number of seconds")
        try:
            seconds = float(word)
        except ValueError:
            seconds = -1.0
        if not 0 < seconds <= 3600:
            raise ValueError(f"{word!r} is no number of seconds above 0 and up to 3600")
        return seconds

    def count(self, word: str) -> int:
        if not (word.isascii() and word.isdigit() and 0 <= int(word) <= 99):
            raise ValueError(f"{word!r} is no number from 0 to 99")
        return int(word)

    def rest(self) -> Tuple[str, ...]:
        words, self._words = tuple(self._words), []
        return words

    def end(self) -> None:
        if self._words:
            raise ValueError(f"{self._words[0]!r} is too much")


def _server(line: _Line) -> Step:
    return Server(line.number, line.rest())


def _configure(line: _Line) -> Step:
    return Configure(line.number, line.word("the section"), line.word("the key"), line.word("the value"))


def _scene(line: _Line) -> Step:
    return Scene(line.number, _sentence(line))


def _say(line: _Line) -> Step:
    return Say(line.number, _sentence(line))


def _pause(line: _Line) -> Step:
    return Pause(line.number, line.seconds())


def _sim(line: _Line) -> Step:
    verb = line.word("the verb")
    arguments = line.rest()
    verbs.find(verb).read(arguments)
    return Sim(line.number, verb, arguments)


def _run(line: _Line) -> Step:
    words = list(line.rest())
    stdin = ""
    if "<<<" in words:
        at = words.index("<<<")
        if len(words) != at + 2:
            raise ValueError("<<< takes one text, the last word of the line")
        stdin = words[at + 1]
        for escape, character in _ESCAPES.items():
            stdin = stdin.replace(escape, character)
        words = words[:at]
    if not words:
        raise ValueError("the command is missing")
    return Run(line.number, tuple(words), stdin)


def _restart(line: _Line) -> Step:
    speed = 1.0
    if line.optional("faster"):
        word = line.word("how many times as fast")
        try:
            speed = float(word)
        except ValueError:
            speed = 0.0
        if not 1 <= speed <= 1000:
            raise ValueError(f"{word!r} is no number from 1 to 1000")
    configuration = []
    while line.optional("with"):
        configuration.append((line.word("the section"), line.word("the key"), line.word("the value")))
    return Restart(line.number, speed, tuple(configuration))


def _place(line: _Line) -> Step:
    pattern = line.word("the pattern")
    return Place(line.number, _host_path(pattern), line.count(line.word("the number of files")))


def _host_path(pattern: str) -> str:
    # Only the host's own folders are the scenario's to write and to look into.
    if not pattern.startswith("/var/log/") or ".." in pattern:
        raise ValueError(f"{pattern!r} does not lie below /var/log/")
    return pattern


def _wait_for(line: _Line) -> Step:
    text = line.word("the text")
    line.keyword("in")
    return WaitFor(line.number, text, line.keyword(*_LOGS), _within(line))


def _expect(line: _Line) -> Step:
    if line.optional("no"):
        line.keyword("event")
        line.keyword("for")
        return ExpectQuiet(line.number, line.seconds())
    word = line.word("'event' or a number of files")
    if word != "event":
        count = line.count(word)
        line.keyword("files")
        return ExpectFiles(line.number, count, _host_path(line.word("the pattern")), _within(line))
    word = line.word("the event's identifier")
    try:
        event = int(word, 16) if word.lower().startswith("0x") else -1
    except ValueError:
        event = -1
    if not 0 <= event <= 0xFFFFFFFF:
        raise ValueError(f"{word!r} is no event identifier such as 0xC0008151")
    containing = []
    while line.optional("containing"):
        containing.append(line.word("the text"))
    return ExpectEvent(line.number, event, tuple(containing), _within(line))


def _sentence(line: _Line) -> str:
    words = line.rest()
    if not words:
        raise ValueError("the text is missing")
    return " ".join(words)


def _within(line: _Line) -> float:
    return line.seconds() if line.optional("within") else DEFAULT_WITHIN


_READERS: Dict[str, Callable[[_Line], Step]] = {
    "server": _server, "configure": _configure, "scene": _scene, "say": _say, "pause": _pause, "sim": _sim,
    "run": _run, "restart": _restart, "place": _place, "wait-for": _wait_for, "expect": _expect}
# Settings come first; text may stand anywhere.
_ANYWHERE = (Scene, Say)


def parse(text: str, name: str) -> List[Step]:
    """The steps of a scenario, each with its line number. The first error is a UseError that begins "NAME:LINE: "."""
    steps: List[Step] = []
    acting: Optional[int] = None
    for number, raw in enumerate(text.splitlines(), 1):
        content = raw.strip()
        if not content or content.startswith("#"):
            continue
        try:
            step = _step(number, content)
            if isinstance(step, (Server, Configure)):
                if acting is not None:
                    raise ValueError(f"it must stand before line {acting}, the first that does something")
            elif acting is None and not isinstance(step, _ANYWHERE):
                acting = number
        except (UseError, ValueError) as error:
            raise UseError(f"{name}:{number}: {content.split()[0]}: {error}") from None
        steps.append(step)
    if not steps:
        raise UseError(f"{name}:1: the scenario holds no step; write one step per line.")
    return steps


def _step(number: int, content: str) -> Step:
    keyword, _, rest = content.partition(" ")
    reader = _READERS.get(keyword)
    if reader is None:
        raise ValueError(f"there is no such step; the steps are {', '.join(_READERS)}")
    # Spoken text is taken as it stands; everything else is split into words as a shell does.
    words = rest.split() if keyword in ("say", "scene") else shlex.split(rest)
    line = _Line(number, words)
    step = reader(line)
    line.end()
    return step
