"""One TLS connection to the controller: its socket, how it is opened, and what counts as an answer on it."""

from __future__ import annotations

import http.client
import select
import socket
import ssl

from _bayward_outcome import Deadline
from _bayward_target import Target

CONNECT_SECONDS = 5.0  # for the TCP connection over all addresses, and again for the TLS handshake
READ_SECONDS = 30.0    # without a byte from the controller


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

    def is_quiet(self) -> bool:
        """Whether nothing waits to be read. Between two requests anything does harm: the rest of an earlier answer
        would be taken for the next one, and the end of the connection makes the next request fail. What comes only
        after the next request was sent cannot be told from its answer."""
        if self.pending():
            return False
        poll = select.poll()
        poll.register(self, select.POLLIN)
        return not poll.poll(0)


class _Response(http.client.HTTPResponse):
    """An answer without the interim ones before it. Of these http.client itself skips only 100 (Continue)."""

    def _read_status(self):  # type: ignore[no-untyped-def]
        version, status, reason = super()._read_status()
        interim = 100 <= status <= 199 and status != http.client.SWITCHING_PROTOCOLS
        return version, http.client.CONTINUE if interim else status, reason


def make_tls_context() -> ssl.SSLContext:
    """The one place where TLS is set up. Controllers leave the factory with self-signed certificates: not verified."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    context.sslsocket_class = _LimitedSocket
    return context


class Http(http.client.HTTPConnection):
    """http.client over our own socket: addresses looked up once, connecting and the handshake within their limits."""

    default_port = 443
    response_class = _Response

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
        """Try one address after the other, each with its share of the time that is left."""
        limit = Deadline(self.deadline.left(CONNECT_SECONDS))
        failure: Exception = OSError("the name has no address")
        for index, entry in enumerate(self._addresses):
            share = limit.left(CONNECT_SECONDS) / (len(self._addresses) - index)
            try:
                plain = _connected(entry, share)
            except OSError as error:
                failure = error
            else:
                # A name's dead address costs its share once, not at every new connection.
                self._addresses.insert(0, self._addresses.pop(index))
                return plain
        raise failure


def _connected(entry: tuple, seconds: float) -> socket.socket:
    """A TCP connection to one of getaddrinfo's entries. Raises OSError."""
    family, kind, protocol, _, address = entry
    plain = socket.socket(family, kind, protocol)
    try:
        plain.settimeout(seconds)
        plain.connect(address)
        plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    except BaseException:
        plain.close()
        raise
    return plain
