"""The stand-ins for ssacli and storcli64: what they print and write, how they misbehave, and what directs them."""

from __future__ import annotations

import json
import os
import signal
import subprocess
import sys
import threading
import time
import zipfile
from pathlib import Path
from typing import Any, Iterator, List

import pytest
from sim_rest import SIM, ControllerProcess
from simcontroller.errors import UseError
from simtools import storcli
from simtools.store import Store, seconds_up
from simtools.tools import Tools

DIAG = ("ctrl", "all", "diag", "file=ADUReport.zip")
# What must come through as it stands: format characters, shell characters, control characters, no valid UTF-8.
HOSTILE = "%s%n$(touch x)`id`;\x01\x1b[31m\udcff"


class Bench:
    """Tools, and a folder in which their stand-ins are run."""

    def __init__(self, folder: Path) -> None:
        self.tools = Tools.create(folder / "tools")
        self.folder = folder / "run"
        self.folder.mkdir()
        self.started: List["subprocess.Popen[bytes]"] = []

    def start(self, tool: str, *arguments: str) -> "subprocess.Popen[bytes]":
        self.started.append(subprocess.Popen(
            [str(SIM / "bin" / tool), *arguments], cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, env={**os.environ, "BAYWARD_SIM_TOOLS": self.tools.folder}))
        return self.started[-1]

    def run(self, tool: str, *arguments: str) -> "subprocess.CompletedProcess[str]":
        process = self.start(tool, *arguments)
        out, err = process.communicate(timeout=20)
        return subprocess.CompletedProcess(arguments, process.returncode, out.decode("utf-8", "surrogateescape"),
                                           err.decode("utf-8", "surrogateescape"))

    def storcli(self, line: str) -> "subprocess.CompletedProcess[str]":
        return self.run("storcli64", *line.split())

    def report(self) -> str:
        """The report in the archive that ssacli writes now."""
        (self.folder / "ADUReport.zip").unlink(missing_ok=True)
        assert self.run("ssacli", *DIAG).returncode == 0
        return self.unpacked()

    def unpacked(self, name: str = "ADUReport.txt") -> str:
        with zipfile.ZipFile(self.folder / "ADUReport.zip") as archive:
            assert archive.testzip() is None
            return archive.read(name).decode("utf-8", "surrogateescape")


@pytest.fixture
def bench(tmp_path: Path) -> Iterator[Bench]:
    made = Bench(tmp_path)
    yield made
    for process in made.started:
        process.kill()
        process.communicate()


@pytest.fixture
def smart(bench: Bench) -> Bench:
    """Two Smart Array controllers with two drives each."""
    for slot in (0, 3):
        number = bench.tools.add_smart_array(slot=slot)
        bench.tools.add_drive(number, serial=f"TESTSN{slot}001")
        bench.tools.add_drive(number, serial=f"TESTSN{slot}002", kind="SSD", bus="SATA", capacity="480 GB")
    return bench


@pytest.fixture
def mega(bench: Bench) -> Bench:
    """One MegaRAID controller with two drives."""
    bench.tools.add_mega_raid(slot=14)
    bench.tools.add_drive(1)
    bench.tools.add_drive(1)
    return bench


def rows(text: str, header: str) -> List[List[str]]:
    """The rows of the table under the header line that begins so, split at blanks."""
    lines = text.splitlines()
    begin = next(number for number, line in enumerate(lines) if line.startswith(header))
    assert set(lines[begin - 1]) == {"-"} and lines[begin + 1] == lines[begin - 1]
    end = lines.index(lines[begin - 1], begin + 2)
    return [line.split() for line in lines[begin + 2:end]]


