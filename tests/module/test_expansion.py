"""Collections with their members in place: who asks gets the same texts, for fewer requests."""

from __future__ import annotations

import importlib
import json
import sys
from pathlib import Path

import pytest

import _bayward_expansion
from _bayward_outcome import OTHER, REFUSED, Answer, Failure, Unanswered
from _bayward_resources import Resources

SYSTEM = "/redfish/v1/Systems/1"
SYSTEMS = "/redfish/v1/Systems/"
ARRAY = SYSTEM + "/SmartStorage/ArrayControllers/0"
DRIVES = ARRAY + "/DiskDrives/"
STORAGE = SYSTEM + "/Storage/"
DEVICE = STORAGE + "DE00A000"
CHASSIS = "/redfish/v1/Chassis/DE00A000/Drives"
EXPAND = "?$expand=."

MISSING = {"error": {"@Message.ExtendedInfo": [{"MessageId": "Base.1.18.ResourceMissingAtURI"}]}}
NOT_READY = {"error": {"@Message.ExtendedInfo": [{"MessageId": "iLO.2.30.ResourceNotReadyRetry"}]}}


def smart_drive(number):
    return {"@odata.id": f"{DRIVES}{number}/", "Id": str(number), "Model": "M", "CapacityGB": 600, "CapacityMiB": 572325,
            "BlockSizeBytes": 512, "CapacityLogicalBlocks": 1172123568, "SerialNumber": f"S{number}",
            "Location": f"1I:1:{number}", "MediaType": "HDD", "Status": {"Health": "OK", "State": "Enabled"},
            "DiskDriveStatusReasons": ["None"], "SSDEnduranceUtilizationPercentage": None, "PowerOnHours": None,
            "FirmwareVersion": {"Current": {"VersionString": "HPD1"}}}


def chassis_drive(number):
    return {"@odata.id": f"{CHASSIS}/{number}", "Id": str(number), "Model": "M", "SerialNumber": f"S{number}",
            "MediaType": "SSD", "CapacityBytes": 480103981056, "Status": {"Health": "OK", "State": "Enabled"},
            "PhysicalLocation": {"PartLocation": {"ServiceLabel": "Slot=1:Bay=1"}}, "FailurePredicted": False,
            "PredictedMediaLifeLeftPercent": 97.0, "Links": {"Volumes": []}}


def storage(drives):
    return {"@odata.id": DEVICE, "Id": "DE00A000", "Name": "HPE MR416i-o Gen11",
            "Status": {"State": "Enabled", "HealthRollup": "OK"}, "Controllers": {"@odata.id": DEVICE + "/Controllers"},
            "Drives": [{"@odata.id": drive["@odata.id"]} for drive in drives]}


class Controller:
    """A session with a controller of the given resources. `members` are those of the collections, in place of which
    plain answers hold links; `answers` replace answers to exactly that path, an exception is raised."""

    def __init__(self, members, *resources):
        self.members = members
        self.resources = {body["@odata.id"].rstrip("/"): body for body in resources}
        self.answers = {}
        self.asked = []
        self.open = True
        self.log_ins = 0

    def is_open(self):
        return self.open

    def fetch(self, path, _deadline):
        self.asked.append(path)
        answer = self.answers[path] if path in self.answers else self._answer(path)
        if isinstance(answer, Exception):
            raise answer
        status, body = answer
        return Answer(status, body if isinstance(body, bytes) else json.dumps(body).encode())

    def _answer(self, path):
        plain, _, query = path.partition("?")
        key = plain.rstrip("/")
        collections = {collection.rstrip("/"): collection for collection in self.members}
        if key in collections:
            members = self.members[collections[key]]
            return 200, collection_of(collections[key], members if query else self._links(collections[key]))
        found = [body for members in self.members.values() for body in members if body["@odata.id"].rstrip("/") == key]
        found += [self.resources[key]] if key in self.resources else []
        return (200, found[0]) if found else (404, MISSING)

    def _links(self, collection):
        end = "/" if collection.endswith("/") else ""
        return [{"@odata.id": body["@odata.id"].rstrip("/") + end} for body in self.members[collection]]

    def new(self):
        """The paths asked for since the last time."""
        asked, self.asked = self.asked, []
        return asked


