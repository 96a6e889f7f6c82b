"""Starting and stopping the simulated controller as a program of its own, for test suites and players."""

from __future__ import annotations

import json
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import Any, List, Optional

from simtools.tools import Tools

from .client import ControlClient
from .errors import Failure

_PROGRAM = Path(__file__).resolve().parent.parent / "controller.py"


class ControllerProcess:
    """A running controller on a free port.

        with ControllerProcess("--ilo", "5", "--drives", "4") as sim:
            sim.url, sim.ca, sim.account, sim.password
            sim.control.call("fail-drive", 1, 2)
        sim.tools.medium_errors(1, 2, count=3)

    Any option of controller.py may be given except --control, --ready-file, --log, --tools and --work-dir, which it
    sets itself inside `folder` (a temporary one unless given; sockets need a short path). `listen` on a fixed
    port together with a kept folder makes a restart look like the same controller.
    """

    def __init__(self, *options: str, account: str = "simadmin", password: str = "simpassword",
                 listen: str = "127.0.0.1:0", folder: Optional[Path] = None, start_limit: float = 20.0) -> None:
        self.account = account
        self.password = password
        self._options = [str(option) for option in options]
        self._listen = listen
        self._given_folder = folder
        self._start_limit = start_limit
        self._temporary: Optional[Any] = None
        self._process: Optional[subprocess.Popen] = None

    def start(self) -> "ControllerProcess":
        """Start it and wait until it serves; a controller that ends instead raises Failure with its message."""
        if self._given_folder is None:
            self._temporary = tempfile.TemporaryDirectory(prefix="sim-")
        self.folder = Path(self._given_folder or self._temporary.name)
        ready = self.folder / "ready.json"
        ready.unlink(missing_ok=True)
        self._errors = self.folder / "controller.err"
        with open(self._errors, "wb") as errors:
            self._process = subprocess.Popen(
                [sys.executable, str(_PROGRAM), "--listen", self._listen, "--account", self.account,
                 "--password", self.password, "--work-dir", str(self.folder), "--log", str(self.folder / "requests.log"),
                 "--control", str(self.folder / "control"), "--ready-file", str(ready), "--tools", str(self.folder / "tools"),
                 *self._options],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors)
        limit = time.monotonic() + self._start_limit
        while not ready.exists():
            if self._process.poll() is not None or time.monotonic() > limit:
                message = self.complaints()
                self.stop()
                raise Failure(message or f"The controller did not serve within {self._start_limit} seconds; "
                                         "look at the load of the machine.")
            time.sleep(0.02)
        told = json.loads(ready.read_text(encoding="utf-8"))
        self.url: str = told["url"]
        self.ca: str = told["ca"]
        self.pid: int = told["pid"]
        self.port = int(self.url.rsplit(":", 1)[1])
        self.control = ControlClient(str(self.folder / "control"))
        self.tools = Tools(self.folder / "tools")
        return self

    def stop(self) -> Optional[int]:
        """End it as Ctrl+C does and return its exit code (None when it never started)."""
        code = None
        if self._process is not None:
            self._process.terminate()
            try:
                code = self._process.wait(10)
            except subprocess.TimeoutExpired:
                self._process.kill()
                code = self._process.wait()
            self._process = None
        if self._temporary is not None:
            self._temporary.cleanup()
            self._temporary = None
        return code

    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    def complaints(self) -> str:
        """What it wrote to its standard error."""
        return self._errors.read_text(errors="replace").strip()

    def requests(self) -> List[str]:
        """The lines of the request log so far."""
        log = self.folder / "requests.log"
        return log.read_text(encoding="utf-8").splitlines() if log.exists() else []

    def __enter__(self) -> "ControllerProcess":
        return self.start()

    def __exit__(self, *_: Any) -> None:
        self.stop()
