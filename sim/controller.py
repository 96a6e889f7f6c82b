#!/usr/bin/python3
"""Simulated server management controller; see README.md and --help."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from simcontroller.main import main  # noqa: E402 (the package lies beside this file)

if __name__ == "__main__":
    sys.exit(main())
