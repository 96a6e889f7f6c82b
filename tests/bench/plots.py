"""Line charts as SVG, readable on light and on dark pages.

    chart = Chart("Requests of one walk", "drives", "requests", [Line("service", [(10, 9), (200, 9)])])
    write(Path("requests.svg"), [chart, ...])    # one beside the other, with one legend

The same values always give the same bytes.
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from html import escape
from pathlib import Path
from typing import List, Sequence, Tuple

WIDTH, HEIGHT = 440, 300  # of a chart with its labels
_LEFT, _RIGHT, _TOP, _BOTTOM = 64, 24, 40, 52
_LEGEND = 28
_TICKS = 5

# Told apart by colour-blind people too, and by their dashes.
_STYLES = (("#0072b2", "#56b4e9", ""), ("#d55e00", "#e69f00", "7 4"), ("#007a5a", "#2fc79a", "2 4"),
           ("#a0508c", "#cc79a7", "9 3 2 3"))  # on light pages, on dark ones, dashes


@dataclass(frozen=True)
class Line:
    name: str
    points: Sequence[Tuple[float, float]]


@dataclass(frozen=True)
class Chart:
    """The vertical axis begins at 0, the horizontal one too."""

    title: str
    across: str  # labels with units
    up: str
    lines: Sequence[Line]


def step_of(most: float) -> float:
    """A round distance of ticks, of which a handful cover 0 to `most`."""
    if most <= 0:
        return 1
    rough = most / _TICKS
    power = 10 ** math.floor(math.log10(rough))
    return float(next(factor * power for factor in (1, 2, 5, 10) if factor * power >= rough * 0.999))


def ticks_of(most: float) -> List[float]:
    """From 0 to the first tick that is not below `most`."""
    step = step_of(most)
    return [number * step for number in range(max(1, math.ceil(most / step - 1e-9)) + 1)]


def _style() -> str:
    light = "".join(f".s{i}{{stroke:{colour}}}.f{i}{{fill:{colour}}}" for i, (colour, _, _) in enumerate(_STYLES))
    dark = "".join(f".s{i}{{stroke:{colour}}}.f{i}{{fill:{colour}}}" for i, (_, colour, _) in enumerate(_STYLES))
    return ("text{font:12px sans-serif;fill:#24292f}.title{font-weight:bold}.page{fill:#ffffff}"
            ".grid{stroke:#d0d7de;stroke-width:1}.line{fill:none;stroke-width:2}" + light +
            "@media(prefers-color-scheme:dark){text{fill:#e6edf3}.page{fill:#0d1117}.grid{stroke:#30363d}" + dark + "}")


def _text(x: float, y: float, text: str, anchor: str = "middle", more: str = "") -> str:
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"{more}>{escape(text)}</text>'


def _chart(chart: Chart, left: float) -> List[str]:
    points = [point for line in chart.lines for point in line.points]
    across, up = (ticks_of(max(point[axis] for point in points)) for axis in (0, 1))
    x0, y0, width, height = left + _LEFT, HEIGHT - _BOTTOM, WIDTH - _LEFT - _RIGHT, HEIGHT - _TOP - _BOTTOM

    def at(x: float, y: float) -> Tuple[float, float]:
        return x0 + x / across[-1] * width, y0 - y / up[-1] * height

    parts = [_text(x0 + width / 2, 24, chart.title, more=' class="title"'),
             _text(x0 + width / 2, HEIGHT - 12, chart.across),
             _text(left + 16, y0 - height / 2, chart.up, more=f' transform="rotate(-90 {left + 16:.1f} {y0 - height / 2:.1f})"')]
    for tick in up:
        _, y = at(0, tick)
        parts += [f'<line class="grid" x1="{x0:.1f}" y1="{y:.1f}" x2="{x0 + width:.1f}" y2="{y:.1f}"/>',
                  _text(x0 - 6, y + 4, f"{tick:,.10g}", "end")]
    for tick in across:
        x, _ = at(tick, 0)
        parts += [f'<line class="grid" x1="{x:.1f}" y1="{y0:.1f}" x2="{x:.1f}" y2="{y0 + 4:.1f}"/>',
                  _text(x, y0 + 18, f"{tick:,.10g}")]
    for number, line in enumerate(chart.lines):
        places = [at(*point) for point in line.points]
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        dashes = f' stroke-dasharray="{_STYLES[number][2]}"' if _STYLES[number][2] else ""
        parts.append(f'<polyline class="line s{number}"{dashes} points="{path}"/>')
        if len(places) <= 10:
            parts += [f'<circle class="f{number}" cx="{x:.1f}" cy="{y:.1f}" r="3"/>' for x, y in places]
    return parts


def _legend(lines: Sequence[Line], width: float) -> List[str]:
    share = width / len(lines)
    parts = []
    for number, line in enumerate(lines):
        x, y = number * share + 16, HEIGHT + _LEGEND / 2 - 4
        dashes = f' stroke-dasharray="{_STYLES[number][2]}"' if _STYLES[number][2] else ""
        parts += [f'<line class="line s{number}"{dashes} x1="{x:.1f}" y1="{y:.1f}" x2="{x + 32:.1f}" y2="{y:.1f}"/>',
                  _text(x + 40, y + 4, line.name, "start")]
    return parts


def drawing(charts: Sequence[Chart]) -> str:
    """Charts of the same lines, one beside the other. At least one chart; each has a line, each line a point."""
    if any(len(chart.lines) > len(_STYLES) for chart in charts):
        raise ValueError(f"a chart has room for {len(_STYLES)} lines")
    lines = charts[0].lines
    width, height = WIDTH * len(charts), HEIGHT + (_LEGEND if len(lines) > 1 else 0)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
             f'role="img">', f"<title>{escape('; '.join(chart.title for chart in charts))}</title>",
             f"<style>{_style()}</style>", f'<rect class="page" width="{width}" height="{height}"/>']
    for number, chart in enumerate(charts):
        parts += _chart(chart, number * WIDTH)
    if len(lines) > 1:
        parts += _legend(lines, width)
    return "\n".join([*parts, "</svg>"]) + "\n"


def write(path: Path, charts: Sequence[Chart]) -> None:
    path.write_text(drawing(charts), encoding="utf-8")
