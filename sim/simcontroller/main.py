"""Options, set-up and orderly end of the simulated controller."""

from __future__ import annotations

import argparse
import json
import os
import shutil
import signal
import ssl
import sys
import tempfile
import threading
from pathlib import Path
from typing import Any, List, NoReturn, Optional, Sequence, TextIO, Tuple

from simtools.tools import Tools

from . import certificate, server_tree, tool_inventory
from .catalogue import FAMILIES, Controllers, Family
from .control import Commands, ControlServer
from .errors import ErrorBodies, Failure, UseError
from .families.base import Amount, StorageController
from .faults import FaultBoard
from .journal import Journal
from .server_tree import Profile
from .service import EXPAND_MODES, RestService
from .sessions import SessionTable
from .transport import ControllerServer
from .tree import ResourceTree

# Firmware that is simulated unless another is asked for.
_FIRMWARE = {5: (2, 72), 6: (1, 66), 7: (1, 14)}


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        raise UseError(f"{message[:1].upper()}{message[1:]}; see --help.")


def _whole(text: str) -> int:
    number = int(text) if text.isdigit() else -1
    if not 0 <= number <= 10**6:
        raise argparse.ArgumentTypeError(f"{text!r} is no whole number from 0 to 1000000")
    return number


def _address(text: str) -> Tuple[str, int]:
    host, colon, port = text.rpartition(":")
    if not colon or not host or not port.isdigit() or int(port) > 65535:
        raise argparse.ArgumentTypeError(f"{text!r} is not ADDRESS:PORT, such as 127.0.0.1:0")
    return host, int(port)


def _firmware(text: str) -> Tuple[int, int]:
    major, _, minor = text.partition(".")
    if not (major.isdigit() and minor.isdigit()):
        raise argparse.ArgumentTypeError(f"{text!r} is not MAJOR.MINOR, such as 2.72")
    return int(major), int(minor)


def _seconds(text: str) -> float:
    try:
        seconds = float(text)
    except ValueError:
        seconds = -1
    if not 0 <= seconds <= 10**7:
        raise argparse.ArgumentTypeError(f"{text!r} is no number of seconds (0: never)")
    return seconds


def options() -> argparse.ArgumentParser:
    """The command line of controller.py."""
    parser = _Parser(prog="controller.py", description="Simulated server management controller (Redfish over TLS).")
    add = parser.add_argument
    add("--listen", type=_address, default=("127.0.0.1", 0), metavar="ADDRESS:PORT", help="port 0: a free one")
    add("--cert", metavar="FILE", help="certificate (PEM); without it a self-signed one is made in --work-dir")
    add("--key", metavar="FILE", help="its key (PEM)")
    add("--work-dir", metavar="DIR", help="where the certificate made is kept (else a folder that goes at the end)")
    add("--account", default="simadmin")
    add("--password", default="simpassword")
    add("--ilo", type=int, choices=(5, 6, 7), default=5, help="controller generation")
    add("--firmware", type=_firmware, metavar="MAJOR.MINOR", help="5: 2.72, 6: 1.66, 7: 1.14 unless given")
    for family in FAMILIES:
        add(f"--{family.count}", type=_whole, metavar="N", help=f"{family.title} ({family.usual})")
        if family.drives is not None:
            add(f"--{family.drives}", type=_whole, metavar="N", help=f"drives of each of them ({family.usual_drives})")
        if family.volumes is not None:
            add(f"--{family.volumes}", type=_whole, metavar="N", help="volumes of each of them (1)")
    add("--ssd", type=_whole, metavar="N", help="how many drives of each controller are SSDs (half)")
    add("--tree", metavar="DIR", help="serve <resource path>/index.json files instead of a generated server")
    add("--shuffle", type=_whole, metavar="SEED", help="serve links, such as Members, in another order each time")
    add("--latency-ms", type=_whole, default=0, metavar="N", help="time from a request to its answer")
    add("--expand", choices=EXPAND_MODES, default="on", help="?$expand=. inlines members, is ignored, or gets 501, 404 or 500")
    add("--framing", choices=("chunked", "length"), default="chunked", help="how answers are framed")
    add("--session-limit", type=_whole, default=16, metavar="N")
    add("--session-timeout", type=_seconds, default=1800.0, metavar="SECONDS", help="idle time; 0: never")
    add("--control", metavar="SOCKET", help="control socket, for simctl")
    add("--tools", metavar="DIR", help="folder for what the stand-ins for ssacli and storcli64 find; made anew")
    add("--ready-file", metavar="FILE", help='gets {"url","ca","pid","control"} once it serves')
    add("--log", metavar="FILE", help="one line per request")
    return parser


def _server(given: argparse.Namespace) -> Tuple[ResourceTree, List[StorageController], bool]:
    """Tree, controllers and whether paths without a slash are redirected."""
    if given.tree is not None:
        names = [name for family in FAMILIES for name in (family.count, family.drives, family.volumes) if name]
        clash = [name for name in [*names, "ssd"] if _given(given, name) is not None]
        if clash:
            raise UseError(f"--{clash[0]} generates storage and --tree serves what is in a folder; give one of them.")
        return ResourceTree.from_folder(Path(given.tree)), [], False
    storage = [_controllers(given, family) for family in FAMILIES]
    largest = max([amount.drives for _, count, amount in storage if count] or [0])
    if given.ssd is not None and given.ssd > largest:
        raise UseError(f"--ssd {given.ssd} is more than the {largest} drives of a controller; give fewer or more drives.")
    profile = Profile(given.ilo, *(given.firmware or _FIRMWARE[given.ilo]), storage)
    tree, controllers = server_tree.build(profile)
    return tree, controllers, profile.redirects


