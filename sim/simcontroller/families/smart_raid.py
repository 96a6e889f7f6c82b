"""HPE SR controllers: SR Gen11 in Storage alone, SR Gen10+ on an iLO 5 in Storage and SmartStorage at once."""

from __future__ import annotations

from typing import Any, Dict, List

from .base import Amount
from .device import DeviceController, DriveModel
from .site import Site
from .smart_array import SmartArray

# Ids of drives are counted from here.
_FIRST_DRIVE = 3580


class SmartRaid(DeviceController):
    """The Storage resource of an SR controller: linked controller, drives below Chassis, conditions in every status.

    An iLO 5 shows the controller in SmartStorage as well; both views fail, heal and lose drives together.
    """

    LINKED = True
    LETTERS = "SR"
    CHASSIS = True
    CONDITIONS: List[Dict[str, Any]] = []
    FIRMWARE = "03.01.33.000"
    MODELS = {"SSD": DriveModel("960GB 6G SATA SSD", "VK000960GWTEST", 960197124096, "HPG3", "SATA", 6.0),
              "HDD": DriveModel("1.2TB 12G SAS HDD", "EG001200JWTEST", 1200243695616, "HPD4", "SAS", 12.0)}
    REFUSALS: Dict[str, str] = {}

    def __init__(self, site: Site, amount: Amount) -> None:
        twofold = site.generation == 5
        super().__init__(site, amount, "SR controller", "HPE SR932i-p Gen10+" if twofold else "HPE SR932i-p Gen11")
        if twofold:
            self.views.append(_ArrayView(site.tree, site.next("array"), self._identity, amount, site.wear_scale))

    def _label(self, number: int) -> str:
        port = "1I" if number % 8 < 4 else "2I"
        return f"Slot={self._identity.slot}:Port={port}:Box={number // 8 + 1}:Bay={self._bay(number)}"

    def _drive_id(self, number: int) -> str:
        return str(_FIRST_DRIVE + number)


class _ArrayView(SmartArray):
    """The same controller in SmartStorage, where a bay that became empty is not listed."""

    def empty_bay(self, number: int) -> str:
        return self.remove_drive(number)
