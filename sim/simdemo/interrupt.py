"""Ctrl+C, at any moment, without leaving anything behind."""

from __future__ import annotations

import signal
from contextlib import contextmanager
from typing import Any, Iterator

_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Interrupts:
    """Holds SIGINT, SIGTERM and SIGHUP back but where they are allowed; there the first becomes a KeyboardInterrupt.

    What is set up and cleaned up outside `allowed` is therefore either made and known or not made at all.
    """

    def __init__(self) -> None:
        self._allowed = False
        self.came = False
        for number in _SIGNALS:
            signal.signal(number, self._handle)

    def _handle(self, _number: int, _frame: Any) -> None:
        self.came = True
        if self._allowed:
            self._allowed = False
            raise KeyboardInterrupt

    @contextmanager
    def allowed(self) -> Iterator[None]:
        """One that came before the block interrupts at its begin."""
        if self.came:
            raise KeyboardInterrupt
        self._allowed = True
        try:
            yield
        finally:
            self._allowed = False
