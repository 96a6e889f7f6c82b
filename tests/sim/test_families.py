"""The shape of each storage family: which members it sends, where, and in which form."""

from typing import Any, Callable, Dict, FrozenSet, Iterator, List, NamedTuple, Optional, Set

import pytest
from sim_rest import SYSTEM, ControllerProcess, Rest

STORAGE = SYSTEM + "Storage/"
SMART = SYSTEM + "SmartStorage/ArrayControllers/"

ALL = ["--mr", "1", "--sr", "1", "--ns204", "1", "--nvme", "1", "--sata", "1", "--vroc", "1"]
SERVERS = {5: [*ALL, "--controllers", "1", "--mr10", "1"], 6: ALL, 7: ALL}

COMMON = {"@odata.id", "@odata.type", "Id", "Name", "Model", "CapacityBytes", "SerialNumber", "MediaType", "Revision",
          "Status", "PhysicalLocation", "Protocol"}
DEVICE = COMMON | {"BlockSizeBytes", "FailurePredicted", "Links", "StatusIndicator", "PredictedMediaLifeLeftPercent",
                   "CapableSpeedGbs", "EncryptionStatus", "HotspareType", "Operations"}
OLD_DEVICE, NEW_DEVICE = DEVICE | {"IndicatorLED"}, DEVICE | {"Manufacturer", "Multipath"}
SATA = COMMON | {"Location", "Oem"}
NVME = SATA | {"FailurePredicted", "PredictedMediaLifeLeftPercent"}

STATUS, CONDITIONED = {"Health", "State"}, {"Health", "State", "Conditions"}


class Shape(NamedTuple):
    """One family on one generation. `number`: as the verbs count; `members`: those of its first drive, an SSD."""

    generation: int
    number: int
    name: str
    storage: str
    embedded: bool
    linked: bool
    drive: str
    label: str
    controller_label: str
    members: Set[str]
    life: Optional[type]
    volumes: List[str]
    status: Set[str] = STATUS
    links: FrozenSet[str] = frozenset()

    def __repr__(self) -> str:
        return f"iLO{self.generation}-{self.name}"


def device(generation: int, number: int, name: str, storage: str, drive: str, label: str, controller: str,
           old: bool = False, life: type = float, volume: str = "1", status: Set[str] = STATUS,
           links: FrozenSet[str] = frozenset({"Storage"})) -> Shape:
    return Shape(generation, number, name, storage, old, not old, drive, label, controller,
                 OLD_DEVICE if old else NEW_DEVICE, life, [volume], status, frozenset() if old else links)


def direct(generation: int, number: int, name: str, storage: str, drive: str, label: str, controller: str,
           members: Set[str], life: Optional[type], volumes: List[str]) -> Shape:
    return Shape(generation, number, name, storage, True, True, drive, label, controller, members, life, volumes)


