"""Intel VROC: the processor combines drives to volumes; resources in the shape of the SATA controller's."""

from __future__ import annotations

from .base import Amount
from .direct import DirectModel
from .sata import SataLike
from .site import Site


class Vroc(SataLike):
    """Drives as the SATA controller shows them, with volumes."""

    LETTERS = "VR"
    STORAGE_NAME = "Intel VROC Storage System"
    ENTRY_NAME = "Intel VROC Controller"
    MODELS = {"SSD": DirectModel("960GB NVMe SSD", "XX000960VROCTEST", 960197124096, "T301", "NVMe"),
              "HDD": DirectModel("1TB 6G SATA HDD", "XX001000VROCTEST", 1000204886016, "T302", "SATA")}

    def __init__(self, site: Site, amount: Amount) -> None:
        super().__init__(site, amount, "Intel VROC controller", "Intel VROC SATA RAID Controller")

    def _label(self, number: int) -> str:
        return f"VROC Drive Box {4 + self._identity.number} Bay {number + 1}"
