"""One TLS connection to the controller: its socket, how it is opened, and what counts as an answer on it."""

from __future__ import annotations

import http.client
import os
import select
import socket
import ssl
import stat

from _bayward_outcome import OTHER, Deadline, Failure
from _bayward_target import VNIC_CONTROLLER, VNIC_HOST, Target

CONNECT_SECONDS = 5.0  # for the TCP connection over all addresses, and again for the TLS handshake
READ_SECONDS = 30.0    # without a byte from the controller

_MAX_HEADERS = 100
_MAX_HEADER_BYTES = 64 * 1024

# A certificate in the CA file is trusted itself, also without the one that signed it: many controllers send nothing but
# their own, signed by an authority that only their maker has. (Python names the flag since 3.10.)
_PARTIAL_CHAIN = 0x80000


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


class _Headers:
    """The header lines of an answer, as far as http.client asks for them. Its own kind takes ten times as long."""

    __slots__ = ("_values",)

    def __init__(self, lines) -> None:  # type: ignore[no-untyped-def]
        """Reads up to the empty line. Raises HTTPException for lines, or for more of them, than anybody sends."""
        self._values: dict[str, list[str]] = {}
        values: list[str] = []
        for _ in range(_MAX_HEADERS):
            line = lines.readline(_MAX_HEADER_BYTES + 1)
            if len(line) > _MAX_HEADER_BYTES:
                raise http.client.LineTooLong("header line")
            if line in (b"\r\n", b"\n", b""):
                return
            text = line.decode("latin-1")
            if text[0] in " \t" and values:
                values[-1] = f"{values[-1]} {text.strip()}".strip()  # goes on from the line before
                continue
            name, _, value = text.partition(":")
            values = self._values.setdefault(name.rstrip().lower(), [])
            values.append(value.strip())
        raise http.client.HTTPException(f"got more than {_MAX_HEADERS} headers")

    def get_all(self, name: str, default=None):  # type: ignore[no-untyped-def]
        return self._values.get(name.lower(), default)

    def get(self, name: str, default=None):  # type: ignore[no-untyped-def]
        return self._values.get(name.lower(), (default,))[0]


class _Response(http.client.HTTPResponse):
    """An answer without the interim ones before it. Of these http.client itself skips only 100 (Continue)."""

    def begin(self) -> None:
        while True:
            version, status, reason = self._read_status()
            self.headers = self.msg = _Headers(self.fp)
            if not 100 <= status <= 199 or status == http.client.SWITCHING_PROTOCOLS:
                break
        if not version.startswith("HTTP/1."):
            raise http.client.UnknownProtocol(version)
        self.version = 10 if version == "HTTP/1.0" else 11
        self.code = self.status = status
        self.reason = reason.strip()
        self.chunked = self.headers.get("transfer-encoding", "").lower() == "chunked"
        self.chunk_left = None
        self.length = None if self.chunked else self._content_length()
        self.will_close = self._check_close() or not self.chunked and self.length is None

    def _content_length(self):  # type: ignore[no-untyped-def]
        """None when the answer ends with the connection."""
        if self.status in (http.client.NO_CONTENT, http.client.NOT_MODIFIED) or 100 <= self.status <= 199:
            return 0
        length = self.headers.get("content-length", "")
        return int(length) if length.isascii() and length.isdigit() else None


def make_tls_context(ca_file: str = "", names: bool = True) -> ssl.SSLContext:
    """The one place where TLS is set up. Raises Failure(OTHER) when the CA file is of no use.

    Controllers leave the factory with self-signed certificates, so without a CA file nothing is verified. With one the
    chain is, and unless `names` is False the host name as well.
    """
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.sslsocket_class = _LimitedSocket
    context.check_hostname = bool(ca_file) and names
    if ca_file:
        context.verify_mode = ssl.CERT_REQUIRED
        context.verify_flags |= _PARTIAL_CHAIN
        _load(context, ca_file)
    else:
        context.verify_mode = ssl.CERT_NONE
    return context