BOTH = frozenset({"Storage", "Chassis"})
SHAPES = [
    device(5, 2, "HPE MR416i-o Gen11", "DE00A000", "/redfish/v1/Chassis/DE00A000/Drives/0",
           "Slot=14:Port=1:Box=1:Bay=1", "Slot=14", volume="239", links=BOTH),
    device(5, 3, "HPE MR416i-p Gen10+", "DE00B000", STORAGE + "DE00B000/Drives/0", "Port=1I:Box=1:Bay=1", "Slot 15",
           old=True, volume="239"),
    device(5, 4, "HPE SR932i-p Gen10+", "DE00C000", "/redfish/v1/Chassis/DE00C000/Drives/3580",
           "Slot=16:Port=1I:Box=1:Bay=1", "Slot=16", status=CONDITIONED, links=BOTH),
    device(5, 5, "HPE NS204i-r Gen10+ Boot Controller", "DE00D000", STORAGE + "DE00D000/Drives/1", "Slot=17:Bay=1",
           "Slot 17", old=True, life=int),
    direct(5, 6, "NVMe Storage System", "DA000000", STORAGE + "DA000000/Drives/DA000000/", "Box 2:Bay 1",
           "Box 2 Bay 1", NVME, int, []),
    direct(5, 7, "SATA Storage System", "DA000001", STORAGE + "DA000001/Drives/E9556CED/", "SATA Drive Box 3 Bay 1",
           "System Board", SATA, None, []),
    direct(5, 8, "Intel VROC Storage System", "DA000002", STORAGE + "DA000002/Drives/CC8F6EB6/",
           "VROC Drive Box 4 Bay 1", "System Board", SATA, None, ["1"]),
]
for later in (6, 7):
    SHAPES += [
        device(later, 1, "HPE MR416i-o Gen11", "DE00A000", "/redfish/v1/Chassis/DE00A000/Drives/0",
               "Slot=14:Port=1:Box=1:Bay=1", "Slot=14", volume="239", links=BOTH),
        device(later, 2, "HPE SR932i-p Gen11", "DE00B000", "/redfish/v1/Chassis/DE00B000/Drives/3580",
               "Slot=15:Port=1I:Box=1:Bay=1", "Slot=15", status=CONDITIONED, links=BOTH),
        device(later, 3, "HPE NS204i-u Gen11 Boot Controller", "DE00C000", STORAGE + "DE00C000/Drives/1",
               "Slot=16:Bay=1", "Slot=16", status=CONDITIONED),
        direct(later, 4, "NVMe Storage System", "DA000000", STORAGE + "DA000000/Drives/DA000000/",
               "Box 2:Bay 1" if later == 6 else "Embedded:Port=1A:Box=1:Bay=1",
               "Box 2 Bay 1" if later == 6 else "Embedded:Port=1A:Box=1:Bay=1", NVME, int, []),
        direct(later, 5, "SATA Storage System", "DA000001", STORAGE + "DA000001/Drives/E9556CED/",
               "SATA Drive Box 3 Bay 1", "System Board", SATA, None, []),
        direct(later, 6, "Intel VROC Storage System", "DA000002", STORAGE + "DA000002/Drives/CC8F6EB6/",
               "VROC Drive Box 4 Bay 1", "System Board", SATA, None, ["1"])]


class Server(NamedTuple):
    sim: ControllerProcess
    rest: Rest


@pytest.fixture(scope="module")
def servers() -> Iterator[Dict[int, Server]]:
    """One server of each generation with every family it can have."""
    started = {}
    for generation, options in SERVERS.items():
        sim = ControllerProcess("--ilo", str(generation), *options).start()
        started[generation] = Server(sim, Rest(sim))
        assert started[generation].rest.login().status == 201
    yield started
    for server in started.values():
        server.rest.close()
        assert server.sim.complaints() == ""
        server.sim.stop()


@pytest.fixture(params=SHAPES, ids=repr)
def shape(request: Any) -> Shape:
    return request.param


@pytest.fixture
def get(servers: Dict[int, Server], shape: Shape) -> Callable[[str], Any]:
    return lambda path: servers[shape.generation].rest.get(path).json


@pytest.mark.parametrize("generation", SERVERS)
def test_collections_list_every_family(servers, generation):
    rest = servers[generation].rest
    expected = [shape for shape in SHAPES if shape.generation == generation]
    # What devices answer about themselves has its own form; the collection is made by the management controller.
    assert rest.links(STORAGE) == [f"{STORAGE}{shape.storage}/" for shape in expected]
    listed = servers[generation].sim.control.call("list")
    assert [entry["controller"] for entry in listed] == list(range(1, len(listed) + 1))
    assert {shape.number: f"{STORAGE}{shape.storage}" for shape in expected}.items() <= \
        {entry["controller"]: path for entry in listed for path in entry["resources"] if "/Storage/" in path}.items()
    chassis = [shape.storage for shape in expected if "Chassis" in shape.drive]
    assert rest.links("/redfish/v1/Chassis/")[1:] == [f"/redfish/v1/Chassis/{name}/" for name in chassis]


def test_storage_resource(get, shape):
    storage = get(STORAGE + shape.storage + "/")
    own = {"@odata.id", "@odata.type", "Id", "Name", "Status", "Drives", "Drives@odata.count"}
    from_device = shape.storage.startswith("DE")
    if shape.embedded:
        own.add("StorageControllers")
    if shape.linked:
        own.add("Controllers")
    if shape.volumes:
        own.add("Volumes")
    assert own <= set(storage) <= own | {"AutoVolumeCreate", "Links"}
    assert (storage["Id"], storage["Name"]) == (shape.storage, shape.name)
    # A device that speaks for itself only rolls its health up.
    assert set(storage["Status"]) == ({"State", "HealthRollup"} if from_device else {"State", "Health"})
    assert len(storage["Drives"]) == storage["Drives@odata.count"] > 0
    assert storage["Drives"][0] == {"@odata.id": shape.drive}


