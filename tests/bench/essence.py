"""The figures that README shows, as Markdown."""

from __future__ import annotations

from typing import Dict, List, Sequence

from figures import Figure, NO_TARGET, number
from walks import EXPANDED, OFF, TREES

WALKS = ((EXPANDED.name, "the service"), (OFF.name, "the service, `expand=false`"), ("reference", "reference"))
OTHERS = {
    "S, expanded, requests": "Requests of a look at S",
    "L, expanded, requests": "of one at L",
    "M, expanded, requests to reference": "of one at M, beside the reference's",
    "S, expanded, wall time to own requests x 20 ms": "Time of a look at S, beside 20 ms for each of its requests",
    "L, expanded, wall time to own requests x 20 ms": "of one at L, the same",
    "S, expanded, wall time to reference": "Time of a look at S, beside the reference's",
    "L, expanded, wall time to reference": "of one at L, the same",
    "S, refused, wall time to reference": "of one at S, when the controller refuses to put members in place",
    "L, expanded, CPU time to reference": "CPU time of a look at L, beside the reference's",
    "L, expand = false, CPU time to reference": "of one with `expand=false`, the same",
    'start to "Service started.", median': 'Start to "Service started.", median',
    "SIGTERM to exit, median": "Stop while it waits, median",
    "resident memory after walks of 8 drives, most": "Resident memory, 8 drives",
    "resident memory after walks of L, most": "Resident memory, 200 drives",
    "wake-ups of a thread in a pause, most": "Wake-ups of a thread between two looks",
    "report parser, speed beside grep's": "Report parser, speed beside grep over the same 100 MB",
    "event log parser, speed beside grep's": "Event-log parser, the same",
    "rules over 10,000 drives, nothing has changed": "Rules over two snapshots with 10,000 drives",
    "rules over 10,000 drives, a tenth of the drives fails": "The same, a tenth of the drives fails",
    "trace log, a new file after 4 MiB": "Trace log with rotation",
}


def table(head: Sequence[str], rows: Sequence[Sequence[str]]) -> List[str]:
    return [f"| {' | '.join(row)} |" for row in (head, ["---"] * len(head), *rows)]


def markdown(figures: Sequence[Figure], machine: str) -> str:
    """KeyError when one of the figures was not measured."""
    by_name: Dict[str, Figure] = {figure.figure: figure for figure in figures}

    def value(name: str) -> str:
        return f"{number(by_name[name].value)} {by_name[name].unit}".rstrip()

    def target(figure: Figure) -> str:
        return NO_TARGET if figure.target is None else f"{figure.bound} {figure.target:,g} {figure.unit}".rstrip()

    looks = [[f"{tree.name}: {tree.what}" if key == EXPANDED.name else "", who,
              f"{by_name[f'{tree.name}, {key}, requests'].value:.0f}", value(f"{tree.name}, {key}, wall time"),
              value(f"{tree.name}, {key}, CPU time")] for tree in TREES for key, who in WALKS]
    others = [[shown, value(name), target(by_name[name]), by_name[name].verdict] for name, shown in OTHERS.items()]
    return "\n".join([*table(("One look at", "by", "requests", "time", "CPU time"), looks), "",
                      *table(("Figure", "value", "target", "verdict"), others), "", f"Measured on {machine}.", ""])
