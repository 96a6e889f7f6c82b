"""What remains of a resource, and how texts in it are made safe."""

from __future__ import annotations

import json

import pytest

import _bayward_shaping
from _bayward_outcome import Failure


def shaped(text):
    return _bayward_shaping.shaped_text(_bayward_shaping.parse_object(text.encode()))


def same(resource):
    """The resource goes through whole."""
    assert json.loads(shaped(json.dumps(resource, indent=4))) == resource


def test_null_is_written_without_blanks():
    assert shaped('{ "Model" : null , "Id":\n"1" }') == '{"Model":null,"Id":"1"}'


def test_nulls_of_members_not_kept_are_gone():
    assert shaped('{"Oem":{"Hpe":{"TemperatureStatus":{"Health":null}}},"Status":{"Health":"OK"}}') \
        == '{"Oem":{"Hpe":{}},"Status":{"Health":"OK"}}'


@pytest.mark.parametrize("name", ["MemberId", "Manufacturer", "LogicalUnitNumber", "Raid", "LogicalDriveStatusReasons",
                                  "DiskDriveUse"])
def test_members_that_no_reader_loads_are_gone(name):
    assert shaped(json.dumps({"Id": "1", name: "0"})) == '{"Id":"1"}'


def test_embedded_controllers_shrink_to_what_is_read_of_them():
    assert shaped('{"StorageControllers":[{"Model":"M","Status":{"Health":"OK"},"FirmwareVersion":"1"}]}') \
        == '{"StorageControllers":[{"Model":"M"}]}'


def test_expanded_members_shrink_to_their_ids():
    assert shaped('{"Members":[{"@odata.id":"/a","Model":null,"Status":{}}],"Members@odata.count":1}') \
        == '{"Members":[{"@odata.id":"/a"}],"Members@odata.count":1}'


def test_smart_storage_controller_keeps_its_members():
    same({"@odata.id": "/redfish/v1/Systems/1/SmartStorage/ArrayControllers/0/", "Id": "0", "Model": "Smart Array",
          "Location": "Slot 0", "SerialNumber": "PEYH ", "Name": "HpeSmartStorageArrayController",
          "FirmwareVersion": {"Current": {"VersionString": "0.01"}}, "Status": {"Health": "OK", "State": "Enabled"}})


def test_smart_storage_logical_drive_keeps_its_members():
    same({"@odata.id": "/l/1", "Id": "1", "LogicalDriveNumber": 1,
          "Status": {"Health": "OK", "State": "Enabled"}})


def test_smart_storage_drive_keeps_its_members():
    same({"@odata.id": "/d/3", "Id": "3", "Model": "EG06", "CapacityGB": 600, "CapacityMiB": 572325,
          "BlockSizeBytes": 512,
          "CapacityLogicalBlocks": 1172123568, "SerialNumber": "KW", "Location": "1I:0:1", "MediaType": "HDD",
          "Status": {"Health": "Warning", "State": "Enabled"}, "SSDEnduranceUtilizationPercentage": None,
          "DiskDriveStatusReasons": ["NonAuthenticDrive", "Failed"],
          "FirmwareVersion": {"Current": {"VersionString": "HPDC"}}})


def test_storage_with_embedded_controllers_keeps_its_members():
    same({"@odata.id": "/s/DE1", "Id": "DE1", "Name": "HPE NS204i-r",
          "Status": {"HealthRollup": "OK", "State": "Enabled"},
          "Drives": [{"@odata.id": "/d/1"}], "Volumes": {"@odata.id": "/v"},
          "StorageControllers": [{
              "@odata.id": "/s/DE1#/StorageControllers/0", "Model": "M", "Name": "N",
              "SerialNumber": "S",
              "Location": {"PartLocation": {"LocationOrdinalValue": 13, "LocationType": "Slot",
                                            "ServiceLabel": "Slot 13"}}}]})


def test_storage_with_linked_controllers_keeps_the_link():
    same({"Id": "DE1", "Name": "HPE MR216i-o", "Controllers": {"@odata.id": "/c"}, "Drives": [],
          "Volumes": {"@odata.id": "/v"}})


def test_volume_keeps_both_drive_lists():
    same({"Id": "239", "Name": "MR Volume 239", "Status": {"Health": "OK", "State": "Enabled"}, "RAIDType": "RAID1",
          "CapacityBytes": 480036519936, "BlockSizeBytes": 512,
          "Links": {"Drives": [{"@odata.id": "/d/1"}], "DedicatedSpareDrives": [{"@odata.id": "/d/2"}]}})


