"""HTTP/1.1 over TLS: one thread per connection, kept alive, with every way to spoil the delivery of an answer."""

from __future__ import annotations

import errno
import http
import socket
import socketserver
import ssl
import threading
import time
from http.server import BaseHTTPRequestHandler
from typing import Dict, Optional, Tuple

from .errors import Failure
from .faults import Fault, FaultBoard
from .journal import Journal
from .service import Answer, Request, RestService, json_answer

# Seconds for a TLS handshake, and for a kept-alive connection without a request.
_HANDSHAKE_LIMIT = 10
_IDLE_LIMIT = 600
_BODY_LIMIT = 65536


class ControllerServer(socketserver.ThreadingTCPServer):
    """Accepts connections and keeps track of them, so that they can be cut from outside."""

    allow_reuse_address = True
    daemon_threads = True
    block_on_close = False
    request_queue_size = 64

    def __init__(self, address: Tuple[str, int], context: ssl.SSLContext, service: RestService, faults: FaultBoard,
                 journal: Journal, latency_ms: int, chunked: bool) -> None:
        self.service = service
        self.faults = faults
        self.journal = journal
        self.latency_ms = latency_ms
        self.chunked = chunked
        self._context = context
        self._open: Dict[int, socket.socket] = {}
        self._open_lock = threading.Lock()
        try:
            super().__init__(address, _Connection)
        except (OSError, OverflowError) as error:
            taken = getattr(error, "errno", None) == errno.EADDRINUSE
            advice = "end what listens there or choose another port (0 is a free one)" if taken else \
                "give an address of this machine and a port you may use"
            raise Failure(f"Cannot listen on {address[0]}:{address[1]} ({error}); {advice}.") from error

    def get_request(self) -> Tuple[socket.socket, object]:
        plain, address = super().get_request()
        plain.settimeout(_HANDSHAKE_LIMIT)
        plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        # The handshake is made on the connection's own thread, so that a silent client holds up nobody.
        return self._context.wrap_socket(plain, server_side=True, do_handshake_on_connect=False), address

    def opened(self, connection: socket.socket) -> int:
        number = self.journal.connected()
        with self._open_lock:
            self._open[number] = connection
        return number

    def closed(self, number: int) -> None:
        with self._open_lock:
            self._open.pop(number, None)

    def open_connections(self) -> int:
        with self._open_lock:
            return len(self._open)

    def close_connections(self) -> int:
        """Cut every open connection; the number of them."""
        with self._open_lock:
            connections = list(self._open.values())
        for connection in connections:
            cut(connection)
        return len(connections)


def cut(connection: socket.socket) -> None:
    """End a connection without the TLS farewell. The TLS layer is passed by: another thread may be inside it."""
    try:
        socket.socket.shutdown(connection, socket.SHUT_RDWR)
    except OSError:
        pass


def _sleep_until(due: float) -> None:
    left = due - time.monotonic()
    if left > 0:
        time.sleep(left)


