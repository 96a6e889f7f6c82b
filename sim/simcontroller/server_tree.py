"""The server around the storage: service root, manager, system, chassis, and the storage that was asked for."""

from __future__ import annotations

from typing import Any, Dict, List, NamedTuple, Sequence, Tuple

from .catalogue import Controllers
from .families.base import SYSTEM, StorageController
from .families.site import Site
from .tree import LINK, ROOT, ResourceTree

_MODELS = {5: "ProLiant DL380 Gen10", 6: "ProLiant DL380 Gen11", 7: "HPE ProLiant Compute DL380 Gen12"}


class Profile(NamedTuple):
    """What the server is: controller generation (5, 6, 7), its firmware, its storage in the order of the verbs."""

    generation: int
    major: int
    minor: int
    storage: Sequence[Controllers]

    @property
    def version(self) -> str:
        if self.generation == 7:
            return f"{self.major}.{self.minor:02d}.00 May 28 2025"
        return f"iLO {self.generation} v{self.major}.{self.minor:02d}"

    @property
    def wear_scale(self) -> int:
        """iLO 5 before 1.20 reports wear in hundredths of a percent."""
        return 100 if self.generation == 5 and (self.major, self.minor) < (1, 20) else 1

    @property
    def redirects(self) -> bool:
        """iLO 5 before 1.40 sends a path without trailing slash on to the one with it."""
        return self.generation == 5 and (self.major, self.minor) < (1, 40)


def build(profile: Profile) -> Tuple[ResourceTree, List[StorageController]]:
    """The tree of a server and its storage controllers, in the order in which the control verbs count them."""
    tree = ResourceTree()
    _add_root(tree, profile)
    _add_manager(tree, profile)
    site = Site(tree, profile.generation, profile.wear_scale)
    controllers = [family.make(site, amount) for family, count, amount in profile.storage for _ in range(count)]
    views = [view for controller in controllers for view in controller.views]
    if profile.generation == 5:
        _add_smart_storage(tree, [path for view in views for path in view.arrays])
    _add_system(tree, profile)
    tree.add_collection(f"{SYSTEM}/Storage", "StorageCollection", "Storage",
                        [path for view in views for path in view.storages])
    _add_chassis(tree, [path for view in views for path in view.enclosures])
    return tree, controllers


def _add_root(tree: ResourceTree, profile: Profile) -> None:
    product = f"iLO {profile.generation}"
    tree.add("/redfish", {"v1": f"{ROOT}/"})
    tree.delete_member("/redfish", LINK)
    links = {name: {LINK: f"{ROOT}/{name}"} for name in
             ("AccountService", "Chassis", "EventService", "Managers", "SessionService", "Systems", "UpdateService")}
    tree.add(ROOT, {
        "@odata.type": "#ServiceRoot.v1_13_0.ServiceRoot", "Id": "RootService", **links,
        "Links": {"Sessions": {LINK: f"{ROOT}/SessionService/Sessions"}}, "Name": "HPE RESTful Root Service",
        "Oem": {"Hpe": {
            "@odata.type": "#HpeiLOServiceExt.v2_3_0.HpeiLOServiceExt",
            "Manager": [{"DefaultLanguage": "en", "FQDN": None, "HostName": "ILOSIMULATED",
                         "ManagerFirmwareVersion": f"{profile.major}.{profile.minor:02d}", "ManagerType": product,
                         "Status": {"Health": "OK"}}],
            "Moniker": {"BMC": "iLO", "CLASS": "Baseboard Management Controller", "PRODABR": "iLO",
                        "PRODFAM": "Integrated Lights-Out", "PRODGEN": product,
                        "PRODNAM": f"Integrated Lights-Out {profile.generation}", "PRODTAG": f"HPE {product}",
                        "SYSFAM": "ProLiant", "VNIC": "Virtual NIC"},
            "Sessions": {"CertificateLoginEnabled": False, "LocalLoginEnabled": True, "LoginFailureDelay": 0,
                         "SecurityOverride": False, "ServerName": ""},
            "Time": "2026-01-05T08:00:00Z"}},
        "Product": _MODELS[profile.generation],
        "ProtocolFeaturesSupported": {
            "ExpandQuery": {"ExpandAll": False, "Levels": True, "Links": False, "MaxLevels": 1, "NoLinks": True},
            "FilterQuery": True, "OnlyMemberQuery": True, "SelectQuery": True},
        "RedfishVersion": "1.13.0", "UUID": "5a1b2c3d-0000-5e4f-8a90-51a0b1c2d3e4", "Vendor": "HPE"})


