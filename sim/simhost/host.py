"""SimHost: one simulated host with its own /etc, /opt, /var/log, /dev/log and system log, and the service on it."""

from __future__ import annotations

import atexit
import glob
import os
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path, PurePosixPath
from typing import Any, Callable, Dict, List, Mapping, Optional, Sequence, TypeVar, Union

from simtools.store import SSACLI, STORCLI, TOOLS
from simtools.tools import Tools

from . import hosttree
from .errors import HostError, WaitTimeout
from .namespace import Namespace, Process, why_no_namespaces
from .service import Service
from .systemlog import SyslogEntry, SystemLog

Config = Union[str, Mapping[str, Mapping[str, object]]]
Found = TypeVar("Found")

_SIM_BIN = Path(__file__).resolve().parent.parent / "bin"
_TOOL_PLACES = {SSACLI: "/opt/smartstorageadmin/ssacli/bin/ssacli", STORCLI: "/opt/MegaRAID/storcli/storcli64"}
_SYSTEM_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
_FORBIDDEN = ("/etc", "/opt", "/var/log", "/dev", "/run/systemd", "/proc")
_POLL_SECONDS = 0.03
_TAIL_LINES = 12
# Switches of the sanitizers reach the service from the test's environment; nothing else does.
_PASSED_ON = ("ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS")


def missing(faketime: bool = False) -> Optional[str]:
    """None when simulated hosts can run here, else one sentence that says what to do.

    faketime   services on them are to run faster
    """
    if faketime and not _faketime_libraries():
        return "The library libfaketime is missing; install the package faketime."
    if shutil.which("rsyslogd", path=_SYSTEM_PATH) is None:
        return "The program rsyslogd is missing; install the package rsyslog."
    return why_no_namespaces()


def _faketime_libraries() -> List[str]:
    return glob.glob("/usr/lib/*/faketime/libfaketimeMT.so.1") + glob.glob("/usr/lib/faketime/libfaketimeMT.so.1")


def _faketime_library() -> str:
    found = _faketime_libraries()
    if not found:
        raise HostError("libfaketime is missing; install the package faketime")
    return found[0]


def _config_text(config: Config) -> str:
    if isinstance(config, str):
        return config
    lines: List[str] = []
    for section, entries in config.items():
        lines.append(f"[{section}]")
        lines += [f"{key}={value}" for key, value in entries.items()]
    return "\n".join(lines) + "\n"


