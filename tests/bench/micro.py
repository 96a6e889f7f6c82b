#!/usr/bin/python3
"""What takes micro- and milliseconds: the rules over snapshots, the trace log, texts. Runs bayward-bench for it.

    micro.py --program build/release/tests/bayward-bench [--json FILE]

Times are medians of several repetitions: CPU time where only the processor works, real time for the trace log.
"""

from __future__ import annotations

import argparse
import json
import subprocess
import sys
from pathlib import Path
from typing import Any, Dict, List

sys.path.insert(0, str(Path(__file__).resolve().parent))

from calm import calmest  # noqa: E402 (lies beside this script)
from figures import (  # noqa: E402 (likewise)
    Figure, at_least, at_most, plain, power_fit, print_table, save)

REPETITIONS = 5
SECONDS = 0.1  # of each repetition, at least

DRIVES = (100, 200, 500, 1000, 2000, 5000, 10000)
RULES = {
    "RulesNothingChanged": "nothing has changed",
    "RulesTenthFails": "a tenth of the drives fails",
    "RulesMegaRaidVanishes": "the MegaRAID half vanishes",
}
RULES_TARGET = 10  # ms
# 1 is linear, 2 quadratic. A run over few drives finds part of what it needs nearer by.
EXPONENT_TARGET = 1.25
LINES_TARGET = 100_000  # per second

Medians = Dict[str, Dict[str, Any]]


def run(program: Path) -> Medians:
    """The median of each benchmark, by its name."""
    ran = subprocess.run([str(program), "--benchmark_format=json", f"--benchmark_min_time={SECONDS}",
                          f"--benchmark_repetitions={REPETITIONS}", "--benchmark_report_aggregates_only=true"],
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    if ran.returncode != 0:
        raise RuntimeError(f"{program} ended with status {ran.returncode}: {ran.stderr.decode(errors='replace')}")
    results: List[Dict[str, Any]] = json.loads(ran.stdout)["benchmarks"]
    for result in results:
        if result.get("error_occurred"):
            raise RuntimeError(f"{result['name']}: {result['error_message']}")
    return {result["run_name"]: result for result in results if result.get("aggregate_name") == "median"}


def rules(medians: Medians) -> List[Figure]:
    figures: List[Figure] = []
    for name, what in RULES.items():
        times = [medians[f"{name}/drives:{drives}"]["cpu_time"] for drives in DRIVES]
        exponent, fit = power_fit(DRIVES, times)
        figures += [
            at_most(f"rules over {DRIVES[-1]:,} drives, {what}", times[-1], "ms", RULES_TARGET),
            at_most(f"growth from {DRIVES[0]} drives on, {what}, exponent", exponent, "", EXPONENT_TARGET),
            plain(f"how well that fits, {what} (R squared)", fit, ""),
        ]
    return figures + [plain(f"copy of a snapshot with {DRIVES[-1]:,} drives",
                            medians[f"SnapshotCopy/drives:{DRIVES[-1]}"]["cpu_time"], "ms")]


def trace_log(medians: Medians) -> List[Figure]:
    def lines(limit: int, threads: int = 1) -> float:
        found = [result for name, result in medians.items() if name.startswith(f"TraceLogLines/Write/limit:{limit}/")
                 and name.endswith(f"/threads:{threads}" if threads > 1 else "/real_time")]
        return float(found[0]["items_per_second"])

    return [
        at_least("trace log, a new file after 4 MiB", lines(4194304), "lines/s", LINES_TARGET),
        at_least("trace log, a new file after 64 KiB", lines(65536), "lines/s", LINES_TARGET),
        at_least("trace log, three threads", lines(4194304, 3), "lines/s", LINES_TARGET),
        plain("trace log, a new file with every line", lines(0), "lines/s"),
    ]


def texts(medians: Medians) -> List[Figure]:
    def rate(name: str, field: str) -> float:
        return float(medians[name][field]) / 1e6

    return [
        plain("report parser, wanted sections only", rate("ReportParser", "bytes_per_second"), "MB/s"),
        *[plain(f"event log parser, 1 event in {step} counts",
                rate(f"EventLogParser/one_in:{step}", "bytes_per_second"), "MB/s") for step in (1, 4, 100)],
        plain("times of one event log", rate("TimesOfOneLog", "items_per_second"), "million/s"),
        plain("the same, each by the C library", rate("TimesOneByOne", "items_per_second"), "million/s"),
        plain("loading the message catalogue", medians["CatalogueLoad"]["cpu_time"], "us"),
        plain("making a sentence of three parameters", medians["Format"]["cpu_time"], "ns"),
    ]


def measure(program: Path) -> List[Figure]:
    medians = calmest(lambda: run(program))
    return rules(medians) + trace_log(medians) + texts(medians)


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").split("\n\n", maxsplit=1)[0])
    parser.add_argument("--program", required=True, type=Path, help="the program bayward-bench of the build")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures to this file as well")
    args = parser.parse_args()
    if not args.program.is_file():
        parser.error(f"{args.program} does not exist; build it first (it wants Google Benchmark)")
    figures = measure(args.program.resolve())
    print_table(figures)
    if args.json:
        save(args.json, figures)
    return 0


if __name__ == "__main__":
    sys.exit(main())
