"""What the stand-ins for ssacli and storcli64 find at first: the controllers and drives the server was built with."""

from __future__ import annotations

import re
from typing import Any, Dict, List

from simtools.tools import Tools

from .families.base import StorageController
from .families.mega_raid import MegaRaid, MegaRaidGen10Plus
from .families.smart_array import SmartArray
from .tree import ResourceTree

_PLACE = re.compile(r"Port=([^:]*):Box=([^:]*):Bay=([^:]*)")


def fill(tools: Tools, tree: ResourceTree, controllers: List[StorageController]) -> None:
    """Smart Array controllers for ssacli, MR controllers for storcli64, numbered as the verbs count them."""
    for number, controller in enumerate(controllers, 1):
        bodies = [tree.read(path) for path in controller.drives]
        if isinstance(controller, SmartArray):
            body = tree.read(controller.path)
            tools.add_smart_array(body["Model"], body["Location"].split()[-1], number)
            for drive in bodies:
                tools.add_drive(number, **_smart_drive(drive))
        elif isinstance(controller, (MegaRaid, MegaRaidGen10Plus)):
            body = tree.read(controller.path)
            own = body["StorageControllers"][0] if controller.EMBEDDED else \
                tree.read(f"{controller.path}/Controllers/0")
            tools.add_mega_raid(own["Model"], own["Location"]["PartLocation"]["LocationOrdinalValue"], number)
            for drive in bodies:
                tools.add_drive(number, **_mega_drive(drive))


def _smart_drive(body: Dict[str, Any]) -> Dict[str, Any]:
    port, box, bay = body["Location"].split(":")
    gigabytes = body["CapacityGB"]
    return {"port": port, "box": box, "bay": bay, "serial": body["SerialNumber"], "model": body["Model"],
            "firmware": body["FirmwareVersion"]["Current"]["VersionString"], "bus": body["InterfaceType"],
            "capacity": f"{gigabytes} GB" if gigabytes < 1000 else f"{gigabytes / 1000:g} TB", "kind": body["MediaType"]}


def _mega_drive(body: Dict[str, Any]) -> Dict[str, Any]:
    place = _PLACE.search(body["PhysicalLocation"]["PartLocation"]["ServiceLabel"])
    port, box, bay = place.groups() if place else (None, None, None)
    found = {"port": port, "box": box, "bay": bay, "serial": body["SerialNumber"], "model": body["Model"],
             "firmware": body["Revision"], "bus": body["Protocol"], "kind": body["MediaType"],
             "capacity": f"{body['CapacityBytes'] / 2**30:.3f} GB"}
    return {**found, "slot": bay} if bay else found
