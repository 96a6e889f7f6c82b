#!/usr/bin/python3
"""Speed and memory of the readers of the RAID tools' outputs, beside grep over the same file.

Prints figures, judges nothing.

    parsers.py --program build/release/tests/parse-texts
"""

from __future__ import annotations

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import List

sys.path.insert(0, str(Path(__file__).resolve().parent))

from tool_texts import write_event_log, write_report  # noqa: E402 (lies beside this script)

REPORT_BYTES = 100_000_000
EVENTS = 200_000
RUNS = 5


def grep_seconds(text: Path) -> float:
    start = time.monotonic()
    # Into a pipe: with /dev/null for its output grep would stop at the first match.
    subprocess.run(["grep", "-c", "Sense Key", str(text)], env={**os.environ, "LC_ALL": "C"},
                   stdout=subprocess.PIPE, check=False)
    return time.monotonic() - start


def measure(program: Path, kind: str, text: Path) -> None:
    """The median of several runs of both, one after the other; the first run of each only warms the cache."""
    ours: List[float] = []
    greps: List[float] = []
    growth = 0
    for _ in range(RUNS + 1):
        ran = subprocess.run([str(program), kind, str(text)], stdout=subprocess.PIPE, check=True)
        figures = json.loads(ran.stdout)
        ours.append(figures["seconds"])
        growth = max(growth, figures["growth_kib"])
        greps.append(grep_seconds(text))
    megabytes = text.stat().st_size / 1e6
    our_rate = megabytes / statistics.median(ours[1:])
    grep_rate = megabytes / statistics.median(greps[1:])
    print(f"{kind:<8} {megabytes:6.1f} MB {figures['errors']:7d} medium errors {our_rate:7.0f} MB/s"
          f"   grep {grep_rate:7.0f} MB/s   {our_rate / grep_rate:5.2f} of grep   peak memory +{growth} KiB")


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").split("\n\n", maxsplit=1)[0])
    parser.add_argument("--program", required=True, type=Path, help="the program parse-texts of the build")
    program = parser.parse_args().program.resolve()
    if not program.is_file():
        parser.error(f"{program} does not exist; build it first")
    with tempfile.TemporaryDirectory() as folder:
        report, events = Path(folder, "report.txt"), Path(folder, "events.txt")
        write_report(report, REPORT_BYTES)
        write_event_log(events, EVENTS)
        measure(program, "report", report)
        measure(program, "events", events)
    return 0


if __name__ == "__main__":
    sys.exit(main())
