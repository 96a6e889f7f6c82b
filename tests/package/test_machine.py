"""The unit on a clean system that was booted: the hardened service against a simulated controller."""

from __future__ import annotations

import shutil
import subprocess
import time
from contextlib import contextmanager
from pathlib import Path
from typing import Callable, Iterator, List

import pytest
from cleantree import Machine
from simcontroller.process import ControllerProcess

CONFIGURATION = "/etc/opt/tarn/bayward/bayward.conf"
TRACE = "/var/log/bayward/bayward.log"
TOOL = "/opt/smartstorageadmin/ssacli/bin/ssacli"
PROGRAM = "/opt/tarn/bayward/bin/bayward"
RUNTIME_DROP_IN = "/run/systemd/system/bayward.service.d/test.conf"
# What the RAID tools do and what nobody has to do, each one line in /run/raid-tool. The tool takes its time.
_TOOL_SCRIPT = """#!/bin/sh
{
    try() { name=$1; shift; if "$@" >/dev/null 2>&1; then echo "$name: allowed"; else echo "$name: refused"; fi; }
    echo "working folder is $PWD"
    try "report in the working folder" touch storcli_show_all.log
    try "file beside the tool" touch /opt/smartstorageadmin/ssacli/bin/note
    try "lock" mkdir -p /run/lock/ssacli
    try "node of the driver" mknod /dev/raid_node c 1 3
    try "reading the node" head -c 0 /dev/raid_node
    try "list of drivers" grep -q mem /proc/devices
    try "temporary file" touch /tmp/raid-tool
    try "configuration" touch /etc/raid-tool
    try "programs" touch /usr/bin/raid-tool
    try "own executable's library folder" touch /usr/lib/raid-tool
    try "kernel setting" sh -c 'echo 1 >/proc/sys/kernel/sysrq'
    try "namespaces" unshare --mount true
    echo "seconds: ${SECONDS_TO_RUN:=TAKES}"
    sleep "$SECONDS_TO_RUN"
    echo "finished"
} >>/run/raid-tool
"""
_NEEDED = ("report in the working folder", "file beside the tool", "lock", "node of the driver", "reading the node",
           "list of drivers", "temporary file")
_NOT_NEEDED = ("configuration", "programs", "own executable's library folder", "kernel setting", "namespaces")


def _wait(condition: Callable[[], bool], what: str, seconds: float, machine: Machine) -> None:
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            trace = machine.run("cat", TRACE, check=False).stdout
            unit = machine.run("systemctl", "status", "--no-pager", "bayward", check=False).stdout
            raise AssertionError(f"no {what} within {seconds} seconds\n{trace}\n{unit}")
        time.sleep(0.2)


def _trace(machine: Machine) -> str:
    return machine.run("cat", TRACE, check=False).stdout


def _wait_baseline(machine: Machine, sim: ControllerProcess) -> None:
    """The first walk is the start-up's, the second takes the baseline; it is taken when a third one begins."""
    walks = lambda: sim.control.call("counters")["requests"].get("GET /redfish/v1/Systems/", 0)  # noqa: E731
    begun = walks()
    _wait(lambda: walks() >= begun + 3, "third walk", 60, machine)


@contextmanager
def _setting(machine: Machine, *lines: str) -> Iterator[None]:
    """The unit with other settings for a while."""
    machine.run("mkdir", "-p", str(Path(RUNTIME_DROP_IN).parent))
    machine.run("tee", RUNTIME_DROP_IN, stdin="\n".join(("[Service]", *lines)) + "\n")
    machine.run("systemctl", "daemon-reload")
    try:
        yield
    finally:
        machine.run("systemctl", "stop", "bayward", check=False)
        machine.run("rm", RUNTIME_DROP_IN)
        machine.run("systemctl", "daemon-reload")


