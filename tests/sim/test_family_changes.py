"""Every shortcut on every family: what it changes, what it refuses, and that all is as before afterwards."""

import json
from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Optional

import pytest
from sim_rest import SYSTEM, ControllerProcess, Rest
from simcontroller.errors import UseError

STORAGE = SYSTEM + "Storage/"


class Family(NamedTuple):
    """A family as the server of its generation shows it; `number` as the verbs count."""

    name: str
    generation: int
    number: int
    failed: Dict[str, Any] = {"Health": "Critical", "State": "UnavailableOffline"}
    # How the life left of an SSD worn to 91 % is written; None: it is not told at all.
    life: Optional[bytes] = b'"PredictedMediaLifeLeftPercent":9.0'
    predicts: bool = True
    volumes: bool = True
    bays: bool = False
    adds: bool = True

    def __repr__(self) -> str:
        return self.name


ENABLED = {"Health": "Critical", "State": "Enabled"}
OPTIONS = {
    5: ["--ilo", "5", "--controllers", "1", "--drives", "2", "--mr10", "1", "--mr10-drives", "2", "--sr", "1",
        "--sr-drives", "2", "--ns204", "1", "--nvme", "1"],
    7: ["--ilo", "7", "--mr-drives", "2", "--sr", "1", "--sr-drives", "2", "--ns204", "1", "--nvme", "1",
        "--sata", "1", "--vroc", "1"]}
SMART_ARRAY = Family("SmartArray", 5, 1, ENABLED, b'"SSDEnduranceUtilizationPercentage":91')
SR_10 = Family("SR-Gen10+", 5, 3, bays=True)
MR_11 = Family("MR-Gen11", 7, 1, bays=True)
NVME = Family("NVMe-iLO7", 7, 4, ENABLED, b'"PredictedMediaLifeLeftPercent":9', volumes=False, adds=False)
SATA = Family("SATA", 7, 5, ENABLED, None, predicts=False, volumes=False)
FAMILIES = [
    SMART_ARRAY, SR_10, MR_11, NVME, SATA,
    Family("MR-Gen10+", 5, 2), Family("NS204i-Gen10+", 5, 4, life=b'"PredictedMediaLifeLeftPercent":9', adds=False),
    NVME._replace(name="NVMe-iLO5", generation=5, number=5),
    Family("SR-Gen11", 7, 2, bays=True), Family("NS204i-Gen11", 7, 3, adds=False),
    Family("VROC", 7, 6, ENABLED, None, predicts=False)]
WITH_VOLUMES = [family for family in FAMILIES if family.volumes]


class Server:
    """A server and what it was when it was new."""

    def __init__(self, options: List[str]) -> None:
        self.sim = ControllerProcess(*options).start()
        self.rest = Rest(self.sim)
        assert self.rest.login().status == 201
        self.new = self.everything()

    def everything(self) -> Dict[str, Any]:
        return {path: self.sim.control.call("get", path) for path in self.sim.control.call("paths")}


@pytest.fixture(scope="module")
def servers() -> Iterator[Dict[int, Server]]:
    started = {generation: Server(options) for generation, options in OPTIONS.items()}
    yield started
    for server in started.values():
        server.rest.close()
        assert server.sim.complaints() == ""
        server.sim.stop()


@pytest.fixture
def on(servers: Dict[int, Server]) -> Iterator[Callable[[Family], Any]]:
    """The server of a family; at the end of the test everything must be as it was before."""
    used: List[Server] = []

    def choose(family: Family) -> Server:
        used.append(servers[family.generation])
        return used[-1]

    yield choose
    for server in used:
        assert server.everything() == server.new


def listed(server: Server, family: Family) -> Dict[str, Any]:
    return server.sim.control.call("list")[family.number - 1]


