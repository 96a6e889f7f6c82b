"""One run of the real service that watches a simulated controller at its own speed, and what can be measured of it.

    with ControllerProcess(*options, "--latency-ms", "20") as sim, ServiceRun(bin_dir, sim) as run:
        run.measure(5)
        run.stop()
        run.walks, run.cpu_seconds, run.resident_kib, run.start_ms, run.stop_ms

No libfaketime here: what it costs is not the service's. So a run takes its time: 20 seconds until the first walk, and 3,
the least that can be configured, between two.
"""

from __future__ import annotations

import os
import re
import select
import signal
import sys
import time
from dataclasses import dataclass, field
from datetime import datetime, timezone
from pathlib import Path
from typing import Dict, List, Mapping, Optional, Sequence, Set

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "sim"))

from simcontroller.process import ControllerProcess  # noqa: E402 (the packages lie beside the simulator)
from simhost import HostError, SimHost  # noqa: E402

INTERVAL_MS = 3000
QUIET_SECONDS = 0.6  # without a request: the walk has ended
IDLE_SECONDS = 1.5  # of the pause between two walks that is looked at; it ends well before the next walk
START_SECONDS = 120.0
STALL_SECONDS = 60.0
STOP_SECONDS = 60.0
MEDIA_ERROR_SECONDS = 40.0  # its thread begins with a pause of 30 seconds in which it cannot be stopped

_REQUEST = re.compile(r"(?P<time>\S+) (?P<connection>\d+) (?P<method>\S+) (?P<target>\S+) ")
_FIRST = re.compile(r"/redfish/v1/Systems/?(\?.*)?$")
_STARTED = "Service started."
_STAMP = "%Y/%m/%d %H:%M:%S.%f"


@dataclass
class Walk:
    """The requests of one look at the storage, as the controller's request log tells them."""

    begun: float  # when the first request was answered, seconds
    ended: float  # when the last one was
    requests: int = 0
    logins: int = 0
    connections: Set[int] = field(default_factory=set)

    def seconds(self, latency: float) -> float:
        """From its first request to its last answer; `latency` is the time the controller took for the first one."""
        return self.ended - self.begun + latency


def walks_of(lines: Sequence[str]) -> List[Walk]:
    """The walks in a request log, the last one perhaps unfinished. What comes before the first walk is left out."""
    walks: List[Walk] = []
    for line in lines:
        request = _REQUEST.match(line)
        if request is None:
            raise ValueError(f"no line of a request log: {line!r}")
        when = datetime.fromisoformat(request["time"]).timestamp()
        if request["method"] == "GET" and _FIRST.match(request["target"]):
            walks.append(Walk(when, when))
        if walks:
            walk = walks[-1]
            walk.ended = when
            walk.requests += 1
            walk.logins += request["method"] == "POST"
            walk.connections.add(int(request["connection"]))
    return walks


def voluntary_switches(pid: int) -> Dict[int, int]:
    """How often each thread has waited for something since it was started."""
    found = {}
    for thread in Path(f"/proc/{pid}/task").iterdir():
        status = (thread / "status").read_text(encoding="ascii", errors="replace")
        found[int(thread.name)] = int(status.partition("\nvoluntary_ctxt_switches:")[2].split()[0])
    return found


def cpu_seconds(pid: int) -> float:
    """CPU time that a process has used, its ended threads included and its children not."""
    return time.clock_gettime((~pid << 3) | 2)  # the identifier that clock_getcpuclockid() gives


