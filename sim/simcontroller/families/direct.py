"""Drives attached to the server itself (NVMe, SATA, VROC): ids DA..., resources made by the management controller."""

from __future__ import annotations

from abc import abstractmethod
from typing import Any, Dict, List, NamedTuple, Optional

from ..tree import LINK
from .base import Amount, Changes, Identity
from .redfish import RedfishController, counted, raid_type
from .site import Site


class DirectModel(NamedTuple):
    """What a drive says of itself. `size` in bytes."""

    name: str
    model: str
    size: int
    revision: str
    protocol: str


class DirectController(RedfishController):
    """The controller is embedded and linked at once; links to drives end in a slash, whatever form was asked for."""

    EMBEDDED = True
    LINKED = True
    FROM_DEVICE = False
    LETTERS: str
    STORAGE_NAME: str
    ENTRY_NAME: str
    MODELS: Dict[str, DirectModel]
    #: What is said of an SSD's wear when it is new.
    WEAR_STATUS = "OK"
    FAILED_DRIVE: Changes = {"Status.Health": "Critical", "Oem.Hpe.DriveStatus.Health": "Critical"}

    def __init__(self, site: Site, amount: Amount, title: str, model: str) -> None:
        """`{}` in the model becomes the controller's number, from 1 on."""
        place = site.next("direct")
        self._generation = site.generation
        number = site.next(self.LETTERS)
        super().__init__(site.tree, f"DA{place:06X}", f"{title} {number + 1}",
                         Identity(model.format(number + 1), place, self.LETTERS, number))
        self._build(amount)

    # --- what a family says ---

    @abstractmethod
    def _label(self, number: int) -> str:
        """The place of the drive with this index."""

    def _more(self, media: str) -> Dict[str, Any]:
        """Members of a drive that not all families send."""
        return {}

    @abstractmethod
    def _drive_id(self, number: int) -> str:
        """The id of the drive with this index."""

    @abstractmethod
    def _controller_location(self, embedded: bool) -> Dict[str, Any]:
        """The place of the controller."""

    def _controller_status(self) -> Dict[str, Optional[str]]:
        return {"Health": "OK", "State": "Enabled"}

    def _controller_firmware(self) -> Optional[str]:
        return None

    # --- bodies ---

    def _drive_path(self, number: int) -> str:
        return f"{self.path}/Drives/{self._drive_id(number)}"

    def _drive_link(self, path: str) -> str:
        return f"{path}/"

    def _drive(self, number: int, media: str, volumes: List[str]) -> Dict[str, Any]:
        kind, label = self.MODELS[media], self._label(number)
        return {
            LINK: self._drive_link(self._drive_path(number)), "@odata.type": "#Drive.v1_11_0.Drive", "Id": self._drive_id(number),
            "CapacityBytes": kind.size, "Location": [{"Info": label, "InfoFormat": "LocationText"}],
            "MediaType": media, "Model": kind.model, "Name": kind.name,
            "Oem": {"Hpe": {"@odata.type": "#HpeDrive.v2_1_0.HpeDrive", "CurrentTemperatureCelsius": 31,
                            "DriveStatus": {"Health": "OK", "State": "Enabled"},
                            "TemperatureStatus": {"Health": "OK"}, "WearStatus": self.WEAR_STATUS}},
            "PhysicalLocation": {"PartLocation": {"LocationOrdinalValue": number + 1, "LocationType": "Bay",
                                                  "ServiceLabel": label}},
            "Protocol": kind.protocol, "Revision": kind.revision,
            "SerialNumber": self._identity.drive_serial(number), "Status": {"Health": "OK", "State": "Enabled"},
            **self._more(media)}

    def _volume(self, number: int, drives: List[str]) -> Dict[str, Any]:
        count = str(self._volume_id(number))
        return {
            "@odata.type": "#Volume.v1_6_2.Volume", "CapacityBytes": 479559942144, "Id": count,
            "Links": counted("Drives", [self._drive_link(path) for path in drives]), "Name": f"Volume {count}", "RAIDType": raid_type(len(drives)),
            "Status": {"Health": "OK", "State": "Enabled"}}

    def _storage(self) -> Dict[str, Any]:
        body: Dict[str, Any] = {
            "@odata.type": "#Storage.v1_12_0.Storage", "Id": self.id, "Name": self.STORAGE_NAME,
            "Controllers": {LINK: f"{self.path}/Controllers"},
            **counted("Drives", [self._drive_link(path) for path in self.drives]),
            "Status": {"Health": "OK", "State": "Enabled"},
            "StorageControllers": [{LINK: f"{self.path}#/StorageControllers/0/", "MemberId": "0",
                                    **self._controller(True)}]}
        if self.VOLUMES:
            body["Volumes"] = {LINK: f"{self.path}/Volumes"}
        return body

    def _controller(self, embedded: bool) -> Dict[str, Any]:
        return {"FirmwareVersion": self._controller_firmware(),
                "Location": {"PartLocation": self._controller_location(embedded)}, "Manufacturer": "",
                "Model": self._identity.model, "Name": self.ENTRY_NAME, "SerialNumber": self._identity.serial(),
                "Status": self._controller_status()}

    def _linked_controller(self) -> Dict[str, Any]:
        return {"@odata.type": "#StorageController.v1_2_0.StorageController", "Id": "0", **self._controller(False)}
