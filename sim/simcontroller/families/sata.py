"""SATA drives on the system board: neither life left nor predicted failures, and no volumes."""

from __future__ import annotations

import zlib
from typing import Any, Dict, Optional

from .base import Amount, Changes, StorageController
from .direct import DirectController, DirectModel
from .site import Site


class SataLike(DirectController):
    """Drives that say little of themselves, on a controller without status and firmware of its own."""

    WEAR_STATUS = "Unknown"
    REFUSALS = {**StorageController.REFUSALS,
                "predict": "its drives have no FailurePredicted; use drive-health or add-member.",
                "wear": "its drives do not tell the life left (PredictedMediaLifeLeftPercent); use add-member."}

    def wear_changes(self, percent: int) -> Changes:
        """No member tells of wear, which is why it is refused."""
        return {}

    def _drive_id(self, number: int) -> str:
        return f"{zlib.crc32(self._identity.drive_serial(number).encode('ascii')):08X}"

    def _controller_location(self, embedded: bool) -> Dict[str, Any]:
        return {"ServiceLabel": "System Board"}

    def _controller_status(self) -> Dict[str, Optional[str]]:
        return {"Health": None, "State": None}


class EmbeddedSata(SataLike):
    """The SATA controller of the chip set."""

    VOLUMES = False
    LETTERS = "AH"
    STORAGE_NAME = "SATA Storage System"
    ENTRY_NAME = "SATA Storage Controller"
    MODELS = {"SSD": DirectModel("480GB 6G SATA SSD", "XX000480SATATEST", 480103981056, "T201", "SATA"),
              "HDD": DirectModel("2TB 6G SATA HDD", "XX002000SATATEST", 2000398934016, "T202", "SATA")}
    REFUSALS = {**SataLike.REFUSALS, "volume": "drives on the SATA controller have no volumes."}

    def __init__(self, site: Site, amount: Amount) -> None:
        super().__init__(site, amount, "embedded SATA controller", "Embedded SATA Controller #{}")

    def _label(self, number: int) -> str:
        return f"SATA Drive Box {3 + self._identity.number} Bay {number + 1}"
