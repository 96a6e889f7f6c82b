"""Expired and refused sessions: one renewal in a get, and never a session left open on the controller."""

from __future__ import annotations

import pytest
from raw_server import answer, session_answer, with_sessions

SYSTEMS = "/redfish/v1/Systems/"


def logged_in(module, sim):
    assert module.init(sim.url, sim.account, sim.password) == 200


def test_expired_session_is_opened_once_more_and_the_request_sent_again(module, ilo5):
    logged_in(module, ilo5)
    ilo5.control.call("expire-sessions")
    assert isinstance(module.get(SYSTEMS), str)
    counters = ilo5.control.call("counters")
    assert counters["logins"] == 2 and counters["open_sessions"] == 1


def test_expired_session_of_a_changed_account_is_refused(module, ilo5):
    logged_in(module, ilo5)
    ilo5.control.call("account", "other", "another")
    assert module.get(SYSTEMS) == 401


def test_expired_session_that_cannot_be_opened_again_is_another_error(module, ilo5):
    logged_in(module, ilo5)
    ilo5.control.call("expire-sessions")
    ilo5.control.call("session-limit", 0)
    assert module.get(SYSTEMS) == 10001


@pytest.mark.parametrize("status, body, expected", [
    ("401 Unauthorized", {}, 401),
    ("403 Forbidden", {"error": {"code": "Base.1.12.NoValidSession"}}, 10001),
])
def test_refusal_that_outlives_a_new_session_is_not_retried(module, raw_server, status, body, expected):
    server = raw_server(with_sessions(lambda request, peer: peer.send(answer(status, body)) or True))
    assert module.init(server.url, "user", "pass") == 200
    assert module.get(SYSTEMS) == expected
    assert [line.split()[0] for line in server.lines()] == ["POST", "GET", "DELETE", "POST", "GET"]
    assert module.get(SYSTEMS) == expected
    assert [line.split()[0] for line in server.lines()[5:]] == ["GET"]


def test_resource_that_is_refused_for_ever_costs_no_sessions(module, ilo5):
    logged_in(module, ilo5)
    ilo5.control.call("status", "*/Systems", 401)
    for _ in range(10):
        assert module.get(SYSTEMS) == 401
        assert isinstance(module.get("/redfish/v1/Managers/"), str)
    counters = ilo5.control.call("counters")
    assert (counters["logins"], counters["open_sessions"]) == (2, 1)


def test_renewal_that_fails_leaves_no_session_and_is_made_good_by_the_next_get(module, ilo5):
    logged_in(module, ilo5)
    ilo5.control.call("status", "*/Systems", 401)
    ilo5.control.call("status", "POST */Sessions", 503)
    assert module.get(SYSTEMS) == 10001
    assert ilo5.control.call("counters")["open_sessions"] == 0
    ilo5.control.call("clear-faults")
    assert isinstance(module.get(SYSTEMS), str)
    assert ilo5.control.call("counters")["open_sessions"] == 1


def test_old_session_that_does_not_end_in_time_does_not_keep_a_get_from_its_answer(module, raw_server, short_limits):
    tokens = iter(("first", "second"))

    def script(request, peer):
        if request.line.startswith("DELETE"):
            return peer.wait()
        if request.line.startswith("POST"):
            peer.send(session_answer(next(tokens)))
        else:
            fresh = request.headers.get("x-auth-token") == "second"
            peer.send(answer(body={"Id": "1"}) if fresh else answer("401 Unauthorized"))
        return True

    server = raw_server(script)
    assert module.init(server.url, "user", "pass") == 200
    assert module.get(SYSTEMS) == '{"Id":"1"}'
    assert server.requests[2].line == "DELETE /redfish/v1/SessionService/Sessions/user1/"
    assert server.requests[2].headers["x-auth-token"] == "first"


def test_renewing_log_in_goes_over_a_fresh_connection_and_is_never_sent_twice(module, raw_server):
    log_ins = iter((session_answer(), b""))

    def script(request, peer):
        data = next(log_ins) if request.line.startswith("POST") else answer("401 Unauthorized")
        peer.send(data)
        return data != b""

    server = raw_server(script)
    assert module.init(server.url, "user", "pass") == 200
    assert module.get(SYSTEMS) == 10001
    assert [(request.line.split()[0], request.connection) for request in server.requests] \
        == [("POST", 1), ("GET", 1), ("DELETE", 1), ("POST", 2)]


def test_new_session_replaces_the_expired_token(module, raw_server):
    tokens = iter(("first", "second"))

    def script(request, peer):
        if request.line.startswith("POST"):
            peer.send(session_answer(next(tokens)))
        elif request.headers.get("x-auth-token") == "first":
            peer.send(answer("401 Unauthorized"))
        else:
            peer.send(answer(body={"Id": "1"}))
        return True

    server = raw_server(script)
    assert module.init(server.url, "user", "pass") == 200
    assert module.get(SYSTEMS) == '{"Id":"1"}'
    module.close()
    assert server.requests[-1].line.startswith("DELETE") and server.requests[-1].headers["x-auth-token"] == "second"
