#!/usr/bin/python3
"""Runs the whole system for thousands of looks at a server that changes and fails, and checks what it promises.

    soak.py --bin build/release/bin [CYCLES] [--seed N] [--expansion on|off|ignored|refused]

The real service on a simulated host, its clock running faster, watches a simulated controller over TLS and both RAID
tools, with a real rsyslogd. What is done to them follows from the seed. Exit status 1: a promise was broken; which one
stands in the output with the lines of the trace log around it.
"""

from __future__ import annotations

import argparse
import os
import random
import signal
import sys
import tempfile
import time
from collections import Counter
from contextlib import ExitStack
from pathlib import Path
from typing import Dict, List, Optional, Sequence, Tuple

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests/e2e"), str(ROOT / "sim")]

from expansion import EXPANSIONS, VARIABLE  # noqa: E402 (the packages lie elsewhere in the tree)
from soaklogs import Journal, Tail, Violation  # noqa: E402
from soakmedium import MediumErrors  # noqa: E402
from soakmodule import ModuleLoads  # noqa: E402
from soakrounds import Rounds  # noqa: E402
from soakserver import Server  # noqa: E402
from soakvitals import ARCHIVES, LOG_KIB, Vitals  # noqa: E402
from soakworld import known_events  # noqa: E402
from tooled import Tooled  # noqa: E402
from watched import LOGIN_FAILED  # noqa: E402

from simcontroller.errors import Failure  # noqa: E402
from simhost import HostError, WaitTimeout, missing  # noqa: E402

SPEEDS = (1, 50)  # above, the time limits of the helper module become milliseconds
PLACED_ARCHIVES = 12
WARM_CYCLES = 500
STOP_SECONDS = 120.0


