#!/usr/bin/python3
"""The yardstick of the service's walks: a plain client that reads the same storage resources one after the other.

    reference-walk.py URL ACCOUNT PASSWORD [--walks N]

One kept-alive connection, nothing but http.client and json; the certificate is not verified. Prints one JSON object: the
requests, wall-clock seconds and CPU seconds of one walk, on average over N (1), without log-in and log-out.
"""

from __future__ import annotations

import argparse
import http.client
import json
import ssl
import sys
import time
from typing import Any, Dict, List
from urllib.parse import urlsplit

SESSIONS = "/redfish/v1/SessionService/Sessions/"
MISSING = "ResourceMissingAtURI"


class Client:
    """A session with a controller."""

    def __init__(self, url: str, account: str, password: str) -> None:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        self._connection = http.client.HTTPSConnection(urlsplit(url).netloc, timeout=60, context=context)
        self._headers = {"Content-Type": "application/json", "Accept": "application/json"}
        self.requests = 0
        response, _ = self._ask("POST", SESSIONS, json.dumps({"UserName": account, "Password": password}))
        if response.status != 201:
            raise RuntimeError(f"the log-in got status {response.status}")
        self._headers["X-Auth-Token"] = response.getheader("X-Auth-Token", "")
        self._session = urlsplit(response.getheader("Location", "")).path

    def get(self, path: str) -> Dict[str, Any]:
        """The resource; nothing for one that is not there."""
        self.requests += 1
        response, text = self._ask("GET", path)
        if response.status == 404 and MISSING.encode() in text:
            return {}
        if response.status != 200:
            raise RuntimeError(f"{path} got status {response.status}")
        return json.loads(text)

    def members(self, path: str) -> List[str]:
        return links(self.get(path).get("Members", []))

    def close(self) -> None:
        self._ask("DELETE", self._session)
        self._connection.close()

    def _ask(self, method: str, path: str, body: str = "") -> Any:
        self._connection.request(method, path, body or None, self._headers)
        response = self._connection.getresponse()
        return response, response.read()


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
    args = parser.parse_args()
    if args.walks < 1:
        parser.error("--walks is at least 1")
    try:
        client = Client(args.url, args.account, args.password)
        begun, used = time.perf_counter(), time.process_time()
        for _ in range(args.walks):
            walk(client)
        wall, cpu = time.perf_counter() - begun, time.process_time() - used
        client.close()
    except (OSError, http.client.HTTPException, RuntimeError, ValueError, KeyError) as error:
        print(f"reference-walk: {error}", file=sys.stderr)
        return 1
    print(json.dumps({"walks": args.walks, "requests": client.requests / args.walks,
                      "wall_seconds": wall / args.walks, "cpu_seconds": cpu / args.walks}))
    return 0


if __name__ == "__main__":
    sys.exit(main())
