"""Stopping the service in every kind of wait, and what it leaves behind: nothing."""

import time
from typing import Any, Callable, List, Mapping, Optional, Sequence

import pytest
from watched import LOGIN_FAILED, ControllerProcess, Watched, slowness, wait_until, without

LIMIT = 2.0  # seconds; the waits that are cut short last far longer
MONITORED = "<VK0900> [TR] Start to monitor."
END = [
    "<VK0902> [TR] Receive signal 15",
    "<VK0900> [TR] Receive StopEvent.",
    "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for OS log.",
    "<VK0900> [TR] Break SerialLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for Serial log.",
    "<VK0900> [TR] Service stopped.",
]


def assert_stops(watched: Watched, limit: float = LIMIT, failure: Sequence[str] = ()) -> None:
    """It ends in time, says so in order and once, and leaves no process.

    failure   what is said about a request that was under way and ran into its time limit
    """
    begun = time.monotonic()
    assert watched.stop() == 0
    took = time.monotonic() - begun
    trace = watched.own_trace()
    expected = [*END[:2], *failure, *END[2:]]
    assert trace[-len(expected):] == expected
    assert sum("Break MonitorLogRoutine" in line for line in trace) == 1
    assert took < limit * slowness(), f"the service took {took:.1f} s to stop"
    assert watched.left_processes() == []


def no_sessions(sim: ControllerProcess) -> bool:
    return sim.control.call("counters")["open_sessions"] == 0


@pytest.fixture
def reach(start_sim: Callable, watch: Callable[..., Watched]) -> Callable[..., Watched]:
    """A service that has come to a state fast and waits there at its natural pace."""
    def run(*options: object, interval: int = 3600000, speed: float = 10, password: Optional[str] = None,
            config: Optional[Mapping[str, Any]] = None) -> Watched:
        sim = start_sim("--drives", 2, *options)
        return watch(sim, speed=speed, clock=True, account=("simadmin", password or sim.password),
                     config={"iLo": {"interval": interval}, **(config or {})}).start()
    return run


def slow_down(watched: Watched) -> None:
    """From now on the waits that begin last as long as they say."""
    assert watched.clock is not None
    watched.clock.set(100000, 1)


def test_in_the_first_wait(watch: Callable[..., Watched]) -> None:
    watched = watch(None, speed=1).start()
    watched.wait_line("Ready to wait stop event.")
    watched.wait_line("Start cyclic serial log saving.")
    assert_stops(watched)


def test_in_the_polling_wait(reach: Callable[..., Watched]) -> None:
    watched = reach()
    watched.wait_line(MONITORED)
    assert_stops(watched)
    assert no_sessions(watched.sim)


def test_in_the_pause_after_refused_log_ins_at_start_up(reach: Callable[..., Watched]) -> None:
    watched = reach(password="wrong-secret")
    watched.wait_line(LOGIN_FAILED.line)
    slow_down(watched)
    # The fast pause under way ends with one more refused log-in; the pause after that lasts 10 seconds.
    refused = watched.counters()["refused_logins"]
    wait_until(lambda: watched.counters()["refused_logins"] > refused, "refused log-in", 30, watched.host)
    time.sleep(1)
    assert_stops(watched)


def test_in_the_pause_after_refused_log_ins_while_monitoring(reach: Callable[..., Watched]) -> None:
    watched = reach(interval=10000)
    watched.wait_line(MONITORED)
    watched.unregister()
    watched.wait_line("<VK0954>")
    slow_down(watched)
    assert_stops(watched)


def test_in_the_wait_for_a_resource_that_is_not_ready(reach: Callable[..., Watched]) -> None:
    watched = reach(interval=3000)
    watched.wait_line(MONITORED)
    watched.wait_baseline()
    watched.sim.control.call("not-ready", "GET */DiskDrives/1", "forever")
    asked = "GET /redfish/v1/Systems/1/SmartStorage/ArrayControllers/0/DiskDrives/1/ 503"

    def answers() -> int:
        return sum(asked in line for line in watched.sim.requests())

    # The clock jumps in the wait behind an answer: it would run into the time limit of a request under way.
    wait_until(lambda: answers() > 0, "answer that is not ready", 30, watched.host)
    time.sleep(0.2)  # of the second that the wait lasts
    begun = answers()
    slow_down(watched)
    wait_until(lambda: answers() > begun, "answer that is not ready", 30, watched.host)
    time.sleep(0.2)
    begun = len(watched.sim.requests())
    assert_stops(watched)
    after = watched.sim.requests()[begun:]
    assert [line.split()[2] for line in after] == ["DELETE"]
    assert no_sessions(watched.sim)
    assert watched.errors() == []


