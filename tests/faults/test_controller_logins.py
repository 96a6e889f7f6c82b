"""Log-ins, their renewal and log-outs that go wrong while the controller is watched, and sessions that run out."""

from typing import Any, Callable, Iterator, List, Tuple

import pytest
from troubled import BACK, DRIVE, DRIVE_PATH, FAILED, SERVER, Troubled, troubled

SESSIONS = "/redfish/v1/SessionService/Sessions/"
LOG_IN = f"POST {SESSIONS}"
LOG_OUT = f"DELETE {SESSIONS}*"
MANAGERS = "GET /redfish/v1/Managers"

Verb = Tuple[Any, ...]


@pytest.fixture(scope="module")
def service(start_file_sim: Callable, watch_file: Callable) -> Iterator[Troubled]:
    with troubled(start_file_sim(*SERVER, "--session-limit", 8), watch_file) as found:
        yield found


def refused(status: int) -> str:
    return (f"module: The log-in to the controller failed with HTTP status {status}; "
            "it may be restarting or have no session left.")


def asked(outcome: str) -> str:
    return f"module: {{url}}: POST {SESSIONS}: {outcome}"


NO_TOKEN = "module: The answer to the log-in holds no session token; check that the configured URL is the controller's."
READ_FAILED = f"module: The controller answered {DRIVE_PATH}/ with HTTP status 500."
ACCOUNT = "module: The controller refused the account or its password."

# What is armed, its reason, and whether the controller opens a session of which the service never learns.
LOG_INS: "List[Tuple[str, Verb, str, bool]]" = [
    ("server error", ("status", LOG_IN, 500, 1), refused(500), False),
    ("not there", ("missing", LOG_IN, 1), refused(404), False),
    ("not ready", ("not-ready", LOG_IN, 1), refused(503), False),
    ("forbidden for another reason", ("status", LOG_IN, 403, 1), refused(403), False),
    ("redirected", ("redirect", LOG_IN, SESSIONS, 1), refused(308), False),
    ("no token", ("body", LOG_IN, "{}", 1), NO_TOKEN, False),
    ("no JSON", ("body", LOG_IN, "<html>", 1), NO_TOKEN, False),
    ("no answer", ("hang", LOG_IN, "headers", "forever", 1), asked("The read operation timed out"), True),
    ("half an answer", ("hang", LOG_IN, "body", "forever", 1), asked("The read operation timed out"), True),
    ("byte by byte", ("trickle", LOG_IN, 0.3, 1), asked("The read operation timed out"), True),
    ("closed at once", ("drop", LOG_IN, "before", 1), asked("Remote end closed connection without response"), False),
    ("closed after the headers", ("cut", LOG_IN, 0, 1), asked("IncompleteRead(0 bytes read)"), True),
]


@pytest.mark.parametrize("verb, reason, lost", [row[1:] for row in LOG_INS], ids=[row[0] for row in LOG_INS])
def test_renewal_that_fails_costs_one_baseline(service: Troubled, verb: Verb, reason: str, lost: bool) -> None:
    service.begin()
    service.call(*verb)
    service.call("expire-sessions")
    service.wait_back()
    assert service.said() == [reason, FAILED, BACK]
    assert service.open_sessions() == 1 + lost
    service.call("release")
    service.assert_next_failure_is_reported_once()


@pytest.mark.parametrize("verb", [("status", LOG_IN, 401, 1),
                                  ("status", LOG_IN, 400, 1, '{"error":{"MessageId":"Base.UnauthorizedLoginAttempt"}}')],
                         ids=["401", "400"])
def test_single_refusal_of_the_account_is_not_reported(service: Troubled, verb: Verb) -> None:
    """The log-in of the next cycle would report it, and it succeeds."""
    service.begin()
    service.call(*verb)
    service.call("expire-sessions")
    service.wait_back()
    assert service.said() == [ACCOUNT, BACK]
    service.assert_next_failure_is_reported_once()


@pytest.mark.parametrize("verb, reason", [
    (("status", MANAGERS, 500, 1), "module: The controller answered /redfish/v1/Managers/ with HTTP status 500."),
    (("cut", MANAGERS, 0, 1), "module: {url}: GET /redfish/v1/Managers/: IncompleteRead(0 bytes read)"),
    (("body", MANAGERS, '{"Members":[]}', 1), "reader: no manager"),
    (("body", f"{MANAGERS}/1", '{"Firmware":5}', 1), "reader: JSON Parsing failed - provided NVP (Oem) not found"),
    (("not-ready", MANAGERS, 5), "reader: JSON Parsing failed - provided NVP (Members) not found"),
], ids=["status", "cut", "none", "types", "not ready"])
def test_log_in_whose_version_cannot_be_read_is_logged_out(service: Troubled, verb: Verb, reason: str) -> None:
    service.begin()
    service.call(*verb)
    service.call("status", DRIVE, 500, 1)
    service.wait_back()
    assert service.said() == [READ_FAILED, FAILED, reason, FAILED, BACK]
    assert service.open_sessions() == 1
    service.assert_next_failure_is_reported_once()


@pytest.mark.parametrize("verb, left", [
    (("status", LOG_OUT, 500, 1), 1), (("missing", LOG_OUT, 1), 1), (("drop", LOG_OUT, "before", 1), 0),
    (("hang", LOG_OUT, "headers", "forever", 1), 0), (("wire", LOG_OUT, "\udcff", 1), 0),
], ids=["status", "missing", "drop", "hang", "wire"])
def test_log_out_that_fails_holds_nothing_up(service: Troubled, verb: Verb, left: int) -> None:
    """A session that the controller did not end is left to it; it ends what is not used."""
    service.begin()
    service.call(*verb)
    service.call("status", DRIVE, 500, 1)
    service.wait_back()
    assert service.said() == [READ_FAILED, FAILED, BACK]
    assert service.open_sessions() == 1 + left
    service.call("release")
    service.call("expire-sessions")
    service.assert_next_failure_is_reported_once()


def test_sessions_that_end_in_every_walk_are_renewed_unseen(service: Troubled) -> None:
    service.begin()
    logins = service.watched.counters()["logins"]
    for _ in range(5):
        with service.watched.held():
            service.call("expire-sessions")
    service.assert_next_failure_is_reported_once()
    assert service.said() == []
    assert service.watched.counters()["logins"] == logins + 5
    assert service.open_sessions() == 1


def test_sessions_taken_by_others_until_some_are_free(service: Troubled) -> None:
    """No session is left as long as the others hold theirs; no refusal is taken for a wrong account."""
    service.begin()
    service.call("session-limit", 0)
    service.call("status", DRIVE, 401, 1)  # the service gives its session up for a new one, and gets none
    service.wait_said(FAILED, 4)
    assert service.open_sessions() == 0
    service.call("session-limit", 8)
    service.wait_back()
    said = service.said()
    count = said.count(FAILED)
    assert said == [refused(503), FAILED] * count + [BACK]
    service.call("clear-faults")
    service.assert_next_failure_is_reported_once()


def test_password_that_changes_to_and_fro_unseen(service: Troubled) -> None:
    """Between two cycles nobody asks; the sessions that ended with the change are renewed."""
    service.begin()
    with service.watched.held():
        service.call("account", service.sim.account, "another-secret")
        service.call("account", service.sim.account, service.sim.password)
    service.assert_next_failure_is_reported_once()
    assert service.said() == []