class SimHost:
    """One simulated host, from construction to `stop()`. Use it in a `with` statement.

        with SimHost("build/release/bin", config={"iLo": {"url": sim.url, "interval": 3000}}) as host:
            host.run(["baywardctl", "account", "set", ...], stdin="...")
            host.start_service()
            host.wait_trace("Start to monitor.", 60)

    Everything on it dies with the test's process, however that ends. Failures are `HostError`, a wait that found nothing
    is `WaitTimeout` (an AssertionError too, so a test just waits). Several hosts may live at the same time.
    """

    def __init__(self, bin_dir: "str | os.PathLike[str]", work_dir: "str | os.PathLike[str] | None" = None, *,
                 config: Optional[Config] = None, locale: Optional[str] = "LANG=C.UTF-8", copy_runtime: bool = False,
                 syslog: bool = True, env: Optional[Mapping[str, str]] = None, addresses: Sequence[str] = ()) -> None:
        """Makes the host and starts its system log, not yet the service.

        bin_dir       the run-time folder with the service
        work_dir      a new folder for the host's files; kept after stop(). None: a temporary one, removed by stop()
        config        bayward.conf, as text or as {section: {key: value}}; None: no such file
        locale        content of /etc/locale.conf; None: no such file
        copy_runtime  run a copy of bin_dir (`runtime`), for tests that change it or let tools write into it
        syslog        False: no rsyslogd until start_syslog()
        env           further variables for everything that runs on the host (switches of the stand-ins, say)
        addresses     with any, the host has a network of its own: loopback with these addresses
        """
        reason = missing()
        if reason is not None:
            raise HostError(reason)
        self._owns_work = work_dir is None
        self.work = Path(tempfile.mkdtemp(prefix="bayward-host-") if work_dir is None else work_dir).resolve()
        self._namespace: Optional[Namespace] = None
        self._service: Optional[Service] = None
        self._syslogd: Optional[int] = None
        self._env = dict(env or {})
        atexit.register(self.stop)
        try:
            self._refuse_hidden(self.work)
            hosttree.make_folders(self.work)
            self.log_dir = self.work / "var-log/bayward"
            self.runtime = self._place_runtime(Path(bin_dir).resolve(), copy_runtime)
            if config is not None:
                self.write_config(config)
            if locale is not None:
                self.outer("/etc/locale.conf").write_text(locale.rstrip("\n") + "\n", encoding="utf-8")
            self._system_log = SystemLog(self.work / "syslog")
            self._namespace = Namespace(self.work, addresses)
            if syslog:
                self.start_syslog()
        except BaseException:
            self.stop()
            raise

    @staticmethod
    def _refuse_hidden(work: Path) -> None:
        for folder in _FORBIDDEN:
            if PurePosixPath(folder) in (work, *work.parents):
                raise HostError(f"{work} cannot be a host's folder, for the host has its own {folder}")

    def _place_runtime(self, bin_dir: Path, copy: bool) -> Path:
        if not (bin_dir / "bayward").exists():
            raise HostError(f"{bin_dir / 'bayward'} does not exist; ./run build makes it")
        if not copy:
            return bin_dir
        runtime = self.work / "bin"
        # Without what a service that runs in the folder itself has there for a moment.
        passing = shutil.ignore_patterns("__pycache__", "*.log", "ADUReport*")
        shutil.copytree(bin_dir, runtime, symlinks=True, ignore=passing)
        return runtime

    def __enter__(self) -> "SimHost":
        return self

    def __exit__(self, *_: Any) -> None:
        self.stop()

    # Files

    def outer(self, path: str) -> Path:
        """Where a path of the host under /etc, /opt or /var/log lies for the test. Files may be changed at any time.

        What the host shares with the machine appears there as links into a view that only the host can read.
        """
        for inner, folder in hosttree.FOLDERS.items():
            if path == inner or path.startswith(inner + "/"):
                return self.work / folder / path[len(inner) + 1:]
        raise HostError(f"{path} is none of the host's own files")

    def inside(self, path: str) -> Path:
        """Any path of the host, as the host sees it: with what was mounted there later. Good until stop()."""
        return self._live().path(path)

    def write_config(self, config: Config) -> None:
        """Writes /etc/opt/tarn/bayward/bayward.conf anew; the service reads it when it starts."""
        self.outer("/etc/opt/tarn/bayward/bayward.conf").write_text(_config_text(config), encoding="utf-8")

    def install_tool(self, path: str, script: str) -> Path:
        """Makes an executable of the host, such as /opt/MegaRAID/storcli/storcli64. Returns where it lies outside."""
        place = self.outer(path)
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_text(script, encoding="utf-8")
        place.chmod(0o755)
        return place

    def install_tools(self, tools: Tools, only: Sequence[str] = TOOLS) -> Tools:
        """Installs the stand-ins for ssacli and storcli64 where the service looks for them, directed by `tools`.

        The service runs them in its own folder and they write there, so a host with tools takes copy_runtime=True.
        """
        for name in only:
            self.install_tool(_TOOL_PLACES[name], tools.wrapper(name))
        return tools

    # Programs

    def environment(self, env: Optional[Mapping[str, str]] = None, faketime: Optional[str] = None) -> Dict[str, str]:
        """The variables of a program on the host; the stand-ins for the system's tools come first on PATH."""
        found = {"PATH": f"{_SIM_BIN}:{self.runtime}:{_SYSTEM_PATH}", "HOME": "/root", "LANG": "C.UTF-8"}
        found.update({name: os.environ[name] for name in _PASSED_ON if name in os.environ})
        if faketime is not None:
            # The library has to come before the sanitizer's run-time, which would complain about it.
            options = found.get("ASAN_OPTIONS", "")
            found.update(LD_PRELOAD=_faketime_library(), FAKETIME=faketime,
                         ASAN_OPTIONS=":".join(filter(None, [options, "verify_asan_link_order=0"])))
        found.update(self._env)
        found.update(env or {})
        return found

    def run(self, argv: Sequence[str], stdin: "str | bytes" = b"", *, env: Optional[Mapping[str, str]] = None,
            timeout: float = 60.0) -> "subprocess.CompletedProcess[str]":
        """Runs a program on the host to its end and returns its exit status and output. Nothing is raised for a failure.

        Names without a slash are looked for among the stand-ins, in the run-time folder and in the system's folders.
        """
        space = self._live()
        with tempfile.TemporaryFile() as given, tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            given.write(stdin.encode() if isinstance(stdin, str) else stdin)
            given.seek(0)
            inner = space.start(argv, self.environment(env), given.fileno(), out.fileno(), err.fileno())
            status = space.wait(inner, timeout)
            if status is None:
                self._kill(inner)
                raise WaitTimeout(f"{argv[0]} did not end within {timeout:.0f} seconds")
            out.seek(0)
            err.seek(0)
            return subprocess.CompletedProcess(list(argv), status, out.read().decode(errors="replace"),
                                               err.read().decode(errors="replace"))

    def spawn(self, argv: Sequence[str], *, env: Optional[Mapping[str, str]] = None,
              output: Optional[Path] = None) -> int:
        """Starts a program on the host that runs beside the test, and returns its process id as the test sees it.

        It ends with the host, or by os.kill. Its standard output and error go to `output` (default: nowhere).
        """
        space = self._live()
        with open(os.devnull, "rb") as nothing, open(output or os.devnull, "ab") as out:
            inner = space.start(argv, self.environment(env), nothing.fileno(), out.fileno(), out.fileno())
        pid = space.outer(inner)
        if pid is None:
            raise HostError(f"{argv[0]} ended at once with status {space.wait(inner, 1)}")
        return pid

    def processes(self) -> List[Process]:
        """Every process of the host (rsyslogd, the service and what they started)."""
        return self._live().processes()

    def _kill(self, inner: int) -> None:
        pid = self._live().outer(inner)
        if pid is not None:
            os.kill(pid, signal.SIGKILL)
            self._live().wait(inner, 5)

    # The service

    def start_service(self, stand_alone: bool = True, faketime: Optional[str] = None,
                      env: Optional[Mapping[str, str]] = None,
                      limits: Optional[Mapping[str, int]] = None) -> "SimHost":
        """Starts the service, in the foreground or detached.

        faketime   what libfaketime takes: "+0 x20" makes its clock and its waits twenty times as fast
        env        further variables
        limits     resource limits from its start on, by their names in prlimit(1): {"nofile": 16}
        Its standard output and error are kept in service.out and service.err in the work folder.
        """
        if self._service is not None and self._service.running:
            raise HostError("the service runs already")
        self._service = Service(self._live(), self.runtime / "bayward", stand_alone,
                                self.environment(env, faketime), self.work, limits or {})
        return self

    @property
    def service(self) -> Service:
        """The latest run of the service."""
        if self._service is None:
            raise HostError("the service was not started")
        return self._service

    @property
    def pid(self) -> Optional[int]:
        """Process id of the service, as the test sees it; None when it ended at once."""
        return self.service.pid

    @property
    def running(self) -> bool:
        return self._service is not None and self._service.running

    @property
    def exit_status(self) -> Optional[int]:
        """Exit status of the latest run of the service, negative for the signal that ended it; None: it did not end."""
        return None if self._service is None else self._service.exit_status(0)

    def signal(self, number: int) -> None:
        self.service.signal(number)

    def wait_exit(self, timeout: float = 30.0) -> int:
        """Exit status of the service once it has ended, negative for the signal that ended it."""
        status = self.service.exit_status(timeout)
        if status is None:
            raise WaitTimeout(f"the service still runs after {timeout:.0f} seconds\n{self.report()}")
        return status

    def stop_service(self, timeout: float = 30.0) -> int:
        """Stops the service as an administrator would and returns its exit status. Too slow is a WaitTimeout."""
        if self.running:
            self.signal(signal.SIGINT if self.service.stand_alone else signal.SIGTERM)
        return self.wait_exit(timeout)

    def rss_kib(self) -> int:
        return self.service.rss_kib()

    def descriptors(self) -> Dict[int, str]:
        return self.service.descriptors()

    def children(self) -> List[Process]:
        return self.service.children()

    def service_output(self) -> str:
        """What the service has written to its standard output and error (sanitizers report there)."""
        return "".join((self.work / name).read_text(encoding="utf-8", errors="replace")
                       for name in ("service.out", "service.err") if (self.work / name).exists())

    # Logs

    def trace_lines(self) -> List[str]:
        """The complete lines of the trace log, those of its backup first."""
        lines: List[str] = []
        for name in ("bayward.log.bak", "bayward.log"):
            try:
                data = (self.log_dir / name).read_bytes()
            except FileNotFoundError:
                continue
            lines += data.decode("utf-8", errors="replace").split("\n")[:-1]
        return lines

    def wait_trace(self, text: str, timeout: float = 30.0, count: int = 1) -> str:
        """Waits until `count` trace lines hold the text, and returns the last of them. Ends early with the service."""
        def look() -> Optional[str]:
            found = [line for line in self.trace_lines() if text in line]
            return found[count - 1] if len(found) >= count else None
        return self._wait(look, timeout, f"no trace line with {text!r}" + (f", {count} times" if count > 1 else ""))

    def syslog_entries(self) -> List[SyslogEntry]:
        """What the system log has received so far, oldest first; rsyslogd's own messages are left out."""
        return self._system_log.entries()

    def wait_syslog(self, what: Union[str, bytes, Callable[[SyslogEntry], bool]], timeout: float = 30.0,
                    count: int = 1) -> SyslogEntry:
        """Waits until `count` entries hold the text (or satisfy the function), and returns the last of them."""
        if callable(what):
            matches = what
        else:
            wanted = what.encode() if isinstance(what, str) else what

            def matches(entry: SyslogEntry) -> bool:
                return wanted in entry.message

        def look() -> Optional[SyslogEntry]:
            found = [entry for entry in self.syslog_entries() if matches(entry)]
            return found[count - 1] if len(found) >= count else None
        return self._wait(look, timeout, f"no system log entry for {what!r}" + (f", {count} times" if count > 1 else ""))

    def _wait(self, look: Callable[[], Optional[Found]], timeout: float, failure: str) -> Found:
        deadline = time.monotonic() + timeout
        while True:
            # Asked first: what an ended service wrote last is still seen by the look after it.
            ended = self._service is not None and not self._service.running
            late = time.monotonic() > deadline
            found = look()
            if found is not None:
                return found
            if late or (ended and time.monotonic() > deadline - timeout + 1):
                raise WaitTimeout(f"{failure} {'until the service ended' if ended else f'within {timeout:.0f} s'}\n"
                                  f"{self.report()}")
            time.sleep(_POLL_SECONDS)

    def report(self) -> str:
        """The state of the host in a few lines, for messages of failing tests."""
        if self._service is None:
            state = "was not started"
        else:
            status = self._service.exit_status(0)
            state = "runs" if status is None else f"ended with status {status}"
        parts = [f"service: {state}"]
        for title, lines in (("trace log", self.trace_lines()), ("service output", self.service_output().splitlines()),
                             ("system log", [f"<{entry.priority}> {entry.text()}" for entry in self.syslog_entries()])):
            parts.append(f"{title}: {len(lines)} lines")
            parts += [f"    {line}" for line in lines[-_TAIL_LINES:]]
        return "\n".join(parts)

    # The system log daemon

    def start_syslog(self) -> None:
        """Starts rsyslogd and waits until it listens."""
        if self._syslogd is not None:
            raise HostError("rsyslogd runs already")
        space = self._live()
        socket_path = space.path("/dev/log")
        errors = self.work / "syslog/rsyslogd.err"
        with open(os.devnull, "rb") as nothing, open(errors, "ab") as err:
            inner = space.start(self._system_log.command(), {"PATH": _SYSTEM_PATH}, nothing.fileno(), err.fileno(),
                                err.fileno())
        deadline = time.monotonic() + 20
        while not socket_path.exists():
            if space.wait(inner, 0.02) is not None or time.monotonic() > deadline:
                raise HostError("rsyslogd does not start: " + errors.read_text(encoding="utf-8", errors="replace").strip())
        self._syslogd = inner

    def stop_syslog(self) -> None:
        """Stops rsyslogd; /dev/log goes away with it."""
        if self._syslogd is None:
            raise HostError("rsyslogd does not run")
        pid = self._live().outer(self._syslogd)
        if pid is not None:
            os.kill(pid, signal.SIGTERM)
            if self._live().wait(self._syslogd, 10) is None:
                self._kill(self._syslogd)
        self._syslogd = None
        self._live().path("/dev/log").unlink(missing_ok=True)

    def restart_syslog(self) -> None:
        self.stop_syslog()
        self.start_syslog()

    # The end

    def _live(self) -> Namespace:
        if self._namespace is None:
            raise HostError("the simulated host was stopped")
        return self._namespace

    def stop(self, grace: float = 5.0) -> None:
        """Ends the service (asked politely for `grace` seconds) and everything else on the host. May be called again."""
        atexit.unregister(self.stop)
        try:
            if self._namespace is not None and self._service is not None:
                self._service.end(grace)
        except (HostError, OSError):
            pass  # it ended by itself, or the host is gone already
        finally:
            if self._namespace is not None:
                self._namespace.close()
                self._namespace = None
            if self._owns_work:
                shutil.rmtree(self.work, ignore_errors=True)
