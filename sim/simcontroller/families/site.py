"""The server while its storage is built: what a family needs to know of it."""

from __future__ import annotations

from collections import Counter

from ..tree import ResourceTree


class Site:
    """The tree that is built, the controller generation, how wear is scaled, and numbers that are given once."""

    def __init__(self, tree: ResourceTree, generation: int, wear_scale: int) -> None:
        self.tree = tree
        self.generation = generation
        self.wear_scale = wear_scale
        self._given: Counter = Counter()

    def next(self, what: str) -> int:
        """The next number of its kind, from 0 on."""
        self._given[what] += 1
        return self._given[what] - 1