class TestArchive:
    def test_archive_holds_the_report_and_what_stands_beside_it(self, smart: Bench) -> None:
        answer = smart.run("ssacli", *DIAG)
        assert (answer.returncode, answer.stdout, answer.stderr) == (0, "\nGenerating diagnostic report...done\n\n", "")
        with zipfile.ZipFile(smart.folder / "ADUReport.zip") as archive:
            assert sorted(archive.namelist()) == ["ADUReport.htm", "ADUReport.txt", "ADUReport.xml"]
        assert os.listdir(smart.folder) == ["ADUReport.zip"]

    def test_logs_are_added_and_the_path_is_taken_as_given(self, smart: Bench, tmp_path: Path) -> None:
        place = tmp_path / "serial_log_20260102_030405.zip"
        assert smart.run("ssacli", "ctrl", "all", "diag", "logs=on", f"file={place}").returncode == 0
        with zipfile.ZipFile(place) as archive:
            assert {"serial_output_1.txt", "serial_output_2.txt", "ADUReport.txt"} < set(archive.namelist())
        assert os.listdir(smart.folder) == []

    def test_earlier_archive_is_replaced(self, smart: Bench) -> None:
        (smart.folder / "ADUReport.zip").write_bytes(b"old" * 10000)
        assert smart.run("ssacli", *DIAG).returncode == 0
        assert smart.unpacked().startswith("ADU Version")

    def test_unzip_unpacks_it(self, smart: Bench) -> None:
        smart.report()
        done = subprocess.run(["unzip", "-o", "ADUReport.zip", "-d", "ADUReport"], cwd=smart.folder, check=False,
                              capture_output=True)
        assert done.returncode == 0 and (smart.folder / "ADUReport/ADUReport.txt").exists()

    @pytest.mark.parametrize("words", [
        (), ("ctrl", "all", "show"), ("ctrl", "all", "diag"), ("ctrl", "all", "diag", "file="),
        ("ctrl", "slot=0", "diag", "file=x.zip"), ("ctrl", "all", "diag", "file=x.zip", "zip=off")])
    def test_other_arguments_are_refused(self, smart: Bench, words: Any) -> None:
        answer = smart.run("ssacli", *words)
        assert answer.returncode == 1 and "is not a valid command" in answer.stdout
        assert os.listdir(smart.folder) == []

    def test_folder_that_is_missing_is_told(self, smart: Bench) -> None:
        answer = smart.run("ssacli", "ctrl", "all", "diag", "file=/none/x.zip")
        assert answer.returncode == 1 and "/none/x.zip" in answer.stdout and "Traceback" not in answer.stderr

    def test_no_controller_means_no_archive(self, bench: Bench) -> None:
        answer = bench.run("ssacli", *DIAG)
        assert answer.returncode == 1 and "No controllers detected" in answer.stdout
        assert os.listdir(bench.folder) == []


class TestReport:
    def test_every_drive_has_its_own_headings_with_other_structures_between(self, smart: Bench) -> None:
        headings = [line for line in smart.report().splitlines() if " : Physical Drive (" in line]
        assert len(headings) == 4 * 6
        assert headings[0] == ("HPE Smart Array P408i-a SR Gen10 in slot 0 : Internal Drive Cage at Port 1I : Box 1 : "
                               "Physical Drive (1.2 TB SAS HDD) 1I:1:1 : Physical Drive Status")
        assert headings[3].endswith("(1.2 TB SAS HDD) 1I:1:1 : Serial SCSI Physical Drive Error Log")
        assert headings[6].endswith("Physical Drive (480 GB SATA SSD) 1I:1:2 : Physical Drive Status")
        assert headings[12].startswith("HPE Smart Array P408i-a SR Gen10 in slot 3 : ")

    def test_status_has_the_values_of_the_drive(self, smart: Bench) -> None:
        smart.tools.set_drive(2, 1, "box", "7")
        part = smart.report().split("in slot 3 : Internal")[1].split("\n\n")[0]
        values = {line[:40].strip(): line[40:].strip() for line in part.splitlines()[1:]}
        assert values["Drive Serial Number"] == "TESTSN3001"
        assert (values["Physical Port"], values["Physical Box"], values["Physical Bay"]) == ("1I", "7", "1")

    def test_entries_are_rows_and_the_last_line_is_none(self, smart: Bench) -> None:
        smart.tools.set_drive(1, 1, "other_times", [5])
        smart.tools.medium_errors(1, 1, times=[0x1000, 0x1001])
        log = smart.report().split("1I:1:1 : Serial SCSI Physical Drive Error Log\n")[1].split(" : Mode Sense")[0]
        entries = [line.split() for line in log.splitlines() if line.strip().startswith("0x")]
        assert [len(entry) for entry in entries] == [11, 11, 11]
        assert [(entry[4], entry[9]) for entry in entries] == [
            ("0x0b", "0x00000005"), ("0x03", "0x00001000"), ("0x03", "0x00001001")]
        assert "   Errors Logged                        3\n" in log
        assert "Sense Key" in log and log.count("   Reference Time  ") == 2

    def test_grouped_report_has_one_heading_per_controller_and_entries_line_by_line(self, smart: Bench) -> None:
        smart.tools.layout("grouped")
        smart.tools.medium_errors(2, 2, times=[0xABC])
        report = smart.report()
        assert report.count(" : Physical Drive Status\n") == 2
        assert report.count(": Serial SCSI Physical Drive Error Log\n") == 2
        assert report.count("   Physical Drive (480 GB SATA SSD) 1I:1:2 :\n") == 4
        assert "      Sense Key                            0x03\n" in report
        assert "      Reference Time                       0x00000abc\n" in report

    @pytest.mark.parametrize("line_ends, end", [("lf", "\n"), ("crlf", "\r\n")])
    def test_line_ends(self, smart: Bench, line_ends: str, end: str) -> None:
        smart.tools.layout("drives", line_ends=line_ends)
        report = smart.report()
        assert report.count("\n") == report.count(end) > 100 and (end == "\r\n") == ("\r" in report)

    def test_number_of_errors_is_spread_over_the_minutes(self, smart: Bench) -> None:
        smart.tools.medium_errors(1, 1, 19, 180)
        times = [int(line.split()[9], 16) for line in smart.report().splitlines() if line.strip().startswith("0x01 ")]
        assert len(times) == 19 and times[-1] - times[0] == 180 and times == sorted(times)

    def test_changes_are_in_the_next_report(self, smart: Bench) -> None:
        smart.tools.medium_errors(1, 1, 3)
        assert "Errors Logged                        3" in smart.report()
        smart.tools.medium_errors(1, 1, 0)
        assert "Errors Logged                        3" not in smart.report()
        smart.tools.set_drive(1, 1, "absent", True)
        assert "TESTSN0001" not in smart.report()
        smart.tools.set_controller(1, "absent", True)
        assert "in slot 0" not in smart.report()

    def test_drive_without_a_kind_has_no_bracket_and_other_kinds_stand_there(self, smart: Bench) -> None:
        smart.tools.set_drive(1, 1, "kind", "")
        smart.tools.set_drive(1, 2, "kind", "Tape")
        report = smart.report()
        assert " : Physical Drive 1I:1:1 : Physical Drive Status" in report
        assert " : Physical Drive (480 GB SATA Tape) 1I:1:2 : Physical Drive Status" in report

    def test_hostile_texts_stand_there_as_they_are(self, smart: Bench) -> None:
        smart.tools.set_drive(1, 1, "serial", HOSTILE)
        assert HOSTILE in smart.report()