def collection_of(path, members):
    return {"@odata.id": path, "Name": "Drives", "Members": members, "Members@odata.count": len(members)}


@pytest.fixture
def array():
    """A Smart Array controller's three drives."""
    return Controller({DRIVES: [smart_drive(number) for number in range(3)], SYSTEMS: []})


@pytest.fixture
def device():
    """An MR controller whose three drives are below a chassis that has one more."""
    drives = [chassis_drive(number) for number in range(4)]
    return Controller({STORAGE: [storage(drives[:3])], CHASSIS: drives, SYSTEMS: []})


def plain_text(controller, path):
    return Resources(controller, expand=False).get(path)


def same_as_plain(controller, resources, *paths):
    """The texts of these paths are those of a session that does not expand."""
    for path in paths:
        assert resources.get(path) == plain_text(Controller(controller.members, *controller.resources.values()), path)


def drive_paths(controller):
    return [body["@odata.id"] for body in controller.members[DRIVES]]


def loaded_anew():
    """Like the service does, of all that is in the module's folder."""
    place = Path(_bayward_expansion.__file__).parent
    kept = {name: module for name, module in sys.modules.items()
            if Path(getattr(module, "__file__", None) or "/").parent == place}
    for name in set(kept) - {"_bayward_outcome"}:  # the tests raise its failures
        del sys.modules[name]
    try:
        return importlib.import_module("_bayward_resources")
    finally:
        sys.modules.update(kept)


def walked(controller, *paths):
    """The resources of a session that knows already what these collections list."""
    resources = Resources(controller)
    for path in paths:
        resources.get(path)
    resources.get(SYSTEMS)
    controller.new()
    return resources


# ---- What was in place ----

def test_members_in_place_are_handed_out_without_a_request(array):
    resources = walked(array, DRIVES)
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND]


def test_member_is_handed_out_once(array):
    resources = walked(array, DRIVES)
    resources.get(DRIVES)
    for path in drive_paths(array) * 2:
        resources.get(path)
    assert array.new() == [DRIVES + EXPAND, *drive_paths(array)]


def test_member_is_found_with_and_without_a_slash_at_the_end(array):
    resources = walked(array, DRIVES)
    resources.get(DRIVES)
    assert "S1" in resources.get(f"{DRIVES}1")
    assert array.new() == [DRIVES + EXPAND]


def test_members_of_another_walk_are_forgotten(array):
    resources = walked(array, DRIVES)
    resources.get(DRIVES)
    resources.get(SYSTEMS)
    resources.get(f"{DRIVES}1/")
    assert array.new() == [DRIVES + EXPAND, SYSTEMS, f"{DRIVES}1/"]


@pytest.mark.parametrize("age, asked", [(59.9, []), (60.1, [f"{DRIVES}1/"])])
def test_members_are_kept_for_a_minute(array, monkeypatch, age, asked):
    now = [1000.0]
    monkeypatch.setattr(_bayward_expansion.time, "monotonic", lambda: now[0])
    resources = Resources(array)
    resources.get(DRIVES)
    array.new()
    now[0] += age
    assert "S1" in resources.get(f"{DRIVES}1/")
    assert array.new() == asked


def test_collection_that_is_read_again_tells_what_is_now(array):
    """Within one walk: the reader asks again for what was not ready."""
    resources = walked(array, DRIVES)
    resources.get(DRIVES)
    array.members[DRIVES][1]["Status"]["Health"] = "Critical"
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND] * 2


def test_collection_that_is_read_again_later_is_kept_anew(array, monkeypatch):
    now = [1000.0]
    monkeypatch.setattr(_bayward_expansion.time, "monotonic", lambda: now[0])
    resources = walked(array, DRIVES)
    resources.get(DRIVES)
    now[0] += 61
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND] * 2


def test_room_for_what_is_kept_is_not_lost_by_reading_again(array, monkeypatch):
    resources = walked(array, DRIVES)
    monkeypatch.setattr(_bayward_expansion, "MAX_KEPT_BYTES", 2000)
    for _ in range(5):
        resources.get(DRIVES)
    array.new()
    same_as_plain(array, resources, *drive_paths(array))
    assert array.new() == []


