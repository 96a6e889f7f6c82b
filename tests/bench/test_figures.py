"""The record of figures that every benchmark gives."""

from __future__ import annotations

import io

import pytest

from figures import MET, MISSED, NO_TARGET, at_least, at_most, load, plain, power_fit, print_table, save


@pytest.mark.parametrize("value, verdict", [(9.9, MET), (10, MET), (10.1, MISSED)])
def test_at_most_is_met_up_to_the_target(value, verdict):
    figure = at_most("time", value, "ms", 10)
    assert (figure.verdict, figure.ratio) == (verdict, value / 10)


@pytest.mark.parametrize("value, verdict", [(0.24, MISSED), (0.25, MET), (1, MET)])
def test_at_least_is_met_from_the_target_on(value, verdict):
    figure = at_least("speed", value, "", 0.25)
    assert (figure.verdict, figure.ratio) == (verdict, value / 0.25)


def test_without_a_target_there_is_no_verdict():
    figure = plain("copy", 7.5, "ms")
    assert (figure.target, figure.ratio, figure.verdict) == (None, None, NO_TARGET)


def test_what_was_saved_is_loaded(tmp_path):
    figures = [at_most("errors", 0, "", 0), at_least("lines", 3e5, "lines/s", 1e5), plain("copy", 7.5, "ms")]
    save(tmp_path / "figures.json", figures)
    assert load(tmp_path / "figures.json") == figures


def test_the_table_has_a_line_for_each_figure():
    out = io.StringIO()
    print_table([at_least("lines", 316762.4, "lines/s", 100000), plain("ratio", 0.01234, "")], out)
    header, _, lines, ratio = out.getvalue().splitlines()
    assert header.split() == ["figure", "value", "target", "ratio", "verdict"]
    assert lines.split("  ")[:1] == ["lines"]
    assert "316,762 lines/s" in lines and "at least 100,000 lines/s" in lines and lines.endswith("3.17  met")
    assert ratio.split() == ["ratio", "0.0123", "-", "-", "-"]


@pytest.mark.parametrize("exponent", [0.5, 1, 2])
def test_a_power_is_found_with_its_exponent(exponent):
    sizes = [100, 1000, 10000]
    found, fit = power_fit(sizes, [3 * size ** exponent for size in sizes])
    assert found == pytest.approx(exponent)
    assert fit == pytest.approx(1)


def test_values_off_the_line_fit_less_well():
    _, fit = power_fit([1, 10, 100], [1, 100, 1])
    assert fit == pytest.approx(0)
