#!/usr/bin/python3
"""Memory of the idle service and its growth over many looks at a simulated controller. Prints figures, judges nothing.

    memory.py --bin build/release/bin [CYCLES]

Time runs twenty times as fast for the service, so a look every 3 seconds becomes one every 150 milliseconds.
"""

from __future__ import annotations

import argparse
import sys
import time
from pathlib import Path
from typing import Dict, List, Optional, Sequence

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "sim"))

from simcontroller.errors import Failure  # noqa: E402 (the packages lie beside the simulator)
from simcontroller.process import ControllerProcess  # noqa: E402
from simhost import HostError, SimHost, missing  # noqa: E402

SPEED = 20
FIXED_MARKS = (100, 500)  # cycles at which memory is looked at, besides the first and the last
STALL_SECONDS = 120.0  # so long without a new cycle means that something broke
START_SECONDS = 60.0


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
        if sys.stderr.isatty():
            print(f"\r{now} of {cycle} cycles", end="", file=sys.stderr, flush=True)
        time.sleep(0.1)


def zombies(host: SimHost) -> int:
    return sum(child.state == "Z" for child in host.children())


def measure(bin_dir: Path, cycles: int, options: Sequence[str]) -> None:
    config = {"iLo": {"interval": 3000}, "media error": {"check": "false"}}
    with ControllerProcess(*options) as sim, SimHost(bin_dir) as host:
        config["iLo"]["url"] = sim.url
        host.write_config(config)
        registered = host.run(["baywardctl", "account", "set", sim.account], stdin=sim.password + "\n")
        if registered.returncode != 0:
            raise HostError(f"baywardctl: {registered.stderr.strip()}")
        host.start_service(stand_alone=False, faketime=f"+0 x{SPEED}")
        host.wait_trace("Start to monitor.", START_SECONDS)

        begin = time.monotonic()
        base = wait_for_cycle(sim, host, cycles_of(sim.control.call("counters")) + 2)  # the baseline is taken
        start_kib, start_descriptors = host.rss_kib(), len(host.descriptors())
        print(f"controller        {' '.join(options)}")
        print(f"idle service      {start_kib:7} KiB resident, {start_descriptors} descriptors")
        most_zombies = zombies(host)
        marks: List[int] = sorted({mark for mark in FIXED_MARKS if mark < cycles} | {cycles})
        kib = start_kib
        for mark in marks:
            seen = wait_for_cycle(sim, host, base + mark) - base
            kib = host.rss_kib()
            most_zombies = max(most_zombies, zombies(host))
            print(f"after {seen:6} cycles {kib:7} KiB resident, {kib - start_kib:+} KiB", flush=True)
        seconds = time.monotonic() - begin
        counters = sim.control.call("counters")
        done = cycles_of(counters) - base
        errors = sum("[ER]" in line for line in host.trace_lines())
        print(f"growth            {(kib - start_kib) * 1024 / done:7.1f} bytes per cycle")
        print(f"descriptors       {len(host.descriptors()):7} at the end, {start_descriptors} at the start")
        print(f"zombies           {most_zombies:7} at most")
        print(f"requests served   {counters['total']:7} on {counters['connections']} connections")
        print(f"error lines       {errors:7} in the trace log")
        print(f"time              {seconds:7.1f} s, {seconds / done * 1000:.0f} ms per cycle "
              f"at {SPEED} times the speed")
        status = host.stop_service(60)
        if status != 0:
            raise HostError(f"the service ended with status {status}\n{host.report()}")


def main(argv: Optional[Sequence[str]] = None) -> int:
    parser = argparse.ArgumentParser(description="Memory of the idle service and its growth over many cycles.")
    parser.add_argument("cycles", nargs="?", type=int, default=1000, metavar="CYCLES", help="default: 1000")
    parser.add_argument("--bin", type=Path, default=ROOT / "build/release/bin", metavar="DIR",
                        help="run-time folder of the service (default: build/release/bin)")
    parser.add_argument("--drives", type=int, default=8, help="drives of the one controller (default: 8)")
    args = parser.parse_args(argv)
    if args.cycles < 1 or args.drives < 1:
        parser.error("CYCLES and DRIVES are at least 1")
    try:
        reason = missing()
        if reason is not None:
            raise HostError(reason)
        measure(args.bin, args.cycles, ["--ilo", "5", "--drives", str(args.drives), "--volumes", "2"])
    except (HostError, Failure) as error:
        print(f"memory: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