def test_changes_are_seen_in_the_next_walk(array):
    resources = Resources(array)
    resources.get(DRIVES)
    array.members[DRIVES][1]["Status"]["Health"] = "Critical"
    assert '"Health":"OK"' in resources.get(f"{DRIVES}1/")
    resources.get(SYSTEMS)
    resources.get(DRIVES)
    assert '"Health":"Critical"' in resources.get(f"{DRIVES}1/")


def test_nothing_is_expanded_when_switched_off(array, device):
    for controller, path in ((array, DRIVES), (device, STORAGE), (device, DEVICE), (device, f"{CHASSIS}/1")):
        Resources(controller, expand=False).get(path)
        assert controller.new() == [path]


@pytest.mark.parametrize("path", [SYSTEMS, ARRAY + "/LogicalDrives/1/DataDrives/", "/redfish/v1/Managers/",
                                  SYSTEM + "/", DEVICE, "/redfish/v1/"])
def test_what_saves_nothing_is_asked_plainly(path):
    controller = Controller({}, collection_of(path, []))
    Resources(controller).get(path)
    assert controller.new() == [path]


def test_kept_texts_have_a_limit(array, monkeypatch):
    resources = walked(array, DRIVES)
    monkeypatch.setattr(_bayward_expansion, "MAX_KEPT_BYTES", 2 * len(plain_text(array, f"{DRIVES}0/")))
    array.new()
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND, f"{DRIVES}2/"]
    resources.get(DRIVES)
    for path in drive_paths(array)[:2]:
        resources.get(path)  # room again
    assert array.new() == [DRIVES + EXPAND]


# ---- Controllers that do not expand ----

@pytest.mark.parametrize("answer", [
    (400, {}), (404, MISSING), (405, {}), (500, {}), (501, {}), (503, {}), (200, b"no JSON"), (200, []), (200, {}),
    (200, {"Members": {}}), (200, {"Members": ["x"]}), (200, {"Members": [{"Id": "1"}]}),
    (200, {"Members": [{"@odata.id": 1}]}),
    (200, {"Members": [smart_drive(0)], "Members@odata.count": 3}),
    (200, {"Members": [smart_drive(0)], "Members@odata.nextLink": DRIVES + "?$skip=1"}),
    (200, b'{"Members":[' + b"{}," * 60_000 + b"{}]}"),
    Failure(OTHER, "An answer of the controller is larger than 1048576 bytes."),
])
def test_collection_that_is_not_expanded_is_asked_plainly_from_then_on(array, answer):
    array.answers[DRIVES + EXPAND] = answer
    resources = Resources(array)
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND, DRIVES, *drive_paths(array)]
    del array.answers[DRIVES + EXPAND]
    resources.get(SYSTEMS)
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [SYSTEMS, DRIVES, *drive_paths(array)]


def test_ignored_expansion_costs_nothing(array):
    array.answers[DRIVES + EXPAND] = (200, collection_of(DRIVES, [{"@odata.id": path} for path in drive_paths(array)]))
    resources = Resources(array)
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND, *drive_paths(array)]
    same_as_plain(array, resources, DRIVES)
    assert array.new() == [DRIVES]


def test_each_collection_is_judged_by_itself(array):
    array.members[ARRAY + "/LogicalDrives/"] = []
    array.answers[DRIVES + EXPAND] = (501, {})
    resources = Resources(array)
    for path in (DRIVES, ARRAY + "/LogicalDrives/"):
        resources.get(path)
    assert array.new() == [DRIVES + EXPAND, DRIVES, ARRAY + "/LogicalDrives/" + EXPAND, ARRAY + "/LogicalDrives/"]


def test_new_session_tries_again(array):
    array.answers[DRIVES + EXPAND] = (501, {})
    Resources(array).get(DRIVES)
    array.new()
    Resources(array).get(DRIVES)
    assert array.new() == [DRIVES + EXPAND, DRIVES]


@pytest.mark.parametrize("answer", [(404, MISSING), (503, NOT_READY), (500, {})])
def test_collection_that_is_not_there_says_nothing_about_expansion(array, answer):
    """While it is away it is asked for once at a time, and with members again once it was back."""
    array.answers = {DRIVES + EXPAND: answer, DRIVES: answer}
    resources = Resources(array)
    for asked in ([DRIVES + EXPAND, DRIVES], [DRIVES], [DRIVES]):
        try:
            assert "MessageId" in resources.get(DRIVES)
        except Failure:
            assert answer[0] == 500
        assert array.new() == asked
    array.answers.clear()
    for asked in ([DRIVES], [DRIVES + EXPAND, DRIVES], [DRIVES + EXPAND]):
        resources.get(DRIVES)
        assert array.new() == asked


