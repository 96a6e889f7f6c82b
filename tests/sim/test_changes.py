"""Verbs that change resources, and the shortcuts."""

import pytest
from sim_rest import ARRAY, RAID, SYSTEM
from simcontroller.errors import UseError

DRIVE = ARRAY + "DiskDrives/1"
RAID_DRIVE = "/redfish/v1/Chassis/DE00A000/Drives/1"


def test_smart_array_drive_fails_predicts_and_heals(sim, rest):
    new = rest.get(DRIVE).json
    assert sim.control.call("fail-drive", 1, 2) == DRIVE
    failed = rest.get(DRIVE).json
    assert failed["DiskDriveStatusReasons"] == ["Failed"] and failed["Status"]["Health"] == "Critical"
    sim.control.call("predict-drive", 1, 2)
    predicted = rest.get(DRIVE).json
    assert predicted["DiskDriveStatusReasons"] == ["PredictiveFail"] and predicted["Status"]["Health"] == "Warning"
    sim.control.call("wear-drive", 1, 2, 95)
    assert rest.get(DRIVE).json["SSDEnduranceUtilizationPercentage"] == 95
    sim.control.call("heal-drive", 1, 2)
    assert rest.get(DRIVE).json == new


def test_mr_drive_fails_predicts_and_heals(sim, rest):
    new = rest.get(RAID_DRIVE).json
    sim.control.call("fail-drive", 2, 2)
    failed = rest.get(RAID_DRIVE).json
    assert failed["Status"] == {"Health": "Critical", "State": "UnavailableOffline"}
    assert failed["StatusIndicator"] == "Fail"
    sim.control.call("heal-drive", 2, 2)
    sim.control.call("predict-drive", 2, 2)
    assert rest.get(RAID_DRIVE).json["FailurePredicted"] is True
    sim.control.call("wear-drive", 2, 2, 90)
    assert b'"PredictedMediaLifeLeftPercent":10.0' in rest.get(RAID_DRIVE).body
    sim.control.call("heal-drive", 2, 2)
    assert rest.get(RAID_DRIVE).json == new


@pytest.mark.parametrize("controller, path", [(1, ARRAY + "LogicalDrives/2"), (2, RAID + "Volumes/238")])
def test_volume_goes_offline_and_heals(sim, rest, controller, path):
    new = rest.get(path).json
    assert sim.control.call("offline-volume", controller, 2) == path
    assert rest.get(path).json["Status"] == {"Health": "Critical", "State": "Disabled"}
    sim.control.call("heal-volume", controller, 2)
    assert rest.get(path).json == new


@pytest.mark.parametrize("controller, path, collection, member", [
    (1, DRIVE, ARRAY + "DiskDrives", "Members"), (2, RAID_DRIVE, RAID, "Drives")])
def test_pulled_drive_goes_with_every_link_and_comes_back(sim, rest, controller, path, collection, member):
    before = rest.get(collection).json
    sim.control.call("remove-drive", controller, 2)
    assert rest.get(path).status == 404
    without = rest.get(collection).json
    assert len(without[member]) == without[f"{member}@odata.count"] == 3
    assert path not in [link["@odata.id"] for link in without[member]]
    sim.control.call("fail-drive", controller, 3)  # The others keep their numbers.
    assert rest.get(path[:-1] + "2").json["Status"]["Health"] == "Critical"
    sim.control.call("restore-drive", controller, 2)
    assert rest.get(collection).json == before
    assert rest.get(path).status == 200


def test_pulled_mr_drive_leaves_its_volume(sim, rest):
    volume = RAID + "Volumes/239"
    before = rest.get(volume).json
    sim.control.call("remove-drive", 2, 1)
    links = rest.get(volume).json["Links"]
    assert [link["@odata.id"] for link in links["Drives"]] == [RAID_DRIVE]
    assert links["Drives@odata.count"] == 1
    sim.control.call("restore-drive", 2, 1)
    assert rest.get(volume).json == before


def test_removed_volume_leaves_its_drives(sim, rest):
    sim.control.call("remove-volume", 2, 1)
    assert rest.links(RAID + "Volumes") == [RAID + "Volumes/238"]
    assert rest.get(RAID_DRIVE).json["Links"]["Volumes"] == []
    sim.control.call("restore-volume", 2, 1)
    assert rest.get(RAID_DRIVE).json["Links"]["Volumes"] == [{"@odata.id": RAID + "Volumes/239"}]


def test_removed_collection_goes_with_all_below_it_and_its_link(sim, rest):
    path = SYSTEM + "SmartStorage"
    sim.control.call("remove", path)
    assert rest.get(ARRAY).status == 404
    assert "SmartStorage" not in rest.get(SYSTEM).json["Oem"]["Hpe"]["Links"]
    sim.control.call("restore", path)
    assert rest.get(ARRAY).status == 200
    assert rest.get(SYSTEM).json["Oem"]["Hpe"]["Links"]["SmartStorage"] == {"@odata.id": path + "/"}


