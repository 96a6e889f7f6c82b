"""A TLS server that answers exactly the bytes, and with exactly the pauses, that a test scripts."""

from __future__ import annotations

import json
import socket
import ssl
import threading
from typing import Callable, List, Tuple

JSON = "Content-Type: application/json\r\n"


class Request:
    """One request as it arrived: `line` is "GET /path", headers have lower-case names."""

    def __init__(self, head: str, body: bytes, connection: int) -> None:
        first, *lines = head.split("\r\n")
        self.line = first.rpartition(" ")[0]
        self.headers = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in lines)}
        self.body = body
        self.connection = connection


class Peer:
    """The server's side of one connection, for a script: send bytes, wait, close."""

    def __init__(self, sock: socket.socket, stopped: threading.Event) -> None:
        self._sock = sock
        self._stopped = stopped

    def send(self, data: bytes) -> None:
        self._sock.sendall(data)

    def wait(self, seconds: float = 30.0) -> bool:
        """True when the server was stopped in the meantime."""
        return self._stopped.wait(seconds)

    def trickle(self, data: bytes, seconds: float) -> None:
        """One byte at a time, each as a TLS record of its own."""
        for index in range(len(data)):
            if self.wait(seconds):
                return
            self.send(data[index:index + 1])


# A script gets the request and the peer, and returns whether the connection is kept.
Script = Callable[[Request, Peer], bool]


class RawServer:
    """Serves on a free port of a loopback address until stopped. `certificate`: its file and its key's."""

    def __init__(self, script: Script, certificate: Tuple, address: str) -> None:
        self._script = script
        self._context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self._context.load_cert_chain(*certificate)
        self.requests: List[Request] = []
        self.connections = 0
        self._stopped = threading.Event()
        self._open: List[socket.socket] = []
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self._listener = socket.create_server((address, 0), family=family)
        self.port = self._listener.getsockname()[1]
        self.url = f"https://{f'[{address}]' if ':' in address else address}:{self.port}"
        self._threads = [threading.Thread(target=self._accept, daemon=True)]
        self._threads[0].start()

    def lines(self) -> List[str]:
        return [request.line for request in self.requests]

    def stop(self) -> None:
        self._stopped.set()
        for sock in (self._listener, *self._open):
            try:
                sock.shutdown(socket.SHUT_RDWR)  # wakes a thread that waits on it, as closing does not
            except OSError:
                pass
            sock.close()
        for thread in self._threads:
            thread.join(5)

    def _accept(self) -> None:
        while not self._stopped.is_set():
            try:
                sock, _ = self._listener.accept()
            except OSError:
                return
            self.connections += 1
            thread = threading.Thread(target=self._serve, args=(sock, self.connections), daemon=True)
            self._threads.append(thread)
            thread.start()

    def _serve(self, sock: socket.socket, number: int) -> None:
        try:
            sock.settimeout(10)
            sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)  # what a script sends goes at once
            sock = self._context.wrap_socket(sock, server_side=True)
            self._open.append(sock)
            peer = Peer(sock, self._stopped)
            with sock:
                data = b""
                while True:
                    while b"\r\n\r\n" not in data:
                        piece = sock.recv(65536)
                        if not piece:
                            return
                        data += piece
                    head, _, data = data.partition(b"\r\n\r\n")
                    request = Request(head.decode("latin-1"), b"", number)
                    length = int(request.headers.get("content-length", "0"))
                    while len(data) < length:
                        data += sock.recv(65536)
                    request.body, data = data[:length], data[length:]
                    self.requests.append(request)
                    if not self._script(request, peer):
                        return
        except OSError:
            pass  # the client went away, which some tests want


def answer(status: str = "200 OK", body: object = b"", headers: str = "") -> bytes:
    """A whole answer with its length; a body that is no bytes goes as JSON."""
    content = body if isinstance(body, bytes) else json.dumps(body).encode()
    return (f"HTTP/1.1 {status}\r\n{JSON}{headers}Content-Length: {len(content)}\r\n\r\n").encode("latin-1") + content


def session_answer(token: str = "t0ken", number: int = 1) -> bytes:
    location = f"https://controller.test/redfish/v1/SessionService/Sessions/user{number}/"
    return answer("201 Created", {"Id": str(number)}, f"X-Auth-Token: {token}\r\nLocation: {location}\r\n")


def with_sessions(script: Script) -> Script:
    """A script that lets everybody log in and out and leaves the rest to `script`."""

    def serve(request: Request, peer: Peer) -> bool:
        if request.line.startswith("POST"):
            peer.send(session_answer())
            return True
        if request.line.startswith("DELETE"):
            peer.send(answer())
            return True
        return script(request, peer)

    return serve


def opened(module, raw_server, script):
    """Log the module in to a server that runs the script, and give that server."""
    server = raw_server(with_sessions(script))
    assert module.init(server.url, "user", "pass") == 200
    return server


def sending(data):
    """A script that sends the bytes and closes the connection."""
    def script(request, peer):
        peer.send(data)
        return False

    return script