def test_collection_that_is_not_ready_with_members_is_asked_with_them_again(array):
    array.answers[DRIVES + EXPAND] = (503, NOT_READY)
    resources = Resources(array)
    for _ in range(3):
        same_as_plain(array, resources, DRIVES)
        assert array.new() == [DRIVES + EXPAND, DRIVES]


# ---- No answer, no session ----

def test_one_request_without_an_answer_is_no_reason_to_stop_expanding(array):
    array.answers[DRIVES + EXPAND] = Unanswered(OTHER, "timed out")
    resources = Resources(array)
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND, DRIVES, *drive_paths(array)]
    del array.answers[DRIVES + EXPAND]
    resources.get(DRIVES)
    array.answers[DRIVES + EXPAND] = Unanswered(OTHER, "timed out")
    resources.get(DRIVES)
    array.new()
    resources.get(DRIVES)  # the second one in a row
    resources.get(DRIVES)
    assert array.new() == [DRIVES + EXPAND, DRIVES, DRIVES]


def test_session_that_is_lost_for_want_of_an_answer_is_not_lost_twice_for_it(array):
    """A controller that is busy with the form with members for longer than a session lasts. Each new session comes with the
    module loaded anew."""
    for _ in range(_bayward_expansion.UNANSWERED_LIMIT):
        array.answers = {DRIVES + EXPAND: Unanswered(OTHER, "with members"), DRIVES: Unanswered(OTHER, "without")}
        with pytest.raises(Failure):
            loaded_anew().Resources(array).get(DRIVES)
        array.new()
    array.answers = {}
    resources = loaded_anew().Resources(array)
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES, *drive_paths(array)]


def test_controller_that_answers_nothing_is_a_failure(array):
    array.answers = {DRIVES + EXPAND: Unanswered(OTHER, "with members"), DRIVES: Unanswered(OTHER, "without")}
    with pytest.raises(Failure, match="without"):
        Resources(array).get(DRIVES)


@pytest.mark.parametrize("code", [OTHER, REFUSED])
def test_log_in_that_fails_is_not_tried_twice(array, device, code):
    """A session that expired is opened anew by the request with members; each refused log-in counts against the account."""
    for controller, paths in ((array, [DRIVES]), (device, [DEVICE, f"{CHASSIS}/1"])):
        resources = Resources(controller)
        for path in paths[:-1]:
            resources.get(path)
        controller.new()
        controller.open = False
        for path in (DRIVES, CHASSIS):
            controller.answers[path + EXPAND] = Failure(code, "refused")
        with pytest.raises(Failure) as raised:
            resources.get(paths[-1])
        assert raised.value.code == code
        assert len(controller.new()) == 1


SESSIONLESS = [(401, {}), (403, {"MessageId": "Base.1.4.NoValidSession"})]


@pytest.mark.parametrize("answer", SESSIONLESS)
def test_form_with_members_that_alone_is_refused_is_left(array, answer):
    """A member that the account may not read, say; the session has been renewed in vain."""
    array.answers[DRIVES + EXPAND] = answer
    resources = Resources(array)
    for asked in ([DRIVES + EXPAND, DRIVES], [DRIVES]):
        same_as_plain(array, resources, DRIVES)
        assert array.new() == asked


@pytest.mark.parametrize("answer", SESSIONLESS)
def test_form_without_members_decides_about_the_session(array, answer):
    array.answers = {DRIVES + EXPAND: answer, DRIVES: answer}
    with pytest.raises(Failure) as raised:
        Resources(array).get(DRIVES)
    assert raised.value.code == (REFUSED if answer[0] == 401 else OTHER)


