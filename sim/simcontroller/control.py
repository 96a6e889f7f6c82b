"""The control socket: one JSON object per line in, one out."""

from __future__ import annotations

import json
import os
import socket
import socketserver
import stat
import threading
from typing import Any, Callable, Dict, List, Optional

from simtools.store import TOOLS
from simtools.tools import Tool, Tools

from . import verbs
from .errors import Failure, UseError
from .families.base import StorageController
from .faults import Fault
from .transport import ControllerServer
from .tree import ResourceTree


class Commands:
    """Carries verbs out. `controllers` in the order in which verbs count them; `stop` ends the program.

    tools   those of the simulated server; None: it has none
    """

    def __init__(self, tree: ResourceTree, controllers: List[StorageController], server: ControllerServer,
                 stop: Callable[[], None], tools: Optional[Tools] = None) -> None:
        self._tree = tree
        self._controllers = controllers
        self._server = server
        self._stop = stop
        self._server_tools = tools
        sessions, faults = server.service.sessions, server.faults
        self._actions: Dict[str, Callable[..., Any]] = {
            "fail-drive": self._shortcut(lambda c, d: c.fail_drive(d)),
            "predict-drive": self._shortcut(lambda c, d: c.predict_drive(d)),
            "wear-drive": self._shortcut(lambda c, d, percent: c.wear_drive(d, percent)),
            "heal-drive": self._shortcut(lambda c, d: c.heal_drive(d)),
            "offline-volume": self._shortcut(lambda c, v: c.offline_volume(v)),
            "heal-volume": self._shortcut(lambda c, v: c.heal_volume(v)),
            "add-drive": self._shortcut(lambda c, media="ssd": c.add_drive(media.upper())),
            "remove-drive": self._shortcut(lambda c, d: c.remove_drive(d)),
            "restore-drive": self._shortcut(lambda c, d: c.restore_drive(d)),
            "remove-volume": self._shortcut(lambda c, v: tree.remove(c.volume(v))),
            "restore-volume": self._shortcut(lambda c, v: tree.restore(c.volume(v))),
            "drive-health": self._shortcut(lambda c, d, word: c.set_drive_status(d, "Health", word)),
            "drive-state": self._shortcut(lambda c, d, word: c.set_drive_status(d, "State", word)),
            "volume-health": self._shortcut(lambda c, v, word: c.set_volume_status(v, "Health", word)),
            "volume-state": self._shortcut(lambda c, v, word: c.set_volume_status(v, "State", word)),
            "empty-bay": self._shortcut(lambda c, d: c.empty_bay(d)),
            "remove-controller": self._shortcut(lambda c: c.remove()),
            "restore-controller": self._shortcut(lambda c: c.restore()),
            "list": self._list,
            "paths": tree.paths,
            "get": tree.read,
            "set": tree.set,
            "add-member": tree.add_member,
            "delete-member": tree.delete_member,
            "remove": tree.remove,
            "restore": tree.restore,
            "status": lambda pattern, code, times=None, text="": self._arm("status", pattern, times, code=code,
                                                                           text=text),
            "not-ready": lambda pattern, times=None: self._arm("not-ready", pattern, times),
            "missing": lambda pattern, times=None: self._arm("missing", pattern, times),
            "body": lambda pattern, text, times=None: self._arm("body", pattern, times, text=text),
            "wire": lambda pattern, text, times=None: self._arm("wire", pattern, times, text=text),
            "hang": lambda pattern, where, seconds=None, times=None: self._arm(f"hang-{where}", pattern, times,
                                                                               seconds=seconds),
            "drop": lambda pattern, when, times=None: self._arm(f"drop-{when}", pattern, times),
            "cut": lambda pattern, count, times=None: self._arm("cut", pattern, times, count=count),
            "redirect": lambda pattern, location, times=None, code=308: self._arm("redirect", pattern, times, code=code,
                                                                                  text=location),
            "trickle": lambda pattern, seconds, times=None: self._arm("trickle", pattern, times, seconds=seconds),
            "close": lambda pattern, times=None: self._arm("close", pattern, times),
            "faults": faults.describe,
            "release": faults.release,
            "clear-faults": faults.clear,
            "medium-errors": lambda *given: self._tools().medium_errors(*given),
            "tool-drive": lambda *given: self._tools().set_drive(*given),
            "tool-controller": lambda *given: self._tools().set_controller(*given),
            "tool-layout": lambda *given: self._tools().layout(*given),
            "tool-fail": lambda name, status, *when: self._tool(name).fail(status, *when),
            "tool-hang": lambda name, *when: self._tool(name).hang(*when),
            "tool-takes": lambda name, seconds, *when: self._tool(name).takes(seconds, *when),
            "tool-cut": lambda name, count, *when: self._tool(name).cut(count, *when),
            "tool-quiet": lambda name, *when: self._tool(name).quiet(*when),
            "tool-answer": lambda name, text, *more: self._tool(name).answer(text, *more),
            "tool-archive": lambda kind, *when: self._tools().ssacli.archive(kind, *when),
            "tool-late": lambda seconds, *when: self._tools().ssacli.late(seconds, *when),
            "tool-clear": self._clear_tools,
            "tool-commands": lambda *names: [command.line for command in self._tools().commands(*names)],
            "latency": self._latency,
            "expand": self._expand,
            "shuffle": self._shuffle,
            "account": sessions.change_account,
            "session-limit": self._session_limit,
            "expire-sessions": sessions.expire_all,
            "close-connections": server.close_connections,
            "counters": self._counters,
            "reset-counters": self._reset_counters,
            "shutdown": stop,
        }

    def run(self, name: Any, given: List[Any]) -> Any:
        verb = verbs.find(name)
        return self._actions[verb.name](*verb.read(given))

    def _shortcut(self, change: Callable[..., Any]) -> Callable[..., Any]:
        """A verb that changes a controller: the change is made in each of its views, the first gives the result."""
        def run(number: int, *args: Any) -> Any:
            return [change(view, *args) for view in self._controller(number).views][0]
        return run

    def _controller(self, number: int) -> StorageController:
        if not 1 <= number <= len(self._controllers):
            has = f"controllers 1 to {len(self._controllers)}" if self._controllers else \
                "no generated controllers (change resources with set)"
            raise UseError(f"There is no controller {number}; this server has {has}.")
        return self._controllers[number - 1]

    def _tools(self) -> Tools:
        if self._server_tools is None:
            raise UseError("This server has no tools; start it with --tools DIR.")
        return self._server_tools

    def _tool(self, name: str) -> Tool:
        return self._tools().tool(name)

    def _clear_tools(self, *names: str) -> None:
        for name in names or TOOLS:
            self._tool(name).clear()

    def _list(self) -> List[Dict[str, Any]]:
        return [{"controller": number, "name": c.name, "drives": c.drives, "volumes": c.volumes,
                 "resources": [path for view in c.views for path in view.resources]}
                for number, c in enumerate(self._controllers, 1)]

    def _arm(self, kind: str, pattern: str, times: Optional[int], **more: Any) -> None:
        self._server.faults.arm(Fault(kind, pattern, times, **more))

    def _latency(self, milliseconds: int) -> None:
        self._server.latency_ms = milliseconds

    def _expand(self, mode: str) -> None:
        self._server.service.expand = mode

    def _shuffle(self, switch: str, seed: Optional[int] = None) -> None:
        if switch == "off" and seed is not None:
            raise UseError("shuffle off takes no seed; write: shuffle off.")
        self._tree.shuffle((1 if seed is None else seed) if switch == "on" else None)

    def _session_limit(self, limit: int) -> None:
        self._server.service.sessions.limit = limit

    def _counters(self) -> Dict[str, Any]:
        sessions = self._server.service.sessions
        return {**self._server.journal.counters(), "open_connections": self._server.open_connections(),
                "logins": sessions.logins, "refused_logins": sessions.refused_logins,
                "open_sessions": len(sessions.open_sessions())}

    def _reset_counters(self) -> None:
        self._server.journal.reset()
        self._server.service.sessions.reset_counters()


