"""A service whose controller makes trouble: what it says, and that the next real failure is reported once."""

from __future__ import annotations

import re
from contextlib import contextmanager
from typing import Any, Callable, Iterator, List

from watched import ControllerProcess, Watched, smart_disk, wait_until, without

SPEED = 10  # a whole read of 45 seconds takes 4.5 then, and a TLS handshake may take half a second

DRIVES = 4
SERVER = ("--drives", DRIVES, "--ssd", 0)

ARRAY = "/redfish/v1/Systems/1/SmartStorage/ArrayControllers/0"
DRIVE_PATH = f"{ARRAY}/DiskDrives/1"  # as links name it; it is asked for in the same form, with a slash at its end
DRIVE = f"GET {DRIVE_PATH}"

FAILED = "<VK0956> [ER] Failed to initialize RaidManager."
BACK = "<VK0950> [TR] Initializing RaidManager succeed."
MONITORED = "<VK0900> [TR] Start to monitor."
STOPPED = "<VK0900> [TR] Service stopped."
# Lines of the stop, in their order; what follows the signal's own line is the same whatever was under way.
END = [
    "<VK0902> [TR] Receive signal 15",
    "<VK0900> [TR] Receive StopEvent.",
    "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for OS log.",
    "<VK0900> [TR] Break SerialLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for Serial log.",
    STOPPED,
]

# Lines of every walk, and the events, which are looked at by themselves.
_USUAL = (" ssdEnduranceUtilizationPercentage=", " statusReasons=", " mVersion=", "Start cyclic serial log saving.",
          "[EV]")
_READER = re.compile(r"<VK0999> \[TR\] ilorest-reader \d+ ")
_MODULE = "<VK0888> [TR] "


class Troubled:
    """A watched server with four Smart Array drives.

    Among what is said, lines of the reader begin with "reader: " and those of the helper module, which tells its reasons
    when there is a CA file, with "module: ". In them the controller's address is {url}.
    """

    def __init__(self, watched: Watched) -> None:
        self.watched = watched
        self._drive = 0
        self._begun = 0

    @property
    def sim(self) -> ControllerProcess:
        return self.watched.sim

    def call(self, *verb: Any) -> Any:
        return self.sim.control.call(*verb)

    def open_sessions(self) -> int:
        return self.watched.counters()["open_sessions"]

    # What is said

    def begin(self) -> None:
        """`said` tells what is said from now on."""
        self._begun = len(self.watched.host.trace_lines())

    def said(self) -> List[str]:
        lines = (_READER.sub("reader: ", line) for line in without(self.watched.trace()[self._begun:], *_USUAL))
        return [f"module: {line[len(_MODULE):]}".replace(self.sim.url, "{url}") if line.startswith(_MODULE) else line
                for line in lines]

    def wait_said(self, line: str, count: int = 1) -> None:
        def found() -> bool:
            return sum(line in text for text in self.watched.host.trace_lines()[self._begun:]) >= count
        wait_until(found, f"{line!r}, {count} times", 60, self.watched.host)

    def wait_walks(self, number: int = 1) -> None:
        self.watched.wait_walks(number, 60)

    def wait_back(self) -> None:
        """Waits for the fresh log-in and for the baseline after it."""
        self.wait_said(BACK)
        self.wait_walks()

    # The proof that it goes on

    def assert_next_failure_is_reported_once(self) -> None:
        """A drive fails and is reported; it is new again when its turn comes after all the others'."""
        self._drive = self._drive % DRIVES + 1
        self.call("fail-drive", 1, self._drive)
        self.watched.expect(smart_disk(self._drive).failed, timeout=60)
        self.call("heal-drive", 1, self._drive)


@contextmanager
def troubled(sim: ControllerProcess, watch: Callable[..., Watched], **options: Any) -> Iterator[Troubled]:
    """For all tests of a file: the service monitors, and when it ends it leaves no session on the controller."""
    config = {"iLo": {"ca file": sim.ca}}
    found = Troubled(watch(sim, speed=SPEED, config=config, **options).start().wait_baseline())
    yield found
    found.call("clear-faults")
    assert found.watched.stop() == 0
    assert found.open_sessions() == 0
