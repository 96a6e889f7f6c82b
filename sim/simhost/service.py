"""The service's process on a simulated host, in the foreground or detached."""

from __future__ import annotations

import os
import signal
import time
from pathlib import Path
from typing import Dict, List, Mapping, Optional

from .errors import HostError
from .namespace import Namespace, Process, all_processes

_DETACH_SECONDS = 20.0


class Service:
    """One run of the service, from its start to its end."""

    def __init__(self, namespace: Namespace, executable: Path, stand_alone: bool, env: Dict[str, str],
                 folder: Path, limits: Mapping[str, int]) -> None:
        """Starts it; its standard output and error are added to service.out and service.err in `folder`.

        limits   resource limits by their names in prlimit(1): "nofile", "as", "fsize", ...
        A detached service counts as started when its launcher has ended. It may have ended itself by then.
        """
        self._namespace = namespace
        self._executable = executable
        self.stand_alone = stand_alone
        argv = [str(executable)] + (["--stand-alone"] if stand_alone else [])
        if limits:
            # Gives way to the service, so that both are one process.
            argv = ["prlimit", *(f"--{name}={value}" for name, value in limits.items()), *argv]
        before = set(namespace.ended())
        with open(os.devnull, "rb") as nothing, open(folder / "service.out", "ab") as out, \
                open(folder / "service.err", "ab") as err:
            launched = namespace.start(argv, env, nothing.fileno(), out.fileno(), err.fileno())
        if stand_alone:
            self._inner = launched
            self.pid = namespace.outer(launched)
        else:
            self._inner, self.pid = self._detached(launched, before)

    def _detached(self, launcher: int, before: "set[int]") -> "tuple[int, Optional[int]]":
        status = self._namespace.wait(launcher, _DETACH_SECONDS)
        if status is None:
            raise HostError(f"the service did not detach within {_DETACH_SECONDS:.0f} seconds")
        if status != 0:
            return launcher, None  # nothing was detached; the launcher's own status is the service's
        deadline = time.monotonic() + 2
        while True:
            # The keeper adopts a detached process, alive or ended; nothing else is adopted at this moment.
            for process in self._namespace.processes():
                if process.parent == self._namespace.keeper_pid and self._runs_executable(process):
                    return process.inner, process.pid
            adopted = [pid for pid in self._namespace.ended() if pid not in before and pid > launcher]
            if adopted:
                return adopted[0], None
            if time.monotonic() > deadline:
                raise HostError("the service detached, but no process of it can be found")
            time.sleep(0.01)

    def _runs_executable(self, process: Process) -> bool:
        folder = Path(f"/proc/{process.pid}")
        try:
            if os.path.samestat(os.stat(folder / "exe"), os.stat(self._executable)):
                return True
            # A script in the executable's place runs as its interpreter.
            return os.fsencode(self._executable) in (folder / "cmdline").read_bytes().split(b"\0")[:3]
        except OSError:
            return False

    @property
    def running(self) -> bool:
        return self.exit_status(0) is None

    def exit_status(self, timeout: Optional[float]) -> Optional[int]:
        """Exit status, negative for the signal that ended it; None when it still runs after `timeout` seconds."""
        return self._namespace.wait(self._inner, timeout)

    def signal(self, number: int) -> None:
        if self.pid is None or not self.running:
            raise HostError("the service does not run")
        os.kill(self.pid, number)

    def end(self, timeout: float) -> Optional[int]:
        """Asks it to stop as an administrator would; past `timeout` seconds it is killed. Returns its exit status."""
        if self.running:
            self.signal(signal.SIGINT if self.stand_alone else signal.SIGTERM)
            if self.exit_status(timeout) is None:
                self.signal(signal.SIGKILL)
        return self.exit_status(timeout)

    def rss_kib(self) -> int:
        """Resident memory in KiB."""
        for line in self._proc("status").read_text(encoding="ascii", errors="replace").splitlines():
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
        raise HostError("the service has ended and holds no memory any more")

    def descriptors(self) -> Dict[int, str]:
        """Open descriptor -> what it leads to."""
        found = {}
        for entry in os.listdir(self._proc("fd")):
            try:
                found[int(entry)] = os.readlink(self._proc("fd") / entry)
            except FileNotFoundError:
                continue  # closed meanwhile
        return found

    def children(self) -> List[Process]:
        """Its child processes; a state of "Z" is a zombie."""
        return [process for process in all_processes() if process.parent == self.pid]

    def _proc(self, name: str) -> Path:
        if self.pid is None or not self.running:
            raise HostError("the service does not run")
        return Path(f"/proc/{self.pid}/{name}")
