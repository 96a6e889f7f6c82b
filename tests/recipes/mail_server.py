"""A mail server for tests: takes every mail over SMTP on port 25 and keeps each in a file of the folder given."""

from __future__ import annotations

import socketserver
import sys
import uuid
from pathlib import Path


class Session(socketserver.StreamRequestHandler):
    """One client; RFC 5321 as far as a log daemon speaks it."""

    def handle(self) -> None:
        self._say("220 mail.example.com")
        while line := self.rfile.readline():
            verb = line.strip().upper()
            if verb.startswith(b"DATA"):
                self._say("354 go ahead")
                self._take()
                self._say("250 taken")
            elif verb.startswith(b"QUIT"):
                self._say("221 bye")
                return
            else:
                self._say("250 fine")

    def _take(self) -> None:
        lines = []
        while (line := self.rfile.readline()) not in (b".\r\n", b""):
            lines.append(line[1:] if line.startswith(b".") else line)
        folder: Path = self.server.folder  # type: ignore[attr-defined]
        part = folder.parent / f"part-{uuid.uuid4()}"
        part.write_bytes(b"".join(lines).replace(b"\r\n", b"\n"))
        part.rename(folder / str(uuid.uuid4()))

    def _say(self, text: str) -> None:
        self.wfile.write(text.encode() + b"\r\n")


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True


if __name__ == "__main__":
    with Server(("127.0.0.1", 25), Session) as server:
        server.folder = Path(sys.argv[1])  # type: ignore[attr-defined]
        server.serve_forever()