def test_controllers_embedded_linked_or_both(get, shape):
    storage = get(STORAGE + shape.storage + "/")
    entries = storage.get("StorageControllers", [])
    assert len(entries) == shape.embedded
    if shape.embedded:
        assert entries[0]["MemberId"] == "0" and "Id" not in entries[0]
        assert entries[0]["@odata.id"].startswith(f"{STORAGE}{shape.storage}#/StorageControllers/0")
    if shape.linked:
        members = get(storage["Controllers"]["@odata.id"])["Members"]
        assert len(members) == 1
        entries.append(get(members[0]["@odata.id"]))
        assert entries[-1]["Id"] == "0" and "MemberId" not in entries[-1]
    model = {"NVMe Storage System": "XX006400TEST", "SATA Storage System": "Embedded SATA Controller #1",
             "Intel VROC Storage System": "Intel VROC SATA RAID Controller"}.get(shape.name, shape.name)
    assert [entry["Model"] for entry in entries] == [model] * len(entries)
    assert entries[0]["Location"]["PartLocation"]["ServiceLabel"] == shape.controller_label
    for entry in entries:
        assert {"SerialNumber", "FirmwareVersion", "Manufacturer", "Status"} <= set(entry)
        if "PredictedMediaLifeLeftPercent" in shape.members:
            assert entry["Status"] == {"Health": "OK", "State": "Enabled"} and entry["FirmwareVersion"]
        else:
            assert entry["Status"] == {"Health": None, "State": None} and entry["FirmwareVersion"] is None
            assert set(entry["Location"]["PartLocation"]) == {"ServiceLabel"}


@pytest.mark.parametrize("slash", ["", "/"])
def test_drive_members(get, shape, slash):
    drive = get(shape.drive.rstrip("/") + slash)
    assert set(drive) == shape.members
    # Devices never put a slash behind their links; links to direct drives always have one.
    assert drive["@odata.id"] == shape.drive
    assert drive["Status"]["Health"] == "OK" and drive["Status"]["State"] == "Enabled"
    assert set(drive["Status"]) == shape.status
    assert drive["MediaType"] == "SSD" and drive["CapacityBytes"] > 10**11
    assert drive["PhysicalLocation"]["PartLocation"]["ServiceLabel"] == shape.label
    assert type(drive.get("PredictedMediaLifeLeftPercent")) is (shape.life or type(None))
    assert drive.get("FailurePredicted", False) is False
    if "Location" in shape.members:
        assert [place["Info"] for place in drive["Location"]] == [shape.label]
        assert set(drive["Oem"]["Hpe"]) >= {"DriveStatus", "WearStatus"}
    else:
        assert set(drive["Links"]) == {"Volumes", "Volumes@odata.count"} | shape.links
        assert [link["@odata.id"] for link in drive["Links"]["Volumes"]] == \
            [f"{STORAGE}{shape.storage}/Volumes/{volume}" for volume in shape.volumes]


def test_volumes(get, shape):
    storage = get(STORAGE + shape.storage + "/")
    if not shape.volumes:
        assert "Volumes" not in storage
        return
    collection = get(storage["Volumes"]["@odata.id"])
    assert [link["@odata.id"].rstrip("/") for link in collection["Members"]] == \
        [f"{STORAGE}{shape.storage}/Volumes/{volume}" for volume in shape.volumes]
    volume = get(collection["Members"][0]["@odata.id"])
    assert {"Id", "Name", "Status", "CapacityBytes", "RAIDType", "Links"} <= set(volume)
    assert volume["Id"] == shape.volumes[0] and set(volume["Status"]) == shape.status
    assert volume["Links"]["Drives"] == storage["Drives"]
    if shape.storage.startswith("DE"):
        assert volume["Links"]["DedicatedSpareDrives"] == []
        assert volume["LogicalUnitNumber"] == (0 if "MR" in shape.name else 1)


