"""The text of the diagnostic report (ADUReport.txt), in the layouts that are met.

A structure begins with a heading, the device's whole path joined with " : ", and holds lines "key  value". The layout
says where the headings stand ("drives": one per drive and structure, as a real report has them, with other structures
between; "grouped": one per controller, the drives below it) and how an error log tells its entries ("table",
"values").
"""

from __future__ import annotations

from typing import Any, Dict, Iterator, List

Drive = Dict[str, Any]
Controller = Dict[str, Any]

STATUS = "Physical Drive Status"
ERROR_LOG = "Serial SCSI Physical Drive Error Log"

_MEDIUM = 0x03
# Aborted command: an entry that is no medium error; its other columns hold 0x03 all the same.
_OTHER = 0x0B

_COLUMNS = ("Error Type", "SCSI Operation Code", "SCSI Status", "CAM Status", "Sense Key", "ASC", "ASCQ",
            "Block Valid", "Block", "Reference Time", "Additional Information")


def present(controller: Controller) -> List[Drive]:
    return [drive for drive in controller["drives"] if not drive["absent"]]


def title(controller: Controller) -> str:
    return f"{controller['model']} in slot {controller['slot']}"


def location(drive: Drive) -> str:
    return f"{drive['port']}:{drive['box']}:{drive['bay']}"


def drive_name(drive: Drive) -> str:
    """The drive in a heading. Reports of older tools have no bracket; a drive without a kind is shown so."""
    described = f" ({drive['capacity']} {drive['bus']} {drive['kind']})" if drive["kind"] else ""
    return f"Physical Drive{described} {location(drive)}"


def report(controllers: List[Controller], layout: Dict[str, str], generated: str) -> str:
    """The whole report; `generated` is the time in its head."""
    lines = list(_head(controllers, generated))
    for controller in controllers:
        lines += [f"Report for {title(controller)}", "-" * (11 + len(title(controller))), ""]
        lines += _controller(controller)
        body = _grouped if layout["headings"] == "grouped" else _by_drive
        lines += body(controller, layout["entries"])
    return "".join(line + ("\r\n" if layout["line_ends"] == "crlf" else "\n") for line in lines)


def _value(key: str, value: object, indent: int = 3) -> str:
    return f"{' ' * indent}{key:<37}{value}"


def _head(controllers: List[Controller], generated: str) -> Iterator[str]:
    yield "ADU Version                          6.30-1.0"
    yield "Diagnostic Module Version            8.30-10.0"
    yield f"Time Generated                       {generated}"
    yield ""
    yield "Device Summary:"
    for controller in controllers:
        yield f"   {title(controller)}"
    yield ""
    yield "Consolidated Error Report:"
    for controller in controllers:
        for drive in present(controller):
            if drive["times"]:
                yield f"   Controller: {title(controller)}"
                yield f"   Device: {drive_name(drive)}"
                yield "   Message: The drive's error log holds media errors."
    yield ""


def _controller(controller: Controller) -> List[str]:
    return [f"{title(controller)} : Identify Controller",
            _value("Configured Logical Drives", "1 (0x01)"),
            _value("Controller Firmware Revision", "5.00"),
            _value("Physical Drive Count", len(present(controller))), ""]


def _by_drive(controller: Controller, entries: str) -> List[str]:
    lines: List[str] = []
    for drive in present(controller):
        port, box = drive["port"], drive["box"]
        path = f"{title(controller)} : Internal Drive Cage at Port {port} : Box {box} : {drive_name(drive)}"
        for structure, body in ((STATUS, _status(drive)),
                                ("Monitor and Performance Statistics (Since Factory)", _statistics(drive, 0x0005F000)),
                                ("Monitor and Performance Statistics (Since Reset)", _statistics(drive, 0x00001F00)),
                                (ERROR_LOG, _error_log(drive, entries)),
                                ("Mode Sense 10", [_value("Mode Page", "0x01"), _value("Sense Key Specific", "0x00")]),
                                ("VPD Page 80 - Serial Number", [_value("Serial Number", drive["serial"])])):
            lines += [f"{path} : {structure}", *body, ""]
    return lines


def _grouped(controller: Controller, entries: str) -> List[str]:
    lines: List[str] = []
    for structure, body in ((STATUS, _status), (ERROR_LOG, lambda drive: _error_log(drive, entries))):
        lines += [f"{title(controller)} : {structure}", ""]
        for drive in present(controller):
            lines += [f"   {drive_name(drive)} :", *body(drive), ""]
    return lines


def _status(drive: Drive) -> List[str]:
    return [_value("SCSI Bus", "0x00"), _value("SCSI ID", f"0x{drive['number'] - 1:02x}"),
            _value("Drive Model", drive["model"]),
            # A field of fixed width.
            _value("Drive Serial Number", f"{drive['serial']:<40}"),
            _value("Drive Firmware Revision", drive["firmware"]), _value("Hot Plug Count", "0x0000"),
            _value("Media Exchanged", "0x0000"), _value("Physical Port", drive["port"]),
            _value("Physical Box", drive["box"]), _value("Physical Bay", drive["bay"])]


def _statistics(drive: Drive, minutes: int) -> List[str]:
    return [_value("Serial Number", drive["serial"]), _value("Reference Time", f"0x{minutes:08x}"),
            _value("Media Failures", f"0x{len(drive['times']):08x}")]


def _error_log(drive: Drive, entries: str) -> List[str]:
    found = [(_MEDIUM, time) for time in drive["times"]]
    # Among the medium errors, not after them.
    for number, time in enumerate(drive["other_times"]):
        found.insert(min(2 * number, len(found)), (_OTHER, time))
    shape = _entry_values if entries == "values" else _entry_table
    # The last line tells when the log was read, whether it has entries or not.
    return [_value("Errors Logged", len(found)), "", *(shape(found) if found else []),
            _value("Reference Time", "0x0005f000")]


def _fields(key: int, time: int, number: int) -> List[str]:
    asc, ascq = ("0x11", "0x00") if key == _MEDIUM else ("0x03", "0x03")
    return ["0x01", "0x28", "0x02", "0x04", f"0x{key:02x}", asc, ascq, "0x01", f"0x{0x0d6d2ba0 + number:08x}",
            f"0x{time:08x}", "0x0000"]


def _entry_table(found: List[Any]) -> List[str]:
    def row(cells: Any) -> str:
        return "      " + "   ".join(f"{cell:<{max(len(name), 10)}}" for cell, name in zip(cells, _COLUMNS)).rstrip()

    return ["   Physical Drive Error Log Entries", "", row(_COLUMNS), row(["-" * len(name) for name in _COLUMNS]),
            *[row(_fields(key, time, number)) for number, (key, time) in enumerate(found)], ""]


def _entry_values(found: List[Any]) -> List[str]:
    lines: List[str] = []
    for number, (key, time) in enumerate(found):
        lines += [_value(name, value, 6) for name, value in zip(_COLUMNS, _fields(key, time, number))] + [""]
    return lines