def _install_tool(machine: Machine, seconds: int) -> Callable[[], List[str]]:
    """A RAID tool that takes that long, and what it has said."""
    configuration = machine.tree.path(CONFIGURATION)
    configuration.write_text(configuration.read_text().replace("check=false", "check=true"))
    machine.run("mkdir", "-p", str(Path(TOOL).parent))
    machine.tree.path(TOOL).write_text(_TOOL_SCRIPT.replace("TAKES", str(seconds)))
    machine.tree.path(TOOL).chmod(0o755)
    machine.run("rm", "-f", "/run/raid-tool", "/dev/raid_node")
    return lambda: machine.run("cat", "/run/raid-tool", check=False).stdout.splitlines()


@pytest.fixture(scope="module")
def sim() -> Iterator[ControllerProcess]:
    with ControllerProcess("--ilo", "5", "--drives", "4") as found:
        yield found


@pytest.fixture
def service(machine: Machine, sim: ControllerProcess) -> Iterator[Machine]:
    """The machine with a configured service that is not started yet, and with an empty trace log."""
    machine.tree.path(CONFIGURATION).write_text(
        f"[iLo]\nurl={sim.url}\ninterval=3000\n[media error]\ncheck=false\n")
    machine.run("baywardctl", "account", "set", sim.account, stdin=f"{sim.password}\n")
    machine.run("rm", "-rf", "/var/log/bayward", "/opt/smartstorageadmin")
    yield machine
    machine.run("systemctl", "stop", "bayward", check=False)  # a test may have removed it
    machine.run("systemctl", "reset-failed", "bayward", check=False)


def test_start_reports_a_drive_that_fails_to_the_journal(service: Machine, sim: ControllerProcess) -> None:
    service.run("systemctl", "enable", "--now", "bayward")
    assert service.run("systemctl", "is-enabled", "bayward").stdout.strip() == "enabled"
    _wait_baseline(service, sim)
    sim.control.call("fail-drive", 1, 2)
    _wait(lambda: "[EV]" in _trace(service), "event", 30, service)
    said = service.run("journalctl", "-o", "cat", "-t", "bayward", "-p", "err").stdout
    assert "1I:1:2" in said or "Bay" in said, said
    # Made by systemd, as the service does not create it, and root's alone.
    assert service.run("stat", "-c", "%a %U", "/var/log/bayward").stdout.strip() == "750 root"


def test_stop_ends_the_session_and_counts_as_success(service: Machine, sim: ControllerProcess) -> None:
    service.run("systemctl", "start", "bayward")
    _wait_baseline(service, sim)
    service.run("systemctl", "stop", "bayward")
    assert "Receive signal 2" in _trace(service)
    assert "Join thread for Serial log." in _trace(service)
    assert (service.property("ActiveState"), service.property("Result")) == ("inactive", "success")
    assert sim.control.call("counters")["open_sessions"] == 0


def test_crash_starts_the_service_again(service: Machine) -> None:
    service.run("systemctl", "start", "bayward")
    first = service.property("MainPID")
    service.run("systemctl", "kill", "--signal=SEGV", "bayward")
    _wait(lambda: service.property("NRestarts") == "1" and service.property("ActiveState") == "active",
          "second start", 30, service)
    assert service.property("MainPID") not in ("0", first)


def test_crashes_never_end_the_watch(service: Machine) -> None:
    service.run("systemctl", "start", "bayward")
    for crash in range(1, 8):
        service.run("systemctl", "kill", "--signal=SEGV", "bayward")
        _wait(lambda: service.property("NRestarts") == str(crash) and service.property("ActiveState") == "active",
              f"start after crash {crash}", 30, service)


def test_administrator_may_restart_as_often_as_it_takes(service: Machine) -> None:
    for _ in range(7):
        service.run("systemctl", "restart", "bayward")
    assert service.property("ActiveState") == "active"


@pytest.mark.parametrize("signal", ["INT", "TERM"])  # ends with status 0, is killed
def test_end_that_nobody_asked_for_starts_the_service_again(service: Machine, signal: str) -> None:
    service.run("systemctl", "start", "bayward")
    _wait(lambda: "Start cyclic serial log saving." in _trace(service), "running service", 30, service)
    service.run("systemctl", "kill", "--kill-who=main", f"--signal={signal}", "bayward")
    _wait(lambda: service.property("NRestarts") == "1" and service.property("ActiveState") == "active",
          "second start", 30, service)


