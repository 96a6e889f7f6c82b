"""Smart Array controllers: resources below Systems/1/SmartStorage of an iLO 5."""

from __future__ import annotations

from typing import Any, Dict, List

from ..tree import LINK, ResourceTree
from .base import SYSTEM, Amount, Changes, Identity, StorageController, spread

COLLECTION = f"{SYSTEM}/SmartStorage/ArrayControllers"

# Model, size in MiB, logical blocks of 512 bytes, size in GB, firmware.
_SSD = ("VK000960GWTEST", 915715, 1875385008, 960, "HPG3")
_HDD = ("EG001200JWTEST", 1144641, 2344225968, 1200, "HPD4")


class SmartArray(StorageController):
    """One Smart Array controller, its drives dealt over its volumes. `index`: its place in ArrayControllers."""

    FAILED_DRIVE: Changes = {"Status.Health": "Critical", "DiskDriveStatusReasons": ["Failed"]}
    PREDICTED_DRIVE: Changes = {"Status.Health": "Warning", "DiskDriveStatusReasons": ["PredictiveFail"]}
    OFFLINE_VOLUME: Changes = {"Status.Health": "Critical", "Status.State": "Disabled",
                               "LogicalDriveStatusReasons": ["Failed"]}

    def __init__(self, tree: ResourceTree, index: int, identity: Identity, amount: Amount, wear_scale: int) -> None:
        super().__init__(tree, f"Smart Array controller in slot {identity.slot}")
        self._index = index
        self._identity = identity
        self._wear_scale = wear_scale
        self.path = f"{COLLECTION}/{index}"
        self.arrays = [self.path]
        groups = spread(amount.drives, amount.volumes)
        used = {drive for group in groups for drive in group}
        self._add_controller()
        for drive in range(amount.drives):
            self._add_drive(amount.media(drive), "Data" if drive in used else "Unconfigured")
        for group in groups:
            self._add_volume(group)
        self._add_collections([drive for drive in range(amount.drives) if drive not in used])

    def wear_changes(self, percent: int) -> Changes:
        return {"SSDEnduranceUtilizationPercentage": percent * self._wear_scale}

    def _add_unconfigured(self, media: str) -> str:
        path = self._add_drive(media, "Unconfigured")
        self._tree.append_link(f"{self.path}/DiskDrives", "Members", path)
        self._tree.append_link(f"{self.path}/UnconfiguredDrives", "Members", path)
        return path

    def _add_controller(self) -> None:
        links = {name: {LINK: f"{self.path}/{part}"} for name, part in (
            ("LogicalDrives", "LogicalDrives"), ("PhysicalDrives", "DiskDrives"),
            ("StorageEnclosures", "StorageEnclosures"), ("UnconfiguredDrives", "UnconfiguredDrives"))}
        self._tree.add(self.path, {
            "@odata.type": "#HpeSmartStorageArrayController.v2_2_0.HpeSmartStorageArrayController",
            "AdapterType": "SmartArray", "BackupPowerSourceStatus": "Present", "CurrentOperatingMode": "Mixed",
            "Description": "HPE Smart Storage Array Controller View", "ExternalPortCount": 0,
            "FirmwareVersion": {"Current": {"VersionString": "5.00"}}, "HardwareRevision": "B",
            "Id": str(self._index), "InternalPortCount": 2, "Links": links, "Location": f"Slot {self._identity.slot}",
            "LocationFormat": "PCISlot", "Model": self._identity.model,
            "Name": "HpeSmartStorageArrayController",
            # Controllers pad the number with a blank.
            "SerialNumber": f"{self._identity.serial()} ", "Status": {"Health": "OK", "State": "Enabled"}})

    def _add_drive(self, media: str, use: str) -> str:
        number = len(self.drives)
        model, mebibytes, blocks, gigabytes, firmware = _SSD if media == "SSD" else _HDD
        # Eight bays to a box, four to a port.
        port = "1I" if number % 8 < 4 else "2I"
        body: Dict[str, Any] = {
            "@odata.type": "#HpeSmartStorageDiskDrive.v2_1_0.HpeSmartStorageDiskDrive", "BlockSizeBytes": 512,
            "CapacityGB": gigabytes, "CapacityLogicalBlocks": blocks, "CapacityMiB": mebibytes,
            "CarrierAuthenticationStatus": "OK", "CurrentTemperatureCelsius": 29,
            "Description": "HPE Smart Storage Disk Drive View", "DiskDriveStatusReasons": ["None"],
            "DiskDriveUse": use, "EncryptedDrive": False,
            "FirmwareVersion": {"Current": {"VersionString": firmware}}, "Id": str(number),
            "InterfaceSpeedMbps": 6000 if media == "SSD" else 12000, "InterfaceType": "SATA" if media == "SSD" else "SAS",
            "Location": f"{port}:{number // 8 + 1}:{number % 8 + 1}", "LocationFormat": "ControllerPort:Box:Bay",
            "MaximumTemperatureCelsius": 45, "MediaType": media, "Model": model, "Name": "HpeSmartStorageDiskDrive",
            "PowerOnHours": 1200 if media == "SSD" else None,
            # Hard disks have no wear: the member is there and null.
            "SSDEnduranceUtilizationPercentage": 2 * self._wear_scale if media == "SSD" else None,
            "SerialNumber": self._identity.drive_serial(number), "Status": {"Health": "OK", "State": "Enabled"}}
        if media == "HDD":
            body["RotationalSpeedRpm"] = 10000
        path = self._tree.add(f"{self.path}/DiskDrives/{number}", body)
        self.drives.append(path)
        return self._remember(path)

    def _add_volume(self, group: List[int]) -> None:
        number = len(self.volumes) + 1
        path = f"{self.path}/LogicalDrives/{number}"
        raid = "0" if len(group) < 2 else "1" if len(group) == 2 else "5"
        data = f"{path}/DataDrives"
        self._tree.add(path, {
            "@odata.type": "#HpeSmartStorageLogicalDrive.v2_3_0.HpeSmartStorageLogicalDrive", "CapacityMiB": 915683,
            "Description": "HPE Smart Storage Logical Drive View", "Id": str(number), "InterfaceType": "SATA",
            "Links": {"DataDrives": {LINK: data}}, "LogicalDriveEncryption": False,
            "LogicalDriveName": f"Logical Drive {number}", "LogicalDriveNumber": number,
            "LogicalDriveStatusReasons": ["Ok"], "LogicalDriveType": "Data", "Name": "HpeSmartStorageLogicalDrive",
            "Raid": raid, "Status": {"Health": "OK", "State": "Enabled"}, "StripeSizeBytes": 262144,
            "VolumeUniqueIdentifier": f"600508B1001C{self._index:04X}{number:016X}"})
        self._tree.add_collection(data, "HpeSmartStorageDiskDriveCollection", "HpeSmartStorageDiskDrives",
                                  [self.drives[drive] for drive in group])
        self.volumes.append(path)
        self._remember(path)

    def _add_collections(self, unconfigured: List[int]) -> None:
        for part, kind, found in (
                ("DiskDrives", "DiskDrive", self.drives),
                ("UnconfiguredDrives", "DiskDrive", [self.drives[drive] for drive in unconfigured]),
                ("LogicalDrives", "LogicalDrive", self.volumes), ("StorageEnclosures", "StorageEnclosure", [])):
            self._tree.add_collection(f"{self.path}/{part}", f"HpeSmartStorage{kind}Collection",
                                      f"HpeSmartStorage{kind}s", found)