def _add_manager(tree: ResourceTree, profile: Profile) -> None:
    manager = tree.add(f"{ROOT}/Managers/1", {
        "@odata.type": "#Manager.v1_5_1.Manager", "Id": "1", "FirmwareVersion": profile.version,
        "Links": {"ManagerForServers": [{LINK: SYSTEM}], "ManagerForChassis": [{LINK: f"{ROOT}/Chassis/1"}]},
        "ManagerType": "BMC", "Model": f"iLO {profile.generation}", "Name": "Manager",
        "Oem": {"Hpe": {
            "@odata.type": "#HpeiLO.v2_8_0.HpeiLO",
            "Firmware": {"Current": {"Date": "May 28 2025", "DebugBuild": False, "MajorVersion": profile.major,
                                     "MinorVersion": profile.minor, "VersionString": profile.version}},
            "iLOServicePortSettings": {"iLOServicePortAuthentication": False}, "VirtualNICEnabled": True}},
        "Status": {"Health": "OK", "State": "Enabled"}, "UUID": "5a1b2c3d-1111-5e4f-8a90-51a0b1c2d3e4"})
    tree.add_collection(f"{ROOT}/Managers", "ManagerCollection", "Managers", [manager])


def _add_system(tree: ResourceTree, profile: Profile) -> None:
    links = {"PCIDevices": {LINK: f"{SYSTEM}/PCIDevices"}, "USBPorts": {LINK: f"{SYSTEM}/USBPorts"}}
    if profile.generation == 5:
        links["SmartStorage"] = {LINK: f"{SYSTEM}/SmartStorage"}
    health = {"Status": {"Health": "OK"}}
    tree.add(SYSTEM, {
        "@odata.type": "#ComputerSystem.v1_13_0.ComputerSystem", "Id": "1", "AssetTag": "",
        "BiosVersion": "U30 v2.90 (07/20/2025)", "HostName": "simserver",
        "Links": {"ManagedBy": [{LINK: f"{ROOT}/Managers/1"}], "Chassis": [{LINK: f"{ROOT}/Chassis/1"}]},
        "LocationIndicatorActive": None, "Manufacturer": "HPE",
        "MemorySummary": {"Status": {"HealthRollup": "OK"}, "TotalSystemMemoryGiB": 64},
        "Model": _MODELS[profile.generation], "Name": "Computer System",
        "Oem": {"Hpe": {
            "@odata.type": "#HpeComputerSystemExt.v2_10_1.HpeComputerSystemExt",
            "AggregateHealthStatus": {"AgentlessManagementService": "Ready", "Fans": health, "Memory": health,
                                      "Processors": health, "Storage": health, "Temperatures": health},
            "DeviceDiscoveryComplete": {"AMSDeviceDiscovery": "Complete",
                                        "DeviceDiscovery": "vMainDeviceDiscoveryComplete",
                                        "SmartArrayDiscovery": "Complete"},
            "Links": links}},
        "PowerState": "On", "ProcessorSummary": {"Count": 2, "Status": {"HealthRollup": "OK"}},
        "SKU": "SIM000-B21", "SerialNumber": "SIMSRV0001",
        "Status": {"Health": "OK", "HealthRollup": "OK", "State": "Enabled"},
        "Storage": {LINK: f"{SYSTEM}/Storage"}, "SystemType": "Physical",
        "UUID": "5a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d"})
    tree.add_collection(f"{ROOT}/Systems", "ComputerSystemCollection", "Computer Systems", [SYSTEM])


def _add_smart_storage(tree: ResourceTree, arrays: List[str]) -> None:
    parts: Dict[str, List[str]] = {"ArrayControllers": arrays, "HostBusAdapters": []}
    links: Dict[str, Any] = {}
    for part, found in parts.items():
        kind = part[:-1]
        links[part] = {LINK: tree.add_collection(f"{SYSTEM}/SmartStorage/{part}", f"HpeSmartStorage{kind}Collection",
                                                 f"HpeSmartStorage{part}", found)}
    tree.add(f"{SYSTEM}/SmartStorage", {
        "@odata.type": "#HpeSmartStorage.v2_0_0.HpeSmartStorage", "Description": "HPE Smart Storage",
        "Id": "SmartStorage", "Links": links, "Name": "HpeSmartStorage", "Status": {"Health": "OK"}})


def _add_chassis(tree: ResourceTree, enclosures: List[str]) -> None:
    chassis = tree.add(f"{ROOT}/Chassis/1", {
        "@odata.type": "#Chassis.v1_11_0.Chassis", "Id": "1", "ChassisType": "RackMount",
        "Links": {"ComputerSystems": [{LINK: SYSTEM}], "ManagedBy": [{LINK: f"{ROOT}/Managers/1"}]},
        "Manufacturer": "HPE", "Name": "Computer System Chassis", "PowerState": "On", "SerialNumber": "SIMSRV0001",
        "Status": {"Health": "OK", "State": "Enabled"}})
    tree.add_collection(f"{ROOT}/Chassis", "ChassisCollection", "Computer System Chassis", [chassis, *enclosures])