def _load(context: ssl.SSLContext, ca_file: str) -> None:
    """Trust the certificates of the file, and no others."""
    try:
        if not os.path.isabs(ca_file):
            raise OSError("it is no absolute path")
        if not stat.S_ISREG(os.stat(ca_file).st_mode):
            raise OSError("it is no file")  # a pipe would never end
        context.load_verify_locations(cafile=ca_file)
        if not context.cert_store_stats()["x509"]:
            raise OSError("it holds no certificate")
    except ssl.SSLError:
        raise Failure(OTHER, f'The CA file "{ca_file}" cannot be used: it holds no certificate in PEM form, or a '
                             'damaged one.') from None
    except (OSError, ValueError) as error:
        reason = getattr(error, "strerror", None) or str(error)
        raise Failure(OTHER, f'The CA file "{ca_file}" cannot be used: {reason}.') from None


class Http:
    """HTTP over our own socket: addresses looked up once, connecting and the handshake within their limits."""

    DEFAULT_PORT = 443

    def __init__(self, target: Target, ca_file: str = "") -> None:
        self.host, self.port = target.host, target.port
        self.sock: _LimitedSocket | None = None
        # On the virtual-NIC link no certificate can name the controller, whose address every server has. Instead of the
        # name counts that the connection leaves from this server's end of the link, so that it goes nowhere else.
        on_link = bool(ca_file) and target.host == VNIC_CONTROLLER
        self._source = VNIC_HOST if on_link else ""
        self._target = target
        self._context = make_tls_context(ca_file, names=not on_link)
        self._addresses: list = []
        self.deadline = Deadline(0)

    def close(self) -> None:
        sock, self.sock = self.sock, None
        if sock is not None:
            sock.close()

    def ask(self, method: str, path: str, headers: dict[str, str], body: bytes | None) -> http.client.HTTPResponse:
        """Send a request over the connection and read the head of its answer. The path is a quoted one."""
        if not all(map(str.isprintable, headers.values())):
            raise ValueError("a header holds control characters")  # such as a token that would end its line
        lines = [f"{method} {path} HTTP/1.1", f"Host: {str(self._target).partition('//')[2]}", "Accept-Encoding: identity"]
        lines += [f"{name}: {value}" for name, value in headers.items()]
        if body is not None:
            lines.append(f"Content-Length: {len(body)}")
        sock = self.sock
        sock.sendall("\r\n".join([*lines, "", ""]).encode("latin-1") + (body or b""))
        response = _Response(sock, method=method)
        try:
            response.begin()
        except BaseException:
            response.close()
            raise
        if response.will_close:
            self.close()  # the answer has its own hold of the socket
        return response

    def connect(self) -> None:
        if not self._addresses:
            # Looked up once only: a log-out never waits for the resolver, which takes no time limit.
            self._addresses = socket.getaddrinfo(self.host, self.port, type=socket.SOCK_STREAM)
        plain = self._connect_tcp()
        try:
            plain.settimeout(self.deadline.left(CONNECT_SECONDS))
            self.sock = self._context.wrap_socket(plain, server_hostname=self.host.partition("%")[0])
        except ssl.SSLCertVerificationError as error:
            reason = error.verify_message.rstrip(".")
            raise Failure(OTHER, f"{self._target}: The controller's certificate is not trusted: {reason}; check the CA "
                                 "file and the URL.") from None
        finally:
            plain.close()  # wrapping took the descriptor over; without it this closes a failed connection

    def _connect_tcp(self) -> socket.socket:
        """Try one address after the other, each with its share of the time that is left."""
        limit = Deadline(self.deadline.left(CONNECT_SECONDS))
        failure: Exception = OSError("the name has no address")
        for index, entry in enumerate(self._addresses):
            share = limit.left(CONNECT_SECONDS) / (len(self._addresses) - index)
            try:
                plain = _connected(entry, share, self._source)
            except OSError as error:
                failure = error
            else:
                # A name's dead address costs its share once, not at every new connection.
                self._addresses.insert(0, self._addresses.pop(index))
                return plain
        raise failure


def _connected(entry: tuple, seconds: float, source: str) -> socket.socket:
    """A TCP connection to one of getaddrinfo's entries, from the address `source` if there is one. Raises OSError."""
    family, kind, protocol, _, address = entry
    plain = socket.socket(family, kind, protocol)
    try:
        plain.settimeout(seconds)
        if source:
            plain.bind((source, 0))
        plain.connect(address)
        plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    except BaseException:
        plain.close()
        raise
    return plain
