"""The real service on a simulated host, watching a simulated controller, and what it is expected to write."""

from __future__ import annotations

import glob
import os
import re
import sys
import time
from pathlib import Path
from typing import Any, Callable, Dict, List, Mapping, NamedTuple, Optional, Sequence, Tuple

from expansion import expansion

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "sim"))

from simcontroller.process import ControllerProcess  # noqa: E402
from simhost import SimHost, WaitTimeout  # noqa: E402

_STAMP = re.compile(r"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} ")
HELD = "/hang-headers"  # ends the line of a request whose answer was held back
_SYSTEMS = "GET /redfish/v1/Systems/"
UNDEFINED = 77  # exit status of a program with undefined behaviour; no other end has it
_SANITIZER_SWITCHES = {
    "ASAN_OPTIONS": "verify_asan_link_order=0",  # libfaketime has to come before the sanitizer's run-time
    "LSAN_OPTIONS": f"suppressions={ROOT / 'tests/support/lsan.supp'}:print_suppressions=0",
    "TSAN_OPTIONS": "atexit_sleep_ms=20",  # the stop is timed; a second more would be its default
    "UBSAN_OPTIONS": f"print_stacktrace=1:exitcode={UNDEFINED}",
}

ERROR, WARNING = 3, 4  # system log priorities

Config = Mapping[str, Mapping[str, object]]


def bin_dir() -> Path:
    """The run-time folder under test."""
    return Path(os.environ.get("BAYWARD_BIN") or ROOT / "build/release/bin").resolve()


def slowness() -> float:
    """How many times as long the service under test may take to end: a sanitizer slows it down, and looks for leaks."""
    program = (bin_dir() / "bayward").read_bytes()
    return 2.5 if b"__asan_init" in program or b"__tsan_init" in program else 1


# ---- What is expected ----

def _catalogue() -> Dict[str, Dict[int, str]]:
    """The shipped message texts: language -> identifier -> text."""
    found: Dict[str, Dict[int, str]] = {}
    language = ""
    for line in (ROOT / "share/bayward.msg").read_text(encoding="utf-8").splitlines():
        if line.startswith("["):
            language = line[1:line.index("]")]
        elif line and not line.startswith("#"):
            key, _, text = line.partition("=")
            found.setdefault(language, {})[int(key, 16)] = text
    return found


class Event(NamedTuple):
    """An event with its parameters as they stand in messages."""
    identifier: int
    parameters: Tuple[str, ...] = ()

    @property
    def line(self) -> str:
        """Its line in the trace log, without stamp."""
        texts = "".join(f"{parameter} " for parameter in self.parameters)
        return f"<VK{self.identifier & 0x3FFF:04d}> [EV] {self.identifier:#x} {texts}reported."

    @property
    def priority(self) -> int:
        return {3: ERROR, 2: WARNING}[self.identifier >> 30]

    def sentences(self, language: str = "default") -> List[str]:
        """Its entries in the system log."""
        text = _catalogue()[language][self.identifier]
        for number, parameter in enumerate(self.parameters, 1):
            text = text.replace(f"%{number}", parameter)
        return [line for line in text.replace("%n", "\n").split("\n") if line]


LOGIN_FAILED = Event(0xC00081D1)


class Disk(NamedTuple):
    """A drive as it stands in messages; its events are its methods."""
    controller: str
    location: str
    description: str

    def event(self, identifier: int) -> Event:
        return Event(identifier, (f"CTRL({self.controller})", f"PD({self.location})", f" {self.description}"))

    @property
    def failed(self) -> Event:
        return self.event(0xC0008151)

    @property
    def predicted(self) -> Event:
        return self.event(0x80008152)

    @property
    def fatal(self) -> Event:
        return self.event(0xC0008153)

    @property
    def worn_80(self) -> Event:
        return self.event(0x8000815B)

    @property
    def worn_90(self) -> Event:
        return self.event(0x80008154)

    @property
    def worn_95(self) -> Event:
        return self.event(0xC0008155)


SMART_ARRAY = "HPE Smart Array P408i-a SR Gen10 [Slot 0]"
MEGA_RAID = "HPE MR416i-o Gen11 [Slot=14]"


