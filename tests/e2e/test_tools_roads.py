"""The whole of a search: its commands and files, its pace over a week, its end at any moment, and its neighbours."""

import re
import time
from pathlib import Path
from typing import Callable, Dict

import pytest
from tooled import (MEGA_RAID, OVERVIEW, REPORT, SEARCHING, SMART_ARRAY, Tooled, mega_errors, mega_event, smart_errors,
                    smart_event, wait_until)
from watched import mega_disk, slowness, smart_disk

WEEK = 604800
SLOTTED = f"{MEGA_RAID} [Slot=14]"
CYCLE = [
    REPORT,
    "unzip -o ADUReport.zip -d ADUReport",
    "rm -rf ADUReport",
    "rm -rf ADUReport.zip",
    OVERVIEW,
    "storcli64 /c0 show",
    "storcli64 /c0/e252/s1 show all",
    "rm -rf storcli_device_show_all.log",
    "storcli64 /c0/s2 show all",
    "rm -rf storcli_device_show_all.log",
    "rm -rf storcli_cx_show.log",
    "storcli64 /c0 show events",
    "storcli64 /c1 show",
    "rm -rf storcli_cx_show.log",
    "storcli64 /c1 show events",
    "rm -rf storcli_show_all.log",
    "rm -rf storcli_show_events.log",
    "rm -rf storcli.log",
]
LAST = [f"rm -rf {file}" for file in ("ADUReport", "ADUReport.zip", "storcli_show_all.log", "storcli_show_events.log",
                                      "storcli_cx_show.log", "storcli_device_show_all.log")]


