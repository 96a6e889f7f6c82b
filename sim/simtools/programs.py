"""What happens when a stand-in is started. It finds its folder through BAYWARD_SIM_TOOLS."""

from __future__ import annotations

import fnmatch
import io
import os
import re
import signal
import sys
import time
from typing import Any, Dict, List, NamedTuple, NoReturn, Optional, Set, Tuple

from . import storcli
from .store import SSACLI, STORCLI, State, Store

_FOLDER = "BAYWARD_SIM_TOOLS"


class Output(NamedTuple):
    """What a tool prints, and the exit status it ends with."""

    text: bytes
    status: int = 0


class Faults:
    """The faults that are armed for one command line: by kind the one armed last."""

    def __init__(self, store: Store, tool: str, line: str) -> None:
        """Counts each of them as used once; one that is used up is forgotten."""
        def found(state: State) -> Dict[str, Dict[str, Any]]:
            return {fault["kind"]: fault for fault in state["faults"]
                    if fault["tool"] == tool and fnmatch.fnmatchcase(line, fault["commands"])}

        self.state = store.read()
        self._armed = found(self.state)
        if any(fault["times"] is not None for fault in self._armed.values()):
            with store.change() as state:
                self.state, self._armed = state, found(state)
                for fault in self._armed.values():
                    if fault["times"] is not None:
                        fault["times"] -= 1
                state["faults"] = [fault for fault in state["faults"] if fault["times"] != 0]

    @property
    def kinds(self) -> Set[str]:
        return set(self._armed)

    def value(self, kind: str, default: Any = None) -> Any:
        """What the fault of this kind says; `default` when none is armed."""
        return self._armed[kind]["value"] if kind in self._armed else default


def main(tool: str, arguments: List[str]) -> int:
    folder = os.environ.get(_FOLDER)
    if not folder:
        print(f"{tool} (stand-in): {_FOLDER} names no folder.", file=sys.stderr)
        return 1
    store = Store(folder)
    try:
        store.note_command(tool, arguments, os.getcwd())
        faults = Faults(store, tool, " ".join(arguments))
    except (OSError, ValueError, KeyError) as error:
        print(f"{tool} (stand-in): {_FOLDER} names {folder}, which cannot be used ({error}).", file=sys.stderr)
        return 1
    time.sleep(faults.value("takes", 0))
    if "hang" in faults.kinds:
        _hang()
    if "fail" in faults.kinds:
        output = Output(b"\nError: The command could not be carried out.\n\n", faults.value("fail"))
    else:
        output = (_ssacli if tool == SSACLI else _storcli)(store, faults, arguments)
    try:
        sys.stdout.buffer.write(output.text)
        sys.stdout.buffer.flush()
    except OSError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)  # nobody reads, or the disk is full; the last flush must not tell
        return output.status or 1
    return output.status


def _hang() -> NoReturn:
    while True:
        signal.pause()


