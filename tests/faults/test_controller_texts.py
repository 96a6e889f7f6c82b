"""Answers whose text is not what it should be: broken JSON, members of wrong types, odd ids."""

import json
from typing import Any, Callable, Dict, Iterator, List

import pytest
from troubled import ARRAY, BACK, DRIVE, DRIVE_PATH, FAILED, SERVER, Troubled, troubled
from watched import SMART_ARRAY, Disk, smart_disk

DRIVES = f"GET {ARRAY}/DiskDrives"
RAID = "/redfish/v1/Systems/1/Storage/DE00A000"
RAID_DRIVE = "/redfish/v1/Chassis/DE00A000/Drives/0"

Resource = Dict[str, Any]


@pytest.fixture(scope="module")
def service(start_file_sim: Callable, watch_file: Callable) -> Iterator[Troubled]:
    with troubled(start_file_sim(*SERVER, "--mr", 1, "--mr-drives", 2), watch_file) as found:
        yield found


@pytest.fixture(scope="module")
def sound(service: Troubled) -> Resource:
    """The drive of DRIVE in good health."""
    return service.call("get", DRIVE_PATH)


def failing(drive: Resource) -> Resource:
    return {**drive, "Status": {"Health": "Critical", "State": "Enabled"}, "DiskDriveStatusReasons": ["Failed"]}


def assert_costs_one_baseline(service: Troubled, pattern: str, text: str, reasons: List[str]) -> None:
    service.begin()
    service.call("body", pattern, text, 1)
    service.wait_back()
    assert service.said() == [*reasons, FAILED, BACK]
    assert service.open_sessions() == 1


# ---- Texts that are refused as a whole ----

REFUSED = {
    "cut in a text": (lambda text: text[:text.index("JWTEST")], "is not JSON."),
    "cut in a name": (lambda text: text[:-12], "is not JSON."),
    "something behind it": (lambda text: text + "}", "is not JSON."),
    "not UTF-8 between members": (lambda text: "{\udcff" + text[1:], "is not JSON."),
    "UTF-16": (lambda text: text.encode("utf-16-le").decode("latin-1"), "is not JSON."),
    "not a number": (lambda text: '{"x":NaN,' + text[1:], "is not JSON."),
    "nested without end": (lambda text: '{"x":' * 45000, "is not JSON."),
    "nested and closed": (lambda text: '{"x":' + "[" * 5000 + "]" * 5000 + "," + text[1:], "is not JSON."),
    "too many values": (lambda text: f'{{"x":[{"1," * 60000}1],{text[1:]}', "holds more than 50000 values."),
}


@pytest.mark.parametrize("kind", REFUSED)
def test_text_that_cannot_be_read_costs_one_baseline(service: Troubled, sound: Resource, kind: str) -> None:
    spoil, reason = REFUSED[kind]
    assert_costs_one_baseline(service, DRIVE, spoil(json.dumps(sound)),
                              [f"module: GET {DRIVE_PATH}/: An answer of the controller {reason}"])
    service.assert_next_failure_is_reported_once()


def test_text_that_is_too_large_costs_one_baseline(service: Troubled, sound: Resource) -> None:
    large = {**sound, "x": "y" * 1100000}
    assert_costs_one_baseline(service, DRIVE, json.dumps(large),
                              ["module: An answer of the controller is larger than 1048576 bytes."])
    # What is left of this one is too large for the service: nothing is cut, and there is no reason from the module.
    assert_costs_one_baseline(service, DRIVE, json.dumps({**sound, "Model": "y" * 20000}), [])
    service.assert_next_failure_is_reported_once()


# ---- Members of wrong types ----

TYPES = {
    "Model": [5, {}], "Status": ["OK", 5], "DiskDriveStatusReasons": ["Failed", [5], [["Failed"]]],
    "CapacityGB": ["1200", []], "SerialNumber": [True], "FirmwareVersion": [{"Current": "HPD4"}], "Id": [1],
    "SSDEnduranceUtilizationPercentage": ["0"],
}
COLLECTION = 2  # how often one is asked for that is wrong: with its members in place and then without
LISTS = [None, 5, {}, "x", ["x"], [None], [5], [[]], [{}], [{"@odata.id": 5}], [{"@odata.id": None}]]