def test_hardening_leaves_the_tools_what_they_need_and_stop_lets_a_running_one_finish(service: Machine) -> None:
    said = _install_tool(service, 8)
    service.run("systemctl", "start", "bayward")
    _wait(lambda: "seconds: 8" in said(), "running tool", 30, service)
    assert "finished" not in said()
    begun = time.monotonic()
    service.run("systemctl", "stop", "bayward")
    # The tool's end and the fixed pause of 30 seconds.
    assert 30 < time.monotonic() - begun < 60
    assert service.property("Result") == "success"
    assert "Join thread for Media Error." in _trace(service)
    assert said()[0] == "working folder is /opt/tarn/bayward/bin"
    assert "finished" in said()
    assert {line for line in said() if line.endswith(("allowed", "refused"))} == {
        *(f"{what}: allowed" for what in _NEEDED), *(f"{what}: refused" for what in _NOT_NEEDED)}
    # The service removes at its end what the tools have left.
    assert service.run("ls", "/opt/tarn/bayward/bin/storcli_show_all.log", check=False).returncode != 0


def test_stop_cuts_off_a_tool_that_hangs_and_still_ends_the_session(service: Machine, sim: ControllerProcess) -> None:
    said = _install_tool(service, 600)
    with _setting(service, "TimeoutStopSec=5s"):
        service.run("systemctl", "start", "bayward")
        _wait_baseline(service, sim)
        _wait(lambda: "seconds: 600" in said(), "running tool", 60, service)
        assert sim.control.call("counters")["open_sessions"] == 1
        service.run("systemctl", "stop", "bayward")
        assert service.property("Result") == "timeout"
        assert sim.control.call("counters")["open_sessions"] == 0
        assert service.run("pgrep", "-f", TOOL, check=False).stdout == ""
        # The administrator's next start is an ordinary one.
        service.run("systemctl", "start", "bayward")
        assert service.property("ActiveState") == "active"


def test_stop_right_after_a_start_is_not_lost(service: Machine) -> None:
    # A service whose first moments take longer than usual.
    with _setting(service, "ExecStart=", f"ExecStart=/bin/sh -c 'sleep 1; exec {PROGRAM} --stand-alone'"):
        service.run("systemctl", "start", "bayward")
        service.run("systemctl", "stop", "bayward")
    assert "Receive StopEvent." in _trace(service)
    assert service.property("Result") == "success"


def test_tool_that_is_installed_while_the_service_runs_may_write_beside_its_program(service: Machine) -> None:
    service.run("systemctl", "start", "bayward")
    service.run("mkdir", "-p", str(Path(TOOL).parent))
    service.run("nsenter", "--mount", "--target", service.property("MainPID"), "touch", f"{TOOL}.lock")


def test_authorities_in_a_home_folder_that_only_its_owner_may_enter_are_read(service: Machine,
                                                                              sim: ControllerProcess) -> None:
    home = service.tree.path("/home/admin")
    home.mkdir()
    (home / "ca.pem").write_text(Path(sim.ca).read_text())
    service.run("chown", "-R", "1000:1000", "/home/admin")
    service.run("chmod", "0700", "/home/admin")
    service.run("chmod", "0600", "/home/admin/ca.pem")
    configuration = service.tree.path(CONFIGURATION)
    configuration.write_text(configuration.read_text().replace("[iLo]\n", "[iLo]\nca file=/home/admin/ca.pem\n"))
    service.run("systemctl", "start", "bayward")
    _wait_baseline(service, sim)
    assert "CA file" not in _trace(service)


