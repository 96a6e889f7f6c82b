"""Figures with their targets: how every benchmark tells what it has measured.

    figures = [at_most("rules over 10,000 drives", 2.1, "ms", 10), plain("copy of a snapshot", 7.6, "ms")]
    print_table(figures)
    save(Path("figures.json"), figures)   # a list of {figure, value, unit, bound, target, ratio, verdict}

Nothing here fails: a verdict is for the reader, on whose machine other things may have run.
"""

from __future__ import annotations

import json
import math
import sys
from dataclasses import asdict, dataclass
from pathlib import Path
from typing import Any, Dict, Iterable, List, Optional, Sequence, TextIO, Tuple

MET = "met"
MISSED = "missed"
NO_TARGET = "-"


@dataclass(frozen=True)
class Figure:
    """One measured value. Figures without a target are there to be looked at."""

    figure: str
    value: float
    unit: str  # empty for a bare number
    bound: Optional[str] = None  # "at least" or "at most"
    target: Optional[float] = None  # in the value's unit
    ratio: Optional[float] = None  # value to target
    verdict: str = NO_TARGET


def _judged(figure: str, value: float, unit: str, bound: str, target: float, met: bool) -> Figure:
    ratio = value / target if target else None
    return Figure(figure, value, unit, bound, target, ratio, MET if met else MISSED)


def at_least(figure: str, value: float, unit: str, target: float) -> Figure:
    return _judged(figure, value, unit, "at least", target, value >= target)


def at_most(figure: str, value: float, unit: str, target: float) -> Figure:
    return _judged(figure, value, unit, "at most", target, value <= target)


def plain(figure: str, value: float, unit: str) -> Figure:
    return Figure(figure, value, unit)


def number(value: float) -> str:
    """Three significant digits, whole numbers in full."""
    if value == 0 or abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.{max(0, 2 - math.floor(math.log10(abs(value))))}f}"


def _cells(figure: Figure) -> Tuple[str, ...]:
    with_unit = f"{number(figure.value)} {figure.unit}".rstrip()
    if figure.target is None:
        return figure.figure, with_unit, NO_TARGET, NO_TARGET, figure.verdict
    target = f"{figure.bound} {figure.target:,g} {figure.unit}".rstrip()
    ratio = NO_TARGET if figure.ratio is None else f"{figure.ratio:.2f}"
    return figure.figure, with_unit, target, ratio, figure.verdict


def print_table(figures: Iterable[Figure], out: Optional[TextIO] = None) -> None:
    """Figure, value, target, ratio of the value to the target, verdict."""
    rows = [("figure", "value", "target", "ratio", "verdict")]
    rows += [_cells(figure) for figure in figures]
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    rows.insert(1, tuple("-" * width for width in widths))
    for name, value, target, ratio, verdict in rows:
        line = (f"{name:<{widths[0]}}  {value:>{widths[1]}}  {target:<{widths[2]}}  {ratio:>{widths[3]}}  {verdict}")
        print(line.rstrip(), file=out or sys.stdout)


def save(path: Path, figures: Iterable[Figure]) -> None:
    path.write_text(json.dumps([asdict(figure) for figure in figures], indent=2) + "\n", encoding="utf-8")


def load(path: Path) -> List[Figure]:
    """What save() wrote. ValueError or TypeError for anything else."""
    records: List[Dict[str, Any]] = json.loads(path.read_text(encoding="utf-8"))
    return [Figure(**record) for record in records]


def power_fit(sizes: Sequence[float], values: Sequence[float]) -> Tuple[float, float]:
    """The exponent of value = factor * size ** exponent, and how well that fits (R squared).

    A straight line through the logarithms of sizes and values, which are all positive; at least two sizes differ.
    """
    xs = [math.log(size) for size in sizes]
    ys = [math.log(value) for value in values]
    mean_x, mean_y = sum(xs) / len(xs), sum(ys) / len(ys)
    sxx = sum((x - mean_x) ** 2 for x in xs)
    sxy = sum((x - mean_x) * (y - mean_y) for x, y in zip(xs, ys))
    syy = sum((y - mean_y) ** 2 for y in ys)
    return sxy / sxx, (sxy * sxy / (sxx * syy) if syy else 1.0)
