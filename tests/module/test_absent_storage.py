"""Storage collections that are missing: for ever, when the system does not link to them, or only for now."""

from __future__ import annotations

import json

import pytest

from _bayward_outcome import OTHER, Answer, Failure
from _bayward_resources import Resources

SYSTEM = "/redfish/v1/Systems/1"
STORAGE = SYSTEM + "/Storage/"
SMART = SYSTEM + "/SmartStorage/ArrayControllers/"
MISSING = {"error": {"@Message.ExtendedInfo": [{"MessageId": "Base.1.18.ResourceMissingAtURI"}]}}
NOT_READY = {"error": {"@Message.ExtendedInfo": [{"MessageId": "iLO.2.30.ResourceNotReadyRetry"}]}}
BOTH = {"Storage": {"@odata.id": STORAGE}, "Oem": {"Hpe": {"Links": {"SmartStorage": {"@odata.id": SMART}}}}}
NEITHER = {"Id": "1", "Oem": {"Hpe": {"Links": {"PCISlots": {"@odata.id": "/x"}}}}}


class FakeSession:
    """Answers from a table of path (without trailing slash and query) -> (status, object); counts the requests."""

    log_ins = 0

    def __init__(self, table):
        self.table = table
        self.paths = []

    def fetch(self, path, deadline):
        self.paths.append(path)
        answer = self.table.get(path.partition("?")[0].rstrip("/"), (404, MISSING))
        if isinstance(answer, Exception):
            raise answer
        return Answer(answer[0], json.dumps(answer[1]).encode())


def empty(path):
    return json.dumps({"@odata.id": path, "Members": [], "Members@odata.count": 0}, separators=(",", ":"))


def test_smart_storage_of_a_newer_controller_is_an_empty_collection(module, ilo6):
    assert module.init(ilo6.url, ilo6.account, ilo6.password) == 200
    assert module.get(SMART) == empty(SMART)
    assert json.loads(module.get(STORAGE))["Members"]


def test_linked_collection_that_is_missing_is_handed_on(module, ilo5):
    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
    for path in (SMART, STORAGE):
        ilo5.control.call("missing", path, 2)  # both with members in place and without
        assert "ResourceMissingAtURI" in module.get(path)
        assert "Members" in module.get(path)


@pytest.mark.parametrize("path", [STORAGE, STORAGE.rstrip("/"), SMART, SMART.rstrip("/"), SMART.lower()])
def test_unlinked_collection_is_empty_under_the_name_asked_for(path):
    assert Resources(FakeSession({SYSTEM: (200, NEITHER), SYSTEM.lower(): (200, NEITHER)})).get(path) == empty(path)


def test_each_family_is_judged_by_its_own_link():
    only_storage = Resources(FakeSession({SYSTEM: (200, {"Storage": {"@odata.id": STORAGE}})}))
    assert only_storage.get(SMART) == empty(SMART) and "Missing" in only_storage.get(STORAGE)
    only_smart = Resources(FakeSession({SYSTEM: (200, {"Oem": BOTH["Oem"]})}))
    assert only_smart.get(STORAGE) == empty(STORAGE) and "Missing" in only_smart.get(SMART)


def test_unlinked_collection_that_is_there_is_handed_on():
    session = FakeSession({SYSTEM: (200, NEITHER), STORAGE.rstrip("/"): (200, {"Members": []})})
    assert Resources(session).get(STORAGE) == '{"Members":[]}'
    assert session.paths == [STORAGE + "?$expand=.", STORAGE]


def test_unlinked_collection_that_is_not_ready_is_handed_on():
    session = FakeSession({SYSTEM: (200, NEITHER), SMART.rstrip("/"): (503, NOT_READY)})
    assert "NotReady" in Resources(session).get(SMART)


@pytest.mark.parametrize("system", [(503, NOT_READY), (404, MISSING), (500, {}), (200, []), Failure(OTHER, "gone")])
def test_missing_is_handed_on_while_the_system_cannot_be_read(system):
    session = FakeSession({SYSTEM: system})
    resources = Resources(session)
    assert "Missing" in resources.get(SMART)
    session.table[SYSTEM] = (200, NEITHER)
    assert resources.get(SMART) == empty(SMART)


@pytest.mark.parametrize("path", [SYSTEM + "/SmartStorage/", SMART + "0/", STORAGE + "DE00A000/", SYSTEM + "/",
                                  "/redfish/v1/x",
                                  "/redfish/v1/Systems/Storage/"])
def test_other_missing_resources_are_handed_on(path):
    session = FakeSession({})
    assert "Missing" in Resources(session, expand=False).get(path)
    assert session.paths == [path]


@pytest.mark.parametrize("expand", [True, False])
def test_system_is_read_once_a_walk(expand):
    session = FakeSession({SYSTEM: (200, NEITHER), "/redfish/v1/Systems": (200, {"Members": []})})
    resources = Resources(session, expand)
    for _ in range(3):
        resources.get(STORAGE)
        resources.get(SMART)
    assert session.paths.count(SYSTEM + "/") == 1
    session.table[SYSTEM] = (200, BOTH)
    resources.get("/redfish/v1/Systems/")
    assert "Missing" in resources.get(SMART)
    assert session.paths.count(SYSTEM + "/") == 2


def test_systems_are_told_apart():
    resources = Resources(FakeSession({SYSTEM: (200, NEITHER), "/redfish/v1/Systems/2": (200, BOTH)}))
    assert resources.get(SMART) == empty(SMART)
    assert "Missing" in resources.get("/redfish/v1/Systems/2/SmartStorage/ArrayControllers/")
