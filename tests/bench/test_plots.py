"""Charts are whole SVG files that show what they were given."""

from __future__ import annotations

import xml.etree.ElementTree as ET

import pytest

from plots import Chart, Line, drawing, step_of, ticks_of, write

SVG = "{http://www.w3.org/2000/svg}"
CHART = Chart("Requests <of> one look", "drives", "requests",
              [Line("service", [(0, 0), (100, 50), (200, 100)]), Line("reference & more", [(0, 0), (200, 200)])])


def texts(root: ET.Element) -> "list[str]":
    return [text.text or "" for text in root.iter(f"{SVG}text")]


def points(root: ET.Element, number: int) -> "list[tuple[float, float]]":
    line = list(root.iter(f"{SVG}polyline"))[number]
    return [tuple(map(float, pair.split(","))) for pair in line.attrib["points"].split()]


@pytest.mark.parametrize("most, step", [(1, 0.2), (9, 2), (214, 50), (1000, 200), (0.33, 0.1), (0, 1)])
def test_ticks_are_round(most, step):
    assert step_of(most) == pytest.approx(step)


@pytest.mark.parametrize("most", [0.33, 1, 9, 22.9, 214, 1000])
def test_ticks_reach_from_nothing_over_the_largest_value_and_no_further_than_needed(most):
    ticks = ticks_of(most)
    assert ticks[0] == 0 and ticks[-2] < most <= ticks[-1] * 1.000001
    assert 3 <= len(ticks) <= 7


def test_title_axes_and_legend_are_told():
    shown = texts(ET.fromstring(drawing([CHART])))
    for text in ("Requests <of> one look", "drives", "requests", "service", "reference & more", "200"):
        assert text in shown


def test_a_single_line_needs_no_legend():
    chart = Chart("Memory", "looks", "MB", [Line("service", [(0, 1), (1, 2)])])
    assert "service" not in texts(ET.fromstring(drawing([chart])))


def test_values_stand_where_the_axes_say():
    (left, bottom), middle, (right, half) = points(ET.fromstring(drawing([CHART])), 0)
    (_, _), (far, top) = points(ET.fromstring(drawing([CHART])), 1)
    assert middle == pytest.approx(((left + right) / 2, (bottom + half) / 2))
    assert far == right and bottom - top == pytest.approx(2 * (bottom - half))


def test_a_second_chart_stands_beside_the_first():
    root = ET.fromstring(drawing([CHART, CHART]))
    (first, _), (second, _) = points(root, 0)[0], points(root, 2)[0]
    assert second - first == pytest.approx(float(root.attrib["width"]) / 2)


def test_dark_pages_are_thought_of():
    assert "prefers-color-scheme:dark" in drawing([CHART])


def test_the_same_values_give_the_same_bytes(tmp_path):
    write(tmp_path / "a.svg", [CHART])
    write(tmp_path / "b.svg", [CHART])
    assert (tmp_path / "a.svg").read_bytes() == (tmp_path / "b.svg").read_bytes()


def test_more_lines_than_can_be_told_apart_are_refused():
    with pytest.raises(ValueError):
        drawing([Chart("t", "x", "y", [Line(str(number), [(1, 1)]) for number in range(5)])])
