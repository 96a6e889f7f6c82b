"""The unit file, by systemd's own tools."""

from __future__ import annotations

import json
import re
import subprocess
from pathlib import Path

from cleantree import ROOT, Tree

UNIT = ROOT / "share/bayward.service"
_MOST_EXPOSURE = 3.0


def test_exposure_is_low() -> None:
    said = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", str(UNIT)],
                          capture_output=True, text=True, check=True).stdout
    exposure = re.search(r"Overall exposure level for bayward\.service: ([0-9.]+)", said)
    assert exposure is not None, said
    assert float(exposure[1]) <= _MOST_EXPOSURE, said


def test_every_protection_that_is_left_out_is_explained() -> None:
    said = subprocess.run(["systemd-analyze", "security", "--offline=true", "--json=short", str(UNIT)],
                          capture_output=True, text=True, check=True).stdout
    left_out = {re.split("[=/]", found["name"])[0] + "=" for found in json.loads(said) if found["set"] is False}
    assert "PrivateDevices=" in left_out  # it has looked
    assert {name for name in left_out if name not in UNIT.read_text()} == set()


def test_a_crash_leaves_no_password_on_the_disk() -> None:
    assert re.findall(r"^LimitCORE=(.*)$", UNIT.read_text(), re.MULTILINE) == ["0"]


def test_systemd_finds_no_fault(installed: Tree, tmp_path: Path) -> None:
    # The program where it lies here; the manual pages are looked for on this machine, which has none of them.
    unit = tmp_path / UNIT.name
    unit.write_text(UNIT.read_text().replace("=/opt/tarn", f"={installed.folder}/opt/tarn"))
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", str(unit)], capture_output=True, text=True,
                          check=False)
    assert (done.returncode, done.stdout + done.stderr) == (0, "")


def test_manual_pages_that_the_unit_names_exist() -> None:
    named = re.findall(r"man:([a-z.]+)\((\d)\)", UNIT.read_text())
    assert len(named) == 3
    for name, section in named:
        assert (UNIT.parent / "man" / f"{name}.{section}").exists(), f"{name}({section})"
