"""Every way to spoil an answer, seen by a real TLS client."""

import http.client
import socket
import ssl
import threading
import time

import pytest
from sim_rest import ARRAY, SYSTEM, Rest
from simcontroller.errors import UseError

ONCE = 1


def test_status_for_a_number_of_times(sim, rest):
    sim.control.call("status", SYSTEM, 500, 2)
    assert [rest.get(SYSTEM).status for _ in range(3)] == [500, 500, 200]


def test_status_with_a_body_until_cleared(sim, rest):
    sim.control.call("status", "*/Systems/*", 418, "forever", "short and stout")
    for _ in range(3):
        reply = rest.get(SYSTEM)
        assert (reply.status, reply.body) == (418, b"short and stout")
    assert rest.get("/redfish/v1/Systems/").status == 200
    assert sim.control.call("clear-faults") == 1
    assert rest.get(SYSTEM).status == 200


def test_status_without_body(sim, rest):
    sim.control.call("status", SYSTEM, 204, ONCE)
    reply = rest.get(SYSTEM)
    assert (reply.status, reply.body) == (204, b"")
    assert rest.get(SYSTEM).status == 200, "the connection stays in step"


def test_not_ready_and_missing_bodies(sim, rest):
    sim.control.call("missing", SYSTEM, ONCE)
    sim.control.call("not-ready", SYSTEM, ONCE)
    replies = [rest.get(SYSTEM) for _ in range(3)]
    assert [reply.status for reply in replies] == [503, 404, 200], "the fault armed last comes first"
    assert replies[0].message_id == "iLO.2.30.ResourceNotReadyRetry"
    assert replies[1].message_id.endswith(".ResourceMissingAtURI")


def test_answer_faults_wait_for_a_session(sim, rest):
    sim.control.call("not-ready", SYSTEM, ONCE)
    sim.control.call("expire-sessions")
    assert rest.get(SYSTEM).status == 401
    assert rest.login().status == 201
    assert rest.get(SYSTEM).status == 503


def test_fault_for_one_method_only(sim, rest):
    sim.control.call("status", "POST */Sessions", 503)
    assert rest.get("/redfish/v1/SessionService/Sessions/").status == 200
    assert rest.login().status == 503


def test_fault_for_a_query_only(sim, rest):
    sim.control.call("status", "*DiskDrives/[?]$expand=.", 400)
    assert rest.get(ARRAY + "DiskDrives/?$expand=.").status == 400
    assert rest.get(ARRAY + "DiskDrives/").status == 200


def test_garbage_body(sim, rest):
    sim.control.call("body", SYSTEM, "<html>not json", ONCE)
    reply = rest.get(SYSTEM)
    assert (reply.status, reply.body) == (200, b"<html>not json")


def test_bytes_that_are_no_text(sim, rest):
    sim.control.call("body", SYSTEM, "\udcff\udcfe", ONCE)
    assert rest.get(SYSTEM).body == b"\xff\xfe"


def test_garbage_in_place_of_http(sim, rest):
    sim.control.call("wire", SYSTEM, "this is no HTTP\r\n", ONCE)
    with pytest.raises(http.client.BadStatusLine):
        rest.get(SYSTEM)


def test_drop_before_the_answer(sim, rest):
    sim.control.call("drop", SYSTEM, "before", ONCE)
    with pytest.raises((ConnectionError, ssl.SSLEOFError)):
        rest.get(SYSTEM)
    rest.close()
    assert rest.get(SYSTEM).status == 200


