"""The resources the controller serves, and the changes that can be made to them while it runs."""

from __future__ import annotations

import copy
import fnmatch
import json
import threading
from pathlib import Path
from typing import Any, Dict, Iterable, Iterator, List, Optional, Set, Tuple

from . import members
from .errors import UseError

ROOT = "/redfish/v1"
LINK = "@odata.id"


def canonical(path: str) -> str:
    """The path without trailing slashes; every resource is stored under this form."""
    return path.rstrip("/") or "/"


class _Resource:
    """One resource. `fixed_links`: its links keep the form they are stored in, whatever form was asked for."""

    def __init__(self, body: Dict[str, Any], fixed_links: bool) -> None:
        self.body = body
        self.fixed_links = fixed_links


class _Removed:
    """What remove took away, to be put back by restore."""

    def __init__(self) -> None:
        self.resources: Dict[str, _Resource] = {}
        # (resource, keys of the container, key or index, what stood there)
        self.links: List[Tuple[str, List[members.Key], members.Key, Any]] = []


class ResourceTree:
    """All resources by path. Every operation locks, so requests and control commands may come from any thread."""

    def __init__(self) -> None:
        self._resources: Dict[str, _Resource] = {}
        self._removed: Dict[str, _Removed] = {}
        self._lock = threading.RLock()

    # --- building ---

    def add(self, path: str, body: Dict[str, Any], from_device: bool = False) -> str:
        """Add a resource and return its path.

        `from_device`: the storage device answers for itself, always with links that lack the trailing slash.
        """
        path = canonical(path)
        full: Dict[str, Any] = {LINK: path}
        full.update(body)
        with self._lock:
            self._resources[path] = _Resource(full, from_device)
        return path

    def add_collection(self, path: str, kind: str, name: str, member_paths: Iterable[str],
                       from_device: bool = False) -> str:
        links = [{LINK: canonical(member)} for member in member_paths]
        return self.add(path, {"@odata.type": f"#{kind}.{kind}", "Name": name, "Members": links,
                               "Members@odata.count": len(links)}, from_device)

    def append_link(self, path: str, member: str, target: str) -> None:
        """Append a link to a list of links, such as Members, and correct the count beside it."""
        with self._lock:
            body = self._resource(path).body
            keys = members.require(body, member, path)
            members.get(body, keys).append({LINK: canonical(target)})
            _correct_count(members.get(body, keys[:-1]), keys[-1])

    @classmethod
    def from_folder(cls, folder: Path) -> "ResourceTree":
        """Every `<resource path>/index.json` below the folder; links are served as they stand in the files."""
        if not folder.is_dir():
            raise UseError(f"The tree folder {folder} does not exist; name a folder that holds redfish/v1/index.json.")
        tree = cls()
        for file in sorted(folder.rglob("index.json")):
            path = "/" + file.parent.relative_to(folder).as_posix()
            try:
                body = json.loads(file.read_text(encoding="utf-8"))
            except ValueError as error:
                raise UseError(f"{file} is not JSON ({error}); correct or remove it.") from error
            if not isinstance(body, dict):
                raise UseError(f"{file} holds no JSON object; correct or remove it.")
            tree._resources[canonical(path)] = _Resource(body, True)
        if ROOT not in tree._resources:
            raise UseError(f"The tree folder {folder} holds no redfish/v1/index.json; name the folder above redfish/.")
        return tree

    # --- reading ---

    def paths(self, pattern: str = "*") -> List[str]:
        with self._lock:
            return sorted(path for path in self._resources if fnmatch.fnmatchcase(path, pattern))

    def read(self, path: str) -> Dict[str, Any]:
        """A copy of the resource as stored."""
        with self._lock:
            return copy.deepcopy(self._resource(path).body)

    def answer(self, path: str, expand: bool = False) -> Optional[Dict[str, Any]]:
        """A copy of the resource for an answer, None when it is not there.

        Links echo the form asked for (with or without trailing slash), except in what a device answers itself.
        `expand` puts the resources of Members in place of their links, one level deep.
        """
        with self._lock:
            resource = self._resources.get(canonical(path))
            if resource is None:
                return None
            slash = path.endswith("/")
            body = _with_links(resource, slash)
            if expand and isinstance(body.get("Members"), list):
                body["Members"] = [self._expanded(link, slash) for link in body["Members"]]
            return body

    def _expanded(self, link: Any, slash: bool) -> Any:
        target = link.get(LINK) if isinstance(link, dict) else None
        resource = self._resources.get(canonical(target)) if isinstance(target, str) else None
        return link if resource is None else _with_links(resource, slash)

    # --- changing ---

    def set(self, path: str, member: str, value: Any) -> None:
        """Give a member that is there a new value; the member "." is the whole resource."""
        with self._lock:
            resource = self._resource(path)
            if member == ".":
                if not isinstance(value, dict):
                    raise UseError(f"A whole resource must be a JSON object; {canonical(path)} was left as it is.")
                resource.body = value
                return
            keys = members.require(resource.body, member, canonical(path))
            members.get(resource.body, keys[:-1])[keys[-1]] = value

    def add_member(self, path: str, member: str, value: Any) -> None:
        """Add a member, or a list element, that is not there yet."""
        with self._lock:
            body = self._resource(path).body
            if members.find(body, member) is not None:
                raise UseError(f"{canonical(path)} already has a member {member!r}; use set to change it.")
            container, key = members.place(body, member, canonical(path))
            if isinstance(container, list):
                container.append(value)
            else:
                container[key] = value

    def put(self, path: str, member: str, value: Any) -> None:
        """Set a member, adding it when it is not there."""
        with self._lock:
            if members.find(self._resource(path).body, member) is None:
                self.add_member(path, member, value)
            else:
                self.set(path, member, value)

    def delete_member(self, path: str, member: str) -> None:
        with self._lock:
            body = self._resource(path).body
            keys = members.require(body, member, canonical(path))
            del members.get(body, keys[:-1])[keys[-1]]

    def remove(self, path: str) -> None:
        """Take a resource away, all resources below it, and every link to any of them."""
        path = canonical(path)
        with self._lock:
            self._resource(path)
            taken = _Removed()
            for name in [n for n in self._resources if n == path or n.startswith(path + "/")]:
                taken.resources[name] = self._resources.pop(name)
            gone = set(taken.resources)
            for name, resource in self._resources.items():
                for keys, key, value in list(_links_to(resource.body, gone)):
                    taken.links.append((name, keys, key, value))
                # Backwards, so that the indexes of the links that come first stay right.
                for owner, keys, key, _ in reversed(taken.links):
                    if owner == name:
                        container = members.get(resource.body, keys)
                        del container[key]
                        if isinstance(container, list):
                            _correct_count(members.get(resource.body, keys[:-1]), keys[-1])
            self._removed[path] = taken

    def restore(self, path: str) -> None:
        """Put back what remove took away under this path."""
        path = canonical(path)
        with self._lock:
            taken = self._removed.pop(path, None)
            if taken is None:
                known = ", ".join(sorted(self._removed)) or "nothing"
                raise UseError(f"{path} was not removed before; removed at present: {known}.")
            self._resources.update(taken.resources)
            for owner, keys, key, value in taken.links:
                try:
                    container = members.get(self._resources[owner].body, keys)
                except (KeyError, IndexError, TypeError):
                    # What held the link has been removed or changed meanwhile.
                    continue
                if isinstance(container, list):
                    container.insert(int(key), value)
                    _correct_count(members.get(self._resources[owner].body, keys[:-1]), keys[-1])
                elif isinstance(container, dict):
                    container[key] = value

    def _resource(self, path: str) -> _Resource:
        resource = self._resources.get(canonical(path))
        if resource is None:
            raise UseError(f"There is no resource {canonical(path)}; the verb paths lists those there are.")
        return resource


