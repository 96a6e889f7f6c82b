#!/usr/bin/python3
"""Watch the service report failing drives of a simulated server; see --help."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

if __name__ == "__main__":
    try:
        from simdemo.main import main  # the package lies beside this file
    except KeyboardInterrupt:  # Ctrl+C before the program can watch for it; nothing was started yet
        sys.exit(130)
    sys.exit(main())
