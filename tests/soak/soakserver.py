"""The simulated controller of a run, which may be restarted, and how often it was walked over."""

from __future__ import annotations

from pathlib import Path
from typing import Any, Optional

from expansion import expansion
from soaklogs import Tail
from soakworld import OPTIONS
from watched import HELD, ControllerProcess

_WALK = " GET /redfish/v1/Systems/ "
_IDLE_SECONDS = "120"  # sessions that nobody uses end then


class Server:
    """Restarts look like the same controller to its clients: address, certificate and account stay."""

    def __init__(self, folder: Path) -> None:
        folder.mkdir()
        self._folder = folder
        self._listen = "127.0.0.1:0"
        self._process: Optional[ControllerProcess] = None
        self._requests = Tail(folder / "requests.log")
        self._walks = self._held = 0
        #: Up to the last look at walks(): all requests, and those for collections with their members in place.
        self.requests = self.expanding = 0
        self.most_sessions = 0
        self.start()
        self._listen = f"127.0.0.1:{self.process.port}"

    @property
    def process(self) -> ControllerProcess:
        assert self._process is not None, "the controller is stopped"
        return self._process

    def start(self, **account: str) -> None:
        """Starts it as new: it has forgotten everything that was done to it, its password too unless it is given."""
        self._process = ControllerProcess(*OPTIONS, *expansion().options, "--session-timeout", _IDLE_SECONDS,
                                          listen=self._listen, folder=self._folder, **account).start()

    def stop(self) -> None:
        if self._process is not None:
            self._process.stop()
        self._process = None

    def call(self, verb: str, *arguments: Any) -> Any:
        return self.process.control.call(verb, *arguments)

    def walks(self) -> int:
        """How many walks over the storage have begun; each begins with one request."""
        lines = self._requests.lines()
        self.requests += len(lines)
        self.expanding += sum("?$expand=" in line for line in lines)
        walks = [line for line in lines if _WALK in line]
        self._walks += len(walks)
        self._held += sum(line.endswith(HELD) for line in walks)
        return self._walks

    def held_walks(self) -> int:
        """How many of them were held at their first request."""
        self.walks()
        return self._held

    def sessions(self) -> int:
        """How many sessions are open now."""
        found = int(self.call("counters")["open_sessions"])
        self.call("reset-counters")  # they count each session's own address
        self.most_sessions = max(self.most_sessions, found)
        return found
