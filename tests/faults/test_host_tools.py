"""Hosts whose programs hang, never stop writing or leave children, and whose working folder is full."""

import shutil
import time
import zipfile
from contextlib import contextmanager
from pathlib import Path
from typing import Callable, Iterator

import pytest
from tooled import ENDED, Tooled, mega_errors, smart_errors
from troubled import BACK, FAILED
from watched import ROOT, ControllerProcess, Watched, bin_dir, smart_disk, wait_until

SPEED = 15
FLOOD = "#!/bin/sh\nexec yes 'UUID: no number, and 16.1.15.2 is nobody'\n"
HANGS = "#!/bin/sh\ntrap '' TERM\nsleep 1000000\n"
# Its child keeps the output open long after it has ended.
LEAVES_A_CHILD = "#!/bin/sh\nsleep 1000000 &\nexec {real} \"$@\"\n"


DEVICE = 77  # of a MegaRAID drive


class Programs:
    """Stands before the host's own programs on PATH."""

    def __init__(self, folder: Path) -> None:
        self._folder = folder

    def path(self) -> str:
        return f"{self._folder}:{ROOT / 'sim/bin'}:{bin_dir()}:/usr/sbin:/usr/bin:/sbin:/bin"

    @contextmanager
    def replaced(self, name: str, script: str) -> Iterator[None]:
        part = self._folder / f"{name}.part"
        part.write_text(script.format(real=ROOT / "sim/bin" / name), encoding="ascii")
        part.chmod(0o755)
        part.rename(self._folder / name)  # never half a script
        try:
            yield
        finally:
            (self._folder / name).unlink()


@pytest.fixture(scope="module")
def programs(tmp_path_factory: pytest.TempPathFactory) -> Programs:
    return Programs(tmp_path_factory.mktemp("programs"))


@pytest.fixture(scope="module")
def sim(start_file_sim: Callable) -> ControllerProcess:
    return start_file_sim("--drives", 8, "--ssd", 0)


@pytest.fixture(scope="module")
def watched(sim: ControllerProcess, watch_file: Callable[..., Watched], programs: Programs) -> Watched:
    return watch_file(sim, speed=SPEED, env={"PATH": programs.path()}).start().wait_baseline()


@pytest.mark.parametrize("drive, name, script", [
    (1, "dmidecode", HANGS), (2, "dmidecode", LEAVES_A_CHILD), (3, "ip", HANGS), (4, "ip", FLOOD)],
    ids=lambda value: {HANGS: "hangs", LEAVES_A_CHILD: "leaves a child", FLOOD: "writes for ever"}.get(value))
def test_program_of_the_host(watched: Watched, programs: Programs, drive: int, name: str, script: str) -> None:
    """The account stays in use as long as nothing says that it is another one; `ip` is asked at a log-in alone."""
    logins, back, errors = watched.counters()["logins"], watched.count_line(BACK), watched.errors()
    with programs.replaced(name, script):
        if name == "ip":
            watched.sim.control.call("status", "GET */DiskDrives/1", 500, 1)
            watched.wait_line(BACK, 60, count=back + 1)
            logins += 1
            errors.append(FAILED)
        watched.wait_walks(2, 60)
        watched.sim.control.call("fail-drive", 1, drive)
        watched.expect(smart_disk(drive).failed, timeout=60)
    watched.expect()
    assert watched.counters()["logins"] == logins
    assert watched.errors() == errors
    wait_until(lambda: watched.host.children() == [], "end of the program", 30, watched.host)


def test_service_ends_well(watched: Watched) -> None:
    for process in watched.host.processes():
        assert process.state != "Z" or process.parent != watched.host.pid
    assert watched.stop() == 0


class SmallFolder(Tooled):
    """The service's own folder lies on a file system of a few megabytes."""

    def small(self) -> Path:
        """Puts it there, before the start. Returns the folder."""
        done = self.host.run(["sh", "-ec", f"cp -r {self.host.runtime} /var/log/kept && "
                              f"mount -t tmpfs -o size=16m,mode=755 tmpfs {self.host.runtime} && "
                              f"cp -r /var/log/kept/. {self.host.runtime} && rm -r /var/log/kept"])
        assert done.returncode == 0, done.stderr
        return self.host.inside(str(self.host.runtime))


def test_full_working_folder_and_a_tool_that_never_stops_writing() -> None:
    with SmallFolder(speed=60) as watched:
        folder = watched.small()
        watched.tools.add_drive(watched.tools.add_smart_array(), times=[7])
        watched.tools.add_drive(watched.tools.add_mega_raid(), did=DEVICE)
        waste = folder / "waste"
        with open(waste, "wb", buffering=0) as file:
            for size in (1 << 16, 1):
                try:
                    while True:
                        file.write(b"x" * size)
                except OSError:
                    continue
        before = {path.name for path in folder.iterdir()}
        watched.start()
        watched.wait_cycles(2)
        waste.unlink()
        # What was full for the first searches is there for the next.
        watched.follow(smart_errors(1, "1I:1:1", "SIMTOOL1D0000"))

        watched.host.install_tool("/opt/MegaRAID/storcli/storcli64",
                                  "#!/bin/sh\nexec yes 'seqNum: 0x1 Ctl Model Event Description: corrected medium error'\n")
        lists = folder / "storcli_show_all.log"
        wait_until(lambda: lists.exists() and lists.stat().st_size > 1 << 20, "flood", 30, watched.host)
        wait_until(lambda: not lists.exists(), "end of the flood", 60, watched.host)
        watched.host.install_tools(watched.tools)
        watched.tools.medium_errors(2, 1, times=[7])
        watched.follow(mega_errors(1, DEVICE))
        assert watched.stop(60) == 0
        assert {path.name for path in folder.iterdir()} - {"__pycache__"} <= before - {"waste"}


