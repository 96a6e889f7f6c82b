#!/usr/bin/python3
"""Speed and memory of the readers of the RAID tools' outputs, beside grep over the same file.

    parsers.py --program build/release/tests/parse-texts [--json FILE]
"""

from __future__ import annotations

import argparse
import json
import os
import resource
import statistics
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path
from typing import List, Sequence, Tuple

sys.path.insert(0, str(Path(__file__).resolve().parent))

from calm import calmest  # noqa: E402 (lies beside this script)
from figures import Figure, at_least, at_most, plain, print_table, save  # noqa: E402 (likewise)
from tool_texts import write_event_log, write_report  # noqa: E402 (likewise)

REPORT_BYTES = 100_000_000
EVENTS = 377_000  # 100 MB
RUNS = 9

SPEED_TARGET = 0.25  # of grep's speed
GROWTH_TARGET = 16  # MiB


@dataclass(frozen=True)
class Run:
    """One run of a program, start and end included."""

    wall: float  # seconds
    cpu: float  # seconds, in the kernel as well
    output: bytes


def run(command: Sequence[str], statuses: Sequence[int] = (0,)) -> Run:
    """RuntimeError when the program ends with none of these statuses."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    # Into a pipe: with /dev/null for its output grep would stop at the first match.
    ran = subprocess.run(command, env={**os.environ, "LC_ALL": "C"}, stdout=subprocess.PIPE, check=False)
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if ran.returncode not in statuses:
        raise RuntimeError(f"{command[0]} ended with status {ran.returncode}")
    return Run(wall, after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime, ran.stdout)


def beside_grep(program: Path, kind: str, text: Path, errors: int) -> Tuple[List[Run], List[Run]]:
    """Several runs of both, one after the other; a first run of each only warms the cache.

    RuntimeError when the program has not found the errors that stand in the text: its speed would tell nothing.
    """
    ours: List[Run] = []
    greps: List[Run] = []
    for _ in range(RUNS + 1):
        ours.append(run([str(program), kind, str(text)]))
        found = json.loads(ours[-1].output)["errors"]
        if found != errors:
            raise RuntimeError(f"{program} {kind} has found {found:,} errors where there are {errors:,}")
        greps.append(run(["grep", "-c", "Sense Key", str(text)], (0, 1)))  # 1: there is none in an event log
    return ours[1:], greps[1:]


def figures_of(name: str, ours: List[Run], greps: List[Run], size: int) -> List[Figure]:
    megabytes = size / 1e6
    wall = statistics.median(a.wall for a in ours)
    cpu = statistics.median(a.cpu for a in ours)
    grep_wall = statistics.median(a.wall for a in greps)
    grep_cpu = statistics.median(a.cpu for a in greps)
    growth = max(json.loads(a.output)["growth_kib"] for a in ours) / 1024
    return [
        at_least(f"{name} parser, speed beside grep's", grep_wall / wall, "", SPEED_TARGET),
        at_least(f"{name} parser, the same by CPU time", grep_cpu / cpu, "", SPEED_TARGET),
        at_most(f"{name} parser, growth of memory", growth, "MiB", GROWTH_TARGET),
        plain(f"{name} parser, speed", megabytes / wall, "MB/s"),
        plain(f"{name}, speed of grep", megabytes / grep_wall, "MB/s"),
    ]


def measure(program: Path) -> List[Figure]:
    """Writes the texts, 100 MB each, and reads them with the program parse-texts of the build and with grep.

    RuntimeError when a program fails or finds another number of errors than stands in a text.
    """
    with tempfile.TemporaryDirectory() as folder:
        report, events = Path(folder, "report.txt"), Path(folder, "events.txt")
        texts = (("report", "report", report, write_report(report, REPORT_BYTES)),
                 ("events", "event log", events, write_event_log(events, EVENTS)))
        return [figure for kind, name, text, errors in texts for figure in figures_of(
            name, *calmest(lambda: beside_grep(program, kind, text, errors)), text.stat().st_size)]


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").split("\n\n", maxsplit=1)[0])
    parser.add_argument("--program", required=True, type=Path, help="the program parse-texts of the build")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures to this file as well")
    args = parser.parse_args()
    if not args.program.is_file():
        parser.error(f"{args.program} does not exist; build it first")
    try:
        figures = measure(args.program.resolve())
    except RuntimeError as error:
        print(f"parsers: {error}", file=sys.stderr)
        return 2
    print_table(figures)
    if args.json:
        save(args.json, figures)
    return 0


if __name__ == "__main__":
    sys.exit(main())
