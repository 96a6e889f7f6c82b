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


class _Response(http.client.HTTPResponse):
    """An answer without the interim ones before it. Of these http.client itself skips only 100 (Continue)."""

    def _read_status(self):  # type: ignore[no-untyped-def]
        version, status, reason = super()._read_status()
        interim = 100 <= status <= 199 and status != http.client.SWITCHING_PROTOCOLS
        return version, http.client.CONTINUE if interim else status, reason


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


class Http(http.client.HTTPConnection):
    """http.client over our own socket: addresses looked up once, connecting and the handshake within their limits."""

    default_port = 443
    response_class = _Response

    def __init__(self, target: Target, ca_file: str = "") -> None:
        super().__init__(target.host, target.port)
        # On the virtual-NIC link no certificate can name the controller, whose address every server has. Instead of the
        # name counts that the connection leaves from this server's end of the link, so that it goes nowhere else.
        on_link = bool(ca_file) and target.host == VNIC_CONTROLLER
        self._source = VNIC_HOST if on_link else ""
        self._target = target
        self._context = make_tls_context(ca_file, names=not on_link)
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
