"""A private set of namespaces with a keeper process inside, and the processes that run there."""

from __future__ import annotations

import json
import os
import shutil
import signal
import socket
import subprocess
import threading
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Dict, Iterator, List, Optional, Sequence

from .errors import HostError

_KEEPER = Path(__file__).with_name("keeper.py")
_PYTHON = "/usr/bin/python3"
_PACKET = 1 << 17
_READY_SECONDS = 20.0
_END_SECONDS = 10.0


def _unshare_command() -> List[str]:
    command = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--propagation", "private"]
    return command if os.geteuid() == 0 else command + ["--user", "--map-root-user"]


def why_no_namespaces() -> Optional[str]:
    """None when this machine allows what a simulated host needs, else one sentence that says what to do."""
    if shutil.which("unshare") is None:
        return "The program unshare is missing; install the package util-linux."
    answer = subprocess.run(_unshare_command() + ["mount", "-t", "tmpfs", "tmpfs", "/mnt"], stdin=subprocess.DEVNULL,
                            capture_output=True, text=True, check=False)
    if answer.returncode == 0:
        return None
    reason = (answer.stderr.strip().splitlines() or ["no reason given"])[-1]
    if os.geteuid() == 0:
        return (f"This machine forbids private mount namespaces even to root ({reason}); "
                "run outside the container, or give the container the right CAP_SYS_ADMIN.")
    return f"This machine forbids user namespaces ({reason}); run as root, for example with sudo."


@dataclass(frozen=True)
class Process:
    """One process of a host. `pid` is its number outside, `inner` the one it has inside."""
    pid: int
    inner: int
    parent: int
    name: str
    state: str  # one letter as in /proc; "Z" is a zombie


def _status(pid: int) -> Optional[Dict[str, str]]:
    try:
        text = Path(f"/proc/{pid}/status").read_text(encoding="utf-8", errors="replace")
    except OSError:
        return None
    return dict(line.split(":", 1) for line in text.splitlines() if ":" in line)


def all_processes() -> Iterator[Process]:
    """Every process of the machine that still exists when it is looked at."""
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        status = _status(int(entry))
        if status is not None:
            numbers = status.get("NSpid", entry).split()
            yield Process(int(entry), int(numbers[-1]), int(status["PPid"]), status["Name"].strip(),
                          status["State"].split()[0])


class Namespace:
    """Lives from construction to `close`. Any thread may use it."""

    def __init__(self, work: Path, addresses: Sequence[str] = ()) -> None:
        """Makes the namespaces and mounts the folders that hosttree.make_folders laid out in `work`.

        With `addresses` the host also gets a network of its own: loopback with these addresses and nothing else.
        """
        self._changed = threading.Condition()
        self._request_lock = threading.Lock()
        self._answers: List[Dict[str, Any]] = []
        self._ended: Dict[int, int] = {}
        self._gone = False
        self._control, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        network = ["--net"] if addresses else []
        with theirs:
            # A session of its own: Ctrl+C at the terminal reaches the test alone, which then ends the host in order.
            self._unshare = subprocess.Popen(
                _unshare_command() + network + [_PYTHON, "-I", "-B", str(_KEEPER), str(theirs.fileno())],
                pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                stderr=subprocess.PIPE, start_new_session=True)
        self._reader = threading.Thread(target=self._read_reports, name="simhost-reports", daemon=True)
        self._reader.start()
        try:
            self._request({"work": str(work), "addresses": list(addresses)})
            self._keeper = self._find_keeper()
        except BaseException:
            self.close()
            raise

    def _find_keeper(self) -> Process:
        for process in all_processes():
            if process.parent == self._unshare.pid:
                return process
        raise HostError("the simulated host ended while it started")

    def _read_reports(self) -> None:
        while True:
            try:
                packet = self._control.recv(_PACKET)
            except OSError:
                packet = b""
            with self._changed:
                if not packet:
                    self._gone = True
                else:
                    report = json.loads(packet)
                    if "ended" in report:
                        self._ended[report["ended"]] = report["status"]
                    else:
                        self._answers.append(report)
                self._changed.notify_all()
            if not packet:
                return

    def _request(self, request: Dict[str, Any], streams: Sequence[int] = ()) -> Dict[str, Any]:
        with self._request_lock:
            try:
                socket.send_fds(self._control, [json.dumps(request).encode()], list(streams))
            except OSError as error:
                raise HostError(f"the simulated host is gone{self._last_words()}") from error
            with self._changed:
                if not self._changed.wait_for(lambda: self._answers or self._gone, _READY_SECONDS):
                    raise HostError("the simulated host does not answer")
                if not self._answers:
                    raise HostError(f"the simulated host is gone{self._last_words()}")
                answer = self._answers.pop(0)
        if "error" in answer:
            raise HostError(answer["error"])
        return answer

    def _last_words(self) -> str:
        try:
            _, errors = self._unshare.communicate(timeout=2)
        except subprocess.TimeoutExpired:
            return ""
        lines = errors.decode(errors="replace").strip().splitlines() if errors else []
        return f": {lines[-1]}" if lines else ""

    def start(self, argv: Sequence[str], env: Dict[str, str], stdin: int, stdout: int, stderr: int) -> int:
        """Starts a program with the three descriptors as its standard streams. Returns its inner process id."""
        answer = self._request({"argv": list(argv), "env": env}, [stdin, stdout, stderr])
        return int(answer["started"])

    def wait(self, inner: int, timeout: Optional[float]) -> Optional[int]:
        """Exit status (negative: the signal that ended it) of a process, or None when it has not ended in time.

        What still ran when the host ended was killed with it.
        """
        with self._changed:
            self._changed.wait_for(lambda: inner in self._ended or self._gone, timeout)
            return self._ended.get(inner, -signal.SIGKILL if self._gone else None)

    def ended(self) -> Dict[int, int]:
        """Inner process id -> exit status, of every process that ended as a child of the keeper, oldest first."""
        with self._changed:
            return dict(self._ended)

    def processes(self) -> List[Process]:
        """Every process of the host but the keeper."""
        mine = os.readlink(f"/proc/{self._keeper.pid}/ns/pid")
        found = []
        for process in all_processes():
            try:
                if process.inner != 1 and os.readlink(f"/proc/{process.pid}/ns/pid") == mine:
                    found.append(process)
            except OSError:
                continue  # it ended, or it is somebody else's
        return found

    def outer(self, inner: int, timeout: float = 2.0) -> Optional[int]:
        """The outer number of a process, or None when there is no such process (any more)."""
        deadline = time.monotonic() + timeout
        while inner not in self.ended():
            for process in self.processes():
                if process.inner == inner:
                    return process.pid
            if time.monotonic() > deadline:
                break
        return None

    @property
    def keeper_pid(self) -> int:
        """Outer process id of the keeper; the parent of everything that was started or adopted."""
        return self._keeper.pid

    def path(self, inner_path: str) -> Path:
        """A path of the host as it can be opened from outside while the host lives."""
        return Path(f"/proc/{self._keeper.pid}/root{inner_path}")

    def close(self) -> None:
        """Ends every process of the host and waits until they are gone. May be called again."""
        try:
            self._control.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        try:
            self._unshare.wait(_END_SECONDS)
        except subprocess.TimeoutExpired:
            self._unshare.kill()  # takes the keeper along, and the kernel the rest
            self._unshare.wait()
        self._reader.join()
        self._control.close()
        if self._unshare.stderr is not None:
            self._unshare.stderr.close()
