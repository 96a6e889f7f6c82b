"""HPE MR Gen11 controllers: a Redfish Storage resource with a linked controller, drives below Chassis."""

from __future__ import annotations

from typing import Any, Dict, List

from ..tree import LINK, ResourceTree
from .base import Changes, StorageController, spread

# Volumes are counted down from here.
_FIRST_VOLUME = 239
# Name, model, size in bytes, revision.
_SSD = ("480GB 6G SATA SSD", "XX000480TEST", 480103981056, "T001")
_HDD = ("1.2TB 12G SAS HDD", "XX001200TEST", 1200243695616, "T004")


class MegaRaid(StorageController):
    """One MR controller with `drives` drives, the first `ssds` of them SSDs, dealt over `volumes` volumes."""

    FAILED_DRIVE: Changes = {"Status.Health": "Critical", "Status.State": "UnavailableOffline",
                             "StatusIndicator": "Fail"}
    PREDICTED_DRIVE: Changes = {"Status.Health": "Warning", "FailurePredicted": True,
                                "StatusIndicator": "PredictiveFailureAnalysis"}
    OFFLINE_VOLUME: Changes = {"Status.Health": "Critical", "Status.State": "Disabled"}

    def __init__(self, tree: ResourceTree, index: int, drives: int, ssds: int, volumes: int) -> None:
        self._slot = 14 + index
        super().__init__(tree, f"MR controller in slot {self._slot}")
        self._index = index
        self.id = f"DE{0x00A + index:03X}000"
        self.path = f"/redfish/v1/Systems/1/Storage/{self.id}"
        self.chassis = f"/redfish/v1/Chassis/{self.id}"
        groups = spread(drives, volumes)
        volume_of = {drive: number for number, group in enumerate(groups) for drive in group}
        for drive in range(drives):
            self._add_drive("SSD" if drive < ssds else "HDD",
                            [self._volume_path(volume_of[drive])] if drive in volume_of else [])
        for number, group in enumerate(groups):
            self._add_volume(number, group)
        self._add_controller()

    def wear_changes(self, percent: int) -> Changes:
        # Devices send a real.
        return {"PredictedMediaLifeLeftPercent": float(100 - percent)}

    def add_drive(self, media: str) -> str:
        path = self._add_drive(media, [])
        self._tree.append_link(self.path, "Drives", path)
        self._tree.append_link(f"{self.chassis}/Drives", "Members", path)
        return path

    def _volume_path(self, number: int) -> str:
        return f"{self.path}/Volumes/{_FIRST_VOLUME - number}"

    def _add_drive(self, media: str, volumes: List[str]) -> str:
        number = len(self.drives)
        name, model, size, revision = _SSD if media == "SSD" else _HDD
        bay = number % 8 + 1
        label = f"Slot={self._slot}:Port={1 + number % 8 // 4}:Box={number // 8 + 1}:Bay={bay}"
        body: Dict[str, Any] = {
            "@odata.type": "#Drive.v1_17_0.Drive", "Id": str(number), "Name": name,
            # A good drive that no volume uses is reported as standing by.
            "Status": {"State": "Enabled" if volumes else "StandbyOffline", "Health": "OK"},
            "Links": {"Storage": {LINK: self.path}, "Chassis": {LINK: self.chassis},
                      "Volumes@odata.count": len(volumes), "Volumes": [{LINK: path} for path in volumes]},
            "PhysicalLocation": {"PartLocation": {"ServiceLabel": label, "LocationType": "Bay",
                                                  "LocationOrdinalValue": bay}},
            "BlockSizeBytes": 512, "CapableSpeedGbs": 6.0 if media == "SSD" else 12.0, "CapacityBytes": size,
            "EncryptionStatus": "Unencrypted", "FailurePredicted": False, "MediaType": media, "Manufacturer": "HPE",
            "Model": model, "Multipath": False, "Operations": [],
            "Protocol": "SATA" if media == "SSD" else "SAS", "Revision": revision,
            "SerialNumber": f"SIMMR{self._index:02d}D{number:04d}", "StatusIndicator": "OK", "HotspareType": "None"}
        if media == "SSD":
            body["PredictedMediaLifeLeftPercent"] = 98.0
        path = self._tree.add(f"{self.chassis}/Drives/{number}", body, from_device=True)
        self.drives.append(path)
        return self._remember(path)

    def _add_volume(self, number: int, group: List[int]) -> None:
        path = self._volume_path(number)
        raid = "RAID0" if len(group) < 2 else "RAID1" if len(group) == 2 else "RAID5"
        links = [{LINK: self.drives[drive]} for drive in group]
        self._tree.add(path, {
            "@odata.type": "#Volume.v1_9_0.Volume", "Id": str(_FIRST_VOLUME - number),
            "Name": f"MR Volume {_FIRST_VOLUME - number}", "Status": {"State": "Enabled", "Health": "OK"},
            "Links": {"Drives@odata.count": len(links), "Drives": links, "DedicatedSpareDrives@odata.count": 0,
                      "DedicatedSpareDrives": []},
            "BlockSizeBytes": 512, "CapacityBytes": 479559942144, "DisplayName": f"VD_{number}", "Encrypted": False,
            "LogicalUnitNumber": 0, "Operations": [], "RAIDType": raid, "StripSizeBytes": 262144,
            "VolumeUsage": "Data"}, from_device=True)
        self.volumes.append(path)
        self._remember(path)

    def _add_controller(self) -> None:
        model = "HPE MR416i-o Gen11"
        entry = f"{self.path}/Controllers/0"
        self._tree.add(self.path, {
            "@odata.type": "#Storage.v1_15_0.Storage", "Id": self.id, "Name": model,
            # A device that speaks for itself rolls its health up and has none of its own.
            "Status": {"State": "Enabled", "HealthRollup": "OK"}, "AutoVolumeCreate": "Disabled",
            "Controllers": {LINK: f"{self.path}/Controllers"}, "Drives@odata.count": len(self.drives),
            "Drives": [{LINK: path} for path in self.drives],
            "Links": {"Enclosures@odata.count": 1, "Enclosures": [{LINK: self.chassis}]},
            "Volumes": {LINK: f"{self.path}/Volumes"}}, from_device=True)
        self._tree.add_collection(f"{self.path}/Controllers", "StorageControllerCollection",
                                  "Storage Controller Collection", [entry], from_device=True)
        self._tree.add(entry, {
            "@odata.type": "#StorageController.v1_7_0.StorageController", "Id": "0", "Name": model,
            "FirmwareVersion": "52.30.3-5917",
            "Location": {"PartLocation": {"ServiceLabel": f"Slot={self._slot}", "LocationType": "Slot",
                                          "LocationOrdinalValue": self._slot}},
            "Manufacturer": "HPE", "Model": model, "SerialNumber": f"SIMMR{self._index:04d}CTRL",
            "Status": {"State": "Enabled", "Health": "OK"},
            "SupportedRAIDTypes": ["None", "RAID0", "RAID1", "RAID10", "RAID5"]}, from_device=True)
        self._tree.add_collection(f"{self.path}/Volumes", "VolumeCollection", "MR Volume Collection", self.volumes,
                                  from_device=True)
        self._tree.add(self.chassis, {
            "@odata.type": "#Chassis.v1_23_0.Chassis", "Id": self.id, "Name": "8 SFF 24G x1NVMe/SAS BC BP",
            "ChassisType": "StorageEnclosure", "Drives": {LINK: f"{self.chassis}/Drives"},
            "Links": {"ContainedBy": {LINK: "/redfish/v1/Chassis/1"}, "Storage": [{LINK: self.path}]},
            "Manufacturer": "HPE", "SerialNumber": f"SIMMR{self._index:04d}CAGE",
            "Status": {"State": "Enabled", "Health": "OK"}}, from_device=True)
        self._tree.add_collection(f"{self.chassis}/Drives", "DriveCollection", "Drive Collection", self.drives,
                                  from_device=True)
