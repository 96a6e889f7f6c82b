"""What becomes of drives and volumes of a Smart Array controller, told exactly once."""

from typing import Callable

import pytest
from watched import SMART_ARRAY, ControllerProcess, Event, Watched, smart_disk, volume_offline

ALREADY_FAILED = 10


@pytest.fixture(scope="module")
def sim(start_file_sim: Callable) -> ControllerProcess:
    """Drives 1 to 5 are SSDs, 6 to 10 hard disks, dealt over two volumes."""
    found = start_file_sim("--drives", 10, "--ssd", 5, "--volumes", 2)
    found.control.call("fail-drive", 1, ALREADY_FAILED)
    return found


@pytest.fixture(scope="module")
def watched(sim: ControllerProcess, watch_file: Callable[..., Watched]) -> Watched:
    return watch_file(sim, speed=15).start().wait_baseline()


def test_baseline_is_silent(watched: Watched) -> None:
    """Also about the drive that had failed before."""
    watched.expect()


def test_event_as_it_stands_in_both_logs(sim: ControllerProcess, watched: Watched) -> None:
    """Written out once in full; the other tests build their texts from the catalogue."""
    sim.control.call("fail-drive", 1, 6)
    watched.expect(smart_disk(6).failed)
    assert watched.trace().count(
        "<VK0337> [EV] 0xc0008151 CTRL(HPE Smart Array P408i-a SR Gen10 [Slot 0]) PD(2I:1:6)  "
        "Model: EG001200JWTEST Size: 1200 GB Serial Number: SIMSA00D0005 Firmware Revision: HPD4 reported.") == 1
    entries = [(entry.priority, entry.text()) for entry in watched.host.syslog_entries() if b"D0005" in entry.message]
    assert entries == [
        (3, "A physical drive has failed: CTRL(HPE Smart Array P408i-a SR Gen10 [Slot 0]) PD(2I:1:6) "
            "Model: EG001200JWTEST Size: 1200 GB Serial Number: SIMSA00D0005 Firmware Revision: HPD4")]


def test_predicted_failure(sim: ControllerProcess, watched: Watched) -> None:
    sim.control.call("predict-drive", 1, 7)
    watched.expect(smart_disk(7).predicted)


@pytest.mark.parametrize("reason", ["CommunicationFailure", "CarrierCommunicationFailure", "Unrecoverable"])
def test_fatal_state(sim: ControllerProcess, watched: Watched, reason: str) -> None:
    drive = sim.control.call("list")[0]["drives"][7]
    sim.control.call("set", drive, "DiskDriveStatusReasons", [reason])
    watched.expect(smart_disk(8).fatal)
    sim.control.call("heal-drive", 1, 8)
    watched.expect()


def test_predicted_failure_that_ends_in_failure(sim: ControllerProcess, watched: Watched) -> None:
    drive = sim.control.call("predict-drive", 1, 4)
    watched.expect(smart_disk(4, ssd=True).predicted)
    sim.control.call("set", drive, "DiskDriveStatusReasons", ["FailedDueToPredictiveSpareActivation"])
    watched.expect(smart_disk(4, ssd=True).failed)


def test_ssd_wears_through_its_levels(sim: ControllerProcess, watched: Watched) -> None:
    disk = smart_disk(1, ssd=True)
    for percent, *events in ((79,), (80, disk.worn_80), (89,), (90, disk.worn_90), (94,), (95, disk.worn_95), (100,)):
        sim.control.call("wear-drive", 1, 1, percent)
        watched.expect(*events)
    watched.expect()


def test_hard_disk_does_not_wear(sim: ControllerProcess, watched: Watched) -> None:
    drive = sim.control.call("list")[0]["drives"][8]
    sim.control.call("set", drive, "SSDEnduranceUtilizationPercentage", 99)
    watched.expect()


def test_volume_goes_offline(sim: ControllerProcess, watched: Watched) -> None:
    sim.control.call("offline-volume", 1, 1)
    watched.expect(volume_offline(SMART_ARRAY, 1))


def test_degraded_volume_is_silent(sim: ControllerProcess, watched: Watched) -> None:
    volume = sim.control.call("list")[0]["volumes"][1]
    sim.control.call("set", volume, "Status.Health", "Warning")
    watched.expect()


def test_drive_that_recovers_may_fail_again(sim: ControllerProcess, watched: Watched) -> None:
    failed = smart_disk(9).failed
    sim.control.call("fail-drive", 1, 9)
    watched.expect(failed)
    sim.control.call("heal-drive", 1, 9)
    watched.expect()
    sim.control.call("fail-drive", 1, 9)
    watched.expect(failed)


def test_new_drive_that_comes_failed(sim: ControllerProcess, watched: Watched) -> None:
    with watched.held():
        sim.control.call("add-drive", 1, "ssd")
        sim.control.call("fail-drive", 1, 11)
    watched.expect(smart_disk(11, ssd=True).failed)


def test_pulled_drive_is_silent(sim: ControllerProcess, watched: Watched) -> None:
    """This family does not look for what has vanished; a drive that comes back failed is a new one."""
    with watched.held():
        sim.control.call("remove-drive", 1, 3)
    watched.expect()
    with watched.held():
        sim.control.call("restore-drive", 1, 3)
        sim.control.call("fail-drive", 1, 3)
    watched.expect(smart_disk(3, ssd=True).failed)


def test_one_walk_reports_in_order(sim: ControllerProcess, watched: Watched) -> None:
    """Drives before volumes; of one drive failed, fatal, predicted, worn."""
    drive = sim.control.call("list")[0]["drives"][1]
    disk = smart_disk(2, ssd=True)
    with watched.held():
        sim.control.call("offline-volume", 1, 2)
        sim.control.call("wear-drive", 1, 2, 96)
        sim.control.call("set", drive, "DiskDriveStatusReasons", ["PredictiveFail", "Unrecoverable", "Failed"])
    events: "list[Event]" = [disk.failed, disk.fatal, disk.predicted, disk.worn_95, volume_offline(SMART_ARRAY, 2)]
    watched.expect(*events)


def test_service_ends_well(watched: Watched) -> None:
    assert watched.stop() == 0
    watched.assert_reports()
    assert watched.errors() == []
    assert watched.counters()["open_sessions"] == 0