def read(server: Server, path: str) -> Any:
    return server.rest.get(path).json


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_drive_fails_and_heals(on, family):
    server = on(family)
    path = server.sim.control.call("fail-drive", family.number, 1)
    drive = read(server, path)
    assert {name: drive["Status"][name] for name in family.failed} == family.failed
    # A drive that fails did not predict it: one change, one event.
    assert drive.get("FailurePredicted", False) is False
    server.sim.control.call("heal-drive", family.number, 1)
    assert read(server, path)["Status"]["Health"] == "OK"


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_drive_predicts_its_failure_where_it_can(on, family):
    server = on(family)
    if not family.predicts:
        with pytest.raises(UseError, match="no FailurePredicted"):
            server.sim.control.call("predict-drive", family.number, 1)
        return
    drive = read(server, server.sim.control.call("predict-drive", family.number, 1))
    assert drive["Status"]["Health"] == "Warning" and drive["Status"]["State"] == "Enabled"
    assert drive.get("FailurePredicted", drive.get("DiskDriveStatusReasons")) in (True, ["PredictiveFail"])
    server.sim.control.call("heal-drive", family.number, 1)


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_drive_wears_where_it_tells(on, family):
    server = on(family)
    if family.life is None:
        with pytest.raises(UseError, match="do not tell the life left"):
            server.sim.control.call("wear-drive", family.number, 1, 91)
        return
    body = server.rest.get(server.sim.control.call("wear-drive", family.number, 1, 91)).body
    assert family.life + b"," in body or family.life + b"}" in body
    server.sim.control.call("heal-drive", family.number, 1)


@pytest.mark.parametrize("percent, left, word", [(94, 6, "OK"), (95, 5, "FivePercentThreshold"),
                                                 (98, 2, "TwoPercentThreshold"), (100, 0, "SSDWearOut")])
def test_wear_of_direct_nvme_is_said_in_words_too(on, percent, left, word):
    server = on(NVME)
    drive = read(server, server.sim.control.call("wear-drive", NVME.number, 1, percent))
    assert (drive["PredictedMediaLifeLeftPercent"], drive["Oem"]["Hpe"]["WearStatus"]) == (left, word)
    server.sim.control.call("heal-drive", NVME.number, 1)


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_status_words_are_set_directly(on, family):
    server, words = on(family), ("UnavailableOffline", "Carrier%d", None)
    for verb, member in (("drive-state", "State"), ("drive-health", "Health")):
        for word in words:
            path = server.sim.control.call(verb, family.number, 1, word)
            assert read(server, path)["Status"][member] == word
        assert server.sim.control.call(verb, family.number, 1, "null") == path
        assert f'"{member}":null'.encode() in server.rest.get(path).body
    server.sim.control.call("heal-drive", family.number, 1)
    if family.volumes:
        for verb, member in (("volume-state", "State"), ("volume-health", "Health")):
            path = server.sim.control.call(verb, family.number, 1, "StandbyOffline")
            assert read(server, path)["Status"][member] == "StandbyOffline"
        server.sim.control.call("heal-volume", family.number, 1)


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_healed_drive_loses_members_that_were_added(on, family):
    server = on(family)
    path = listed(server, family)["drives"][0]
    server.sim.control.call("add-member", path, "Invented", 4)
    server.sim.control.call("delete-member", path, "Model")
    server.sim.control.call("heal-drive", family.number, 1)
    drive = read(server, path)
    assert "Invented" not in drive and drive["Model"]


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_volume_goes_offline_where_there_are_volumes(on, family):
    server = on(family)
    if not family.volumes:
        for verb in ("offline-volume", "heal-volume", "remove-volume", "restore-volume"):
            with pytest.raises(UseError, match="no volumes"):
                server.sim.control.call(verb, family.number, 1)
        return
    status = read(server, server.sim.control.call("offline-volume", family.number, 1))["Status"]
    assert (status["Health"], status["State"]) == ("Critical", "Disabled")
    server.sim.control.call("heal-volume", family.number, 1)


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_pulled_drive_leaves_no_link(on, family):
    server = on(family)
    entry = listed(server, family)
    path = entry["drives"][0]
    assert f'"{path}' in json.dumps(server.everything())
    server.sim.control.call("remove-drive", family.number, 1)
    assert server.rest.get(path).status == 404
    assert f'"{path}"' not in json.dumps(server.everything()) and f'"{path}/"' not in json.dumps(server.everything())
    with pytest.raises(UseError, match="no resource"):
        server.sim.control.call("remove-drive", family.number, 1)
    server.sim.control.call("restore-drive", family.number, 1)
    assert server.rest.get(path).status == 200