def test_members_of_wrong_types_cost_baselines(service: Troubled, sound: Resource) -> None:
    for name, values in TYPES.items():
        for value in values:
            assert_wrong_type(service, DRIVE, {**sound, name: value})
    service.wait_walks()
    service.assert_next_failure_is_reported_once()


def test_lists_of_wrong_types_cost_baselines(service: Troubled) -> None:
    for value in LISTS:
        assert_wrong_type(service, DRIVES, {"Members": value}, COLLECTION)
    service.wait_walks()
    service.assert_next_failure_is_reported_once()


def test_members_of_other_families_of_wrong_types_cost_baselines(service: Troubled) -> None:
    raid, drive = service.call("get", RAID), service.call("get", RAID_DRIVE)
    volume = service.call("get", f"{RAID}/Volumes/239")
    for path, resource in [(RAID, {**raid, "Name": 5}), (RAID, {**raid, "Drives": {}}), (RAID, {**raid, "Volumes": []}),
                           (RAID, {**raid, "Controllers": "x"}), (RAID_DRIVE, {**drive, "PhysicalLocation": "here"}),
                           (RAID_DRIVE, {**drive, "CapacityBytes": {}}), (RAID_DRIVE, {**drive, "Links": {"Volumes": 5}}),
                           (f"{RAID}/Volumes/239", {**volume, "Status": None}), (ARRAY, {"Model": None})]:
        assert_wrong_type(service, f"GET {path}", resource)
    assert_wrong_type(service, "GET /redfish/v1/Systems/1/Storage", {"Members": 5}, COLLECTION)
    service.wait_walks()
    service.assert_next_failure_is_reported_once()


def assert_wrong_type(service: Troubled, pattern: str, resource: Resource, times: int = 1) -> None:
    """The reader says what it looked for and did not find."""
    service.begin()
    service.call("body", pattern, json.dumps(resource), times)
    service.wait_said(BACK)
    reason, *rest = service.said()
    assert (reason.split(":")[0], rest) == ("reader", [FAILED, BACK]), (reason, resource)
    assert "rapidjson" in reason or "JSON Parsing failed" in reason
    assert service.open_sessions() == 1


# ---- Texts that are only odd ----

ODD = {
    "names twice": (lambda text: '{"Model":"first","Status":{"Health":"Critical","State":5},"Id":5,' + text[1:], None),
    "byte order mark": (lambda text: "\ufeff" + text, None),
    "blanks": (lambda text: text.replace(",", "\r\n\t ,\n "), None),
    "nested where nobody looks": (lambda text: f'{{"x":{"[" * 400}{"]" * 400},{text[1:]}', None),
    "large where nobody looks": (lambda text: f'{{"x":"{"y" * 1000000}",{text[1:]}', None),
    "real numbers": (lambda text: text.replace("1200,", "1200.0,"), None),
    "numbers beyond 64 bits where nobody looks": (lambda text: f'{{"x":{"9" * 30000},"y":1e999,{text[1:]}', None),
    "not UTF-8 in a text": (lambda text: text.replace("EG001200JWTEST", "EG\udcff\udcfeTEST"), "EG??TEST"),
    "line feeds in a text": (lambda text: text.replace("EG001200JWTEST", "EG\\n<VK0902> [ER] \\u0000%s"),
                             "EG?<VK0902> [ER] ?%s"),
    "half a character": (lambda text: text.replace("EG001200JWTEST", "EG\\ud83d"), "EG?"),
}


@pytest.mark.parametrize("kind", ODD)
def test_drive_with_an_odd_text_is_watched(service: Troubled, sound: Resource, kind: str) -> None:
    """It is silent while the drive is sound, and reported once when it fails."""
    spoil, model = ODD[kind]
    service.begin()
    service.call("body", DRIVE, spoil(json.dumps(sound)), "forever")
    service.wait_walks()
    service.call("body", DRIVE, spoil(json.dumps(failing(sound))), "forever")
    disk = smart_disk(2)
    shown = disk._replace(description=disk.description.replace("EG001200JWTEST", model or "EG001200JWTEST"))
    service.watched.expect(shown.failed, timeout=60)
    service.call("clear-faults")
    assert service.said() == []
    service.wait_walks()