@pytest.mark.parametrize("framing", ["chunked", "length"])
def test_drop_during_the_answer_and_cut(start, connect, framing):
    sim = start("--framing", framing)
    rest = connect(sim)
    whole = rest.get(SYSTEM).body
    for command, length in ((("drop", SYSTEM, "during", 1), len(whole) // 2), (("cut", SYSTEM, 7, 1), 7)):
        sim.control.call(*command)
        with pytest.raises((http.client.IncompleteRead, ssl.SSLEOFError)) as error:
            rest.get(SYSTEM)
        if isinstance(error.value, http.client.IncompleteRead) and framing == "length":
            assert error.value.partial == whole[:length]
        rest.close()
    assert rest.get(SYSTEM).body == whole


@pytest.mark.parametrize("code", [(), (302,)])
def test_redirect(sim, rest, code):
    sim.control.call("redirect", SYSTEM, "https://192.0.2.9/elsewhere", ONCE, *code)
    reply = rest.get(SYSTEM)
    assert (reply.status, reply.headers["Location"], reply.body) == (code[0] if code else 308,
                                                                     "https://192.0.2.9/elsewhere", b"")
    assert rest.get(SYSTEM).status == 200


@pytest.mark.parametrize("location", ["/a\r\nX: y", "/\u00e9"])
def test_redirect_to_what_is_no_header_is_refused(sim, location):
    with pytest.raises(UseError, match="LOCATION"):
        sim.control.call("redirect", SYSTEM, location)


def test_trickle_sends_the_whole_answer_byte_by_byte(sim, rest):
    whole = rest.get(SYSTEM).body
    sim.control.call("trickle", SYSTEM, 0.0002, ONCE)
    began = time.monotonic()
    assert rest.get(SYSTEM).body == whole
    assert time.monotonic() - began >= 0.0002 * len(whole)


def test_trickle_until_released(sim, rest):
    sim.control.call("trickle", SYSTEM, 2)
    threading.Timer(0.3, sim.control.call, ("release",)).start()
    began = time.monotonic()
    assert rest.get(SYSTEM).json["Id"] == "1"
    assert 0.25 <= time.monotonic() - began < 2


def test_close_after_a_whole_answer(sim, rest):
    sim.control.call("close", SYSTEM, ONCE)
    reply = rest.get(SYSTEM)
    assert reply.json["Id"] == "1"
    assert "Connection" not in reply.headers
    with pytest.raises((ConnectionError, ssl.SSLError)):
        rest.get(SYSTEM)
    rest.close()
    assert rest.get(SYSTEM).status == 200


@pytest.mark.parametrize("where", ["headers", "body"])
def test_hang_for_seconds(sim, rest, where):
    sim.control.call("hang", SYSTEM, where, 0.3, ONCE)
    began = time.monotonic()
    assert rest.get(SYSTEM).status == 200
    assert time.monotonic() - began >= 0.3
    assert rest.get(SYSTEM).json["Id"] == "1"


@pytest.mark.parametrize("where", ["headers", "body"])
@pytest.mark.parametrize("end", ["release", "clear-faults"])
def test_hang_until_told(sim, rest, where, end):
    sim.control.call("hang", SYSTEM, where)
    threading.Timer(0.3, sim.control.call, (end,)).start()
    began = time.monotonic()
    assert rest.get(SYSTEM).json["Id"] == "1"
    assert time.monotonic() - began >= 0.25


def test_hang_holds_up_nobody_else(sim, rest, connect):
    sim.control.call("hang", ARRAY.rstrip("/"), "headers")
    impatient = connect(sim, timeout=1.0)
    with pytest.raises(socket.timeout):
        impatient.get(ARRAY)
    assert rest.get(SYSTEM).status == 200


def test_silent_client_holds_up_nobody(sim, rest):
    with socket.create_connection(("127.0.0.1", sim.port)):
        assert rest.get(SYSTEM).status == 200


def test_latency(sim, rest):
    sim.control.call("latency", 200)
    began = time.monotonic()
    rest.get(SYSTEM)
    assert time.monotonic() - began >= 0.2


def test_close_connections_cuts_the_kept_alive_one(sim, rest):
    assert sim.control.call("counters")["open_connections"] == 1
    assert sim.control.call("close-connections") == 1
    with pytest.raises((ConnectionError, ssl.SSLError)):
        rest.get(SYSTEM)
    rest.close()
    assert rest.get(SYSTEM).status == 200, "the session outlives the connection"


def test_faults_are_listed_and_forgotten_when_used_up(sim, rest):
    sim.control.call("not-ready", SYSTEM, 2)
    assert sim.control.call("faults") == [{"kind": "not-ready", "pattern": SYSTEM.rstrip("/"), "left": 2}]
    rest.get(SYSTEM)
    assert sim.control.call("faults")[0]["left"] == 1
    rest.get(SYSTEM)
    assert sim.control.call("faults") == []


def test_counters_and_their_reset(sim, rest):
    rest.get(SYSTEM)
    Rest(sim).login("nobody", "x")
    counters = sim.control.call("counters")
    assert counters["requests"] == {"POST /redfish/v1/SessionService/Sessions/": 2, f"GET {SYSTEM}": 1}
    assert (counters["total"], counters["connections"], counters["logins"], counters["refused_logins"],
            counters["open_sessions"]) == (3, 2, 1, 1, 1)
    sim.control.call("reset-counters")
    counters = sim.control.call("counters")
    assert (counters["requests"], counters["connections"], counters["logins"]) == ({}, 0, 0)
    assert counters["open_sessions"] == 1, "what is open stays open"


def test_request_log(sim, rest):
    sim.control.call("drop", SYSTEM, "before", ONCE)
    rest.get("/redfish/v1/none?x=1")
    with pytest.raises((ConnectionError, ssl.SSLError)):
        rest.get(SYSTEM)
    fields = [line.split(" ")[1:] for line in sim.requests()]
    assert fields == [["1", "POST", "/redfish/v1/SessionService/Sessions/", "201"],
                      ["1", "GET", "/redfish/v1/none?x=1", "404"], ["1", "GET", SYSTEM, "dropped"]]
