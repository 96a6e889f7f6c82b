#!/usr/bin/python3
"""Watch the service report failing drives of a simulated server; see --help."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from simdemo.main import main  # noqa: E402 (the package lies beside this file)

if __name__ == "__main__":
    sys.exit(main())
