"""Reads that go wrong at every place of a walk and in every way that a controller can answer or fail to."""

import json
import re
from typing import Any, Callable, Iterator, List, Sequence, Tuple

import pytest
from troubled import ARRAY, BACK, DRIVE, DRIVE_PATH, FAILED, SERVER, Troubled, troubled
from watched import Watched

MEMORY_SLACK_KIB = 3072  # of the allocators; the storm below sends more than 5 MB

Verb = Tuple[Any, ...]

HTTP_OK = "HTTP/1.1 200 OK\r\n"


@pytest.fixture(scope="module")
def service(start_file_sim: Callable, watch_file: Callable) -> Iterator[Troubled]:
    with troubled(start_file_sim(*SERVER, "--mr", 1, "--mr-drives", 2), watch_file) as found:
        yield found


def told(status: int, path: str = f"{DRIVE_PATH}/") -> str:
    return f"module: The controller answered {path} with HTTP status {status}."


def asked(outcome: str) -> str:
    return f"module: {{url}}: GET {DRIVE_PATH}/{outcome}"


# What is armed, and what is said before the failed cycle and the log-in after it.
READS: "List[Tuple[str, Sequence[Verb], List[str]]]" = [
    ("bad request", [("status", DRIVE, 400, 1)], [told(400)]),
    ("not there", [("status", DRIVE, 404, 1, "<html>nginx</html>")], [told(404)]),
    ("not modified", [("status", DRIVE, 304, 1)], [told(304)]),
    ("bad gateway", [("status", DRIVE, 502, 1, "\udcff")], [told(502)]),
    ("no content", [("status", DRIVE, 204, 1)],
     [f"module: GET {DRIVE_PATH}/: An answer of the controller is not JSON."]),
    ("redirected to itself", [("redirect", DRIVE, f"{DRIVE_PATH}/", 4)], [asked(" is redirected without end")]),
    ("redirected to and fro", [("redirect", DRIVE, "/there/", 2), ("redirect", "GET /there", f"{DRIVE_PATH}/", 2)],
     [asked(" is redirected without end")]),
    ("redirected elsewhere", [("redirect", DRIVE, "https://192.0.2.9/", 1)],
     [asked(" is redirected to another host (https://192.0.2.9/)")]),
    ("redirected to plain HTTP", [("redirect", DRIVE, "http://127.0.0.1/", 1, 302)],
     [asked(" is redirected to another host (http://127.0.0.1/)")]),
    ("redirected nowhere", [("status", DRIVE, 307, 1)], [asked(" is redirected to another host ()")]),
    # Every byte comes in time, the answer does not.
    ("byte by byte", [("trickle", DRIVE, 0.3, 1)], [asked(": The read operation timed out")]),
    ("header without end", [("wire", DRIVE, f"{HTTP_OK}X: {'y' * 70000}", 1)],
     [asked(": got more than 65536 bytes when reading header line")]),
    ("headers without number", [("wire", DRIVE, HTTP_OK + "X: y\r\n" * 200, 1)], [asked(": got more than 100 headers")]),
    ("dropped after the headers", [("cut", DRIVE, 0, 1)], [asked(": IncompleteRead(0 bytes read)")]),
    ("body without end", [("wire", DRIVE, f"{HTTP_OK}\r\n{'x' * 1100000}", 1)],
     ["module: An answer of the controller is larger than 1048576 bytes."]),
    # It is no refused account: the next log-in succeeds, and nothing but that is said.
    ("refused to two sessions", [("status", DRIVE, 401, 2)],
     [f"module: The controller refused GET {DRIVE_PATH}/ although the log-in succeeded; check the account's privileges."]),
]


@pytest.mark.parametrize("verbs, reasons", [row[1:] for row in READS], ids=[row[0] for row in READS])
def test_read_that_fails_costs_one_baseline(service: Troubled, verbs: Sequence[Verb], reasons: List[str]) -> None:
    service.begin()
    for verb in verbs:
        service.call(*verb)
    service.wait_back()
    refused = "refused GET" in reasons[0]
    expected = [*reasons, *([] if refused else [FAILED]), BACK]
    assert service.said() == expected
    assert service.call("faults") == []
    assert service.open_sessions() == 1
    service.assert_next_failure_is_reported_once()
    assert service.said() == expected