@pytest.mark.parametrize("path, reason", [
    ("/etc/default/locale", "The file that the language is read from does not exist"),
    (CONFIGURATION, f"The configuration {CONFIGURATION} does not exist"),
    (PROGRAM, "No such file or directory"),
])
def test_start_without_what_it_needs_fails_with_a_reason(service: Machine, path: str, reason: str) -> None:
    service.run("mv", path, "/root/aside")
    try:
        assert service.run("systemctl", "start", "bayward", check=False).returncode != 0
        assert "bayward.service" in service.run("systemctl", "--failed", "--no-legend").stdout
        assert reason in service.run("systemctl", "status", "--full", "--no-pager", "bayward", check=False).stdout
    finally:
        service.run("mv", "/root/aside", path)
    service.run("systemctl", "start", "bayward")
    assert service.property("ActiveState") == "active"


def test_events_find_the_log_daemon_running_from_the_first_to_the_last(service: Machine) -> None:
    assert {"syslog.service", "rsyslog.service", "syslog-ng.service", "syslog.socket"} <= set(
        service.property("After").split())


def test_systemd_finds_no_fault_in_the_unit(service: Machine) -> None:
    verified = service.run("systemd-analyze", "verify", "--man=no", "bayward.service", check=False)
    assert (verified.returncode, verified.stdout + verified.stderr) == (0, "")


def test_upgrade_restarts_a_running_service_and_leaves_a_stopped_one(service: Machine,
                                                                      newer: Callable[..., Path]) -> None:
    package = newer()
    service.tree.path("/var/tmp/newer.deb").write_bytes(package.read_bytes())
    install = ("dpkg", "--install", "/var/tmp/newer.deb")
    service.run(*install)
    assert service.property("ActiveState") == "inactive"
    service.run("systemctl", "start", "bayward")
    first = service.property("MainPID")
    service.run(*install)
    assert service.property("ActiveState") == "active"
    assert service.property("MainPID") not in ("0", first)


@pytest.fixture
def scripts(service: Machine, deb: Path) -> str:
    """The maintainer scripts, in a folder of the machine."""
    folder = service.tree.path("/var/tmp/control")
    shutil.rmtree(folder, ignore_errors=True)
    subprocess.run(["dpkg-deb", "--control", str(deb), str(folder)], check=True)
    return "/var/tmp/control"


def test_removal_that_is_given_up_leaves_the_service_as_it_was(service: Machine, scripts: str) -> None:
    for state in ("inactive", "active"):
        assert service.property("ActiveState") == state
        service.run("sh", f"{scripts}/prerm", "remove")
        assert service.property("ActiveState") == "inactive"
        service.run("sh", f"{scripts}/postinst", "abort-remove")
        assert service.property("ActiveState") == state
        service.run("systemctl", "start", "bayward")


def test_package_that_comes_back_starts_what_ran_and_names_what_does_not(service: Machine, deb: Path) -> None:
    service.tree.path("/var/tmp/again.deb").write_bytes(deb.read_bytes())
    install = ("dpkg", "--force-downgrade", "--install", "/var/tmp/again.deb")
    service.run("systemctl", "enable", "--now", "bayward")
    service.run("dpkg", "--remove", "bayward")
    assert "does not run" not in service.run(*install).stdout
    assert service.property("ActiveState") == "active"

    service.run("systemctl", "stop", "bayward")
    service.run("dpkg", "--remove", "bayward")
    assert "systemctl start bayward" in service.run(*install).stdout
    assert (service.property("ActiveState"), service.property("UnitFileState")) == ("inactive", "enabled")
    service.run("systemctl", "disable", "bayward")


def test_purge_stops_the_service_and_leaves_nothing(service: Machine) -> None:
    service.run("systemctl", "enable", "--now", "bayward")
    service.run("dpkg", "--purge", "bayward")
    assert service.property("ActiveState") == "inactive"
    assert service.run("pgrep", "-x", "bayward", check=False).stdout == ""
    for path in ("/opt/tarn", "/etc/opt/tarn", "/var/log/bayward", "/etc/.TARNiLO0",
                 "/etc/systemd/system/multi-user.target.wants/bayward.service"):
        assert service.run("ls", "-d", path, check=False).returncode != 0, path
