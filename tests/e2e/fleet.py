"""Servers of every generation, each with all storage families side by side: what their items are called, and how they
are brought into a state."""

from __future__ import annotations

from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Tuple

from watched import ControllerProcess, Disk, Event, Watched, volume_offline, wait_until

SPEED = 6  # a walk that is held must end within 30 of the service's seconds, on a busy machine too

ARRAYS = "/redfish/v1/Systems/1/SmartStorage/ArrayControllers"


class Unit(NamedTuple):
    """One controller. Drives and volumes are counted from 1, as the verbs of the simulated server count them.

    kind     which rules hold for it: smart, mr, sr, ns204, nvme, sata or vroc
    number   its number for the verbs
    disks    its drives as they stand in messages
    volumes  the numbers of its volumes as they stand in messages
    drives   the paths of its drives in the family of resources that is watched
    """
    kind: str
    number: int
    disks: Tuple[Disk, ...]
    volumes: Tuple[int, ...]
    drives: Tuple[str, ...]

    def offline(self, volume: int) -> Event:
        return volume_offline(self.disks[0].controller, self.volumes[volume - 1])


class Plan(NamedTuple):
    """A family as it is built into a server; see Unit. `label` gives the place of the drive with an index from 0."""
    kind: str
    controller: str
    label: Callable[[int], str]
    model: str
    size: str
    serial: str
    firmware: str
    drives: int
    volumes: Tuple[int, ...] = ()

    def unit(self, number: int, drives: List[str]) -> Unit:
        disks = tuple(Disk(self.controller, self.label(index), f"Model: {self.model} Size: {self.size} Serial Number: "
                           f"{self.serial}D{index:04d} Firmware Revision: {self.firmware}")
                      for index in range(self.drives))
        return Unit(self.kind, number, disks, self.volumes, tuple(drives))


def _mr11(slot: int, number: int) -> Plan:
    return Plan("mr", f"HPE MR416i-o Gen11 [Slot={slot}]", lambda i: f"Slot={slot}:Port={1 + i // 4}:Box=1:Bay={1 + i}",
                "XX000480TEST", "480 GB", f"SIMMR{number:02d}", "T001", 5, (239, 238))


def _sr11(slot: int) -> Plan:
    return Plan("sr", f"HPE SR932i-p Gen11 [Slot={slot}]", lambda i: f"Slot={slot}:Port=1I:Box=1:Bay={1 + i}",
                "VK000960GWTEST", "960 GB", "SIMSR00", "HPG3", 3, (1,))


def _ns204(slot: int, controller: str) -> Plan:
    return Plan("ns204", controller, lambda i: f"Slot={slot}:Bay={1 + i}",
                "VS000480TEST", "480 GB", "SIMNS00", "T0031G00", 2, (1,))


def _nvme(place: str, drive: str) -> Plan:
    return Plan("nvme", f"XX006400TEST [{place}]", lambda i: drive, "XX006400TEST", "6401 GB", "SIMNV00", "T5021", 1)


_SATA = Plan("sata", "Embedded SATA Controller #1 [System Board]", lambda i: f"SATA Drive Box 3 Bay {1 + i}",
             "XX000480SATATEST", "480 GB", "SIMAH00", "T201", 2)
_VROC = Plan("vroc", "Intel VROC SATA RAID Controller [System Board]", lambda i: f"VROC Drive Box 4 Bay {1 + i}",
             "XX000960VROCTEST", "960 GB", "SIMVR00", "T301", 2, (1,))

# By generation, in the order in which the verbs count. The iLO 6 has two MR controllers, the others a single one.
_PLANS: Dict[int, Tuple[Plan, ...]] = {
    5: (Plan("smart", "HPE Smart Array P408i-a SR Gen10 [Slot 0]", lambda i: f"1I:1:{1 + i}",
             "VK000960GWTEST", "960 GB", "SIMSA00", "HPG3", 2, (1,)),
        Plan("mr", "HPE MR416i-p Gen10+ [Slot 14]", lambda i: f"Port={1 + i // 4}I:Box=1:Bay={1 + i}",
             "XX000960TEST", "960 GB", "SIMMR00", "T101", 5, (239, 238)),
        # In both families of resources, of which SmartStorage counts.
        Plan("smart", "HPE SR932i-p Gen10+ [Slot 15]", lambda i: f"1I:1:{1 + i}",
             "VK000960GWTEST", "960 GB", "SIMSR00", "HPG3", 3, (1,)),
        _ns204(16, "HPE NS204i-r Gen10+ Boot Controller [Slot 16]"),
        _nvme("Box 2 Bay 1", "Box 2:Bay 1"), _SATA, _VROC),
    6: (_mr11(14, 0), _mr11(15, 1), _sr11(16), _ns204(17, "HPE NS204i-u Gen11 Boot Controller [Slot=17]"),
        _nvme("Box 2 Bay 1", "Box 2:Bay 1"), _SATA, _VROC),
    7: (_mr11(14, 0), _sr11(15), _ns204(16, "HPE NS204i-u Gen11 Boot Controller [Slot=16]"),
        _nvme("Embedded:Port=1A:Box=1:Bay=1", "Embedded:Port=1A:Box=1:Bay=1"), _SATA, _VROC),
}
_MR_OPTIONS = {5: ("--drives", 2, "--mr10", 1, "--mr10-drives", 5, "--mr10-volumes", 2),
               6: ("--mr", 2, "--mr-drives", 5, "--mr-volumes", 2),
               7: ("--mr", 1, "--mr-drives", 5, "--mr-volumes", 2)}
