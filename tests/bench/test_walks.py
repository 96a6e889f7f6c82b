"""The verdicts on walks, and the clients beside the service."""

from __future__ import annotations

import pytest

from figures import MET, MISSED
from walks import EXPANDED, FALLBACKS, OFF, TREES, YARDSTICK, ControllerProcess, Cost, client_cost, tree_figures

REFERENCE = Cost(73, 1.5, 0.030)
SMALL = TREES[0]


def verdicts(**changed: Cost) -> "dict[str, str]":
    costs = {EXPANDED.name: Cost(15, 0.31, 0.012), OFF.name: Cost(73, 1.5, 0.040),
             **{mode.name: Cost(73, 1.5, 0.040) for mode in FALLBACKS}, **changed}
    return {figure.figure: figure.verdict for figure in tree_figures(SMALL, costs, REFERENCE) if figure.target is not None}


def test_a_walk_within_its_targets_meets_them_all():
    assert set(verdicts().values()) == {MET}


@pytest.mark.parametrize("cost, missed", [
    (Cost(16, 0.31, 0.012), {"S, expanded, requests"}),
    (Cost(15, 0.34, 0.012), {"S, expanded, wall time to own requests x 20 ms"}),
    (Cost(15, 0.40, 0.012), {"S, expanded, wall time to own requests x 20 ms", "S, expanded, wall time to reference"}),
    (Cost(15, 0.31, 0.019), {"S, expanded, CPU time to reference"}),
])
def test_each_target_is_missed_by_what_passes_it(cost, missed):
    assert {name for name, verdict in verdicts(expanded=cost).items() if verdict == MISSED} == missed


def test_a_fallback_that_asks_more_than_the_reference_misses():
    assert verdicts(refused=Cost(80, 1.5, 0.040))["S, refused, requests to reference"] == MISSED
    assert verdicts(ignored=Cost(73, 1.7, 0.040))["S, ignored, wall time to reference"] == MISSED


def test_the_reference_is_measured_on_the_controller(monkeypatch):
    monkeypatch.setattr("walks.calmest", lambda measure, tries=1: measure())  # once, on a busy machine too
    with ControllerProcess("--drives", "2", "--volumes", "1") as sim:
        cost = client_cost(sim, YARDSTICK, 2)
        asked = sum(count for request, count in sim.control.call("counters")["requests"].items() if "Session" not in request)
        assert cost is not None and cost.requests * 2 == asked
        assert 0 < cost.cpu <= cost.wall < 60


def test_a_client_that_is_not_installed_is_told_from_one_that_is(monkeypatch):
    monkeypatch.setattr("walks.CLIENTS", {"some": "no_module_of_this_name"})
    with ControllerProcess("--drives", "2") as sim:
        assert client_cost(sim, "some", 1) is None
