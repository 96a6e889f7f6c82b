"""What must stay flat in the service, looked at from time to time."""

from __future__ import annotations

import time
from collections import deque
from typing import Deque, Dict, List, Optional, Set

from soaklogs import Journal
from tooled import Tooled

#: Kilobytes of the trace log, which has one backup of the same size.
LOG_KIB = 256
ARCHIVES = 10
GROWTH_KIB = 5 * 1024
_WINDOW = 20  # looks


class Vitals:
    """Memory, descriptors, children and files of one run of the service."""

    def __init__(self, watched: Tooled, journal: Journal, placed_archives: int) -> None:
        self._watched = watched
        self._journal = journal
        self._placed_archives = placed_archives
        self._zombies: Set[int] = set()
        self._descriptors: Deque[int] = deque(maxlen=_WINDOW)
        self._most_descriptors: Optional[int] = None
        #: By the number of cycles done: KiB resident.
        self.memory: Dict[int, int] = {}
        self.warm_kib: Optional[int] = None
        self.largest_logs = [0, 0]
        self.looks = 0
        self.next = 0.0

    @property
    def descriptors(self) -> List[int]:
        return list(self._descriptors)

    @property
    def most_descriptors(self) -> int:
        return self._most_descriptors or 0

    def look(self, cycles: int, warm: bool) -> None:
        """At most once in two seconds; `warm`: from now on memory may not grow any more."""
        if time.monotonic() < self.next:
            return
        self.next = time.monotonic() + 2
        self.looks += 1
        self._look_at_memory(cycles, warm)
        self._look_at_descriptors()
        self._look_at_children()
        self.look_at_files()

    def _look_at_memory(self, cycles: int, warm: bool) -> None:
        kib = self._watched.host.rss_kib()
        self.memory[cycles] = kib
        if not warm:
            return
        if self.warm_kib is None:
            self.warm_kib = kib
        if kib - self.warm_kib >= GROWTH_KIB:
            raise self._journal.violation(f"Memory has grown from {self.warm_kib} to {kib} KiB; "
                                          f"{GROWTH_KIB} KiB are allowed.")

    def _look_at_descriptors(self) -> None:
        found = self._watched.host.descriptors()
        self._descriptors.append(len(found))
        if len(self._descriptors) < _WINDOW:
            return
        if self._most_descriptors is None:
            self._most_descriptors = max(self._descriptors)
        elif min(self._descriptors) > self._most_descriptors:
            raise self._journal.violation(f"Descriptors have become more: {len(found)} now, at first "
                                          f"{self._most_descriptors} at most: {sorted(found.values())}")

    def _look_at_children(self) -> None:
        zombies = {child.pid for child in self._watched.host.children() if child.state == "Z"}
        if zombies & self._zombies:
            raise self._journal.violation(f"Ended children are not collected: {sorted(zombies & self._zombies)}")
        self._zombies = zombies

    def look_at_files(self, ended: bool = False) -> None:
        """`ended`: the service does not run any more."""
        for index, name in enumerate(("bayward.log", "bayward.log.bak")):
            path = self._watched.host.log_dir / name
            try:
                size = path.stat().st_size
            except FileNotFoundError:
                continue
            self.largest_logs[index] = max(self.largest_logs[index], size)
            if size > LOG_KIB * 1024:
                raise self._journal.violation(f"{path.name} has {size} bytes; {LOG_KIB} KiB are allowed.")
        archives = self.archives()
        # An archive is one too many until it is pruned; those that lay there are pruned after the first saving.
        allowed = (ARCHIVES if self.saved() else max(ARCHIVES, self._placed_archives)) + (0 if ended else 1)
        if len(archives) > allowed:
            raise self._journal.violation(f"There are {len(archives)} archives; {allowed} are allowed.")
        if ended and self._watched.left_files():
            raise self._journal.violation(f"Working files are left: {sorted(self._watched.left_files())}")

    def archives(self) -> List[str]:
        return [path.name for path in self._watched.host.log_dir.glob("serial_log_*.zip")]

    def saved(self) -> bool:
        """Whether the service has saved archives, and pruned those that lay there."""
        return len([name for name in self.archives() if not name.startswith("serial_log_2020")]) > 1
