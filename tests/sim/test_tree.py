"""What the generated resources look like, and how $expand and trailing slashes change them."""

import json

import pytest
from sim_rest import ARRAY, RAID, SYSTEM


def test_answers_are_compact_json_and_chunked(rest):
    reply = rest.get(SYSTEM)
    assert reply.headers["Transfer-Encoding"] == "chunked"
    assert reply.body == json.dumps(reply.json, separators=(",", ":")).encode()


def test_framing_by_length(start, connect):
    reply = connect(start("--framing", "length")).get(SYSTEM)
    assert int(reply.headers["Content-Length"]) == len(reply.body)


def test_one_connection_serves_many_requests(sim, rest):
    for _ in range(5):
        assert rest.get(SYSTEM).status == 200
    counters = sim.control.call("counters")
    assert counters["connections"] == 1
    assert counters["requests"][f"GET {SYSTEM}"] == 5


def test_links_echo_the_form_asked_for(rest):
    assert rest.links("/redfish/v1/Systems/") == ["/redfish/v1/Systems/1/"]
    assert rest.links("/redfish/v1/Systems") == ["/redfish/v1/Systems/1"]


@pytest.mark.parametrize("form", [RAID, RAID.rstrip("/")])
def test_device_resources_never_end_links_in_a_slash(rest, form):
    storage = rest.get(form).json
    assert storage["@odata.id"] == RAID.rstrip("/")
    assert storage["Drives"][0]["@odata.id"] == "/redfish/v1/Chassis/DE00A000/Drives/0"


def test_smart_array_members(rest):
    assert rest.get(SYSTEM).json["Oem"]["Hpe"]["Links"]["SmartStorage"]["@odata.id"] == SYSTEM + "SmartStorage/"
    controller = rest.get(ARRAY).json
    assert controller["Model"] == "HPE Smart Array P408i-a SR Gen10"
    assert controller["Location"] == "Slot 0"
    assert controller["SerialNumber"].endswith(" ")
    drives = [rest.get(path).json for path in rest.links(ARRAY + "DiskDrives/")]
    assert [drive["Location"] for drive in drives] == ["1I:1:1", "1I:1:2", "1I:1:3", "1I:1:4"]
    assert [drive["MediaType"] for drive in drives] == ["SSD", "SSD", "HDD", "HDD"]
    assert [drive["SSDEnduranceUtilizationPercentage"] for drive in drives] == [2, 2, None, None]
    for drive in drives:
        assert drive["DiskDriveStatusReasons"] == ["None"]
        assert drive["FirmwareVersion"]["Current"]["VersionString"]
        assert {"CapacityGB", "CapacityMiB", "BlockSizeBytes", "CapacityLogicalBlocks"} <= set(drive)


def test_smart_array_volumes_share_the_drives_out(rest):
    volumes = rest.links(ARRAY + "LogicalDrives/")
    assert [rest.get(path).json["LogicalDriveNumber"] for path in volumes] == [1, 2]
    assert rest.get(volumes[0]).json["LogicalDriveStatusReasons"] == ["Ok"]
    data = [rest.links(path + "DataDrives/") for path in volumes]
    assert data == [[ARRAY + "DiskDrives/0/", ARRAY + "DiskDrives/1/"],
                    [ARRAY + "DiskDrives/2/", ARRAY + "DiskDrives/3/"]]


def test_mr_members(rest):
    storage = rest.get(RAID).json
    assert storage["Name"] == "HPE MR416i-o Gen11"
    assert "Health" not in storage["Status"]
    entry = rest.get(rest.links(storage["Controllers"]["@odata.id"])[0]).json
    assert entry["Location"]["PartLocation"]["ServiceLabel"] == "Slot=14"
    drives = [rest.get(path).json for path in rest.links(RAID, "Drives")]
    assert drives[0]["PhysicalLocation"]["PartLocation"]["ServiceLabel"] == "Slot=14:Port=1:Box=1:Bay=1"
    assert isinstance(drives[0]["PredictedMediaLifeLeftPercent"], float)
    assert "PredictedMediaLifeLeftPercent" not in drives[3]
    volumes = rest.links(RAID + "Volumes/")
    assert [path.rsplit("/", 1)[1] for path in volumes] == ["239", "238"]
    first = rest.get(volumes[0]).json
    assert [link["@odata.id"] for link in first["Links"]["Drives"]] == rest.links(RAID, "Drives")[:2]
    assert drives[0]["Links"]["Volumes"] == [{"@odata.id": volumes[0]}]


@pytest.mark.parametrize("generation", ["6", "7"])
def test_later_generations_have_no_smart_storage(start, connect, generation):
    rest = connect(start("--ilo", generation))
    assert "SmartStorage" not in rest.get(SYSTEM).json["Oem"]["Hpe"]["Links"]
    for path in ("SmartStorage", "SmartStorage/ArrayControllers/"):
        reply = rest.get(SYSTEM + path)
        assert reply.status == 404
        assert reply.message_id.endswith(".ResourceMissingAtURI")
    assert rest.links(SYSTEM + "Storage/") == [RAID]


@pytest.mark.parametrize("options, text, major, minor", [
    (["--ilo", "5"], "iLO 5 v2.72", 2, 72), (["--ilo", "5", "--firmware", "1.19"], "iLO 5 v1.19", 1, 19),
    (["--ilo", "6"], "iLO 6 v1.66", 1, 66), (["--ilo", "7"], "1.14.00 May 28 2025", 1, 14)])