class ControlServer(socketserver.ThreadingUnixStreamServer):
    """Serves the commands on a socket file until the process ends."""

    daemon_threads = True
    block_on_close = False

    def __init__(self, path: str, commands: Commands) -> None:
        self.commands = commands
        self._path = path
        _remove_stale(path)
        try:
            super().__init__(path, _Conversation)
        except OSError as error:
            raise Failure(f"Cannot make the control socket {path} ({error}); "
                          "give a path of at most 107 bytes in a folder you may write to.") from error
        os.chmod(path, 0o600)

    def start(self) -> None:
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def remove(self) -> None:
        """Remove the socket file, so that nobody finds a controller that is ending."""
        try:
            os.unlink(self._path)
        except FileNotFoundError:
            pass


def _remove_stale(path: str) -> None:
    """Remove the socket file of a controller that is gone; one that still answers is left alone."""
    try:
        if not stat.S_ISSOCK(os.stat(path).st_mode):
            raise Failure(f"{path} is there and no socket; give another path for --control.")
    except FileNotFoundError:
        return
    with socket.socket(socket.AF_UNIX) as probe:
        try:
            probe.connect(path)
        except OSError:
            os.unlink(path)
            return
    raise Failure(f"Another controller answers on the control socket {path}; end it or give another path.")


class _Conversation(socketserver.StreamRequestHandler):
    server: ControlServer

    def handle(self) -> None:
        for line in self.rfile:
            reply = self._reply(line)
            try:
                self.wfile.write(json.dumps(reply).encode("utf-8") + b"\n")
            except OSError:
                return

    def _reply(self, line: bytes) -> Dict[str, Any]:
        try:
            return {"ok": True, "result": self.server.commands.run(*_message(line))}
        except UseError as error:
            return {"ok": False, "kind": "use", "error": str(error)}
        except Failure as error:
            return {"ok": False, "kind": "failure", "error": str(error)}


def _message(line: bytes) -> Any:
    form = 'write {"verb": NAME, "args": [...]} on one line'
    try:
        message = json.loads(line.decode("utf-8"))
    except ValueError as error:
        raise UseError(f"The control line is not JSON ({error}); {form}.") from None
    if not isinstance(message, dict) or not isinstance(message.get("args", []), list) or "verb" not in message:
        raise UseError(f"The control line is no command; {form}.")
    return message["verb"], message.get("args", [])
