"""Collections asked with their members in place: few requests, and the same snapshots and reports as without."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any, Callable, Dict, NamedTuple

import pytest
from expansion import EXPANSIONS, expansion
from test_trees import TREES, walk
from watched import ControllerProcess, Watched, mega_disk, smart_disk

EXPAND = "$expand="
MODES = ("on", "off", "refuse", "missing", "fail")  # of the simulator
FAMILIES = ("--mr", 1, "--mr-drives", 3, "--mr-volumes", 2, "--sr", 1, "--ns204", 1, "--nvme", 2, "--sata", 1, "--vroc", 1)

# Servers, with the most requests of a walk. One by one they would be 73, 214 and 68.
SERVERS = {
    "smart-arrays": (("--controllers", 2, "--drives", 24, "--volumes", 4), 15),
    "many-drives": (("--drives", 200, "--volumes", 4), 9),
    "mega-raids": (("--ilo", 6, "--mr", 2, "--mr-drives", 24, "--mr-volumes", 4), 16),
}


def requests(watched: Watched) -> Dict[str, int]:
    return {request: count for request, count in watched.counters()["requests"].items()
            if "/SessionService/" not in request}


def expanded(watched: Watched) -> int:
    return sum(count for request, count in requests(watched).items() if EXPAND in request)


@pytest.mark.skipif(expansion().forms == 1, reason="counts the requests that are left where collections are expanded")
@pytest.mark.parametrize("server", SERVERS)
def test_requests_of_a_walk(start_sim: Callable, watch: Callable[..., Watched], server: str) -> None:
    options, few = SERVERS[server]
    sim = start_sim(*options)
    watched = watch(sim, speed=1).start().wait_baseline()
    begun, asked = watched.walks(), sum(requests(watched).values())
    watched.wait_walks(3)
    # The walk that has begun last may have asked for anything between nothing and all.
    ended = watched.walks()
    assert sum(requests(watched).values()) - asked <= few * (ended - begun + 1)
    counters = watched.counters()
    # One connection of the service's, but for the one of the log-in.
    assert counters["logins"] == 1 and counters["connections"] <= 2
    assert watched.errors() == []


def test_switched_off_nothing_is_expanded(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 3, "--mr", 1, "--mr-drives", 3)
    watched = watch(sim, config={"iLo": {"expand": "false"}}).start().wait_baseline()
    assert expanded(watched) == 0
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1, ssd=True).failed)
    assert expanded(watched) == 0


@pytest.mark.parametrize("value", ["FALSE", "0", ""])
def test_any_other_value_leaves_it_on(start_sim: Callable, watch: Callable[..., Watched], value: str) -> None:
    watched = watch(start_sim("--drives", 3), config={"iLo": {"expand": value}}).start().wait_baseline()
    assert expanded(watched) > 0


@pytest.mark.parametrize("generation", [5, 6, 7])
def test_snapshot_is_the_same_however_the_controller_expands(start_sim: Callable, generation: int) -> None:
    smart = ("--controllers", 1, "--drives", 5, "--volumes", 2, "--mr10", 1) if generation == 5 else ()
    sim = start_sim("--ilo", generation, *smart, *FAMILIES)
    shown = set()
    for mode in MODES:
        sim.control.call("expand", mode)
        done = walk(sim.url, sim.account, sim.password)
        assert (done.stderr, done.returncode) == ("", 0)
        shown.add(done.stdout)
    assert len(shown) == 1


# What has befallen the first controller of a generated server.
TROUBLE = (("fail-drive", 1, 1), ("wear-drive", 1, 1, 92), ("predict-drive", 1, 2), ("remove-drive", 1, 3),
           ("offline-volume", 1, 1))
GENERATED = {
    **{name: options for name, (options, _) in SERVERS.items()},
    "families-ilo5": ("--ilo", 5, "--drives", 5, "--volumes", 2, "--mr10", 1, *FAMILIES),
    "families-ilo6": ("--ilo", 6, *FAMILIES),
    "families-ilo7": ("--ilo", 7, *FAMILIES),
}


class Snapshot(NamedTuple):
    """What "status" has read, with the number of resources, and the requests that it took."""
    document: Dict[str, Any]
    requests: int


def snapshots(sim: ControllerProcess, watch: Callable[..., Watched]) -> Dict[str, Snapshot]:
    """One for each way to read."""
    found = {}
    for name, way in EXPANSIONS.items():
        watched = watch(sim, speed=1, config={"iLo": {"expand": "true", **way.service}})
        sim.control.call("expand", way.controller)
        sim.control.call("reset-counters")
        done = watched.ctl("status", "--format", "json")
        assert (done.returncode, done.stderr) == (0, "")
        assert (expanded(watched) > 0) == way.asked
        document = json.loads(done.stdout)
        del document["read_at"], document["read_milliseconds"]
        found[name] = Snapshot(document, sum(requests(watched).values()))
    return found


@pytest.mark.parametrize("server", GENERATED)
def test_snapshot_is_the_same_with_expansion_on_off_ignored_and_refused(start_sim: Callable, watch: Callable[..., Watched],
                                                                        server: str) -> None:
    sim = start_sim(*GENERATED[server])
    for verb in TROUBLE:
        sim.control.call(*verb)
    read = snapshots(sim, watch)
    assert read["on"].document == read["off"].document == read["ignored"].document == read["refused"].document
    assert read["on"].document["drives"]["critical"] > 0
    assert read["on"].requests < read["off"].requests <= read["ignored"].requests < read["refused"].requests


@pytest.mark.parametrize("tree", TREES, ids=lambda tree: tree.name)
def test_snapshot_of_a_tree_is_the_same_in_every_way(start_sim: Callable, watch: Callable[..., Watched], tree: Path) -> None:
    read = snapshots(start_sim("--tree", tree), watch)
    assert read["on"].document == read["off"].document == read["ignored"].document == read["refused"].document
    assert read["on"].document["drives"]["total"] > 0


@pytest.mark.parametrize("mode", MODES[1:])
def test_controller_that_stops_expanding_is_watched_as_before(start_sim: Callable, watch: Callable[..., Watched],
                                                              mode: str) -> None:
    """No drive looks new or gone, and what fails is reported."""
    sim = start_sim("--drives", 4, "--mr", 1, "--mr-drives", 4, "--sr", 1, "--nvme", 1)
    watched = watch(sim).start().wait_baseline()
    sim.control.call("fail-drive", 2, 2)
    watched.expect(mega_disk(2, ssd=True).failed)
    with watched.held():
        sim.control.call("expand", mode)
    watched.expect(walks=3)
    sim.control.call("fail-drive", 1, 3)
    watched.expect(smart_disk(3).failed)
    with watched.held():
        sim.control.call("expand", "on")
    watched.expect(walks=3)
    assert watched.errors() == []
    assert watched.counters()["logins"] == 1


def test_member_that_becomes_unready_is_waited_for(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 4)
    watched = watch(sim).start().wait_baseline()
    with watched.held():
        sim.control.call("fail-drive", 1, 2)
        sim.control.call("not-ready", "GET */DiskDrives/1", 2)
    watched.expect(smart_disk(2, ssd=True).failed)
    assert sim.control.call("faults") == []
    assert sum("/DiskDrives/1/ 503" in line for line in sim.requests()) == 2
    assert watched.errors() == []


def test_drives_that_come_and_go_are_seen(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--ilo", 6, "--mr-drives", 4, "--mr-volumes", 1)
    watched = watch(sim).start().wait_baseline()
    with watched.held():
        sim.control.call("remove-drive", 1, 2)
    watched.expect(mega_disk(2, ssd=True).failed)
    sim.control.call("restore-drive", 1, 2)
    watched.expect(walks=2)
    with watched.held():
        sim.control.call("empty-bay", 1, 3)
    watched.expect(mega_disk(3).failed)
    assert watched.errors() == []
