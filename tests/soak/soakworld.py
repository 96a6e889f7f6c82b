"""The simulated server as the run believes it to be, and which events a change of it must make.

The rules are those an administrator is told: a state is reported when it begins, a member drive or a volume of an MR
controller also when it vanishes. They are written down here on their own, not taken from the service.
"""

from __future__ import annotations

import random
from collections import Counter
from dataclasses import dataclass
from typing import Dict, Iterator, List, NamedTuple, Optional, Tuple, Union

from watched import MEGA_RAID, SMART_ARRAY, Disk, Event, mega_disk, smart_disk, volume_offline

#: The controllers as the verbs count them.
SMART, MEGA = 1, 2
DRIVES, VOLUMES, SSDS = 4, 2, 2
OPTIONS = ("--ilo", "5", "--controllers", "1", "--drives", str(DRIVES), "--volumes", str(VOLUMES), "--mr", "1",
           "--mr-drives", str(DRIVES), "--mr-volumes", str(VOLUMES), "--ssd", str(SSDS))

GOOD, FAILED, PREDICTED, OFFLINE = "good", "failed", "predicted", "offline"
# Percent of its rated life that an SSD has used -> the level that is reported, 0 for none.
_LEVELS = {2: 0, 60: 0, 85: 80, 92: 90, 97: 95}

Verb = Tuple[Union[str, int], ...]


# Not tuples: a drive and a volume of the same number are two things.
@dataclass(frozen=True)
class Drive:
    controller: int
    number: int

    @property
    def disk(self) -> Disk:
        make = smart_disk if self.controller == SMART else mega_disk
        return make(self.number, self.ssd)

    @property
    def ssd(self) -> bool:
        return self.number <= SSDS

    @property
    def volume(self) -> "Volume":
        """The one it is a member of: the drives are dealt in order."""
        return Volume(self.controller, 1 + (self.number - 1) * VOLUMES // DRIVES)


@dataclass(frozen=True)
class Volume:
    controller: int
    number: int

    @property
    def offline(self) -> Event:
        # An MR controller counts its volumes down.
        return volume_offline(SMART_ARRAY, self.number) if self.controller == SMART else \
            volume_offline(MEGA_RAID, 240 - self.number)

    @property
    def members(self) -> List[Drive]:
        return [drive for drive in drives(self.controller) if drive.volume == self]


def drives(controller: int) -> List[Drive]:
    return [Drive(controller, number) for number in range(1, DRIVES + 1)]


def volumes(controller: int) -> List[Volume]:
    return [Volume(controller, number) for number in range(1, VOLUMES + 1)]


class Condition(NamedTuple):
    """What an item looks like. `used`: percent of an SSD's life."""
    present: bool = True
    status: str = GOOD
    used: int = 2

    @property
    def level(self) -> int:
        return _LEVELS[self.used]


_ABSENT = Condition(present=False)
Item = Union[Drive, Volume]


class World:
    """All items and their conditions. A copy is a snapshot."""

    def __init__(self) -> None:
        self.controllers = {SMART: True, MEGA: True}
        self.items: Dict[Item, Condition] = {
            item: Condition() for controller in (SMART, MEGA) for item in (*drives(controller), *volumes(controller))}

    def copy(self) -> "World":
        found = World()
        found.controllers = dict(self.controllers)
        found.items = dict(self.items)
        return found

    def seen(self, item: Item) -> Condition:
        """As the controller's resources show it."""
        return self.items[item] if self.controllers[item.controller] else _ABSENT


def blank() -> World:
    """A server that shows nothing."""
    found = World()
    found.controllers = {SMART: False, MEGA: False}
    return found


def transitions(before: World, now: World) -> "Counter[Event]":
    """What must be reported when `now` is looked at after `before` with one log-in."""
    found: Counter = Counter()
    for item in now.items:
        events = _drive_events if isinstance(item, Drive) else _volume_events
        found.update(events(item, before, now))  # type: ignore[operator]
    return found


def _drive_events(drive: Drive, before: World, now: World) -> Iterator[Event]:
    old, new = before.seen(drive), now.seen(drive)
    if not new.present:
        watched = before.controllers[MEGA] and now.controllers[MEGA]
        if drive.controller == MEGA and watched and old.present and before.seen(drive.volume).present:
            yield drive.disk.failed
        return
    was = old.status if old.present else GOOD
    if new.status == FAILED and was != FAILED:
        yield drive.disk.failed
    if new.status == PREDICTED and was != PREDICTED:
        yield drive.disk.predicted
    level = old.level if old.present else 0
    if drive.ssd and new.level not in (0, level):
        yield {80: drive.disk.worn_80, 90: drive.disk.worn_90, 95: drive.disk.worn_95}[new.level]


def _volume_events(volume: Volume, before: World, now: World) -> Iterator[Event]:
    old, new = before.seen(volume), now.seen(volume)
    if new.present:
        if new.status == OFFLINE and not (old.present and old.status == OFFLINE):
            yield volume.offline
        return
    watched = before.controllers[MEGA] and now.controllers[MEGA]
    if volume.controller == MEGA and watched and old.present:
        # A volume whose drives are still there was deleted on purpose.
        if not any(before.seen(drive).present and now.seen(drive).present for drive in volume.members):
            yield volume.offline


def known_events() -> List[Event]:
    """Every event that any change can make."""
    found: List[Event] = []
    for controller in (SMART, MEGA):
        for drive in drives(controller):
            disk = drive.disk
            found += [disk.failed, disk.predicted, disk.worn_80, disk.worn_90, disk.worn_95]
        found += [volume.offline for volume in volumes(controller)]
    return found


class Change(NamedTuple):
    """An item that gets another condition, and the verbs that make it so."""
    item: Item
    old: Condition
    condition: Condition
    verbs: List[Verb]

    @property
    def gradual(self) -> bool:
        """Whether a look between two of the verbs sees no state that is neither the old nor the new one."""
        there = self.old.present and self.condition.present
        return there and Condition() in (self.old, self.condition)


def random_change(world: World, item: Item, rng: random.Random) -> Change:
    """Another condition for the item."""
    choices = [found for found in (_drive_conditions(item) if isinstance(item, Drive) else _volume_conditions(item))
               if found != world.items[item]]
    condition = rng.choice(choices)
    return Change(item, world.items[item], condition, _verbs(item, world.items[item], condition))


def _drive_conditions(drive: Drive) -> List[Condition]:
    worn = list(_LEVELS) if drive.ssd else [2]
    found = [Condition(True, status, used) for status in (GOOD, FAILED, PREDICTED) for used in worn]
    # Vanishing is rarer than failing, being good is as likely as anything else.
    return found + [Condition()] * len(worn) + [_ABSENT]


def _volume_conditions(volume: Volume) -> List[Condition]:
    return [Condition(), Condition(status=OFFLINE), _ABSENT]


def _verbs(item: Item, old: Condition, new: Condition) -> List[Verb]:
    kind = "drive" if isinstance(item, Drive) else "volume"
    place = (item.controller, item.number)
    if not new.present:
        return [(f"remove-{kind}", *place)]
    found: List[Verb] = [(f"restore-{kind}", *place)] if not old.present else []
    if old != Condition():
        found.append((f"heal-{kind}", *place))
    verb: Optional[str] = {FAILED: "fail-drive", PREDICTED: "predict-drive", OFFLINE: "offline-volume"}.get(new.status)
    if verb is not None:
        found.append((verb, *place))
    if new.used != 2:
        found.append(("wear-drive", *place, new.used))
    return found
