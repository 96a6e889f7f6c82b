"""Directing the stand-ins: what the tools find, how they misbehave, and what they were asked."""

from __future__ import annotations

import os
import shlex
import time
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Sequence, Union

from simerrors import UseError

from .store import SSACLI, STORCLI, TOOLS, Store

HEADINGS = ("drives", "grouped")
ENTRIES = ("table", "values")
LINE_ENDS = ("lf", "crlf")
ARCHIVES = ("whole", "cut", "empty", "none")
# How a MegaRAID controller came across a medium error, which makes the words of its event.
FOUND_BY = ("patrol", "recovery", "consistency", "background")

_BIN = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "bin")
# Minutes of service at which the latest error of a Smart Array drive lies when only their number is given.
_LATEST_MINUTE = 0x0005A99E

_SMART_DRIVE: Dict[str, Any] = {
    "port": "1I", "box": "1", "bay": "1", "serial": "", "model": "EG001200JWTEST", "firmware": "HPD4",
    "capacity": "1.2 TB", "bus": "SAS", "kind": "HDD", "times": [], "other_times": [], "absent": False}
_MEGA_DRIVE: Dict[str, Any] = {
    "enclosure": 252, "slot": "1", "did": 0, "port": "1", "box": "1", "bay": "1", "serial": "", "model": "XX001200TEST",
    "firmware": "T004", "capacity": "1.091 TB", "bus": "SAS", "kind": "HDD", "state": "Onln", "group": 0, "times": [],
    "other_times": [], "found_by": "patrol", "absent": False}


class Command(NamedTuple):
    """A command line that was run: the tool, its arguments, the folder it was run in, and when (seconds_up())."""

    tool: str
    arguments: List[str]
    folder: str
    at: float
    pid: int

    @property
    def line(self) -> str:
        return " ".join([self.tool, *self.arguments])


class Tool:
    """How one of the tools misbehaves.

    Every fault holds for the command lines that match `commands` (arguments joined with blanks; * stands for anything),
    the next `times` times (None: for ever). Faults of different kinds add up; of one kind the one armed last holds.
    """

    def __init__(self, store: Store, name: str) -> None:
        self._store = store
        self.name = name

    def fail(self, status: int = 1, commands: str = "*", times: Optional[int] = None) -> None:
        """Print an error, do nothing and end with this status."""
        self._arm("fail", status, commands, times)

    def hang(self, commands: str = "*", times: Optional[int] = None) -> None:
        """Never end unless killed."""
        self._arm("hang", None, commands, times)

    def takes(self, seconds: float, commands: str = "*", times: Optional[int] = None) -> None:
        """Take so long; the seconds are those of the service's clock when that is sped up."""
        self._arm("takes", seconds, commands, times)

    def cut(self, count: int = 0, commands: str = "*", times: Optional[int] = None) -> None:
        """Let the listing, or the report in the archive, end after `count` bytes; with 0 it is empty."""
        self._arm("cut", count, commands, times)

    def quiet(self, commands: str = "*", times: Optional[int] = None) -> None:
        """Find no controller."""
        self._arm("quiet", None, commands, times)

    def answer(self, text: Union[str, bytes], status: int = 0, commands: str = "*",
               times: Optional[int] = None) -> None:
        """Use this text for the listing, or for the report in the archive, and end with this status."""
        data = text.encode("utf-8", "surrogateescape") if isinstance(text, str) else text
        with self._store.change() as state:
            state["answers"] += 1
            name = f"answer-{state['answers']}"
            with open(self._store.path(name), "wb") as file:
                file.write(data)
            state["faults"].append(self._fault("answer", {"file": name, "status": status}, commands, times))

    def archive(self, kind: str, commands: str = "*", times: Optional[int] = None) -> None:
        """ssacli writes half of the archive ("cut"), an "empty" file or "none", and succeeds all the same."""
        self._only_ssacli("archive")
        if kind not in ARCHIVES:
            raise UseError(f"There is no archive {kind!r}; say one of {', '.join(ARCHIVES)}.")
        self._arm("archive", kind, commands, times)

    def late(self, seconds: float, commands: str = "*", times: Optional[int] = None) -> None:
        """ssacli ends, and so many seconds later its archive is there."""
        self._only_ssacli("late")
        self._arm("late", seconds, commands, times)

    def clear(self) -> None:
        """Forget all faults of this tool."""
        with self._store.change() as state:
            state["faults"] = [fault for fault in state["faults"] if fault["tool"] != self.name]

    def _arm(self, kind: str, value: Any, commands: str, times: Optional[int]) -> None:
        with self._store.change() as state:
            state["faults"].append(self._fault(kind, value, commands, times))

    def _fault(self, kind: str, value: Any, commands: str, times: Optional[int]) -> Dict[str, Any]:
        return {"tool": self.name, "kind": kind, "value": value, "commands": commands, "times": times}

    def _only_ssacli(self, fault: str) -> None:
        if self.name != SSACLI:
            raise UseError(f"{self.name} writes no archive; {fault} is for {SSACLI}.")


