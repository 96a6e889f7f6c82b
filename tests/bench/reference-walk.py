#!/usr/bin/python3
"""The yardstick of the service's walks: a plain client that reads the same storage resources one after the other.

    reference-walk.py URL ACCOUNT PASSWORD [--walks N] [--client http.client|requests|sushy]

One kept-alive connection, nothing but http.client and json unless a library is named; the certificate is not verified. Prints one JSON object: the
requests, wall-clock seconds and CPU seconds of one walk, medians over N (1), without log-in and log-out.
"""

from __future__ import annotations

import argparse
import http.client
import json
import ssl
import sys
import time
from statistics import median
from typing import Any, Dict, List, Tuple
from urllib.parse import urlsplit

SESSIONS = "/redfish/v1/SessionService/Sessions/"
MISSING = "ResourceMissingAtURI"


class Plain:
    """A session with a controller over http.client."""

    def __init__(self, url: str, account: str, password: str) -> None:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        self._connection = http.client.HTTPSConnection(urlsplit(url).netloc, timeout=60, context=context)
        self._headers = {"Content-Type": "application/json", "Accept": "application/json"}
        response, _ = self._ask("POST", SESSIONS, json.dumps({"UserName": account, "Password": password}))
        if response.status != 201:
            raise RuntimeError(f"the log-in got status {response.status}")
        self._headers["X-Auth-Token"] = response.getheader("X-Auth-Token", "")
        self._session = urlsplit(response.getheader("Location", "")).path

    def get(self, path: str) -> Tuple[int, bytes]:
        response, text = self._ask("GET", path)
        return response.status, text

    def close(self) -> None:
        self._ask("DELETE", self._session)
        self._connection.close()

    def _ask(self, method: str, path: str, body: str = "") -> Any:
        self._connection.request(method, path, body or None, self._headers)
        response = self._connection.getresponse()
        return response, response.read()


class Requests:
    """The same over the library requests."""

    def __init__(self, url: str, account: str, password: str) -> None:
        import requests  # pylint: disable=import-outside-toplevel

        self._url = url
        self._session = requests.Session()
        self._session.verify = False
        self._session.trust_env = False
        requests.packages.urllib3.disable_warnings()
        answer = self._session.post(url + SESSIONS, json={"UserName": account, "Password": password}, timeout=60)
        if answer.status_code != 201:
            raise RuntimeError(f"the log-in got status {answer.status_code}")
        self._session.headers["X-Auth-Token"] = answer.headers["X-Auth-Token"]
        self._at = urlsplit(answer.headers["Location"]).path

    def get(self, path: str) -> Tuple[int, bytes]:
        answer = self._session.get(self._url + path, timeout=60)
        return answer.status_code, answer.content

    def close(self) -> None:
        self._session.delete(self._url + self._at, timeout=60)
        self._session.close()


class Sushy:
    """The same over the library sushy: its connector, which logs in and knows the errors of Redfish."""

    def __init__(self, url: str, account: str, password: str) -> None:
        import requests  # pylint: disable=import-outside-toplevel
        import sushy.connector  # pylint: disable=import-outside-toplevel

        requests.packages.urllib3.disable_warnings()
        self._missing = sushy.exceptions.ResourceNotFoundError
        self._auth = sushy.auth.SessionAuth(account, password)
        self._connector = sushy.connector.Connector(url, verify=False)
        # Variables such as REQUESTS_CA_BUNDLE would have the certificate verified all the same.
        self._connector._session.trust_env = False  # pylint: disable=protected-access
        sushy.Sushy(url, auth=self._auth, connector=self._connector)  # logs in

    def get(self, path: str) -> Tuple[int, bytes]:
        try:
            answer = self._connector.get(path)
        except self._missing:
            return 404, MISSING.encode()
        return answer.status_code, answer.content

    def close(self) -> None:
        self._auth.close()


CLIENTS = {"http.client": Plain, "requests": Requests, "sushy": Sushy}


class Client:
    """Reads resources and counts the requests."""

    def __init__(self, session: Any) -> None:
        self._session = session
        self.requests = 0

    def get(self, path: str) -> Dict[str, Any]:
        """The resource; nothing for one that is not there."""
        self.requests += 1
        status, text = self._session.get(path)
        if status == 404 and MISSING.encode() in text:
            return {}
        if status != 200:
            raise RuntimeError(f"{path} got status {status}")
        return json.loads(text)

    def members(self, path: str) -> List[str]:
        return links(self.get(path).get("Members", []))


def links(items: List[Dict[str, str]]) -> List[str]:
    return [item["@odata.id"] for item in items]


def below(path: str, name: str) -> str:
    return f"{path.rstrip('/')}/{name}"


def walk(client: Client) -> None:
    """Every storage resource of every system, in the order in which the service reads them."""
    for system in client.members("/redfish/v1/Systems/"):
        for storage in client.members(below(system, "Storage/")):
            walk_storage(client, client.get(storage))
        for controller in client.members(below(system, "SmartStorage/ArrayControllers/")):
            client.get(controller)
            for volume in client.members(below(controller, "LogicalDrives/")):
                client.get(volume)
                client.get(below(volume, "DataDrives/"))
            for drive in client.members(below(controller, "DiskDrives/")):
                client.get(drive)


def walk_storage(client: Client, storage: Dict[str, Any]) -> None:
    if "StorageControllers" not in storage and "Controllers" in storage:
        for controller in client.members(storage["Controllers"]["@odata.id"])[:1]:
            client.get(controller)
    if "Volumes" in storage:
        for volume in client.members(storage["Volumes"]["@odata.id"]):
            client.get(volume)
    for drive in links(storage.get("Drives", [])):
        client.get(drive)


def main() -> int:
    parser = argparse.ArgumentParser(description="Reads a controller's storage resources one after the other.")
    parser.add_argument("url")
    parser.add_argument("account")
    parser.add_argument("password")
    parser.add_argument("--walks", type=int, default=1, metavar="N", help="default: 1")
    parser.add_argument("--client", choices=CLIENTS, default="http.client", help="what asks (default: http.client)")
    args = parser.parse_args()
    if args.walks < 1:
        parser.error("--walks is at least 1")
    try:
        session = CLIENTS[args.client](args.url, args.account, args.password)
        client = Client(session)
        asked, walls, cpus = [], [], []
        for _ in range(args.walks):
            before, begun, used = client.requests, time.perf_counter(), time.process_time()
            walk(client)
            cpus.append(time.process_time() - used)
            walls.append(time.perf_counter() - begun)
            asked.append(client.requests - before)
        session.close()
    except (OSError, http.client.HTTPException, RuntimeError, ValueError, KeyError) as error:
        print(f"reference-walk: {error}", file=sys.stderr)
        return 1
    print(json.dumps({"walks": args.walks, "requests": median(asked), "wall_seconds": median(walls),
                      "cpu_seconds": median(cpus)}))
    return 0


if __name__ == "__main__":
    sys.exit(main())
