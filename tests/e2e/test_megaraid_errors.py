"""Corrected medium errors in the event logs of MegaRAID controllers: traced, and an event when they recur."""

import shutil
import time
from typing import Iterator, List

import pytest
from tooled import MEGA_RAID, OVERVIEW, Tooled, mega_errors, mega_event, wait_until

NOW = int(time.time()) // 60 * 60
WEEK = 604800

SLOTTED = f"{MEGA_RAID} [Slot=14]"
PLAIN = "HPE MR216i-p Gen11"


def within(count: int, seconds: int) -> List[int]:
    """So many times, the newest 19 of them spread over that long."""
    return [NOW - 2 * seconds] * (count - 19) + [NOW - seconds] + [NOW] * 18


@pytest.fixture(scope="module")
def watched() -> Iterator[Tooled]:
    """The drives 1 of both controllers have the same device id, 10."""
    with Tooled(only=("storcli64",)) as found:
        found.tools.add_mega_raid()
        found.tools.add_mega_raid(PLAIN, slot=None)
        found.tools.add_drive(1)
        found.tools.add_drive(2)
        yield found.start()


def test_too_few_errors_or_too_far_apart_are_no_event(watched: Tooled) -> None:
    with watched.changing() as tools:
        tools.medium_errors(1, 1, times=[NOW] * 19)
        tools.medium_errors(2, 1, times=within(20, WEEK))
    watched.follow(mega_errors(19, 10), mega_errors(20, 10))


def test_twentieth_error_within_a_week_is_an_event(watched: Tooled) -> None:
    watched.tools.medium_errors(1, 1, times=within(20, WEEK - 1))
    # Without a further line in the trace log: one was written minutes ago. The same device of the other controller is
    # another drive.
    watched.follow(mega_event(SLOTTED, "Port=1,Box=1,Bay=1"), cycles=2)
    assert watched.trace().count(f"<VK0345> [EV] 0x80008159 CTRL({SLOTTED}) PD(Port=1,Box=1,Bay=1)   reported.") == 1
    assert [(entry.priority, entry.text()) for entry in watched.host.syslog_entries()[-2:]] == [
        (4, f"Medium errors recur on a physical drive: CTRL({SLOTTED}) PD(Port=1,Box=1,Bay=1) "),
        (4, "Check that a backup exists and replace the drive.")]
    watched.tools.medium_errors(2, 1, times=within(20, 0))
    watched.follow(mega_event(PLAIN, "Port=1,Box=1,Bay=1"))


def test_drives_in_every_condition(watched: Tooled) -> None:
    """A failed one makes the tool's exit status another than 0 for every listing that shows it."""
    with watched.changing() as tools:
        tools.add_drive(1, state="Failed", found_by="recovery", times=within(25, 60))
        tools.add_drive(1, did=30, other_times=[NOW] * 30)
        tools.add_drive(1, did=31, times=[None] * 20)  # before the controller knew the time
        tools.add_drive(2, did=20, enclosure=None, found_by="background", times=within(20, 0))
        tools.add_drive(2, did=21, port=None, box=None, bay=None, found_by="consistency", times=within(20, 0))
    watched.follow(mega_event(SLOTTED, "Port=1,Box=1,Bay=2"), mega_event(SLOTTED, "Port=1,Box=1,Bay=4"),
                   mega_event(PLAIN, "Port=1,Box=1,Bay=2"), mega_event(PLAIN, "Port=,Box=,Bay=3"),
                   mega_errors(25, 11), mega_errors(20, 31), mega_errors(20, 20), mega_errors(20, 21), cycles=2)
    for controller, drive in ((1, 2), (1, 3), (1, 4), (2, 2), (2, 3)):
        watched.tools.set_drive(controller, drive, "absent", True)


def test_drive_that_was_pulled_is_told_without_its_place(watched: Tooled) -> None:
    blocks = "".join(f"\n\nseqNum: 0x{number:08x}\nTime: Sat Nov 21 10:00:00 2026\n\nCode: 0x0000005d\nEvent Description: "
                     "Patrol Read corrected medium error on PD 63(e0xfc/s9) at 1aea556\nEvent Data:\n===========\n"
                     "Device ID: 99\n" for number in range(20))
    watched.tools.storcli64.answer(blocks, commands="/c1 show events")
    watched.follow(mega_event(PLAIN, ""), mega_errors(20, 99))
    watched.tools.storcli64.clear()


def test_test_input_takes_the_place_of_the_listings(watched: Tooled) -> None:
    folder, place = watched.host.work / "listings", watched.host.runtime / "KMT_ADUReport_test"
    folder.mkdir()
    dashes = "-" * 40
    (folder / "storcli_show_all_test.txt").write_text(f"{dashes}\nCtl Model\n{dashes}\n  5 TEST\n{dashes}\n")
    (folder / "storcli_cx_show_test.txt").write_text(
        f"Product Name = Tested\nPCI Slot Number = 8\n{dashes}\nEID:Slt DID State\n{dashes}\n 2:6 44 Onln\n{dashes}\n")
    (folder / "storcli_device_show_all.txt").write_text("Port Number = 2I\nBox = 7\n")
    (folder / "storcli_show_events.txt").write_text(
        "seqNum: 0x1\nTime: Sat Nov 21 10:00:00 2026\nEvent Description: Corrected medium error during recovery on PD "
        "2c(e0x02/s6) at 1\nEvent Data:\n===========\nNone\n" * 20)
    with watched.changing():
        folder.rename(place)
    watched.follow(mega_event("Tested [Slot=8]", "Port=2I,Box=7,Bay=6"), mega_errors(20, 44))
    begun = len(watched.lines())
    wait_until(lambda: watched.lines()[begun:].count(OVERVIEW) >= 2, "searches", 30, watched.host)
    assert watched.lines()[begun:][-5:-1] == ["storcli64 show", "storcli64 /c5 show", "storcli64 /c5/e2/s6 show all",
                                              "storcli64 /c5 show events"]
    shutil.rmtree(place)


def test_service_ends_well(watched: Tooled) -> None:
    watched.stop_search()
    watched.assert_reports()
    # The other tool is missing, which is said once.
    assert [line for line in watched.trace() if "log-manager" in line or "media-error" in line] == [
        "<VK0902> [ER] log-manager 118 (command: /opt/smartstorageadmin/ssacli/bin/ssacli ctrl all diag "
        "file=ADUReport.zip)"]
