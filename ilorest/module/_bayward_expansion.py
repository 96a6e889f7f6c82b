"""Fewer requests: collections are asked with their members in place, each of which is kept until it is asked for.

Who asks sees no difference: a collection lists the links of its plain form, and a member is the text that a request of
its own would have given. Whatever does not look like that goes to the controller as if there was nothing in place.
"""

from __future__ import annotations

import re
import sys
import time
from types import SimpleNamespace

from _bayward_outcome import Answer, Deadline, Failure, Unanswered
from _bayward_shaping import has_members, member, parse_object, shaped_text

KEPT_SECONDS = 60.0
# Of all kept texts together. The 200 drives of a full controller have some 150,000.
MAX_KEPT_BYTES = 4 * 1024 * 1024
# Of the 45 seconds of a whole get, for the form with members; the form without needs its 30 when that fails.
EXPANDED_SECONDS = 15.0
UNANSWERED_SECONDS = 24 * 3600.0  # after that the controller may have learnt better
UNANSWERED_LIMIT = 2  # so often in a row without an answer, and a path is asked without members from then on
MAX_REMEMBERED = 10_000  # paths, or links; no server has so many, but one could name new ones for ever

NOT_READY = "ResourceNotReadyRetry"
MISSING = "ResourceMissingAtURI"

_DRIVES = "drives"
_STATUS = {"Health": {}, "State": {}}


def _named(*names: str) -> dict:
    return {name: {} for name in names}


# The collections whose members are all asked for one by one, by the last name of their path, with what a member must
# have to be taken as whole. The drives of a logical drive are none: they are asked for among all drives.
_NEEDED = {
    "arraycontrollers": {**_named("Id", "Model", "Location", "SerialNumber"), "Status": _STATUS},
    "logicaldrives": {**_named("Id", "LogicalDriveNumber"), "Status": _STATUS},
    "diskdrives": {**_named("Id", "Model", "CapacityGB", "CapacityMiB", "BlockSizeBytes", "CapacityLogicalBlocks",
                            "SerialNumber", "Location", "MediaType", "DiskDriveStatusReasons"),
                   "Status": _STATUS, "FirmwareVersion": {"Current": {"VersionString": {}}}},
    "storage": _named("Id", "Name", "Status", "Drives"),
    "controllers": _named("Name", "Model", "SerialNumber", "Location", "Status"),
    "volumes": {"Id": {}, "Status": _STATUS, "Links": {"Drives": {}}},
    _DRIVES: {**_named("Id", "Model", "SerialNumber", "MediaType", "CapacityBytes", "PhysicalLocation",
                       "FailurePredicted"), "Status": _STATUS, "Links": {"Volumes": {}}},
}
# What a worn SSD is known by.
_WEAR = {"diskdrives": "SSDEnduranceUtilizationPercentage", _DRIVES: "PredictedMediaLifeLeftPercent"}
_EMPTY_BAY = {"Id": {}, "Status": _STATUS, "PhysicalLocation": {}}  # all that one tells
_STARTING = "Starting"

# Drives below a chassis are members of a collection, though a storage resource lists them one by one.
_CHASSIS_DRIVE = re.compile(r"(/redfish/v1/Chassis/[^/]+/Drives)/[^/]+(/?)", re.IGNORECASE)


def _unanswered_before() -> dict[str, int]:
    """Paths whose form with members was left unanswered, and how often in a row. A controller that is busy with one until
    the session is lost would be asked for it again by the next; so this outlives the session, and the module as well,
    which is loaded anew after each failed walk and forgets what lies in its files."""
    kept = sys.modules.setdefault("bayward remembers", SimpleNamespace(unanswered={}, begun=time.monotonic()))  # type: ignore
    if time.monotonic() - kept.begun > UNANSWERED_SECONDS:
        kept.unanswered, kept.begun = {}, time.monotonic()
    return kept.unanswered


class Reading:
    """One answer. `resource` is what its body holds, where that was read already."""

    __slots__ = ("answer", "resource")

    def __init__(self, answer: Answer, resource: dict | None = None) -> None:
        self.answer = answer
        self.resource = resource


class _NotExpanded(Exception):
    """The form with members gave nothing usable; `lasting` is whether to expect the same of it the next time."""

    def __init__(self, lasting: bool) -> None:
        super().__init__()
        self.lasting = lasting


