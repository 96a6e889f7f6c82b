"""How a stored body becomes an answer: without what was removed, in another order, with slashed links."""

from __future__ import annotations

import random
from typing import Any, Callable, Dict, List

LINK = "@odata.id"


def is_link(value: Any) -> bool:
    """A link and nothing else."""
    return isinstance(value, dict) and set(value) == {LINK} and isinstance(value[LINK], str)


def without(node: Any, gone: Callable[[str], bool]) -> Any:
    """A copy without the links to what is gone; the `X@odata.count` beside a list X counts what is left of it.

    A count that was wrong on purpose stays wrong by as much.
    """
    def stays(value: Any) -> bool:
        return not (is_link(value) and gone(value[LINK]))

    if isinstance(node, list):
        return [without(value, gone) for value in node if stays(value)]
    if not isinstance(node, dict):
        return node
    kept = {key: without(value, gone) for key, value in node.items() if stays(value)}
    for key, value in node.items():
        count = f"{key}@odata.count"
        if isinstance(value, list) and isinstance(kept.get(count), int):
            kept[count] -= len(value) - len(kept[key])
    return kept


def slashed(node: Any) -> Any:
    """A copy whose links end in a slash."""
    if isinstance(node, list):
        return [slashed(value) for value in node]
    if isinstance(node, dict):
        return {key: _slashed_link(value) if key == LINK else slashed(value) for key, value in node.items()}
    return node


def _slashed_link(value: Any) -> Any:
    # A link with a fragment points inside a resource and takes no slash.
    if isinstance(value, str) and "#" not in value and not value.endswith("/"):
        return value + "/"
    return value


class Shuffler:
    """Puts lists of links into another order each time, the same orders again for the same seed and requests.

    A list never comes in the order it came in the time before, so two members swap with every answer.
    """

    def __init__(self, seed: int) -> None:
        self._seed = seed
        # By place (resource and member): its own random numbers, and the order it was last given.
        self._numbers: Dict[str, random.Random] = {}
        self._last: Dict[str, List[int]] = {}

    def shuffled(self, node: Any, place: str) -> Any:
        """A copy with every list of links below the node in its next order; `place` names the node."""
        if isinstance(node, dict):
            return {key: self.shuffled(value, f"{place} {key}") for key, value in node.items()}
        if isinstance(node, list) and len(node) > 1 and all(is_link(value) for value in node):
            return [node[index] for index in self._next_order(place, len(node))]
        return node

    def _next_order(self, place: str, count: int) -> List[int]:
        numbers = self._numbers.setdefault(place, random.Random(f"{self._seed} {place}"))
        last = self._last.get(place, [])
        if len(last) != count:
            last = list(range(count))
        order = list(last)
        while order == last:
            numbers.shuffle(order)
        self._last[place] = order
        return order
