"""The complete trace of a run, line by line, from its first line to its last."""

import os
import re
import signal
from datetime import datetime
from pathlib import Path
from typing import Callable, List

import pytest
from watched import Watched, mega_disk, wait_until

from simtools.tools import Tools

START = [
    "<VK0900> [TR] MainRoutine started.",
    "<VK0900> [TR] Get LocalSystemInfo.",
    "<VK0900> [TR] PrepareMessage succeeded.",
    "<VK0900> [TR] PrepareSysLog succeeded.",
    "<VK0900> [TR] Create thread for OS log.",
    "<VK0900> [TR] Create thread for Serial log.",
    "<VK0900> [TR] Create thread for Media Error.",
    "<VK0900> [TR] Ready to wait stop event.",
]
END = [
    "<VK0900> [TR] Receive StopEvent.",
    "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for OS log.",
    "<VK0900> [TR] Break SerialLogRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for Serial log.",
    "<VK0900> [TR] Break MediaErrorRoutine by StopEvent.",
    "<VK0900> [TR] Join thread for Media Error.",
]
# Written by threads of their own, at any time between their creation and their end.
FREE = {
    "<VK0900> [TR] Start cyclic serial log saving.": "<VK0900> [TR] Break SerialLogRoutine by StopEvent.",
    "<VK0900> [TR] Start cyclic Media Error search.": "<VK0900> [TR] Break MediaErrorRoutine by StopEvent.",
}

TOOLS_SAY = re.compile(r"Generating diagnostic report\.\.\.done|Archive:  ADUReport\.zip| +inflating: ADUReport/\S+ *|")


def assert_trace(trace: List[str], expected: List[str]) -> None:
    """The trace is `expected` plus, once each and before their end, the first lines of the other threads."""
    for start, end in FREE.items():
        assert trace.count(start) == 1
        assert trace.index(start) < trace.index(end)
    assert [line for line in trace if line not in FREE] == expected


def files(folder: Path) -> List[str]:
    return sorted(path.name for path in folder.iterdir() if path.name != "__pycache__")


@pytest.mark.parametrize("stand_alone", [False, True])
def test_idle_run(watch: Callable[..., Watched], tmp_path: Path, stand_alone: bool) -> None:
    watched = watch(None, stand_alone=stand_alone, speed=1, config={"media error": {"check": "true"}}, copy_runtime=True)
    tools = watched.host.install_tools(Tools.create(tmp_path / "tools"))
    tools.add_drive(tools.add_smart_array())
    before = files(watched.host.runtime)
    watched.start()
    watched.wait_line("Ready to wait stop event.")
    for line in FREE:
        watched.wait_line(line)
    assert watched.stop(60) == 0
    if stand_alone:
        expected = ["<VK0900> [TR] Initialize succeeded.", *START, "<VK0902> [TR] Receive signal 2", *END]
    else:
        expected = ["<VK0900> [TR] Initialize succeeded.", "<VK0900> [TR] Service started.", *START,
                    "<VK0902> [TR] Receive signal 15", *END, "<VK0900> [TR] Service stopped."]
    assert_trace(watched.trace(), expected)
    assert watched.host.syslog_entries() == []
    # In the foreground what the tools say about their work is seen; the service itself says nothing.
    said = watched.host.service_output().splitlines()
    assert [line for line in said if not (stand_alone and TOOLS_SAY.fullmatch(line))] == []
    assert [command.line for command in tools.commands()] == ["ssacli ctrl all diag file=ADUReport.zip", "storcli64 show"]
    assert files(watched.host.runtime) == before


