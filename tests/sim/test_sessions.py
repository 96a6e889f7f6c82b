"""Log-in, session limit, expiry and log-out."""

import time
from urllib.parse import urlsplit

import pytest
from sim_rest import SESSIONS


def test_service_root_is_readable_without_login(sim, connect):
    root = connect(sim, login=False).get("/redfish/v1/")
    assert root.status == 200
    assert root.json["Oem"]["Hpe"]["Moniker"]["PRODGEN"] == "iLO 5"
    assert root.json["ProtocolFeaturesSupported"]["ExpandQuery"]["MaxLevels"] == 1


@pytest.mark.parametrize("path", ["/redfish/v1/Systems/", "/redfish/v1/nowhere", SESSIONS])
def test_everything_else_needs_a_session(sim, connect, path):
    reply = connect(sim, login=False).get(path)
    assert reply.status == 401
    assert reply.message_id.endswith(".NoValidSession")


def test_login_answers_token_and_absolute_location(sim, connect):
    rest = connect(sim, login=False)
    reply = rest.login()
    assert reply.status == 201
    assert len(reply.headers["X-Auth-Token"]) == 32
    assert reply.headers["Location"].startswith(f"{sim.url}{SESSIONS}{sim.account}")
    assert rest.get("/redfish/v1/Systems/").status == 200


@pytest.mark.parametrize("account, password", [("simadmin", "wrong"), ("nobody", "simpassword")])
def test_wrong_login_is_refused_and_counted(sim, connect, account, password):
    reply = connect(sim, login=False).login(account, password)
    assert reply.status == 401
    assert reply.message_id.endswith(".UnauthorizedLoginAttempt")
    assert "X-Auth-Token" not in reply.headers
    counters = sim.control.call("counters")
    assert (counters["logins"], counters["refused_logins"], counters["open_sessions"]) == (0, 1, 0)


@pytest.mark.parametrize("body", ["{", "[]", '{"UserName":"simadmin"}', b"\xff"])
def test_malformed_login_is_a_bad_request(sim, connect, body):
    assert connect(sim, login=False).ask("POST", SESSIONS, body).status == 400


def test_table_full_answers_503_until_a_session_ends(start, connect):
    sim = start("--session-limit", "2")
    first, _ = connect(sim), connect(sim)
    third = connect(sim, login=False)
    reply = third.login()
    assert reply.status == 503
    assert reply.message_id.endswith(".SessionLimitExceeded")
    mine = first.links(SESSIONS)[0]
    assert first.ask("DELETE", mine).status == 200
    assert third.login().status == 201


def test_unused_session_expires(start, connect):
    sim = start("--session-timeout", "0.8")
    rest = connect(sim)
    for _ in range(3):
        time.sleep(0.3)
        assert rest.get("/redfish/v1/Systems/").status == 200, "each use prolongs the session"
    time.sleep(1.0)
    assert rest.get("/redfish/v1/Systems/").message_id.endswith(".NoValidSession")
    assert sim.control.call("counters")["open_sessions"] == 0


def test_logout_ends_the_session(sim, connect):
    rest = connect(sim, login=False)
    location = urlsplit(rest.login().headers["Location"]).path
    assert rest.get(location).json["UserName"] == sim.account
    assert rest.ask("DELETE", location).status == 200
    assert rest.get("/redfish/v1/Systems/").status == 401
    assert rest.login().status == 201
    assert rest.ask("DELETE", location).status == 404


def test_account_change_ends_sessions_and_refuses_the_old_password(sim, rest):
    sim.control.call("account", "other", "secret2")
    assert rest.get("/redfish/v1/Systems/").status == 401
    assert rest.login().status == 401
    assert rest.login("other", "secret2").status == 201


def test_expire_sessions_keeps_the_account(sim, rest):
    assert sim.control.call("expire-sessions") == 1
    assert rest.get("/redfish/v1/Systems/").status == 401
    assert rest.login().status == 201


def test_session_limit_verb_holds_at_once(sim, rest):
    sim.control.call("session-limit", 1)
    assert rest.login().status == 503


def test_session_service_gives_its_timeout_in_minutes(sim, rest):
    assert rest.get("/redfish/v1/SessionService/").json["SessionTimeout"] == 30
