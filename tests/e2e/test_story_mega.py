"""What becomes of drives and volumes of an MR controller, told exactly once."""

from typing import Callable

import pytest
from watched import MEGA_RAID, SMART_ARRAY, ControllerProcess, Watched, mega_disk, smart_disk, volume_offline


@pytest.fixture(scope="module")
def sim(start_file_sim: Callable) -> ControllerProcess:
    """Drives 1 to 5 are SSDs; volume 239 has drives 1 to 3, 238 has 4 to 6, 237 has 7 to 9."""
    return start_file_sim("--ilo", 6, "--mr-drives", 9, "--mr-volumes", 3, "--ssd", 5)


@pytest.fixture(scope="module")
def watched(sim: ControllerProcess, watch_file: Callable[..., Watched]) -> Watched:
    return watch_file(sim, speed=15).start().wait_baseline()


def test_baseline_is_silent(watched: Watched) -> None:
    watched.expect()


def test_event_as_it_stands_in_both_logs(sim: ControllerProcess, watched: Watched) -> None:
    sim.control.call("fail-drive", 1, 1)
    watched.expect(mega_disk(1, ssd=True).failed)
    assert watched.trace().count(
        "<VK0337> [EV] 0xc0008151 CTRL(HPE MR416i-o Gen11 [Slot=14]) PD(Slot=14:Port=1:Box=1:Bay=1)  "
        "Model: XX000480TEST Size: 480 GB Serial Number: SIMMR00D0000 Firmware Revision: T001 reported.") == 1
    assert [entry.text() for entry in watched.host.syslog_entries() if b"D0000" in entry.message] == [
        "A physical drive has failed: CTRL(HPE MR416i-o Gen11 [Slot=14]) PD(Slot=14:Port=1:Box=1:Bay=1) "
        "Model: XX000480TEST Size: 480 GB Serial Number: SIMMR00D0000 Firmware Revision: T001"]


def test_predicted_failure(sim: ControllerProcess, watched: Watched) -> None:
    sim.control.call("predict-drive", 1, 2)
    watched.expect(mega_disk(2, ssd=True).predicted)


def test_ssd_wears_through_its_levels(sim: ControllerProcess, watched: Watched) -> None:
    disk = mega_disk(4, ssd=True)
    for percent, *events in ((79,), (80, disk.worn_80), (89,), (90, disk.worn_90), (94,), (95, disk.worn_95), (100,)):
        sim.control.call("wear-drive", 1, 4, percent)
        watched.expect(*events)
    watched.expect()


def test_drive_that_recovers_may_fail_again(sim: ControllerProcess, watched: Watched) -> None:
    failed = mega_disk(5, ssd=True).failed
    sim.control.call("fail-drive", 1, 5)
    watched.expect(failed)
    sim.control.call("heal-drive", 1, 5)
    watched.expect()
    sim.control.call("fail-drive", 1, 5)
    watched.expect(failed)
    sim.control.call("heal-drive", 1, 5)
    watched.expect()


def test_volume_goes_offline(sim: ControllerProcess, watched: Watched) -> None:
    sim.control.call("offline-volume", 1, 1)
    watched.expect(volume_offline(MEGA_RAID, 239))
    sim.control.call("heal-volume", 1, 1)
    watched.expect()


def test_degraded_volume_is_silent(sim: ControllerProcess, watched: Watched) -> None:
    volume = sim.control.call("list")[0]["volumes"][0]
    sim.control.call("set", volume, "Status.Health", "Warning")
    watched.expect()


def test_drive_that_vanishes_from_its_volume_has_failed(sim: ControllerProcess, watched: Watched) -> None:
    with watched.held():
        sim.control.call("remove-drive", 1, 6)
    watched.expect(mega_disk(6).failed)
    sim.control.call("restore-drive", 1, 6)
    watched.expect()


def test_spare_that_vanishes_is_silent(sim: ControllerProcess, watched: Watched) -> None:
    sim.control.call("add-drive", 1, "hdd")
    watched.expect()
    with watched.held():
        sim.control.call("remove-drive", 1, 10)
    watched.expect()


def test_new_drive_that_comes_failed(sim: ControllerProcess, watched: Watched) -> None:
    with watched.held():
        sim.control.call("add-drive", 1, "hdd")
        sim.control.call("fail-drive", 1, 11)
    watched.expect(mega_disk(11).failed)


def test_volume_deleted_on_purpose_is_silent(sim: ControllerProcess, watched: Watched) -> None:
    with watched.held():
        sim.control.call("remove-volume", 1, 2)
    watched.expect()


def test_volume_that_vanishes_with_its_drives_is_offline(sim: ControllerProcess, watched: Watched) -> None:
    with watched.held():
        sim.control.call("remove-volume", 1, 3)
        for drive in (7, 8, 9):
            sim.control.call("remove-drive", 1, drive)
    watched.expect(mega_disk(7).failed, mega_disk(8).failed, mega_disk(9).failed, volume_offline(MEGA_RAID, 237))


def test_service_ends_well(watched: Watched) -> None:
    assert watched.stop() == 0
    watched.assert_reports()
    assert watched.errors() == []
    assert watched.counters()["open_sessions"] == 0


def test_both_families_on_one_server(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """One walk sees everything; MR comes first, of each family drives before volumes, vanished ones in between."""
    sim = start_sim("--ilo", 5, "--drives", 2, "--mr", 1, "--mr-drives", 4, "--mr-volumes", 2)
    watched = watch(sim).start().wait_baseline()
    with watched.held():
        sim.control.call("offline-volume", 1, 1)
        sim.control.call("predict-drive", 1, 2)
        sim.control.call("offline-volume", 2, 2)
        sim.control.call("remove-drive", 2, 2)
        sim.control.call("fail-drive", 2, 3)
    watched.expect(mega_disk(3).failed, volume_offline(MEGA_RAID, 238), mega_disk(2, ssd=True).failed,
                   smart_disk(2).predicted, volume_offline(SMART_ARRAY, 1))