def _given(given: argparse.Namespace, name: Optional[str]) -> Optional[int]:
    """The number given with an option; None when it was not given or the family has no such option."""
    return None if name is None else getattr(given, name.replace("-", "_"))


def _controllers(given: argparse.Namespace, family: Family) -> Controllers:
    """How many controllers of the family there are, and what each of them has."""
    count, drives, volumes = (_given(given, name) for name in (family.count, family.drives, family.volumes))
    if count and given.ilo not in family.generations:
        raise UseError(f"--{family.count} {count}: iLO {given.ilo} serves no {family.title}; {family.instead}.")
    if count is None:
        count = family.default_count(given.ilo, drives is not None or volumes is not None)
    drives = family.usual_drives if drives is None else drives
    if family.most_drives is not None and drives > family.most_drives:
        raise UseError(f"--{family.drives} {drives}: there is room for {family.most_drives}.")
    if volumes is None:
        volumes = min(1, drives) if family.volumes is not None else 0
    if volumes > drives:
        raise UseError(f"--{family.volumes} {volumes} is more than the {drives} drives; each volume needs a drive.")
    ssds = drives if family.only_ssds else drives // 2 if given.ssd is None else min(given.ssd, drives)
    return Controllers(family, count, Amount(drives, ssds, volumes))


def _context(cert: Path, key: Path) -> ssl.SSLContext:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    try:
        context.load_cert_chain(cert, key)
    except (OSError, ssl.SSLError) as error:
        raise UseError(f"Cannot use the certificate {cert} with the key {key} ({error}); "
                       "give a PEM certificate and the key that belongs to it.") from error
    return context


def _make_tools(folder: Optional[str], tree: ResourceTree, controllers: List[StorageController]) -> Optional[Tools]:
    if folder is None:
        return None
    try:
        tools = Tools.create(folder)
    except OSError as error:
        raise Failure(f"Cannot write the folder {folder} for the tools ({error.strerror}); give another one.") from error
    tool_inventory.fill(tools, tree, controllers)
    return tools


def _open_log(name: Optional[str]) -> Optional[TextIO]:
    try:
        return open(name, "a", encoding="utf-8") if name else None
    except OSError as error:
        raise Failure(f"Cannot write the request log {name} ({error.strerror}); give another file.") from error


def _write_ready(name: Optional[str], content: Any) -> None:
    """Write the ready file in one step, so that whoever waits for it never reads half of it."""
    if not name:
        return
    part = f"{name}.{os.getpid()}.part"
    try:
        with open(part, "w", encoding="utf-8") as file:
            json.dump(content, file)
        os.replace(part, name)
    except OSError as error:
        raise Failure(f"Cannot write the ready file {name} ({error.strerror}); give another file.") from error


def serve(given: argparse.Namespace) -> None:
    """Serve until SIGINT, SIGTERM or the verb shutdown."""
    if (given.cert is None) != (given.key is None):
        raise UseError("--cert and --key belong together; give both or neither.")
    tree, controllers, redirects = _server(given)
    tree.shuffle(given.shuffle)
    tools = _make_tools(given.tools, tree, controllers)
    stop = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: stop.set())
    temporary = None
    control: Optional[ControlServer] = None
    server: Optional[ControllerServer] = None
    ready = False
    log = _open_log(given.log)
    try:
        if given.cert is None:
            if given.work_dir is None:
                temporary = tempfile.mkdtemp(prefix="simcontroller-")
            folder = Path(given.work_dir or temporary)
            folder.mkdir(parents=True, exist_ok=True)
            cert, key = certificate.make(folder, given.listen[0])
        else:
            cert, key = Path(given.cert), Path(given.key)
        sessions = SessionTable(given.account, given.password, given.session_limit, given.session_timeout)
        faults = FaultBoard()
        service = RestService(tree, sessions, ErrorBodies(given.ilo), given.expand, redirects,
                              lambda path: faults.spoils("GET", path))
        server = ControllerServer(given.listen, _context(cert, key), service, faults, Journal(log),
                                  given.latency_ms, given.framing == "chunked")
        if given.control:
            control = ControlServer(given.control, Commands(tree, controllers, server, stop.set, tools))
            control.start()
        threading.Thread(target=server.serve_forever, daemon=True).start()
        url = f"https://{given.listen[0]}:{server.server_address[1]}"
        _write_ready(given.ready_file, {"url": url, "ca": str(cert.resolve()), "pid": os.getpid(),
                                        "control": given.control})
        ready = True
        print(f"Serving {url} (certificate {cert}); Ctrl+C ends it.", flush=True)
        stop.wait()
    finally:
        # Listening ends with the process; what outlives it are files and clients in the middle of an answer.
        if control is not None:
            control.remove()
        if server is not None:
            server.faults.clear()
            server.close_connections()
        if ready and given.ready_file:
            Path(given.ready_file).unlink(missing_ok=True)
        if temporary is not None:
            shutil.rmtree(temporary, ignore_errors=True)
        if log is not None:
            log.close()


def main(arguments: Optional[Sequence[str]] = None) -> int:
    try:
        serve(options().parse_args(arguments))
    except UseError as error:
        print(f"controller.py: {error}", file=sys.stderr)
        return 2
    except (Failure, OSError) as error:
        print(f"controller.py: {error}", file=sys.stderr)
        return 1
    return 0
