"""Services that are stopped or killed at any moment: nothing is left that hinders the next run."""

import os
import random
import signal
import threading
import time
from pathlib import Path
from typing import Callable, List, Set

import pytest
from tooled import Tooled
from troubled import END, MONITORED, STOPPED
from watched import ControllerProcess, Watched, smart_disk, wait_until

STOPS, HOSTS = 200, 5
SPEED = 10  # the log-in after a second, the baseline after two; on a busy machine a time limit of 10 seconds needs one
LONGEST = 3  # seconds from the start to a stop
INITIALIZED = "<VK0900> [TR] Initialize succeeded."
STARTED = "<VK0900> [TR] Service started."
READY = "<VK0900> [TR] Ready to wait stop event."
# In the order in which a run may come to them; each at most once.
BEGIN = [
    INITIALIZED,
    STARTED,
    "<VK0900> [TR] MainRoutine started.",
    "<VK0900> [TR] Get LocalSystemInfo.",
    "<VK0900> [TR] PrepareMessage succeeded.",
    "<VK0900> [TR] PrepareSysLog succeeded.",
    "<VK0900> [TR] Create thread for OS log.",
    "<VK0900> [TR] Create thread for Serial log.",
    READY,
]
SAVING = "<VK0900> [TR] Start cyclic serial log saving."
WAITS = "The service runs already."


def seed() -> int:
    """Printed, so that a failure can be repeated: BAYWARD_TEST_SEED=... chooses it."""
    found = int(os.environ.get("BAYWARD_TEST_SEED") or random.SystemRandom().randrange(1 << 32))
    print(f"BAYWARD_TEST_SEED={found}")
    return found


def assert_run(lines: List[str]) -> None:
    """A run from its first line to its last: every line in its place, and none that does not belong."""
    lines = [line for line in lines if "<VK0999>" not in line]
    told = "\n".join(lines)
    # The serial-log thread and the signal thread write when they come to it.
    assert lines.count(SAVING) == 1 and lines.index(SAVING) < lines.index(END[4]), told
    assert lines.count(END[0]) == 1 and lines.index(END[0]) < lines.index(END[1]), told
    rest = [line for line in lines if line not in (SAVING, END[0])]
    assert rest in (BEGIN + END[1:], BEGIN + [MONITORED] + END[1:]), told


class Stops:
    """One host, on which the service is started and stopped again and again."""

    def __init__(self, sim: ControllerProcess, watched: Watched, moments: List[float]) -> None:
        self._sim = sim
        self.watched = watched
        self._moments = moments
        self.failure: "BaseException | None" = None
        self.done = 0
        self.monitored = 0  # runs that had come so far

    def run(self) -> None:
        try:
            for moment in self._moments:
                self._run_once(moment)
                self.done += 1
        except BaseException as failure:  # pylint: disable=broad-except  # told by the test, whose thread this is not
            self.failure = failure

    def _run_once(self, moment: float) -> None:
        watched = self.watched
        log = watched.host.log_dir / "bayward.log"
        log.unlink(missing_ok=True)
        watched.start()
        watched.wait_line(STARTED)
        time.sleep(moment)
        begun = time.monotonic()
        assert watched.stop(60) == 0
        took = time.monotonic() - begun
        lines = watched.trace()
        assert_run(lines)
        self.monitored += MONITORED in lines
        counters = watched.counters()
        assert counters["open_sessions"] == 0, (moment, lines[-8:], self._sim.requests()[-6:])
        assert took < 30, (moment, took)
        assert [process.name for process in watched.host.processes() if process.name != "rsyslogd"] == []


