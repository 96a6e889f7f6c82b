"""Controllers that misbehave while they are watched: what is written, and that the next real failure is reported once."""

import re
from typing import Any, Callable, List, Tuple

import pytest
from expansion import expansion
from watched import LOGIN_FAILED, ControllerProcess, Disk, Watched, smart_disk, wait_until, without

FAILED = "<VK0956> [ER] Failed to initialize RaidManager."
BACK = "<VK0950> [TR] Initializing RaidManager succeed."
REFUSED = ("<VK0954> [ER] Login to iLO was failed. Please input an account of iLO using iLO account registration tool.")
DRIVE = "GET */DiskDrives/1"
FORMS = expansion().forms  # in which a collection is asked for before its read fails


@pytest.fixture(scope="module")
def sim(start_file_sim: Callable) -> ControllerProcess:
    return start_file_sim("--drives", 4, "--ssd", 0)


@pytest.fixture(scope="module")
def watched(sim: ControllerProcess, watch_file: Callable[..., Watched]) -> Watched:
    return watch_file(sim, speed=15).start().wait_baseline()


def lines_after(watched: Watched, before: int) -> List[str]:
    return without(watched.own_trace()[before:], "[EV]")


def assert_fails_once(watched: Watched, number: int) -> None:
    """A drive that fails now is reported exactly once; then it is healed."""
    disk = smart_disk(number)
    watched.sim.control.call("fail-drive", 1, number)
    watched.expect(disk.failed)
    watched.sim.control.call("heal-drive", 1, number)
    watched.expect()


@pytest.mark.parametrize("fault", [
    ("hang", DRIVE, "headers", "forever", 1),
    ("hang", DRIVE, "body", "forever", 1),
    ("body", DRIVE, '{"@odata.id":"/redfish/v1/Systems/1", "Model":', 1),
    ("body", DRIVE, "[1, 2, 3]", 1),
    ("body", DRIVE, "<html>\u0000\u00ff", 1),
    ("body", DRIVE, "", 1),
    ("body", DRIVE, "{}", 1),
    ("body", "GET */LogicalDrives", '{"Members": null}', FORMS),
    ("body", "GET */LogicalDrives", '{"Members": [{"@odata.id": "https://192.0.2.9/redfish/v1"}]}', 1),
    ("wire", DRIVE, "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n{}", 1),
    ("wire", DRIVE, "220 smtp.example.net ESMTP\r\n", 1),
    ("status", DRIVE, 500, 1),
    ("status", "GET */LogicalDrives", 503, FORMS),
    ("status", "GET /redfish/v1/Systems", 403, 1),
    ("drop", DRIVE, "during", 1),
    ("cut", DRIVE, 40, 1),
], ids=lambda fault: "-".join(str(word) for word in fault if word not in (1, 2))[:40].replace("\x00", ""))
def test_failed_read_costs_one_baseline(sim: ControllerProcess, watched: Watched, fault: Tuple[Any, ...]) -> None:
    begun = len(watched.own_trace())
    sim.control.call(*fault)
    wait_until(lambda: BACK in lines_after(watched, begun), "fresh log-in", 30, watched.host)
    watched.wait_walks(1)
    assert lines_after(watched, begun) == [FAILED, BACK]
    sim.control.call("clear-faults")
    assert_fails_once(watched, 2)
    assert lines_after(watched, begun) == [FAILED, BACK]
    assert watched.counters()["open_sessions"] <= 2  # one that could not be ended ends by itself


@pytest.mark.parametrize("verb", [("expire-sessions",), ("close-connections",), ("drop", DRIVE, "before", 1),
                                  ("not-ready", DRIVE, 2), ("missing", "GET */LogicalDrives/1/DataDrives", 1)],
                         ids=lambda verb: verb[0])
def test_trouble_that_the_log_in_survives_is_not_seen(sim: ControllerProcess, watched: Watched,
                                                      verb: Tuple[Any, ...]) -> None:
    """A drive that fails in the middle of it is reported once when the walk gets through."""
    begun = len(watched.own_trace())
    logins = watched.counters()["logins"]
    with watched.held():
        sim.control.call("fail-drive", 1, 3)
        sim.control.call(*verb)
    watched.expect(smart_disk(3).failed)
    sim.control.call("heal-drive", 1, 3)
    watched.expect()
    assert lines_after(watched, begun) == []
    assert watched.counters()["logins"] == logins + (verb[0] == "expire-sessions")
    assert_fails_once(watched, 3)


