"""A plain REST client for the tests of the simulated controller: one kept-alive TLS connection."""

from __future__ import annotations

import http.client
import json
import ssl
import sys
from pathlib import Path
from typing import Any, Dict, List, NamedTuple, Optional

SIM = Path(__file__).resolve().parents[2] / "sim"
sys.path.insert(0, str(SIM))

from simcontroller.process import ControllerProcess  # noqa: E402 (found through the line above)

SESSIONS = "/redfish/v1/SessionService/Sessions/"
SYSTEM = "/redfish/v1/Systems/1/"
ARRAY = SYSTEM + "SmartStorage/ArrayControllers/0/"
RAID = SYSTEM + "Storage/DE00A000/"


class Reply(NamedTuple):
    status: int
    headers: Dict[str, str]
    body: bytes

    @property
    def json(self) -> Any:
        return json.loads(self.body.decode("utf-8"))

    @property
    def message_id(self) -> str:
        return self.json["error"]["@Message.ExtendedInfo"][0]["MessageId"]


class Rest:
    """Asks a controller, verifying its certificate."""

    def __init__(self, sim: ControllerProcess, timeout: float = 5.0) -> None:
        self._sim = sim
        self._connection = http.client.HTTPSConnection(
            "127.0.0.1", sim.port, timeout=timeout, context=ssl.create_default_context(cafile=sim.ca))
        self.token: Optional[str] = None

    def ask(self, method: str, path: str, body: Any = None) -> Reply:
        headers = {"X-Auth-Token": self.token} if self.token else {}
        text = body if body is None or isinstance(body, (str, bytes)) else json.dumps(body)
        self._connection.request(method, path, body=text, headers=headers)
        answer = self._connection.getresponse()
        return Reply(answer.status, dict(answer.getheaders()), answer.read())

    def get(self, path: str) -> Reply:
        return self.ask("GET", path)

    def login(self, account: Optional[str] = None, password: Optional[str] = None) -> Reply:
        """Log in, and use the session from now on when there is one."""
        reply = self.ask("POST", SESSIONS, {"UserName": account or self._sim.account,
                                            "Password": password or self._sim.password})
        self.token = reply.headers.get("X-Auth-Token", self.token)
        return reply

    def links(self, path: str, member: str = "Members") -> List[str]:
        return [link["@odata.id"] for link in self.get(path).json[member]]

    def close(self) -> None:
        self._connection.close()