class TestListings:
    def test_overview_squeezes_the_model_and_counts_from_0(self, mega: Bench) -> None:
        mega.tools.add_mega_raid(model="Second one")
        answer = mega.storcli("show")
        assert answer.returncode == 0
        assert answer.stdout.startswith("CLI Version = 007.") and "Number of Controllers = 2\n" in answer.stdout
        assert [row[:2] for row in rows(answer.stdout, "Ctl Model")] == [["0", "HPEMR416i-oGen11"], ["1", "Secondone"]]
        assert "  0 HPEMR416i-oGen11 " in answer.stdout

    def test_overview_without_controllers_has_no_table(self, bench: Bench) -> None:
        answer = bench.storcli("show")
        assert answer.returncode == 0 and "Number of Controllers = 0\n" in answer.stdout
        assert "Ctl Model" not in answer.stdout

    def test_controller_listing_has_the_topology_before_the_drives(self, mega: Bench) -> None:
        text = mega.storcli("/c0 show").stdout
        assert text.startswith("Generating detailed summary of the adapter, it may take a while to complete.\n\nCLI ")
        assert "\nProduct Name = HPE MR416i-o Gen11\n" in text and "\nPCI Slot Number = 14\n" in text
        assert text.index("DG Arr Row EID:Slot DID") < text.index("\nEID:Slt DID ")
        assert [row[:2] for row in rows(text, "EID:Slt DID")] == [["252:1", "10"], ["252:2", "11"]]
        assert [line for line in text.splitlines() if line.startswith("252:1 ")][0].endswith(" ")

    def test_slot_that_is_not_known_has_no_line(self, mega: Bench) -> None:
        mega.tools.set_controller(1, "slot", None)
        assert "PCI Slot Number" not in mega.storcli("/c0 show").stdout

    def test_drive_without_enclosure(self, mega: Bench) -> None:
        mega.tools.set_drive(1, 2, "enclosure", None)
        assert "\n :2 " in mega.storcli("/c0 show").stdout
        assert "Drive /c0/s2 :\n============\n" in mega.storcli("/c0/s2 show all").stdout
        assert mega.storcli("/c0/e252/s2 show all").returncode == 1

    def test_drive_listing_tells_its_place_and_the_trap_beside_it(self, mega: Bench) -> None:
        text = mega.storcli("/c0/e252/s1 show all").stdout
        for line in ("Port Number = 1", "Box = 1", "Connected Port Number = 3(path0) "):
            assert f"\n{line}\n" in text
        mega.tools.set_drive(1, 1, "port", None)
        assert "\nPort Number = " not in mega.storcli("/c0/e252/s1 show all").stdout

    def test_failed_drive_makes_the_status_and_the_listing_is_complete(self, mega: Bench) -> None:
        mega.tools.set_drive(1, 2, "state", "Failed")
        for line in ("/c0 show", "/c0/e252/s2 show all"):
            answer = mega.storcli(line)
            assert answer.returncode == storcli.FAILED_DRIVE_STATUS == 46
            assert "Status = Failure\nDescription = Show Drive Information Failed.\n" in answer.stdout
            assert ["252:2", "11", "Failed"] in [row[:3] for row in rows(answer.stdout, "EID:Slt DID")]
        assert mega.storcli("/c0/e252/s1 show all").returncode == 0
        assert mega.storcli("show").returncode == 0

    @pytest.mark.parametrize("line, description", [
        ("", "syntax error"), ("show all nonsense", "syntax error"), ("/c0 shows", "syntax error"),
        ("/c0", "syntax error"),
        ("/c7 show", "Controller 7 not found"), ("/c7 show events", "Controller 7 not found"),
        ("/c0/e252/s9 show all", "No drive found!"), ("/c0/e252/s1 show", "syntax error")])
    def test_what_is_not_there_is_a_failure(self, mega: Bench, line: str, description: str) -> None:
        answer = mega.storcli(line)
        assert answer.returncode == 1 and answer.stderr == ""
        assert "Status = Failure\n" in answer.stdout and f"Description = {description}" in answer.stdout

    def test_own_log_is_left_where_it_ran(self, mega: Bench) -> None:
        mega.storcli("show")
        assert (mega.folder / "storcli.log").exists()