def spies(tools_folder: Path, folder: Path) -> Dict[str, str]:
    """The environment in which unzip and rm stand in the same list of command lines as the tools."""
    folder.mkdir()
    for name in ("unzip", "rm"):
        script = folder / name
        script.write_text("#!/bin/sh\n"
                          f"printf '{{\"tool\": \"{name}\", \"arguments\": [\"%s\"], \"folder\": \"%s\", \"at\": 0, "
                          f"\"pid\": %d}}\\n' \"$*\" \"$PWD\" $$ >> {tools_folder}/commands.log\n"
                          f"exec /usr/bin/{name} \"$@\"\n", encoding="ascii")
        script.chmod(0o755)
    return {"PATH": f"{folder}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}


def test_commands_of_a_search_and_what_they_leave(tmp_path: Path) -> None:
    with Tooled(interval=1, env=spies(tmp_path / "tools", tmp_path / "spies"), tools_folder=tmp_path / "tools") as watched:
        watched.tools.add_drive(watched.tools.add_smart_array())
        array = watched.tools.add_mega_raid()
        watched.tools.add_drive(array)
        watched.tools.add_drive(array, enclosure=None)
        watched.tools.add_mega_raid()
        watched.start()
        for cycle in (1, 2):
            wait_until(lambda: len(watched.lines()) >= len(CYCLE) * cycle, "the end of a search", 60, watched.host)
            wait_until(lambda: watched.host.children() == [], "the last command", 5, watched.host)
            # Now it waits for a minute.
            assert watched.lines() == CYCLE * cycle
            assert watched.left_files() == set()
            watched.wait_pause()
            assert watched.left_files() == {"ADUReport.zip"}
        watched.stop_search()
        # The search under way was gone through to its end.
        assert watched.lines() == CYCLE * 3 + LAST
        assert {command.folder for command in watched.tools.commands()} == {str(watched.host.runtime)}


def test_seven_days_lie_between_the_lines_of_a_drive() -> None:
    with Tooled(interval=1, clock=True) as watched:
        array, mega = watched.tools.add_smart_array(), watched.tools.add_mega_raid()
        watched.tools.add_drive(array, times=[7])
        watched.tools.add_drive(array, times=[7] * 19)
        watched.tools.add_drive(mega, times=[1000] * 20)
        lines = [smart_errors(1, "1I:1:1", "SIMTOOL1D0000"), smart_errors(19, "1I:1:2", "SIMTOOL1D0001"),
                 mega_errors(20, 10)]
        watched.start()
        watched.follow(lines[0], smart_event(SMART_ARRAY, "1I:1:2", "SIMTOOL1D0001"),
                       mega_event(SLOTTED, "Port=1,Box=1,Bay=1"), *lines[1:], cycles=0)

        def jump(seconds: int) -> None:
            """After another search without a report, where no command runs that might seem to take so long."""
            begun = watched.cycles()
            wait_until(lambda: watched.cycles() > begun and "events" in watched.lines()[-1], "a search", 30, watched.host)
            wait_until(lambda: watched.host.children() == [], "its end", 5, watched.host)
            time.sleep(0.1)  # between its last commands no child is there either
            assert watched.clock is not None
            watched.assert_reports()
            watched.clock.set(seconds, 60)

        jump(WEEK - 7200)
        jump(WEEK)
        watched.follow(*lines)
        watched.stop_search()
        watched.assert_reports()


def test_japanese_sentences_byte_for_byte() -> None:
    with Tooled(locale="LANG=ja_JP.eucJP") as watched:
        watched.language, watched.encoding = "ja_JP", "euc_jp"
        watched.tools.add_drive(watched.tools.add_smart_array(), times=[7] * 19)
        watched.tools.add_drive(watched.tools.add_mega_raid(), times=[1000] * 20)
        watched.start()
        watched.follow(smart_event(SMART_ARRAY, "1I:1:1", "SIMTOOL1D0000"), mega_event(SLOTTED, "Port=1,Box=1,Bay=1"),
                       smart_errors(19, "1I:1:1", "SIMTOOL1D0000"), mega_errors(20, 10))
        assert [(entry.priority, entry.text("euc_jp")) for entry in watched.host.syslog_entries()] == [
            (4, f"物理ドライブで媒体エラーが繰り返し発生しています: CTRL({SMART_ARRAY}) PD(1I:1:1)  Serial Number: "
             "SIMTOOL1D0000"),
            (4, "バックアップがあることを確認し、ドライブを交換してください。"),
            (4, f"物理ドライブで媒体エラーが繰り返し発生しています: CTRL({SLOTTED}) PD(Port=1,Box=1,Bay=1) "),
            (4, "バックアップがあることを確認し、ドライブを交換してください。")]


# ---- The stop ----

def in_report(watched: Tooled) -> None:
    watched.tools.ssacli.takes(60)
    watched.start()
    wait_until(lambda: REPORT in watched.lines(), "report", 30, watched.host)


def in_pause(watched: Tooled) -> None:
    watched.start()
    watched.wait_pause()


def in_listing(watched: Tooled) -> None:
    watched.tools.storcli64.takes(60, commands="/c0 show")
    watched.start()
    wait_until(lambda: "storcli64 /c0 show" in watched.lines(), "listing", 30, watched.host)


def in_wait(watched: Tooled) -> None:
    watched.start()
    wait_until(lambda: "storcli64 /c0 show events" in watched.lines(), "search", 30, watched.host)
    wait_until(lambda: watched.left_files() == set() and watched.host.children() == [], "its end", 30, watched.host)


@pytest.mark.parametrize("moment", [in_report, in_pause, in_listing, in_wait])
def test_stop_at_any_moment(moment: Callable[[Tooled], None]) -> None:
    """The search under way is gone through to its end; the wait for the next one, a minute of the test's, is not."""
    with Tooled(interval=60) as watched:
        watched.tools.add_drive(watched.tools.add_smart_array(), times=[7])
        watched.tools.add_drive(watched.tools.add_mega_raid(), times=[1000])
        moment(watched)
        begun = time.monotonic()
        watched.stop_search()
        assert time.monotonic() - begun < (2 if moment is in_wait else 20) * slowness()
        assert watched.count_line(SEARCHING) == 1
        assert watched.lines() == [REPORT, OVERVIEW, "storcli64 /c0 show", "storcli64 /c0/e252/s1 show all",
                                   "storcli64 /c0 show events"]
        assert [line for line in watched.trace() if "[EV]" in line] == [
            smart_errors(1, "1I:1:1", "SIMTOOL1D0000").line, mega_errors(1, 10).line]
        assert watched.trace()[-3:] == ["<VK0900> [TR] Break MediaErrorRoutine by StopEvent.",
                                        "<VK0900> [TR] Join thread for Media Error.", "<VK0900> [TR] Service stopped."]


# ---- Beside the other threads ----

def test_all_threads_side_by_side(start_sim: Callable) -> None:
    """Every event once, whichever thread saw it; a search that fails for good leaves the others alone."""
    sim = start_sim("--drives", 3, "--ssd", 0, "--mr", 1, "--mr-drives", 2)
    array, mega = 1, 2
    with Tooled(sim, speed=20) as watched:
        watched.start().wait_baseline()
        sim.control.call("fail-drive", 1, 1)
        watched.follow(smart_disk(1).failed, cycles=0)
        watched.tools.medium_errors(array, 1, 19)
        watched.follow(smart_event(SMART_ARRAY, "1I:1:1", "SIMSA00D0000"), smart_errors(19, "1I:1:1", "SIMSA00D0000"),
                       cycles=0)
        sim.control.call("fail-drive", 2, 2)
        watched.follow(mega_disk(2).failed, cycles=0)
        watched.tools.medium_errors(mega, 2, 20)
        watched.follow(mega_event(SLOTTED, "Port=1,Box=1,Bay=2"), mega_errors(20, 11), cycles=0)

        watched.tools.set_drive(array, 2, "port", "9" * 40 + "I")
        line = watched.wait_line("[ER] media-error")
        assert re.search(r"<VK0902> \[ER\] media-error \d+ \(Err: stoi\)$", line)
        wait_until(lambda: watched.left_files() == set(), "removal of the files", 10, watched.host)
        begun = len(watched.lines())
        sim.control.call("fail-drive", 1, 3)
        watched.expect(smart_disk(3).failed, walks=3)
        assert len(watched.lines()) == begun
        # It had ended before the stop.
        watched.stop_search(searching=False)
        watched.assert_reports()
        assert len(watched.errors()) == 1, watched.errors()
        assert watched.count_line("Join thread for Media Error.") == 1