def smart_disk(number: int, ssd: bool = False) -> Disk:
    """Drive `number` (from 1) of the simulated server's first Smart Array controller."""
    index = number - 1
    model, size, firmware = ("VK000960GWTEST", "960 GB", "HPG3") if ssd else ("EG001200JWTEST", "1200 GB", "HPD4")
    return Disk(SMART_ARRAY, f"{1 + index % 8 // 4}I:{1 + index // 8}:{1 + index % 8}",
                f"Model: {model} Size: {size} Serial Number: SIMSA00D{index:04d} Firmware Revision: {firmware}")


def mega_disk(number: int, ssd: bool = False) -> Disk:
    """Drive `number` (from 1) of the simulated server's first MR controller."""
    index = number - 1
    model, size, firmware = ("XX000480TEST", "480 GB", "T001") if ssd else ("XX001200TEST", "1200 GB", "T004")
    return Disk(MEGA_RAID, f"Slot=14:Port={1 + index % 8 // 4}:Box={1 + index // 8}:Bay={1 + index % 8}",
                f"Model: {model} Size: {size} Serial Number: SIMMR00D{index:04d} Firmware Revision: {firmware}")


def volume_offline(controller: str, number: int) -> Event:
    return Event(0xC00081B7, (f"CTRL({controller})", f"LD({number})"))


# ---- Waiting ----

def wait_until(condition: Callable[[], object], what: str, timeout: float = 30.0,
               host: Optional[SimHost] = None) -> None:
    """Waits until the condition holds; past `timeout` seconds it is an AssertionError that says what was awaited."""
    deadline = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > deadline:
            raise WaitTimeout(f"no {what} within {timeout:.0f} s\n{host.report() if host is not None else ''}")
        time.sleep(0.02)


class Clock:
    """The clock of a running service: `set` changes its pace and makes it jump ahead, never back."""

    def __init__(self, path: Path, speed: float) -> None:
        self._path = path
        self.set(0, speed)

    def set(self, ahead: int, speed: float) -> None:
        """`ahead` seconds before the real time, running `speed` times as fast from the service's start on."""
        part = self._path.with_suffix(".part")
        part.write_text(f"+{ahead} x{speed:g}\n", encoding="ascii")
        part.replace(self._path)

    def environment(self) -> Dict[str, str]:
        library = glob.glob("/usr/lib/*/faketime/libfaketimeMT.so.1")
        assert library, "libfaketime is missing; install the package faketime"
        return {"LD_PRELOAD": library[0], "FAKETIME_TIMESTAMP_FILE": str(self._path), "FAKETIME_NO_CACHE": "1"}


# ---- The service, its host and its controller ----

