"""The other end of the control socket, for tests, players and simctl."""

from __future__ import annotations

import json
import socket
from typing import Any

from .errors import Failure, UseError


class ControlClient:
    """Sends verbs to a running controller: `client.call("fail-drive", 1, 2)`.

    Each call is one connection, so a client may be used from several threads. Wrong use raises UseError,
    anything else that fails raises Failure; both say in one sentence what to do.
    """

    def __init__(self, path: str, timeout: float = 10.0) -> None:
        self.path = path
        self._timeout = timeout

    def call(self, verb: str, *args: Any) -> Any:
        """Carry a verb out and return its result. Text is read as on the command line, other values as they are."""
        try:
            with socket.socket(socket.AF_UNIX) as connection:
                connection.settimeout(self._timeout)
                connection.connect(self.path)
                connection.sendall(json.dumps({"verb": verb, "args": list(args)}).encode("utf-8") + b"\n")
                with connection.makefile("rb") as stream:
                    line = stream.readline()
        except OSError as error:
            raise Failure(f"No controller answers on the control socket {self.path} ({error}); "
                          "start it with --control and this path.") from error
        if not line:
            raise Failure(f"The controller on {self.path} ended before it replied to {verb}; look at its messages.")
        reply = json.loads(line.decode("utf-8"))
        if reply["ok"]:
            return reply["result"]
        raise (UseError if reply["kind"] == "use" else Failure)(reply["error"])