def test_firmware_sits_below_oem(start, connect, options, text, major, minor):
    rest = connect(start(*options))
    manager = rest.get(rest.links("/redfish/v1/Managers/")[0]).json
    assert "Firmware" not in manager
    current = manager["Oem"]["Hpe"]["Firmware"]["Current"]
    assert (current["VersionString"], current["MajorVersion"], current["MinorVersion"]) == (text, major, minor)


def test_old_firmware_gives_wear_in_hundredths(start, connect):
    sim = start("--firmware", "1.19")
    sim.control.call("wear-drive", 1, 1, 80)
    assert connect(sim).get(ARRAY + "DiskDrives/0/").json["SSDEnduranceUtilizationPercentage"] == 8000


def test_firmware_before_1_40_redirects_to_the_slashed_path(start, connect):
    rest = connect(start("--firmware", "1.39"))
    reply = rest.get("/redfish/v1/Systems?$expand=.")
    assert (reply.status, reply.headers["Location"]) == (308, "/redfish/v1/Systems/?$expand=.")
    assert rest.get("/redfish/v1/Systems/").status == 200


def test_counts_of_everything(start, connect):
    rest = connect(start("--controllers", "2", "--drives", "9", "--volumes", "3", "--ssd", "1", "--mr", "2"))
    arrays = rest.links(SYSTEM + "SmartStorage/ArrayControllers/")
    assert len(arrays) == 2 and len(rest.links(SYSTEM + "Storage/")) == 2
    for array in arrays:
        drives = [rest.get(path).json for path in rest.links(array + "DiskDrives/")]
        assert len({drive["Location"] for drive in drives}) == 9
        assert sum(drive["MediaType"] == "SSD" for drive in drives) == 1
        assert len(rest.links(array + "LogicalDrives/")) == 3


def test_expand_on_inlines_members_one_level(rest):
    expanded = rest.get(ARRAY + "DiskDrives/?$expand=.").json
    assert expanded["Members"][0] == rest.get(ARRAY + "DiskDrives/0/").json
    systems = rest.get("/redfish/v1/Systems/?$expand=.").json["Members"]
    assert set(systems[0]["Storage"]) == {"@odata.id"}


def test_expand_off_ignores_the_query(start, connect):
    rest = connect(start("--expand", "off"))
    assert rest.get("/redfish/v1/Systems/?$expand=.").json["Members"] == [{"@odata.id": SYSTEM}]


def test_expand_refused(start, connect):
    sim = start("--expand", "refuse")
    rest = connect(sim)
    reply = rest.get("/redfish/v1/Systems/?$expand=.")
    assert reply.status == 501 and reply.message_id.endswith(".QueryNotSupported")
    assert rest.get("/redfish/v1/Systems/").status == 200
    sim.control.call("expand", "on")
    assert rest.get("/redfish/v1/Systems/?%24expand=.").json["Members"][0]["Id"] == "1"


@pytest.mark.parametrize("mode, status, message", [("missing", 404, ".ResourceMissingAtURI"),
                                                   ("fail", 500, ".InternalError")])
def test_expand_fails(start, connect, mode, status, message):
    rest = connect(start("--expand", mode))
    reply = rest.get("/redfish/v1/Systems/?$expand=.")
    assert reply.status == status and reply.message_id.endswith(message)
    assert rest.get("/redfish/v1/Systems/").status == 200


def test_member_with_a_fault_of_its_own_stays_a_link(start, connect):
    sim = start("--drives", "3")
    rest = connect(sim)
    sim.control.call("not-ready", "GET */DiskDrives/1", 1)
    members = rest.get(ARRAY + "DiskDrives/?$expand=.").json["Members"]
    assert [set(member) == {"@odata.id"} for member in members] == [False, True, False]
    assert rest.get(ARRAY + "DiskDrives/1/").status == 503, "the fault has waited"
    assert all("Id" in member for member in rest.get(ARRAY + "DiskDrives/?$expand=.").json["Members"])


def test_only_reading_is_allowed(rest):
    assert rest.ask("PATCH", SYSTEM, {"AssetTag": "x"}).status == 405
    head = rest.ask("HEAD", SYSTEM)
    assert (head.status, head.body) == (200, b"")
    assert rest.get(SYSTEM).status == 200


def test_served_folder(tmp_path, start, connect):
    def put(path, body):
        folder = tmp_path / "tree" / path
        folder.mkdir(parents=True)
        (folder / "index.json").write_text(json.dumps(body, indent=4))

    put("redfish/v1", {"@odata.id": "/redfish/v1/", "Name": "Root"})
    put("redfish/v1/Systems", {"@odata.id": "/redfish/v1/Systems", "Members": [{"@odata.id": "/redfish/v1/Systems/7"}]})
    put("redfish/v1/Systems/7", {"@odata.id": "/redfish/v1/Systems/7", "Status": {"Health": "OK"}})
    sim = start("--tree", str(tmp_path / "tree"))
    rest = connect(sim)
    for path in ("/redfish/v1/Systems/7", "/redfish/v1/Systems/7/"):
        assert rest.get(path).json["@odata.id"] == "/redfish/v1/Systems/7", "links stand as in the file"
    absent = rest.get("/redfish/v1/Systems/8")
    assert absent.status == 404 and absent.message_id.endswith(".ResourceMissingAtURI")
    sim.control.call("set", "/redfish/v1/Systems/7", "Status.Health", "Warning")
    assert rest.get("/redfish/v1/Systems/?$expand=.").json["Members"][0]["Status"]["Health"] == "Warning"