class TestEventLog:
    def test_records_are_oldest_first_and_end_in_what_the_tool_says_of_itself(self, mega: Bench) -> None:
        mega.tools.medium_errors(1, 1, times=[1000000000, 1300000000])
        mega.tools.medium_errors(1, 2, times=[1100000000])
        text = mega.storcli("/c0 show events").stdout
        records = text.split("\n\nseqNum: ")[1:]
        assert [record.split("\n")[0] for record in records] == ["0x00011042", "0x00011043", "0x00011044", "0x00011045"]
        assert "Device ID: 11\nEnclosure Index: 252\nSlot Number: 2" in records[2]
        assert text.count("corrected medium error on PD 0a(e0xfc/s1) at") == 2
        assert "Slot Number: 1\nCLI Version = " in records[3]

    def test_times_are_in_asctime_form_whatever_the_locale(self) -> None:
        moment = int(time.mktime((2026, 10, 2, 5, 41, 3, 0, 0, -1)))
        assert storcli.clock_text(moment) == "Fri Oct  2 05:41:03 2026"
        assert time.strptime(storcli.clock_text(moment))[:6] == (2026, 10, 2, 5, 41, 3)

    def test_record_before_the_clock_was_set_has_no_time(self, mega: Bench) -> None:
        mega.tools.medium_errors(1, 1, times=[None])
        record = mega.storcli("/c0 show events").stdout.split("seqNum: ")[2]
        assert "Time: " not in record and "Seconds since last reboot: 46\n" in record and "corrected medium" in record

    @pytest.mark.parametrize("found_by, text", [
        ("patrol", "Patrol Read corrected medium error on PD 1a(e0xff/s1) at"),
        ("recovery", "Corrected medium error during recovery on PD 1a(e0xff/s1) at"),
        ("consistency", "Consistency Check corrected medium error (VD 00/0 at 5e11fa31, PD 1a(e0xff/s1) at"),
        ("background", "Background Initialization corrected medium error (VD 00/0 at 174442, PD 1a(e0xff/s1) at")])
    def test_words_and_number_bases_of_a_record(self, mega: Bench, found_by: str, text: str) -> None:
        for member, value in (("found_by", found_by), ("did", 26), ("enclosure", None)):
            mega.tools.set_drive(1, 1, member, value)
        mega.tools.medium_errors(1, 1, times=[1000000000])
        assert f"\nEvent Description: {text} " in mega.storcli("/c0 show events").stdout

    def test_other_errors_are_no_medium_errors(self, mega: Bench) -> None:
        mega.tools.set_drive(1, 1, "other_times", [1000000000])
        text = mega.storcli("/c0 show events").stdout
        assert "Unexpected sense: PD 0a(e0xfc/s1)" in text and "medium error" not in text

    def test_number_of_errors_lies_in_the_minutes_before_now(self, mega: Bench) -> None:
        mega.tools.medium_errors(1, 1, 20, 60)
        times = [line[6:] for line in mega.storcli("/c0 show events").stdout.splitlines() if line.startswith("Time: ")]
        seconds = [time.mktime(time.strptime(text)) for text in times]
        assert len(seconds) == 20 and seconds[-1] - seconds[0] == 3600 and abs(seconds[-1] - time.time()) < 10


