"""Medium errors of drives at Smart Array controllers: the trace log first, the system log when they recur, once."""

from typing import Iterator

import pytest
from tooled import SMART_ARRAY, Tooled, smart_errors, smart_event

LATEST = 0x0005A99E  # minutes of service


@pytest.fixture(scope="module")
def watched() -> Iterator[Tooled]:
    """Every test has controllers of its own; their drives lie in the same places."""
    with Tooled(only=("ssacli",), speed=120) as found:
        found.tools.add_smart_array()
        yield found.start()


def test_first_medium_error_is_traced_once(watched: Tooled) -> None:
    controller = watched.tools.add_smart_array()
    drive = watched.tools.add_drive(controller, times=[5])
    watched.follow(smart_errors(1, "1I:1:1", f"SIMTOOL{controller}D0000"), cycles=2)
    watched.tools.medium_errors(controller, drive, 3)
    watched.follow()


def test_too_few_errors_or_too_far_apart_are_no_event(watched: Tooled) -> None:
    with watched.changing() as tools:
        controller = tools.add_smart_array()
        tools.add_drive(controller, times=[LATEST] * 18)
        tools.add_drive(controller, times=[LATEST] * 18 + [LATEST - 10080])
        tools.add_drive(controller, times=list(range(40)) + [LATEST] * 18)
        tools.add_drive(controller, times=[], other_times=[LATEST] * 30)
        tools.add_drive(controller, times=[LATEST] * 18, other_times=[LATEST] * 30, kind="SSD")
        tools.add_drive(controller, times=[LATEST] * 30, kind="Tape")
    serial = f"SIMTOOL{controller}D000"
    watched.follow(smart_errors(18, "1I:1:1", serial + "0"), smart_errors(19, "1I:1:2", serial + "1"),
                   smart_errors(58, "1I:1:3", serial + "2"), smart_errors(18, "2I:1:5", serial + "4"), cycles=2)


def test_nineteenth_error_is_an_event(watched: Tooled) -> None:
    controller = watched.tools.add_smart_array()
    drive = watched.tools.add_drive(controller, times=[LATEST] * 18)
    serial = f"SIMTOOL{controller}D0000"
    watched.follow(smart_errors(18, "1I:1:1", serial))
    watched.tools.medium_errors(controller, drive, times=[LATEST - 10079, *[LATEST] * 18])
    # Without a further line in the trace log: one was written minutes ago.
    watched.follow(smart_event(SMART_ARRAY, "1I:1:1", serial), cycles=2)
    assert watched.trace().count(f"<VK0345> [EV] 0x80008159 CTRL({SMART_ARRAY}) PD(1I:1:1)   Serial Number: {serial} "
                                 "reported.") == 1
    assert [(entry.priority, entry.text()) for entry in watched.host.syslog_entries()[-2:]] == [
        (4, f"Medium errors recur on a physical drive: CTRL({SMART_ARRAY}) PD(1I:1:1)  Serial Number: {serial}"),
        (4, "Check that a backup exists and replace the drive.")]


@pytest.mark.parametrize("headings", ["drives", "grouped"])
@pytest.mark.parametrize("line_ends", ["lf", "crlf"])
def test_layouts_and_controllers(watched: Tooled, headings: str, line_ends: str) -> None:
    with watched.changing() as tools:
        tools.layout(headings, line_ends=line_ends)
        first = tools.add_smart_array("HPE Smart Array E208i-a SR Gen10", 3)
        second = tools.add_smart_array("HPE Smart Array P816i-a SR Gen10", "0 (Embedded)")
        tools.add_drive(first, times=[LATEST], other_times=[LATEST] * 25)
        tools.add_drive(first, times=[LATEST] * 19, kind="SSD", bus="SATA", capacity="960 GB")
        tools.add_drive(second, times=[LATEST] * 20)
        tools.add_drive(second)
        tools.add_drive(second, times=[1, 2])
    titles = {"drives": ("HPE Smart Array E208i-a SR Gen10 in slot 3",
                         "HPE Smart Array P816i-a SR Gen10 in slot 0 (Embedded)"),
              "grouped": ("Physical Drive (960 GB SATA SSD) 1I:1:2", "Physical Drive (1.2 TB SAS HDD) 1I:1:1")}[headings]
    serials = [f"SIMTOOL{first}D0000", f"SIMTOOL{first}D0001", f"SIMTOOL{second}D0000", f"SIMTOOL{second}D0002"]
    watched.follow(smart_errors(1, "1I:1:1", serials[0]), smart_event(titles[0], "1I:1:2", serials[1]),
                   smart_event(titles[1], "1I:1:1", serials[2]), smart_errors(2, "1I:1:3", serials[3]),
                   # What was told to the system log is traced from then on.
                   smart_errors(19, "1I:1:2", serials[1]), smart_errors(20, "1I:1:1", serials[2]))


def test_drive_that_changes_its_place_is_the_same_one(watched: Tooled) -> None:
    with watched.changing() as tools:
        controller = tools.add_smart_array()
        drive = tools.add_drive(controller, times=[LATEST] * 19, serial="MOVES")
    title = "Physical Drive (1.2 TB SAS HDD) 1I:1:1"  # in the layout that was set last
    watched.follow(smart_event(title, "1I:1:1", "MOVES"), smart_errors(19, "1I:1:1", "MOVES"))
    watched.tools.set_drive(controller, drive, "bay", "4")
    watched.follow()
    watched.tools.set_drive(controller, drive, "serial", "ANOTHER")
    watched.follow(smart_event("Physical Drive (1.2 TB SAS HDD) 1I:1:4", "1I:1:4", "ANOTHER"),
                   smart_errors(19, "1I:1:4", "ANOTHER"))


def test_test_input_takes_the_place_of_the_report(watched: Tooled) -> None:
    folder = watched.host.runtime / "KMT_ADUReport_test"
    folder.mkdir()
    entries = "   Sense Key  0x03\n   Reference Time  0x100\n"
    (folder / "KMT_ADUReport_test.txt").write_text(
        "Card : Physical Drive Status\n\nPhysical Drive (1 TB SAS HDD) 1I:1:7 :\n   Drive Serial Number  FROMTEST\n"
        "   Physical Port  1I\n   Physical Box  1\n   Physical Bay  7\n\n"
        f"Card : Serial SCSI Physical Drive Error Log\n\nPhysical Drive (1 TB SAS HDD) 1I:1:7 :\n{entries * 19}")
    controller = watched.tools.add_smart_array()
    watched.tools.add_drive(controller, times=[LATEST] * 19)
    title = "Physical Drive (1 TB SAS HDD) 1I:1:7"
    watched.follow(smart_event(title, "1I:1:7", "FROMTEST"), smart_errors(19, "1I:1:7", "FROMTEST"))
    (folder / "KMT_ADUReport_test.txt").rename(folder / "away")
    watched.follow(smart_event("Physical Drive (1.2 TB SAS HDD) 1I:1:1", "1I:1:1", f"SIMTOOL{controller}D0000"),
                   smart_errors(19, "1I:1:1", f"SIMTOOL{controller}D0000"))
    (folder / "away").unlink()
    folder.rmdir()


def test_service_ends_well(watched: Tooled) -> None:
    watched.stop_search()
    watched.assert_reports()
    assert watched.count_line("log-manager") == watched.count_line("media-error") == 0
