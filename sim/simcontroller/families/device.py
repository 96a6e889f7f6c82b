"""Storage devices that answer for themselves (MR, SR, NS204i): ids DE..., links without trailing slash."""

from __future__ import annotations

import copy
from abc import abstractmethod
from typing import Any, Dict, List, NamedTuple, Optional, Set, Tuple

from ..tree import LINK
from .base import Amount, Changes, Identity
from .redfish import RedfishController, counted, links, part_location, raid_type
from .site import Site


class DriveModel(NamedTuple):
    """What a drive says of itself. `size` in bytes, `speed` in gigabits a second."""

    name: str
    model: str
    size: int
    revision: str
    protocol: str
    speed: float


class DeviceController(RedfishController):
    """A device of either age: older firmware embeds the controller, newer firmware links it."""

    LETTERS: str
    #: Drives are resources below Chassis, in an enclosure; else below the Storage resource.
    CHASSIS = False
    #: Empty bays are in the Storage resource's own Drives too, not in the enclosure's alone.
    BAYS_ARE_DRIVES = False
    MODELS: Dict[str, DriveModel]
    #: State of a good drive that no volume uses.
    UNUSED_STATE = "Enabled"
    #: The life left is sent as a real, by older boot devices as a whole number.
    LIFE_LEFT: type = float
    NEW_LIFE_LEFT = 98
    #: The conditions that good drives and volumes list beside health and state; None: no such list.
    CONDITIONS: Optional[List[Dict[str, Any]]] = None
    VOLUME_NAME = "Logical Drive {}"
    #: Logical unit number of every volume.
    UNIT = 1
    RAID_TYPES: Tuple[str, ...] = ("None", "RAID0", "RAID1", "RAID10", "RAID5")
    FIRMWARE: str
    STORAGE_MORE: Dict[str, Any] = {}

    FAILED_DRIVE: Changes = {"Status.Health": "Critical", "Status.State": "UnavailableOffline",
                             "StatusIndicator": "Fail"}
    PREDICTED_DRIVE: Changes = {"Status.Health": "Warning", "FailurePredicted": True,
                                "StatusIndicator": "PredictiveFailureAnalysis"}

    def __init__(self, site: Site, amount: Amount, title: str, model: str) -> None:
        device = site.next("device")
        identity = Identity(model, 14 + device, self.LETTERS, site.next(self.LETTERS))
        super().__init__(site.tree, f"DE{0x00A + device:03X}000", f"{title} in slot {identity.slot}", identity)
        self.chassis = f"/redfish/v1/Chassis/{self.id}"
        # By the drive's number: the paths of the bays that were ever listed, and which of them are listed now.
        self._bays: Dict[int, str] = {}
        self._empty: Set[int] = set()
        self._build(amount)
        if self.CHASSIS:
            self.enclosures = [self.chassis]
            self._add_enclosure()

    def wear_changes(self, percent: int) -> Changes:
        return {"PredictedMediaLifeLeftPercent": self.LIFE_LEFT(100 - percent)}

    def empty_bay(self, number: int) -> str:
        self._permit("bay")
        self.remove_drive(number)
        if number in self._bays:
            self._tree.restore(self._bays[number])
        else:
            self._bays[number] = self._add_bay(number - 1)
        self._empty.add(number)
        return self._bays[number]

    def restore_drive(self, number: int) -> str:
        path = super().restore_drive(number)
        if number in self._empty:
            self._empty.remove(number)
            self._tree.remove(self._bays[number])
        return path

    # --- what a family says ---

    @abstractmethod
    def _label(self, number: int) -> str:
        """The place of the drive with this index."""

    def _bay(self, number: int) -> int:
        """The last number of the label."""
        return number % 8 + 1

    def _drive_id(self, number: int) -> str:
        return str(number)

    # --- bodies ---

    def _drive_path(self, number: int) -> str:
        return f"{self.chassis if self.CHASSIS else self.path}/Drives/{self._drive_id(number)}"

    def _status(self, state: str = "Enabled") -> Dict[str, Any]:
        status: Dict[str, Any] = {"State": state, "Health": "OK"}
        if self.CONDITIONS is not None:
            status["Conditions"] = copy.deepcopy(self.CONDITIONS)
        return status

    def _owner_links(self) -> Dict[str, Any]:
        """The links up from a drive, which older firmware does not send."""
        if self.EMBEDDED:
            return {}
        return {"Storage": {LINK: self.path}, **({"Chassis": {LINK: self.chassis}} if self.CHASSIS else {})}

    def _drive(self, number: int, media: str, volumes: List[str]) -> Dict[str, Any]:
        kind = self.MODELS[media]
        body: Dict[str, Any] = {
            "@odata.type": "#Drive.v1_7_0.Drive" if self.EMBEDDED else "#Drive.v1_17_0.Drive",
            "Id": self._drive_id(number), "Name": kind.name,
            "Status": self._status("Enabled" if volumes else self.UNUSED_STATE),
            "Links": {**self._owner_links(), **counted("Volumes", volumes)},
            "PhysicalLocation": part_location(self._label(number), "Bay", self._bay(number)),
            "BlockSizeBytes": 512, "CapableSpeedGbs": kind.speed, "CapacityBytes": kind.size,
            "EncryptionStatus": "Unencrypted", "FailurePredicted": False, "MediaType": media}
        body.update({"IndicatorLED": "Off"} if self.EMBEDDED else {"Manufacturer": "HPE"})
        body["Model"] = kind.model
        if not self.EMBEDDED:
            body["Multipath"] = False
        body.update({"Operations": [], "Protocol": kind.protocol, "Revision": kind.revision,
                     "SerialNumber": self._identity.drive_serial(number), "StatusIndicator": "OK",
                     "HotspareType": "None"})
        if media == "SSD":
            body["PredictedMediaLifeLeftPercent"] = self.LIFE_LEFT(self.NEW_LIFE_LEFT)
        return body

    def _volume(self, number: int, drives: List[str]) -> Dict[str, Any]:
        count = self._volume_id(number)
        return {
            "@odata.type": "#Volume.v1_4_0.Volume" if self.EMBEDDED else "#Volume.v1_9_0.Volume", "Id": str(count),
            "Name": self.VOLUME_NAME.format(count), "Status": self._status(),
            "Links": {**counted("Drives", drives), **counted("DedicatedSpareDrives", [])},
            "BlockSizeBytes": 512, "CapacityBytes": 479559942144,
            "DisplayName": f"VD_{number if self.UNIT == 0 else count}", "Encrypted": False,
            "LogicalUnitNumber": self.UNIT, "Operations": [], "RAIDType": raid_type(len(drives)),
            "StripSizeBytes": 262144, "VolumeUsage": "Data"}

    def _volumes_name(self) -> str:
        return f"{self.LETTERS} Volume Collection"

    def _storage(self) -> Dict[str, Any]:
        body: Dict[str, Any] = {
            "@odata.type": "#Storage.v1_7_1.Storage" if self.EMBEDDED else "#Storage.v1_15_0.Storage", "Id": self.id,
            "Name": self._identity.model,
            # A device that speaks for itself rolls its health up and has none of its own.
            "Status": {"State": "Enabled", "HealthRollup": "OK"}, **self.STORAGE_MORE}
        if self.LINKED:
            body["Controllers"] = {LINK: f"{self.path}/Controllers"}
        body.update(counted("Drives", self.drives))
        if self.CHASSIS:
            body["Links"] = counted("Enclosures", [self.chassis])
        if self.EMBEDDED:
            body["StorageControllers"] = [{LINK: f"{self.path}#/StorageControllers/0", "MemberId": "0",
                                           **self._controller(f"Slot {self._identity.slot}")}]
        body["Volumes"] = {LINK: f"{self.path}/Volumes"}
        return body

    def _controller(self, label: str) -> Dict[str, Any]:
        return {"FirmwareVersion": self.FIRMWARE, "Location": part_location(label, "Slot", self._identity.slot),
                "Manufacturer": "HPE", "Model": self._identity.model, "SerialNumber": self._identity.serial(),
                "Status": {"State": "Enabled", "Health": "OK"}, "SupportedRAIDTypes": list(self.RAID_TYPES)}

    def _linked_controller(self) -> Dict[str, Any]:
        return {"@odata.type": "#StorageController.v1_7_0.StorageController", "Id": "0",
                "Name": self._identity.model, **self._controller(f"Slot={self._identity.slot}")}

    # --- the enclosure ---

    def _add_enclosure(self) -> None:
        self._add(self.chassis, {
            "@odata.type": "#Chassis.v1_23_0.Chassis", "Id": self.id, "Name": "8 SFF 24G x1NVMe/SAS BC BP",
            "ChassisType": "StorageEnclosure", "Drives": {LINK: f"{self.chassis}/Drives"},
            "Links": {"ContainedBy": {LINK: "/redfish/v1/Chassis/1"}, "Storage": links([self.path])},
            "Manufacturer": "HPE", "SerialNumber": self._identity.serial("CAGE"),
            "Status": {"State": "Enabled", "Health": "OK"}})
        self._add_collection(f"{self.chassis}/Drives", "DriveCollection", "Drive Collection", self.drives)

    def _add_unconfigured(self, media: str) -> str:
        path = super()._add_unconfigured(media)
        if self.CHASSIS:
            self._tree.append_link(f"{self.chassis}/Drives", "Members", path)
        return path

    def _add_bay(self, number: int) -> str:
        """An empty bay looks like a drive that has no more than a place: no model, size, serial number or volumes."""
        bay = str(0xFC00 + number + 1)
        path = self._add(f"{self.chassis}/Drives/{bay}", {
            "@odata.type": "#Drive.v1_17_0.Drive", "Id": bay, "Name": "Empty Bay",
            "Status": {"State": "Absent", "Health": "OK"}, "Links": self._owner_links(),
            "PhysicalLocation": part_location(self._label(number), "Bay", self._bay(number)), "Operations": []})
        self._tree.append_link(f"{self.chassis}/Drives", "Members", path)
        if self.BAYS_ARE_DRIVES:
            self._tree.append_link(self.path, "Drives", path)
        return path
