"""Ending a session: which path is deleted, in what time, and that nothing stays behind."""

from __future__ import annotations

import os
import time

import pytest
from raw_server import answer, session_answer, with_sessions

import _bayward_session


def test_close_deletes_the_path_of_the_location_with_the_token(module, raw_server):
    server = raw_server(with_sessions(lambda request, peer: False))
    assert module.init(server.url, "user", "pass") == 200
    module.close()
    assert server.lines()[-1] == "DELETE /redfish/v1/SessionService/Sessions/user1/"
    assert server.requests[-1].headers["x-auth-token"] == "t0ken"


def test_session_without_location_is_deleted_by_the_id_in_its_body(module, raw_server):
    def script(request, peer):
        body = {"@odata.id": "/redfish/v1/SessionService/Sessions/7"}
        log_in = answer("201 Created", body, "X-Auth-Token: t0ken\r\n")
        peer.send(log_in if request.line.startswith("POST") else answer())
        return True

    server = raw_server(script)
    assert module.init(server.url, "user", "pass") == 200
    module.close()
    assert server.lines()[-1] == "DELETE /redfish/v1/SessionService/Sessions/7"


@pytest.mark.parametrize("location", [
    "/redfish/v1/Systems/1", "https://[broken/", "/redfish/v1/SessionService/Sessions/%2e%2e/",
    "/redfish/v1/SessionService/Sessions/"])
def test_session_with_an_unusable_location_is_deleted_by_the_id_in_its_body(module, raw_server, location):
    body = {"@odata.id": "/redfish/v1/SessionService/Sessions/7/"}
    log_in = answer("201 Created", body, f"X-Auth-Token: t0ken\r\nLocation: {location}\r\n")
    server = raw_server(lambda request, peer: peer.send(log_in) or True)
    assert module.init(server.url, "user", "pass") == 200
    module.close()
    assert server.lines()[1:] == ["DELETE /redfish/v1/SessionService/Sessions/7/"]


@pytest.mark.parametrize("body", [
    b"", b"[]", b'{"@odata.id":7}', b'{"a":' * 5000, b'{"@odata.id":"/redfish/v1/Systems/1"}',
    b'{"@odata.id":"/redfish/v1/SessionService/Sessions/%2E%2e"}', b'{"a":[' + b"{}," * 100_000 + b"{}]}",
    b'{"@odata.id":"/redfish/v1/SessionService/Sessions/a%2f..%2fb"}',
    b'{"@odata.id":"/redfish/v1/SessionService/Sessions/1?x"}',
    b'{"@odata.id":"/redfish/v1/SessionService/Sessions/1/Actions"}',
])
def test_session_that_is_named_nowhere_is_open_all_the_same(module, raw_server, body):
    server = raw_server(lambda request, peer: peer.send(answer("201 Created", body, "X-Auth-Token: t0ken\r\n")) or True)
    assert module.init(server.url, "user", "pass") == 200
    assert module.close() is None
    assert len(server.requests) == 1


@pytest.mark.parametrize("location", ["/redfish/v1/Systems/1", "/redfish/v1/SessionService/Sessions/",
                                      "/redfish/v1/SessionService/Sessions/../../Systems/1",
                                      "/redfish/v1/SessionService/Sessions/%2e%2e",
                                      "/redfish/v1/SessionService/Sessions/%2E", "https://[broken/"])
def test_nothing_but_a_session_is_ever_deleted(module, raw_server, location):
    server = raw_server(lambda request, peer: peer.send(
        answer("201 Created", {}, f"X-Auth-Token: t0ken\r\nLocation: {location}\r\n")) or True)
    assert module.init(server.url, "user", "pass") == 200
    module.close()
    assert len(server.requests) == 1


def test_close_on_a_hanging_controller_ends_with_its_limit(module, raw_server, short_limits):
    def script(request, peer):
        if request.line.startswith("POST"):
            peer.send(session_answer())
            return True
        return peer.wait()

    server = raw_server(script)
    assert module.init(server.url, "user", "pass") == 200
    started = time.monotonic()
    assert module.close() is None
    assert time.monotonic() - started < 2
    assert "DELETE" in server.lines()[-1]


def test_close_ends_within_five_seconds():
    assert _bayward_session.LOGOUT_SECONDS <= 5


def test_close_after_the_controller_went_away_returns(module, raw_server):
    server = raw_server(with_sessions(lambda request, peer: False))
    assert module.init(server.url, "user", "pass") == 200
    server.stop()
    assert module.close() is None


def test_close_without_a_session_and_twice_returns(module):
    assert module.close() is None
    assert module.close() is None


def test_close_forgets_account_password_and_token(module, ilo5):
    module.init(ilo5.url, ilo5.account, ilo5.password)
    session = module._open.session
    module.close()
    assert ilo5.password not in repr(vars(session)) and ilo5.account not in repr(vars(session))
    assert module._open is None and session._token == ""


def test_no_socket_stays_open_after_close_or_a_failed_log_in(module, ilo5):
    before = len(os.listdir("/proc/self/fd"))
    for password in (ilo5.password, "wrong", ilo5.password):
        module.init(ilo5.url, ilo5.account, password)
        module.close()
    assert len(os.listdir("/proc/self/fd")) == before
