"""The kept connection: when it is used again, what must not be left on it, and how an address is found for it."""

from __future__ import annotations

import os
import socket
import time

import pytest
from raw_server import answer, opened, sending, session_answer, with_sessions

import _bayward_wire

SYSTEMS = "/redfish/v1/Systems/"
GOOD = answer(body={"Id": "good"})


def closing_after(served):
    """Connections answer `served` GETs and are then closed on the next one, before a byte of the answer."""
    count: dict = {}

    def script(request, peer):
        count[request.connection] = count.get(request.connection, 0) + 1
        if count[request.connection] > served:
            return False
        peer.send(GOOD)
        return True

    return script


def test_kept_connection_that_was_closed_is_reopened_and_the_get_sent_once_more(module, raw_server):
    server = opened(module, raw_server, closing_after(1))
    for _ in range(3):
        assert module.get(SYSTEMS) == '{"Id":"good"}'
    assert server.connections == 3
    assert [line.split()[0] for line in server.lines()] == ["POST"] + ["GET"] * 5


def test_new_connection_that_is_closed_too_is_not_tried_again(module, raw_server):
    server = opened(module, raw_server, closing_after(0))
    assert module.get(SYSTEMS) == 10001
    assert [line.split()[0] for line in server.lines()] == ["POST", "GET", "GET"]


def test_connection_closed_after_the_first_byte_is_not_tried_again(module, raw_server):
    server = opened(module, raw_server, sending(b"H"))
    assert module.get(SYSTEMS) == 10001
    assert [line.split()[0] for line in server.lines()] == ["POST", "GET"]


def test_connections_cut_by_the_controller_between_requests_do_not_matter(module, ilo5):
    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
    for _ in range(3):
        ilo5.control.call("close-connections")
        assert isinstance(module.get(SYSTEMS), str)
    ilo5.control.call("close-connections")
    module.close()
    assert ilo5.control.call("counters")["open_sessions"] == 0


def test_controller_that_closes_after_every_answer_is_served(module, raw_server):
    closing = answer(body={"Id": "good"}, headers="Connection: close\r\n")
    opened(module, raw_server, sending(closing))
    for _ in range(3):
        assert module.get(SYSTEMS) == '{"Id":"good"}'