class Run:
    """One run, from the host's start to the service's end."""

    def __init__(self, cycles: int, seed: int, speed: float, stack: ExitStack) -> None:
        self._cycles = cycles
        self._begun = time.monotonic()
        folder = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="bayward-soak-")))
        self.server = Server(folder / "sim")
        stack.callback(self.server.stop)
        sim = self.server.process
        self.watched = stack.enter_context(Tooled(
            None, speed=speed, interval=2, clock=True, url=sim.url, account=(sim.account, sim.password),
            tools_folder=folder / "tools", config={
                "log file": {"max log size": LOG_KIB}, "iLO host": {"report": "true"},
                "iLo": {"url": sim.url, "interval": 3000, "ca file": sim.ca},
                "serial log": {"interval": 60, "max file count": ARCHIVES}}))
        host = self.watched.host
        self.journal = Journal(Tail(host.log_dir / "bayward.log", host.log_dir / "bayward.log.bak"),
                               Tail(host.work / "syslog/messages"), [*known_events(), LOGIN_FAILED])
        self.medium = MediumErrors(self.watched.tools, Tail(folder / "tools/commands.log"), self.journal,
                                   random.Random(f"medium errors {seed}"))
        self.loads = ModuleLoads(host.runtime)
        stack.callback(self.loads.close)
        self.vitals = Vitals(self.watched, self.journal, PLACED_ARCHIVES)
        self.rounds = Rounds(self.watched, self.server, self.journal, self.vitals, self.medium, self.loads,
                             random.Random(seed), speed, min(WARM_CYCLES, cycles // 2))
        for number in range(PLACED_ARCHIVES):
            (host.log_dir / f"serial_log_20200101_0000{number:02}.zip").write_bytes(b"")

    def play(self) -> None:
        self.watched.start()
        self.rounds.wait_baseline()
        while self.rounds.cycles < self._cycles:
            self.rounds.play()
            self._progress()
        self.rounds.finish()
        self._end()

    def _end(self) -> None:
        """A clean stop that leaves nothing behind."""
        sessions = self.server.sessions()
        try:
            status = self.watched.stop(STOP_SECONDS)
        except WaitTimeout as error:
            raise self.journal.violation(str(error)) from error
        if status != 0:
            raise self.journal.violation(f"The service ended with status {status}.")
        self.vitals.look_at_files(ended=True)
        left = [process.name for process in self.watched.host.processes() if process.name != "rsyslogd"]
        if left:
            raise self.journal.violation(f"Processes are left: {left}")
        if self.server.sessions() != sessions - 1:
            raise self.journal.violation(f"The service has left its session open ({sessions} before its end).")
        self.watched.assert_clean()

    def _progress(self) -> None:
        if sys.stderr.isatty():
            print(f"\r{self.rounds.cycles} of {self._cycles} cycles, {self.loads.count()} loads of the module, "
                  f"{self.journal.entries} entries in the system log", end="", file=sys.stderr, flush=True)

    def summary(self) -> List[Tuple[str, str]]:
        memory = self.vitals.memory
        rounds, journal = self.rounds, self.journal
        first, last = (min(memory), max(memory)) if memory else (0, 0)
        kib: Dict[str, Optional[int]] = {"at the start": memory.get(first), "warmed up": self.vitals.warm_kib,
                                         "at the end": memory.get(last)}
        return [
            ("cycles", f"{rounds.cycles} in {(time.monotonic() - self._begun) / 60:.1f} minutes"),
            ("rounds", _counts(rounds.rounds)),
            ("faults", _counts(rounds.faults)),
            ("tools' faults", _counts(self.medium.troubles)),
            ("events", f"{len(journal.events)} of drives, volumes and log-ins, {rounds.reported} of them required; "
                       f"{self.medium.events} for medium errors"),
            ("silent transitions", f"{rounds.silent} (in lost log-ins)"),
            ("log-ins", f"{journal.back} again, {journal.lost} lost or failed, {journal.refused} refused; "
                        f"{rounds.unplanned} lost by themselves"),
            ("interpreter", f"{max(self.loads.count() - 1, 0)} new loads of the module{self._growth_per_load()}"),
            ("searches", f"{self.medium.searches} for medium errors; {self.medium.weeks} weeks passed"),
            ("memory", ", ".join(f"{value} KiB {when}" for when, value in kib.items() if value is not None)),
            ("descriptors", f"{min(self.vitals.descriptors, default=0)} at the end, "
                            f"{self.vitals.most_descriptors} at first at most"),
            ("sessions", f"{self.server.most_sessions} open at most"),
            ("requests", f"{self.server.requests}, {self.server.expanding} of them for collections with their members"),
            ("logs", f"{self.vitals.largest_logs[0]} and {self.vitals.largest_logs[1]} bytes at most, "
                     f"{journal.lines} lines; {journal.entries} entries in the system log"),
            ("archives", f"{len(self.vitals.archives())} at the end"),
            ("other error lines", _counts(Counter(journal.errors))),
        ]

    def _growth_per_load(self) -> str:
        """What the bridge or the module lost with every new load would show here."""
        memory, warm, warm_loads = self.vitals.memory, self.vitals.warm_kib, self.rounds.warm_loads
        loads = self.loads.count() - (warm_loads or 0)
        if warm is None or warm_loads is None or loads <= 0:
            return ""
        grown = memory[max(memory)] - warm
        return f"; {loads} since memory was warm, {grown} KiB, {grown / loads:.1f} KiB for each"


def _counts(found: "Dict[str, int]") -> str:
    return ", ".join(f"{count} {name}" for name, count in sorted(found.items(), key=lambda item: -item[1])) or "none"


def main(argv: Optional[Sequence[str]] = None) -> int:
    parser = argparse.ArgumentParser(description="The whole system, for many looks at a server that changes and fails.")
    parser.add_argument("cycles", nargs="?", type=int, default=300, metavar="CYCLES", help="default: 300")
    parser.add_argument("--seed", type=int, help="repeats what an earlier run did")
    parser.add_argument("--speed", type=float, default=20, help="how fast the service's clock runs (default: 20)")
    parser.add_argument("--expansion", choices=EXPANSIONS, default="on",
                        help="whether collections are read with their members in place (default: on), or one by one: "
                             "switched off, ignored by the controller or refused by it")
    parser.add_argument("--bin", type=Path, default=ROOT / "build/release/bin", metavar="DIR",
                        help="run-time folder of the service (default: build/release/bin)")
    args = parser.parse_args(argv)
    if args.cycles < 1 or not SPEEDS[0] <= args.speed <= SPEEDS[1]:
        parser.error(f"CYCLES is at least 1, the speed {SPEEDS[0]} to {SPEEDS[1]}")
    reason = missing(faketime=True)
    if reason is not None:
        print(f"soak: {reason}", file=sys.stderr)
        return 1
    signal.signal(signal.SIGTERM, signal.default_int_handler)  # what was started is ended, as after Ctrl+C
    os.environ["BAYWARD_BIN"] = str(args.bin.resolve())
    os.environ[VARIABLE] = args.expansion
    seed = args.seed if args.seed is not None else random.SystemRandom().randrange(10**6)
    print(f"seed              {seed}", flush=True)
    print(f"expansion         {args.expansion}", flush=True)
    status, failure, run = 0, "", None
    with ExitStack() as stack:
        try:
            run = Run(args.cycles, seed, args.speed, stack)
            run.play()
        except (Violation, HostError, Failure, AssertionError) as error:
            status, failure = 1, str(error)
        except KeyboardInterrupt:
            status = 130
        if sys.stderr.isatty():
            print(file=sys.stderr)
        if run is not None:
            for name, text in run.summary():
                print(f"{name:18}{text}")
    if status == 1:
        print(f"BROKEN (seed {seed})   {failure}")
    return status


if __name__ == "__main__":
    sys.exit(main())
