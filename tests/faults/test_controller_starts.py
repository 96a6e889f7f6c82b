"""Controllers that restart, get another certificate, give their address away, or take minutes to start."""

import contextlib
import json
import re
import shutil
import socket
import struct
import threading
from pathlib import Path
from typing import Any, Callable, Iterator, List

import pytest
from troubled import ARRAY, BACK, DRIVES, FAILED, MONITORED, SERVER, SPEED, Troubled
from watched import ControllerProcess, Watched, smart_disk, wait_until

LOG_IN = "POST /redfish/v1/SessionService/Sessions/"
SYSTEM = "/redfish/v1/Systems/1"
NO_MEMBERS = "reader: JSON Parsing failed - provided NVP (Members) not found"


class Restarted:
    """A controller that goes away and comes back at the same address; its remote control stays where it is, too."""

    def __init__(self, start: Callable[..., ControllerProcess], folder: Path) -> None:
        self._start = start
        self._folder = folder
        self.sim = start(*SERVER, folder=folder)

    def stop(self) -> None:
        self.sim.stop()

    def change_certificate(self) -> None:
        for path in self._folder.glob("controller-*"):
            path.unlink()

    def start(self) -> None:
        self._start(*SERVER, folder=self._folder, listen=f"127.0.0.1:{self.sim.port}")


@pytest.fixture
def controller(start_sim: Callable, tmp_path_factory: pytest.TempPathFactory) -> Restarted:
    return Restarted(start_sim, tmp_path_factory.mktemp("sim"))


# ---- Restarts and certificates ----

def test_restart_between_two_walks_is_not_seen(controller: Restarted, watch: Callable[..., Watched]) -> None:
    """Without a CA file the new certificate does not matter. A drive that fails meanwhile is reported once."""
    # Eight seconds of the machine's time from walk to walk, in which the controller restarts.
    service = Troubled(watch(controller.sim, speed=SPEED, config={"iLo": {"interval": 80000}}).start())

    def wait_walked(times: int) -> None:
        drives = "ssdEnduranceUtilizationPercentage="
        wait_until(lambda: service.watched.count_line(drives) >= times * DRIVES, f"{times} walks to their end", 60,
                   service.watched.host)

    wait_walked(2)
    service.begin()
    controller.stop()
    controller.change_certificate()
    controller.start()
    service.call("fail-drive", 1, 3)
    service.watched.expect(smart_disk(3).failed, walks=0, timeout=60)
    wait_walked(4)
    service.watched.expect(walks=0)
    assert service.said() == []
    assert service.watched.counters()["logins"] == 1


def test_certificate_that_changes_is_trusted_with_its_ca_file_alone(controller: Restarted, tmp_path: Path,
                                                                    watch: Callable[..., Watched]) -> None:
    trusted = tmp_path / "ca.pem"
    shutil.copy(controller.sim.ca, trusted)
    service = Troubled(watch(controller.sim, speed=SPEED, config={"iLo": {"ca file": trusted}}).start().wait_baseline())
    service.assert_next_failure_is_reported_once()
    service.begin()
    controller.stop()
    controller.change_certificate()
    controller.start()
    distrust = re.compile(r"module: \{url\}: The controller's certificate is not trusted: .+; check the CA file and the URL.")
    wait_until(lambda: len(list(filter(distrust.fullmatch, service.said()))) >= 3, "refusals", 60, service.watched.host)
    assert service.watched.counters()["total"] == 0  # nobody without trust is told the account

    shutil.copy(controller.sim.ca, trusted)
    service.wait_back()
    said = service.said()
    reasons = said[:-1:2]
    assert said == [line for reason in reasons for line in (reason, FAILED)] + [BACK]
    assert all(reason.startswith("module: ") for reason in reasons)
    service.assert_next_failure_is_reported_once()
    assert service.open_sessions() == 1


# ---- Something else at the controller's address ----

def keep_silent(peer: socket.socket) -> None:
    while peer.recv(4096):
        pass


def reset(peer: socket.socket) -> None:
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def speak_plainly(peer: socket.socket) -> None:
    peer.recv(4096)
    peer.sendall(b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n")


def alert(peer: socket.socket) -> None:
    peer.recv(4096)
    peer.sendall(b"\x15\x03\x03\x00\x02\x02\x28")  # fatal: handshake failure


def babble(peer: socket.socket) -> None:
    peer.sendall(bytes(range(256)) * 4096)


@contextlib.contextmanager
def impostor(port: int, answer: Callable[[socket.socket], None]) -> Iterator[None]:
    """Answers every connection to the port with a function."""
    listener = socket.create_server(("127.0.0.1", port))
    open_peers: List[socket.socket] = []

    def serve(peer: socket.socket) -> None:
        with peer, contextlib.suppress(OSError):
            answer(peer)

    def accept() -> None:
        with contextlib.suppress(OSError):
            while True:
                peer, _ = listener.accept()
                open_peers.append(peer)
                threading.Thread(target=serve, args=(peer,), daemon=True).start()

    accepting = threading.Thread(target=accept, daemon=True)
    accepting.start()
    try:
        yield
    finally:
        for end in (listener, *open_peers):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)  # wakes who waits on it
            end.close()
        accepting.join(5)