def _encoded(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")


def _answer(store: Store, faults: Faults) -> Optional[Output]:
    """What is to be told in place of the tool's own words."""
    value = faults.value("answer")
    if value is None:
        return None
    with open(store.path(value["file"]), "rb") as file:
        return Output(file.read(), value["status"])


def _seen(faults: Faults, tool: str) -> List[Dict[str, Any]]:
    """The controllers that the tool sees."""
    if "quiet" in faults.kinds:
        return []
    return [found for found in faults.state["controllers"] if found["tool"] == tool and not found["absent"]]


# ssacli

def _ssacli(store: Store, faults: Faults, arguments: List[str]) -> Output:
    options = dict(word.partition("=")[::2] for word in arguments[3:])
    if arguments[:3] != ["ctrl", "all", "diag"] or not options.get("file") or set(options) - {"file", "logs"} \
            or options.get("logs", "on") not in ("on", "off"):
        return Output(_encoded(f'\nError: "{" ".join(arguments)}" is not a valid command.\n\n'), 1)
    controllers = _seen(faults, SSACLI)
    answer = _answer(store, faults)
    if not controllers and answer is None:
        return Output(b"\nError: No controllers detected. Possible causes:\n        - The driver for the installed "
                      b"controller(s) is not loaded.\n\n", 1)
    report = answer.text if answer is not None else _report(faults, controllers)
    archive = _archive(report[:faults.value("cut")], controllers, options.get("logs") == "on")
    kind = faults.value("archive", "whole")
    try:
        if kind != "none":
            _deliver({"whole": archive, "cut": archive[:len(archive) // 2], "empty": b""}[kind],
                     os.path.abspath(options["file"]), faults.value("late", 0))
    except OSError as error:
        return Output(_encoded(f"\nError: The file {options['file']} cannot be written ({error.strerror}).\n\n"), 1)
    return Output(b"\nGenerating diagnostic report...done\n\n", answer.status if answer is not None else 0)


def _report(faults: Faults, controllers: List[Dict[str, Any]]) -> bytes:
    from . import adu  # only now, for storcli64 is started more often
    return _encoded(adu.report(controllers, faults.state["layout"], time.strftime("%A %B %d, %Y %I:%M:%S%p")))


def _archive(report: bytes, controllers: List[Dict[str, Any]], logs: bool) -> bytes:
    import zipfile
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("ADUReport.txt", report)
        archive.writestr("ADUReport.xml", f'<?xml version="1.0" ?>\n<ADUReport controllers="{len(controllers)}"/>\n')
        archive.writestr("ADUReport.htm", "<html><body>Array diagnostic report</body></html>\n")
        if logs:
            for number in range(1, len(controllers) + 1):
                archive.writestr(f"serial_output_{number}.txt", "[0000000001] firmware started\n")
    return data.getvalue()


def _deliver(archive: bytes, path: str, late: float) -> None:
    """Write the archive; `late`: so many seconds after the tool itself has ended."""
    open(path, "ab").close()  # what cannot be written is told before the end, also when it comes late
    if late:
        os.unlink(path)
        if os.fork() != 0:
            return
        nothing = os.open(os.devnull, os.O_RDWR)
        for stream in (0, 1, 2):
            os.dup2(nothing, stream)
        time.sleep(late)
    with open(path, "wb") as file:
        file.write(archive)
    if late:
        os._exit(0)


# storcli64

_COMMANDS = re.compile(r"show|/c(?P<controller>\d+)( show( events)?|(?P<place>(/e\d+)?/s\d+) show all)", re.ASCII)


def _storcli(store: Store, faults: Faults, arguments: List[str]) -> Output:
    _leave_log(arguments)
    answer = _answer(store, faults)
    if answer is None:
        lines, status = _listing(_seen(faults, STORCLI), " ".join(arguments))
        answer = Output(_encoded("".join(f"{line}\n" for line in lines)), status)
    return answer._replace(text=answer.text[:faults.value("cut")])


def _leave_log(arguments: List[str]) -> None:
    """The tool leaves its own log where it is started, if it may."""
    try:
        with open("storcli.log", "a", encoding="utf-8", errors="surrogateescape") as log:
            log.write(f"storcli64 {' '.join(arguments)}\n")
    except OSError:
        pass


def _listing(controllers: List[Dict[str, Any]], line: str) -> Tuple[List[str], int]:
    match = _COMMANDS.fullmatch(line)
    if match is None:
        return storcli.envelope(None, refusal="syntax error, unexpected $end"), 1
    if match["controller"] is None:
        return storcli.overview(controllers), 0
    number = int(match["controller"])
    if number >= len(controllers):
        return storcli.envelope(number, refusal=f"Controller {number} not found"), 1
    controller = controllers[number]
    if line.endswith("events"):
        return storcli.event_log(number, controller), 0
    drives = storcli.present(controller)
    if match["place"] is None:
        return storcli.controller_listing(number, controller), _status(drives)
    for drive in drives:
        if storcli.place(number, drive) == f"/c{match['controller']}{match['place']}":
            return storcli.drive_listing(number, drive), _status([drive])
    return storcli.envelope(number, refusal="No drive found!"), 1


def _status(drives: List[Dict[str, Any]]) -> int:
    """A failed drive makes the exit status, though the listing is complete."""
    return storcli.FAILED_DRIVE_STATUS if storcli.failed(drives) else 0
