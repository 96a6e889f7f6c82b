"""The listings of storcli64, as version 007.x prints them: texts made from the controllers, nothing else."""

from __future__ import annotations

import time
from typing import Any, Dict, List, Optional, Sequence

Drive = Dict[str, Any]
Controller = Dict[str, Any]

#: What the tool's own exit status becomes when a drive that is listed has failed.
FAILED_DRIVE_STATUS = 46

_VERSION = ["CLI Version = 007.1623.0000.0000 May 17, 2021", "Operating system = Linux 5.14.0-70.el9.x86_64"]
_LEGEND = ["", "EID=Enclosure Device ID|Slt=Slot No|DID=Device ID|DG=DriveGroup",
           "DHS=Dedicated Hot Spare|UGood=Unconfigured Good|Onln=Online|Offln=Offline|Intf=Interface",
           "Med=Media Type|SED=Self Encryptive Drive|PI=PI Eligible", ""]
_DAYS = ("Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun")
_MONTHS = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")
# A controller whose drives hang on no enclosure tells this number in events, and none in lists.
_NO_ENCLOSURE = 255


def present(controller: Controller) -> List[Drive]:
    return [drive for drive in controller["drives"] if not drive["absent"]]


def place(controller: int, drive: Drive) -> str:
    enclosure = "" if drive["enclosure"] is None else f"/e{drive['enclosure']}"
    return f"/c{controller}{enclosure}/s{drive['slot']}"


def failed(drives: Sequence[Drive]) -> List[Drive]:
    return [drive for drive in drives if drive["state"] == "Failed"]


# Blocks that all listings have

def table(titles: Sequence[str], rows: Sequence[Sequence[object]], right: Sequence[str] = ()) -> List[str]:
    """A table between dash lines; every row ends in a blank. `right` names the columns that are set to the right."""
    cells = [list(titles)] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[column]) for row in cells) for column in range(len(titles))]

    def line(row: Sequence[str]) -> str:
        return "".join(f"{cell:>{width}} " if name in right else f"{cell:<{width}} "
                       for cell, width, name in zip(row, widths, titles))

    dashes = "-" * (sum(widths) + len(widths) - 1)
    return [dashes, line(cells[0]), dashes, *[line(row) for row in cells[1:]], dashes]


def heading(text: str) -> List[str]:
    return [f"{text} :", "=" * len(text), ""]


def envelope(controller: Optional[int], drives: Sequence[Drive] = (), refusal: str = "") -> List[str]:
    """The first lines. A failed drive among those listed makes the listing a failure that is complete all the same."""
    own = [] if controller is None else [f"Controller = {controller}"]
    if refusal:
        return [*_VERSION, *own, "Status = Failure", f"Description = {refusal}", ""]
    bad = failed(drives)
    if not bad:
        return [*_VERSION, *own, "Status = Success", "Description = None", ""]
    rows = [[place(controller or 0, drive), "Failure", FAILED_DRIVE_STATUS, "drive is failed"] for drive in bad]
    return [*_VERSION, *own, "Status = Failure", "Description = Show Drive Information Failed.", "",
            *heading("Detailed Status"), *table(["Drive", "Status", "ErrCd", "ErrMsg"], rows, ["ErrCd"]), "", ""]


def _drive_table(drives: List[Drive]) -> List[str]:
    rows = [[f"{' ' if drive['enclosure'] is None else drive['enclosure']}:{drive['slot']}", drive["did"],
             drive["state"], "-" if drive["group"] is None else drive["group"], drive["capacity"], drive["bus"],
             drive["kind"], "N", "N", "512B", drive["model"], "U", "-"] for drive in drives]
    titles = ["EID:Slt", "DID", "State", "DG", "Size", "Intf", "Med", "SED", "PI", "SeSz", "Model", "Sp", "Type"]
    return table(titles, rows, ["DID", "Size"])


# The listings

