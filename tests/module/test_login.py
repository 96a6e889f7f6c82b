"""Logging in over HTTPS, and how each way to fail is judged."""

from __future__ import annotations

import json
import socket
import ssl
import threading
import time

import pytest
from raw_server import answer, with_sessions

import _bayward_wire

UNAUTHORIZED = {"error": {"@Message.ExtendedInfo": [{"MessageId": "iLO.2.34.UnauthorizedLoginAttempt"}]}}
SESSION_LIMIT = {"error": {"@Message.ExtendedInfo": [{"MessageId": "Base.1.18.SessionLimitExceeded"}]}}
SYSTEMS = "/redfish/v1/Systems/"


def open_sessions(sim):
    return sim.control.call("counters")["open_sessions"]


def test_right_account_opens_one_session_and_close_ends_it(module, ilo5):
    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
    assert open_sessions(ilo5) == 1
    assert module.close() is None
    assert open_sessions(ilo5) == 0


def test_wrong_password_is_refused(module, ilo5, caplog):
    assert module.init(ilo5.url, ilo5.account, "not-the-passw0rd") == 401
    assert open_sessions(ilo5) == 0
    assert "not-the-passw0rd" not in caplog.text


def test_init_again_closes_the_earlier_session_first(module, ilo5):
    for _ in range(4):
        assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
        assert open_sessions(ilo5) == 1


def test_init_with_unusable_url_also_closes_the_earlier_session(module, ilo5):
    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
    assert module.init("http://nothing", ilo5.account, ilo5.password) == 10001
    assert open_sessions(ilo5) == 0
    assert module.get(SYSTEMS) == 10001


@pytest.mark.parametrize("account", ["None", ""])
def test_no_account_is_refused_without_contacting_the_controller(module, raw_server, account):
    server = raw_server(with_sessions(lambda request, peer: False))
    assert module.init(server.url, account, "None") == 401
    assert server.connections == 0


@pytest.mark.parametrize("status, body, expected", [
    ("201 Created", {}, 200),
    ("200 OK", {}, 200),
    ("401 Unauthorized", {}, 401),
    ("401 Unauthorized", b"no json", 401),
    ("400 Bad Request", UNAUTHORIZED, 401),
    ("403 Forbidden", UNAUTHORIZED, 401),
    ("400 Bad Request", {}, 10001),
    ("403 Forbidden", SESSION_LIMIT, 10001),
    ("404 Not Found", UNAUTHORIZED, 10001),
    ("500 Internal Server Error", UNAUTHORIZED, 10001),
    ("503 Service Unavailable", SESSION_LIMIT, 10001),
    ("308 Permanent Redirect", {}, 10001),
    ("302 Found", {}, 10001),
])
def test_log_in_answer_gives_code(module, raw_server, status, body, expected):
    server = raw_server(lambda request, peer: peer.send(answer(status, body, "X-Auth-Token: t0ken\r\n")) or True)
    assert module.init(server.url, "user", "pass") == expected
    posts = [request for request in server.requests if request.line.startswith("POST")]
    assert [request.line for request in posts] == ["POST /redfish/v1/SessionService/Sessions/"]
    assert json.loads(posts[0].body) == {"UserName": "user", "Password": "pass"}


@pytest.mark.parametrize("status", ["200 OK", "201 Created"])
def test_log_in_answer_without_token_is_another_error(module, raw_server, status):
    server = raw_server(lambda request, peer: peer.send(answer(status, {})) or True)
    assert module.init(server.url, "user", "pass") == 10001


def test_log_in_that_is_dropped_is_sent_once(module, raw_server):
    server = raw_server(lambda request, peer: False)
    assert module.init(server.url, "user", "pass") == 10001
    assert len(server.requests) == 1


def test_log_in_that_hangs_is_another_error(module, raw_server, short_limits):
    server = raw_server(lambda request, peer: peer.wait())
    started = time.monotonic()
    assert module.init(server.url, "user", "pass") == 10001
    assert time.monotonic() - started < 3


