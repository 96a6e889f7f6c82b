"""Hosts whose log folder or system log is in trouble: what fails meanwhile is told where it can be, and later all is as before."""

import os
import re
import shutil
from contextlib import contextmanager
from pathlib import Path
from typing import Callable, ContextManager, Iterator, List

import pytest
from watched import ControllerProcess, Event, Watched, smart_disk, wait_until

SPEED = 15
FOLDER = "/var/log/bayward"
STAMP = re.compile(r"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} <VK")


class Reporting:
    """A service that has its baseline, whose drives fail one after the other, and what stands in which log."""

    def __init__(self, watched: Watched) -> None:
        self.watched = watched
        self.host = watched.host
        self._drive = 0
        self.begin()

    def begin(self) -> None:
        """What is there already, or is about to come, is not looked at again: it is another test's."""
        self.watched.wait_walks(1)
        self._sent = self._entries()
        self._errors = self.watched.errors()
        self._logins = self.watched.counters()["logins"]

    def run(self, *command: str) -> None:
        done = self.host.run(command)
        assert done.returncode == 0, (command, done.stderr)

    def fail_drive(self) -> Event:
        self._drive += 1
        self.watched.sim.control.call("fail-drive", 1, self._drive)
        return smart_disk(self._drive).failed

    def in_system_log(self, event: Event) -> None:
        """It comes there, once, after those before and nothing else."""
        self._sent += event.sentences()
        wait_until(lambda: len(self._entries()) >= len(self._sent), "event", 30, self.host)
        self.watched.wait_walks(1)
        assert self._entries() == self._sent

    def _entries(self) -> List[str]:
        return [entry.text() for entry in self.host.syslog_entries()]

    def in_trace_log(self, event: Event) -> int:
        return self.watched.count_line(event.line)

    def assert_as_ever(self) -> None:
        """What fails now is reported exactly once, in both logs, without another log-in or an error."""
        event = self.fail_drive()
        self.watched.wait_line(event.line)
        self.in_system_log(event)
        assert self.in_trace_log(event) == 1
        assert self.watched.errors() == self._errors
        assert self.watched.counters()["logins"] == self._logins


@pytest.fixture(scope="module")
def small(start_file_sim: Callable, watch_file: Callable[..., Watched]) -> Reporting:
    """A service whose log folder is a file system of its own, so that it can be full or read-only; half a megabyte."""
    watched = watch_file(start_file_sim("--drives", 24, "--ssd", 0), speed=SPEED)
    done = watched.host.run(["mount", "-t", "tmpfs", "-o", "size=512k,mode=755", "tmpfs", FOLDER])
    assert done.returncode == 0, done.stderr
    watched.host.log_dir = watched.host.inside(FOLDER)
    return Reporting(watched.start().wait_baseline())


@pytest.fixture
def reporting(small: Reporting) -> Reporting:
    small.begin()
    return small


@contextmanager
def full(reporting: Reporting) -> Iterator[None]:
    waste = reporting.host.log_dir / "waste"
    try:
        fill(waste)
        reporting.watched.wait_walks(3)  # more lines than the log's last block has room for
        yield
    finally:
        waste.unlink()


def fill(file: Path) -> None:
    """To the last byte."""
    with open(file, "wb", buffering=0) as waste:
        for piece in (1 << 16, 1 << 10, 1):
            try:
                while True:
                    waste.write(b"x" * piece)
            except OSError:
                continue


@contextmanager
def read_only(reporting: Reporting) -> Iterator[None]:
    reporting.run("mount", "-o", "remount,ro", FOLDER)
    try:
        yield
    finally:
        reporting.run("mount", "-o", "remount,rw", FOLDER)


@contextmanager
def log_is_a_device(reporting: Reporting) -> Iterator[None]:
    reporting.run("mount", "--bind", "/dev/null", f"{FOLDER}/bayward.log")
    try:
        yield
    finally:
        reporting.run("umount", f"{FOLDER}/bayward.log")


@contextmanager
def log_is_a_folder(reporting: Reporting) -> Iterator[None]:
    log = reporting.host.log_dir / "bayward.log"
    log.rename(log.with_suffix(".kept"))
    log.mkdir()
    try:
        yield
    finally:
        log.rmdir()
        log.with_suffix(".kept").rename(log)


@pytest.mark.parametrize("trouble", [full, read_only, log_is_a_device, log_is_a_folder])
def test_trace_log_that_cannot_be_written(reporting: Reporting,
                                          trouble: Callable[[Reporting], ContextManager[None]]) -> None:
    """Its lines are lost, the event in the system log is not."""
    before = len(reporting.watched.trace())
    with trouble(reporting):
        event = reporting.fail_drive()
        reporting.in_system_log(event)
    reporting.watched.wait_walks(1)
    assert reporting.in_trace_log(event) == 0
    reporting.assert_as_ever()
    lines = reporting.host.trace_lines()
    assert len(lines) > before
    assert [line for line in lines if len(STAMP.findall(line)) != 1] == []  # none was cut and ran into the next


def test_log_that_is_moved_away(reporting: Reporting) -> None:
    """As by a log rotation that knows nothing of the service: a new one begins."""
    log = reporting.host.log_dir / "bayward.log"
    log.unlink()
    reporting.begin()
    assert log.stat().st_size > 0
    reporting.assert_as_ever()


@pytest.fixture
def movable(start_sim: Callable, watch: Callable[..., Watched]) -> Reporting:
    """A service whose log folder lies on a file system with others."""
    return Reporting(watch(start_sim("--drives", 4, "--ssd", 0), speed=SPEED).start().wait_baseline())


def test_log_folder_that_is_removed_and_replaced_by_a_link(movable: Reporting) -> None:
    folder = movable.host.log_dir
    shutil.rmtree(folder)
    movable.in_system_log(movable.fail_drive())
    assert not os.path.lexists(folder)  # the service does not make it

    folder.symlink_to("nowhere")
    movable.in_system_log(movable.fail_drive())
    assert not folder.exists()

    (folder.parent / "nowhere").mkdir()
    movable.watched.wait_walks(1)
    assert (folder.parent / "nowhere/bayward.log").stat().st_size > 0
    movable.assert_as_ever()


@pytest.mark.parametrize("missing_at_start", [False, True])
def test_system_log_that_is_not_there(start_sim: Callable, watch: Callable[..., Watched],
                                      missing_at_start: bool) -> None:
    """What comes meanwhile stands in the trace log alone."""
    watched = watch(start_sim("--drives", 4, "--ssd", 0), speed=SPEED, syslog=not missing_at_start)
    reporting = Reporting(watched.start().wait_baseline())
    if not missing_at_start:
        reporting.assert_as_ever()
        watched.host.stop_syslog()
    lost = reporting.fail_drive()
    watched.wait_line(lost.line)
    watched.host.start_syslog()
    reporting.assert_as_ever()
    watched.host.restart_syslog()
    reporting.assert_as_ever()
    assert reporting.in_trace_log(lost) == 1
