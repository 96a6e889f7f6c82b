"""The simulated host: what it keeps to itself, and that nothing of it is left behind."""

import os
import resource
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Callable, List, Set

import pytest

SIM = Path(__file__).resolve().parents[2] / "sim"
sys.path.insert(0, str(SIM))

import simhost  # noqa: E402
from simhost import HostError, SimHost, WaitTimeout  # noqa: E402
from simtools.tools import Tools  # noqa: E402

# Plays the service: one trace line, one system log entry, then it runs until it is told to stop.
STAND_IN = """#!/bin/sh
note() { echo "$1" >>/var/log/bayward/bayward.log; }
serve() {
    trap 'note stopped; exit 0' TERM INT
    logger --tag bayward --priority daemon.err "$1 says hello"
    note "$1 started"
    while :; do sleep 0.05; done
}
case "$1" in
--stand-alone) serve foreground ;;
--detached) serve daemon ;;
*)
    [ -e /etc/refuse ] && exit 255
    [ -e /etc/end-at-once ] && { (exit 3) & exit 0; }
    setsid "$0" --detached &
    ;;
esac
"""


@pytest.fixture(scope="module", autouse=True)
def namespaces_are_allowed() -> None:
    reason = simhost.missing()
    if reason is None:
        return
    if os.environ.get("CI") == "true":
        pytest.fail(reason)
    pytest.skip(reason)


@pytest.fixture
def bin_dir(tmp_path: Path) -> Path:
    folder = tmp_path / "bin"
    folder.mkdir()
    (folder / "bayward").write_text(STAND_IN, encoding="utf-8")
    (folder / "bayward").chmod(0o755)
    return folder


def processes_naming(text: str) -> List[int]:
    """Every process of the machine with the text in its command line."""
    found = []
    for entry in os.listdir("/proc"):
        try:
            if entry.isdigit() and text.encode() in Path(f"/proc/{entry}/cmdline").read_bytes():
                found.append(int(entry))
        except OSError:
            continue
    return found


def wait_until(condition: Callable[[], bool], seconds: float = 10.0) -> bool:
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.02)
    return True


def names(folder: str) -> Set[str]:
    return set(os.listdir(folder)) if os.path.isdir(folder) else set()


def mounts() -> List[str]:
    return Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines()