class TestFaults:
    def test_fail_prints_an_error_and_does_nothing(self, smart: Bench) -> None:
        smart.tools.ssacli.fail(7)
        answer = smart.run("ssacli", *DIAG)
        assert answer.returncode == 7 and answer.stdout.startswith("\nError: ")
        assert os.listdir(smart.folder) == []

    def test_fault_holds_for_matching_commands_and_so_many_times(self, mega: Bench) -> None:
        mega.tools.storcli64.fail(3, "/c0 show events", times=2)
        found = [mega.storcli(line).returncode for line in ("show", *["/c0 show events"] * 3, "/c0 show")]
        assert found == [0, 3, 3, 0, 0]

    def test_last_fault_of_a_kind_holds_and_clear_forgets_one_tool(self, bench: Bench) -> None:
        bench.tools.storcli64.fail(3)
        bench.tools.storcli64.fail(4)
        bench.tools.ssacli.fail(5)
        assert bench.storcli("show").returncode == 4
        bench.tools.storcli64.clear()
        assert bench.storcli("show").returncode == 0
        assert bench.run("ssacli", *DIAG).returncode == 5

    def test_hanging_tool_ends_when_it_is_killed(self, mega: Bench) -> None:
        mega.tools.storcli64.hang()
        process = mega.start("storcli64", "show")
        limit = time.monotonic() + 10
        while not mega.tools.commands() and time.monotonic() < limit:
            time.sleep(0.01)
        with pytest.raises(subprocess.TimeoutExpired):
            process.wait(0.5)
        process.terminate()
        assert process.wait(5) == -signal.SIGTERM
        assert process.communicate()[0] == b""

    def test_takes_so_long(self, mega: Bench) -> None:
        mega.tools.storcli64.takes(0.6)
        begin = time.monotonic()
        assert mega.storcli("show").returncode == 0
        assert 0.6 <= time.monotonic() - begin < 5

    def test_cut_listing_and_empty_listing(self, mega: Bench) -> None:
        whole = mega.storcli("/c0 show").stdout
        mega.tools.storcli64.cut(100)
        assert mega.storcli("/c0 show").stdout == whole[:100]
        mega.tools.storcli64.cut()
        answer = mega.storcli("/c0 show")
        assert (answer.returncode, answer.stdout) == (0, "")

    def test_cut_report_is_in_a_good_archive(self, smart: Bench) -> None:
        whole = smart.report()
        smart.tools.ssacli.cut(2000)
        assert smart.report()[200:] == whole[200:2000]  # the head tells the time
        smart.tools.ssacli.cut(0)
        assert smart.report() == ""

    def test_cut_archive_cannot_be_unpacked(self, smart: Bench) -> None:
        smart.tools.ssacli.archive("cut")
        assert smart.run("ssacli", *DIAG).returncode == 0
        assert (smart.folder / "ADUReport.zip").stat().st_size > 100
        assert not zipfile.is_zipfile(smart.folder / "ADUReport.zip")

    def test_empty_archive_and_none(self, smart: Bench) -> None:
        smart.tools.ssacli.archive("empty")
        assert smart.run("ssacli", *DIAG).returncode == 0
        assert (smart.folder / "ADUReport.zip").stat().st_size == 0
        (smart.folder / "ADUReport.zip").unlink()
        smart.tools.ssacli.archive("none")
        assert smart.run("ssacli", *DIAG).returncode == 0
        assert os.listdir(smart.folder) == []

    def test_late_archive_comes_after_the_end_of_the_tool(self, smart: Bench) -> None:
        smart.tools.ssacli.late(1)
        assert smart.run("ssacli", *DIAG).returncode == 0
        assert not (smart.folder / "ADUReport.zip").exists()
        limit = time.monotonic() + 10
        while not zipfile.is_zipfile(smart.folder / "ADUReport.zip") and time.monotonic() < limit:
            time.sleep(0.05)
        assert smart.unpacked().startswith("ADU Version")

    def test_quiet_tools_find_no_controller(self, smart: Bench) -> None:
        smart.tools.add_mega_raid()
        smart.tools.ssacli.quiet()
        smart.tools.storcli64.quiet()
        assert smart.run("ssacli", *DIAG).returncode == 1
        assert "Number of Controllers = 0\n" in smart.storcli("show").stdout
        assert smart.storcli("/c0 show").returncode == 1

    def test_given_answer_is_told_byte_for_byte(self, bench: Bench) -> None:
        bench.tools.storcli64.answer(HOSTILE, status=9, commands="/c0 show")
        answer = bench.storcli("/c0 show")
        assert (answer.returncode, answer.stdout) == (9, HOSTILE)
        bench.tools.storcli64.answer(b"\0\xff\n", commands="show")
        assert bench.storcli("show").stdout.encode("utf-8", "surrogateescape") == b"\0\xff\n"
        bench.tools.ssacli.answer(HOSTILE)
        assert bench.report() == HOSTILE

    def test_reader_that_is_gone_is_no_trace_back(self, mega: Bench) -> None:
        mega.tools.storcli64.answer("x" * 10**6)
        process = mega.start("storcli64", "show")
        assert process.stdout is not None and process.stderr is not None
        process.stdout.close()
        assert process.stderr.read() == b"" and process.wait(10) == 1