@pytest.mark.parametrize("answer", SESSIONLESS)
def test_refused_folder_of_drives_is_left(device, answer):
    device.answers[CHASSIS + EXPAND] = answer
    resources = Resources(device)
    drives = [f"{CHASSIS}/{number}" for number in range(3)]
    for asked in ([SYSTEMS, DEVICE, CHASSIS + EXPAND, *drives], [SYSTEMS, DEVICE, *drives]):
        resources.get(SYSTEMS)
        same_as_plain(device, resources, DEVICE, *drives)
        assert device.new() == asked


def test_members_of_another_session_are_forgotten(array):
    """The session was renewed by another request of the same walk."""
    resources = walked(array, DRIVES)
    resources.get(DRIVES)
    array.log_ins += 1
    array.members[DRIVES][1]["Status"]["Health"] = "Critical"
    assert '"Health":"Critical"' in resources.get(f"{DRIVES}1/")
    assert array.new() == [DRIVES + EXPAND, f"{DRIVES}1/"]
    array.log_ins += 1
    resources.get(DRIVES)
    same_as_plain(array, resources, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND]


def test_members_from_before_the_session_was_renewed_are_forgotten(array):
    """It was renewed by the request for the plain form of the same collection."""
    resources = Resources(array)
    ask = array.fetch

    def fetch(path, deadline):
        answer = ask(path, deadline)
        if path == DRIVES:
            array.log_ins += 1
            array.members[DRIVES][1]["Status"]["Health"] = "Critical"
        return answer

    array.fetch = fetch
    resources.get(DRIVES)
    assert '"Health":"Critical"' in resources.get(f"{DRIVES}1/")
    assert array.new() == [DRIVES + EXPAND, DRIVES, f"{DRIVES}1/"]


# ---- Members that are not whole ----

def without(*names):
    drive = smart_drive(1)
    holder = drive
    for name in names[:-1]:
        holder = holder[name]
    del holder[names[-1]]
    return drive


@pytest.mark.parametrize("member", [
    {"@odata.id": f"{DRIVES}1/"},
    {**smart_drive(1), "Status": {"Health": "OK", "State": "Starting"}},
    {**smart_drive(1), "Status": None},
    {**smart_drive(1), "error": {}},
    {**smart_drive(1), "@Message.ExtendedInfo": []},
    {**smart_drive(1), "Status@Message.ExtendedInfo": []},
    {**smart_drive(1), "Model": "ResourceNotReadyRetry"},
    {**smart_drive(1), "Model": "ResourceMissingAtURI"},
    *[without(name) for name in smart_drive(1)
      if name not in ("@odata.id", "SSDEnduranceUtilizationPercentage", "PowerOnHours")],
    {**smart_drive(1), "CapacityGB": None},
    {**smart_drive(1), "DiskDriveStatusReasons": None},
    {**smart_drive(1), "Status": {"Health": None, "State": "Enabled"}},
    {**smart_drive(1), "Status": {"Health": "OK", "State": None}},
    {**smart_drive(1), "Oem": {"Hpe": {"Note": "ResourceNotReadyRetry"}}},
    {**smart_drive(1), "MediaType": "SSD"},
    without("Status", "Health"), without("Status", "State"), without("FirmwareVersion", "Current", "VersionString"),
], ids=lambda member: str(len(json.dumps(member))))
def test_member_that_is_not_whole_is_asked_for_itself(array, member):
    resources = walked(array, DRIVES)
    expanded = collection_of(DRIVES, [smart_drive(0), member, smart_drive(2)])
    array.answers[DRIVES + EXPAND] = (200, expanded)
    for _ in range(2):
        same_as_plain(array, resources, DRIVES, *drive_paths(array))
        assert array.new() == [DRIVES + EXPAND, f"{DRIVES}1/"]


@pytest.mark.parametrize("change", [{"Drives": []}, {"Drives": None}, {"Drives@odata.count": 4}, {"Id": None}], ids=str)
def test_storage_that_does_not_tell_all_is_asked_for_itself(device, change):
    resources = walked(device, STORAGE)
    told = {**device.members[STORAGE][0], "Drives@odata.count": 3, **change}
    device.answers[STORAGE + EXPAND] = (200, collection_of(STORAGE, [told]))
    same_as_plain(device, resources, STORAGE, DEVICE)
    assert device.new() == [STORAGE + EXPAND, DEVICE]


