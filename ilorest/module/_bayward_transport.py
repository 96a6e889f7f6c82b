"""Requests to the controller by HTTPS: one kept-alive connection, limits on size, redirects on the same host."""

from __future__ import annotations

import http.client
import re
import socket
import urllib.parse

from _bayward_outcome import OTHER, Answer, Deadline, Failure, Unanswered
from _bayward_target import Target, quoted_path
from _bayward_wire import Http

MAX_BODY_BYTES = 1024 * 1024  # answers have some kilobytes; with 200 drives inlined, half a megabyte
MAX_REDIRECTS = 3

_PIECE_BYTES = 64 * 1024
_REDIRECTS = frozenset((301, 302, 307, 308))


class _Stale(Unanswered):
    """A reused connection failed before the first byte of the answer: the controller had closed it in the meantime."""


class Connection:
    """Requests to one controller over one kept-alive connection, opened when needed. For one thread."""

    def __init__(self, target: Target, ca_file: str = "") -> None:
        self._target = target
        self._http = Http(target, ca_file)

    def close(self) -> None:
        """Close the connection; the next request opens it again. Never raises."""
        try:
            self._http.close()
        except OSError:
            pass

    def get(self, path: str, headers: dict[str, str], deadline: Deadline) -> Answer:
        """GET a path, following redirects that stay on this controller."""
        for _ in range(MAX_REDIRECTS + 1):
            answer = self.exchange("GET", path, headers, None, deadline)
            if answer.status not in _REDIRECTS:
                return answer
            path = self._redirected(path, answer.location)
        raise Failure(OTHER, f"{self._target}: GET {_shown(path)} is redirected without end")

    def exchange(self, method: str, path: str, headers: dict[str, str], body: bytes | None,
                 deadline: Deadline) -> Answer:
        """One request and its answer. Raises Failure(OTHER), with the connection closed, for whatever goes wrong."""
        if method == "POST":
            # A log-in must not be sent twice, so it does not go over a connection that may be stale.
            self.close()
        try:
            return self._once(method, path, headers, body, deadline)
        except _Stale:
            return self._once(method, path, headers, body, deadline)

    def _once(self, method: str, path: str, headers: dict[str, str], body: bytes | None,
              deadline: Deadline) -> Answer:
        if self._http.sock is not None and not self._http.sock.is_quiet():
            self.close()
        reused = self._http.sock is not None
        sock = None
        try:
            self._http.deadline = deadline
            if not reused:
                self._http.connect()
            sock = self._http.sock
            sock.begin(deadline)
            with self._http.ask(method, quoted_path(path), headers, body) as response:
                if response.status < 200:
                    raise Failure(OTHER, f"{self._target}: {method} {_shown(path)} got only status {response.status}")
                content = _decoded(_body(response), response.getheader("Content-Encoding", ""))
                return Answer(response.status, content,
                              response.getheader("X-Auth-Token", ""), response.getheader("Location", ""))
        except Failure:
            self.close()
            raise
        except (OSError, http.client.HTTPException, ValueError) as error:
            self.close()
            timed_out = isinstance(error, socket.timeout)
            stale = reused and not timed_out and sock is not None and not sock.answered
            text = f"{self._target}: {method} {_shown(path)}: {str(error) or type(error).__name__}"
            raise (_Stale if stale else Unanswered)(OTHER, text) from None
        except BaseException:
            self.close()
            raise

    def _redirected(self, path: str, location: str) -> str:
        """The path a Location names; another host, or no usable Location, is a Failure."""
        try:
            parts = urllib.parse.urlsplit(urllib.parse.urljoin(f"{self._target}{path}", location))
            stays = (parts.scheme == "https" and parts.hostname == self._target.host
                     and (parts.port or self._http.DEFAULT_PORT) == self._target.port)
        except ValueError:
            stays = False
        if not location or not stays:
            raise Failure(OTHER, f"{self._target}: GET {_shown(path)} is redirected to another host "
                                 f"({_shown(location)})")
        return (parts.path or "/") + (f"?{parts.query}" if parts.query else "")


def _shown(url: str) -> str:
    """A URL or path that the controller named, without what may hold a secret: its query and its user information."""
    return re.sub(r"[^/]*@", "", re.split(r"[?#]", url, maxsplit=1)[0])


def _body(response: http.client.HTTPResponse) -> bytes:
    """The whole body, in pieces so that neither a wrong length nor an endless body costs more than the limit."""
    body = bytearray()
    while True:
        piece = response.read(_PIECE_BYTES)
        if not piece:
            break
        body += piece
        if len(body) > MAX_BODY_BYTES:
            raise Failure(OTHER, f"An answer of the controller is larger than {MAX_BODY_BYTES} bytes.")
    if response.length:
        raise http.client.IncompleteRead(b"", response.length)
    return bytes(body)


def _decoded(body: bytes, encoding: str) -> bytes:
    """The body without its content coding. None is asked for, yet some firmware compresses all the same."""
    coding = encoding.strip().lower()
    if coding in ("", "identity"):
        return body
    if coding != "gzip":
        raise Failure(OTHER, f"An answer of the controller has the unknown coding {coding}.")
    import zlib  # rarely needed

    try:
        unpacker = zlib.decompressobj(zlib.MAX_WBITS | 16)
        text = unpacker.decompress(body, MAX_BODY_BYTES + 1)
    except zlib.error:
        raise Failure(OTHER, "An answer of the controller is not gzip as it claims.") from None
    if len(text) > MAX_BODY_BYTES or not unpacker.eof:
        raise Failure(OTHER, "A compressed answer of the controller is cut off or too large.")
    return text