# As they are asked for: links of a storage device have no slash at their end.
STEPS = ["/redfish/v1/Systems/", "/redfish/v1/Systems/1/Storage/", "/redfish/v1/Systems/1/Storage/DE00A000/",
         "/redfish/v1/Systems/1/Storage/DE00A000/Controllers", "/redfish/v1/Systems/1/Storage/DE00A000/Controllers/0",
         "/redfish/v1/Systems/1/Storage/DE00A000/Volumes", "/redfish/v1/Systems/1/Storage/DE00A000/Volumes/239",
         "/redfish/v1/Chassis/DE00A000/Drives/0", "/redfish/v1/Systems/1/SmartStorage/ArrayControllers/", f"{ARRAY}/",
         f"{ARRAY}/LogicalDrives/", f"{ARRAY}/LogicalDrives/1/", f"{ARRAY}/LogicalDrives/1/DataDrives/",
         f"{ARRAY}/DiskDrives/", f"{ARRAY}/DiskDrives/3/"]

# Those that are asked for with their members in place, and when that fails, without.
ASKED_TWICE = re.compile(r".*/(Storage|Controllers|ArrayControllers|Volumes|LogicalDrives|DiskDrives)/?")


def test_every_step_of_a_walk_may_fail(service: Troubled) -> None:
    """One after the other, each in a cycle of its own."""
    for path in STEPS:
        service.begin()
        service.call("status", f"GET {path}", 500, 2 if ASKED_TWICE.fullmatch(path) else 1)
        service.wait_said(BACK)
        assert service.said() == [told(500, path), FAILED, BACK]
    assert service.open_sessions() == 1
    service.wait_walks()
    service.assert_next_failure_is_reported_once()


def test_whatever_survives_is_not_seen(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """Answers that come slowly, redirects that lead somewhere, and connections closed after every answer."""
    # Slower than elsewhere: here a handshake that takes too long would be seen, and there are dozens.
    service = Troubled(watch(start_sim(*SERVER), speed=4).start().wait_baseline())
    service.begin()
    opened = service.watched.counters()["connections"]
    service.call("redirect", f"GET {ARRAY}/LogicalDrives/1", "/moved/", "forever")
    service.call("body", "GET /moved", json.dumps(service.call("get", f"{ARRAY}/LogicalDrives/1")), "forever")
    service.call("trickle", DRIVE, 0.002, 1)
    service.call("close", "*", "forever")
    service.wait_walks()
    service.assert_next_failure_is_reported_once()
    with service.watched.held():
        service.call("clear-faults")
    assert service.watched.counters()["connections"] > opened + 20
    assert service.said() == []
    assert service.watched.counters()["logins"] == 1


def test_fault_that_stays_costs_no_sessions(service: Troubled) -> None:
    """Every cycle fails and logs in and out again; it says so each time, and stops doing so when all is well."""
    service.begin()
    logins = service.watched.counters()["logins"]
    service.call("status", DRIVE, 500, "forever")
    service.wait_said(FAILED, 4)
    service.call("clear-faults")
    service.wait_walks()
    said = service.said()
    cycles = said.count(FAILED)
    assert said == [told(500), FAILED, BACK] * cycles
    assert service.watched.counters()["logins"] == logins + cycles
    assert service.open_sessions() == 1
    service.assert_next_failure_is_reported_once()


def test_resource_that_stays_refused_is_no_outage_of_the_account(service: Troubled) -> None:
    """A log-in succeeds in every cycle, so neither the event nor the pause of an hour is due."""
    service.begin()
    service.call("status", DRIVE, 401, "forever")
    service.wait_said(BACK, 4)
    service.call("clear-faults")
    service.wait_walks()
    assert set(service.said()) == {READS[-1][2][0], BACK}
    assert service.open_sessions() == 1
    service.assert_next_failure_is_reported_once()


def test_storm_leaves_neither_memory_nor_descriptors(service: Troubled) -> None:
    """Each fault also loads the helper module anew."""
    faults = [("wire", DRIVE, f"{HTTP_OK}\r\n{'x' * 1100000}", 1), ("wire", DRIVE, f"{HTTP_OK}X: {'y' * 70000}", 1),
              ("body", DRIVE, f'{{"x":[{"1," * 100000}1]}}', 1)]
    host = service.watched.host

    def endure(times: int) -> None:
        for verb in faults * times:
            service.begin()
            service.call(*verb)
            service.wait_said(BACK)
        service.wait_walks()

    endure(2)
    memory, descriptors = host.rss_kib(), len(host.descriptors())
    endure(4)
    assert host.rss_kib() <= memory + MEMORY_SLACK_KIB
    assert len(host.descriptors()) <= descriptors
    assert host.children() == []
    assert service.open_sessions() == 1
    service.assert_next_failure_is_reported_once()