class Expansion:
    """Asks a session for resources. What a controller does not expand is asked plainly to the end of the session."""

    def __init__(self, session, enabled: bool) -> None:  # type: ignore[no-untyped-def]
        self._session = session
        self._enabled = enabled
        self._unanswered = _unanswered_before()
        # Refused, ignored or failed with members, and answered without; or unanswered.
        self._plain = {path for path, times in self._unanswered.items() if times >= UNANSWERED_LIMIT}
        self._absent: set[str] = set()  # failed in both forms the last time: when they come back, the plain one tells
        # By path, what its plain form lists: the links, by the resource they lead to. Members in place may name themselves
        # otherwise, or be fewer than there are.
        self._listed: dict[str, dict[str, str]] = {}
        self._forget()

    def begin_walk(self) -> None:
        """Nothing of an earlier walk is handed out in this one."""
        self._forget()
        links = sum(map(len, self._listed.values()))
        if len(self._plain) + len(self._absent) + len(self._unanswered) + links > MAX_REMEMBERED:
            for remembered in (self._plain, self._absent, self._unanswered, self._listed):
                remembered.clear()

    def take(self, path: str, deadline: Deadline) -> str | None:
        """The text of a member that was in place, once; None when the controller has to be asked."""
        self._forget_other_session()
        key = canonical(path)
        folder = self._folders.get(key)
        if folder is not None and key not in self._kept:
            self._keep_drives(folder, deadline)
        begun, text = self._kept.pop(key, (0.0, None))
        if text is not None:
            self._kept_bytes -= len(text)
        return text if time.monotonic() - begun <= KEPT_SECONDS else None

    def fetch(self, path: str, deadline: Deadline) -> Reading:
        """GET a path, with members in place where that saves requests. Raises Failure."""
        kind = self._kind(path)
        if not kind or path in self._plain or path in self._absent:
            answer = self._session.fetch(path, deadline)
            if answer.succeeded():
                self._absent.discard(path)
            return Reading(answer)
        try:
            return self._fetch_expanded(path, kind, deadline)
        except _NotExpanded as outcome:
            answer = self._session.fetch(path, deadline)
            if not answer.succeeded():
                self._absent.add(path)
            elif outcome.lasting:
                self._plain.add(path)
            return Reading(answer)

    def note_drives(self, storage: dict) -> None:
        """Remember the collections of the drives that a storage resource lists."""
        drives = storage.get("Drives")
        if not self._enabled or not isinstance(drives, list):
            return
        folders: dict[str, list[str]] = {}
        for drive in drives:
            path = member(drive, "@odata.id")
            match = _CHASSIS_DRIVE.fullmatch(path) if isinstance(path, str) else None
            if match is not None:
                folders.setdefault(match[1] + match[2], []).append(canonical(path))
        for folder, paths in folders.items():
            if len(paths) > 1 and folder not in self._plain:  # one drive is one request either way
                self._folders.update((path, folder) for path in paths)

    def _forget_other_session(self) -> None:
        """An expired session is renewed in the midst of a walk, by whichever request finds that out."""
        if self._log_ins != self._session.log_ins:
            self._forget()

    def _forget(self) -> None:
        self._log_ins = self._session.log_ins
        # Path -> when it was asked for (monotonic clock), and the text.
        self._kept: dict[str, tuple[float, str]] = {}
        self._kept_bytes = 0
        self._folders: dict[str, str] = {}  # path of a drive -> that of its collection, which was not asked for yet

    def _kind(self, path: str) -> str:
        """The collection's row in the table; empty for what is asked plainly."""
        name = canonical(path).rpartition("/")[2].lower()
        return name if self._enabled and name in _NEEDED and name != _DRIVES else ""

    def _fetch_expanded(self, path: str, kind: str, deadline: Deadline) -> Reading:
        begun = time.monotonic()
        answer, resource = self._ask(path, deadline)
        asked_by = self._session.log_ins
        members = resource["Members"]
        if members and _are_links(members):
            self._plain.add(path)  # ignored, which makes the answer the plain one
            return Reading(answer, resource)
        reading = self._as_listed(path, answer, resource, deadline)
        if self._session.log_ins != asked_by:
            return reading  # the session was renewed for the plain form; the members are of the one before
        listed = self._listed.get(path, {})
        self._keep([item for item in members if canonical(item["@odata.id"]) in listed and _is_ready(kind, item)], begun)
        return reading

    def _as_listed(self, path: str, answer: Answer, resource: dict, deadline: Deadline) -> Reading:
        """The collection as its plain form lists it. That is asked for once a session, and when the members change: one
        that only cannot be put in place, a failed drive say, must not look like one that is gone."""
        keys = [canonical(item["@odata.id"]) for item in resource["Members"]]
        known = self._listed.get(path)
        if known is not None and sorted(keys) == sorted(known):
            return Reading(answer, {**resource, "Members": [{"@odata.id": link} for link in known.values()]})
        plain = self._session.fetch(path, deadline)
        links = _links(plain)
        if links is None:
            self._listed.pop(path, None)
        else:
            self._listed[path] = links
            if sorted(keys) != sorted(links):
                self._plain.add(path)  # it does not put every member in place
        return Reading(plain)

    def _ask(self, path: str, deadline: Deadline) -> tuple[Answer, dict]:
        """The answer with members, and the collection in it. Raises _NotExpanded, and Failure when a session cannot be
        opened."""
        try:
            answer = self._session.fetch(f"{path}?$expand=.", Deadline(deadline.left(EXPANDED_SECONDS)))
        except Failure as failure:
            if not self._session.is_open():
                raise
            raise _NotExpanded(self._is_lasting(path, failure)) from None
        self._unanswered.pop(path, None)
        if not answer.succeeded():
            raise _NotExpanded(lasting=NOT_READY.encode("ascii") not in answer.body)
        try:
            resource = parse_object(answer.body)
        except Failure:
            raise _NotExpanded(lasting=True) from None
        if not _is_whole(resource):
            raise _NotExpanded(lasting=True)
        return answer, resource

    def _is_lasting(self, path: str, failure: Failure) -> bool:
        if not isinstance(failure, Unanswered):
            return True  # too large, or in no form that is known
        self._unanswered[path] = self._unanswered.get(path, 0) + 1
        return self._unanswered[path] >= UNANSWERED_LIMIT

    def _keep_drives(self, folder: str, deadline: Deadline) -> None:
        """Keep those of a collection's drives that a storage resource lists; it may have more."""
        wanted = {path for path, place in self._folders.items() if place == folder}
        for path in wanted:
            del self._folders[path]
        if folder in self._plain:
            return
        begun = time.monotonic()
        try:
            _, resource = self._ask(folder, deadline)
        except _NotExpanded as outcome:
            if outcome.lasting:
                self._plain.add(folder)
            return
        members = [item for item in resource["Members"] if canonical(item["@odata.id"]) in wanted]
        if _are_links(members):
            self._plain.add(folder)
        self._keep([item for item in members if _is_ready(_DRIVES, item)], begun)

    def _keep(self, members: list[dict], begun: float) -> None:
        self._forget_other_session()
        for item in members:
            key, text = canonical(item["@odata.id"]), shaped_text(item)
            self._kept_bytes -= len(self._kept.pop(key, (0.0, ""))[1])  # of a collection that was read before
            if self._kept_bytes + len(text) <= MAX_KEPT_BYTES:
                self._kept[key] = begun, text
                self._kept_bytes += len(text)
                self.note_drives(item)