_OPTIONS = ("--sr-drives", 3, "--ns204-drives", 2, "--nvme", 1, "--sata-drives", 2, "--vroc-drives", 2, "--ssd", 5)


def server_options(generation: int) -> Tuple[object, ...]:
    """All drives are SSDs. The first MR volume (239) has drives 1 and 2, the second (238) has 3 to 5; other
    controllers with volumes have one, made of all drives."""
    return ("--ilo", generation, *_MR_OPTIONS[generation], *_OPTIONS)


def _walk_place(unit: Unit) -> Tuple[bool, str]:
    """Storage resources come before SmartStorage, in either family by their ids; every drive's path holds one."""
    path = unit.drives[0]
    above = ARRAYS if ARRAYS in path else "/Storage" if "/Storage/" in path else "/Chassis"
    return above == ARRAYS, path.split(f"{above}/")[1]


class Server:
    """A server with the service on it. `units` stand in the order in which one walk reports their drives."""

    def __init__(self, generation: int, sim: ControllerProcess, watched: Watched) -> None:
        self.generation = generation
        self.sim = sim
        self.watched = watched
        listed = sim.control.call("list")
        units = []
        for number, plan in enumerate(_PLANS[generation], 1):
            drives = listed[number - 1]["drives"]
            if plan.kind == "smart":
                drives = [f"{ARRAYS}/{(number - 1) // 2}/DiskDrives/{index}" for index in range(plan.drives)]
            units.append(plan.unit(number, drives))
        assert len(units) == len(listed)
        self.units = sorted(units, key=_walk_place)

    def of(self, *kinds: str) -> List[Unit]:
        return [unit for unit in self.units if unit.kind in kinds]

    def call(self, *verb: Any) -> Any:
        return self.sim.control.call(*verb)

    def heal(self) -> None:
        """Every drive and every volume is as new."""
        for unit in self.units:
            for number in range(1, len(unit.disks) + 1):
                self.call("heal-drive", unit.number, number)
            for number in range(1, len(unit.volumes) + 1):
                self.call("heal-volume", unit.number, number)


# ---- How states are reached ----

def drive_state(unit: Unit, state: str) -> Tuple[Any, ...]:
    """The verb that brings drive 1 into the state."""
    drive = unit.drives[0]
    words = {"critical": ("drive-health", "Critical"), "unavailable": ("drive-state", "UnavailableOffline"),
             "warning": ("drive-health", "Warning"), "lost": ("drive-health", "CarrierCommunicationFailure"),
             "spared": ("drive-health", "FailedDueToPredictiveSpareActivation")}
    reasons = {"lost-reason": "CommunicationFailure", "gone-reason": "Unrecoverable",
               "spared-reason": "FailedDueToPredictiveSpareActivation"}
    if state in words:
        return (words[state][0], unit.number, 1, words[state][1])
    if state in reasons:
        return reason_list(unit, reasons[state])
    if state == "predicted" and unit.kind in ("sata", "vroc"):
        return ("add-member", drive, "FailurePredicted", True)
    return ({"failed": "fail-drive", "predicted": "predict-drive"}[state], unit.number, 1)


def reason_list(unit: Unit, *reasons: str) -> Tuple[Any, ...]:
    """Drive 1 lists these reasons; Redfish drives have no such list of themselves."""
    verb = "set" if unit.kind == "smart" else "add-member"
    return (verb, unit.drives[0], "DiskDriveStatusReasons", list(reasons))


def worn(unit: Unit, percent: int) -> List[Tuple[Any, ...]]:
    """Drive 1, new until now, has used so much of its life; SATA and VROC drives do not tell it of themselves."""
    if unit.kind in ("sata", "vroc"):
        return [("heal-drive", unit.number, 1),
                ("add-member", unit.drives[0], "PredictedMediaLifeLeftPercent", 100 - percent)]
    return [("wear-drive", unit.number, 1, percent)]


def volume_state(unit: Unit, state: str) -> List[Tuple[Any, ...]]:
    health, word = {"offline": ("Critical", "Disabled"), "critical": ("Critical", "Enabled"),
                    "disabled": ("OK", "Disabled"), "standby": ("Warning", "StandbyOffline"),
                    "degraded": ("Warning", "Enabled")}[state]
    return [("volume-health", unit.number, 1, health), ("volume-state", unit.number, 1, word)]


# ---- What is done on all servers at a time ----

def each_held(servers: List[Server]) -> Iterator[Server]:
    """The servers one after the other, each while a walk on it waits at its first request, so that what changes meanwhile is
    seen by one walk. Not all at once: a walk that waits too long runs into the module's time limits."""
    for server in servers:
        with server.watched.held():
            yield server


def expect(servers: List[Server], events: "Callable[[Server], List[Event]]" = lambda server: []) -> None:
    """These events, in this order, and no others, now or in the walk after (which goes on on all servers at a time)."""
    for server in servers:
        server.watched.expect(*events(server), walks=0)
    ended = [(server, server.watched.walks() + 2) for server in servers]
    for server, walks in ended:
        wait_until(lambda: server.watched.walks() >= walks, "walks", 30, server.watched.host)
        server.watched.assert_reports()
