"""Hosts that run out of descriptors or memory: nothing breaks, nothing false is reported, and later all is as before."""

import json
import random
import resource
import time
from contextlib import contextmanager
from typing import Callable, Dict, Iterator

import pytest
from troubled import BACK, FAILED, MONITORED, STOPPED
from watched import ControllerProcess, Watched, bin_dir, smart_disk, wait_until

SPEED = 10
MEBIBYTE = 1 << 20
READ_FAILED = "<VK0902> [ER] ilorest-reader "  # in front of a line and a reason, where there is memory for them
PADDING = MEBIBYTE - 16 * 1024  # an answer of more than a mebibyte is refused anyway


def is_sanitized() -> bool:
    """A sanitizer reserves terabytes of addresses, so that nothing starts where they are limited."""
    program = (bin_dir() / "bayward").read_bytes()
    return b"__asan_init" in program or b"__tsan_init" in program


@contextmanager
def limited(watched: Watched, kind: int, value: int) -> Iterator[None]:
    """The running service may have no more than that."""
    pid = watched.host.pid
    assert pid is not None
    before = resource.prlimit(pid, kind)
    resource.prlimit(pid, kind, (value, before[1]))
    try:
        yield
    finally:
        resource.prlimit(pid, kind, before)


def data(watched: Watched) -> int:
    """What RLIMIT_DATA counts, in bytes. (RLIMIT_AS also counts what the C library only reserves for threads.)"""
    with open(f"/proc/{watched.host.pid}/status", encoding="ascii") as status:
        size, = [line for line in status if line.startswith("VmData:")]
    return int(size.split()[1]) * 1024


@pytest.fixture(scope="module")
def sim(start_file_sim: Callable) -> ControllerProcess:
    return start_file_sim("--drives", 24, "--ssd", 0)


@pytest.fixture(scope="module")
def watched(sim: ControllerProcess, watch_file: Callable[..., Watched]) -> Watched:
    return watch_file(sim, speed=SPEED).start().wait_baseline()


@contextmanager
def padded(watched: Watched) -> Iterator[None]:
    """An answer is as large as may be. The service makes nothing of what has been added."""
    drive = watched.sim.control.call("list")[0]["drives"][20]

    def describe(size: int) -> None:
        watched.sim.control.call("set", drive, "Description", json.dumps("x" * size))

    describe(PADDING)
    try:
        yield
    finally:
        describe(1)


def assert_fails_once(watched: Watched, drive: int) -> None:
    watched.sim.control.call("fail-drive", 1, drive)
    watched.expect(smart_disk(drive).failed)


@pytest.mark.parametrize("number, drive", [(3, 1), (14, 2), (18, 3)])
def test_no_descriptors_while_it_runs(watched: Watched, number: int, drive: int) -> None:
    """The session is kept, for the account is not lost that cannot be looked at, and the walks go on."""
    logins, errors = watched.counters()["logins"], watched.errors()
    with limited(watched, resource.RLIMIT_NOFILE, number):
        watched.wait_walks(2)
    assert_fails_once(watched, drive)
    assert watched.errors() == errors
    assert watched.counters()["logins"] == logins


@pytest.mark.skipif(is_sanitized(), reason="a sanitizer needs more memory than a limit would leave")
@pytest.mark.parametrize("more, drive", [(-MEBIBYTE, 7), (256 * 1024, 8)])
def test_no_memory_while_it_runs(watched: Watched, more: int, drive: int) -> None:
    """An answer is larger than what is left: its walk fails, and the thread lives on. (Less than the service has already
    may do for a walk, or not: that depends on what has been freed.)"""
    failed, back, errors = watched.count_line(FAILED), watched.count_line(BACK), len(watched.errors())
    watched.wait_walks(1)
    with limited(watched, resource.RLIMIT_DATA, data(watched) + more):
        if more > 0:
            assert_fails_once(watched, drive)  # as long as the answers are no larger than ever
        with padded(watched):
            watched.wait_line(FAILED, count=failed + 1)
    watched.wait_line(BACK, count=back + 1)
    watched.wait_walks(2)
    watched.expect()
    found = set(watched.errors()[errors:])
    assert FAILED in found
    assert all(READ_FAILED in error for error in found - {FAILED}), found
    assert_fails_once(watched, drive + 10)


@pytest.mark.skipif(is_sanitized(), reason="a sanitizer needs more memory than a limit would leave")
def test_memory_that_comes_and_goes(watched: Watched) -> None:
    """Wherever in a walk it ends: the service goes on, and reports what happens, once, when there is some again."""
    chance = random.Random(20)
    for _ in range(15):
        more = chance.randrange(-3 * MEBIBYTE, MEBIBYTE // 2)
        with limited(watched, resource.RLIMIT_DATA, data(watched) + more), padded(watched):
            time.sleep(chance.uniform(0.3, 2))
        assert watched.host.running, (more, watched.host.report())
    watched.wait_walks(2)
    assert_fails_once(watched, 9)


def test_large_answer_alone_does_no_harm(watched: Watched) -> None:
    """The limit made the walks fail, not the size."""
    failed = watched.count_line(FAILED)
    with padded(watched):
        watched.wait_walks(2)
    assert watched.count_line(FAILED) == failed
    assert_fails_once(watched, 24)


def test_service_ends_well(watched: Watched) -> None:
    if not is_sanitized():
        pid = watched.host.pid
        assert pid is not None
        resource.prlimit(pid, resource.RLIMIT_DATA, (data(watched) - MEBIBYTE, resource.RLIM_INFINITY))
    assert watched.stop() == 0
    watched.assert_reports()
    assert watched.own_trace()[-1] == STOPPED
    assert watched.counters()["open_sessions"] == 0


def run_limited(watched: Watched, limits: Dict[str, int]) -> None:
    """A run of the service that may never come to its controller ends as every other one does."""
    host = watched.host
    (host.log_dir / "bayward.log").unlink(missing_ok=True)
    host.start_service(stand_alone=False, faketime=f"+0 x{SPEED}", env=watched.environment(), limits=limits)
    begun = time.monotonic()

    def has_tried() -> bool:
        tried = any(text in line for line in watched.own_trace() for text in ("<VK091", MONITORED))
        return tried or not host.running or time.monotonic() - begun > 3
    wait_until(has_tried, "try to log in", 30, host)
    assert watched.stop() == 0, (limits, host.report())
    assert host.service_output() == "", limits
    trace = watched.own_trace()
    assert not [line for line in trace if "[EV]" in line], (limits, trace)
    assert watched.counters()["open_sessions"] == 0, limits


def test_limits_from_the_start(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """However little there is: an end with status 0, no false report, and no session that is left."""
    watched = watch(start_sim("--drives", 2, "--ssd", 0), speed=SPEED)
    for number in (6, 8, 12, 14, 16, 18):
        run_limited(watched, {"nofile": number})
    if not is_sanitized():
        # Less than 20 does not load the program. From 100 on there is enough.
        for number in (24, 32, 36, 40, 50, 56, 60, 64, 70, 80):
            run_limited(watched, {"as": number * MEBIBYTE})
    (watched.host.log_dir / "bayward.log").unlink()
    watched.start()
    watched.wait_line(MONITORED)
    watched.wait_walks(2)
    assert_fails_once(watched, 1)
    assert watched.errors() == []
