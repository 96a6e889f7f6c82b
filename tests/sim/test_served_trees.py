"""Links served in another order, and trees served from a folder with the verbs that work on any resource."""

import json
from pathlib import Path
from typing import Any, List

import pytest
from sim_rest import ARRAY, SYSTEM
from simcontroller.errors import UseError

STORAGE = SYSTEM + "Storage/"
DRIVES = "/redfish/v1/Chassis/DE00A000/Drives"


@pytest.fixture
def shuffled(start):
    return start("--ilo", "6", "--mr-drives", "9", "--mr-volumes", "2", "--shuffle", "7")


def orders(rest: Any, path: str, member: str = "Members", times: int = 6) -> List[List[str]]:
    return [rest.links(path, member) for _ in range(times)]


def test_each_answer_comes_in_another_order_with_the_same_members(shuffled, connect):
    rest = connect(shuffled)
    built = sorted(shuffled.control.call("list")[0]["drives"])
    for path, member in ((DRIVES, "Members"), (STORAGE + "DE00A000", "Drives")):
        found = orders(rest, path, member)
        assert [sorted(order) for order in found] == [built] * 6
        assert all(first != second for first, second in zip([built, *found], found))
    assert rest.get(DRIVES).json["Members@odata.count"] == 9


def test_two_members_swap_with_every_answer(shuffled, connect):
    path = STORAGE + "DE00A000/Volumes"
    rest = connect(shuffled)
    assert [[link[-3:] for link in order] for order in orders(rest, path, times=3)] == \
        [["238", "239"], ["239", "238"], ["238", "239"]]


def test_links_of_drives_and_volumes_are_shuffled_and_single_members_stay(shuffled, connect):
    rest = connect(shuffled)
    volume = STORAGE + "DE00A000/Volumes/239"
    built = shuffled.control.call("get", volume)["Links"]["Drives"]
    assert len(built) > 1
    shown = rest.get(volume).json["Links"]["Drives"]
    assert shown != built and sorted(map(str, shown)) == sorted(map(str, built))
    assert rest.links(STORAGE) == [STORAGE + "DE00A000/"]


def test_expanded_members_come_in_another_order_too(shuffled, connect):
    rest = connect(shuffled)
    ids = [[member["Id"] for member in rest.get(DRIVES + "?$expand=.").json["Members"]] for _ in range(2)]
    assert ids[0] != ids[1] and sorted(ids[0]) == sorted(ids[1])


def test_the_seed_decides_the_orders(start, connect):
    sim = start("--ilo", "6", "--mr-drives", "9")
    rest = connect(sim)
    built = rest.links(DRIVES)
    found = {}
    for seed in (7, 8, 7):
        sim.control.call("shuffle", "on", seed)
        found.setdefault(seed, []).append(orders(rest, DRIVES))
    assert found[7][0] == found[7][1] != found[8][0]
    sim.control.call("shuffle", "off")
    assert orders(rest, DRIVES, times=2) == [built, built]
    sim.control.call("shuffle", "on")
    assert rest.links(DRIVES) != built


def test_shuffled_lists_follow_what_is_removed_and_restored(shuffled, connect):
    rest = connect(shuffled)
    rest.links(DRIVES)
    shuffled.control.call("remove-drive", 1, 4)
    for order in orders(rest, DRIVES):
        assert len(order) == 8 and f"{DRIVES}/3" not in order
    shuffled.control.call("restore-drive", 1, 4)
    assert len(rest.links(DRIVES)) == 9


def test_changes_reach_the_list_as_built(shuffled, connect):
    shuffled.control.call("set", DRIVES, "Members.0.@odata.id", "/elsewhere")
    assert shuffled.control.call("get", DRIVES)["Members"][0] == {"@odata.id": "/elsewhere"}
    assert "/elsewhere" in connect(shuffled).links(DRIVES)


def test_count_that_is_wrong_on_purpose_stays_so(sim, rest):
    path = ARRAY + "DiskDrives"
    sim.control.call("set", path, "Members@odata.count", 9)
    sim.control.call("remove-drive", 1, 1)
    assert rest.get(path).json["Members@odata.count"] == 8
    sim.control.call("restore-drive", 1, 1)
    assert rest.get(path).json["Members@odata.count"] == 9


def test_drives_restored_in_any_order_stand_where_they_were(sim, rest):
    before = rest.links(ARRAY + "DiskDrives/")
    for number in (1, 2, 3):
        sim.control.call("remove-drive", 1, number)
    assert rest.links(ARRAY + "DiskDrives/") == before[3:]
    for number in (1, 3, 2):
        sim.control.call("restore-drive", 1, number)
    assert rest.links(ARRAY + "DiskDrives/") == before


