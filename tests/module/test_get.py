"""`get` over HTTPS: what is handed on, and what is a failure."""

from __future__ import annotations

import json

import pytest
from raw_server import answer, with_sessions

SYSTEMS = "/redfish/v1/Systems/"


def logged_in(module, sim):
    assert module.init(sim.url, sim.account, sim.password) == 200


def test_every_resource_of_both_generations_comes_as_compact_json(module, ilo5, ilo6):
    for sim in (ilo5, ilo6):
        logged_in(module, sim)
        paths = [path for path in sim.control.call("paths") if path.startswith("/redfish/v1")]
        assert len(paths) > 15
        for path in paths:
            text = module.get(path)
            assert isinstance(text, str), path
            resource = json.loads(text)
            assert text == json.dumps(resource, separators=(",", ":"))
            assert text.isascii() and resource["@odata.id"].rstrip("/") == path.rstrip("/")


def test_drive_keeps_what_readers_need(module, ilo6):
    logged_in(module, ilo6)
    collection = json.loads(module.get("/redfish/v1/Systems/1/Storage/"))
    storage = json.loads(module.get(collection["Members"][0]["@odata.id"]))
    path = storage["Drives"][0]["@odata.id"]
    raw, kept = ilo6.control.call("get", path), json.loads(module.get(path))
    for name in ("Id", "Model", "SerialNumber", "MediaType", "Revision", "CapacityBytes", "BlockSizeBytes",
                 "FailurePredicted", "PredictedMediaLifeLeftPercent", "PhysicalLocation", "StatusIndicator"):
        assert kept[name] == raw[name], name
    assert kept["Links"]["Volumes"] == raw["Links"]["Volumes"]
    assert "Actions" not in kept


def test_one_connection_serves_a_session(module, ilo5):
    logged_in(module, ilo5)
    before = ilo5.control.call("counters")["connections"]
    for _ in range(20):
        assert isinstance(module.get(SYSTEMS), str)
    assert ilo5.control.call("counters")["connections"] == before


def test_not_ready_and_missing_answers_are_handed_on(module, ilo5):
    logged_in(module, ilo5)
    ilo5.control.call("not-ready", "*/Systems/1", 1)
    assert "ResourceNotReadyRetry" in module.get("/redfish/v1/Systems/1/")
    assert "ResourceMissingAtURI" in module.get("/redfish/v1/Systems/9/")
    assert "error" in json.loads(module.get("/redfish/v1/Systems/9/"))


@pytest.mark.parametrize("status", [400, 403, 404, 500, 502, 503])
def test_other_failures_are_another_error(module, ilo5, status):
    logged_in(module, ilo5)
    ilo5.control.call("status", "*/Systems", status)
    assert module.get(SYSTEMS) == 10001


@pytest.mark.parametrize("text", [
    "", "hello", "[]", "1", "null", '"text"', "{", '{"Id":}', '{"Id":NaN}', '{"Id":Infinity}', "<html></html>",
    '{"Members":' + "[" * 40_000 + "]" * 40_000 + "}", '{"a":' * 40_000 + "1" + "}" * 40_000,
])
def test_text_that_is_no_json_object_is_another_error(module, ilo5, text):
    logged_in(module, ilo5)
    ilo5.control.call("body", "*/Systems", text)
    assert module.get(SYSTEMS) == 10001
    ilo5.control.call("clear-faults")
    assert isinstance(module.get(SYSTEMS), str)


@pytest.mark.parametrize("body", [
    b'{"Id":"\xff\xfe","Name":"a\xc3"}', b'{"Id":"\\ud800","Name":"\\u0000\\n"}', b'{"Id":1,"Id":"x","Members":7}',
    b'{"Status":[[[]]],"Links":"x","Oem":{"Hpe":3},"Members":{"@odata.id":5},"Model":{"a":[1]}}',
    b'{"@odata.id":null,"CapacityBytes":1e999,"BlockSizeBytes":-' + b"9" * 6000 + b"}", b"\xef\xbb\xbf{}",
])
def test_odd_but_json_answers_come_as_json(module, raw_server, body):
    server = raw_server(with_sessions(lambda request, peer: peer.send(answer(body=body)) or True))
    assert module.init(server.url, "user", "pass") == 200
    text = module.get(SYSTEMS)
    assert isinstance(text, str) and text.isascii()
    assert isinstance(json.loads(text, parse_constant=pytest.fail), dict)


def test_error_answer_that_is_no_json_is_another_error(module, raw_server):
    script = with_sessions(lambda request, peer: peer.send(answer("503 Busy", b"ResourceNotReadyRetry")) or True)
    assert module.init(raw_server(script).url, "user", "pass") == 200
    assert module.get(SYSTEMS) == 10001


def test_get_without_session_is_another_error(module, caplog):
    assert module.get(SYSTEMS) == 10001
    assert "no session" in caplog.text


@pytest.mark.parametrize("path", ["", "redfish/v1/Systems/", "http://elsewhere/redfish/v1/"])
def test_path_that_does_not_begin_with_a_slash_is_not_asked_for(module, raw_server, path):
    server = raw_server(with_sessions(lambda request, peer: False))
    assert module.init(server.url, "user", "pass") == 200
    assert module.get(path) == 10001
    assert len(server.requests) == 1


def test_path_with_blanks_and_line_ends_stays_one_request(module, raw_server):
    server = raw_server(with_sessions(lambda request, peer: peer.send(answer(body={})) or True))
    assert module.init(server.url, "user", "pass") == 200
    assert module.get("/redfish/v1/a b\r\nX-Evil: 1\u00e9") == "{}"
    assert server.lines()[-1] == "GET /redfish/v1/a%20b%0D%0AX-Evil:%201%C3%A9"


def test_answer_larger_than_the_service_takes_is_handed_on_whole(module, raw_server):
    members = [{"@odata.id": f"/redfish/v1/Systems/1/Storage/DE00A000/Drives/{number}"} for number in range(400)]
    collection = {"@odata.id": SYSTEMS, "Members": members}
    server = raw_server(with_sessions(lambda request, peer: peer.send(answer(body=collection)) or True))
    assert module.init(server.url, "user", "pass") == 200
    text = module.get(SYSTEMS)
    assert len(text) > 18196 and json.loads(text) == collection