def test_watching_run(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """A healthy controller: one line for the log-in, and in every walk one line for each drive."""
    sim = start_sim("--ilo", 5, "--drives", 3, "--ssd", 1)
    watched = watch(sim).start()
    watched.wait_baseline()
    watched.wait_walks(3)
    assert watched.stop() == 0
    trace = [line for line in watched.trace() if line not in FREE]
    begin = trace.index("<VK0900> [TR] Ready to wait stop event.")
    end = trace.index("<VK0902> [TR] Receive signal 15")
    version, walk = trace[begin + 1], trace[begin + 2:begin + 5]
    assert re.fullmatch(r"<VK0999> \[TR\] ilorest-reader \d+ mVersion=iLO 5 v2\.72, mMajorVersion=2, mMinorVersion=72",
                        version)
    assert [re.sub(r" \d+ ", " LINE ", line, count=1) for line in walk] == [
        "<VK0999> [TR] ilorest-reader LINE ssdEnduranceUtilizationPercentage=2",
        "<VK0999> [TR] ilorest-reader LINE ssdEnduranceUtilizationPercentage=0",
        "<VK0999> [TR] ilorest-reader LINE ssdEnduranceUtilizationPercentage=0",
    ]
    assert trace[begin + 5] == "<VK0900> [TR] Start to monitor."
    walks = trace[begin + 6:end]
    assert len(walks) >= 12  # the last one may be cut short by the stop
    assert walks == (walk * len(walks))[:len(walks)]
    assert watched.host.syslog_entries() == []


@pytest.fixture
def detached(watch: Callable[..., Watched]) -> Callable[..., "tuple[Watched, int]"]:
    """Runs a command line that detaches the service, and finds the process that stays."""
    def run(make_command: Callable[[Watched], List[str]]) -> "tuple[Watched, int]":
        watched = watch(None, speed=1)
        done = watched.host.run(make_command(watched), env=watched.environment())
        assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
        watched.wait_line("Ready to wait stop event.")
        found = [process.pid for process in watched.host.processes() if is_service(watched, process.pid)]
        assert len(found) == 1
        return watched, found[0]
    return run


def is_service(watched: Watched, pid: int) -> bool:
    try:
        return os.path.samefile(f"/proc/{pid}/exe", watched.host.runtime / "bayward")
    except OSError:
        return False


def assert_daemon_ends(watched: Watched, pid: int) -> None:
    os.kill(pid, signal.SIGTERM)
    watched.wait_line("<VK0900> [TR] Service stopped.")
    wait_until(lambda: not os.path.exists(f"/proc/{pid}"), "end of the daemon")
    assert watched.trace()[:2] == ["<VK0900> [TR] Initialize succeeded.", "<VK0900> [TR] Service started."]


@pytest.mark.parametrize("arguments", [["--verbose", "--stand-alone"], ["--stand-alone=1"], ["--standalone"], [""]])
def test_only_the_first_argument_chooses_the_foreground(detached: Callable, arguments: List[str]) -> None:
    watched, pid = detached(lambda found: [str(found.host.runtime / "bayward"), *arguments])
    assert_daemon_ends(watched, pid)


def test_daemon_is_detached_from_its_launcher(detached: Callable) -> None:
    watched, pid = detached(lambda found: [str(found.host.runtime / "bayward")])
    assert os.getsid(pid) == pid
    for descriptor in (0, 1, 2):
        assert os.readlink(f"/proc/{pid}/fd/{descriptor}") == "/dev/null"
    assert_daemon_ends(watched, pid)


def test_run_through_a_symbolic_link_works_in_the_targets_folder(detached: Callable) -> None:
    def command(watched: Watched) -> List[str]:
        link = watched.host.outer("/opt/somewhere/watch-storage")
        link.parent.mkdir()
        link.symlink_to(watched.host.runtime / "bayward")
        return ["/opt/somewhere/watch-storage"]

    watched, pid = detached(command)
    assert Path(os.readlink(f"/proc/{pid}/cwd")) == watched.host.runtime
    assert "<VK0900> [TR] PrepareMessage succeeded." in watched.trace()  # found beside the executable
    assert_daemon_ends(watched, pid)


def test_natural_pace(natural: Watched) -> None:
    """Nothing is sped up here: two passes of 10 seconds, then a walk every 3 seconds or a little more."""
    natural.wait_baseline()
    natural.sim.control.call("fail-drive", 2, 1)
    natural.expect(mega_disk(1, ssd=True).failed)
    assert natural.stop() == 0
    assert natural.errors() == []

    def seconds(text: str, count: int = 1) -> float:
        stamp = natural.wait_line(text, 1, count)[:23]
        return datetime.strptime(stamp, "%Y/%m/%d %H:%M:%S.%f").timestamp()

    begun = seconds("Ready to wait stop event.")
    assert 9.9 <= seconds("mVersion=") - begun < 15
    assert 19.9 <= seconds("Start to monitor.") - begun < 30
    cycles = [seconds("ssdEnduranceUtilizationPercentage=2", count) for count in (1, 2, 3)]
    assert all(2.9 <= later - earlier < 8 for earlier, later in zip(cycles, cycles[1:]))
