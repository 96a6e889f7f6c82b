"""What the benchmark of the parsers takes for a result."""

from __future__ import annotations

import os
import sys
from pathlib import Path

import pytest

import parsers
from tool_texts import write_event_log, write_report

BIN = Path(os.environ.get("BAYWARD_BIN", Path(__file__).resolve().parents[2] / "build/release/bin"))
PARSE_TEXTS = BIN.parent / "tests/parse-texts"
REPORT_BYTES = 200_000
EVENTS = 402


@pytest.fixture(autouse=True)
def small(monkeypatch):
    monkeypatch.setattr(parsers, "REPORT_BYTES", REPORT_BYTES)
    monkeypatch.setattr(parsers, "EVENTS", EVENTS)
    monkeypatch.setattr(parsers, "RUNS", 1)


@pytest.fixture(name="errors")
def fixture_errors(tmp_path):
    """How many errors stand in each text."""
    return {"report": write_report(tmp_path / "report.txt", REPORT_BYTES),
            "events": write_event_log(tmp_path / "events.txt", EVENTS)}


@pytest.fixture(name="program")
def fixture_program(tmp_path):
    """program(FOUND, STATUS=0): in the place of parse-texts, a program that tells for each kind of text what it found."""
    def write(found, status=0):
        path = tmp_path / "parse-texts"
        path.write_text(f"#!{sys.executable}\nimport json, sys\n"
                        f"print(json.dumps({{'errors': {found!r}[sys.argv[1]], 'seconds': 1, 'growth_kib': 0}}))\n"
                        f"sys.exit({status})\n", encoding="ascii")
        path.chmod(0o755)
        return path

    return write


def test_the_texts_hold_the_errors_they_are_said_to_hold(errors, tmp_path):
    rows = [line.split() for line in (tmp_path / "report.txt").read_text(encoding="ascii").splitlines()]
    senses = [row[4] for row in rows if row[:2] == ["0x01", "0x28"]]  # the entries of the error logs
    assert 0 < errors["report"] == senses.count("0x03") < len(senses)
    events = (tmp_path / "events.txt").read_text(encoding="ascii")
    assert errors["events"] == events.count("corrected medium error") == 101


def test_the_parsers_find_every_error():
    figures = parsers.measure(PARSE_TEXTS)
    assert [figure.figure for figure in figures if figure.unit == "MB/s"] == [
        "report parser, speed", "report, speed of grep", "event log parser, speed", "event log, speed of grep"]
    assert all(figure.value > 0 for figure in figures if figure.unit == "MB/s")


def test_a_program_that_finds_all_errors_is_measured(program, errors):
    assert len(parsers.measure(program(errors))) == 10


@pytest.mark.parametrize("kind", ["report", "events"])
@pytest.mark.parametrize("wrong", [-1, 1])
def test_a_wrong_number_of_errors_is_no_result(program, errors, kind, wrong):
    there = errors[kind]
    with pytest.raises(RuntimeError, match=f"{kind} has found {there + wrong} errors where there are {there}$"):
        parsers.measure(program({**errors, kind: there + wrong}))


@pytest.mark.parametrize("status", [1, 2])
def test_a_program_that_fails_is_no_result(program, errors, status):
    with pytest.raises(RuntimeError, match=f"ended with status {status}$"):
        parsers.measure(program(errors, status))


def test_the_script_says_what_is_wrong_and_fails(program, errors, monkeypatch, capsys, tmp_path):
    wrong = program({**errors, "events": 0})
    monkeypatch.setattr("parsers.calmest", lambda measure: measure())  # once, on a busy machine too
    monkeypatch.setattr(sys, "argv", ["parsers.py", "--program", str(wrong), "--json", str(tmp_path / "figures.json")])
    assert parsers.main() == 2
    printed = capsys.readouterr()
    assert printed.out == ""
    assert printed.err == f"parsers: {wrong} events has found 0 errors where there are 101\n"
    assert not (tmp_path / "figures.json").exists()
