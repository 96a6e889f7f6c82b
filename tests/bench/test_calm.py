"""Which of several measurements counts."""

from __future__ import annotations

import pytest

from calm import TRIES, Times, calmest


def measuring(*taken: int) -> "tuple[str, int]":
    """What counts when others take so many percent of each measurement, and how many were made."""
    clock = [Times(0, 0)]
    results = iter(enumerate(taken))

    def measure() -> str:
        number, percent = next(results)
        clock[0] = Times(clock[0].total + 100, clock[0].taken + percent)
        return f"number {number}"

    counts = calmest(measure, now=lambda: clock[0])
    return counts, len(taken) - len(list(results))


def test_a_calm_measurement_is_the_only_one():
    assert measuring(3, 0, 0) == ("number 0", 1)


def test_a_disturbed_measurement_is_made_again_until_one_is_calm():
    assert measuring(40, 2, 0) == ("number 1", 2)
    assert measuring(4, 0) == ("number 1", 2)


@pytest.mark.parametrize("taken, counts", [((40, 20, 30), "number 1"), ((40, 50, 60), "number 0"), ((9, 8, 7), "number 2")])
def test_when_none_is_calm_the_calmest_counts(taken, counts):
    assert measuring(*taken, 0) == (counts, TRIES)


def test_a_repetition_is_told(capsys):
    measuring(40, 0)
    assert capsys.readouterr().err == "   others took 40% of the processors' time; once more\n"


def test_all_time_is_counted_once():
    text = "cpu  100 20 30 400 200 5 5 40 7 7\ncpu0 1 1 1 1 1 1 1 1 0 0\n"  # the last two are in the first two
    assert Times.parse(text) == Times(total=800, taken=40)
    assert Times.parse(text).taken_since(Times(0, 0)) == pytest.approx(0.05)


def test_no_time_at_all_is_calm():
    assert Times(5, 5).taken_since(Times(5, 5)) == 0


@pytest.mark.parametrize("text", ["", "cpu 1 2 3", "intr 1 2 3 4 5 6 7 8 9", "cpu a b c d e f g h"])
def test_what_is_no_processor_time_is_refused(text):
    with pytest.raises(ValueError):
        Times.parse(text)


def test_this_machine_tells_its_times():
    assert Times.now().total > 0
