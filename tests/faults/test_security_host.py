"""What others could leave on the host for a service that runs as root: nothing of it is run, followed or written through."""

from __future__ import annotations

import os
import signal
import stat
import zipfile
from pathlib import Path
from typing import Any, Callable

from tooled import SEARCHING, Tooled, smart_errors
from watched import Watched, wait_until

from simtools.store import STORCLI

HEADING = "HPE in slot 0 : Box 1 : Physical Drive (1 TB SAS HDD) 1I:1:2 : "
TOOL = "/opt/smartstorageadmin/ssacli/bin/ssacli"  # what it writes is made up here, not by its stand-in
REPORT = (f"{HEADING}Physical Drive Status\n"
          "   Drive Serial Number          SIMSER01\n   Physical Port   1I\n   Physical Box   1\n   Physical Bay   2\n"
          f"{HEADING}Serial SCSI Physical Drive Error Log\n"
          "   Sense Key                    0x03\n   Reference Time               0x00000010\n")


def write_archive(path: Path) -> None:
    """A diagnostic archive whose other members would lie outside of the folder that it is unpacked to."""
    with zipfile.ZipFile(path, "w") as archive:
        archive.writestr("ADUReport.txt", REPORT)
        for name in ("../planted.py", "../../planted.py", "/etc/planted"):
            archive.writestr(name, "planted")
        link = zipfile.ZipInfo("way")
        link.create_system = 3  # Unix: the attributes hold a mode
        link.external_attr = (stat.S_IFLNK | 0o777) << 16
        archive.writestr(link, "/etc")
        archive.writestr("way/planted", "planted")


def test_members_of_the_diagnostic_archive_stay_in_their_folder() -> None:
    """Also with options for unzip in the environment that would let them out."""
    with Tooled(only=(STORCLI,), env={"UNZIPOPT": "-:"}) as watched:
        archive = watched.host.work / "evil.zip"
        write_archive(archive)
        watched.host.install_tool(TOOL, f'#!/bin/sh\ncp "{archive}" ADUReport.zip\n')
        watched.start()
        watched.wait_line(smart_errors(1, "1I:1:2", "SIMSER01").line, 60)
        assert watched.stop(60) == 0
        assert watched.left_files() == set()
        assert not (watched.host.work / "planted.py").exists()
        assert not watched.host.outer("/etc/planted").exists()


def test_program_on_a_relative_path_and_function_of_a_shell_are_not_run(start_sim: Callable[..., Any],
                                                                        watch: Callable[..., Watched]) -> None:
    watched = watch(start_sim("--drives", 1), copy_runtime=True)
    # The service works in this folder.
    planted = watched.host.runtime / "dmidecode"
    planted.write_text("#!/bin/sh\ntouch planted\nexit 1\n", encoding="ascii")
    planted.chmod(0o755)
    path = watched.host.environment()["PATH"].replace(f"{watched.host.runtime}:", "")
    watched.host.start_service(False, "+0 x10", {**watched.environment(), "PATH": f".:{path}",
                                                 "BASH_FUNC_dmidecode%%": "() { touch planted; }"})
    watched.wait_baseline()
    assert watched.stop() == 0
    assert not (watched.host.runtime / "planted").exists()


def test_only_root_writes_what_the_service_and_its_tools_leave() -> None:
    with Tooled(only=(STORCLI,)) as watched:
        watched.host.install_tool(TOOL, "#!/bin/sh\n: >made-by-a-tool\n")
        pid = watched.host.spawn(["sh", "-c", f'umask 0; exec "{watched.host.runtime}/bayward" --stand-alone'],
                                 env=watched.environment())
        watched.wait_line(SEARCHING, 60)
        made = watched.host.runtime / "made-by-a-tool"
        wait_until(made.exists, "file of a tool", 60, watched.host)
        for path in (made, watched.host.log_dir / "bayward.log"):
            assert stat.S_IMODE(path.stat().st_mode) & (stat.S_IWGRP | stat.S_IWOTH) == 0, path
        made.unlink()
        os.kill(pid, signal.SIGKILL)  # in the fixed pause of half a minute, which a stop would wait for


def test_check_tells_what_others_could_change(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1, copy_runtime=True)
    runtime = watched.host.runtime
    in_order = watched.ctl("config", "check")
    (runtime / "KMT_ADUReport_test").mkdir()
    (runtime / "baywardilorest.py").chmod(0o666)
    found = watched.ctl("config", "check")
    assert found.returncode == 1
    assert in_order.stdout in found.stdout
    added = sorted(line.split(": warning: ")[0] for line in
                   set(found.stdout.splitlines()) - set(in_order.stdout.splitlines()))
    assert added == [str(runtime / "KMT_ADUReport_test"), str(runtime / "baywardilorest.py")]
