#!/usr/bin/python3
"""Memory of the service over many looks at a simulated controller.

    memory.py [--bin build/release/bin] [--drives N] [--json FILE] [CYCLES]

Time runs twenty times as fast for the service, so a look every 3 seconds becomes one every 150 milliseconds. What libfaketime
itself holds is part of these figures.
"""

from __future__ import annotations

import argparse
import sys
import time
from pathlib import Path
from typing import Dict, List, Sequence, Tuple

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(Path(__file__).resolve().parent), str(ROOT / "sim")]

from figures import Figure, at_most, plain, print_table, save  # noqa: E402 (lies beside this script)
from simcontroller.errors import Failure  # noqa: E402 (the packages lie beside the simulator)
from simcontroller.process import ControllerProcess  # noqa: E402
from simhost import HostError, SimHost, missing  # noqa: E402

CYCLES = 1000
DRIVES = 8
SPEED = 20
SAMPLES = 50  # over the run
GROWTH_TARGET = 5  # MiB; the soak does not allow more either
STALL_SECONDS = 120.0  # so long without a new cycle means that something broke
START_SECONDS = 60.0
STOP_SECONDS = 60.0

Samples = List[Tuple[int, int]]  # cycles done, KiB resident


def cycles_of(counters: Dict[str, Dict[str, int]]) -> int:
    """Every look at the controller begins with one request for the collection of systems."""
    return sum(count for target, count in counters["requests"].items()
               if target.split("?")[0].rstrip("/") == "GET /redfish/v1/Systems")


def wait_for_cycle(sim: ControllerProcess, host: SimHost, cycle: int) -> int:
    """Waits until so many looks were seen and returns how many there are now. HostError when they stop coming."""
    seen, changed = -1, time.monotonic()
    while True:
        now = cycles_of(sim.control.call("counters"))
        if now >= cycle:
            return now
        if now > seen:
            seen, changed = now, time.monotonic()
        if not host.running or time.monotonic() - changed > STALL_SECONDS:
            raise HostError(f"the service made {now} of {cycle} looks\n{host.report()}")
        time.sleep(0.1)


def opened_of(sim: ControllerProcess) -> int:
    """Connections that were made to the controller so far, and log-ins."""
    counters = sim.control.call("counters")
    return int(counters["connections"]) + int(counters["logins"])


def zombies(host: SimHost) -> int:
    return sum(child.state == "Z" for child in host.children())


def figures_of(samples: Samples, descriptors: int, most_zombies: int, errors: int, connections: int) -> List[Figure]:
    """descriptors, connections: how many more there are at the end than at the start, and were made."""
    (_, first), (cycles, last) = samples[0], samples[-1]
    return [
        plain("resident memory, before the first cycle counts", first / 1024, "MiB"),
        at_most(f"growth of memory over {cycles:,} cycles", (last - first) / 1024, "MiB", GROWTH_TARGET),
        plain("growth of memory", (last - first) * 1024 / cycles, "bytes/cycle"),
        at_most("more descriptors than at the start", descriptors, "", 0),
        at_most("ended children that were left, most", most_zombies, "", 0),
        at_most("error lines", errors, "", 0),
        at_most(f"new connections and log-ins in {cycles:,} cycles", connections, "", 0),
    ]


def measure(bin_dir: Path, cycles: int = CYCLES, options: Sequence[str] = ("--drives", str(DRIVES), "--volumes", "2"),
            ) -> Tuple[List[Figure], Samples]:
    """Figures, and the memory over the cycles for a plot."""
    with ControllerProcess("--ilo", "5", *options) as sim, SimHost(bin_dir) as host:
        host.write_config({"iLo": {"interval": 3000, "url": sim.url}, "media error": {"check": "false"}})
        registered = host.run(["baywardctl", "account", "set", sim.account], stdin=sim.password + "\n")
        if registered.returncode != 0:
            raise HostError(f"baywardctl: {registered.stderr.strip()}")
        host.start_service(stand_alone=False, faketime=f"+0 x{SPEED}")
        host.wait_trace("Start to monitor.", START_SECONDS)
        base = wait_for_cycle(sim, host, cycles_of(sim.control.call("counters")) + 2)  # the baseline is taken
        opened = opened_of(sim)
        samples: Samples = [(0, host.rss_kib())]
        descriptors, most_zombies = len(host.descriptors()), zombies(host)
        for mark in sorted({max(1, cycles * number // SAMPLES) for number in range(1, SAMPLES + 1)}):
            seen = wait_for_cycle(sim, host, base + mark) - base
            samples.append((seen, host.rss_kib()))
            most_zombies = max(most_zombies, zombies(host))
        # A look may be under way, with descriptors of its own.
        descriptors = min(len(host.descriptors()) for _ in range(20)) - descriptors
        errors = sum("[ER]" in line for line in host.trace_lines())
        opened = opened_of(sim) - opened
        status = host.stop_service(STOP_SECONDS)
        if status != 0:
            raise HostError(f"the service ended with status {status}\n{host.report()}")
    return figures_of(samples, descriptors, most_zombies, errors, opened), samples


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").split("\n\n", maxsplit=1)[0])
    parser.add_argument("cycles", nargs="?", type=int, default=CYCLES, metavar="CYCLES", help=f"default: {CYCLES}")
    parser.add_argument("--bin", type=Path, default=ROOT / "build/release/bin", metavar="DIR",
                        help="run-time folder of the service (default: build/release/bin)")
    parser.add_argument("--drives", type=int, default=DRIVES, help=f"drives of the one controller (default: {DRIVES})")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures to this file as well")
    args = parser.parse_args()
    if args.cycles < 1 or args.drives < 2:
        parser.error("CYCLES is at least 1, and there are at least two drives")
    try:
        reason = missing(faketime=True)
        if reason is not None:
            raise HostError(reason)
        figures, _ = measure(args.bin.resolve(), args.cycles, ["--drives", str(args.drives), "--volumes", "2"])
    except (HostError, Failure) as error:
        print(f"memory: {error}", file=sys.stderr)
        return 1
    print_table(figures)
    if args.json:
        save(args.json, figures)
    return 0


if __name__ == "__main__":
    sys.exit(main())