def test_storage_that_neither_lists_nor_counts_drives_is_asked_for_itself(device):
    resources = walked(device, STORAGE)
    device.answers[STORAGE + EXPAND] = (200, collection_of(STORAGE, [storage([])]))
    same_as_plain(device, resources, STORAGE, DEVICE)
    assert device.new() == [STORAGE + EXPAND, DEVICE]


@pytest.mark.parametrize("media", ["SSD", "NVMe SSD"])
def test_worn_drive_below_a_chassis_is_told_by_itself_where_its_collection_does_not_tell(device, media):
    for drive in device.members[CHASSIS]:
        drive["MediaType"] = media
    del device.members[CHASSIS][1]["PredictedMediaLifeLeftPercent"]
    resources = Resources(device)
    same_as_plain(device, resources, DEVICE, f"{CHASSIS}/0", f"{CHASSIS}/1")
    assert device.new() == [DEVICE, CHASSIS + EXPAND, f"{CHASSIS}/1"]


# ---- Links ----

def test_collection_lists_its_members_as_without_expansion(device):
    """The controller ends its links in a slash, the device that speaks for itself does not: the plain form tells."""
    resources = Resources(device)
    same_as_plain(device, resources, STORAGE, DEVICE)
    assert device.new() == [STORAGE + EXPAND, STORAGE]
    resources.get(SYSTEMS)
    same_as_plain(device, resources, STORAGE, DEVICE)
    assert device.new() == [SYSTEMS, STORAGE + EXPAND]
    assert DEVICE + '/"' in resources.get(STORAGE)


def test_new_device_in_a_collection_is_listed_as_without_expansion(device):
    resources = Resources(device)
    resources.get(STORAGE)
    other = {**storage([]), "@odata.id": STORAGE + "DE00B000", "Id": "DE00B000", "Drives@odata.count": 0}
    device.members[STORAGE].append(other)
    device.new()
    same_as_plain(device, resources, STORAGE, DEVICE, STORAGE + "DE00B000")
    assert device.new() == [STORAGE + EXPAND, STORAGE]


def test_plain_form_that_fails_then_is_the_answer(device):
    device.answers[STORAGE] = (503, NOT_READY)
    resources = Resources(device)
    assert "NotReady" in resources.get(STORAGE)
    del device.answers[STORAGE]
    same_as_plain(device, resources, STORAGE, DEVICE)


@pytest.mark.parametrize("failed", [(503, NOT_READY), (404, MISSING), (500, {}), (200, b"<html>"), (200, NOT_READY)], ids=str)
def test_plain_form_that_fails_does_not_list_nothing(array, failed):
    """The form with members is as empty as it: both do not tell what there is."""
    resources = Resources(array)
    array.answers = {DRIVES + EXPAND: (200, collection_of(DRIVES, [])), DRIVES: failed}
    for _ in range(2):
        try:
            assert resources.get(DRIVES) == Resources(array, expand=False).get(DRIVES)
        except Failure:
            assert failed[0] == 500 or failed[1] == b"<html>"
        assert array.new()[:2] == [DRIVES + EXPAND, DRIVES]
    del array.answers[DRIVES]
    same_as_plain(array, resources, DRIVES, *drive_paths(array))


def test_endless_new_names_are_forgotten(device, monkeypatch):
    monkeypatch.setattr(_bayward_expansion, "MAX_REMEMBERED", 0)
    resources = Resources(device)
    for _ in range(2):
        resources.get(SYSTEMS)
        resources.get(STORAGE)
        assert device.new() == [SYSTEMS, STORAGE + EXPAND, STORAGE]


@pytest.mark.parametrize("left", [[], [0], [0, 2]])
def test_member_that_is_not_put_in_place_is_not_gone(array, left):
    """Whatever the controller counts: the plain form tells what there is, and is asked alone from then on."""
    resources = walked(array, DRIVES)
    array.answers[DRIVES + EXPAND] = (200, collection_of(DRIVES, [array.members[DRIVES][number] for number in left]))
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND, DRIVES, *[path for number, path in enumerate(drive_paths(array))
                                                      if number not in left]]
    resources.get(SYSTEMS)
    same_as_plain(array, resources, DRIVES)
    assert array.new() == [SYSTEMS, DRIVES]


