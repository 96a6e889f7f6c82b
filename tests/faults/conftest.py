"""The same hosts and controllers as those of the end-to-end tests."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "e2e"))
pytest.register_assert_rewrite("watched", "tooled", "fixtures", "troubled")

from fixtures import *  # noqa: E402, F401, F403
