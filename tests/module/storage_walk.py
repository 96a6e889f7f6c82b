"""A walk over all storage resources through the module, asking in the order in which the service's reader does."""

from __future__ import annotations

import json


class Walk:
    """What one walk was given: `texts` in order, as pairs of path and text."""

    def __init__(self, get):
        self._get = get
        self.texts = []
        for system in self._members("/redfish/v1/Systems/"):
            for storage in self._members(below(system, "Storage/")):
                self._storage(self._resource(storage))
            for controller in self._members(below(system, "SmartStorage/ArrayControllers/")):
                self._resource(controller)
                for volume in self._members(below(controller, "LogicalDrives/")):
                    self._resource(volume)
                    self._resource(below(volume, "DataDrives/"))
                for drive in self._members(below(controller, "DiskDrives/")):
                    self._resource(drive)

    def _storage(self, storage):
        if "StorageControllers" not in storage and "Controllers" in storage:
            for controller in self._members(storage["Controllers"]["@odata.id"])[:1]:
                self._resource(controller)
        if "Volumes" in storage:
            for volume in self._members(storage["Volumes"]["@odata.id"]):
                self._resource(volume)
        for drive in storage["Drives"]:
            self._resource(drive["@odata.id"])

    def _resource(self, path):
        text = self._get(path)
        assert isinstance(text, str), (path, text)
        self.texts.append((path, text))
        return json.loads(text)

    def _members(self, path):
        return [link["@odata.id"] for link in self._resource(path)["Members"]]


def below(path, name):
    return f"{path.rstrip('/')}/{name}"