class Tools:
    """The tools of one server. Controllers and their drives are counted from 1.

        tools.add_smart_array()
        tools.add_drive(1, serial="TESTSN0001")
        tools.medium_errors(1, 1, times=[1000, 1010])
        tools.storcli64.fail(1, commands="/c0 show events")
        [command.line for command in tools.commands()]

    Any process may direct the same tools at the same time: all that is known stands in `folder`.
    """

    def __init__(self, folder: "str | os.PathLike[str]") -> None:
        """For a folder that was created, by whomever."""
        self._store = Store(folder)
        self.folder = self._store.folder
        self.ssacli = Tool(self._store, SSACLI)
        self.storcli64 = Tool(self._store, STORCLI)

    @classmethod
    def create(cls, folder: "str | os.PathLike[str]") -> "Tools":
        """The tools of a server without controllers."""
        Store(folder).create()
        return cls(folder)

    def tool(self, name: str) -> Tool:
        if name not in TOOLS:
            raise UseError(f"There is no tool {name!r}; the tools are {', '.join(TOOLS)}.")
        return self.ssacli if name == SSACLI else self.storcli64

    def wrapper(self, name: str) -> str:
        """A script that runs the stand-in with these tools' folder, to be installed where the tool is looked for."""
        return (f"#!/bin/sh\nBAYWARD_SIM_TOOLS={shlex.quote(os.path.abspath(self.folder))} "
                f"exec {shlex.quote(os.path.join(_BIN, self.tool(name).name))} \"$@\"\n")

    # What the tools find

    def add_smart_array(self, model: str = "HPE Smart Array P408i-a SR Gen10", slot: Union[int, str] = 0,
                        number: Optional[int] = None) -> int:
        """A controller that ssacli sees; its number. `number`: the number it is known by (unless the next one)."""
        return self._add_controller(SSACLI, number, {"model": model, "slot": slot, "serial": "SIMSACTRL"})

    def add_mega_raid(self, model: str = "HPE MR416i-o Gen11", slot: Optional[Union[int, str]] = 14,
                      number: Optional[int] = None) -> int:
        """A controller that storcli64 sees; its number. Without a slot its listing has no line for it."""
        return self._add_controller(STORCLI, number, {"model": model, "slot": slot, "serial": "SIMMRCTRL"})

    def _add_controller(self, tool: str, number: Optional[int], members: Dict[str, Any]) -> int:
        with self._store.change() as state:
            known = [controller["number"] for controller in state["controllers"]]
            number = max(known, default=0) + 1 if number is None else number
            if number in known:
                raise UseError(f"There is a controller {number} already; give another number.")
            state["controllers"].append({"number": number, "tool": tool, **members, "absent": False, "drives": []})
        return number

    def add_drive(self, controller: int, **members: Any) -> int:
        """A drive; its number. The members not given are those of a good hard disk in the next bay (see set_drive)."""
        with self._store.change() as state:
            found = _controller(state, controller)
            index = len(found["drives"])
            if found["tool"] == SSACLI:
                # Four bays to a port, eight to a box.
                usual = {**_SMART_DRIVE, "port": f"{1 + index % 8 // 4}I", "box": str(1 + index // 8)}
            else:
                usual = {**_MEGA_DRIVE, "slot": str(1 + index), "did": 10 + index, "port": str(1 + index % 8 // 4)}
            usual.update(bay=str(1 + index % 8), serial=f"SIMTOOL{controller}D{index:04d}")
            drive = {"number": index + 1, **usual}
            for member, value in members.items():
                _put(drive, member, value)
            found["drives"].append(drive)
            return index + 1

    def set_drive(self, controller: int, drive: int, member: str, value: Any) -> None:
        """Give a member of a drive another value. Texts may hold anything.

        Both kinds  serial, model, firmware, capacity, bus, kind (HDD, SSD, another word; empty: no bracket in the
                    report), port, box, bay, absent (true: pulled out), times and other_times (of its medium errors and
                    of its other errors; Smart Array: minutes of service, MegaRAID: seconds since 1970, and None for a
                    medium error before the controller knew the time)
        MegaRAID    enclosure (None: there is none), slot, did (device id), state (Onln, Failed ...), group, found_by
                    (patrol, recovery, consistency, background); port, box and bay may be None: the listing has no
                    such line
        """
        with self._store.change() as state:
            _put(_drive(state, controller, drive), member, value)

    def set_controller(self, controller: int, member: str, value: Any) -> None:
        """Give model, slot, serial or absent (true: it is not seen) of a controller another value."""
        with self._store.change() as state:
            found = _controller(state, controller)
            if member == "absent":
                try:
                    found[member] = _truth(value)
                except ValueError as error:
                    raise UseError(f"The {member} of a controller {error}, not {value!r}.") from None
            elif member in ("model", "slot", "serial"):
                found[member] = None if value is None else str(value)
            else:
                raise UseError(f"A controller has no {member!r}; it has model, slot, serial, absent.")

    def medium_errors(self, controller: int, drive: int, count: Optional[int] = None, minutes: float = 60, *,
                      times: Optional[Sequence[Optional[int]]] = None) -> None:
        """The drive's log holds these medium errors and no others.

        times   when each of them was, as set_drive says
        count   instead: so many, spread evenly over `minutes` up to now
        """
        with self._store.change() as state:
            found = _drive(state, controller, drive)
            if times is None:
                smart = _controller(state, controller)["tool"] == SSACLI
                latest, span = (_LATEST_MINUTE, minutes) if smart else (int(time.time()), minutes * 60)
                count = count or 0
                times = [latest - round(span * back / max(count - 1, 1)) for back in reversed(range(count))]
            _put(found, "times", list(times))

    def layout(self, headings: str = "drives", entries: Optional[str] = None, line_ends: str = "lf") -> None:
        """How the report is written.

        headings   "drives": one per drive and structure; "grouped": one per controller
        entries    of the error log, "table" rows or "values" line by line; unless given, what belongs to the headings
        line_ends  "lf" or "crlf"
        """
        entries = entries or ("values" if headings == "grouped" else "table")
        for word, words in ((headings, HEADINGS), (entries, ENTRIES), (line_ends, LINE_ENDS)):
            if word not in words:
                raise UseError(f"A report has no layout {word!r}; say one of {', '.join(words)}.")
        with self._store.change() as state:
            state["layout"] = {"headings": headings, "entries": entries, "line_ends": line_ends}

    # What they were asked

    def commands(self, tool: Optional[str] = None) -> List[Command]:
        """The command lines that were run, in the order in which they began; of one tool, or of both."""
        return [Command(**command) for command in self._store.commands() if tool in (None, command["tool"])]

    def forget_commands(self) -> None:
        self._store.forget_commands()


def _controller(state: Dict[str, Any], number: int) -> Dict[str, Any]:
    for controller in state["controllers"]:
        if controller["number"] == number:
            return controller
    known = ", ".join(str(controller["number"]) for controller in state["controllers"])
    raise UseError(f"The tools see no controller {number}; " + (f"they see {known}." if known else "they see none."))


def _drive(state: Dict[str, Any], controller: int, number: int) -> Dict[str, Any]:
    drives: List[Dict[str, Any]] = _controller(state, controller)["drives"]
    if not 1 <= number <= len(drives):
        has = f"drives 1 to {len(drives)}" if drives else "no drives"
        raise UseError(f"The tools see no drive {number} on controller {controller}; it has {has}.")
    return drives[number - 1]


def _is_number(value: Any) -> bool:
    return isinstance(value, int) and not isinstance(value, bool) and value >= 0


def _times(value: Any) -> List[int]:
    if not isinstance(value, list) or not all(_is_number(one) for one in value):
        raise ValueError("is a list of whole numbers")
    return value


def _times_or_none(value: Any) -> List[Optional[int]]:
    if not isinstance(value, list) or not all(one is None or _is_number(one) for one in value):
        raise ValueError("is a list of whole numbers and None")
    return value


def _number(value: Any) -> int:
    if not _is_number(value):
        raise ValueError("is a whole number")
    return value


def _optional_number(value: Any) -> Optional[int]:
    return None if value is None else _number(value)


def _truth(value: Any) -> bool:
    if not isinstance(value, bool):
        raise ValueError("is true or false")
    return value


def _found_by(value: Any) -> str:
    if value not in FOUND_BY:
        raise ValueError(f"is one of {', '.join(FOUND_BY)}")
    return str(value)


def _text(value: Any) -> Optional[str]:
    return None if value is None else str(value)


# Members that are not plain texts.
_READERS: Dict[str, Callable[[Any], Any]] = {
    "times": _times, "other_times": _times, "did": _number, "enclosure": _optional_number, "group": _optional_number,
    "absent": _truth, "found_by": _found_by}
# A MegaRAID controller may log a medium error before it knows the time.
_MEGA_READERS: Dict[str, Callable[[Any], Any]] = {**_READERS, "times": _times_or_none}


def _put(drive: Dict[str, Any], member: str, value: Any) -> None:
    if member not in drive or member == "number":
        raise UseError(f"A drive has no {member!r}; it has {', '.join(name for name in drive if name != 'number')}.")
    readers = _MEGA_READERS if "did" in drive else _READERS
    try:
        drive[member] = readers.get(member, _text)(value)
    except ValueError as error:
        raise UseError(f"The {member} of a drive {error}, not {value!r}.") from None
