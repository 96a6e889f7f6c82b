"""Reading the controller's JSON and writing the part of it that the service uses, compact and printable."""

from __future__ import annotations

import json
import urllib.parse

from _bayward_outcome import OTHER, Failure, printable

_ID = "@odata.id"
_TEXT_CHARACTERS = "".join(map(chr, range(0x20, 0x7F)))
_LEAF: dict = {}  # a text, number, truth value or null

# The members that are kept, of all resources together: a resource has those that it has. Members nested in ones that
# are not named here go, so that a null in them cannot be taken for one of the resource's own.
_LINK = {_ID: _LEAF}
_STATUS = {"Health": _LEAF, "HealthRollup": _LEAF, "State": _LEAF}
_PLACE = {"PartLocation": {"LocationOrdinalValue": _LEAF, "LocationType": _LEAF, "ServiceLabel": _LEAF}}
_FIRMWARE = {"Current": {"MajorVersion": _LEAF, "MinorVersion": _LEAF, "VersionString": _LEAF}}
_CONTROLLER = {_ID: _LEAF, "Name": _LEAF, "Model": _LEAF, "SerialNumber": _LEAF, "Location": _PLACE}
_RESOURCE = {
    **_CONTROLLER, "Id": _LEAF, "FirmwareVersion": _FIRMWARE, "Status": _STATUS,
    # Collections
    "Members": _LINK, "Members@odata.count": _LEAF,
    # Storage resources
    "StorageControllers": _CONTROLLER, "Controllers": _LINK, "Drives": _LINK, "Volumes": _LINK,
    # Logical drives and volumes
    "LogicalDriveNumber": _LEAF, "RAIDType": _LEAF,
    "Links": {"Drives": _LINK, "DedicatedSpareDrives": _LINK, "Volumes": _LINK},
    # Drives
    "CapacityGB": _LEAF, "CapacityMiB": _LEAF, "CapacityBytes": _LEAF, "CapacityLogicalBlocks": _LEAF,
    "BlockSizeBytes": _LEAF, "MediaType": _LEAF, "SSDEnduranceUtilizationPercentage": _LEAF,
    "PredictedMediaLifeLeftPercent": _LEAF, "FailurePredicted": _LEAF, "Revision": _LEAF,
    "DiskDriveStatusReasons": _LEAF, "StatusIndicator": _LEAF, "PhysicalLocation": _PLACE,
    # Managers and the service root
    "Firmware": _FIRMWARE, "Oem": {"Hpe": {"Firmware": _FIRMWARE, "Moniker": {"PRODGEN": _LEAF}}},
    # Error answers
    "error": {"code": _LEAF, "message": _LEAF,
              "@Message.ExtendedInfo": {"MessageId": _LEAF, "Message": _LEAF, "MessageArgs": _LEAF}},
}

# Counted before the text is taken apart, because a value that takes 3 bytes of text takes up to 100 bytes of memory.
# The 200 drives of a full controller, inlined into their collection, have some 20,000.
MAX_VALUES = 50_000
_VALUE_MARKS = (b"{", b"[", b",")  # those within texts count too

_compact = json.JSONEncoder(separators=(",", ":")).encode
_WIDEST = 2**63
_INTEGER_DIGITS = 20  # of a number that can be in 64 bits, with its sign


def parse_object(body: bytes) -> dict:
    """The JSON object a body holds. Raises Failure(OTHER) when it holds none. Of equal names the last one counts."""
    if len(body) > MAX_VALUES and sum(map(body.count, _VALUE_MARKS)) > MAX_VALUES:
        raise Failure(OTHER, f"An answer of the controller holds more than {MAX_VALUES} values.")
    try:
        value = _decoder.decode(body.decode("utf-8-sig", "replace"))
    except (ValueError, RecursionError):
        raise Failure(OTHER, "An answer of the controller is not JSON.") from None
    if not isinstance(value, dict):
        raise Failure(OTHER, "An answer of the controller is not a JSON object.")
    return value


def shaped_text(resource: dict) -> str:
    """The kept members as JSON without blanks, so that a null is always written "K":null."""
    return _compact(_shaped(resource, _RESOURCE))


def member(resource: object, *names: str) -> object:
    """The member at the end of a chain of names; None when any is missing."""
    for name in names:
        if not isinstance(resource, dict):
            return None
        resource = resource.get(name)
    return resource


def has_members(resource: object, needed: dict) -> bool:
    """Whether the resource has every member named, none of them null, and each of them those that are named as its own."""
    if not isinstance(resource, dict):
        return False
    for name, parts in needed.items():
        part = resource.get(name)
        if part is None or (parts and not has_members(part, parts)):
            return False
    return True


def _shaped(value: object, kept: dict) -> object:
    if isinstance(value, dict):
        shaped = {}
        for name, part in value.items():
            if name in kept:
                # What most members are goes as it is, and without a call of its own; a walk has thousands of them.
                kind = type(part)
                if (part.isascii() and part.isprintable() if kind is str
                        else part is None or kind is int and -_WIDEST <= part < _WIDEST):
                    shaped[name] = part
                else:
                    shaped[name] = _quoted_id(part) if name == _ID else _shaped(part, kept[name])
        return shaped
    if isinstance(value, list):
        # No resource has lists within lists; an empty one in their place keeps the type wrong, and the depth small.
        return [[] if isinstance(part, list) else _shaped(part, kept) for part in value]
    if isinstance(value, str):
        return printable(value)
    if isinstance(value, (int, float)) and not -_WIDEST <= value < _WIDEST:
        return None  # no reader's number: infinite, or beyond 64 bits
    return value


def _quoted_id(value: object) -> object:
    """An id stays usable as the path that it is: what may not be in a text is percent-quoted, not replaced."""
    if not isinstance(value, str):
        return _shaped(value, _LEAF)
    if value.isascii() and value.isprintable():
        return value
    return urllib.parse.quote(value, safe=_TEXT_CHARACTERS, errors="surrogatepass")


def _integer(digits: str) -> int | float:
    # Turning very long numbers into integers takes Python ages.
    return int(digits) if len(digits) <= _INTEGER_DIGITS else float(digits)


def _no_json(name: str) -> None:
    raise ValueError(name)  # NaN and Infinity, which Python would take


_decoder = json.JSONDecoder(parse_constant=_no_json, parse_int=_integer)
