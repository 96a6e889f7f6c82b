"""HPE MR controllers: Gen11 with linked controller and drives below Chassis, Gen10+ with older firmware."""

from __future__ import annotations

from typing import Dict

from .base import Amount, StorageController
from .device import DeviceController, DriveModel
from .site import Site


class MegaRaid(DeviceController):
    """MR Gen11. Volumes are counted down from 239; a pulled drive's bay may be listed like a drive."""

    LINKED = True
    LETTERS = "MR"
    CHASSIS = True
    BAYS_ARE_DRIVES = True
    FIRST_VOLUME = 239
    VOLUME_STEP = -1
    VOLUME_NAME = "MR Volume {}"
    UNIT = 0
    # A good drive that no volume uses is reported as standing by.
    UNUSED_STATE = "StandbyOffline"
    FIRMWARE = "52.30.3-5917"
    STORAGE_MORE = {"AutoVolumeCreate": "Disabled"}
    MODELS = {"SSD": DriveModel("480GB 6G SATA SSD", "XX000480TEST", 480103981056, "T001", "SATA", 6.0),
              "HDD": DriveModel("1.2TB 12G SAS HDD", "XX001200TEST", 1200243695616, "T004", "SAS", 12.0)}
    REFUSALS: Dict[str, str] = {}

    def __init__(self, site: Site, amount: Amount) -> None:
        super().__init__(site, amount, "MR controller", "HPE MR416i-o Gen11")

    def _label(self, number: int) -> str:
        return (f"Slot={self._identity.slot}:Port={1 + number % 8 // 4}:Box={number // 8 + 1}"
                f":Bay={self._bay(number)}")


class MegaRaidGen10Plus(DeviceController):
    """MR Gen10+ with older firmware: embedded controller, drives below the Storage resource, unused ones enabled."""

    EMBEDDED = True
    LETTERS = "MR"
    FIRST_VOLUME = 239
    VOLUME_STEP = -1
    VOLUME_NAME = "MR Volume {}"
    UNIT = 0
    FIRMWARE = "52.16.3-3913"
    RAID_TYPES = ("RAID0", "RAID1", "RAID10", "RAID5", "RAID50", "RAID6", "RAID60")
    MODELS = {"SSD": DriveModel("960GB 32G NVMe SSD", "XX000960TEST", 960197124096, "T101", "NVMe", 32.0),
              "HDD": DriveModel("1.2TB 12G SAS HDD", "XX001200TEST", 1200243695616, "T004", "SAS", 12.0)}
    REFUSALS = StorageController.REFUSALS

    def __init__(self, site: Site, amount: Amount) -> None:
        super().__init__(site, amount, "MR Gen10+ controller", "HPE MR416i-p Gen10+")

    def _label(self, number: int) -> str:
        return f"Port={1 + number % 8 // 4}I:Box={number // 8 + 1}:Bay={self._bay(number)}"