@pytest.mark.parametrize("controller, collection, media", [
    (1, ARRAY + "DiskDrives/", "ssd"), (2, "/redfish/v1/Chassis/DE00A000/Drives/", "hdd")])
def test_added_drive(sim, rest, controller, collection, media):
    path = sim.control.call("add-drive", controller, media)
    assert rest.get(path).json["MediaType"] == media.upper()
    assert rest.get(collection).json["Members@odata.count"] == 5
    assert rest.links(collection)[4].rstrip("/") == path
    assert sim.control.call("fail-drive", controller, 5) == path


@pytest.mark.parametrize("member, value, found", [
    ("Status.Health", "Warning", lambda r: r["Status"]["Health"] == "Warning"),
    ("Status.Health", None, lambda r: r["Status"]["Health"] is None),
    ("DiskDriveStatusReasons.0", "Failed", lambda r: r["DiskDriveStatusReasons"] == ["Failed"]),
    ("DiskDriveStatusReasons", '["A","B"]', lambda r: r["DiskDriveStatusReasons"] == ["A", "B"]),
    ("FirmwareVersion.Current", {"VersionString": "X"}, lambda r: r["FirmwareVersion"]["Current"] == {"VersionString": "X"}),
    ("CapacityGB", "12000", lambda r: r["CapacityGB"] == 12000),
    (".", {"Only": 1}, lambda r: r == {"Only": 1})])
def test_set(sim, rest, member, value, found):
    sim.control.call("set", DRIVE, member, value)
    assert found(rest.get(DRIVE).json)


def test_set_reaches_names_with_dots(sim, rest):
    sim.control.call("set", ARRAY + "DiskDrives", "Members@odata.count", 9)
    sim.control.call("set", ARRAY + "DiskDrives", "Members.0.@odata.id", "/elsewhere")
    collection = rest.get(ARRAY + "DiskDrives").json
    assert collection["Members@odata.count"] == 9
    assert collection["Members"][0] == {"@odata.id": "/elsewhere"}


def test_add_and_delete_members(sim, rest):
    sim.control.call("add-member", DRIVE, "Status.HealthRollup", "OK")
    sim.control.call("add-member", DRIVE, "DiskDriveStatusReasons.1", "Rebuilding")
    sim.control.call("delete-member", DRIVE, "DiskDriveStatusReasons.0")
    sim.control.call("delete-member", DRIVE, "SSDEnduranceUtilizationPercentage")
    drive = rest.get(DRIVE).json
    assert drive["Status"]["HealthRollup"] == "OK"
    assert drive["DiskDriveStatusReasons"] == ["Rebuilding"]
    assert "SSDEnduranceUtilizationPercentage" not in drive


def test_list_get_and_paths(sim):
    listed = sim.control.call("list")
    assert [len(entry["drives"]) for entry in listed] == [4, 4]
    assert sim.control.call("get", listed[0]["drives"][0])["Id"] == "0"
    assert sim.control.call("paths", "*/DiskDrives/?") == listed[0]["drives"]


@pytest.mark.parametrize("command, words", [
    (["nonsense"], ["nonsense", "the verbs are"]),
    (["fail-drive", 1], ["got 1 arguments", "fail-drive C D"]),
    (["fail-drive", 3, 1], ["no controller 3", "1 to 2"]),
    (["fail-drive", 1, 5], ["no drive 5", "1 to 4"]),
    (["fail-drive", "one", 1], ["'one'", "no whole number"]),
    (["offline-volume", 1, 3], ["no volume 3"]),
    (["wear-drive", 1, 4, 90], ["no SSD"]),
    (["wear-drive", 1, 1, 101], ["101", "0 to 100"]),
    (["set", "/redfish/v1/none", "A", 1], ["no resource /redfish/v1/none", "paths"]),
    (["set", DRIVE, "Status.None", 1], ["no member 'Status.None'", "add-member"]),
    (["set", DRIVE, "Status", "{bad"], ["not JSON"]),
    (["set", DRIVE, ".", 5], ["JSON object"]),
    (["add-member", DRIVE, "Status.Health", 1], ["already", "use set"]),
    (["add-member", DRIVE, "No.Such.Place", 1], ["no place"]),
    (["delete-member", DRIVE, "None"], ["no member 'None'"]),
    (["remove", "/none"], ["no resource /none"]),
    (["restore", DRIVE], ["was not removed"]),
    (["status", "*", 99], ["99", "200 to 599"]),
    (["hang", "*", "somewhere"], ["'somewhere'", "headers, body"]),
    (["expand", "maybe"], ["'maybe'", "on, off, refuse"]),
    (["not-ready", "*", 0], ["0 is not within"])])
def test_wrong_use_says_what_is_wrong(sim, command, words):
    with pytest.raises(UseError) as error:
        sim.control.call(*command)
    for word in words:
        assert word in str(error.value)
    assert "\n" not in str(error.value)