def canonical(path: str) -> str:
    """A resource's path in one form; with and without a slash at the end it is the same resource."""
    return path.rstrip("/")


def _links(answer: Answer) -> dict[str, str] | None:
    """The links of a collection, by the resource they lead to; None when the answer is no collection, or not yet one."""
    if not answer.succeeded() or NOT_READY.encode("ascii") in answer.body:
        return None
    try:
        members = parse_object(answer.body).get("Members")
    except Failure:
        return None
    if not isinstance(members, list):
        return None
    links = [member(item, "@odata.id") for item in members]
    return {canonical(link): link for link in links if isinstance(link, str)}


def _is_whole(collection: dict) -> bool:
    """Whether all members are there and name themselves, each otherwise: what comes in pages, say, lists fewer."""
    members = collection.get("Members")
    if not isinstance(members, list) or "Members@odata.nextLink" in collection:
        return False
    if collection.get("Members@odata.count", len(members)) != len(members):
        return False
    if not all(isinstance(item, dict) and isinstance(item.get("@odata.id"), str) for item in members):
        return False
    return len({canonical(item["@odata.id"]) for item in members}) == len(members)


def _are_links(members: list[dict]) -> bool:
    """Whether nothing but links is in place."""
    return all(len(item) == 1 for item in members)


def _is_ready(kind: str, resource: dict) -> bool:
    """Whether a member in place tells all that its own resource would. It may be a link, or not ready yet."""
    said = repr(resource)
    if "error" in resource or "@Message.ExtendedInfo" in said or NOT_READY in said or MISSING in said:
        return False
    state = member(resource, "Status", "State")
    if state == _STARTING:
        return False
    if kind == "storage" and not _lists_all(resource):
        return False
    if "SSD" in str(member(resource, "MediaType")) and resource.get(_WEAR.get(kind, "MediaType")) is None:
        return False
    empty = kind == _DRIVES and state == "Absent" and "Model" not in resource
    return has_members(resource, _EMPTY_BAY if empty else _NEEDED[kind])


def _lists_all(storage: dict) -> bool:
    """Whether a storage resource has controllers, and as many drives as it counts; none are to be counted, too."""
    drives = storage.get("Drives")
    return (("StorageControllers" in storage or "Controllers" in storage) and isinstance(drives, list)
            and storage.get("Drives@odata.count", len(drives) or None) == len(drives))
