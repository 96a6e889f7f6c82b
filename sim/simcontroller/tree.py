"""The resources the controller serves, and the changes that can be made to them while it runs."""

from __future__ import annotations

import fnmatch
import json
import threading
from pathlib import Path
from typing import Any, Callable, Dict, Iterable, List, Optional, Set

from . import members
from .errors import UseError
from .presentation import LINK, Shuffler, slashed, without

ROOT = "/redfish/v1"


def canonical(path: str) -> str:
    """The path without trailing slashes; every resource is stored under this form."""
    return path.rstrip("/") or "/"


class _Resource:
    """One resource. `fixed_links`: its links keep the form they are stored in, whatever form was asked for."""

    def __init__(self, body: Dict[str, Any], fixed_links: bool) -> None:
        self.body = body
        self.fixed_links = fixed_links


class ResourceTree:
    """All resources by path. Every operation locks, so requests and control commands may come from any thread."""

    def __init__(self) -> None:
        self._resources: Dict[str, _Resource] = {}
        # Paths that were removed: they, all below them and every link to any of them are left out of answers. What
        # is stored stays as it is, so that restore brings back the same answers whatever happened in between.
        self._removed: Set[str] = set()
        self._shuffler: Optional[Shuffler] = None
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
        """Append a link, in the form given, to a list of links such as Members, and correct the count beside it."""
        with self._lock:
            body = self._resource(path).body
            keys = members.require(body, member, path)
            members.get(body, keys).append({LINK: target})
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
            return sorted(path for path in self._resources
                          if fnmatch.fnmatchcase(path, pattern) and not self._gone(path))

    def read(self, path: str) -> Dict[str, Any]:
        """A copy of the resource as it stands: links in the form and order stored, none to what was removed."""
        with self._lock:
            return without(self._resource(path).body, self._gone)

    def answer(self, path: str, expand: bool = False,
               spoiled: Callable[[str], bool] = lambda path: False) -> Optional[Dict[str, Any]]:
        """A copy of the resource for an answer, None when it is not there.

        Links echo the form asked for (with or without trailing slash), except in what a device answers itself.
        `expand` puts the resources of Members in place of their links, one level deep; those that are spoiled stay links.
        """
        with self._lock:
            body = self._body(path, path.endswith("/"))
            if body is not None and expand and isinstance(body.get("Members"), list):
                body["Members"] = [self._expanded(link, path.endswith("/"), spoiled) for link in body["Members"]]
            return body

    def _expanded(self, link: Any, slash: bool, spoiled: Callable[[str], bool]) -> Any:
        target = link.get(LINK) if isinstance(link, dict) else None
        body = self._body(target, slash) if isinstance(target, str) and not spoiled(canonical(target)) else None
        return link if body is None else body

    def _body(self, path: str, slash: bool) -> Optional[Dict[str, Any]]:
        """The body of an answer, None when the resource is not there."""
        path = canonical(path)
        resource = self._resources.get(path)
        if resource is None or self._gone(path):
            return None
        body = without(resource.body, self._gone)
        if self._shuffler is not None:
            body = self._shuffler.shuffled(body, path)
        return slashed(body) if slash and not resource.fixed_links else body

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
        with self._lock:
            self._resource(path)
            self._removed.add(canonical(path))

    def restore(self, path: str) -> None:
        """Put back what remove took away under this path."""
        path = canonical(path)
        with self._lock:
            if path not in self._removed:
                known = ", ".join(sorted(self._removed)) or "nothing"
                raise UseError(f"{path} was not removed before; removed at present: {known}.")
            self._removed.remove(path)

    def shuffle(self, seed: Optional[int]) -> None:
        """Serve lists of links in another order with every answer, as the seed says; None: as they are stored."""
        with self._lock:
            self._shuffler = None if seed is None else Shuffler(seed)

    def _gone(self, path: str) -> bool:
        """Whether the path, or a resource above it, was removed."""
        path = canonical(path)
        return any(path == removed or path.startswith(removed + "/") for removed in self._removed)

    def _resource(self, path: str) -> _Resource:
        resource = self._resources.get(canonical(path))
        if resource is None or self._gone(path):
            raise UseError(f"There is no resource {canonical(path)}; the verb paths lists those there are.")
        return resource


def _correct_count(container: Any, name: members.Key) -> None:
    """Keep `X@odata.count` beside a list X right, where there is one."""
    if isinstance(container, dict) and f"{name}@odata.count" in container:
        container[f"{name}@odata.count"] = len(container[name])