class TestLog:
    def test_command_lines_stand_there_in_order_with_folder_and_time(self, bench: Bench) -> None:
        before = seconds_up()
        bench.storcli("show")
        bench.run("ssacli", "ctrl", "all", "diag", "file=a b\n\udcff.zip")
        first, second = bench.tools.commands()
        assert first.line == "storcli64 show" and first.folder == str(bench.folder)
        assert before <= first.at <= second.at <= seconds_up() and first.pid != second.pid
        assert second.arguments == ["ctrl", "all", "diag", "file=a b\n\udcff.zip"]
        assert [command.tool for command in bench.tools.commands("ssacli")] == ["ssacli"]
        bench.tools.forget_commands()
        assert bench.tools.commands() == []

    def test_hanging_and_failing_commands_are_noted_too(self, bench: Bench) -> None:
        bench.tools.storcli64.fail(1)
        bench.storcli("/c0/e252/s1 show all")
        assert [command.line for command in bench.tools.commands()] == ["storcli64 /c0/e252/s1 show all"]


class TestState:
    @pytest.mark.parametrize("change, words", [
        (lambda tools: tools.set_drive(1, 9, "serial", "x"), ["no drive 9", "drives 1 to 2"]),
        (lambda tools: tools.set_drive(9, 1, "serial", "x"), ["no controller 9", "they see 1."]),
        (lambda tools: tools.set_drive(1, 1, "colour", "red"), ["no 'colour'", "serial"]),
        (lambda tools: tools.set_drive(1, 1, "did", "ten"), ["did", "whole number", "'ten'"]),
        (lambda tools: tools.set_drive(1, 1, "found_by", "luck"), ["found_by", "patrol"]),
        (lambda tools: tools.set_drive(1, 1, "times", [1.5]), ["times", "list of whole numbers"]),
        (lambda tools: tools.set_drive(1, 1, "times", [True]), ["times", "list of whole numbers"]),
        (lambda tools: tools.set_drive(1, 1, "times", [-1]), ["times", "list of whole numbers"]),
        (lambda tools: tools.set_drive(1, 1, "other_times", [None]), ["other_times", "list of whole numbers, not"]),
        (lambda tools: tools.set_drive(1, 1, "absent", "yes"), ["absent", "true or false"]),
        (lambda tools: tools.set_controller(1, "absent", "no"), ["absent", "true or false", "'no'"]),
        (lambda tools: tools.set_controller(1, "colour", "red"), ["no 'colour'"]),
        (lambda tools: tools.add_mega_raid(number=1), ["controller 1 already"]),
        (lambda tools: tools.layout("sideways"), ["'sideways'", "grouped"]),
        (lambda tools: tools.tool("lspci"), ["'lspci'", "ssacli"]),
        (lambda tools: tools.ssacli.archive("torn"), ["'torn'", "cut"]),
        (lambda tools: tools.storcli64.archive("cut"), ["storcli64 writes no archive"])])
    def test_wrong_use_is_one_sentence_and_changes_nothing(self, mega: Bench, change: Any, words: List[str]) -> None:
        before = Store(mega.tools.folder).read()
        with pytest.raises(UseError) as error:
            change(mega.tools)
        assert "\n" not in str(error.value)
        for word in words:
            assert word in str(error.value)
        assert Store(mega.tools.folder).read() == before

    def test_smart_array_logs_no_error_without_a_time(self, smart: Bench) -> None:
        for member in ("times", "other_times"):
            with pytest.raises(UseError, match=f"{member} of a drive is a list of whole numbers, not"):
                smart.tools.set_drive(1, 1, member, [5, None])

    def test_changes_from_many_sides_are_all_there(self, mega: Bench) -> None:
        def add() -> None:
            for _ in range(25):
                Tools(mega.tools.folder).add_drive(1)

        threads = [threading.Thread(target=add) for _ in range(4)]
        for thread in threads:
            thread.start()
        for _ in range(5):
            assert mega.storcli("show").returncode == 0  # never half a state
        for thread in threads:
            thread.join()
        assert "Physical Drives = 102\n" in mega.storcli("/c0 show").stdout

    def test_missing_folder_is_told_in_one_sentence(self, bench: Bench, tmp_path: Path) -> None:
        for folder in ("", str(tmp_path / "none")):
            done = subprocess.run([str(SIM / "bin/storcli64"), "show"], capture_output=True, text=True, check=False,
                                  env={**os.environ, "BAYWARD_SIM_TOOLS": folder})
            assert (done.returncode, done.stdout) == (1, "")
            assert done.stderr.count("\n") == 1 and "BAYWARD_SIM_TOOLS" in done.stderr

    def test_wrapper_runs_the_stand_in_with_this_folder(self, mega: Bench, tmp_path: Path) -> None:
        script = tmp_path / "tool"
        script.write_text(mega.tools.wrapper("storcli64"), encoding="utf-8")
        script.chmod(0o755)
        done = subprocess.run([str(script), "/c0", "show"], cwd=tmp_path, capture_output=True, text=True, check=False,
                              env={})
        assert done.returncode == 0 and "Physical Drives = 2\n" in done.stdout
        assert mega.tools.commands()[-1].line == "storcli64 /c0 show"


