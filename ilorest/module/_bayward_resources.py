"""What `get` answers for a resource: which answers are handed on, which are failures, and storage that is not there."""

from __future__ import annotations

import re

from _bayward_expansion import MISSING, NOT_READY, Expansion
from _bayward_outcome import OTHER, REFUSED, Answer, Deadline, Failure
from _bayward_shaping import member, parse_object, shaped_text

GET_SECONDS = 45.0  # one whole get, with renewed session, redirects and look-ups
# Texts handed out in one walk over the systems. 200 drives have some 300,000 bytes; a controller that lists storage
# without end would fill this server's memory.
MAX_WALK_BYTES = 16 * 1024 * 1024

_MARKERS = (NOT_READY, MISSING)  # the caller waits on these and asks again

_SYSTEMS = re.compile(r"/redfish/v1/Systems/?", re.IGNORECASE)
_STORAGE = re.compile(r"(/redfish/v1/Systems/[^/]+)/(Storage|SmartStorage/ArrayControllers)/?", re.IGNORECASE)


class Resources:
    """Resource texts out of a session, whose `fetch(path, deadline)` gives an Answer or raises Failure.

    `expand`: collections are asked with their members in place.
    """

    def __init__(self, session, expand: bool = True) -> None:  # type: ignore[no-untyped-def]
        self._session = session
        self._expansion = Expansion(session, expand)
        # System path -> lower-case names of the storage families its resource links to; of one walk over the systems.
        self._families: dict[str, frozenset[str]] = {}
        self._walked = 0  # bytes of texts handed out since the walk began

    def get(self, path: str) -> str:
        """The shaped text of a resource, or of the error answer when it holds a marker. Raises Failure for all else."""
        if not path.startswith("/"):
            raise Failure(OTHER, f'The resource path "{path}" does not begin with "/".')
        deadline = Deadline(GET_SECONDS)
        if _SYSTEMS.fullmatch(path):
            self._families.clear()
            self._walked = 0
            self._expansion.begin_walk()
        text = self._expansion.take(path, deadline)
        return self._counted(text) if text is not None else self._read(path, deadline)

    def _counted(self, text: str) -> str:
        self._walked += len(text)
        if self._walked > MAX_WALK_BYTES:
            raise Failure(OTHER, f"The controller lists storage of more than {MAX_WALK_BYTES} bytes.")
        return text

    def _read(self, path: str, deadline: Deadline) -> str:
        reading = self._expansion.fetch(path, deadline)
        answer = reading.answer
        if answer.status == 401:
            raise Failure(REFUSED, f"The controller refused GET {path} although the log-in succeeded; "
                                   "check the account's privileges.")
        resource = self._object(path, answer) if reading.resource is None else reading.resource
        text = self._counted(shaped_text(resource))
        if answer.succeeded():
            self._expansion.note_drives(resource)
            return text
        if MISSING in text and self._is_absent_storage(path, deadline):
            return shaped_text({"@odata.id": path, "Members": [], "Members@odata.count": 0})
        if any(marker in text for marker in _MARKERS):
            return text
        raise self._bad_status(path, answer)

    def _object(self, path: str, answer: Answer) -> dict:
        try:
            return parse_object(answer.body)
        except Failure as failure:
            if answer.succeeded():
                raise Failure(OTHER, f"GET {path}: {failure}") from None
            raise self._bad_status(path, answer) from None

    @staticmethod
    def _bad_status(path: str, answer: Answer) -> Failure:
        return Failure(OTHER, f"The controller answered {path} with HTTP status {answer.status}.")

    def _is_absent_storage(self, path: str, deadline: Deadline) -> bool:
        """Whether the path is a storage collection that its system does not link to: it will never be there.

        A linked one is only missing for now (server in POST, controller restarted), and False is also the answer when
        the system cannot be read: then waiting is right.
        """
        match = _STORAGE.fullmatch(path)
        if match is None:
            return False
        system, family = match[1], match[2].partition("/")[0].lower()
        if system not in self._families:
            try:
                answer = self._session.fetch(f"{system}/", deadline)
                if not answer.succeeded():
                    return False
                self._families[system] = _linked_families(parse_object(answer.body))
            except Failure:
                return False
        return family not in self._families[system]


def _linked_families(system: dict) -> frozenset[str]:
    """Storage families a system's resource links to: Redfish's at its top, the older one under the maker's links."""
    families = set()
    if member(system, "Storage"):
        families.add("storage")
    if member(system, "Oem", "Hpe", "Links", "SmartStorage") or member(system, "Oem", "Hpe", "SmartStorage"):
        families.add("smartstorage")
    return frozenset(families)
