"""The soak finds what it looks for."""

import random
import re
from collections import Counter
from pathlib import Path
from typing import Any, Iterator

import pytest
import soak
from expansion import EXPANSIONS
from fixtures import everything_is_there  # noqa: F401
from soakerrors import ErrorLines, most_unplanned
from soaklogs import Journal, Tail, Violation
from soakmedium import MediumErrors
from soakmodule import ModuleLoads
from soakserver import Server
from soakvitals import Vitals
from soakworld import (FAILED, GOOD, MEGA, OFFLINE, PREDICTED, SMART, Condition, Drive, Volume, World, blank, drives,
                       known_events, random_change, transitions)
from watched import bin_dir

ABSENT = Condition(present=False)
STAMP = "2026/11/21 10:00:00.000 "


# ---- Logs ----

def test_tail_gives_each_complete_line_once_and_follows_a_rotation(tmp_path: Path) -> None:
    log, backup = tmp_path / "log", tmp_path / "log.bak"
    tail = Tail(log, backup)
    assert tail.lines() == []
    log.write_text("a\nb")
    assert tail.lines() == ["a"]
    with log.open("a") as file:
        file.write("\nc\n")
    log.rename(backup)
    assert tail.lines() == ["b", "c"]
    log.write_text("d\n")
    assert tail.lines() == ["d"]
    assert tail.lines() == []


def test_tail_tells_that_lines_were_lost(tmp_path: Path) -> None:
    log, backup = tmp_path / "log", tmp_path / "log.bak"
    tail = Tail(log, backup)
    log.write_text("a\n")
    assert tail.lines() == ["a"]
    for text in ("b\n", "c\n"):
        log.replace(backup)
        log.write_text(text)
    with pytest.raises(Violation, match="lines of it are lost"):
        tail.lines()


@pytest.fixture
def logs(tmp_path: Path) -> Path:
    for name in ("trace", "syslog"):
        (tmp_path / name).touch()
    return tmp_path


def journal(logs: Path) -> Journal:
    return Journal(Tail(logs / "trace"), Tail(logs / "syslog"), known_events())


def tell(log: Path, line: str) -> None:
    with log.open("a") as file:
        file.write(f"{line}\n")


def test_event_stands_in_both_logs(logs: Path) -> None:
    found, event = journal(logs), Drive(SMART, 1).disk.failed
    tell(logs / "trace", STAMP + event.line)
    assert not found.logs_agree()
    for sentence in event.sentences():
        assert not found.logs_agree()
        assert sentence in found.disagreement()
        tell(logs / "syslog", f"3\tdaemon\tbayward[1]:\t {sentence}")
    assert found.logs_agree()
    assert found.events == [event]
    tell(logs / "syslog", f"3\tdaemon\tbayward[1]:\t {event.sentences()[0]}")
    assert not found.logs_agree()


@pytest.mark.parametrize("line", [
    STAMP + Drive(SMART, 1).disk.failed.line.replace("1I:1:1", "1I:1:9"), Drive(SMART, 1).disk.failed.line])
def test_line_that_nothing_explains_is_a_violation(logs: Path, line: str) -> None:
    tell(logs / "trace", line)
    with pytest.raises(Violation, match="The trace log before:\n    " ):
        journal(logs).poll()


def test_journal_follows_the_log_in(logs: Path) -> None:
    found = journal(logs)
    mark = found.mark()
    for line, away in (("<VK0956> [ER] Failed to initialize RaidManager.", True),
                       ("<VK0950> [TR] Initializing RaidManager succeed.", False),
                       ("<VK0954> [ER] Login to iLO was failed.", True)):
        tell(logs / "trace", STAMP + line)
        found.poll()
        assert found.away == away
    assert found.mark() == (mark.events, 1, 1, 1)
    assert not found.errors


# ---- Errors ----

SAVE_FAILS = "<VK0902> [ER] log-manager 98 (command: ssacli ctrl all diag logs=on file=/var/log/bayward/serial_log_1.zip)"
REPORT_FAILS = "<VK0902> [ER] log-manager 118 (command: ssacli ctrl all diag file=ADUReport.zip)"
NOT_LISTED = "<VK0902> [ER] log-manager 237 (Err: 2)"


class Errors:
    """Error lines with everything around them as a test wants it."""

    def __init__(self, logs: Path) -> None:
        self._trace = logs / "trace"
        self.ssacli_fails = self.tool_runs = False
        self.lines = ErrorLines(journal(logs), lambda: self.ssacli_fails, lambda: self.tool_runs)

    def come(self, *lines: str) -> None:
        for line in lines:
            tell(self._trace, STAMP + line)
        self.lines.look()


def test_errors_are_explained_by_a_failing_tool_as_long_as_it_fails(logs: Path) -> None:
    errors = Errors(logs)
    errors.ssacli_fails = True
    errors.come(SAVE_FAILS, REPORT_FAILS, SAVE_FAILS)
    errors.ssacli_fails = False
    errors.come()
    with pytest.raises(Violation, match="nothing can have caused.*log-manager 98"):
        errors.come(SAVE_FAILS)


