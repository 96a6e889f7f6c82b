"""The parts of the soak lie here, what they use beside the end-to-end tests and the simulator."""

import sys
from pathlib import Path

_ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_ROOT / "tests/soak"), str(_ROOT / "tests/e2e"), str(_ROOT / "sim")]