def overview(controllers: List[Controller]) -> List[str]:
    """"show"."""
    lines = [*_VERSION, "Status Code = 0", "Status = Success", "Description = None", "",
             f"Number of Controllers = {len(controllers)}", "Host Name = simserver",
             "Operating System  = Linux 5.14.0-70.el9.x86_64", ""]
    if not controllers:
        return lines
    rows = []
    for number, controller in enumerate(controllers):
        drives = present(controller)
        groups = {drive["group"] for drive in drives} - {None}
        # The model is squeezed free of blanks in this table alone.
        rows.append([number, "".join(controller["model"].split()), 8, len(drives), len(groups), 0, len(groups), 0,
                     "N/A", "On", "1&2", "Y", 3, "NdAtn" if failed(drives) else "Opt"])
    titles = ["Ctl", "Model", "Ports", "PDs", "DGs", "DNOpt", "VDs", "VNOpt", "BBU", "sPR", "DS", "EHS", "ASOs", "Hlth"]
    return [*lines, *heading("System Overview"), *table(titles, rows, ["Ctl", *titles[2:8], "ASOs"]), "",
            "Ctl=Controller Index|DGs=Drive groups|VDs=Virtual drives|Fld=Failed", ""]


def controller_listing(number: int, controller: Controller) -> List[str]:
    """"/cN show"."""
    drives = present(controller)
    lines = ["Generating detailed summary of the adapter, it may take a while to complete.", "",
             *envelope(number, drives), f"Product Name = {controller['model']}",
             f"Serial Number = {controller['serial']}", "SAS Address =  500062b200000000",
             f"PCI Address = 00:{2 + number:02x}:00:00", "System Time = 11/21/2026 12:00:00",
             "FW Package Build = 52.16.1-4405", "Driver Name = megaraid_sas",
             "Vendor Id = 0x1000", "Device Id = 0x10E2"]
    if controller["slot"] is not None:
        lines.append(f"PCI Slot Number = {controller['slot']}")
    used = [drive for drive in drives if drive["group"] is not None]
    groups = sorted({drive["group"] for drive in used})
    lines.append(f"Drive Groups = {len(groups)}")
    lines.append("")
    if used:
        rows = [[drive["group"], 0, row, f"{drive['enclosure']}:{drive['slot']}", drive["did"], "DRIVE",
                 drive["state"], "N", drive["capacity"], "dflt", "N", "N", "dflt", "N", "N"]
                for row, drive in enumerate(used)]
        titles = ["DG", "Arr", "Row", "EID:Slot", "DID", "Type", "State", "BT", "Size", "PDC", "PI", "SED", "DS3",
                  "FSpace", "TR"]
        lines += [*heading("TOPOLOGY"), *table(titles, rows, ["DG", "Size"]), "",
                  "DG=Disk Group Index|Arr=Array Index|Row=Row Index|EID=Enclosure Device ID", "",
                  f"Virtual Drives = {len(groups)}", "", *heading("VD LIST"),
                  *table(["DG/VD", "TYPE", "State", "Access", "Consist", "Cache", "Cac", "sCC", "Size", "Name"],
                         [[f"{group}/{239 - group}", "RAID5", "Optl", "RW", "Yes", "RWBD", "-", "ON", "446.625 GB", ""]
                          for group in groups], ["Size"]), ""]
    lines += [f"Physical Drives = {len(drives)}", ""]
    if drives:
        lines += [*heading("PD LIST"), *_drive_table(drives), *_LEGEND]
    enclosures = sorted({drive["enclosure"] for drive in drives} - {None})
    if enclosures:
        lines += [f"Enclosures = {len(enclosures)}", "", *heading("Enclosure LIST"),
                  *table(["EID", "State", "Slots", "PD", "PS", "Fans", "TSs", "Alms", "SIM", "Port#", "ProdID"],
                         [[eid, "OK", 8, sum(drive["enclosure"] == eid for drive in drives), 0, 0, 0, 0, 1, "-",
                           "BP-SIM"] for eid in enclosures], ["EID"]), ""]
    return lines


