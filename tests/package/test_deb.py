"""The Debian package in a clean tree without a running systemd."""

from __future__ import annotations

import os
import re
import signal
import stat
import subprocess
from pathlib import Path
from typing import Callable

import pytest
from cleantree import NEWER, ROOT, Tree

CONFIGURATION = "/etc/opt/tarn/bayward/bayward.conf"
LOGS = "/var/log/bayward"
TRACE = LOGS + "/bayward.log"
RUNTIME = "/opt/tarn/bayward/bin"
# What a package below /opt cannot do without, and what is meant that way: only root reads logs and configuration.
_LINTIAN_MEANT = {"dir-or-file-in-opt", "dir-or-file-in-etc-opt", "non-standard-dir-perm", "non-standard-file-perm"}


def _mode(tree: Tree, path: str) -> int:
    return stat.S_IMODE(tree.path(path).stat().st_mode)


def test_lintian_finds_only_what_a_package_below_opt_cannot_avoid(deb: Path) -> None:
    said = subprocess.run(["lintian", "--allow-root", "--fail-on", "none", str(deb)], capture_output=True, text=True,
                          check=True).stdout
    found = {line.split()[2] for line in said.splitlines() if line.startswith(("E:", "W:"))}
    assert "dir-or-file-in-opt" in found  # it has looked
    assert found <= _LINTIAN_MEANT


def test_changelog_is_that_of_the_version(deb: Path) -> None:
    changelog = ROOT / "packaging/changelog"
    newest = re.match(r"bayward \(([^)]*)\)", changelog.read_text())
    version = subprocess.run(["dpkg-deb", "-f", str(deb), "Version"], capture_output=True, text=True, check=True).stdout
    assert newest is not None and newest[1] == version.strip()


def test_installation_brings_everything_and_starts_nothing(installed: Tree) -> None:
    for name in ("bayward", "baywardctl"):
        assert os.access(installed.path(f"{RUNTIME}/{name}"), os.X_OK)
    assert {path.name for path in installed.path(RUNTIME).glob("*.py")} == {
        path.name for path in (ROOT / "ilorest/module").glob("*.py")}
    assert installed.path(f"{RUNTIME}/bayward.msg").exists()
    assert _mode(installed, CONFIGURATION) == 0o600
    assert _mode(installed, LOGS) == 0o750
    assert list(installed.path(LOGS).iterdir()) == []
    assert not list(installed.path("/etc/systemd/system").rglob("bayward.service"))
    assert "baywardctl account set" in installed.said
    assert "systemctl enable --now bayward" in installed.said


def test_installation_without_a_locale_file_says_what_to_do(installed: Tree) -> None:
    assert not installed.path("/etc/default/locale").exists() and not installed.path("/etc/locale.conf").exists()
    assert "echo LANG=C.UTF-8 >/etc/default/locale" in installed.said


def test_every_library_is_among_the_dependencies(tree: Tree) -> None:
    for name in ("bayward", "baywardctl"):
        libraries = tree.run("ldd", f"{RUNTIME}/{name}").stdout
        assert "libpython3" in libraries and "not found" not in libraries
    for program in ("dmidecode", "ip", "unzip"):
        tree.run("sh", "-c", f"command -v {program}")


def test_baywardctl_is_on_the_path(tree: Tree) -> None:
    assert tree.run("baywardctl", "--version").stdout.startswith("baywardctl ")


def test_manual_pages_are_found(tree: Tree) -> None:
    manuals = list((ROOT / "share/man").glob("*.[1-8]"))
    assert manuals
    # The smallest Debian system leaves manual pages out when it unpacks packages; the package has them.
    listed = tree.run("dpkg", "-L", "bayward").stdout.splitlines()
    for manual in manuals:
        assert f"/usr/share/man/man{manual.suffix[1:]}/{manual.name}.gz" in listed


def test_service_runs_stand_alone_and_stops_on_sigint(tree: Tree) -> None:
    tree.path("/etc/default/locale").write_text("LANG=C.UTF-8\n")
    # A port where nothing listens: the log-in fails at once, as an error other than wrong credentials.
    configuration = tree.path(CONFIGURATION)
    configuration.write_text(configuration.read_text().replace("url=", "url=https://127.0.0.1:9")
                             .replace("#check=true", "check=false"))
    service = subprocess.Popen(tree.command("timeout", "--signal=INT", "--preserve-status", "4",
                                            f"{RUNTIME}/bayward", "--stand-alone"), stdin=subprocess.DEVNULL)
    assert service.wait(60) == 0
    trace = tree.path(TRACE).read_text()
    for line in ("Initialize succeeded.", "PrepareMessage succeeded.", "Create thread for OS log.",
                 f"Receive signal {signal.SIGINT:d}", "Join thread for OS log.", "Join thread for Serial log."):
        assert line in trace, trace
    assert "[ER]" not in trace, trace


def test_embedded_interpreter_finds_its_library_without_a_python_program(tree: Tree) -> None:
    tree.path("/usr/sbin/dmidecode").write_text((ROOT / "sim/bin/dmidecode").read_text())
    assert tree.run("sh", "-c", "command -v python3", check=False).returncode != 0
    tree.path(CONFIGURATION).write_text("[iLo]\nurl=https://127.0.0.1:9\n")
    tree.run("baywardctl", "account", "set", "monitor", stdin="secret\n")
    refused = tree.run("baywardctl", "account", "check", "--login", check=False)
    # It came as far as the network.
    assert refused.returncode == 1 and "Connection refused" in refused.stdout + refused.stderr