def test_errors_are_explained_by_a_jump_as_long_as_a_tool_runs(logs: Path) -> None:
    errors = Errors(logs)
    errors.lines.clock_jumped()
    errors.tool_runs = True
    for _ in range(3):
        errors.come(SAVE_FAILS)
    errors.tool_runs = False
    errors.come()
    errors.come(REPORT_FAILS)
    with pytest.raises(Violation, match="nothing can have caused.*log-manager 98"):
        errors.come(SAVE_FAILS)


@pytest.mark.parametrize("line", [SAVE_FAILS, REPORT_FAILS])
def test_error_without_a_fault_is_a_violation(logs: Path, line: str) -> None:
    with pytest.raises(Violation, match="nothing can have caused"):
        Errors(logs).come(line)


@pytest.mark.parametrize("line", [NOT_LISTED, "<VK0902> [ER] service-param 7"])
def test_no_fault_explains_other_errors(logs: Path, line: str) -> None:
    errors = Errors(logs)
    errors.ssacli_fails = True
    errors.lines.clock_jumped()
    with pytest.raises(Violation, match="nothing can have caused"):
        errors.come(line)


def test_that_a_report_fails_is_said_once(logs: Path) -> None:
    errors = Errors(logs)
    errors.ssacli_fails = True
    errors.come(REPORT_FAILS)
    with pytest.raises(Violation, match="is said 2 times"):
        errors.come(REPORT_FAILS)


@pytest.mark.parametrize("rounds, allowed", [(0, 3), (40, 3), (199, 3), (200, 4), (3000, 60)])
def test_few_log_ins_may_be_lost_by_themselves(rounds: int, allowed: int) -> None:
    assert most_unplanned(rounds) == allowed


# ---- Which events a change makes ----

def after(*changes: Any) -> World:
    world = World()
    for item, condition in changes:
        world.items[item] = condition
    return world


SSD, HDD = Drive(MEGA, 1), Drive(MEGA, 3)


@pytest.mark.parametrize("before, now, expected", [
    ([], [], []),
    ([], [(HDD, Condition(status=FAILED))], [HDD.disk.failed]),
    ([(HDD, Condition(status=FAILED))], [(HDD, Condition(status=FAILED))], []),
    ([(HDD, Condition(status=FAILED))], [(HDD, Condition(status=PREDICTED))], [HDD.disk.predicted]),
    ([(HDD, Condition(status=FAILED))], [], []),
    ([], [(SSD, Condition(used=97, status=FAILED))], [SSD.disk.failed, SSD.disk.worn_95]),
    ([(SSD, Condition(used=97))], [(SSD, Condition(used=85))], [SSD.disk.worn_80]),
    ([(SSD, Condition(used=85))], [(SSD, Condition(used=60))], []),
    ([], [(HDD, ABSENT)], [HDD.disk.failed]),
    ([(HDD, Condition(status=FAILED))], [(HDD, ABSENT)], [HDD.disk.failed]),
    ([(HDD.volume, ABSENT)], [(HDD.volume, ABSENT), (HDD, ABSENT)], []),
    ([(HDD, ABSENT)], [(HDD, Condition(status=FAILED))], [HDD.disk.failed]),
    ([], [(Drive(SMART, 3), ABSENT)], []),
    ([], [(Volume(MEGA, 1), Condition(status=OFFLINE))], [Volume(MEGA, 1).offline]),
    ([], [(Volume(MEGA, 1), ABSENT)], []),
    ([], [(Volume(MEGA, 1), ABSENT), (Drive(MEGA, 1), ABSENT)], [Drive(MEGA, 1).disk.failed]),
    ([], [(Volume(MEGA, 1), ABSENT), (Drive(MEGA, 1), ABSENT), (Drive(MEGA, 2), ABSENT)],
     [Drive(MEGA, 1).disk.failed, Drive(MEGA, 2).disk.failed, Volume(MEGA, 1).offline]),
])
def test_transitions(before: Any, now: Any, expected: Any) -> None:
    assert transitions(after(*before), after(*now)) == Counter(expected)


def test_controller_that_comes_back_tells_everything_it_has() -> None:
    world = after(*((drive, Condition(status=FAILED)) for drive in drives(SMART)))
    assert transitions(blank(), world) == Counter(drive.disk.failed for drive in drives(SMART))
    assert transitions(world, blank()) == Counter()


def test_changes_follow_from_the_seed() -> None:
    def some(seed: int) -> Any:
        world, rng = World(), random.Random(seed)
        return [random_change(world, rng.choice(list(world.items)), rng) for _ in range(50)]

    assert some(1) == some(1) != some(2)
    assert {change.condition.status for change in some(1)} == {GOOD, FAILED, PREDICTED, OFFLINE}