def test_sigterm_at_200_random_moments(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    chosen = random.Random(seed())
    hosts = []
    for _ in range(HOSTS):
        sim = start_sim("--drives", 3)
        watched = watch(sim, speed=SPEED)
        hosts.append(Stops(sim, watched, [chosen.uniform(0, LONGEST) for _ in range(STOPS // HOSTS)]))
    threads = [threading.Thread(target=host.run) for host in hosts]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for host in hosts:
        if host.failure is not None:
            raise host.failure
    assert sum(host.done for host in hosts) == STOPS
    # The moments lie on both sides of the log-in, or this test would see half of it alone.
    assert 0 < sum(host.monitored for host in hosts) < STOPS
    for host in hosts:
        assert host.watched.host.syslog_entries() == []


def test_sigkill_at_random_moments_leaves_nothing_that_hinders_the_next_run(start_sim: Callable,
                                                                           tmp_path: Path) -> None:
    """Not its working files, its tools or its sessions, of which the controller allows sixteen."""
    chosen = random.Random(seed())
    sim = start_sim("--drives", 2, "--ssd", 0)
    with Tooled(sim, speed=SPEED) as watched:
        for _ in range(8):
            watched.start()
            watched.wait_line(STARTED)
            time.sleep(chosen.uniform(0, 3))
            watched.host.signal(signal.SIGKILL)
            assert watched.host.wait_exit() == -signal.SIGKILL
            (watched.host.log_dir / "bayward.log").unlink()
        # What a search would have left in its middle.
        runtime = watched.host.runtime
        (runtime / "ADUReport").mkdir(exist_ok=True)
        (runtime / "ADUReport/ADUReport.txt").write_bytes(b"half a rep")
        (runtime / "ADUReport.zip").write_bytes(b"PK\x03\x04 half an archive")
        for name in ("storcli_show_all.log", "storcli_show_events.log", "storcli_cx_show.log"):
            (runtime / name).write_bytes(b"half a list")
        watched.start()
        watched.wait_line(MONITORED)
        watched.wait_walks(2)  # the second of this run takes the baseline
        sim.control.call("fail-drive", 1, 2)
        watched.expect(smart_disk(2).failed)
        watched.stop_search()
        trace = watched.trace()
        assert watched.errors() == []
        assert trace[-1] == STOPPED
        # The killed runs' sessions end by themselves.
        assert watched.counters()["open_sessions"] <= 8


def services(watched: Watched) -> Set[int]:
    return {process.pid for process in watched.host.processes() if process.name == "bayward" and process.state != "Z"}


def start_second(watched: Watched, *options: str, speed: float) -> int:
    """Starts another service beside the one that runs. Returns its process id, once it has said that it waits."""
    before, waits = services(watched), watched.count_line(WAITS)
    command = [str(watched.host.runtime / "bayward"), *options]
    paced = watched.host.environment(watched.environment(), faketime=f"+0 x{speed:g}")
    if options:
        watched.host.spawn(command, env=paced, output=watched.host.work / "service.err")
    else:
        assert watched.host.run(command, env=paced).returncode == 0
    watched.wait_line(WAITS, count=waits + 1)
    wait_until(lambda: len(services(watched) - before) == 1, "second service", 30, watched.host)
    second, = services(watched) - before
    return second


@pytest.mark.parametrize("options, number, says", [
    ([], signal.SIGTERM, ""), (["--stand-alone"], signal.SIGINT, f"bayward: {WAITS}\n")], ids=["detached", "stand-alone"])
def test_second_service_waits_beside_the_first_and_does_no_harm(
        start_sim: Callable, watch: Callable[..., Watched], options: List[str], number: int, says: str) -> None:
    sim = start_sim("--drives", 2, "--ssd", 0)
    watched = watch(sim, speed=15).start().wait_baseline()
    first, before = services(watched), len(watched.own_trace())
    second = start_second(watched, *options, speed=15)
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1).failed)  # once
    assert services(watched) == first | {second}
    os.kill(second, number)
    wait_until(lambda: services(watched) == first, "end of the second service", 30, watched.host)
    watched.wait_walks(1)
    said = [line for line in watched.own_trace()[before:] if "[EV]" not in line]
    assert said[0] == INITIALIZED
    assert len(said) == 2 and said[1].startswith("<VK0902> [ER] service ") and said[1].endswith(f" (Err: {WAITS})")
    assert watched.host.service_output() == says
    assert watched.counters()["logins"] == 1
    health = watched.ctl("health")
    assert health.returncode == 0, health.stdout
    assert watched.stop() == 0
    watched.start()
    watched.wait_line(MONITORED, count=2)


def test_waiting_service_takes_over_from_one_that_is_killed(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2, "--ssd", 0)
    watched = watch(sim, speed=15).start().wait_baseline()
    second = start_second(watched, speed=15)
    watched.host.signal(signal.SIGKILL)
    assert watched.host.wait_exit() == -signal.SIGKILL
    wait_until(lambda: watched.count_line(MONITORED) == 2, "monitoring second service", 30)
    watched.wait_walks(2)  # the second of this run takes the baseline
    sim.control.call("fail-drive", 1, 1)
    wait_until(lambda: watched.count_line(smart_disk(1).failed.line) == 1, "report", 30)
    watched.expect(smart_disk(1).failed)
    os.kill(second, signal.SIGTERM)
    wait_until(lambda: services(watched) == set(), "end of the second service", 30)
    assert watched.trace()[-1] == STOPPED
    assert watched.counters()["open_sessions"] == 1  # that of the killed one, which ends by itself


def test_waiting_service_takes_over_however_long_the_first_takes_to_end() -> None:
    """As a start script starts it that only sends the signal. What the first is at takes 30 seconds."""
    with Tooled(speed=1, only=("ssacli",)) as watched:
        watched.tools.add_drive(watched.tools.add_smart_array(), times=[7])
        watched.start()
        wait_until(lambda: watched.cycles() == 1, "report", 30, watched.host)
        wait_until(lambda: watched.host.children() == [], "its pause", 30, watched.host)
        watched.host.signal(signal.SIGTERM)
        watched.wait_line(END[1])
        second = start_second(watched, speed=60)  # at that pace it need not take as long
        assert watched.host.running
        assert watched.host.wait_exit(120) == 0
        wait_until(lambda: watched.count_line(READY) == 2, "second service", 30)
        os.kill(second, signal.SIGTERM)
        wait_until(lambda: services(watched) == set(), "end of the second service", 30)
        lines = watched.trace()
        waits, = [line for line in lines if WAITS in line]
        assert [line for line in lines if line in (INITIALIZED, STARTED, waits, STOPPED)] == [
            INITIALIZED, STARTED, INITIALIZED, waits, STOPPED, STARTED, STOPPED]
        assert lines[-1] == STOPPED
        assert watched.left_files() == set()