def test_upgrade_keeps_the_edited_configuration(tree: Tree, newer: Callable[..., Path]) -> None:
    configuration = tree.path(CONFIGURATION)
    edited = configuration.read_text().replace("url=", "url=https://192.0.2.7")
    configuration.write_text(edited)
    tree.path(TRACE).write_text("a line\n")
    tree.install(newer())
    known = tree.run("dpkg-query", "-W", "-f", "${Version} ${db:Status-Status}", "bayward").stdout
    assert known == f"{NEWER} installed"
    assert configuration.read_text() == edited
    assert _mode(tree, CONFIGURATION) == 0o600
    assert tree.path(TRACE).read_text() == "a line\n"


def test_upgrade_to_another_sample_keeps_the_edited_configuration(tree: Tree, newer: Callable[..., Path]) -> None:
    configuration = tree.path(CONFIGURATION)
    configuration.write_text("[iLo]\nurl=https://192.0.2.7\n")
    tree.install(newer("# another sample\n"), options=["-o", "Dpkg::Options::=--force-confold"])
    assert configuration.read_text() == "[iLo]\nurl=https://192.0.2.7\n"
    assert tree.path(CONFIGURATION + ".dpkg-dist").read_text() == "# another sample\n"


def test_removal_leaves_configuration_logs_and_account_and_purge_takes_them(tree: Tree) -> None:
    account = [tree.path(f"/etc/.TARNiLO{record}") for record in (0, 1)]
    archive = tree.path(LOGS + "/serial_log_20240131_235959.zip")
    for path in (*account, archive, tree.path(TRACE)):
        path.write_text("x")
    (tree.path(RUNTIME) / "ADUReport").mkdir()
    (tree.path(RUNTIME) / "ADUReport/ADUReport.txt").write_text("left by a killed run")
    (tree.path(RUNTIME) / "storcli_show_all.log").write_text("left by a killed run")

    tree.run("apt-get", "remove", "-y", "bayward")
    assert not tree.path("/opt/tarn").exists()
    assert tree.path(CONFIGURATION).exists()
    assert all(path.exists() for path in (*account, archive, tree.path(TRACE)))

    tree.run("apt-get", "purge", "-y", "bayward")
    assert not tree.path("/etc/opt/tarn").exists()
    assert not tree.path(LOGS).exists()
    assert not any(path.exists() for path in account)
    assert tree.run("dpkg-query", "-W", "bayward", check=False).returncode != 0


def test_maintainer_scripts_may_run_again(tree: Tree, deb: Path) -> None:
    subprocess.run(["dpkg-deb", "--control", str(deb), str(tree.path("/var/tmp/control"))], check=True)
    for _ in range(2):
        tree.run("sh", "/var/tmp/control/postinst", "configure", "1.0")
        tree.run("sh", "/var/tmp/control/postinst", "abort-remove")
        tree.run("sh", "/var/tmp/control/prerm", "remove")
    tree.run("dpkg", "--remove", "bayward")
    for _ in range(2):
        tree.run("sh", "/var/tmp/control/postrm", "remove")
        tree.run("sh", "/var/tmp/control/postrm", "purge")


# What runs until the script has ended, as it was started by hand, and the last line of its trace.
@pytest.mark.parametrize("option, last", [("", "Service stopped."), ("--stand-alone", "Join thread for Serial log.")])
def test_removal_ends_what_was_started_by_hand(tree: Tree, option: str, last: str) -> None:
    tree.path("/etc/default/locale").write_text("LANG=C.UTF-8\n")
    tree.path(CONFIGURATION).write_text("[iLo]\nurl=https://127.0.0.1:9\n[media error]\ncheck=false\n")
    # Not our child, or it would stay as a zombie.
    removed = tree.run("sh", "-ec", f"""
        setsid --fork {RUNTIME}/bayward {option} >/dev/null 2>&1
        for second in $(seq 30); do grep -qs 'Start cyclic serial log saving.' {TRACE} && break; sleep 1; done
        tail -n 1 {TRACE}
        dpkg --remove bayward
        for exe in /proc/[0-9]*/exe; do readlink "$exe" || true; done""")
    assert "Start cyclic serial log saving." in tree.path(TRACE).read_text()
    assert f"{RUNTIME}/bayward" not in removed.stdout.split("Removing bayward")[1]
    assert last in tree.path(TRACE).read_text()


def test_maintainer_scripts_are_plain_shell(tree: Tree, deb: Path, rpm: Path) -> None:
    control = tree.path("/var/tmp/control")
    subprocess.run(["dpkg-deb", "--control", str(deb), str(control)], check=True)
    for name in ("POSTIN", "PREUN", "POSTUN"):
        (control / name).write_text(subprocess.run(["rpm", "-qp", "--queryformat", f"%{{{name}}}", str(rpm)],
                                                   capture_output=True, text=True, check=True).stdout)
    for name in ("postinst", "prerm", "postrm", "POSTIN", "PREUN", "POSTUN"):
        script = control / name
        assert script.read_text().strip()
        subprocess.run(["dash", "-n", str(script)], check=True)
