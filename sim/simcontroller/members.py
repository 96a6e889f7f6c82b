"""Reaching into a resource by a dotted member path such as Status.Health or Drives.0.@odata.id."""

from __future__ import annotations

from typing import Any, List, Optional, Tuple, Union

from .errors import UseError

Key = Union[str, int]


def find(body: Any, dotted: str) -> Optional[List[Key]]:
    """Keys that lead to a member that is there, or None.

    Names may hold dots themselves ("Members@odata.count"), so at each level the longest name wins.
    """
    return _find(body, dotted.split("."))


def _find(node: Any, parts: List[str]) -> Optional[List[Key]]:
    if not parts:
        return []
    if isinstance(node, list):
        if not parts[0].isdigit() or int(parts[0]) >= len(node):
            return None
        index = int(parts[0])
        rest = _find(node[index], parts[1:])
        return None if rest is None else [index, *rest]
    if isinstance(node, dict):
        for length in range(len(parts), 0, -1):
            name = ".".join(parts[:length])
            if name in node:
                rest = _find(node[name], parts[length:])
                if rest is not None:
                    return [name, *rest]
    return None


def get(body: Any, keys: List[Key]) -> Any:
    for key in keys:
        body = body[key]
    return body


def require(body: Any, dotted: str, path: str) -> List[Key]:
    """As find, but a member that is not there is wrong use."""
    keys = find(body, dotted)
    if keys is None:
        names = ", ".join(sorted(body)) if isinstance(body, dict) else "none"
        raise UseError(f"{path} has no member {dotted!r}; its members are {names} (add-member makes a new one).")
    return keys


def place(body: Any, dotted: str, path: str) -> Tuple[Any, Key]:
    """Container and key where a member that is not there yet can be put."""
    parts = dotted.split(".")
    # The deepest container that is there takes the rest of the path as one new name.
    for length in range(len(parts) - 1, -1, -1):
        keys = _find(body, parts[:length])
        if keys is None:
            continue
        parent = get(body, keys)
        name = ".".join(parts[length:])
        if isinstance(parent, dict) and (length == len(parts) - 1 or "@" in name):
            return parent, name
        if isinstance(parent, list) and name == str(len(parent)):
            return parent, len(parent)
        break
    raise UseError(f"{path} has no place for a member {dotted!r}; everything before its last name must be there "
                   "(a list takes its length as the next index).")