def drive_listing(number: int, drive: Drive) -> List[str]:
    """"/cN/eE/sS show all"."""
    name = f"Drive {place(number, drive)}"
    lines = [*envelope(number, [drive]), "", *heading(name), *_drive_table([drive]), *_LEGEND,
             *heading(f"{name} - Detailed Information"), *heading(f"{name} State")[:2], "Shield Counter = 0",
             f"Media Error Count = {len(drive['times'])}", "Other Error Count = 0", "Predictive Failure Count = 0",
             "S.M.A.R.T alert flagged by drive = No", "", *heading(f"{name} Device attributes")[:2],
             f"SN =     {drive['serial']:<20}", f"Manufacturer Id = {drive['bus']:<8}",
             f"Model Number = {drive['model']:<16}", "NAND Vendor = NA", "WWN = 5000C50000000000",
             f"Firmware Revision = {drive['firmware']:<8}", f"Raw size = {drive['capacity']} [0xdf8fe2b0 Sectors]",
             "Logical Sector Size = 512B", "Link Speed = 12.0Gb/s"]
    # Builds differ: some tell where the drive is, some do not.
    lines += [f"{key} = {drive[member]}" for key, member in (("Port Number", "port"), ("Box", "box"), ("Bay", "bay"))
              if drive[member] is not None]
    lines += ["", *heading(f"{name} Policies/Settings")[:2], "Drive position = DriveGroup:0, Span:0, Row:0",
              "Enclosure position = 1", "Connected Port Number = 3(path0) ", "Sequence Number = 2",
              "Commissioned Spare = No", ""]
    return lines


def event_log(number: int, controller: Controller) -> List[str]:
    """"/cN show events": the records, oldest first, and what the tool says of itself directly after the last one."""
    records: List[Any] = [(0, None, None)]
    for drive in present(controller):
        records += [(moment or 0, moment, drive) for moment in drive["times"]]
        records += [(moment, moment, {**drive, "found_by": "sense"}) for moment in drive["other_times"]]
    records.sort(key=lambda record: record[0])
    lines: List[str] = []
    for sequence, (_, moment, drive) in enumerate(records, 0x11042):
        lines += ["", "", f"seqNum: 0x{sequence:08x}",
                  # Until the controller is told the time it counts from its own start.
                  "Seconds since last reboot: 46" if moment is None else f"Time: {clock_text(moment)}",
                  "", *(_start_record() if drive is None else _drive_record(drive))]
    rows = [["Controller Date", "OK"]]
    return [*lines, *envelope(number), *heading("Controller Properties"), *table(["Ctrl_Prop", "Value"], rows), ""]


def clock_text(moment: int) -> str:
    """The controller's local time, in English whatever the locale."""
    at = time.localtime(moment)
    return (f"{_DAYS[at.tm_wday]} {_MONTHS[at.tm_mon - 1]} {at.tm_mday:>2} "
            f"{at.tm_hour:02}:{at.tm_min:02}:{at.tm_sec:02} {at.tm_year}")


def _start_record() -> List[str]:
    return ["Code: 0x00000000", "Class: 0", "Locale: 0x20",
            "Event Description: Firmware initialization started (PCI ID 10e2/1000/4010/1000)", "Event Data:",
            "===========", "None"]


def _drive_record(drive: Drive) -> List[str]:
    """Numbers in the description are hexadecimal but for the slot; in the data they are decimal."""
    enclosure = _NO_ENCLOSURE if drive["enclosure"] is None else drive["enclosure"]
    name = f"PD {drive['did']:02x}(e0x{enclosure:02x}/s{drive['slot']})"
    device = [f"Device ID: {drive['did']}", f"Enclosure Index: {enclosure}", f"Slot Number: {drive['slot']}"]
    volume = ["Target Id: 0"]
    code, text, data = {
        "patrol": (0x5d, f"Patrol Read corrected medium error on {name} at 1aea556", device),
        "recovery": (0x6e, f"Corrected medium error during recovery on {name} at 14553b546", device),
        "consistency": (0x39, f"Consistency Check corrected medium error (VD 00/0 at 5e11fa31, {name} at 5e11fa31)",
                        volume),
        "background": (0x2f, f"Background Initialization corrected medium error (VD 00/0 at 174442, {name} at 174442)",
                       volume),
        "sense": (0x71, f"Unexpected sense: {name}, CDB: 28 00 00 74 80 ff 00 01 00 00, Sense: 3/11/00", device),
    }[drive["found_by"]]
    return [f"Code: 0x{code:08x}", "Class: 0", "Locale: 0x02", f"Event Description: {text}", "Event Data:",
            "===========", *data]
