"""What all families of Redfish Storage resources share: the Storage resource, its controller, drives and volumes."""

from __future__ import annotations

from abc import abstractmethod
from typing import Any, Dict, List

from ..tree import LINK, ResourceTree
from .base import SYSTEM, Amount, Changes, Identity, StorageController, spread


def links(paths: List[str]) -> List[Dict[str, str]]:
    return [{LINK: path} for path in paths]


def counted(name: str, paths: List[str]) -> Dict[str, Any]:
    """A list of links with the count beside it."""
    return {f"{name}@odata.count": len(paths), name: links(paths)}


def part_location(label: str, kind: str, ordinal: int) -> Dict[str, Any]:
    return {"PartLocation": {"ServiceLabel": label, "LocationType": kind, "LocationOrdinalValue": ordinal}}


def raid_type(drives: int) -> str:
    return "RAID0" if drives < 2 else "RAID1" if drives == 2 else "RAID5"


class RedfishController(StorageController):
    """One Storage resource. A family says below what it looks like, and builds the bodies."""

    #: The controller as an element of the Storage resource, as the member of a linked collection, or as both.
    EMBEDDED = False
    LINKED = False
    #: The storage device answers itself, with links that never end in a slash.
    FROM_DEVICE = True
    VOLUMES = True
    #: Volumes are counted up or down from here.
    FIRST_VOLUME = 1
    VOLUME_STEP = 1

    FAILED_DRIVE: Changes = {"Status.Health": "Critical"}
    OFFLINE_VOLUME: Changes = {"Status.Health": "Critical", "Status.State": "Disabled"}

    def __init__(self, tree: ResourceTree, storage_id: str, name: str, identity: Identity) -> None:
        super().__init__(tree, name)
        self.id = storage_id
        self.path = f"{SYSTEM}/Storage/{storage_id}"
        self.storages = [self.path]
        self._identity = identity

    def _build(self, amount: Amount) -> None:
        groups = spread(amount.drives, amount.volumes)
        volume_of = {drive: self._volume_path(number) for number, group in enumerate(groups) for drive in group}
        for drive in range(amount.drives):
            self._add_drive(amount.media(drive), [volume_of[drive]] if drive in volume_of else [])
        for number, group in enumerate(groups):
            path = self._add(self._volume_path(number), self._volume(number, [self.drives[drive] for drive in group]))
            self.volumes.append(path)
            self._remember(path)
        self._add(self.path, self._storage())
        if self.LINKED:
            entry = self._add(f"{self.path}/Controllers/0", self._linked_controller())
            self._add_collection(f"{self.path}/Controllers", "StorageControllerCollection",
                                 "Storage Controller Collection", [entry])
        if self.VOLUMES:
            self._add_collection(f"{self.path}/Volumes", "VolumeCollection", self._volumes_name(), self.volumes)

    # --- what a family says ---

    @abstractmethod
    def _drive_path(self, number: int) -> str:
        """The path of the drive with this index, counted from 0."""

    @abstractmethod
    def _drive(self, number: int, media: str, volumes: List[str]) -> Dict[str, Any]:
        """The body of a drive that these volumes use."""

    @abstractmethod
    def _volume(self, number: int, drives: List[str]) -> Dict[str, Any]:
        """The body of a volume made of these drives."""

    @abstractmethod
    def _storage(self) -> Dict[str, Any]:
        """The body of the Storage resource."""

    @abstractmethod
    def _linked_controller(self) -> Dict[str, Any]:
        """The body of the controller in its collection, for a family that links it."""

    def _volumes_name(self) -> str:
        return "Volume Collection"

    # --- what is the same for all ---

    def _drive_link(self, path: str) -> str:
        """The form of links to a drive."""
        return path

    def _volume_id(self, number: int) -> int:
        return self.FIRST_VOLUME + number * self.VOLUME_STEP

    def _volume_path(self, number: int) -> str:
        return f"{self.path}/Volumes/{self._volume_id(number)}"

    def _add_drive(self, media: str, volumes: List[str]) -> str:
        number = len(self.drives)
        path = self._add(self._drive_path(number), self._drive(number, media, volumes))
        self.drives.append(path)
        return self._remember(path)

    def _add_unconfigured(self, media: str) -> str:
        path = self._add_drive(media, [])
        self._tree.append_link(self.path, "Drives", self._drive_link(path))
        return path

    def _add(self, path: str, body: Dict[str, Any]) -> str:
        return self._tree.add(path, body, self.FROM_DEVICE)

    def _add_collection(self, path: str, kind: str, name: str, found: List[str]) -> str:
        return self._tree.add_collection(path, kind, name, found, self.FROM_DEVICE)
