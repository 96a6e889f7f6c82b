"""What README shows is what was measured."""

from __future__ import annotations

import pytest

from essence import OTHERS, WALKS, markdown
from figures import at_most, plain
from walks import TREES

WALK = [plain(f"{tree.name}, {key}, {what}", value, unit) for tree in TREES for key, _ in WALKS
        for what, value, unit in (("requests", 15, ""), ("wall time", 0.321, "s"), ("CPU time", 12.34, "ms"))]
OTHER = [at_most(name, 21.2, "MiB", 22) for name in OTHERS if name not in {figure.figure for figure in WALK}]


def test_every_figure_shown_has_its_value_and_target():
    lines = markdown([*WALK, *OTHER], "a machine").splitlines()
    assert sum("| 15 | 0.321 s | 12.3 ms |" in line for line in lines) == len(TREES) * len(WALKS)
    assert sum("| 21.2 MiB | at most 22 MiB | met |" in line for line in lines) == len(OTHER) > 5
    assert lines[-1] == "Measured on a machine."


def test_a_figure_that_was_not_measured_is_missed():
    with pytest.raises(KeyError):
        markdown(WALK, "a machine")