class Watched:
    """A host with the service on it, and the controller it watches (None: an address where nobody answers).

    speed    how fast the service's clock and its waits run; 1 leaves them alone
    account  what is registered with baywardctl before the start; None: nothing, absent: the controller's account
    clock    True: `clock` may change pace and time of the running service
    `config` is laid over a configuration that polls every 3 seconds and has no media-error thread.
    """

    def __init__(self, sim: Optional[ControllerProcess], *, speed: float = 10, stand_alone: bool = False,
                 account: "Optional[Tuple[str, str]] | bool" = True, config: "Config | str | None" = None,
                 clock: bool = False, env: Optional[Mapping[str, str]] = None, url: Optional[str] = None,
                 **host: Any) -> None:
        self._sim = sim
        self._speed = speed
        self._stand_alone = stand_alone
        self._env = dict(env or {})
        self._expected: List[Event] = []
        self.language, self.encoding = "default", "utf-8"
        self.secrets: List[str] = [sim.password] if sim is not None else []
        self.host = SimHost(bin_dir(), config=self._configuration(config, url), **host)
        try:
            self.clock = Clock(self.host.work / "clock", speed) if clock else None
            if account is True and sim is not None:
                account = (sim.account, sim.password)
            if isinstance(account, tuple):
                self.register(*account)
        except BaseException:
            self.host.stop()
            raise

    def _configuration(self, config: "Config | str | None", url: Optional[str]) -> "Dict[str, Dict[str, object]] | str":
        if isinstance(config, str):
            return config
        url = url if url is not None else self._sim.url if self._sim is not None else "https://127.0.0.1:9"
        found: Dict[str, Dict[str, object]] = {"iLo": {"url": url, "interval": 3000, **expansion().service},
                                               "media error": {"check": "false"}}
        for section, entries in (config or {}).items():
            found[section] = {**found.get(section, {}), **entries}
        return found

    @property
    def sim(self) -> ControllerProcess:
        assert self._sim is not None, "there is no controller in this test"
        return self._sim

    # Start and end

    def environment(self) -> Dict[str, str]:
        """Switches of the sanitizers: a detached service has no standard error, so reports go to files.

        Leaks are looked for under libfaketime, too. That needs the host's read-only /dev/shm: with a semaphore there,
        which libfaketime takes away before the report, the report aborts in libfaketime's lstat.
        """
        found = dict(self._env)
        log = f"log_path={self.host.work / 'sanitizer'}"
        for name, own in _SANITIZER_SWITCHES.items():
            found[name] = ":".join(filter(None, [os.environ.get(name, ""), log, own]))
        if self.clock is not None:
            found.update(self.clock.environment())
        return found

    def start(self) -> "Watched":
        pace = f"+0 x{self._speed:g}" if self._speed != 1 and self.clock is None else None
        self.host.start_service(stand_alone=self._stand_alone, faketime=pace, env=self.environment())
        return self

    def stop(self, timeout: float = 30.0) -> int:
        status = self.host.stop_service(timeout)
        self.assert_no_findings()
        return status

    def close(self) -> None:
        """Ends everything, and asserts what holds for every run: a clean end, no sanitizer report, no secret anywhere."""
        try:
            if self.host.running:
                assert self.stop() == 0, self.host.report()
            self.assert_clean()
        finally:
            self.host.stop()

    def assert_no_findings(self) -> None:
        """What the sanitizers have reported so far: nothing."""
        reports = [path.read_text(errors="replace") for path in sorted(self.host.work.glob("sanitizer*"))]
        assert not reports, "\n".join(reports)
        # Beside the address sanitizer the text of this report goes nowhere but to standard error, if there is one.
        assert self.host.exit_status != UNDEFINED, "undefined behaviour; to read where, start it with stand_alone=True"

    def assert_clean(self) -> None:
        self.assert_no_findings()
        output = self.host.service_output()
        assert "Sanitizer" not in output and "runtime error" not in output
        for path in self.written_files():
            data = path.read_bytes()
            for secret in self.secrets:
                assert secret.encode() not in data, f"{path.name} holds {secret!r}"

    def written_files(self) -> List[Path]:
        """Every file that may hold something the service said."""
        folders = (self.host.work / "var-log", self.host.work / "syslog")
        found = [path for folder in folders for path in sorted(folder.rglob("*")) if path.is_file()]
        return found + sorted(self.host.work.glob("service.*"))

    def __enter__(self) -> "Watched":
        return self

    def __exit__(self, kind: Any, *_: Any) -> None:
        if kind is None:
            self.close()
        else:
            self.host.stop()

    # The account

    def register(self, account: str, password: str) -> None:
        self.secrets.append(password)
        done = self.ctl("account", "set", account, stdin=f"{password}\n")
        assert done.returncode == 0, done.stderr

    def ctl(self, *arguments: str, stdin: str = "", env: Optional[Mapping[str, str]] = None) -> Any:
        """Runs baywardctl to its end."""
        command = [str(self.host.runtime / "baywardctl"), *arguments]
        return self.host.run(command, stdin=stdin, env={**self.environment(), **(env or {})})

    def unregister(self) -> None:
        for record in (0, 1):
            self.host.outer(f"/etc/.TARNiLO{record}").unlink()

    # The trace log

    def trace(self) -> List[str]:
        """The lines of the trace log without their stamps, which are checked."""
        lines = self.host.trace_lines()
        for line in lines:
            assert _STAMP.match(line), line
        return [_STAMP.sub("", line, count=1) for line in lines]

    def own_trace(self) -> List[str]:
        """The trace without the lines that the reader writes for every drive in every walk."""
        return [line for line in self.trace() if "<VK0999>" not in line]

    def reasons(self) -> List[str]:
        """Why the controller could not be asked, as the helper module tells it with a CA file, once for each attempt."""
        mark = "<VK0888> [TR] "
        return [line[len(mark):] for line in self.trace() if line.startswith(mark)]

    def wait_line(self, text: str, timeout: float = 30.0, count: int = 1) -> str:
        return self.host.wait_trace(text, timeout, count)

    def count_line(self, text: str) -> int:
        return sum(text in line for line in self.trace())

    def errors(self) -> List[str]:
        """The error lines of the trace log."""
        return [line for line in self.trace() if "[ER]" in line]

    # Walks

    def counters(self) -> Dict[str, Any]:
        return self.sim.control.call("counters")

    def walks(self) -> int:
        """How many walks over the storage have begun."""
        return sum(count for request, count in self.counters()["requests"].items()
                   if request.partition("?")[0] == _SYSTEMS)

    def wait_walks(self, number: int = 1, timeout: float = 30.0) -> None:
        """Waits until `number` walks have begun and ended, events reported."""
        last = self.walks() + number + 1
        wait_until(lambda: self.walks() >= last, f"{number} walks", timeout, self.host)

    def wait_baseline(self, timeout: float = 60.0) -> "Watched":
        """Waits until a comparing walk begins: the first one is the start-up's, the second takes the baseline."""
        wait_until(lambda: self.walks() >= 3, "baseline", timeout, self.host)
        return self

    def left_processes(self) -> List[str]:
        """What runs in the host beside its first process and the system log. What a sanitizer starts ends by itself."""
        return [process.name for process in self.host.processes()
                if process.inner != 1 and process.name not in ("rsyslogd", "llvm-symbolizer")]

    def held(self) -> "Held":
        """`with watched.held():` keeps the next walk at its beginning; what changes meanwhile is seen together."""
        return Held(self)

    # Reports

    def expect(self, *events: Event, walks: int = 1, timeout: float = 30.0) -> None:
        """These events and no others follow those expected before, in both logs, and stay alone for `walks` walks more."""
        self._expected += events
        if events:
            line = events[-1].line
            self.wait_line(line, timeout, sum(event.line == line for event in self._expected))
        if walks:
            self.wait_walks(walks)
        self.assert_reports()

    def assert_reports(self) -> None:
        assert [line for line in self.trace() if "[EV]" in line] == [event.line for event in self._expected]
        wanted = [(event.priority, "daemon", "bayward", sentence.encode(self.encoding))
                  for event in self._expected for sentence in event.sentences(self.language)]
        wait_until(lambda: len(self.host.syslog_entries()) >= len(wanted), "system log entries", 5, self.host)
        entries = self.host.syslog_entries()
        assert [(e.priority, e.facility, e.identity, e.message) for e in entries] == wanted
        if self.host.running:
            numbers = {process.inner for process in self.host.processes() if process.pid == self.host.pid}
            assert {entry.pid for entry in entries} <= numbers


class Held:
    """Keeps a walk at its first request until the end of the `with` block."""

    def __init__(self, watched: Watched) -> None:
        self._watched = watched

    def __enter__(self) -> None:
        held = self._held()
        self._watched.sim.control.call("hang", "GET /redfish/v1/Systems", "headers", "forever", 1)
        wait_until(lambda: self._held() > held, "walk to hold", 30, self._watched.host)

    def __exit__(self, *_: Any) -> None:
        self._watched.sim.control.call("release")

    def _held(self) -> int:
        """How many walks have been held. One that begins just before the next is to be held is none of them."""
        return sum(f" {_SYSTEMS} " in line and line.endswith(HELD) for line in self._watched.sim.requests())


def without(lines: Sequence[str], *texts: str) -> List[str]:
    """The lines that hold none of the texts."""
    return [line for line in lines if not any(text in line for text in texts)]