def _correct_count(container: Any, name: members.Key) -> None:
    """Keep `X@odata.count` beside a list X right, where there is one."""
    if isinstance(container, dict) and f"{name}@odata.count" in container:
        container[f"{name}@odata.count"] = len(container[name])


def _links_to(node: Any, targets: Set[str], keys: Tuple[members.Key, ...] = ()) \
        -> Iterator[Tuple[List[members.Key], members.Key, Any]]:
    """Every value below the node that is a link to one of the targets and nothing else."""
    items = enumerate(node) if isinstance(node, list) else node.items() if isinstance(node, dict) else ()
    for key, value in items:
        if isinstance(value, dict) and set(value) == {LINK} and isinstance(value[LINK], str) \
                and canonical(value[LINK]) in targets:
            yield list(keys), key, value
        else:
            yield from _links_to(value, targets, (*keys, key))


def _with_links(resource: _Resource, slash: bool) -> Dict[str, Any]:
    if resource.fixed_links or not slash:
        return copy.deepcopy(resource.body)
    return _slashed(resource.body)


def _slashed(node: Any) -> Any:
    if isinstance(node, list):
        return [_slashed(value) for value in node]
    if isinstance(node, dict):
        return {key: _slashed_link(value) if key == LINK else _slashed(value) for key, value in node.items()}
    return node


def _slashed_link(value: Any) -> Any:
    # A link with a fragment points inside a resource and takes no slash.
    if isinstance(value, str) and "#" not in value and not value.endswith("/"):
        return value + "/"
    return value