class TestIsolation:
    def test_machine_is_the_same_while_a_host_runs_and_after_it(self, bin_dir: Path) -> None:
        def machine() -> "list[object]":
            dev_log = os.stat("/dev/log").st_ino if os.path.exists("/dev/log") else None
            locale = os.stat("/etc/default/locale").st_mtime_ns if os.path.exists("/etc/default/locale") else None
            return [names("/etc"), names("/etc/opt"), names("/opt"), names("/var/log"), mounts(), dev_log, locale]

        before = machine()
        with SimHost(bin_dir, config={"iLo": {"interval": 3000}}) as host:
            host.start_service()
            host.wait_syslog("says hello", 10)
            host.install_tool("/opt/MegaRAID/storcli/storcli64", "#!/bin/sh\n")
            host.run(["touch", "/etc/.TARNiLO0", "/var/log/other", "/opt/new"])
            assert machine() == before
        assert machine() == before

    def test_host_sees_its_own_configuration_and_locale(self, bin_dir: Path) -> None:
        config = {"iLo": {"url": "https://192.0.2.1", "interval": 3000}, "media error": {"check": "false"}}
        with SimHost(bin_dir, config=config, locale="LANG=ja_JP.eucJP") as host:
            conf = host.run(["cat", "/etc/opt/tarn/bayward/bayward.conf"]).stdout
            assert conf == "[iLo]\nurl=https://192.0.2.1\ninterval=3000\n[media error]\ncheck=false\n"
            assert host.run(["cat", "/etc/locale.conf"]).stdout == "LANG=ja_JP.eucJP\n"
            for absent in ("/etc/SuSE-release", "/etc/.TARNiLO0", "/etc/default/locale", "/opt/smartstorageadmin"):
                assert host.run(["test", "-e", absent]).returncode == 1, absent

    def test_host_without_configuration_and_locale_has_neither_file(self, bin_dir: Path) -> None:
        with SimHost(bin_dir, locale=None) as host:
            assert host.run(["ls", "/etc/opt/tarn/bayward"]).stdout == ""
            assert host.run(["test", "-e", "/etc/locale.conf"]).returncode == 1

    def test_files_changed_from_outside_are_seen_inside_and_the_other_way(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.outer("/etc/default/locale").write_text("LANG=C\n", encoding="utf-8")
            assert host.run(["cat", "/etc/default/locale"]).stdout == "LANG=C\n"
            host.run(["sh", "-c", "echo line > /var/log/bayward/x"])
            assert (host.log_dir / "x").read_text(encoding="utf-8") == "line\n"

    def test_what_is_mounted_inside_is_seen_there_alone(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            done = host.run(["sh", "-c", "mount -t tmpfs tmpfs /var/log/bayward && echo inner > /var/log/bayward/x"])
            assert done.returncode == 0, done.stderr
            assert (host.inside("/var/log/bayward") / "x").read_text(encoding="utf-8") == "inner\n"
            assert not (host.log_dir / "x").exists()

    def test_what_is_shared_with_the_machine_cannot_be_written(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            answer = host.run(["sh", "-c", "echo broken >> /etc/passwd"])
            assert answer.returncode != 0
            assert "broken" not in Path("/etc/passwd").read_text(encoding="utf-8")

    def test_stand_ins_come_first_on_the_path_and_installed_tools_run(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            assert host.run(["sh", "-c", "command -v dmidecode"]).stdout.strip() == str(SIM / "bin/dmidecode")
            host.install_tool("/opt/MegaRAID/storcli/storcli64", "#!/bin/sh\necho listing\n")
            assert host.run(["/opt/MegaRAID/storcli/storcli64"]).stdout == "listing\n"

    def test_raid_tools_run_where_the_service_looks_for_them_on_the_clock_it_has(self, bin_dir: Path,
                                                                                tmp_path: Path) -> None:
        with SimHost(bin_dir) as host:
            tools = host.install_tools(Tools.create(tmp_path / "tools"))
            tools.add_smart_array()
            tools.ssacli.takes(30)
            begin = time.monotonic()
            answer = host.run(["/opt/smartstorageadmin/ssacli/bin/ssacli", "ctrl", "all", "diag", "file=/var/log/x.zip"],
                              env=host.environment(faketime="+0 x60"))
            assert answer.returncode == 0, answer
            assert time.monotonic() - begin < 15
            assert host.outer("/var/log/x.zip").stat().st_size > 100
            assert host.run(["/opt/MegaRAID/storcli/storcli64", "show"]).returncode == 0
            assert [command.tool for command in tools.commands()] == ["ssacli", "storcli64"]

    def test_raid_tool_that_is_not_installed_is_missing(self, bin_dir: Path, tmp_path: Path) -> None:
        with SimHost(bin_dir) as host:
            host.install_tools(Tools.create(tmp_path / "tools"), only=("storcli64",))
            assert host.run(["test", "-e", "/opt/smartstorageadmin"]).returncode == 1
            assert host.run(["/opt/MegaRAID/storcli/storcli64", "show"]).returncode == 0

    def test_copied_runtime_can_be_changed_without_touching_the_original(self, bin_dir: Path) -> None:
        with SimHost(bin_dir, copy_runtime=True) as host:
            assert host.runtime != bin_dir
            (host.runtime / "bayward").unlink()
        assert (bin_dir / "bayward").exists()

    def test_own_network_has_the_given_addresses_and_nothing_else(self, bin_dir: Path) -> None:
        listen = "import socket; socket.create_server(('16.1.15.1', 443)).accept()"
        with SimHost(bin_dir, addresses=("16.1.15.1", "16.1.15.2")) as host:
            assert host.run(["sh", "-c", "tail -n +3 /proc/net/dev"]).stdout.split(":")[0].strip() == "lo"
            host.spawn(["/usr/bin/python3", "-c", listen])
            connect = "import socket; socket.create_connection(('16.1.15.1', 443), 5)"
            assert wait_until(lambda: host.run(["/usr/bin/python3", "-c", connect]).returncode == 0)

    def test_work_folder_that_the_host_would_hide_is_refused(self, bin_dir: Path) -> None:
        with pytest.raises(HostError, match="/opt"):
            SimHost(bin_dir, "/opt/bayward-host-test")
        assert not os.path.exists("/opt/bayward-host-test")

    def test_folder_without_a_service_is_refused(self, tmp_path: Path) -> None:
        with pytest.raises(HostError, match="run build"):
            SimHost(tmp_path)


class TestSystemLog:
    def test_entry_keeps_priority_identity_process_and_bytes(self, bin_dir: Path) -> None:
        message = "物理ドライブ".encode("euc_jp")
        with SimHost(bin_dir) as host:
            host.run(["logger", "--tag", "bayward", "--id=77", "--priority", "daemon.warning", "--", os.fsdecode(message)])
            entry = host.wait_syslog(message, 10)
            assert (entry.priority, entry.facility, entry.identity, entry.pid) == (4, "daemon", "bayward", 77)
            assert entry.message == message
            assert entry.text("euc_jp") == "物理ドライブ"

    def test_entries_reach_only_the_host_they_were_sent_on(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as one, SimHost(bin_dir) as other:
            one.run(["logger", "for one"])
            other.run(["logger", "for the other"])
            one.wait_syslog("for one", 10)
            other.wait_syslog("for the other", 10)
            assert [entry.text() for entry in one.syslog_entries()] == ["for one"]
            assert [entry.text() for entry in other.syslog_entries()] == ["for the other"]

    def test_after_a_restart_entries_arrive_again(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.run(["logger", "first"])
            host.wait_syslog("first", 10)
            host.stop_syslog()
            assert host.run(["test", "-e", "/dev/log"]).returncode == 1
            host.start_syslog()
            host.run(["logger", "second"])
            host.wait_syslog("second", 10)
            assert [entry.text() for entry in host.syslog_entries()] == ["first", "second"]

    def test_burst_is_not_thinned_out(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.run(["sh", "-c", "seq 1 600 | logger"])
            host.wait_syslog("600", 20)
            assert len(host.syslog_entries()) == 600


class TestService:
    def test_foreground_run_has_its_process_and_ends_on_interrupt(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.start_service()
            host.wait_trace("foreground started", 10)
            assert host.wait_syslog("foreground says hello", 10).identity == "bayward"
            assert str(host.runtime / "bayward") in Path(f"/proc/{host.pid}/cmdline").read_text(encoding="utf-8")
            assert host.stop_service(10) == 0
            assert host.trace_lines() == ["foreground started", "stopped"]

    def test_detached_run_is_found_and_its_exit_status_is_known(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.start_service(stand_alone=False)
            host.wait_trace("daemon started", 10)
            assert host.pid is not None and b"--detached" in Path(f"/proc/{host.pid}/cmdline").read_bytes()
            assert host.running
            assert host.stop_service(10) == 0
            assert not host.running

    def test_detached_run_that_ends_at_once_has_a_status_and_no_process(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.outer("/etc/end-at-once").touch()
            host.start_service(stand_alone=False)
            assert host.wait_exit(5) == 3

    def test_launcher_that_fails_gives_its_own_status(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.outer("/etc/refuse").touch()
            host.start_service(stand_alone=False)
            assert (host.pid, host.wait_exit(5)) == (None, 255)

    def test_killed_service_leaves_a_host_on_which_it_starts_again(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            host.start_service(stand_alone=False)
            host.wait_trace("daemon started", 10)
            host.signal(signal.SIGKILL)
            assert host.wait_exit(10) == -signal.SIGKILL
            host.start_service(stand_alone=False)
            host.wait_trace("daemon started", 10, count=2)
            assert host.running

    def test_service_gets_its_standard_streams_and_no_other_descriptor(self, bin_dir: Path) -> None:
        (bin_dir / "bayward").write_text("#!/bin/sh\nexec sleep 60\n", encoding="utf-8")
        with SimHost(bin_dir) as host:
            host.start_service()
            assert wait_until(lambda: Path(f"/proc/{host.pid}/comm").read_text(encoding="utf-8") == "sleep\n")
            assert host.descriptors() == {0: "/dev/null", 1: str(host.work / "service.out"),
                                          2: str(host.work / "service.err")}
            assert host.rss_kib() > 0

    @pytest.mark.parametrize("stand_alone", [False, True])
    def test_limits_hold_for_the_service_from_its_start(self, bin_dir: Path, stand_alone: bool) -> None:
        with SimHost(bin_dir) as host:
            host.start_service(stand_alone=stand_alone, limits={"nofile": 23, "as": 1 << 30})
            host.wait_trace("started", 10)
            assert resource.prlimit(host.pid or 0, resource.RLIMIT_NOFILE) == (23, 23)
            assert resource.prlimit(host.pid or 0, resource.RLIMIT_AS) == (1 << 30, 1 << 30)
            assert host.stop_service(10) == 0

    def test_children_tell_zombies(self, bin_dir: Path) -> None:
        (bin_dir / "bayward").write_text("#!/bin/sh\nsleep 0 &\nexec sleep 60\n", encoding="utf-8")
        with SimHost(bin_dir) as host:
            host.start_service()
            assert wait_until(lambda: [child.state for child in host.children()] == ["Z"])

    def test_faketime_speeds_waits_up(self, bin_dir: Path) -> None:
        (bin_dir / "bayward").write_text("#!/bin/sh\nsleep 60\n", encoding="utf-8")
        with SimHost(bin_dir) as host:
            begin = time.monotonic()
            host.start_service(faketime="+0 x60")
            assert host.wait_exit(30) == 0
            assert time.monotonic() - begin < 20

    def test_wait_ends_with_the_service_and_tells_what_was_there(self, bin_dir: Path) -> None:
        (bin_dir / "bayward").write_text("#!/bin/sh\necho broken >&2\nexit 7\n", encoding="utf-8")
        with SimHost(bin_dir) as host:
            host.start_service()
            begin = time.monotonic()
            with pytest.raises(WaitTimeout) as told:
                host.wait_trace("never", 60)
            assert time.monotonic() - begin < 20
            assert "ended with status 7" in str(told.value) and "broken" in str(told.value)


class TestRun:
    def test_input_output_and_status_are_handed_through(self, bin_dir: Path) -> None:
        with SimHost(bin_dir, env={"COLOUR": "blue"}) as host:
            answer = host.run(["sh", "-c", "cat; echo $COLOUR; echo problem >&2; exit 4"], stdin="given\n")
            assert (answer.returncode, answer.stdout, answer.stderr) == (4, "given\nblue\n", "problem\n")

    def test_command_that_does_not_end_is_killed(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            with pytest.raises(WaitTimeout):
                host.run(["sleep", "1000"], timeout=0.3)
            assert "sleep" not in [process.name for process in host.processes()]

    def test_unknown_command_is_an_error_and_the_host_goes_on(self, bin_dir: Path) -> None:
        with SimHost(bin_dir) as host:
            with pytest.raises(HostError, match="no-such-command"):
                host.run(["no-such-command"])
            assert host.run(["true"]).returncode == 0


class TestCleanUp:
    def test_stop_ends_every_process_and_removes_the_folder(self, bin_dir: Path) -> None:
        host = SimHost(bin_dir)
        host.start_service(stand_alone=False)
        host.spawn(["sh", "-c", "trap '' TERM INT HUP; while :; do sleep 0.1; done"])
        numbers = [process.pid for process in host.processes()]
        assert len(numbers) >= 3
        host.stop()
        assert not host.work.exists()
        assert [number for number in numbers if os.path.exists(f"/proc/{number}")] == []
        host.stop()  # once more does no harm
        with pytest.raises(HostError):
            host.run(["true"])

    def test_given_folder_is_kept_with_the_logs(self, bin_dir: Path, tmp_path: Path) -> None:
        with SimHost(bin_dir, tmp_path / "host") as host:
            host.start_service()
            host.wait_trace("started", 10)
        assert host.trace_lines()[0] == "foreground started"

    def test_stubborn_service_is_killed(self, bin_dir: Path) -> None:
        (bin_dir / "bayward").write_text("#!/bin/sh\ntrap '' INT TERM\nwhile :; do sleep 0.1; done\n", encoding="utf-8")
        host = SimHost(bin_dir)
        host.start_service()
        pid = host.pid
        host.stop(grace=0.3)
        assert not os.path.exists(f"/proc/{pid}")

    def test_exception_in_the_test_leaves_nothing(self, bin_dir: Path) -> None:
        with pytest.raises(ZeroDivisionError):
            with SimHost(bin_dir) as host:
                host.start_service(stand_alone=False)
                raise ZeroDivisionError
        assert processes_naming(str(bin_dir)) == []
        assert not host.work.exists()

    def test_hosts_live_side_by_side(self, bin_dir: Path) -> None:
        hosts = [SimHost(bin_dir) for _ in range(4)]
        for host in hosts:
            host.start_service(stand_alone=False)
        for host in hosts:
            host.wait_trace("daemon started", 10)
        assert len({host.pid for host in hosts}) == 4
        hosts[0].stop()
        assert not hosts[0].running
        assert all(host.running for host in hosts[1:])
        for host in hosts[1:]:
            host.stop()
        assert processes_naming(str(bin_dir)) == []

    @pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGKILL])
    def test_ended_test_program_takes_its_host_along(self, bin_dir: Path, tmp_path: Path, number: int) -> None:
        program = (f"import sys, time; sys.path.insert(0, {str(SIM)!r}); from simhost import SimHost\n"
                   f"host = SimHost({str(bin_dir)!r}); host.start_service(stand_alone=False)\n"
                   "host.wait_trace('started', 10); print(host.work, flush=True); time.sleep(60)\n")
        player = subprocess.Popen(["/usr/bin/python3", "-c", program], stdout=subprocess.PIPE, text=True,
                                  stderr=subprocess.DEVNULL, env={**os.environ, "TMPDIR": str(tmp_path)})
        assert player.stdout is not None
        work = player.stdout.readline().strip()
        assert processes_naming(str(bin_dir / "bayward")) and processes_naming(work)
        player.send_signal(number)
        player.wait(20)
        player.stdout.close()
        assert wait_until(lambda: not processes_naming(work) and not processes_naming(str(bin_dir / "bayward")))
        assert not any(work in line for line in mounts())
        if number != signal.SIGKILL:
            assert not os.path.exists(work)
