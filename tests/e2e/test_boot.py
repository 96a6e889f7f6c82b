"""A server that boots: resources that are not there yet, and generations that lack whole families."""

from typing import Callable

import pytest
from watched import HELD, Watched, mega_disk, smart_disk, wait_until, without

MONITORED = "<VK0900> [TR] Start to monitor."


def from_ready(watched: Watched) -> "list[str]":
    trace = without(watched.own_trace(), "Start cyclic")
    return trace[trace.index("<VK0900> [TR] Ready to wait stop event.") + 1:]


@pytest.mark.parametrize("fault", ["not-ready", "missing"])
def test_resources_that_are_not_ready_are_waited_for(start_sim: Callable, watch: Callable[..., Watched],
                                                     fault: str) -> None:
    sim = start_sim("--drives", 3, "--ssd", 0)
    for pattern, times in (("GET */DiskDrives/2", 2), ("GET */LogicalDrives", 1), ("GET */Managers", 1)):
        sim.control.call(fault, pattern, times)
    watched = watch(sim, speed=20).start()
    watched.wait_line(MONITORED, 60)
    watched.wait_baseline()
    watched.expect()
    assert from_ready(watched) == [MONITORED]
    with watched.held():  # the snapshot is complete: each drive is known, as it was
        for number in (1, 2, 3):
            sim.control.call("fail-drive", 1, number)
    watched.expect(*(smart_disk(number).failed for number in (1, 2, 3)))


def test_drive_that_is_never_ready_fails_the_walk(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """Five tries, 10 seconds apart; then a fresh log-in, and everything is well when the drive is."""
    sim = start_sim("--drives", 2, "--ssd", 0)
    sim.control.call("not-ready", "GET */DiskDrives/1", 5)
    watched = watch(sim, speed=20).start()
    watched.wait_line(MONITORED, 60)
    asked = [line for line in sim.requests() if "/DiskDrives/1/ 503" in line]
    assert len(asked) == 5
    assert from_ready(watched) == [MONITORED]
    assert watched.counters()["logins"] == 2


def test_mr_drive_that_is_never_ready_keeps_its_defaults(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """Nothing is known about it, so nothing is said; the walk goes on."""
    sim = start_sim("--ilo", 6, "--mr-drives", 2)
    sim.control.call("not-ready", "GET */Drives/1", "forever")
    watched = watch(sim, speed=40).start()
    watched.wait_line(MONITORED, 60)
    sim.control.call("clear-faults")
    watched.wait_baseline()
    sim.control.call("fail-drive", 1, 2)
    watched.expect(mega_disk(2).failed)
    assert without(from_ready(watched), "[EV]") == [MONITORED]
    assert watched.counters()["logins"] == 1


def test_mr_drive_that_is_not_ready_for_a_walk_stays_what_it_was(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """One that had failed before does not fail again with the walk that reads it."""
    sim = start_sim("--ilo", 6, "--mr-drives", 4, "--mr-volumes", 1)
    watched = watch(sim, speed=40).start().wait_baseline()
    sim.control.call("fail-drive", 1, 2)
    watched.expect(mega_disk(2, ssd=True).failed)
    sim.control.call("not-ready", "GET */Drives/1", 5)
    sim.control.call("expand", "off")  # else it stands in its collection, whatever it answers itself
    wait_until(lambda: sum("/Drives/1 503" in line for line in sim.requests()) == 5, "tries", 60, watched.host)
    watched.expect(walks=3)


def test_mr_drive_that_is_pulled_before_a_walk_reads_it(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """Its controller still listed it, and it is missing from the next list."""
    sim = start_sim("--ilo", 6, "--mr-drives", 4, "--mr-volumes", 1)
    watched = watch(sim, speed=20).start().wait_baseline()
    sim.control.call("hang", "GET */Volumes", "headers", "forever", 1)
    wait_until(lambda: sim.requests()[-1].endswith(HELD), "walk to hold", 30, watched.host)
    sim.control.call("remove-drive", 1, 2)
    sim.control.call("release")
    watched.expect(mega_disk(2, ssd=True).failed, walks=2)


@pytest.mark.parametrize("generation, version", [
    (6, "iLO 6 v1.66, mMajorVersion=1, mMinorVersion=66"),
    (7, "1.14.00 May 28 2025, mMajorVersion=1, mMinorVersion=14"),
])
def test_generations_without_smart_storage(start_sim: Callable, watch: Callable[..., Watched], generation: int,
                                           version: str) -> None:
    sim = start_sim("--ilo", generation, "--mr-drives", 2)
    watched = watch(sim).start().wait_baseline()
    assert from_ready(watched) == [MONITORED]
    assert watched.count_line(f"mVersion={version}") == 1
    # No waiting for what will never be there: each walk asks for it once.
    walks = watched.walks()
    absent = watched.counters()["requests"].get("GET /redfish/v1/Systems/1/SmartStorage/ArrayControllers/", 0)
    assert walks - 1 <= absent <= walks
    sim.control.call("fail-drive", 1, 1)
    watched.expect(mega_disk(1, ssd=True).failed)
    assert watched.errors() == []


@pytest.mark.parametrize("firmware", ["1.15", "1.20"])
def test_old_firmware_counts_wear_in_hundredths(start_sim: Callable, watch: Callable[..., Watched],
                                                firmware: str) -> None:
    """Below 1.20 only; there it also redirects to paths with a slash."""
    sim = start_sim("--firmware", firmware, "--drives", 2)
    watched = watch(sim).start().wait_baseline()
    sim.control.call("wear-drive", 1, 1, 79)
    watched.expect()
    sim.control.call("wear-drive", 1, 1, 80)
    watched.expect(smart_disk(1, ssd=True).worn_80)
    used = 8000 if firmware == "1.15" else 80
    assert watched.count_line(f"ssdEnduranceUtilizationPercentage={used}") > 0


def test_many_drives(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """A hundred of them; the last one of a controller is seen like the first."""
    sim = start_sim("--controllers", 2, "--drives", 50, "--volumes", 5)
    watched = watch(sim, speed=8).start()
    watched.wait_baseline(120)
    sim.control.call("fail-drive", 1, 50)
    watched.expect(smart_disk(50).failed, timeout=60)
    assert watched.errors() == []