@pytest.mark.parametrize("family", WITH_VOLUMES, ids=repr)
def test_volume_goes_with_and_without_its_drives(on, family):
    server = on(family)
    entry = listed(server, family)
    server.sim.control.call("remove-volume", family.number, 1)
    assert server.rest.get(entry["volumes"][0]).status == 404
    assert server.rest.get(entry["drives"][0]).status == 200
    # Whatever the order in which things go and come back, in the end every link is there again.
    for number in range(1, len(entry["drives"]) + 1):
        server.sim.control.call("remove-drive", family.number, number)
    server.sim.control.call("restore-volume", family.number, 1)
    links = server.rest.get(entry["volumes"][0]).json["Links"]
    assert links.get("Drives", []) == []
    for number in range(1, len(entry["drives"]) + 1):
        server.sim.control.call("restore-drive", family.number, number)


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_whole_controller_disappears_and_returns(on, family):
    server = on(family)
    entry, before = listed(server, family), server.rest.links(STORAGE)
    server.sim.control.call("remove-drive", family.number, 1)
    server.sim.control.call("remove-controller", family.number)
    everything = json.dumps(server.everything())
    for path in entry["resources"] + entry["drives"]:
        assert server.rest.get(path).status == 404
        assert f'"{path}' not in everything
    collection = server.rest.get(STORAGE).json
    gone = [path for path in entry["resources"] if "/Storage/" in path]
    assert len(collection["Members"]) == collection["Members@odata.count"] == len(before) - len(gone)
    server.sim.control.call("restore-controller", family.number)
    assert server.rest.links(STORAGE) == before
    # What was gone before stays gone until it is put back itself.
    assert server.rest.get(entry["drives"][0]).status == 404
    server.sim.control.call("restore-drive", family.number, 1)


@pytest.mark.parametrize("family", FAMILIES, ids=repr)
def test_pulled_drive_becomes_an_empty_bay_where_bays_are_listed(on, family):
    server = on(family)
    entry = listed(server, family)
    if not family.bays:
        with pytest.raises(UseError, match="empty bays are not listed"):
            server.sim.control.call("empty-bay", family.number, 1)
        assert server.rest.get(entry["drives"][0]).status == 200
        return
    drive = read(server, entry["drives"][0])
    storage = next(path for path in entry["resources"] if "/Storage/" in path)
    for _ in range(2):
        path = server.sim.control.call("empty-bay", family.number, 1)
        assert server.rest.get(entry["drives"][0]).status == 404
        bay = read(server, path)
        assert (bay["Name"], bay["Id"], bay["Status"]) == ("Empty Bay", "64513", {"State": "Absent", "Health": "OK"})
        assert bay["PhysicalLocation"] == drive["PhysicalLocation"] and "Volumes" not in bay["Links"]
        assert not {"Model", "CapacityBytes", "SerialNumber", "MediaType", "FailurePredicted"} & set(bay)
        # MR lists the bay among the controller's own drives, SR in the enclosure alone.
        shown = server.rest.links(storage, "Drives")
        assert (path in shown) == (family is MR_11) and len(shown) == 1 + (family is MR_11)
        assert path in server.rest.links(path.rsplit("/", 1)[0])
        with pytest.raises(UseError, match="no resource"):
            server.sim.control.call("empty-bay", family.number, 1)
        assert server.sim.control.call("restore-drive", family.number, 1) == entry["drives"][0]
        assert server.rest.get(path).status == 404
        assert entry["drives"][0] in server.rest.links(storage, "Drives")