# ---- Ids ----

NEW_DRIVE = Disk(SMART_ARRAY, "1I:1:9", "Model: ODD Size: 1200 GB Serial Number: SIMODD Firmware Revision: HPD4")

IDS = {
    "blanks": f"{ARRAY}/DiskDrives/odd drive 9 ",
    "dots": f"{ARRAY}/DiskDrives/../DiskDrives/./odd",
    "query and fragment": f"{ARRAY}/DiskDrives/odd?x=1&y=%2F#z",
    "line ends": f"{ARRAY}/DiskDrives/odd HTTP/1.1\r\nX-Auth-Token: forged\r\n\r\nDELETE /",
    "other alphabets": f"{ARRAY}/DiskDrives/oddé\u2028\U0001f4be\x00",
    "signs of other languages": f"{ARRAY}/DiskDrives/odd\"'\\<>%s%n$(reboot)`;",
    "four kilobytes": f"{ARRAY}/DiskDrives/odd{'x' * 4096}",
    "elsewhere": "/odd",
}


@pytest.mark.parametrize("kind", [*IDS, "twice"])
def test_drive_with_an_odd_id_is_watched(service: Troubled, sound: Resource, kind: str) -> None:
    links = service.call("get", f"{ARRAY}/DiskDrives")["Members"]
    odd = [{"@odata.id": IDS.get(kind, f"{ARRAY}/DiskDrives/odd")}] * (2 if kind == "twice" else 1)
    drive = {**sound, "Model": "ODD", "SerialNumber": "SIMODD", "Location": "1I:1:9"}
    service.begin()
    service.call("body", "GET *odd*", json.dumps(drive), "forever")
    service.call("body", DRIVES, json.dumps({"Members": links + odd}), "forever")
    service.wait_walks()
    service.call("body", "GET *odd*", json.dumps(failing(drive)), "forever")
    service.watched.expect(NEW_DRIVE.failed, timeout=60)
    with service.watched.held():
        service.call("clear-faults")
    service.wait_walks()
    service.assert_next_failure_is_reported_once()
    assert service.said() == []
    assert {line.split()[2] for line in service.sim.requests()} == {"GET", "POST", "DELETE"}


LOST = f"{ARRAY}/DiskDrives/"
UNUSABLE = {
    "empty": ("", ['module: The resource path "" does not begin with "/".']),
    "another host": ("https://192.0.2.9/", ['module: The resource path "https://192.0.2.9/" does not begin with "/".']),
    "the list itself": (LOST, ["reader: JSON Parsing failed - provided NVP (Model) not found"]),
    # Nobody is there, which may change: the reader waits until its attempts are used up.
    "dots to nowhere": (f"{LOST}../../../..", ["reader: JSON Parsing failed - provided NVP (Model) not found"]),
    # Too large for the list that it stands in, as its text is for the service.
    "twenty kilobytes": (LOST + "x" * 20480, []),
}


@pytest.mark.parametrize("kind", UNUSABLE)
def test_id_that_leads_nowhere_costs_one_baseline(service: Troubled, kind: str) -> None:
    link, reasons = UNUSABLE[kind]
    assert_costs_one_baseline(service, DRIVES, json.dumps({"Members": [{"@odata.id": link}]}), reasons)
    service.assert_next_failure_is_reported_once()


def test_failure_of_a_long_id_is_told_in_short(service: Troubled) -> None:
    link = LOST + "y" * 4096
    service.call("status", "GET *yyyy*", 500, 1)
    reason = f"The controller answered {link} with HTTP status 500."[:300]
    assert_costs_one_baseline(service, DRIVES, json.dumps({"Members": [{"@odata.id": link}]}), [f"module: {reason}"])
    service.assert_next_failure_is_reported_once()