def test_hard_disks_and_unused_drives(start, connect):
    sim = start("--ilo", "5", "--controllers", "0", "--mr", "1", "--mr10", "1", "--sr", "1", "--sata", "1", "--ssd", "1",
                "--mr-volumes", "0", "--mr10-volumes", "0", "--sr-volumes", "0")
    rest = connect(sim)
    states = []
    for entry in sim.control.call("list"):
        for number, path in enumerate(entry["drives"]):
            drive = rest.get(path).json
            assert drive["MediaType"] == ("SSD" if number == 0 else "HDD")
            assert ("PredictedMediaLifeLeftPercent" in drive) == (number == 0 and "SATA" not in entry["name"])
        states.append(rest.get(entry["drives"][0]).json["Status"]["State"])
    # Only MR Gen11 says that a good drive nobody uses is standing by.
    assert states == ["StandbyOffline", "Enabled", "Enabled", "Enabled"]


def test_sr_gen10plus_is_in_both_families(servers):
    rest = servers[5].rest
    arrays = rest.links(SMART)
    assert arrays == [SMART + "0/", SMART + "1/"]
    array = rest.get(arrays[1]).json
    entry = rest.get(STORAGE + "DE00C000/Controllers/0").json
    assert array["Model"] == entry["Model"] == "HPE SR932i-p Gen10+"
    assert array["SerialNumber"] == entry["SerialNumber"] + " "
    assert array["Location"] == "Slot 16"
    drives = [rest.get(path).json for path in rest.links(array["Links"]["PhysicalDrives"]["@odata.id"])]
    twins = [rest.get(path).json for path in rest.links(STORAGE + "DE00C000", "Drives")]
    assert [drive["SerialNumber"] for drive in drives] == [twin["SerialNumber"] for twin in twins]
    assert [drive["Model"] for drive in drives] == [twin["Model"] for twin in twins]
    assert len(rest.links(array["Links"]["LogicalDrives"]["@odata.id"])) == 1


def test_nvme_storages_hold_one_drive_each(start, connect):
    sim = start("--ilo", "7", "--mr", "0", "--nvme", "3")
    rest = connect(sim)
    storages = [rest.get(path).json for path in rest.links(STORAGE)]
    assert [storage["Id"] for storage in storages] == ["DA000000", "DA000001", "DA000002"]
    drives = [rest.get(link["@odata.id"]).json for storage in storages for link in storage["Drives"]]
    labels = [drive["PhysicalLocation"]["PartLocation"]["ServiceLabel"] for drive in drives]
    assert labels == [f"Embedded:Port={bay}A:Box=1:Bay={bay}" for bay in (1, 2, 3)]
    linked = rest.get(STORAGE + "DA000001/Controllers/0/").json
    assert linked["Location"]["PartLocation"]["ServiceLabel"] == "Box 1 Bay 2", "the linked entry has another label"


@pytest.mark.parametrize("options, counts", [
    (["--sr", "2", "--sr-drives", "6", "--sr-volumes", "2"], [(6, 2), (6, 2)]),
    (["--sr-drives", "3"], [(3, 1)]),
    (["--mr10-volumes", "2"], [(4, 2)]),
    (["--ns204", "1", "--ns204-drives", "1", "--ns204-volumes", "0"], [(1, 0)]),
    (["--nvme", "2"], [(1, 0), (1, 0)]),
    (["--sata-drives", "5"], [(5, 0)]),
    (["--vroc", "1", "--vroc-drives", "6", "--vroc-volumes", "3"], [(6, 3)])])
def test_counts_of_each_family(start, options, counts):
    sim = start("--controllers", "0", *options)
    assert [(len(entry["drives"]), len(entry["volumes"])) for entry in sim.control.call("list")] == counts


def test_every_serial_number_and_id_is_given_once(start, connect):
    sim = start("--mr", "2", "--mr10", "2", "--sr", "2", "--ns204", "2", "--nvme", "2", "--sata", "2", "--vroc", "2")
    rest = connect(sim)
    drives = [path for entry in sim.control.call("list") for path in entry["drives"]]
    assert len(set(drives)) == len(drives)
    assert len({rest.get(path).json["SerialNumber"] for path in drives}) == len(drives)
    assert len(set(rest.links(STORAGE))) == 14
    sata = [rest.get(path).json for path in rest.links(STORAGE) if "DA" in path]
    models = [storage["StorageControllers"][0]["Model"] for storage in sata if storage["Name"].startswith("SATA")]
    assert models == ["Embedded SATA Controller #1", "Embedded SATA Controller #2"]
