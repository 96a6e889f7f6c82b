"""What every storage family offers to the shortcuts of the control socket."""

from __future__ import annotations

import copy
from abc import ABC, abstractmethod
from typing import Any, Dict, List

from ..errors import UseError
from ..tree import ResourceTree, canonical

# Member (dotted path) -> value it gets.
Changes = Dict[str, Any]


class StorageController(ABC):
    """One storage controller in the tree. Drives and volumes are counted from 1 and keep their number when removed."""

    #: What the members become when a drive fails, when its failure is predicted, when a volume goes offline.
    FAILED_DRIVE: Changes
    PREDICTED_DRIVE: Changes
    OFFLINE_VOLUME: Changes

    def __init__(self, tree: ResourceTree, name: str) -> None:
        self._tree = tree
        self.name = name
        self.drives: List[str] = []
        self.volumes: List[str] = []
        self._new: Dict[str, Dict[str, Any]] = {}

    @abstractmethod
    def wear_changes(self, percent: int) -> Changes:
        """The members of an SSD of which `percent` of the rated life is used."""

    @abstractmethod
    def add_drive(self, media: str) -> str:
        """Add an unconfigured drive ("SSD" or "HDD") and return its path."""

    def fail_drive(self, number: int) -> str:
        return self._apply(self.drive(number), self.FAILED_DRIVE)

    def predict_drive(self, number: int) -> str:
        return self._apply(self.drive(number), self.PREDICTED_DRIVE)

    def wear_drive(self, number: int, percent: int) -> str:
        path = self.drive(number)
        if self._tree.read(path).get("MediaType") != "SSD":
            raise UseError(f"Drive {number} of {self.name} is no SSD and does not wear; name one of its SSDs.")
        return self._apply(path, self.wear_changes(percent))

    def heal_drive(self, number: int) -> str:
        return self._renew(self.drive(number))

    def offline_volume(self, number: int) -> str:
        return self._apply(self.volume(number), self.OFFLINE_VOLUME)

    def heal_volume(self, number: int) -> str:
        return self._renew(self.volume(number))

    def drive(self, number: int) -> str:
        return self._numbered(self.drives, number, "drive")

    def volume(self, number: int) -> str:
        return self._numbered(self.volumes, number, "volume")

    def _numbered(self, items: List[str], number: int, what: str) -> str:
        if not 1 <= number <= len(items):
            has = f"{what}s 1 to {len(items)}" if items else f"no {what}s"
            raise UseError(f"There is no {what} {number} on {self.name}; it has {has}.")
        return items[number - 1]

    def _remember(self, path: str) -> str:
        """Keep the resource as it is now, for heal."""
        self._new[canonical(path)] = self._tree.read(path)
        return path

    def _apply(self, path: str, changes: Changes) -> str:
        for member, value in changes.items():
            self._tree.put(path, member, copy.deepcopy(value))
        return path

    def _renew(self, path: str) -> str:
        # Links stay: they belong to what was removed or added meanwhile, not to the item's health.
        for member, value in self._new[path].items():
            if member != "Links":
                self._tree.put(path, member, copy.deepcopy(value))
        return path


def spread(count: int, groups: int) -> List[List[int]]:
    """The numbers 0..count-1 dealt into consecutive groups of about the same size."""
    bounds = [round(g * count / groups) for g in range(groups + 1)] if groups else []
    return [list(range(a, b)) for a, b in zip(bounds, bounds[1:])]