def test_whatever_else_answers_at_its_address_is_outlived(controller: Restarted, watch: Callable[..., Watched]) -> None:
    service = Troubled(watch(controller.sim, speed=SPEED).start().wait_baseline())
    service.assert_next_failure_is_reported_once()
    descriptors = len(service.watched.host.descriptors())
    service.begin()
    controller.stop()
    for answer in (keep_silent, reset, speak_plainly, alert, babble):
        with impostor(controller.sim.port, answer):
            service.wait_said(FAILED, service.said().count(FAILED) + 2)
    controller.start()
    service.wait_back()
    said = service.said()
    assert said == [FAILED] * (len(said) - 1) + [BACK]
    service.assert_next_failure_is_reported_once()
    assert len(service.watched.host.descriptors()) <= descriptors
    assert service.open_sessions() == 1


# ---- Power-on ----

def test_controller_that_takes_minutes_to_start_is_watched_in_the_end(controller: Restarted,
                                                                      watch: Callable[..., Watched]) -> None:
    """Nobody, log-ins that are refused, resources that are not ready one after the other. None of it is an event."""
    failed = "<VK0911> [ER] Failed to initialize RaidManager. : retry count="
    controller.stop()
    service = Troubled(watch(controller.sim, speed=20).start())

    def wait_passes(number: int) -> None:
        count = sum(failed in line for line in service.said())
        service.watched.wait_line(failed, 60, count + number)

    def asked(request: str) -> Any:
        return service.watched.counters()["requests"].get(request, 0)

    wait_passes(2)
    controller.start()
    service.call("not-ready", "*", "forever")
    service.call("fail-drive", 1, 4)  # before anybody watches
    wait_passes(2)
    assert asked(LOG_IN) >= 2
    service.call("session-limit", 0)
    service.call("clear-faults")
    wait_passes(1)  # others have taken all sessions
    service.call("not-ready", "GET *", "forever")
    service.call("session-limit", 16)
    wait_passes(2)
    assert asked("GET /redfish/v1/Managers/") >= 5  # with ten seconds between two of them
    service.call("clear-faults")
    service.call("not-ready", "GET */ArrayControllers*", "forever")
    service.call("missing", f"GET {SYSTEM}/Storage", 2)
    wait_until(lambda: asked(f"GET {ARRAY[:-2]}/") >= 3, "a walk that waits", 60, service.watched.host)
    service.call("clear-faults")
    service.watched.wait_line(MONITORED, 60)
    service.watched.wait_baseline()

    said = service.said()
    numbers = [int(line[len(failed):]) for line in said if line.startswith(failed)]
    assert said[-1] == MONITORED and len(numbers) >= 7
    assert numbers == sorted(set(numbers)) and numbers[-1] < 20
    assert service.open_sessions() == 1
    service.assert_next_failure_is_reported_once()


@pytest.fixture(scope="module")
def service(start_file_sim: Callable, watch_file: Callable) -> Troubled:
    return Troubled(watch_file(start_file_sim(*SERVER), speed=SPEED).start().wait_baseline())


def test_resources_that_are_not_ready_for_minutes(service: Troubled) -> None:
    """As after a restart of the controller while the server runs: cycles fail, and then one log-in brings all back."""
    service.begin()
    with service.watched.held():
        service.call("not-ready", "GET *", "forever")
    service.wait_said(FAILED, 3)
    service.call("clear-faults")
    service.wait_back()
    said = service.said()
    assert said == [NO_MEMBERS, FAILED] * said.count(FAILED) + [BACK]
    assert service.open_sessions() == 1
    service.assert_next_failure_is_reported_once()


def test_drives_that_come_after_their_server(service: Troubled) -> None:
    """A system that does not link to its storage yet has none: no drive is missed, what then comes is new."""
    system = service.call("get", SYSTEM)
    del system["Oem"]["Hpe"]["Links"]["SmartStorage"]

    def hide() -> None:
        with service.watched.held():
            service.call("body", f"GET {SYSTEM}", json.dumps(system), "forever")
            service.call("missing", "GET */SmartStorage/*", "forever")
        service.wait_walks(2)

    def show() -> None:
        with service.watched.held():
            service.call("clear-faults")

    service.begin()
    hide()
    show()
    service.watched.expect(walks=2)  # healthy ones come in silence
    hide()
    service.call("fail-drive", 1, 4)
    show()
    service.watched.expect(smart_disk(4).failed)
    service.call("heal-drive", 1, 4)
    service.wait_walks()
    assert service.said() == []
    service.assert_next_failure_is_reported_once()