def test_in_the_wait_for_a_resource_that_is_not_ready_at_start_up(reach: Callable[..., Watched]) -> None:
    watched = reach()
    watched.sim.control.call("not-ready", "GET */Managers", "forever")
    wait_until(lambda: watched.counters()["logins"] == 1, "log-in", 30, watched.host)
    assert_stops(watched)
    assert no_sessions(watched.sim)
    assert watched.errors() == []


def test_in_the_middle_of_a_walk(reach: Callable[..., Watched]) -> None:
    watched = reach("--drives", 20, interval=3000)
    watched.wait_baseline()
    watched.sim.control.call("latency", 150)
    begun = watched.walks()
    wait_until(lambda: watched.walks() > begun, "slow walk", 30, watched.host)
    begun = len(watched.sim.requests())
    assert_stops(watched)
    after = [line.split()[2] for line in watched.sim.requests()[begun:]]
    assert after[-1] == "DELETE" and len(after) <= 4, after  # the walk was cut short
    assert no_sessions(watched.sim)
    assert watched.errors() == []


def test_in_a_log_in_that_hangs(reach: Callable[..., Watched]) -> None:
    """The time limit of the log-in, 30 seconds, is 2 of the test's; then it ends without another try."""
    watched = reach(speed=15)
    watched.sim.control.call("hang", "POST */Sessions", "headers", "forever")
    wait_until(lambda: watched.counters()["total"] == 1, "log-in", 30, watched.host)
    assert_stops(watched, 2 + LIMIT, ["<VK0911> [ER] Failed to initialize RaidManager. : retry count=0"])
    assert watched.counters()["total"] == 1


def test_in_an_answer_that_hangs(reach: Callable[..., Watched]) -> None:
    watched = reach(interval=3000, speed=15)
    watched.wait_baseline()
    watched.sim.control.call("hang", "GET */DiskDrives/1", "body", "forever")
    asked = "/DiskDrives/1/ 200/hang-body"
    wait_until(lambda: asked in watched.sim.requests()[-1], "answer that hangs", 30, watched.host)
    assert_stops(watched, 2 + LIMIT, ["<VK0956> [ER] Failed to initialize RaidManager."])
    assert watched.count_line("<VK0950>") == 0


def test_before_the_first_wait_is_reached(watch: Callable[..., Watched]) -> None:
    """A stop right after the start is seen too, once the service can be told apart from its launcher."""
    watched = watch(None, speed=1).start()
    watched.wait_line("Service started.")
    assert watched.stop() == 0
    trace = without(watched.trace(), "Start cyclic serial log saving.")
    assert trace[-1] == "<VK0900> [TR] Service stopped."
    assert [line for line in trace if "Break MonitorLogRoutine" in line] == [
        "<VK0900> [TR] Break MonitorLogRoutine by StopEvent."]


def test_thirty_cycles_leave_nothing_behind(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2)
    watched = watch(sim, speed=20).start().wait_baseline()
    watched.wait_walks(1)
    descriptors = kinds(watched)
    watched.wait_walks(30, 60)
    assert kinds(watched) == descriptors
    wait_until(lambda: watched.host.children() == [], "end of the tools", 10, watched.host)
    counters = watched.counters()
    assert (counters["logins"], counters["open_sessions"], counters["open_connections"]) == (1, 1, 1)
    assert_stops(watched)
    assert no_sessions(sim)


def kinds(watched: Watched) -> List[str]:
    """What the open descriptors lead to, without numbers of pipes and sockets; taken while no tool is run."""
    def stable() -> List[str]:
        return sorted(target.partition(":[")[0] for target in watched.host.descriptors().values())
    # What is open only for a moment (account files, the trace log, pipes of tools) is not there in every look.
    looks = [stable() for _ in range(20) if not time.sleep(0.01)]
    return min(looks, key=len)