def test_redfish_drive_keeps_its_members():
    same({"Id": "0", "Name": "Empty Bay", "Model": "MO", "CapacityBytes": 1600321314816, "SerialNumber": "5F",
          "Revision": "HPD2",
          "MediaType": "SSD", "BlockSizeBytes": 512, "FailurePredicted": False, "PredictedMediaLifeLeftPercent": 100.0,
          "StatusIndicator": "OK", "DiskDriveStatusReasons": ["None"], "Links": {"Volumes": [{"@odata.id": "/v/1"}]},
          "PhysicalLocation": {"PartLocation": {"ServiceLabel": "Slot=14", "LocationType": "Bay",
                                                "LocationOrdinalValue": 1}},
          "Status": {"State": "StandbyOffline", "Health": "OK"}})


def test_manager_and_service_root_keep_version_and_generation():
    current = {"Current": {"MajorVersion": 2, "MinorVersion": 55, "VersionString": "iLO 5 v2.55"}}
    same({"Firmware": current, "FirmwareVersion": "iLO 5 v2.55", "Oem": {"Hpe": {"Firmware": current}}})
    same({"Oem": {"Hpe": {"Moniker": {"PRODGEN": "iLO 6"}}}})


def test_error_answer_keeps_its_message_id():
    same({"error": {"code": "iLO.0.10.ExtendedInfo", "message": "See.", "@Message.ExtendedInfo": [
        {"MessageArgs": ["30"], "MessageId": "iLO.2.30.ResourceNotReadyRetry"}]}})


def test_real_stays_real_and_integer_stays_integer():
    assert shaped('{"PredictedMediaLifeLeftPercent":99.0,"CapacityGB":600}') \
        == '{"PredictedMediaLifeLeftPercent":99.0,"CapacityGB":600}'


@pytest.mark.parametrize("number", ["1e999", "-1e999", "9223372036854775808", "-9223372036854775809", "9" * 100_000,
                                    "1e30"])
def test_number_beyond_64_bits_becomes_null(number):
    assert shaped(f'{{"CapacityGB":{number}}}') == '{"CapacityGB":null}'


@pytest.mark.parametrize("number", ["9223372036854775807", "-9223372036854775808", "0"])
def test_number_of_64_bits_stays(number):
    assert shaped(f'{{"CapacityGB":{number}}}') == f'{{"CapacityGB":{number}}}'


@pytest.mark.parametrize("text, expected", [
    ("plain ~text ", "plain ~text "), ("a\\u0000b\\tc\\nd\\u007f", "a?b?c?d?"), ("\u65e5\u672c", "??"),
    ("\\ud83d\\ude00", "?"), ("\\ud800x", "?x"), ("\\u009b31m", "?31m"), ('\\"\\\\%s', '"\\%s'),
])
def test_text_becomes_printable_ascii(text, expected):
    assert json.loads(shaped(f'{{"Model":"{text}"}}')) == {"Model": expected}


def test_texts_in_lists_become_printable_too():
    assert shaped('{"DiskDriveStatusReasons":["a\\nb"]}') == '{"DiskDriveStatusReasons":["a?b"]}'


@pytest.mark.parametrize("text, expected", [
    ("/redfish/v1/Systems/1/", "/redfish/v1/Systems/1/"), ("/a%20b c", "/a%20b c"),
    ("/a\\nb\\u0000", "/a%0Ab%00"), ("/\u00e9", "/%C3%A9"), ("/\\ud800", "/%ED%A0%80"),
])
def test_id_stays_a_usable_path(text, expected):
    assert json.loads(shaped(f'{{"Members":[{{"@odata.id":"{text}"}}]}}')) == {"Members": [{"@odata.id": expected}]}


@pytest.mark.parametrize("text, expected", [
    ('{"Status":null,"Links":null,"Members":null}', '{"Status":null,"Links":null,"Members":null}'),
    ('{"Status":"x","Members":5,"@odata.id":7}', '{"Status":"x","Members":5,"@odata.id":7}'),
    ('{"Model":{"a":1},"Id":[{"b":2},[3]]}', '{"Model":{},"Id":[{},[]]}'),
    ('{"Members":[[["x"]],"a\\n",null,true]}', '{"Members":[[],"a?",null,true]}'),
    ('{"Location":[{"Info":"x","PartLocation":{"ServiceLabel":"L"}}]}',
     '{"Location":[{"PartLocation":{"ServiceLabel":"L"}}]}'),
    ('{"Id":"1","Id":"2"}', '{"Id":"2"}'),
])
def test_member_of_a_wrong_type_keeps_a_wrong_type(text, expected):
    assert shaped(text) == expected


@pytest.mark.parametrize("text", ["", "[]", "3", '{"a":NaN}', '{"a":-Infinity}', "{", "[" * 40_000, '{"a":' * 40_000])
def test_what_is_no_json_object_is_refused(text):
    with pytest.raises(Failure):
        shaped(text)


def test_collection_of_two_hundred_members_fits_what_the_service_can_take():
    members = [{"@odata.id": f"/redfish/v1/Systems/1/Storage/DE00A000/Drives/{number}"} for number in range(200)]
    assert len(shaped(json.dumps({"@odata.id": "/redfish/v1/x", "Members": members,
                                  "Members@odata.count": 200}))) < 18196