@pytest.mark.parametrize("family", [family for family in FAMILIES if family.adds], ids=repr)
def test_added_drive_is_listed_and_can_fail(start, connect, family):
    sim = start(*OPTIONS[family.generation])
    rest = connect(sim)
    path = sim.control.call("add-drive", family.number, "hdd")
    added = rest.get(path).json
    assert added["MediaType"] == "HDD" and added["Status"]["Health"] == "OK"
    entry = sim.control.call("list")[family.number - 1]
    assert entry["drives"][2] == path
    for top in entry["resources"]:
        if "/Storage/" in top:
            assert rest.links(top, "Drives")[2].rstrip("/") == path
            assert rest.get(top).json["Drives@odata.count"] == 3
    sim.control.call("fail-drive", family.number, 3)
    assert rest.get(path).json["Status"]["Health"] == "Critical"


@pytest.mark.parametrize("family, words", [
    (NVME, "--nvme a larger number"), (next(f for f in FAMILIES if f.name == "NS204i-Gen11"), "2 bays for SSDs")],
    ids=["NVMe", "NS204i"])
def test_families_without_room_refuse_another_drive(on, family, words):
    server = on(family)
    with pytest.raises(UseError, match=words):
        server.sim.control.call("add-drive", family.number)


def test_boot_device_takes_a_second_ssd_only(start):
    sim = start("--controllers", "0", "--ns204", "1", "--ns204-drives", "1")
    with pytest.raises(UseError, match="2 bays for SSDs"):
        sim.control.call("add-drive", 1, "hdd")
    assert sim.control.call("add-drive", 1).endswith("/Drives/2")
    with pytest.raises(UseError, match="2 bays for SSDs"):
        sim.control.call("add-drive", 1)


@pytest.mark.parametrize("verb, more, member, value", [
    ("fail-drive", [], "DiskDriveStatusReasons", ["Failed"]),
    ("predict-drive", [], "DiskDriveStatusReasons", ["PredictiveFail"]),
    ("wear-drive", [80], "SSDEnduranceUtilizationPercentage", 80),
    ("drive-state", ["UnavailableOffline"], "Status", {"Health": "OK", "State": "UnavailableOffline"})])
def test_sr_gen10plus_changes_in_both_families(on, verb, more, member, value):
    server = on(SR_10)
    changed = read(server, server.sim.control.call(verb, SR_10.number, 1, *more))
    twin = read(server, SYSTEM + "SmartStorage/ArrayControllers/1/DiskDrives/0")
    assert changed["SerialNumber"] == twin["SerialNumber"]
    assert twin[member] == value
    server.sim.control.call("heal-drive", SR_10.number, 1)


def test_sr_gen10plus_volume_and_bay_change_in_both_families(on):
    server = on(SR_10)
    array = SYSTEM + "SmartStorage/ArrayControllers/1/"
    server.sim.control.call("offline-volume", SR_10.number, 1)
    assert read(server, array + "LogicalDrives/1")["Status"] == {"Health": "Critical", "State": "Disabled"}
    server.sim.control.call("heal-volume", SR_10.number, 1)
    server.sim.control.call("empty-bay", SR_10.number, 1)
    assert server.rest.links(array + "DiskDrives/") == [array + "DiskDrives/1/"]
    server.sim.control.call("restore-drive", SR_10.number, 1)
    server.sim.control.call("remove-controller", SR_10.number)
    assert server.rest.get(array).status == 404
    server.sim.control.call("restore-controller", SR_10.number)


@pytest.mark.parametrize("command, words", [
    (["remove-controller", 9], ["no controller 9", "1 to 6"]),
    (["restore-controller", 1], ["was not removed"]),
    (["restore-drive", 1, 1], ["was not removed"]),
    (["empty-bay", 1, 3], ["no drive 3"]),
    (["drive-state", 1, 1], ["got 2 arguments", "drive-state C D WORD"]),
    (["drive-health", 1, 1, 5], ["5 is no text"]),
    (["volume-health", 1, 2, "OK"], ["no volume 2"]),
    (["shuffle", "maybe"], ["'maybe'", "on, off"]),
    (["shuffle", "off", 3], ["takes no seed"]),
    (["shuffle", "on", -1], ["-1 is not within"])])
def test_wrong_use_says_what_is_wrong(on, command, words):
    server = on(MR_11)
    with pytest.raises(UseError) as error:
        server.sim.control.call(*command)
    for word in words:
        assert word in str(error.value)
    assert "\n" not in str(error.value)