def test_member_that_is_gone_is_gone(array):
    resources = walked(array, DRIVES)
    del array.members[DRIVES][1]
    for asked in ([SYSTEMS, DRIVES + EXPAND, DRIVES], [SYSTEMS, DRIVES + EXPAND]):
        resources.get(SYSTEMS)
        same_as_plain(array, resources, DRIVES, *drive_paths(array))
        assert array.new() == asked


def test_members_that_name_themselves_alike_are_asked_for_one_by_one(array):
    resources = walked(array, DRIVES)
    twins = [array.members[DRIVES][0], {**array.members[DRIVES][1], "@odata.id": f"{DRIVES}0"}, array.members[DRIVES][2]]
    array.answers[DRIVES + EXPAND] = (200, collection_of(DRIVES, twins))
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND, DRIVES, *drive_paths(array)]


def test_members_with_other_names_are_asked_for_themselves(array):
    resources = walked(array, DRIVES)
    others = [{**drive, "@odata.id": drive["@odata.id"].upper()} for drive in array.members[DRIVES]]
    array.answers[DRIVES + EXPAND] = (200, collection_of(DRIVES, others))
    same_as_plain(array, resources, DRIVES, *drive_paths(array))
    assert array.new() == [DRIVES + EXPAND, DRIVES, *drive_paths(array)]


# ---- Drives below a chassis ----

def test_drives_of_a_storage_resource_come_with_their_collection(device):
    resources = Resources(device)
    drives = [f"{CHASSIS}/{number}" for number in range(4)]
    for _ in range(2):
        resources.get(SYSTEMS)
        same_as_plain(device, resources, DEVICE, *drives)
        assert device.new() == [SYSTEMS, DEVICE, CHASSIS + EXPAND, drives[3]]  # the last one is not in the list


def test_single_drive_is_asked_for_itself(device):
    device.members[STORAGE] = [storage([chassis_drive(0)])]
    resources = Resources(device)
    same_as_plain(device, resources, DEVICE, f"{CHASSIS}/0")
    assert device.new() == [DEVICE, f"{CHASSIS}/0"]


def test_empty_bay_tells_little_and_is_whole(device):
    bay = {"@odata.id": f"{CHASSIS}/64520", "Id": "64520", "Name": "Empty Bay",
           "Status": {"State": "Absent", "Health": "OK"}, "PhysicalLocation": {"PartLocation": {"ServiceLabel": "x"}}}
    device.members[CHASSIS][2] = bay
    device.members[STORAGE] = [storage(device.members[CHASSIS])]
    resources = Resources(device)
    same_as_plain(device, resources, DEVICE, *[drive["@odata.id"] for drive in device.members[CHASSIS]])
    assert device.new() == [DEVICE, CHASSIS + EXPAND]


@pytest.mark.parametrize("answer", [
    (404, MISSING), (501, {}), (200, b""), (200, collection_of(CHASSIS, [])),
    (200, collection_of(CHASSIS, [{"@odata.id": f"{CHASSIS}/{number}"} for number in range(4)])),
])
def test_drives_without_such_a_collection_are_asked_for_themselves(device, answer):
    device.answers[CHASSIS + EXPAND] = answer
    resources = Resources(device)
    drives = [f"{CHASSIS}/{number}" for number in range(3)]
    for asked in ([SYSTEMS, DEVICE, CHASSIS + EXPAND, *drives], [SYSTEMS, DEVICE, *drives]):
        resources.get(SYSTEMS)
        same_as_plain(device, resources, DEVICE, *drives)
        assert device.new() == asked


# ---- Storage that a system does not have ----

def test_absent_storage_is_told_by_the_system_of_the_same_walk():
    """Newer controllers have no SmartStorage."""
    system = {"@odata.id": SYSTEM + "/", "Id": "1", "Storage": {"@odata.id": STORAGE}, "Oem": {"Hpe": {"Links": {}}}}
    controller = Controller({SYSTEMS: [system]})
    resources = Resources(controller)
    smart = SYSTEM + "/SmartStorage/ArrayControllers/"
    for asked in ([SYSTEMS, smart + EXPAND, smart, SYSTEM + "/"], [SYSTEMS, smart, SYSTEM + "/"]):
        resources.get(SYSTEMS)
        assert json.loads(resources.get(smart))["Members"] == []
        assert controller.new() == asked
