"""The RPM package, by what rpm reads in it."""

from __future__ import annotations

import stat
import subprocess
from pathlib import Path
from typing import Dict, List

import pytest
from cleantree import Tree

CONFIGURATION = "/etc/opt/tarn/bayward/bayward.conf"


def _query(rpm: Path, *options: str) -> List[str]:
    done = subprocess.run(["rpm", "-qp", *options, str(rpm)], capture_output=True, text=True, check=True)
    return done.stdout.splitlines()


def _unpack_script(rpm: Path, name: str, tree: Tree) -> str:
    """A script of the package, as a file in the tree."""
    inner = f"/var/tmp/{name}"
    tree.path(inner).write_text("\n".join(_query(rpm, "--queryformat", f"%{{{name}}}")) + "\n")
    return inner


@pytest.fixture(scope="module")
def files(rpm: Path) -> Dict[str, int]:
    """Path -> mode, with the kind of file."""
    lines = _query(rpm, "--queryformat", "[%{FILENAMES} %{FILEMODES} %{FILEUSERNAME}:%{FILEGROUPNAME}\\n]")
    assert all(line.endswith(" root:root") for line in lines)
    return {path: int(mode) & 0xFFFF for path, mode, _ in (line.split() for line in lines)}


def test_files_are_those_of_the_debian_package(files: Dict[str, int], deb: Path) -> None:
    listed = subprocess.run(["dpkg-deb", "-c", str(deb)], capture_output=True, text=True, check=True).stdout
    in_deb = {line.split()[5][1:] for line in listed.splitlines() if not line.startswith("d")}
    assert {path for path, mode in files.items() if not stat.S_ISDIR(mode)} == in_deb
    assert "/opt/tarn/bayward/bin/baywardilorest.py" in in_deb


def test_configuration_and_logs_are_roots_alone(files: Dict[str, int]) -> None:
    assert stat.filemode(files[CONFIGURATION]) == "-rw-------"
    assert stat.filemode(files["/var/log/bayward"]) == "drwxr-x---"


def test_folders_of_the_system_are_not_owned(files: Dict[str, int]) -> None:
    folders = {path for path, mode in files.items() if stat.S_ISDIR(mode)}
    assert folders == {"/opt/tarn", "/opt/tarn/bayward", "/opt/tarn/bayward/bin", "/etc/opt/tarn",
                       "/etc/opt/tarn/bayward", "/var/log/bayward", "/usr/share/doc/bayward"}


def test_only_the_configuration_is_one_and_an_edited_one_stays(rpm: Path) -> None:
    assert _query(rpm, "--configfiles") == [CONFIGURATION]
    flags = _query(rpm, "--queryformat", "[%{FILENAMES} %{FILEFLAGS:fflags}\\n]")
    assert f"{CONFIGURATION} cn" in flags  # c: configuration, n: noreplace


def test_dependencies_are_named(rpm: Path) -> None:
    required = _query(rpm, "--requires")
    for name in ("dmidecode", "(iproute or iproute2)", "unzip"):
        assert name in required
    assert any(name.startswith("libpython3.") for name in required)
    assert any(name.startswith("libcrypto.so.3") for name in required)
    assert "(glibc-gconv-extra or glibc-locale)" in _query(rpm, "--recommends")


def test_scripts_neither_enable_nor_start_a_new_installation(rpm: Path) -> None:
    scripts = "\n".join(_query(rpm, "--scripts"))
    assert "preset bayward.service" in scripts and "disable bayward.service" in scripts
    assert "try-restart bayward.service" in scripts
    assert " start " not in scripts and " enable " not in scripts


def test_scripts_keep_quiet_and_may_run_again_without_a_running_systemd(rpm: Path, tree: Tree) -> None:
    for script, count in (("POSTIN", "1"), ("POSTIN", "2"), ("PREUN", "1"), ("POSTUN", "1"), ("PREUN", "0"),
                          ("PREUN", "0"), ("POSTUN", "0")):
        done = tree.run("sh", _unpack_script(rpm, script, tree), count, check=False)
        assert (done.returncode, done.stdout, done.stderr) == (0, "", ""), script


def test_removal_disables_the_unit_also_where_systemd_does_not_run(rpm: Path, tree: Tree) -> None:
    tree.run("systemctl", "enable", "bayward")
    link = tree.path("/etc/systemd/system/multi-user.target.wants/bayward.service")
    assert link.is_symlink()
    preun = _unpack_script(rpm, "PREUN", tree)
    tree.run("sh", preun, "1")
    assert link.is_symlink()  # an upgrade
    tree.run("sh", preun, "0")
    assert not link.is_symlink()


def test_removal_takes_what_the_tools_have_left(rpm: Path, tree: Tree) -> None:
    left = tree.path("/opt/tarn/bayward/bin/ADUReport.zip")
    left.write_text("x")
    preun = _unpack_script(rpm, "PREUN", tree)
    tree.run("sh", preun, "1")
    assert left.exists()  # an upgrade, whose service may be running
    tree.run("sh", preun, "0")
    assert not left.exists() and tree.path("/opt/tarn/bayward/bin/bayward").exists()
