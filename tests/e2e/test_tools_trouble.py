"""Tools that fail, hang and talk nonsense: nothing is run, nothing breaks, and the next real error is reported."""

import os
import random
import re
import signal
import time
from typing import Any, Callable, Iterator, List

import pytest
from tooled import REPORT, Tooled, mega_errors, smart_errors, wait_until

HOSTILE = "%n%s\x1b[31m\x07"
MEGABYTE = 1 << 20
REPORT_FAILED = ("<VK0902> [ER] log-manager 118 (command: /opt/smartstorageadmin/ssacli/bin/ssacli ctrl all diag "
                 "file=ADUReport.zip)")
HEADING = b"HPE in slot 0 : Box 1 : Physical Drive (1 TB SAS HDD) 1I:1:2 : "
STATUS, ERROR_LOG = HEADING + b"Physical Drive Status\n", HEADING + b"Serial SCSI Physical Drive Error Log\n"
BLOCK = b"\n\nseqNum: 0x1\nTime: Sat Nov 21 10:00:00 2026\nEvent Description: Corrected medium error during recovery on PD "


def tools_fail(tools: Any) -> None:
    tools.ssacli.fail(1)
    tools.storcli64.fail(1, commands="show")


def later_listings_fail(tools: Any) -> None:
    tools.ssacli.archive("none")
    tools.storcli64.fail(255, commands="/c0*")


def tools_say_nothing(tools: Any) -> None:
    tools.ssacli.archive("empty")
    tools.storcli64.cut()


def outputs_are_cut(tools: Any) -> None:
    tools.ssacli.archive("cut")
    tools.storcli64.cut(700)


def texts_are_empty(tools: Any) -> None:
    tools.ssacli.cut()
    tools.storcli64.cut(0, commands="/c0*")


def text_is_cut_in_an_error_log(tools: Any) -> None:
    tools.ssacli.answer(STATUS + ERROR_LOG + b"   Sense Key  0x0")
    tools.storcli64.answer(BLOCK[:-20], commands="*events")


def texts_are_garbage(tools: Any) -> None:
    noise = random.Random(1).randbytes(MEGABYTE)
    tools.ssacli.answer(noise)
    tools.storcli64.answer(noise)


def lines_are_a_megabyte_long(tools: Any) -> None:
    tools.ssacli.answer(STATUS + ERROR_LOG[:-1] + b" " + b"x" * MEGABYTE + b"\n   Drive Serial Number" + b"9" * MEGABYTE)
    tools.storcli64.answer(b"Product Name = " + b"%s" * MEGABYTE + b"\n" + b"-" * MEGABYTE, commands="/c0 show")
    tools.storcli64.answer(BLOCK + b"9" * MEGABYTE + b"\nDevice ID: " + b"9" * MEGABYTE, commands="*events")


def texts_hold_nul_bytes(tools: Any) -> None:
    tools.ssacli.answer(b"\0" * 4096 + STATUS + b"   Drive Serial Number  A\0B\n\0" + HEADING + b"\0\n")
    tools.storcli64.answer(b"\0\n" + BLOCK + b"\0(e\0/s\0)\nDevice ID: \0\n", commands="*events")


def storcli_hangs(tools: Any) -> None:
    tools.ssacli.late(10)
    tools.storcli64.hang(commands="/c0 show", times=1)


@pytest.fixture(scope="module")
def watched() -> Iterator[Tooled]:
    with Tooled() as found:
        found.tools.add_drive(found.tools.add_smart_array())
        found.tools.add_drive(found.tools.add_mega_raid())
        yield found.start()


def assert_clean_lines(watched: Tooled) -> None:
    for text in [*watched.trace(), *(entry.text() for entry in watched.host.syslog_entries())]:
        assert all(" " <= character <= "~" for character in text), text


@pytest.mark.parametrize("trouble", [
    tools_fail, later_listings_fail, tools_say_nothing, outputs_are_cut, texts_are_empty, text_is_cut_in_an_error_log,
    texts_are_garbage, lines_are_a_megabyte_long, texts_hold_nul_bytes, storcli_hangs])
def test_trouble_is_over_with_the_next_search(watched: Tooled, request: pytest.FixtureRequest,
                                              trouble: Callable[[Any], None]) -> None:
    tools = watched.tools
    trouble(tools)
    watched.wait_cycles(1)
    tools.ssacli.clear()
    tools.storcli64.clear()
    # Another drive each, so that there is something new to say.
    number = 100 + len([report for report in watched.trace() if "pid:" in report])
    for controller, member, value in ((1, "serial", f"DRIVE{number}"), (2, "did", number)):
        tools.set_drive(controller, 1, "absent", True)
        tools.set_drive(controller, 1, member, value)
        tools.medium_errors(controller, 1, times=[7])
        tools.set_drive(controller, 1, "absent", False)
    lines = {smart_errors(1, "1I:1:1", f"DRIVE{number}").line, mega_errors(1, number).line}
    wait_until(lambda: lines <= set(watched.trace()), "the new errors", 30, watched.host)