class _Connection(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "HPE-iLO-Server/1.30"
    server: ControllerServer
    timeout = _HANDSHAKE_LIMIT

    def setup(self) -> None:
        super().setup()
        self._number = 0

    def handle(self) -> None:
        try:
            self.connection.do_handshake()
            self.connection.settimeout(_IDLE_LIMIT)
            self._number = self.server.opened(self.connection)
            super().handle()
        except OSError:
            # Time-outs, resets and failed handshakes end the connection and nothing else.
            self.close_connection = True

    def finish(self) -> None:
        self.server.closed(self._number)
        try:
            super().finish()
        except OSError:
            pass

    def _serve(self) -> None:
        request = self._read_request()
        if request is None:
            return
        server = self.server
        due = time.monotonic() + server.latency_ms / 1000
        spoiler = server.faults.take(request.method, request.path, request.query, answers=False)
        if spoiler is not None and spoiler.kind == "drop-before":
            _sleep_until(due)
            self._note("dropped")
            self._end()
            return
        answer = server.service.barrier(request)
        if answer is None:
            fault = server.faults.take(request.method, request.path, request.query, answers=True)
            answer = server.service.answer(request) if fault is None else self._faulty(fault, request)
        _sleep_until(due)
        self._note(str(answer.status) if spoiler is None else f"{answer.status}/{spoiler.kind}")
        self._deliver(answer, spoiler)

    do_GET = do_HEAD = do_POST = do_DELETE = do_PATCH = do_PUT = _serve

    def _read_request(self) -> Optional[Request]:
        path, _, query = self.path.partition("?")
        try:
            length = int(self.headers.get("Content-Length") or 0)
        except ValueError:
            length = -1
        if not 0 <= length <= _BODY_LIMIT:
            self._note("400")
            self._deliver(json_answer(400, self.server.service.errors.base("MalformedJSON")), None)
            self._end()
            return None
        body = self.rfile.read(length)
        return Request(self.command, path, query, self.headers.get("X-Auth-Token"),
                       self.headers.get("Host") or "localhost", body)

    def _faulty(self, fault: Fault, request: Request) -> Answer:
        errors = self.server.service.errors
        if fault.kind == "not-ready":
            return json_answer(503, errors.not_ready())
        if fault.kind == "missing":
            return json_answer(404, errors.missing(request.path))
        if fault.kind == "redirect":
            return Answer(fault.code, b"", (("Location", fault.text),))
        if fault.kind == "body" or fault.text:
            return Answer(fault.code, fault.text.encode("utf-8", "surrogateescape"))
        return json_answer(fault.code, errors.base("GeneralError"))

    def _deliver(self, answer: Answer, spoiler: Optional[Fault]) -> None:
        head, before, body, after = self._encode(answer)
        kind = spoiler.kind if spoiler is not None else ""
        if kind == "wire":
            self.wfile.write(spoiler.text.encode("utf-8", "surrogateescape"))
            self._end()
        elif kind == "drop-during":
            self.wfile.write(head + before + body[:len(body) // 2])
            self._end()
        elif kind == "cut":
            self.wfile.write(head + before + body[:spoiler.count])
            self._end()
        elif kind == "hang-body":
            half = len(body) // 2
            self.wfile.write(head + before + body[:half])
            self.server.faults.wait(spoiler)
            self.wfile.write(body[half:] + after)
        elif kind == "trickle":
            self._trickle(spoiler, head + before + body + after)
        else:
            if kind == "hang-headers":
                self.server.faults.wait(spoiler)
            self.wfile.write(head + before + body + after)
            if kind == "close":
                self._end()

    def _trickle(self, spoiler: Fault, data: bytes) -> None:
        """One byte at a time, each as a TLS record of its own; the rest at once when told so."""
        for index in range(len(data)):
            self.wfile.write(data[index:index + 1])
            if self.server.faults.wait(spoiler):
                self.wfile.write(data[index + 1:])
                return

    def _encode(self, answer: Answer) -> Tuple[bytes, bytes, bytes, bytes]:
        """Head, what frames the body on the left, the body, what frames it on the right."""
        reason = http.HTTPStatus(answer.status).phrase if answer.status in set(http.HTTPStatus) else "Unknown"
        lines = [f"HTTP/1.1 {answer.status} {reason}", f"Server: {self.server_version}",
                 f"Date: {self.date_time_string()}", "Cache-Control: no-cache"]
        body, before, after = answer.body, b"", b""
        if answer.status in (204, 304):
            # These never have a body, nor anything that frames one.
            body = b""
        else:
            lines.append("Content-Type: application/json; charset=utf-8")
            # An empty chunk would be the last one, so an empty body gets its length instead.
            if self.server.chunked and body and self.request_version == "HTTP/1.1":
                lines.append("Transfer-Encoding: chunked")
                before, after = b"%x\r\n" % len(body), b"\r\n0\r\n\r\n"
            else:
                lines.append(f"Content-Length: {len(body)}")
        lines += [f"{name}: {value}" for name, value in answer.headers]
        if self.close_connection:
            lines.append("Connection: close")
        head = ("\r\n".join(lines) + "\r\n\r\n").encode("latin-1")
        if self.command == "HEAD":
            return head, b"", b"", b""
        return head, before, body, after

    def _note(self, status: str) -> None:
        self.server.journal.request(self._number, self.command, self.path, status)

    def _end(self) -> None:
        self.close_connection = True
        cut(self.connection)

    def log_message(self, format: str, *args: object) -> None:  # pylint: disable=redefined-builtin
        """The journal keeps the log."""