LARGEST_FILE = 256 << 20  # that a tool may write
HEADING = "HPE in slot 0 : Box 1 : Physical Drive (1 TB SAS HDD) 1I:1:{bay} : "
REPORT = (f"{HEADING}Physical Drive Status\n   Drive Serial Number   {{serial}}\n   Physical Port   1I\n"
          f"   Physical Box   1\n   Physical Bay   {{bay}}\n{HEADING}Serial SCSI Physical Drive Error Log\n"
          "   Sense Key   0x03\n   Reference Time   0x00000010\n")


def write_bomb(path: Path, size: int) -> None:
    """A small archive of a large report: its drives have serial numbers of 60,000 characters."""
    written, bay = 0, 0
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=1) as archive:
        with archive.open("ADUReport.txt", "w") as report:
            while written < size:
                bay += 1
                written += report.write(REPORT.format(bay=bay, serial=f"{bay:09}".ljust(60_000, "S")).encode("ascii"))


@pytest.mark.parametrize("size", [100 << 20, LARGEST_FILE + (1 << 20)], ids=["many drives", "too large"])
def test_small_archive_of_a_large_report(size: int) -> None:
    """Its first drives count, and of one that is too large what could be unpacked; memory and disk are left for the next
    search."""
    # Listings have 12 seconds at this pace.
    with Tooled(speed=10, only=("ssacli",)) as watched:
        watched.tools.add_drive(watched.tools.add_smart_array(), times=[7])
        watched.start()
        watched.follow(smart_errors(1, "1I:1:1", "SIMTOOL1D0000"))
        memory = watched.host.rss_kib()
        bomb = watched.host.work / "bomb.zip"
        write_bomb(bomb, size)
        assert bomb.stat().st_size < 4 << 20
        unpacked = watched.host.runtime / "ADUReport/ADUReport.txt"
        tool = "/opt/smartstorageadmin/ssacli/bin/ssacli"
        ran = watched.host.work / "ran"
        watched.host.install_tool(tool, f'#!/bin/sh\ncp "{bomb}" ADUReport.zip && echo >> "{ran}"\n')
        largest = 0

        def runs(number: int) -> bool:
            nonlocal largest
            try:
                largest = max(largest, unpacked.stat().st_size)
            except FileNotFoundError:
                pass
            return ran.exists() and len(ran.read_text()) >= number
        wait_until(lambda: runs(3), "three searches", 120, watched.host)
        assert 0 < largest <= LARGEST_FILE
        assert watched.host.rss_kib() < memory + (16 << 10)
        found = [line for line in watched.trace() if "SSSS" in line]
        assert len(found) == 1024
        assert all(len(line) < 400 for line in found)

        watched.host.install_tools(watched.tools, ("ssacli",))
        watched.tools.add_drive(1, times=[7])
        watched.wait_line(smart_errors(1, "1I:1:2", "SIMTOOL1D0001").line, 60)
        assert watched.stop(60) == 0
        assert watched.left_files() == set()


def test_listing_of_more_drives_than_there_are_and_a_stop() -> None:
    """Every one of them costs a command: a search is under way for hours, of which a stop leaves a minute."""
    with Tooled(speed=60, only=()) as watched:
        dashes = "-" * 60
        rows = "".join(f"252:{slot % 50000} {slot % 50000} Onln\n" for slot in range(100_000))
        listing = watched.host.work / "listing"
        listing.write_text(f"{dashes}\nEID:Slt DID State\n{dashes}\n" + rows + f"{dashes}\n", encoding="ascii")
        places = watched.host.work / "places"
        watched.host.install_tool("/opt/MegaRAID/storcli/storcli64", f"""#!/bin/sh
case "$*" in
show) printf '%s\\n' {dashes} 'Ctl Model' {dashes} ' 0 x' {dashes} ;;
"/c0 show") cat "{listing}" ;;
/c0/e*) echo "$*" >> "{places}"; sleep 0.2 ;;
esac
""")
        watched.start()
        wait_until(lambda: places.exists() and len(places.read_text().splitlines()) > 10, "places", 60, watched.host)
        begun = time.monotonic()
        assert watched.stop(60) == 0
        assert time.monotonic() - begun < 30  # all of them, 1024, would take more than 200 seconds
        assert watched.trace()[-3:] == [ENDED, "<VK0900> [TR] Join thread for Media Error.",
                                        "<VK0900> [TR] Service stopped."]
        assert watched.left_files() == set()
        assert watched.left_processes() == []


def test_tool_that_leaves_children() -> None:
    """They are the tool's own affair: the search goes on without them, and the service is not kept from its end."""
    with Tooled(speed=60, only=("ssacli",)) as watched:
        watched.tools.add_drive(watched.tools.add_smart_array(), times=[7])
        place = watched.host.outer("/opt/smartstorageadmin/ssacli/bin/ssacli")
        shutil.move(str(place), str(place.with_name("real")))
        watched.host.install_tool("/opt/smartstorageadmin/ssacli/bin/ssacli", "#!/bin/sh\nsleep 1000000 &\n"
                                  "exec /opt/smartstorageadmin/ssacli/bin/real \"$@\"\n")
        watched.start()
        watched.follow(smart_errors(1, "1I:1:1", "SIMTOOL1D0000"))
        assert [line for line in watched.errors() if "Login" not in line] == []  # there is no controller
        assert watched.stop(60) == 0
        assert watched.left_files() == set()
