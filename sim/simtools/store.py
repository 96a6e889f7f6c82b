"""The folder that the stand-ins and whoever directs them share: the state, long answers, the log of command lines.

The stand-ins start for each command of the service, so this module loads little.
"""

from __future__ import annotations

import fcntl
import json
import os
from contextlib import contextmanager
from typing import Any, Dict, Iterator, List

SSACLI, STORCLI = "ssacli", "storcli64"
TOOLS = (SSACLI, STORCLI)

State = Dict[str, Any]


def empty_state() -> State:
    """A server without controllers, whose tools work."""
    return {"layout": {"headings": "drives", "entries": "table", "line_ends": "lf"}, "controllers": [], "faults": [],
            "answers": 0}  # of these, how many files were ever made


def seconds_up() -> float:
    """Since the machine was started. No library that changes a program's clock reaches this one."""
    with open("/proc/uptime", encoding="ascii") as file:
        return float(file.read().split()[0])


class Store:
    """One folder. Changes from several processes do not get into each other's way; readers never see half a state."""

    def __init__(self, folder: "str | os.PathLike[str]") -> None:
        self.folder = os.fspath(folder)
        self._state = os.path.join(self.folder, "state.json")
        self._log = os.path.join(self.folder, "commands.log")

    def create(self) -> None:
        """Make the folder with an empty state; what an earlier run left in it is forgotten."""
        os.makedirs(self.folder, exist_ok=True)
        with self._locked():
            self._write(empty_state())
        self.forget_commands()

    def read(self) -> State:
        with open(self._state, encoding="ascii") as file:
            state: State = json.load(file)
        return state

    @contextmanager
    def change(self) -> Iterator[State]:
        """The state to be changed in place. An exception in the block leaves it as it was."""
        with self._locked():
            state = self.read()
            yield state
            self._write(state)

    def path(self, name: str) -> str:
        """A file beside the state."""
        return os.path.join(self.folder, name)

    @contextmanager
    def _locked(self) -> Iterator[None]:
        with open(self.path("lock"), "a", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            yield

    def _write(self, state: State) -> None:
        # ASCII with escapes carries every text, also what is no valid UTF-8 and was read with surrogates.
        part = f"{self._state}.{os.getpid()}.part"
        with open(part, "w", encoding="ascii") as file:
            json.dump(state, file)
        os.replace(part, self._state)

    # The log of command lines

    def note_command(self, tool: str, arguments: List[str], folder: str) -> None:
        line = json.dumps({"tool": tool, "arguments": arguments, "folder": folder, "at": seconds_up(),
                           "pid": os.getpid()})
        log = os.open(self._log, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o666)
        try:
            os.write(log, line.encode("ascii") + b"\n")
        finally:
            os.close(log)

    def commands(self) -> List[Dict[str, Any]]:
        try:
            with open(self._log, encoding="ascii") as file:
                return [json.loads(line) for line in file.read().split("\n")[:-1]]
        except FileNotFoundError:
            return []

    def forget_commands(self) -> None:
        try:
            os.unlink(self._log)
        except FileNotFoundError:
            pass
