"""NVMe drives attached to the processor: each is a Storage resource of its own, with no volumes."""

from __future__ import annotations

from typing import Any, Dict

from .base import Amount, Changes, StorageController
from .direct import DirectController, DirectModel
from .site import Site

_MODEL = DirectModel("NVMe SSD", "XX006400TEST", 6401252745216, "T5021", "NVMe")
# What iLO says of the wear when this much life, or less, is left (percent).
_WEAR_WORDS = ((0, "SSDWearOut"), (2, "TwoPercentThreshold"), (5, "FivePercentThreshold"))


class DirectNvme(DirectController):
    """One drive, whose model is the model of the controller too. Whole numbers for the life left, no Links."""

    VOLUMES = False
    LETTERS = "NV"
    STORAGE_NAME = "NVMe Storage System"
    ENTRY_NAME = "NVMe Storage Controller"
    MODELS = {"SSD": _MODEL}
    PREDICTED_DRIVE: Changes = {"Status.Health": "Warning", "Oem.Hpe.DriveStatus.Health": "Warning",
                                "FailurePredicted": True}
    REFUSALS = {**StorageController.REFUSALS,
                "add": "each NVMe drive is a storage of its own; give --nvme a larger number, or use restore-drive.",
                "volume": "a direct NVMe drive has no volumes."}

    def __init__(self, site: Site, amount: Amount) -> None:
        super().__init__(site, amount, "direct NVMe drive", _MODEL.model)

    def wear_changes(self, percent: int) -> Changes:
        left = 100 - percent
        word = next((word for most, word in _WEAR_WORDS if left <= most), "OK")
        return {"PredictedMediaLifeLeftPercent": left, "Oem.Hpe.WearStatus": word}

    def _more(self, media: str) -> Dict[str, Any]:
        return {"FailurePredicted": False, "PredictedMediaLifeLeftPercent": 100}

    def _drive_id(self, number: int) -> str:
        return self.id

    def _label(self, number: int) -> str:
        bay = self._identity.number + 1
        return f"Embedded:Port={bay}A:Box=1:Bay={bay}" if self._generation == 7 else f"Box 2:Bay {bay}"

    def _controller_location(self, embedded: bool) -> Dict[str, Any]:
        bay = self._identity.number + 1
        if self._generation == 7:
            label = self._label(0) if embedded else f"Box 1 Bay {bay}"
        else:
            label = f"Box 2 Bay {bay}"
        return {"LocationOrdinalValue": bay + 1, "LocationType": "Bay", "ServiceLabel": label}

    def _controller_firmware(self) -> str:
        return _MODEL.revision