class ServiceRun:
    """The service on a simulated host, from its start to its stop. HostError for what goes wrong."""

    def __init__(self, bin_dir: Path, sim: ControllerProcess, ilo: Optional[Mapping[str, object]] = None,
                 media_errors: bool = False) -> None:
        """ilo: further keys of that section. media_errors: its thread runs too; then measure() waits until it is idle."""
        self._sim = sim
        self._before = len(sim.requests())
        self._host = SimHost(bin_dir, env={"TZ": "UTC"},
                             config={"iLo": {"interval": INTERVAL_MS, "url": sim.url, **(ilo or {})},
                                     "media error": {"check": "true" if media_errors else "false"}})
        self._idle_after = MEDIA_ERROR_SECONDS if media_errors else 0.0
        self._begun = self.start_ms = 0.0
        self.stop_ms = 0.0
        self.resident_kib = 0
        self.first: Optional[Walk] = None  # which finds out what the controller can do
        self.walks: List[Walk] = []  # behind that
        self.cpu_seconds: List[float] = []  # of each walk but the first
        self.idle_wakeups: List[int] = []  # of the thread with the most, in the looked-at part of each pause
        self.other_wakeups = 0.0  # per interval, of the thread with the most but for the one that walks

    def __enter__(self) -> "ServiceRun":
        try:
            self._start()
        except BaseException:
            self._host.stop()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self._host.stop()

    def _start(self) -> None:
        registered = self._host.run(["baywardctl", "account", "set", self._sim.account], stdin=self._sim.password + "\n")
        if registered.returncode != 0:
            raise HostError(f"baywardctl: {registered.stderr.strip()}")
        self._begun = begun = time.time()
        self._host.start_service(stand_alone=False)
        line = self._host.wait_trace(_STARTED, START_SECONDS)
        # The stamp is cut to whole milliseconds; what the simulated host takes to start a process is counted.
        stamp = datetime.strptime(" ".join(line.split()[:2]), _STAMP).replace(tzinfo=timezone.utc).timestamp()
        self.start_ms = (stamp - begun) * 1000 + 1

    def measure(self, walks: int) -> None:
        """Lets it make so many walks after the first one, which finds out what the controller can do."""
        pid = self._pid()
        time.sleep(max(0.0, self._begun + self._idle_after - time.time()))
        first = done = self._wait_pause(1)
        used, switches = cpu_seconds(pid), voluntary_switches(pid)
        while done < first + walks:
            self._watch_idle(pid)
            number, now = self._wait_pause(done + 1), cpu_seconds(pid)
            self.cpu_seconds.append((now - used) / (number - done))  # a busy machine may miss a pause
            done, used = number, now
        ended = voluntary_switches(pid)
        per_thread = sorted(ended[thread] - switches.get(thread, 0) for thread in ended)
        self.other_wakeups = per_thread[-2] / (done - first)
        all_walks = walks_of(self._requests())
        self.first, self.walks = all_walks[0], all_walks[first:done]
        if not self.idle_wakeups:
            raise HostError("this machine is too busy: no pause between two walks could be watched")
        self.resident_kib = self._host.rss_kib()

    def stop(self) -> None:
        """Stops it as an administrator would, while it waits for its next walk."""
        self._wait_pause(1)
        process = os.pidfd_open(self._pid())
        try:
            begun = time.monotonic()
            self._host.signal(signal.SIGTERM)
            if not select.select([process], [], [], STOP_SECONDS)[0]:
                raise HostError(f"the service does not stop\n{self._host.report()}")
            self.stop_ms = (time.monotonic() - begun) * 1000
        finally:
            os.close(process)
        status = self._host.wait_exit()
        if status != 0:
            raise HostError(f"the service ended with status {status}\n{self._host.report()}")

    def _pid(self) -> int:
        if self._host.pid is None:
            raise HostError(f"the service has ended\n{self._host.report()}")
        return self._host.pid

    def _requests(self) -> List[str]:
        return self._sim.requests()[self._before:]

    def _wait_pause(self, walks: int) -> int:
        """Waits until so many walks have ended and returns how many there are."""
        deadline = time.monotonic() + START_SECONDS
        seen = -1
        while True:
            lines = self._requests()
            found = walks_of(lines)
            quiet = bool(found) and time.time() - found[-1].ended
            if len(found) >= walks and QUIET_SECONDS <= quiet < QUIET_SECONDS + 0.5:
                return len(found)
            if len(lines) != seen:
                seen, deadline = len(lines), max(deadline, time.monotonic() + STALL_SECONDS)
            if not self._host.running or time.monotonic() > deadline:
                raise HostError(f"the service made {len(found)} of {walks} walks\n{self._host.report()}")
            time.sleep(0.05)

    def _watch_idle(self, pid: int) -> None:
        before, requests = voluntary_switches(pid), len(self._requests())
        time.sleep(IDLE_SECONDS)
        after = voluntary_switches(pid)
        # Else this machine is so busy that the pause was over, or that it was none: a walk had come to a halt.
        if len(self._requests()) == requests:
            self.idle_wakeups.append(max(after[thread] - before.get(thread, 0) for thread in after))
