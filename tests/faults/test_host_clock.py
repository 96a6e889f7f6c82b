"""Hosts whose time of day is set while the service runs: it goes on at its pace, and reports what fails once."""

import calendar
import re
import time
from pathlib import Path
from typing import Callable, Iterator, List

import pytest
from watched import Clock, ControllerProcess, Watched, smart_disk, wait_until

DAY = 24 * 3600
YEAR = 365 * DAY
STAMP = re.compile(r"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d)\.\d{3} ")


class TimeOfDay:
    """The host's time of day. Its monotonic clock, by which everything waits, is the machine's own."""

    def __init__(self, path: Path) -> None:
        self._path = path
        self._clock = Clock(path, 1)

    def environment(self) -> "dict[str, str]":
        # The service is started with them, so a variable that is not there yet would come too late.
        return {**self._clock.environment(), "FAKETIME_DONT_FAKE_MONOTONIC": "1", "TZ": "Europe/Berlin"}

    def move(self, seconds: int) -> None:
        """As far from the real time."""
        part = self._path.with_suffix(".part")
        part.write_text(f"{seconds:+d}\n", encoding="ascii")
        part.replace(self._path)

    def set(self, text: str) -> None:
        """To a time of day in UTC."""
        self.move(calendar.timegm(time.strptime(text, "%Y-%m-%d %H:%M:%S")) - int(time.time()))


@pytest.fixture(scope="module")
def sim(start_file_sim: Callable) -> ControllerProcess:
    return start_file_sim("--drives", 8, "--ssd", 0)


@pytest.fixture(scope="module")
def time_of_day(tmp_path_factory: pytest.TempPathFactory) -> TimeOfDay:
    return TimeOfDay(tmp_path_factory.mktemp("clock") / "clock")


@pytest.fixture(scope="module")
def watched(sim: ControllerProcess, watch_file: Callable[..., Watched], time_of_day: TimeOfDay) -> Iterator[Watched]:
    yield watch_file(sim, speed=1, env=time_of_day.environment()).start().wait_baseline()


def stamps(watched: Watched, begun: int) -> List[str]:
    """To the second, of the lines behind the first `begun` ones."""
    found = []
    for line in watched.host.trace_lines()[begun:]:
        stamp = STAMP.match(line)
        assert stamp, line
        found.append(stamp[1])
    return found


def assert_goes_on(watched: Watched, drive: int) -> None:
    """The next walks come in their time, and a drive that fails now is reported exactly once."""
    watched.sim.control.call("fail-drive", 1, drive)
    # Walks are 3 seconds apart.
    watched.expect(smart_disk(drive).failed, walks=0, timeout=60)
    watched.wait_walks(1, 60)
    watched.assert_reports()
    assert watched.errors() == []
    assert watched.counters()["logins"] == 1


@pytest.mark.parametrize("drive, seconds", [(1, 14 * YEAR), (2, -3 * YEAR), (3, 0)],
                         ids=["14 years ahead, beyond 2038", "17 years back", "right again"])
def test_clock_that_is_set(watched: Watched, time_of_day: TimeOfDay, drive: int, seconds: int) -> None:
    begun = len(watched.host.trace_lines())
    time_of_day.move(seconds)
    assert_goes_on(watched, drive)
    last = calendar.timegm(time.strptime(stamps(watched, begun)[-1], "%Y/%m/%d %H:%M:%S"))
    assert abs(last - time.time() - seconds) < DAY


def test_daylight_saving_begins(watched: Watched, time_of_day: TimeOfDay) -> None:
    """The hour from 2 to 3 is left out."""
    time_of_day.set("2027-03-28 00:59:45")
    begun = len(watched.host.trace_lines())
    wait_until(lambda: any("2027/03/28 03:00" in stamp for stamp in stamps(watched, begun)), "summer time", 60)
    assert_goes_on(watched, 4)
    found = stamps(watched, begun)
    assert found == sorted(found)
    assert not [stamp for stamp in found if "2027/03/28 02:" in stamp]


def test_daylight_saving_ends(watched: Watched, time_of_day: TimeOfDay) -> None:
    """The hour from 2 to 3 comes twice."""
    time_of_day.set("2027-10-31 00:59:30")
    begun = len(watched.host.trace_lines())
    wait_until(lambda: any("2027/10/31 02:59" in stamp for stamp in stamps(watched, begun)), "last summer time", 30)
    wait_until(lambda: any("2027/10/31 02:00" in stamp for stamp in stamps(watched, begun)), "winter time", 60)
    assert_goes_on(watched, 5)
    found = [stamp[11:16] for stamp in stamps(watched, begun)]
    assert found[0] == "02:59" and found[-1] < "02:10"


def test_service_ends_well(watched: Watched) -> None:
    assert watched.stop() == 0  # within 30 seconds, whatever the time of day
    watched.assert_reports()