@pytest.fixture(scope="module")
def folder(tmp_path_factory) -> Path:
    """A tree as a capture has it: indented files, ids in both forms, counts that are wrong or absent."""
    root = tmp_path_factory.mktemp("tree")

    def put(path: str, **body: Any) -> None:
        (root / path.strip("/")).mkdir(parents=True, exist_ok=True)
        (root / path.strip("/") / "index.json").write_text(json.dumps({"@odata.id": path, **body}, indent=4))

    def link(path: str) -> Any:
        return {"@odata.id": path}

    storage = "/redfish/v1/Systems/1/Storage"
    drives = [f"{storage}/DE077000/Drives/{number}" for number in (1, 2, 3)]
    put("/redfish/v1/", Name="Root", Systems=link("/redfish/v1/Systems/"))
    put("/redfish/v1/Systems/", Members=[link("/redfish/v1/Systems/1/")])
    put("/redfish/v1/Systems/1/", Storage=link(f"{storage}/"))
    put(f"{storage}/", **{"Members": [link(f"{storage}/DE077000/"), link(f"{storage}/DE078000/")],
                          "Members@odata.count": 2})
    put(f"{storage}/DE078000", Name="Other", Drives=[])
    put(f"{storage}/DE077000", **{"Name": "HPE MR416i-p Gen10+", "Drives": [link(path) for path in drives],
                                  "Drives@odata.count": 4, "Volumes": link(f"{storage}/DE077000/Volumes")})
    put(f"{storage}/DE077000/Volumes", Members=[link(f"{storage}/DE077000/Volumes/239")])
    put(f"{storage}/DE077000/Volumes/239", Links={"Drives": [link(path) for path in drives]})
    for path in drives:
        put(path, Status={"Health": "OK", "State": "Enabled"},
            Links={"Volumes": [link(f"{storage}/DE077000/Volumes/239")]})
    return root


STORED = "/redfish/v1/Systems/1/Storage/DE077000"


def test_tree_resources_change_and_come_back(folder, start, connect):
    sim = start("--tree", str(folder))
    rest = connect(sim)
    before = rest.get(STORED).json
    sim.control.call("set", f"{STORED}/Drives/1", "Status.State", "UnavailableOffline")
    assert rest.get(f"{STORED}/Drives/1").json["Status"] == {"Health": "OK", "State": "UnavailableOffline"}
    sim.control.call("remove", f"{STORED}/Drives/1")
    assert rest.get(f"{STORED}/Drives/1/").status == 404
    storage = rest.get(STORED).json
    assert len(storage["Drives"]) == 2 and storage["Drives@odata.count"] == 3, "wrong by one as in the file"
    volume = rest.get(f"{STORED}/Volumes/239").json
    assert [link["@odata.id"][-1] for link in volume["Links"]["Drives"]] == ["2", "3"]
    assert set(volume["Links"]) == {"Drives"}, "no count is invented"
    sim.control.call("restore", f"{STORED}/Drives/1")
    assert rest.get(STORED).json == before


def test_whole_controller_of_a_tree_disappears_and_returns(folder, start, connect):
    sim = start("--tree", str(folder))
    rest = connect(sim)
    sim.control.call("remove", STORED)
    collection = rest.get(STORAGE).json
    assert collection["Members"] == [{"@odata.id": f"{STORAGE}DE078000/"}] and collection["Members@odata.count"] == 1
    for path in (STORED, f"{STORED}/Drives/1", f"{STORED}/Volumes"):
        assert rest.get(path).status == 404
    assert not [path for path in sim.control.call("paths") if path.startswith(STORED)]
    sim.control.call("restore", STORED)
    assert rest.links(STORAGE) == [f"{STORAGE}DE077000/", f"{STORAGE}DE078000/"]
    assert rest.get(f"{STORED}/Drives/1").status == 200


def test_tree_is_shuffled(folder, start, connect):
    sim = start("--tree", str(folder), "--shuffle", "3")
    rest = connect(sim)
    built = [f"{STORED}/Drives/{number}" for number in (1, 2, 3)]
    found = orders(rest, STORED, "Drives", 4)
    assert all(first != second for first, second in zip([built, *found], found))
    assert orders(rest, STORAGE, times=2) == [[f"{STORAGE}DE078000/", f"{STORAGE}DE077000/"],
                                              [f"{STORAGE}DE077000/", f"{STORAGE}DE078000/"]]
    sim.control.call("shuffle", "off")
    assert rest.links(STORED, "Drives") == built


def test_shortcuts_need_generated_controllers(folder, start):
    with pytest.raises(UseError, match="no generated controllers"):
        start("--tree", str(folder)).control.call("remove-controller", 1)
