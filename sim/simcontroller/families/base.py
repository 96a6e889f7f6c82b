"""What every storage family offers to the shortcuts of the control socket."""

from __future__ import annotations

import copy
from abc import ABC, abstractmethod
from typing import Any, Dict, List, NamedTuple

from ..errors import UseError
from ..tree import ResourceTree, canonical

# Member (dotted path) -> value it gets.
Changes = Dict[str, Any]

SYSTEM = "/redfish/v1/Systems/1"


class Amount(NamedTuple):
    """How much one controller has: drives, how many of them SSDs (the first ones), and volumes."""

    drives: int
    ssds: int
    volumes: int

    def media(self, drive: int) -> str:
        return "SSD" if drive < self.ssds else "HDD"


class Identity(NamedTuple):
    """Who a controller is, in whatever resources it is shown: model, slot, its family's letters, its number there."""

    model: str
    slot: int
    letters: str
    number: int

    def serial(self, part: str = "CTRL") -> str:
        return f"SIM{self.letters}{self.number:04d}{part}"

    def drive_serial(self, drive: int) -> str:
        return f"SIM{self.letters}{self.number:02d}D{drive:04d}"


class StorageController(ABC):
    """One storage controller in the tree. Drives and volumes are counted from 1 and keep their number when removed."""

    #: What the members become when a drive fails, when its failure is predicted, when a volume goes offline.
    #: The last two are left empty by a family that says in REFUSALS why it has no such change.
    FAILED_DRIVE: Changes
    PREDICTED_DRIVE: Changes = {}
    OFFLINE_VOLUME: Changes = {}
    #: Changes that make no sense for the family ("predict", "wear", "add", "bay", "volume") -> why, as a sentence.
    REFUSALS: Dict[str, str] = {"bay": "empty bays are not listed; use remove-drive."}

    def __init__(self, tree: ResourceTree, name: str) -> None:
        self._tree = tree
        self.name = name
        self.drives: List[str] = []
        self.volumes: List[str] = []
        #: Resources that stand for the controller in the server's collections, by collection; links to them and all
        #: below them go when the controller does.
        self.arrays: List[str] = []
        self.storages: List[str] = []
        self.enclosures: List[str] = []
        #: The same controller as the server shows it in each family of resources; drives and volumes correspond.
        self.views: List[StorageController] = [self]
        self._new: Dict[str, Dict[str, Any]] = {}

    @abstractmethod
    def wear_changes(self, percent: int) -> Changes:
        """The members of an SSD of which `percent` of the rated life is used."""

    def add_drive(self, media: str) -> str:
        """Add an unconfigured drive ("SSD" or "HDD") and return its path."""
        self._permit("add")
        return self._add_unconfigured(media)

    @abstractmethod
    def _add_unconfigured(self, media: str) -> str:
        """What add_drive does, for a family that does not refuse it."""

    @property
    def resources(self) -> List[str]:
        return [*self.arrays, *self.storages, *self.enclosures]

    def fail_drive(self, number: int) -> str:
        return self._apply(self.drive(number), self.FAILED_DRIVE)

    def predict_drive(self, number: int) -> str:
        self._permit("predict")
        return self._apply(self.drive(number), self.PREDICTED_DRIVE)

    def wear_drive(self, number: int, percent: int) -> str:
        self._permit("wear")
        path = self.drive(number)
        if self._tree.read(path).get("MediaType") != "SSD":
            raise UseError(f"Drive {number} of {self.name} is no SSD and does not wear; name one of its SSDs.")
        return self._apply(path, self.wear_changes(percent))

    def heal_drive(self, number: int) -> str:
        return self._renew(self.drive(number))

    def set_drive_status(self, number: int, member: str, word: Any) -> str:
        return self._apply(self.drive(number), {f"Status.{member}": word})

    def remove_drive(self, number: int) -> str:
        path = self.drive(number)
        self._tree.remove(path)
        return path

    def restore_drive(self, number: int) -> str:
        """Put back a drive that was pulled, with or without its bay listed."""
        path = self.drive(number)
        self._tree.restore(path)
        return path

    def offline_volume(self, number: int) -> str:
        return self._apply(self.volume(number), self.OFFLINE_VOLUME)

    def heal_volume(self, number: int) -> str:
        return self._renew(self.volume(number))

    def set_volume_status(self, number: int, member: str, word: Any) -> str:
        return self._apply(self.volume(number), {f"Status.{member}": word})

    def empty_bay(self, number: int) -> str:
        """Pull a drive whose bay is listed as empty until it is restored, and return the path of the bay."""
        self._permit("bay")
        raise NotImplementedError(type(self).__name__)

    def remove(self) -> None:
        """The whole controller disappears."""
        for path in self.resources:
            self._tree.remove(path)

    def restore(self) -> None:
        for path in self.resources:
            self._tree.restore(path)

    def drive(self, number: int) -> str:
        return self._numbered(self.drives, number, "drive")

    def volume(self, number: int) -> str:
        self._permit("volume")
        return self._numbered(self.volumes, number, "volume")

    def _numbered(self, items: List[str], number: int, what: str) -> str:
        if not 1 <= number <= len(items):
            has = f"{what}s 1 to {len(items)}" if items else f"no {what}s"
            raise UseError(f"There is no {what} {number} on {self.name}; it has {has}.")
        return items[number - 1]

    def _permit(self, change: str) -> None:
        if change in self.REFUSALS:
            raise UseError(f"{self.name}: {self.REFUSALS[change]}")

    def _remember(self, path: str) -> str:
        """Keep the resource as it is now, for heal."""
        self._new[canonical(path)] = self._tree.read(path)
        return path

    def _apply(self, path: str, changes: Changes) -> str:
        for member, value in changes.items():
            self._tree.put(path, member, copy.deepcopy(value))
        return path

    def _renew(self, path: str) -> str:
        self._tree.set(path, ".", copy.deepcopy(self._new[path]))
        return path


def spread(count: int, groups: int) -> List[List[int]]:
    """The numbers 0..count-1 dealt into consecutive groups of about the same size."""
    bounds = [round(g * count / groups) for g in range(groups + 1)] if groups else []
    return [list(range(a, b)) for a, b in zip(bounds, bounds[1:])]