def test_tool_that_is_killed(watched: Tooled) -> None:
    watched.tools.ssacli.takes(1200)
    begun = watched.cycles()
    wait_until(lambda: watched.cycles() > begun, "report", 30, watched.host)
    inner = watched.tools.commands("ssacli")[-1].pid
    killed, = [process.pid for process in watched.host.processes() if process.inner == inner]
    watched.tools.ssacli.clear()
    os.kill(killed, signal.SIGKILL)
    watched.tools.set_drive(1, 1, "serial", "AFTERKILL")
    watched.wait_line(smart_errors(1, "1I:1:1", "AFTERKILL").line)


def test_hostile_texts_are_only_texts(watched: Tooled) -> None:
    """No shell sees them, no format is made of them, and they come into the logs without control characters."""
    # Without a digit or a blank, so that it may stand in a place; a shell would run it in the service's folder.
    command = "$(touch${IFS}executed)`touch${IFS}executed`;touch${IFS}executed;"
    text = command + HOSTILE
    with watched.changing() as tools:
        for controller in (1, 2):
            tools.set_drive(controller, 1, "absent", True)
        array = tools.add_smart_array(f"HPE {text}", text)
        tools.add_drive(array, port=f"1I{command}", box=f"{command}1", bay="1\x1b;%n%s", times=[7] * 19,
                        serial=text, model=text, firmware=text, capacity=text, bus=text)
        mega = tools.add_mega_raid(text, text)
        tools.add_drive(mega, times=[1000] * 20, port=text, box=text, bay=text, serial=text, model=text, firmware=text,
                        capacity=text, bus=text, kind=text, state=text)
        tools.add_drive(mega, slot=";id")  # longer, it would move the heading of the table
    clean = text.replace("\x1b", "?").replace("\x07", "?")
    watched.wait_line(f"Serial Number: {clean} reported.")
    watched.wait_line(f"CTRL({clean} [Slot={clean}]) PD(Port={clean},Box={clean},Bay=1)")
    watched.wait_cycles(1)
    events = [line for line in watched.trace() if "0x80008159" in line]
    assert events[0].startswith(
        f"<VK0345> [EV] 0x80008159 CTRL(HPE {clean} in slot {clean}) PD(1I{command}:{command}1:1?;%n%s)")
    assert len(events) == 2
    entries = [entry.text() for entry in watched.host.syslog_entries()]
    assert len(entries) == 4
    for entry in entries[::2]:
        assert clean in entry
    assert not (watched.host.runtime / "executed").exists()
    assert "storcli64 /c1/e252/s1 show all" in watched.lines()
    assert not any(mark in line for line in watched.lines() for mark in ("touch", "id"))


def test_service_ends_well(watched: Tooled) -> None:
    watched.stop_search()
    assert_clean_lines(watched)
    reports = [line for line in watched.trace() if "[EV]" in line]
    assert len(set(reports)) == len(reports)
    # No trouble was taken for a drive.
    assert [line for line in reports if not re.search(r"DRIVE1\d\d$|AFTERKILL$|pid:10\d?$|executed", line)] == []
    assert [line for line in watched.trace() if "log-manager" in line or "media-error" in line] == [REPORT_FAILED]


def test_tools_that_hang_are_ended_with_all_they_started() -> None:
    """They do not listen to SIGTERM, and what they have started holds on longer than they do."""
    with Tooled(speed=600, only=()) as watched:
        script = ("#!/bin/sh\ntrap '' TERM\n"
                  f"printf '%s\\n' \"$0 $*\" >> {watched.host.work}/run\nsleep 1000000 &\nsleep 1000000\n")
        places = ("/opt/smartstorageadmin/ssacli/bin/ssacli", "/opt/MegaRAID/storcli/storcli64")
        for place in places:
            watched.host.install_tool(place, script)

        def run() -> List[str]:
            file = watched.host.work / "run"
            return [line.split("/")[-1] for line in file.read_text().splitlines()] if file.exists() else []

        def sleepers() -> int:
            return sum(process.name == "sleep" for process in watched.host.processes())

        watched.start()
        begun = time.monotonic()
        wait_until(lambda: run()[2:] == [REPORT], "the second report", 40, watched.host)
        assert time.monotonic() - begun > 3  # its time limit, 30 minutes
        assert run() == [REPORT, "storcli64 show", REPORT]
        wait_until(lambda: sleepers() == 2, "the second report's own", 5, watched.host)
        watched.host.install_tools(watched.tools)
        watched.tools.add_drive(watched.tools.add_smart_array(), times=[7])
        watched.wait_line(smart_errors(1, "1I:1:1", "SIMTOOL1D0000").line)
        assert sleepers() == 0
        assert watched.count_line("log-manager") == watched.count_line(REPORT_FAILED) == 1
        watched.stop_search()
