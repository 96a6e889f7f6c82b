"""What the largest answers cost in memory, measured in an interpreter of its own."""

from __future__ import annotations

import json
import subprocess
import sys

import pytest
from conftest import MODULE_FOLDER

import _bayward_resources
import _bayward_shaping
import _bayward_transport
from _bayward_outcome import OTHER, Answer, Failure

PROGRAM = """
import sys
sys.path.insert(0, sys.argv[1])
from _bayward_outcome import Failure
from _bayward_shaping import parse_object, shaped_text
def peak():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmHWM"))
body = sys.stdin.buffer.read()
before = peak()
try:
    taken = bool(shaped_text(parse_object(body)))
except Failure:
    taken = False
print(taken, peak() - before)
"""


def expanded_drives(count):
    """A drive collection with its members inlined, each as large as drives get."""
    def drive(number):
        path = f"/redfish/v1/Systems/1/Storage/DE00A000/Drives/{number}"
        return {
            "@odata.context": "/redfish/v1/$metadata#Drive.Drive", "@odata.etag": 'W/"0F1E2D3C"', "@odata.id": path,
            "@odata.type": "#Drive.v1_14_0.Drive", "Id": str(number), "Name": "480GB 6G SATA SSD",
            "Model": "VK000480GWSXK", "SerialNumber": f"S45PNA0M5{number:05}", "PartNumber": "P18422-B21",
            "Revision": "HPG1", "MediaType": "SSD",
            "Protocol": "SATA", "CapacityBytes": 480103981056, "BlockSizeBytes": 512, "FailurePredicted": False,
            "PredictedMediaLifeLeftPercent": 100, "NegotiatedSpeedGbs": 6, "CapableSpeedGbs": 6,
            "RotationSpeedRPM": None, "EncryptionAbility": "None",
            "EncryptionStatus": "Unencrypted",
            "HotspareType": "None", "WriteCacheEnabled": False,
            "Status": {"Health": "OK", "HealthRollup": "OK", "State": "Enabled"},
            "Identifiers": [{"DurableName": f"50014EE0{number:08}", "DurableNameFormat": "NAA"}] * 2,
            "PhysicalLocation": {"PartLocation": {"LocationOrdinalValue": number, "LocationType": "Bay",
                                                  "ServiceLabel": f"Slot=14:Port=1:Box=1:Bay={number}"}},
            "Links": {"Volumes": [{"@odata.id": f"/redfish/v1/Systems/1/Storage/DE00A000/Volumes/{number}"}] * 4,
                      "Chassis": {"@odata.id": "/redfish/v1/Chassis/DE00A000"}, "PCIeFunctions": []},
            "Actions": {"#Drive.Reset": {"target": f"{path}/Actions/Drive.Reset", "ResetType@Redfish.AllowableValues":
                                         ["ForceOn", "ForceOff", "PowerCycle"]},
                        "#Drive.SecureErase": {"target": f"{path}/Actions/Drive.SecureErase"}},
            "Oem": {"Hpe": {"@odata.type": "#HpeDrive.v1_0_0.HpeDrive", "CurrentTemperatureCelsius": 31,
                            "PowerOnHours": 1, "MaximumTemperatureCelsius": 70, "WearStatus": "OK",
                            "Temperatures": [{"Sensor": name, "Celsius": 31} for name in "abcdefgh"]}},
        }

    return {"@odata.id": "/redfish/v1/x", "Members": [drive(number) for number in range(count)]}


def cost(body):
    """Whether the body is taken, and the memory in KiB that it needs beside itself."""
    done = subprocess.run([sys.executable, "-c", PROGRAM, str(MODULE_FOLDER)], input=body, capture_output=True,
                          check=True, timeout=60)
    taken, peak = done.stdout.decode().split()
    return taken == "True", int(peak)


def filled(unit, values):
    """A collection of so many values: as many units, each with `{`, `[` and `,` of its own, as fit."""
    marks = sum(unit.count(mark) for mark in b"{[,")
    return b'{"Members":[' + (unit * ((values - 2) // marks)).rstrip(b",") + b"]}"


def test_two_hundred_inlined_drives_have_room_to_spare():
    body = json.dumps(expanded_drives(200)).encode()
    assert 300_000 < len(body) < _bayward_transport.MAX_BODY_BYTES * 0.7
    assert sum(body.count(mark) for mark in b"{[,") < _bayward_shaping.MAX_VALUES * 0.7
    taken, peak = cost(body)
    assert taken and peak < 12 * 1024


UNITS = [b"{},", b"[],", b'{"a":{}},', b'{"a":0},', b'"ab",', b"300,", b"1e9,", b'{"@odata.id":{}},']


@pytest.mark.parametrize("unit", UNITS)
def test_as_many_values_as_are_taken_cost_little(unit):
    taken, peak = cost(filled(unit, _bayward_shaping.MAX_VALUES))
    assert taken and peak < 16 * 1024


@pytest.mark.parametrize("unit", UNITS)
def test_body_full_of_tiny_values_is_refused_before_it_costs_anything(unit):
    body = (b'{"Members":[' + unit * (_bayward_transport.MAX_BODY_BYTES // len(unit)))[:-4] + b"0]}"
    taken, peak = cost(body)
    assert not taken and peak < 2 * 1024


@pytest.mark.parametrize("text", ["\u00e9", "\\n", "x\U0001f600"])
@pytest.mark.parametrize("name", ["Model", "@odata.id"])
def test_long_text_costs_little(name, text):
    body = f'{{"{name}":"{text * (1_000_000 // len(text.encode()))}"}}'.encode()
    taken, peak = cost(body)
    assert taken and peak < 24 * 1024


class Endless:
    """A session with a controller that lists one drive after the other, for ever."""

    log_ins = 0

    def fetch(self, path, _deadline):
        return Answer(200, json.dumps({"@odata.id": path, "Model": "x" * 1000}).encode())


def test_storage_without_end_is_given_up_and_the_next_walk_begins_afresh():
    resources = _bayward_resources.Resources(Endless())
    for _ in range(2):
        taken = len(resources.get("/redfish/v1/Systems/"))
        with pytest.raises(Failure) as raised:
            for number in range(_bayward_resources.MAX_WALK_BYTES // 1000):
                taken += len(resources.get(f"/redfish/v1/Systems/1/Storage/1/Drives/{number}"))
        assert raised.value.code == OTHER
        assert _bayward_resources.MAX_WALK_BYTES - 2000 < taken <= _bayward_resources.MAX_WALK_BYTES


def test_the_storage_of_a_large_server_is_a_small_part_of_a_walk():
    drives = expanded_drives(200)["Members"]
    texts = [_bayward_shaping.shaped_text(drive) for drive in drives]
    assert 10 * sum(map(len, texts)) < _bayward_resources.MAX_WALK_BYTES
