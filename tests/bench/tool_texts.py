"""Big outputs of the RAID tools, written in the layouts that the tools really use: what the parsers are timed on."""

from __future__ import annotations

import random
from pathlib import Path
from typing import Iterator, List, Tuple

DRIVES_PER_CONTROLLER = 200
# Many for each drive, as after years: of more than 1,024 drives nothing would be read.
ENTRIES_PER_DRIVE = 160
COUNTERS_PER_STRUCTURE = 400
MEDIUM_ERROR = "0x03"  # a sense key
OTHER_STRUCTURES = (
    "Monitor and Performance Statistics (Since Factory)",
    "Monitor and Performance Statistics (Since Reset)",
    "Mode Sense 10",
    "Workload Information",
)
ENTRY_HEADER = ("      Error Type   SCSI Operation Code   SCSI Status   CAM Status   Sense Key   ASC    ASCQ   "
                "Block Valid   Block        Reference Time   Additional Information")


def _value(key: str, value: str) -> str:
    return f"   {key:<40} {value}"


def _structure(heading: str, name: str, lines: List[str]) -> List[str]:
    return ["", f"{heading} : {name}", *lines]


def _drive(controller: str, number: int, rng: random.Random) -> Tuple[List[str], int]:
    """The lines of one drive, and the medium errors that its error log holds."""
    port, box, bay = 1 + number // 100, 1 + number % 100 // 25, 1 + number % 25
    location = f"{port}I:{box}:{bay}"
    heading = (f"{controller} : Internal Drive Cage at Port {port}I : Box {box} : "
               f"Physical Drive (2 TB SAS HDD) {location}")
    lines = _structure(heading, "Physical Drive Status", [
        _value("SCSI Bus", "0x00"),
        _value("Drive Model", "TESTMAKE TESTMODEL2000"),
        _value("Drive Serial Number", f"BENCH{number:05d}"),
        _value("Drive Firmware Revision", "TST1"),
        *[_value(f"Status Byte {byte}", f"0x{rng.randrange(256):02x}") for byte in range(40)],
        _value("Physical Port", f"{port}I"),
        _value("Physical Box", str(box)),
        _value("Physical Bay", str(bay)),
    ])
    for structure in OTHER_STRUCTURES:
        lines += _structure(heading, structure, [
            _value("Serial Number", f"0x{number:08x}"),
            *[_value(f"Counter {counter}", f"0x{rng.randrange(1 << 32):08x}") for counter in range(COUNTERS_PER_STRUCTURE)],
            _value("Reference Time", "0x0005f000"),
        ])
    entries = []
    errors = 0
    for entry in range(ENTRIES_PER_DRIVE):
        sense = rng.choice((MEDIUM_ERROR, "0x01", "0x05", "0x0b"))
        errors += sense == MEDIUM_ERROR
        entries.append(f"      0x01         0x28                  0x02          0x04         {sense}"
                       f"        0x11   0x00   0x01          0x{rng.randrange(1 << 32):08x}"
                       f"   0x{0x50000 + entry * 700:08x}       0x0000")
    lines += _structure(heading, "Serial SCSI Physical Drive Error Log", [
        _value("Errors Logged", str(ENTRIES_PER_DRIVE)), "", "   Physical Drive Error Log Entries", "",
        ENTRY_HEADER, "      " + "-" * (len(ENTRY_HEADER) - 6), *entries, "", _value("Reference Time", "0x0005f000"),
    ])
    return lines, errors


def _report(rng: random.Random) -> Iterator[Tuple[str, int]]:
    slot = 0
    while True:
        slot += 1
        controller = f"Smart Array P840 in slot {slot}"
        yield f"Report for {controller}\n{'-' * (11 + len(controller))}\n\n", 0
        for number in range(DRIVES_PER_CONTROLLER):
            lines, errors = _drive(controller, number, rng)
            yield "\n".join(lines) + "\n", errors


def write_report(path: Path, size: int) -> int:
    """A diagnostic report of about `size` bytes: controllers with 200 drives each, whole drives only. Returns how many
    medium errors stand in it."""
    rng = random.Random(1)
    written = 0
    errors = 0
    with path.open("w", encoding="ascii") as out:
        for piece, in_piece in _report(rng):
            written += out.write(piece)
            errors += in_piece
            if written >= size:
                break
    return errors


def write_event_log(path: Path, events: int) -> int:
    """An event log of a MegaRAID controller with so many events; every fourth is a corrected medium error. Returns how
    many of those there are."""
    rng = random.Random(2)
    errors = 0
    with path.open("w", encoding="ascii") as out:
        for number in range(events):
            device = rng.randrange(8, 32)
            drive = f"PD {device:02x}(e0xfc/s{device - 8})"
            if number % 4 == 0:
                errors += 1
                what = f"Patrol Read corrected medium error on {drive} at {rng.randrange(1 << 28):x}"
            else:
                what = f"Unexpected sense: {drive} Path 500000000000{device:04x}, CDB: 4d 00, Sense: 5/24/00"
            out.write(f"\n\nseqNum: 0x{number:08x}\nTime: Fri Oct {1 + number * 20 // events:2d} "
                      f"{number % 24:02d}:{number % 60:02d}:{number * 7 % 60:02d} 2026\n\n"
                      f"Code: 0x0000005d\nClass: 0\nLocale: 0x02\nEvent Description: {what}\nEvent Data:\n===========\n"
                      f"Device ID: {device}\nEnclosure Index: 252\nSlot Number: {device - 8}\n")
        out.write("CLI Version = 007.2408.0000.0000\nOperating system = Linux\nController = 0\nStatus = Success\n")
    return errors
