"""Services that are stopped or killed at any moment: nothing is left that hinders the next run."""

import os
import random
import signal
import threading
import time
from pathlib import Path
from typing import Callable, List

import pytest
from tooled import Tooled
from watched import ControllerProcess, Watched, smart_disk, wait_until

STOPS, HOSTS = 200, 5
SPEED = 10  # the log-in after a second, the baseline after two; on a busy machine a time limit of 10 seconds needs one
LONGEST = 3  # seconds from the start to a stop
# Lines of the stop, in their order; what follows the signal's own line is the same whatever was under way.
END = [
    "<VK0902> [TR] Receive signal 15",
    "<VK0900> [TR] Receive StopEvent.",
    "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for OS log.",
    "<VK0900> [TR] Break SerialLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for Serial log.",
    "<VK0900> [TR] Service stopped.",
]
# In the order in which a run may come to them; each at most once.
BEGIN = [
    "<VK0900> [TR] Initialize succeeded.",
    "<VK0900> [TR] Service started.",
    "<VK0900> [TR] MainRoutine started.",
    "<VK0900> [TR] Get LocalSystemInfo.",
    "<VK0900> [TR] PrepareMessage succeeded.",
    "<VK0900> [TR] PrepareSysLog succeeded.",
    "<VK0900> [TR] Create thread for OS log.",
    "<VK0900> [TR] Create thread for Serial log.",
    "<VK0900> [TR] Ready to wait stop event.",
]
MONITORED = "<VK0900> [TR] Start to monitor."
SAVING = "<VK0900> [TR] Start cyclic serial log saving."


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
        self._watched = watched
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
        watched = self._watched
        log = watched.host.log_dir / "bayward.log"
        log.unlink(missing_ok=True)
        watched.start()
        watched.wait_line("Service started.")
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
        assert host._watched.host.syslog_entries() == []


def test_sigkill_at_random_moments_leaves_nothing_that_hinders_the_next_run(start_sim: Callable,
                                                                           tmp_path: Path) -> None:
    """Not its working files, its tools or its sessions, of which the controller allows sixteen."""
    chosen = random.Random(seed())
    sim = start_sim("--drives", 2, "--ssd", 0)
    with Tooled(sim, speed=SPEED) as watched:
        for _ in range(8):
            watched.start()
            watched.wait_line("Service started.")
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
        assert trace[-1] == "<VK0900> [TR] Service stopped."
        # The killed runs' sessions end by themselves.
        assert watched.counters()["open_sessions"] <= 8


def test_second_service_beside_the_first_ends_and_does_no_harm(start_sim: Callable,
                                                              watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2, "--ssd", 0)
    watched = watch(sim, speed=15).start().wait_baseline()
    service = str(watched.host.runtime / "bayward")
    paced = watched.host.environment(watched.environment(), faketime="+0 x15")

    def services() -> List[int]:
        return [process.pid for process in watched.host.processes() if process.name == "bayward"]

    first = services()
    for options, says in (([], ""), (["--stand-alone"], "bayward: The service runs already.\n")):
        before = len(watched.own_trace())
        ended = watched.host.run([service, *options], env=paced)
        assert (ended.returncode, ended.stdout, ended.stderr) == (0, "", says)
        wait_until(lambda: services() == first, "end of the second service", 30, watched.host)
        lines = watched.own_trace()[before:]
        assert lines[0] == "<VK0900> [TR] Initialize succeeded."
        assert len(lines) == 2 and lines[1].startswith("<VK0902> [ER] service ")
        assert lines[1].endswith(" (Err: The service runs already.)")
    assert watched.counters()["logins"] == 1
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1).failed)  # once
    health = watched.ctl("health")
    assert health.returncode == 0, health.stdout
    assert watched.stop() == 0
    watched.start()
    watched.wait_line(MONITORED, count=2)


def test_service_that_is_started_while_the_first_ends_takes_over(watch: Callable[..., Watched]) -> None:
    """As a start script does that only sends the signal."""
    watched = watch(None, speed=1).start()
    watched.wait_line("Ready to wait stop event.")
    first = watched.host.service
    first.signal(signal.SIGSTOP)
    first.signal(signal.SIGTERM)
    release = threading.Timer(1, lambda: first.signal(signal.SIGCONT))
    release.start()
    second = watched.host.run([str(watched.host.runtime / "bayward")], env=watched.environment())
    assert second.returncode == 0
    watched.wait_line("Ready to wait stop event.", count=2)
    release.join()
    assert first.exit_status(30) == 0
    taken, = [process.pid for process in watched.host.processes() if process.name == "bayward"]
    os.kill(taken, signal.SIGTERM)
    watched.wait_line("<VK0900> [TR] Service stopped.", count=2)
    assert watched.errors() == []