def test_refused_connection_is_another_error(module):
    with socket.create_server(("127.0.0.1", 0)) as listener:
        port = listener.getsockname()[1]
    assert module.init(f"https://127.0.0.1:{port}", "user", "pass") == 10001


def test_unknown_name_is_another_error(module):
    assert module.init("https://no-such-controller.invalid", "user", "pass") == 10001


def test_server_without_tls_is_another_error(module):
    with socket.create_server(("127.0.0.1", 0)) as listener:
        port = listener.getsockname()[1]
        def plain():
            sock, _ = listener.accept()
            with sock:
                sock.recv(100)
                sock.sendall(b"HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\n\r\n")

        thread = threading.Thread(target=plain)
        thread.start()
        assert module.init(f"https://127.0.0.1:{port}", "user", "pass") == 10001
        thread.join()


def test_handshake_that_hangs_ends_with_the_connect_limit(module, short_limits):
    with socket.create_server(("127.0.0.1", 0)) as listener:  # accepts in its backlog, never answers
        started = time.monotonic()
        assert module.init(f"https://127.0.0.1:{listener.getsockname()[1]}", "user", "pass") == 10001
        assert 0.4 < time.monotonic() - started < 2


def test_tls_older_than_1_2_is_not_offered():
    context = _bayward_wire.make_tls_context()
    assert context.minimum_version == ssl.TLSVersion.TLSv1_2


def test_full_session_table_is_another_error(module, ilo5):
    ilo5.control.call("session-limit", 0)
    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 10001


def test_unavailable_session_service_is_another_error(module, ilo5):
    ilo5.control.call("status", "POST */Sessions", 503)
    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 10001


def test_virtual_nic_session_is_a_session(module, ilo6):
    assert module.get_vnic(ilo6.url, ilo6.account, ilo6.password) == 200
    assert open_sessions(ilo6) == 1
    assert module.get_vnic(ilo6.url, ilo6.account, "wrong") == 401
    assert open_sessions(ilo6) == 0
    assert module.get_vnic("https://127.0.0.1:1", "user", "pass") == 10001


def test_service_root_and_generation_use_the_open_session(module, ilo6):
    assert module.get_vnic(ilo6.url, ilo6.account, ilo6.password) == 200
    root = json.loads(module.get_v1(ilo6.url, ilo6.account, ilo6.password))
    assert root["Oem"]["Hpe"]["Moniker"]["PRODGEN"] == "iLO 6"
    assert module.get_prodgen(ilo6.url, ilo6.account, ilo6.password) == "iLO 6"
    assert ilo6.control.call("counters")["logins"] == 1


def test_service_root_of_another_host_is_logged_in_to(module, ilo5, ilo6):
    assert module.init(ilo6.url, ilo6.account, ilo6.password) == 200
    assert module.get_prodgen(ilo5.url, ilo5.account, ilo5.password) == "iLO 5"
    assert open_sessions(ilo6) == 0 and open_sessions(ilo5) == 1


def test_service_root_without_session_or_right_account_fails(module, ilo6):
    assert module.get_v1(ilo6.url, ilo6.account, "wrong") == 401
    assert module.get_prodgen(ilo6.url, "None", "None") == 401
    assert module.get_v1("https://127.0.0.1:1", "user", "pass") == 10001


@pytest.mark.parametrize("root", [{}, {"Oem": None}, {"Oem": {"Hpe": []}},
                                  {"Oem": {"Hpe": {"Moniker": {"PRODGEN": 6}}}}])
def test_root_without_generation_is_another_error(module, raw_server, root):
    server = raw_server(with_sessions(lambda request, peer: peer.send(answer(body=root)) or True))
    assert module.get_prodgen(server.url, "user", "pass") == 10001


@pytest.mark.parametrize("call", [
    lambda module: module.init(None, None, None),
    lambda module: module.init("https://127.0.0.1:1"),
    lambda module: module.get(None),
    lambda module: module.get_v1(1, 2, 3),
    lambda module: module.get_prodgen(),
    lambda module: module.is_ip_assigned(None),
    lambda module: module.close("too", "many"),
])
def test_wrong_arguments_are_an_error_code_not_an_exception(module, call):
    assert call(module) == 10001