class TestVerbs:
    @pytest.fixture
    def server(self, start: Any) -> ControllerProcess:
        sim: ControllerProcess = start("--drives", "2", "--mr", "1", "--mr-drives", "2", "--mr10", "1")
        return sim

    @staticmethod
    def run(sim: ControllerProcess, folder: Path, tool: str, *words: str) -> "subprocess.CompletedProcess[str]":
        return subprocess.run([str(SIM / "bin" / tool), *words], cwd=folder, capture_output=True, text=True, check=False,
                              env={**os.environ, "BAYWARD_SIM_TOOLS": sim.tools.folder})

    def test_tools_find_what_the_server_has(self, server: ControllerProcess, tmp_path: Path) -> None:
        assert self.run(server, tmp_path, "ssacli", *DIAG).returncode == 0
        with zipfile.ZipFile(tmp_path / "ADUReport.zip") as archive:
            report = archive.read("ADUReport.txt").decode()
        assert "HPE Smart Array P408i-a SR Gen10 in slot 0 : " in report
        assert "Physical Drive (960 GB SATA SSD) 1I:1:1" in report
        assert "SIMSA00D0001" in report and "SIMMR" not in report
        listing = self.run(server, tmp_path, "storcli64", "/c0", "show").stdout
        assert "Product Name = HPE MR416i-o Gen11\n" in listing and "PCI Slot Number = 14\n" in listing
        assert "SIMMR00D0001" in self.run(server, tmp_path, "storcli64", "/c0/e252/s2", "show", "all").stdout
        assert "Product Name = HPE MR416i-p Gen10+\n" in self.run(server, tmp_path, "storcli64", "/c1", "show").stdout
        place = self.run(server, tmp_path, "storcli64", "/c1/e252/s1", "show", "all").stdout
        assert "\nPort Number = 1I\nBox = 1\nBay = 1\n" in place

    def test_medium_errors_of_either_kind(self, server: ControllerProcess, tmp_path: Path) -> None:
        server.control.call("medium-errors", 1, 2, 20)
        server.control.call("medium-errors", 2, 1, 3, 10)
        self.run(server, tmp_path, "ssacli", *DIAG)
        with zipfile.ZipFile(tmp_path / "ADUReport.zip") as archive:
            assert b"Errors Logged                        20\n" in archive.read("ADUReport.txt")
        events = self.run(server, tmp_path, "storcli64", "/c0", "show", "events").stdout
        assert events.count("corrected medium error on PD 0a(e0xfc/s1)") == 3

    def test_every_verb_reaches_its_fault(self, server: ControllerProcess, tmp_path: Path) -> None:
        call, run = server.control.call, self.run
        call("tool-fail", "storcli64", 5, "show", 1)
        assert [run(server, tmp_path, "storcli64", "show").returncode for _ in range(2)] == [5, 0]
        call("tool-cut", "storcli64", 3)
        assert run(server, tmp_path, "storcli64", "show").stdout == "CLI"
        call("tool-clear", "storcli64")
        call("tool-quiet", "storcli64", "show")
        assert "Number of Controllers = 0" in run(server, tmp_path, "storcli64", "show").stdout
        call("tool-answer", "storcli64", "hello", 2, "/c0*")
        answer = run(server, tmp_path, "storcli64", "/c0", "show")
        assert (answer.returncode, answer.stdout) == (2, "hello")
        call("tool-takes", "storcli64", 0.4)
        begin = time.monotonic()
        run(server, tmp_path, "storcli64", "show")
        assert time.monotonic() - begin >= 0.4
        call("tool-clear")
        call("tool-archive", "none")
        assert run(server, tmp_path, "ssacli", *DIAG).returncode == 0 and not (tmp_path / "ADUReport.zip").exists()
        call("tool-clear", "ssacli")
        call("tool-late", 0.5)
        assert run(server, tmp_path, "ssacli", *DIAG).returncode == 0 and not (tmp_path / "ADUReport.zip").exists()
        call("tool-hang", "ssacli")
        with pytest.raises(subprocess.TimeoutExpired):
            subprocess.run([str(SIM / "bin/ssacli"), *DIAG], timeout=1, check=False, cwd=tmp_path,
                           env={**os.environ, "BAYWARD_SIM_TOOLS": server.tools.folder})
        lines = call("tool-commands")
        assert lines[0] == "storcli64 show" and lines[-1] == "ssacli ctrl all diag file=ADUReport.zip"
        assert set(call("tool-commands", "ssacli")) == {"ssacli ctrl all diag file=ADUReport.zip"}

    def test_members_and_layout(self, server: ControllerProcess, tmp_path: Path) -> None:
        server.control.call("tool-drive", 1, 1, "serial", "%s%n$(id)\n\t\x7f")
        server.control.call("tool-controller", 1, "model", "Renamed")
        server.control.call("tool-layout", "grouped", "table", "crlf")
        self.run(server, tmp_path, "ssacli", *DIAG)
        with zipfile.ZipFile(tmp_path / "ADUReport.zip") as archive:
            report = archive.read("ADUReport.txt")
        assert b"%s%n$(id)\n\t\x7f" in report and b"\r\nRenamed in slot 0 : Physical Drive Status\r\n" in report

    @pytest.mark.parametrize("words, told", [
        (("medium-errors", 1, 9, 3), "no drive 9"), (("medium-errors", 9, 1, 3), "no controller 9"),
        (("medium-errors", 1, 1, "some"), "COUNT"), (("tool-fail", "lspci", 1), "'lspci'"),
        (("tool-fail", "ssacli", 0), "STATUS"), (("tool-fail", "ssacli"), "tool-fail ssacli|storcli64 STATUS"),
        (("tool-takes", "ssacli", "forever"), "SECONDS"), (("tool-archive", "torn"), "'torn'"),
        (("tool-drive", 1, 1, "did", 3), "no 'did'"), (("tool-layout", "upright"), "'upright'"),
        (("tool-clear", "all"), "'all'"), (("tool-hang", "ssacli", "*", "often"), "TIMES")])
    def test_wrong_use(self, server: ControllerProcess, words: Any, told: str) -> None:
        with pytest.raises(UseError) as error:
            server.control.call(*words)
        assert told in str(error.value) and "\n" not in str(error.value)

    def test_simctl_and_its_help(self, server: ControllerProcess) -> None:
        command = [sys.executable, str(SIM / "simctl"), str(server.folder / "control")]
        done = subprocess.run([*command, "tool-commands"], capture_output=True, text=True, check=False)
        assert (done.returncode, json.loads(done.stdout)) == (0, [])
        usage = subprocess.run([*command, "--help"], capture_output=True, text=True, check=False).stdout
        assert "medium-errors C D COUNT [MINUTES]" in usage and "tool-hang ssacli|storcli64 [COMMANDS] [TIMES]" in usage

    def test_server_without_tools_says_so(self, tmp_path: Path) -> None:
        socket, ready = tmp_path / "control", tmp_path / "ready"
        process = subprocess.Popen([sys.executable, str(SIM / "controller.py"), "--control", str(socket), "--ready-file",
                                    str(ready)], stdout=subprocess.DEVNULL)
        try:
            limit = time.monotonic() + 20
            while not ready.exists() and time.monotonic() < limit:
                time.sleep(0.02)
            done = subprocess.run([sys.executable, str(SIM / "simctl"), str(socket), "medium-errors", "1", "1", "3"],
                                  capture_output=True, text=True, check=False)
        finally:
            process.terminate()
            process.wait(10)
        assert (done.returncode, done.stderr) == (2, "simctl: This server has no tools; start it with --tools DIR.\n")