def test_loads_of_the_module_are_counted(tmp_path: Path) -> None:
    loads = ModuleLoads(tmp_path)
    for name in ("baywardilorest.py", "_bayward_wire.py", "bayward.msg", "__pycache__/baywardilorest.cpython-311.pyc"):
        (tmp_path / name).touch()
    before = loads.count()
    for name in ("baywardilorest.py", "_bayward_wire.py", "bayward.msg", "__pycache__/baywardilorest.cpython-311.pyc"):
        (tmp_path / name).read_bytes()
    assert loads.count() - before == 2
    loads.close()


# ---- Runs ----

def run(cycles: int, *options: str) -> int:
    return soak.main([str(cycles), "--seed", "7", "--bin", str(bin_dir()), *options])


@pytest.mark.parametrize("way", EXPANSIONS)
def test_good_service_passes(capsys: pytest.CaptureFixture, way: str) -> None:
    assert run(30, "--expansion", way) == 0
    told = capsys.readouterr().out
    assert "BROKEN" not in told and "seed              7" in told
    expanding = re.search(r"^requests +\d+, (\d+) of them", told, re.MULTILINE)
    assert expanding is not None and (int(expanding[1]) > 0) == EXPANSIONS[way].asked


def test_change_that_is_not_reported_breaks_the_run(monkeypatch: pytest.MonkeyPatch,
                                                    capsys: pytest.CaptureFixture) -> None:
    """To the run it is the same whether the service says nothing or the controller shows nothing."""
    call = Server.call

    def forgetful(self: Server, verb: str, *arguments: Any) -> Any:
        return None if verb.startswith("fail-") else call(self, verb, *arguments)

    monkeypatch.setattr(Server, "call", forgetful)
    assert run(300) == 1
    assert "The events are not those that the changes make:\nmissing (1)" in capsys.readouterr().out


def test_change_that_the_run_does_not_know_of_breaks_it(monkeypatch: pytest.MonkeyPatch,
                                                        capsys: pytest.CaptureFixture) -> None:
    """It makes an event too many, or, when it fell into a lost log-in, hides the one that was to come."""
    call = Server.call

    def meddling(self: Server, verb: str, *arguments: Any) -> Any:
        if verb == "release":
            call(self, "fail-drive", MEGA, 3)
        return call(self, verb, *arguments)

    monkeypatch.setattr(Server, "call", meddling)
    assert run(300) == 1
    told = capsys.readouterr().out.split("The events are not those that the changes make:\n", 1)[1]
    assert told.startswith((f"too much (1): {HDD.disk.failed.line}\n", f"missing (1): {HDD.disk.failed.line}\n"))


def test_error_that_no_fault_explains_breaks_the_run(monkeypatch: pytest.MonkeyPatch,
                                                     capsys: pytest.CaptureFixture) -> None:
    def fails_unasked(self: MediumErrors) -> Iterator[None]:
        self._tools.ssacli.fail(1)
        while True:
            yield

    monkeypatch.setattr(MediumErrors, "_tell", fails_unasked)
    assert run(300) == 1
    assert "An error that nothing can have caused: <VK0902> [ER] log-manager 118 " in capsys.readouterr().out


def test_error_of_a_tool_that_was_told_to_fail_is_none(monkeypatch: pytest.MonkeyPatch,
                                                       capsys: pytest.CaptureFixture) -> None:
    def fails_when_told(self: MediumErrors) -> Iterator[None]:
        self._rng.choice = lambda _: "ssacli fails"
        while True:
            yield from self._trouble()

    monkeypatch.setattr(MediumErrors, "_tell", fails_when_told)
    assert run(90) == 0
    assert re.search(r"^other error lines.*1 <VK0902> \[ER\] log-manager 118 ", capsys.readouterr().out, re.MULTILINE)


def test_log_ins_that_are_lost_again_and_again_break_the_run(monkeypatch: pytest.MonkeyPatch,
                                                             capsys: pytest.CaptureFixture) -> None:
    call = Server.call

    def overloaded(self: Server, verb: str, *arguments: Any) -> Any:
        if verb == "release":
            call(self, "status", "GET */ArrayControllers/0", 500, 1)
        return call(self, verb, *arguments)

    monkeypatch.setattr(Server, "call", overloaded)
    assert run(60) == 1
    assert re.search(r"\n\S*BROKEN .*\d+ log-ins were lost by themselves; 3 may be\.", capsys.readouterr().out)


def test_growing_memory_breaks_the_run(monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture) -> None:
    monkeypatch.setattr("soakvitals.GROWTH_KIB", 0)
    assert run(20) == 1
    assert "Memory has grown" in capsys.readouterr().out


def test_no_more_archives_than_allowed(tmp_path: Path) -> None:
    class Host:
        log_dir = tmp_path

    class Watched:
        host = Host()

    class Told:
        @staticmethod
        def violation(text: str) -> Violation:
            return Violation(text)

    vitals = Vitals(Watched(), Told(), 0)  # type: ignore[arg-type]
    for number in range(12):
        vitals.look_at_files()
        (tmp_path / f"serial_log_20261121_0000{number:02}.zip").touch()
    with pytest.raises(Violation, match="There are 12 archives; 11 are allowed"):
        vitals.look_at_files()