def test_session_limit_is_reached_after_an_expiry(sim: ControllerProcess, watched: Watched) -> None:
    """Log-ins that the full controller refuses are no credential errors."""
    begun = len(watched.own_trace())
    sim.control.call("session-limit", 0)
    sim.control.call("expire-sessions")
    wait_until(lambda: lines_after(watched, begun).count(FAILED) >= 3, "failed log-ins", 30, watched.host)
    sim.control.call("session-limit", 16)
    wait_until(lambda: BACK in lines_after(watched, begun), "log-in", 30, watched.host)
    watched.wait_walks(1)
    found = lines_after(watched, begun)
    assert found == [FAILED] * (len(found) - 1) + [BACK]
    assert_fails_once(watched, 1)


def test_drive_that_fails_in_a_failed_read_belongs_to_the_new_baseline(sim: ControllerProcess,
                                                                       watched: Watched) -> None:
    begun = len(watched.own_trace())
    with watched.held():
        sim.control.call("status", "GET */SmartStorage/ArrayControllers", 500, FORMS)
        sim.control.call("fail-drive", 1, 4)
    wait_until(lambda: BACK in lines_after(watched, begun), "fresh log-in", 30, watched.host)
    watched.expect()
    sim.control.call("heal-drive", 1, 4)
    watched.expect()
    assert_fails_once(watched, 4)


def test_controller_that_goes_away_and_comes_back(start_sim: Callable, watch: Callable[..., Watched],
                                                  tmp_path_factory: pytest.TempPathFactory) -> None:
    folder = tmp_path_factory.mktemp("sim")
    first = start_sim("--drives", 2, "--ssd", 0, folder=folder)
    watched = watch(first, speed=15).start().wait_baseline()
    begun = len(watched.own_trace())
    first.stop()
    wait_until(lambda: lines_after(watched, begun).count(FAILED) >= 3, "failed log-ins", 30, watched.host)
    start_sim("--drives", 2, "--ssd", 0, folder=folder, listen=f"127.0.0.1:{first.port}")
    wait_until(lambda: BACK in lines_after(watched, begun), "log-in", 30, watched.host)
    watched.wait_walks(1)
    assert_fails_once(watched, 1)
    found = lines_after(watched, begun)
    assert found == [FAILED] * (len(found) - 1) + [BACK]


def test_password_that_changes_on_the_controller(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2, "--ssd", 0)
    watched = watch(sim, speed=15, clock=True).start().wait_baseline()
    begun = len(watched.own_trace())

    def own() -> List[str]:
        return watched.own_trace()[begun:]

    sim.control.call("account", "simadmin", "second-secret")
    watched.wait_line(REFUSED)
    # The walk that is refused counts silently, the log-in of the next cycle reports: two refusals in all.
    assert watched.counters()["refused_logins"] == 2
    watched.expect(LOGIN_FAILED, walks=0)
    assert own() == [LOGIN_FAILED.line, REFUSED]

    # An hour later one more try, without a second event.
    watched.clock.set(3700, 15)
    watched.wait_line(REFUSED, count=2)
    watched.expect(walks=0)
    assert watched.counters()["refused_logins"] == 3
    assert own() == [LOGIN_FAILED.line, REFUSED, REFUSED]

    # A wrong one is registered: its first failure is silent, the next cycle's is not, the event stays latched.
    watched.register("simadmin", "third-secret")
    watched.wait_line(REFUSED, count=3)
    assert watched.counters()["refused_logins"] == 5
    watched.expect(walks=0)

    watched.register("simadmin", "second-secret")
    watched.wait_line(BACK)
    watched.wait_walks(1)
    assert own() == [LOGIN_FAILED.line, REFUSED, REFUSED, REFUSED, BACK]
    assert_fails_once(watched, 2)

    # A new outage is reported anew.
    sim.control.call("account", "simadmin", "fourth-secret")
    watched.wait_line(REFUSED, count=4)
    watched.expect(LOGIN_FAILED, walks=0)
