"""The archives of the diagnostic log: when they are saved, what they are, and which ones are removed."""

import re
import time
import zipfile
from datetime import datetime
from pathlib import Path
from typing import List

from tooled import SSACLI, Tooled, wait_until
from watched import slowness

SPEED = 600  # an hour in six seconds
STARTED = "<VK0900> [TR] Start cyclic serial log saving."
ENDED = "<VK0900> [TR] Break SerialLogRoutine by StopEvent."
NAME = re.compile(r"serial_log_(\d{8}_\d{6})\.zip")
OLD = [f"serial_log_20200131_{minute:02d}0000.zip" for minute in range(12)]
FOREIGN = ["serial.zip", "Serial_log_20190101_000000.zip", "old_serial_log_20190101_000000.zip"]


def archives(watched: Tooled) -> List[Path]:
    """Those that were saved, oldest first."""
    return [path for path in sorted(watched.host.log_dir.glob("serial_log_*.zip"))
            if path.is_file() and path.name not in OLD]


def wait_errors(watched: Tooled, number: int) -> None:
    watched.wait_line("log-manager 98", 30, number)


def moment(text: str) -> float:
    """A stamp of the trace log or of an archive."""
    return datetime.strptime(re.sub(r"\D", "", text)[:14], "%Y%m%d%H%M%S").timestamp()


def serial_log(count: int, **options: object) -> Tooled:
    return Tooled(speed=SPEED, config={"media error": {"check": "false"},
                                       "serial log": {"interval": 5, "max file count": count}}, **options)


def test_archives_are_saved_and_pruned() -> None:
    """The settings of 5 minutes and 3 files are lifted to an hour and 10 files."""
    with serial_log(3, only=()) as watched:
        folder = watched.host.log_dir
        for name in [*OLD, *FOREIGN]:
            (folder / name).write_text("old")
        (folder / "serial_log_0").mkdir()
        (folder / "serial_log_00000000_000000.zip").mkdir()
        others = {path.name for path in folder.iterdir()} - set(OLD)
        watched.tools.add_smart_array()
        watched.start()

        # Without the tool every period says so, and the archives are pruned all the same.
        wait_errors(watched, 1)
        wait_until(lambda: sorted(path.name for path in folder.glob("serial_log_2020*")) == OLD[2:], "pruning", 5)
        wait_errors(watched, 2)
        errors = [line for line in watched.host.trace_lines() if "[ER]" in line and "log-manager" in line]
        for line in errors:
            assert re.search(r"<VK0902> \[ER\] log-manager 98 \(command: /opt/smartstorageadmin/ssacli/bin/ssacli ctrl all "
                             r"diag logs=on file=/var/log/bayward/serial_log_\d{8}_\d{6}\.zip\)$", line), line
        started, = [moment(line[:19]) for line in watched.host.trace_lines() if STARTED in line]
        # The first one a whole period after the start. A second is lost where times are cut to whole ones.
        saved = [moment(NAME.search(line)[1]) for line in errors]
        for before, after in zip([started, *saved], saved):
            assert 3599 <= after - before < 2 * 3600

        watched.host.install_tools(watched.tools, [SSACLI])
        wait_until(lambda: archives(watched), "archive", 30, watched.host)
        begun = time.monotonic()
        assert watched.stop() == 0
        assert time.monotonic() - begun < 2 * slowness()  # of the six seconds that the wait lasts
        assert watched.count_line(ENDED) == 1

        assert watched.count_line("[ER] log-manager") == 2
        found = archives(watched)
        for command, path in zip(watched.tools.commands(), found):
            assert command.line == f"ssacli ctrl all diag logs=on file=/var/log/bayward/{path.name}"
            assert command.folder == str(watched.host.runtime)
            assert NAME.fullmatch(path.name)
            with zipfile.ZipFile(path) as archive:
                assert archive.testzip() is None
                assert {"ADUReport.txt", "serial_output_1.txt"} <= set(archive.namelist())
        assert {path.name for path in folder.iterdir()} == {*others, *OLD[2 + len(found):], "bayward.log",
                                                            *(path.name for path in found)}
        assert watched.left_files() == set()


def test_what_a_failing_tool_wrote_is_kept_and_a_saving_is_ended_before_the_stop() -> None:
    with serial_log(200) as watched:
        for name in OLD:
            (watched.host.log_dir / name).write_text("old")
        watched.tools.add_smart_array()
        watched.tools.ssacli.answer("half a report", status=3, times=1)
        watched.start()
        wait_errors(watched, 1)
        with zipfile.ZipFile(archives(watched)[0]) as archive:
            assert archive.read("ADUReport.txt") == b"half a report"

        watched.tools.ssacli.takes(600)  # a second
        wait_until(lambda: len(watched.lines()) == 2, "second saving", 30, watched.host)
        assert len(archives(watched)) == 1
        watched.stop_search(searching=False)
        assert len(archives(watched)) == 2
        assert zipfile.is_zipfile(archives(watched)[1])
        assert watched.count_line(ENDED) == watched.count_line("[ER] log-manager") == 1
        assert {path.name for path in watched.host.log_dir.glob("serial_log_2020*")} == set(OLD)
