import pytest

pytest.register_assert_rewrite("watched", "tooled", "fixtures")

from fixtures import *  # noqa: E402, F401, F403
