#!/usr/bin/python3
"""All figures in one run: looks at the storage, memory, start and stop, parsers, rules, trace log. "./run bench" runs it.

    bench.py [--build build/release] [CYCLES]

Prints one table, writes it as JSON into build/bench.json and what README shows of it into build/bench.md, and draws the plots
docs/bench-*.svg. The exit status is 1 when a target is missed, 2 when something could not be measured; on a machine that
does other things too the former proves nothing. What is timed while a virtual machine's host gives its processors to others
is timed again, and how much they took is told at the end.
"""

from __future__ import annotations

import argparse
import os
import platform
import sys
import time
from pathlib import Path
from typing import Callable, List, TypeVar

sys.path.insert(0, str(Path(__file__).resolve().parent))

import memory  # noqa: E402 (these lie beside this script)
import micro  # noqa: E402
import parsers  # noqa: E402
import walks  # noqa: E402
from calm import Times  # noqa: E402
from essence import markdown  # noqa: E402
from figures import MISSED, Figure, print_table, save  # noqa: E402
from plots import Chart, Line, write  # noqa: E402
from simcontroller.errors import Failure  # noqa: E402 (the scripts above have put the simulator on the path)
from simhost import HostError, missing  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
LINES = {"service": walks.EXPANDED.name, f"service, {walks.OFF.name}": walks.OFF.name,
         "reference, one by one": walks.YARDSTICK}

Result = TypeVar("Result")


def part(name: str, measure: Callable[[], Result]) -> Result:
    print(f"== measuring: {name}", file=sys.stderr, flush=True)
    return measure()


def requests_plot(curve: walks.Curve) -> List[Chart]:
    def lines(value: Callable[[walks.Cost], float]) -> List[Line]:
        return [Line(name, [(drives, value(costs[key])) for drives, costs in sorted(curve.items())])
                for name, key in LINES.items()]

    return [Chart("Requests of one look", "drives", "requests", lines(lambda cost: cost.requests)),
            Chart(f"Time of one look, {walks.LATENCY_MS} ms a request", "drives", "seconds", lines(lambda cost: cost.wall))]


def memory_plot(samples: memory.Samples) -> List[Chart]:
    points = [(cycles, kib / 1024) for cycles, kib in samples]
    return [Chart("Memory of the service", "looks at the storage", "MiB resident", [Line("service", points)])]


def machine(begun: Times, load: float) -> str:
    """This machine, its load when the run began, and what others have taken of it since."""
    model = next((line.partition(":")[2].strip() for line in Path("/proc/cpuinfo").read_text(encoding="ascii").splitlines()
                  if line.startswith("model name")), platform.machine())
    return (f"{os.cpu_count()} x {model}, Linux {platform.release()}, CPython {platform.python_version()}, "
            f"{time.strftime('%Y-%m-%d %H:%M')}; load before {load:.1f}, "
            f"others took {Times.now().taken_since(begun):.1%} of the processors' time")


def measure(build: Path, cycles: int, plots: Path) -> List[Figure]:
    bin_dir = build / "bin"
    cost, curve = part("looks at the storage, a quarter of an hour or more", lambda: walks.measure(bin_dir))
    kept, samples = part(f"memory over {cycles:,} cycles", lambda: memory.measure(bin_dir, cycles))
    read = part("parsers beside grep", lambda: parsers.measure(build / "tests/parse-texts"))
    small = part("rules, trace log, texts", lambda: micro.measure(build / "tests/bayward-bench"))
    write(plots / "bench-requests.svg", requests_plot(curve))
    write(plots / "bench-memory.svg", memory_plot(samples))
    return cost + kept + read + small


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").split("\n\n", maxsplit=1)[0])
    parser.add_argument("cycles", nargs="?", type=int, default=memory.CYCLES, metavar="CYCLES",
                        help=f"looks at the storage over which memory is watched (default: {memory.CYCLES})")
    parser.add_argument("--build", type=Path, default=ROOT / "build/release", metavar="DIR", help="default: build/release")
    parser.add_argument("--json", type=Path, default=ROOT / "build/bench.json", metavar="FILE",
                        help="default: build/bench.json")
    parser.add_argument("--plots", type=Path, default=ROOT / "docs", metavar="DIR", help="default: docs")
    args = parser.parse_args()
    if args.cycles < 1:
        parser.error("CYCLES is at least 1")
    try:
        begun, load = Times.now(), os.getloadavg()[0]
        reason = missing(faketime=True)
        if reason is not None:
            raise HostError(reason)
        figures = measure(args.build.resolve(), args.cycles, args.plots)
    except (HostError, Failure, RuntimeError, ValueError, OSError) as error:
        print(f"bench: {error}", file=sys.stderr)
        return 2
    save(args.json, figures)
    described = machine(begun, load)
    args.json.with_suffix(".md").write_text(markdown(figures, described), encoding="utf-8")
    print_table(figures)
    missed = sum(figure.verdict == MISSED for figure in figures)
    print(f"{described}\n{missed} of {sum(figure.target is not None for figure in figures)} targets missed")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
