"""HTTPS to the controller: one kept-alive connection with limits on time and size, and redirects on the same host."""

from __future__ import annotations

import http.client
import socket
import ssl
import urllib.parse

from _bayward_outcome import OTHER, Answer, Deadline, Failure
from _bayward_target import Target

CONNECT_SECONDS = 5.0         # for the TCP connection, and again for the TLS handshake
READ_SECONDS = 30.0           # without a byte from the controller
MAX_BODY_BYTES = 4 * 1024 * 1024  # answers have some kilobytes; with 200 drives inlined less than 1 MiB
MAX_REDIRECTS = 3

_PIECE_BYTES = 64 * 1024
_REDIRECTS = frozenset((301, 302, 307, 308))
# What a request target may hold unquoted; "%" too, as ids come quoted already.
_PATH_CHARACTERS = "/%:?[]@!$&'()*+,;=~"


class _Unanswered(Failure):
    """A reused connection failed before the first byte of the answer: the controller had closed it in the meantime."""


class _LimitedSocket(ssl.SSLSocket):
    """A TLS socket whose every read ends with the deadline of the exchange, however slowly bytes trickle in."""

    deadline: Deadline | None = None
    answered = False

    def begin(self, deadline: Deadline) -> None:
        self.deadline = deadline
        self.answered = False
        self.settimeout(deadline.left(READ_SECONDS))

    def recv_into(self, buffer, nbytes=None, flags=0):  # type: ignore[no-untyped-def]
        if self.deadline is not None:
            self.settimeout(self.deadline.left(READ_SECONDS))
        count = super().recv_into(buffer, nbytes, flags)
        self.answered = self.answered or count > 0
        return count


def make_tls_context() -> ssl.SSLContext:
    """The one place where TLS is set up. Controllers leave the factory with self-signed certificates: not verified."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    context.sslsocket_class = _LimitedSocket
    return context


class _Http(http.client.HTTPConnection):
    """http.client over our own socket: addresses looked up once, connecting and the handshake within their limits."""

    default_port = 443

    def __init__(self, target: Target, context: ssl.SSLContext) -> None:
        super().__init__(target.host, target.port)
        self._context = context
        self._addresses: list = []
        self.deadline = Deadline(0)

    def connect(self) -> None:
        if not self._addresses:
            # Looked up once only: a log-out never waits for the resolver, which takes no time limit.
            self._addresses = socket.getaddrinfo(self.host, self.port, type=socket.SOCK_STREAM)
        plain = self._connect_tcp()
        try:
            plain.settimeout(self.deadline.left(CONNECT_SECONDS))
            self.sock = self._context.wrap_socket(plain, server_hostname=self.host.partition("%")[0])
        finally:
            plain.close()  # wrapping took the descriptor over; without it this closes a failed connection

    def _connect_tcp(self) -> socket.socket:
        limit = Deadline(self.deadline.left(CONNECT_SECONDS))
        failure: Exception = OSError("the name has no address")
        for family, kind, protocol, _, address in self._addresses:
            plain = socket.socket(family, kind, protocol)
            try:
                plain.settimeout(limit.left(CONNECT_SECONDS))
                plain.connect(address)
                plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                return plain
            except OSError as error:
                plain.close()
                failure = error
            except BaseException:
                plain.close()
                raise
        raise failure


class Connection:
    """Requests to one controller over one kept-alive connection, opened when needed. For one thread."""

    def __init__(self, target: Target) -> None:
        self._target = target
        self._http = _Http(target, make_tls_context())

    def close(self) -> None:
        """Close the connection; the next request opens it again. Never raises."""
        try:
            self._http.close()
        except (OSError, http.client.HTTPException):
            self._http.sock = None

    def get(self, path: str, headers: dict[str, str], deadline: Deadline) -> Answer:
        """GET a path, following redirects that stay on this controller."""
        for _ in range(MAX_REDIRECTS + 1):
            answer = self.exchange("GET", path, headers, None, deadline)
            if answer.status not in _REDIRECTS:
                return answer
            path = self._redirected(path, answer.location)
        raise Failure(OTHER, f"the controller redirects without end at {path}")

    def exchange(self, method: str, path: str, headers: dict[str, str], body: bytes | None,
                 deadline: Deadline) -> Answer:
        """One request and its answer. Raises Failure(OTHER), with the connection closed, for whatever goes wrong."""
        if method == "POST":
            # A log-in must not be sent twice, so it does not go over a connection that may be stale.
            self.close()
        try:
            return self._once(method, path, headers, body, deadline)
        except _Unanswered:
            return self._once(method, path, headers, body, deadline)

    def _once(self, method: str, path: str, headers: dict[str, str], body: bytes | None,
              deadline: Deadline) -> Answer:
        reused = self._http.sock is not None
        sock = None
        try:
            self._http.deadline = deadline
            if not reused:
                self._http.connect()
            sock = self._http.sock
            sock.begin(deadline)
            self._http.request(method, urllib.parse.quote(path, safe=_PATH_CHARACTERS), body, headers)
            with self._http.getresponse() as response:
                content = _decoded(_body(response), response.getheader("Content-Encoding", ""))
                return Answer(response.status, content,
                              response.getheader("X-Auth-Token", ""), response.getheader("Location", ""))
        except Failure:
            self.close()
            raise
        except (OSError, http.client.HTTPException, ValueError) as error:
            self.close()
            timed_out = isinstance(error, socket.timeout)
            unanswered = reused and not timed_out and sock is not None and not sock.answered
            text = f"{self._target}: {method} {path}: {str(error) or type(error).__name__}"
            raise (_Unanswered if unanswered else Failure)(OTHER, text) from None
        except BaseException:
            self.close()
            raise

    def _redirected(self, path: str, location: str) -> str:
        """The path a Location names; another host, or no usable Location, is a Failure."""
        try:
            parts = urllib.parse.urlsplit(urllib.parse.urljoin(f"{self._target}{path}", location))
            stays = (parts.scheme == "https" and parts.hostname == self._target.host
                     and (parts.port or self._http.default_port) == self._target.port)
        except ValueError:
            stays = False
        if not location or not stays:
            raise Failure(OTHER, f"{self._target}: GET {path} is redirected to another host ({location})")
        return (parts.path or "/") + (f"?{parts.query}" if parts.query else "")


def _body(response: http.client.HTTPResponse) -> bytes:
    """The whole body, in pieces so that neither a wrong length nor an endless body costs more than the limit."""
    body = bytearray()
    while True:
        piece = response.read(_PIECE_BYTES)
        if not piece:
            break
        body += piece
        if len(body) > MAX_BODY_BYTES:
            raise Failure(OTHER, f"an answer of the controller is larger than {MAX_BODY_BYTES} bytes")
    if response.length:
        raise http.client.IncompleteRead(b"", response.length)
    return bytes(body)


def _decoded(body: bytes, encoding: str) -> bytes:
    """The body without its content coding. None is asked for, yet some firmware compresses all the same."""
    coding = encoding.strip().lower()
    if coding in ("", "identity"):
        return body
    if coding != "gzip":
        raise Failure(OTHER, f"an answer of the controller has the unknown coding {coding}")
    import zlib  # rarely needed

    try:
        unpacker = zlib.decompressobj(zlib.MAX_WBITS | 16)
        text = unpacker.decompress(body, MAX_BODY_BYTES + 1)
    except zlib.error:
        raise Failure(OTHER, "an answer of the controller is not gzip as it claims") from None
    if len(text) > MAX_BODY_BYTES or not unpacker.eof:
        raise Failure(OTHER, "a compressed answer of the controller is cut off or too large")
    return text