def test_failed_gets_leave_no_descriptor(module, raw_server):
    opened(module, raw_server, sending(b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{}"))
    own = [entry for entry in os.listdir("/proc/self/fd")]
    for _ in range(10):
        assert module.get(SYSTEMS) == 10001
    time.sleep(0.1)
    assert len(os.listdir("/proc/self/fd")) <= len(own)


def numbered(request):
    return answer(body={"Id": request.line.rpartition("/")[2]})


@pytest.mark.parametrize("stray", [
    answer(body={"Id": "stray"}), answer(body={"Id": "s" * 20_000}), answer(body={"Id": "stray"}) * 40,
    b'{"Id":"late"}', b"\r\n", b"HTTP/1.1 103 Early Hints\r\n\r\n",
], ids=["second answer", "large second answer", "many answers", "body", "blank line", "interim answer"])
@pytest.mark.parametrize("records", [1, 2])
def test_bytes_after_an_answer_are_never_taken_for_the_next_one(module, raw_server, stray, records):
    def script(request, peer):
        if records == 1:
            peer.send(numbered(request) + stray)
        else:
            peer.send(numbered(request))
            peer.send(stray)
        return True

    opened(module, raw_server, script)
    for number in range(5):
        assert module.get(f"/redfish/v1/{number}") == f'{{"Id":"{number}"}}'
        time.sleep(0.02)  # for what comes late to come


@pytest.mark.parametrize("interim", [
    "103 Early Hints\r\nLink: </x>", "102 Processing", "100 Continue", "199 Own",
    "103 Early Hints\r\nContent-Length: 9",
])
def test_interim_answers_are_skipped(module, raw_server, interim):
    data = f"HTTP/1.1 {interim}\r\n\r\n".encode() * 2
    server = opened(module, raw_server, lambda request, peer: peer.send(data + numbered(request)) or True)
    for number in range(3):
        assert module.get(f"/redfish/v1/{number}") == f'{{"Id":"{number}"}}'
    assert server.connections == 1


def test_switched_protocol_is_another_error(module, raw_server):
    opened(module, raw_server, sending(b"HTTP/1.1 101 Switching Protocols\r\n\r\n" + GOOD))
    assert module.get(SYSTEMS) == 10001


@pytest.fixture
def dead_address():
    """A getaddrinfo entry whose packets nobody answers: a listener that accepts nothing and whose queue is full."""
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen(0)
        waiting = []
        while True:
            waiting.append(socket.socket())
            waiting[-1].settimeout(0.2)
            try:
                waiting[-1].connect(listener.getsockname())
            except socket.timeout:
                break
        yield entry(listener.getsockname())
        for sock in waiting:
            sock.close()


def entry(address, family=socket.AF_INET):
    return family, socket.SOCK_STREAM, 6, "", address


def test_dead_address_of_a_name_leaves_time_for_the_others(module, raw_server, monkeypatch, short_limits, dead_address):
    server = raw_server(with_sessions(closing_after(1)))
    found = [entry(("x", 1), family=9999), dead_address, entry(("127.0.0.1", server.port))]
    monkeypatch.setattr(socket, "getaddrinfo", lambda *_, **__: list(found))
    assert module.init("https://controller.test", "user", "pass") == 200
    # The address that answers comes first from now on.
    monkeypatch.setattr(_bayward_wire, "CONNECT_SECONDS", 0.1)
    for _ in range(3):
        assert module.get(SYSTEMS) == '{"Id":"good"}'
    assert server.connections > 1


def test_dead_addresses_alone_end_with_the_connect_limit(module, monkeypatch, short_limits, dead_address):
    monkeypatch.setattr(socket, "getaddrinfo", lambda *_, **__: [dead_address] * 3)
    started = time.monotonic()
    assert module.init("https://controller.test", "user", "pass") == 10001
    assert 0.4 < time.monotonic() - started < 2


def test_log_out_does_not_look_the_name_up_again(module, raw_server, monkeypatch):
    server = raw_server(with_sessions(sending(b"")))
    monkeypatch.setattr(socket, "getaddrinfo", lambda *_, **__: [entry(("127.0.0.1", server.port))])
    assert module.init("https://controller.test", "user", "pass") == 200
    assert module.get(SYSTEMS) == 10001
    monkeypatch.setattr(socket, "getaddrinfo", pytest.fail)
    module.close()
    assert server.lines()[-1].startswith("DELETE")


def test_header_lines_that_are_folded_odd_or_written_otherwise(module, raw_server):
    opened(module, raw_server, sending(b"HTTP/1.1 200 OK\r\nX-Long: a\r\n  b\r\nno header\r\nCONTENT-length :  2 \r\n"
                                       b"X-\xe9: \xe9\n\r\n{}behind it"))
    assert module.get(SYSTEMS) == "{}"


def test_header_whose_value_begins_on_the_next_line(module, raw_server):
    opened(module, raw_server, sending(b"HTTP/1.1 200 OK\r\nContent-Length:\r\n 2\r\n\r\n{}behind it"))
    assert module.get(SYSTEMS) == "{}"


@pytest.mark.parametrize("lines", [b"X: y\r\n" * 100, b"X: " + b"y" * 70_000 + b"\r\n"])
def test_more_header_than_anybody_sends_is_another_error(module, raw_server, lines):
    opened(module, raw_server, sending(b"HTTP/1.1 200 OK\r\n" + lines + b"Content-Length: 2\r\n\r\n{}"))
    assert module.get(SYSTEMS) == 10001


def test_token_that_would_end_its_line_is_never_sent(module, raw_server):
    def script(request, peer):
        peer.send(session_answer("t0\rX-Evil:1"))
        return True

    server = raw_server(script)
    assert module.init(server.url, "user", "pass") == 200
    assert module.get(SYSTEMS) == 10001
    assert [line.split()[0] for line in server.lines()] == ["POST"]
