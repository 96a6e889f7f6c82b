"""HPE NS204i boot devices: two M.2 SSDs, mirrored; Gen10+ with embedded controller, Gen11 with a linked one."""

from __future__ import annotations

from ..errors import UseError
from .base import Amount, StorageController
from .device import DeviceController, DriveModel
from .site import Site

BAYS = 2


class _BootDevice(DeviceController):
    LETTERS = "NS"
    VOLUME_NAME = "NS Volume {}"
    NEW_LIFE_LEFT = 100
    RAID_TYPES = ("RAID1",)
    MODELS = {"SSD": DriveModel("480GB 16G NVMe SSD", "VS000480TEST", 480103981056, "T0031G00", "NVMe", 16.0)}
    REFUSALS = StorageController.REFUSALS

    def _bay(self, number: int) -> int:
        return number + 1

    def _drive_id(self, number: int) -> str:
        return str(number + 1)

    def _label(self, number: int) -> str:
        return f"Slot={self._identity.slot}:Bay={self._bay(number)}"

    def _add_unconfigured(self, media: str) -> str:
        if media != "SSD" or len(self.drives) >= BAYS:
            raise UseError(f"{self.name}: the device has {BAYS} bays for SSDs and nothing else fits; "
                           "restore-drive puts a pulled drive back.")
        return super()._add_unconfigured(media)


class BootDeviceGen10Plus(_BootDevice):
    """NS204i Gen10+: whole numbers for the life left."""

    EMBEDDED = True
    LIFE_LEFT = int
    FIRMWARE = "1.0.14.1055"

    def __init__(self, site: Site, amount: Amount) -> None:
        super().__init__(site, amount, "NS204i Gen10+", "HPE NS204i-r Gen10+ Boot Controller")


class BootDeviceGen11(_BootDevice):
    """NS204i Gen11: reals for the life left, and a condition in every status even when all is well."""

    LINKED = True
    CONDITIONS = [{"MessageArgs": [], "Severity": "OK"}]
    FIRMWARE = "1.2.14.1011"

    def __init__(self, site: Site, amount: Amount) -> None:
        super().__init__(site, amount, "NS204i Gen11", "HPE NS204i-u Gen11 Boot Controller")
