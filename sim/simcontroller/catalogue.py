"""The storage families that can be generated, in the order in which the control verbs count their controllers."""

from __future__ import annotations

from typing import Callable, Dict, NamedTuple, Optional, Tuple

from .families.base import Amount, Identity, StorageController
from .families.boot_device import BAYS, BootDeviceGen10Plus, BootDeviceGen11
from .families.mega_raid import MegaRaid, MegaRaidGen10Plus
from .families.nvme import DirectNvme
from .families.sata import EmbeddedSata
from .families.site import Site
from .families.smart_array import SmartArray
from .families.smart_raid import SmartRaid
from .families.vroc import Vroc

_ALL = (5, 6, 7)


class Family(NamedTuple):
    """One family and its command-line options (names without the leading dashes)."""

    count: str
    title: str
    make: Callable[[Site, Amount], StorageController]
    # None: it always has its usual number of drives, or no volumes.
    drives: Optional[str]
    volumes: Optional[str]
    usual_drives: int = 4
    most_drives: Optional[int] = None
    only_ssds: bool = False
    # Controllers unless their number is given, by controller generation (elsewhere 0); and the note about it.
    default: Dict[int, int] = {}
    usual: str = "none unless given"
    generations: Tuple[int, ...] = _ALL
    # What to do on a generation that does not serve the family.
    instead: str = ""

    def default_count(self, generation: int, wanted: bool) -> int:
        """Controllers when their number is not given; `wanted`: their drives or volumes were.

        Families with a default keep to it; of the others there is one as soon as something is said about it.
        """
        if self.default or not wanted or generation not in self.generations:
            return self.default.get(generation, 0)
        return 1


class Controllers(NamedTuple):
    """How many controllers of a family a server has, and what each of them has."""

    family: Family
    count: int
    amount: Amount


def _smart_array(site: Site, amount: Amount) -> SmartArray:
    index = site.next("array")
    model = "HPE Smart Array P408i-a SR Gen10" if index == 0 else "HPE Smart Array P408i-p SR Gen10"
    return SmartArray(site.tree, index, Identity(model, index, "SA", index), amount, site.wear_scale)


def _boot_device(site: Site, amount: Amount) -> StorageController:
    return (BootDeviceGen10Plus if site.generation == 5 else BootDeviceGen11)(site, amount)


FAMILIES: Tuple[Family, ...] = (
    Family("controllers", "Smart Array controllers", _smart_array, "drives", "volumes", default={5: 1},
           usual="iLO 5 only; one there unless given", generations=(5,), instead="use --mr or --ilo 5"),
    Family("mr", "MR Gen11 controllers", MegaRaid, "mr-drives", "mr-volumes", default={6: 1, 7: 1},
           usual="none on iLO 5, one on 6 and 7 unless given"),
    Family("mr10", "MR Gen10+ controllers with older firmware", MegaRaidGen10Plus, "mr10-drives", "mr10-volumes",
           usual="iLO 5 only; none unless given", generations=(5,), instead="use --mr or --ilo 5"),
    Family("sr", "SR controllers, Gen10+ on iLO 5, Gen11 later", SmartRaid, "sr-drives", "sr-volumes"),
    Family("ns204", "NS204i boot devices, Gen10+ on iLO 5, Gen11 later", _boot_device, "ns204-drives",
           "ns204-volumes", usual_drives=BAYS, most_drives=BAYS, only_ssds=True),
    Family("nvme", "direct NVMe drives, a storage each", DirectNvme, None, None, usual_drives=1, only_ssds=True),
    Family("sata", "embedded SATA controllers, without volumes", EmbeddedSata, "sata-drives", None, usual_drives=2),
    Family("vroc", "Intel VROC controllers", Vroc, "vroc-drives", "vroc-volumes", usual_drives=2),
)
