"""Servers of every generation, as trees of their controllers' answers: what is read of them, and that it is quiet.

Each folder in trees/ holds the answers and, in table.txt, what walk-tree is to print about them.
"""

import os
import shutil
import subprocess
from pathlib import Path
from typing import Callable

import pytest
from expansion import expansion
from watched import ROOT, Watched, bin_dir, without

HERE = Path(__file__).resolve().parent
TREES = sorted(path for path in (HERE / "trees").iterdir() if path.is_dir())
CYCLES = 20

every_tree = pytest.mark.parametrize("tree", TREES, ids=lambda tree: tree.name)


def walk(*arguments: object) -> "subprocess.CompletedProcess[str]":
    env = {**os.environ, "BAYWARD_BIN": str(bin_dir()),
           "LSAN_OPTIONS": f"suppressions={ROOT / 'tests/support/lsan.supp'}:print_suppressions=0"}
    return subprocess.run([str(HERE / "walk-tree"), *map(str, arguments)], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8", timeout=120, env=env)


def test_there_are_trees() -> None:
    assert len(TREES) == 7


@every_tree
def test_tree_is_read_whole_and_without_a_failure_line(tree: Path) -> None:
    done = walk(tree)
    assert done.stderr == ""
    assert done.stdout == (tree / "table.txt").read_text(encoding="utf-8")
    assert done.returncode == 0


@every_tree
def test_healthy_server_is_silent_whatever_the_order_of_its_answers(start_sim: Callable, watch: Callable[..., Watched],
                                                                    tree: Path) -> None:
    """Lists of links come in another order each time, and every answer takes its time."""
    sim = start_sim("--tree", tree, "--shuffle", 7, "--latency-ms", 2)
    watched = watch(sim, speed=20).start()
    watched.wait_baseline()
    watched.wait_walks(CYCLES, timeout=120)
    watched.expect()
    monitored = "<VK0900> [TR] Start to monitor."
    own = watched.own_trace()
    assert without(own[own.index(monitored):], "Start cyclic") == [monitored]
    assert watched.errors() == []
    assert without(watched.trace(), "<VK0900>", "<VK0910>", " statusReasons=", " ssdEnduranceUtilizationPercentage=",
                   " mVersion=") == []
    assert watched.counters()["logins"] == 1


def test_any_controller_can_be_walked(start_sim: Callable) -> None:
    """A generated server over its URL: one Smart Array and one MR controller."""
    sim = start_sim("--ilo", 5, "--drives", 2, "--mr", 1, "--mr-drives", 2)
    done = walk(sim.url, sim.account, sim.password)
    assert (done.stderr, done.returncode) == ("", 0)
    assert "HPE Smart Array P408i-a SR Gen10" in done.stdout
    assert "HPE MR416i-o Gen11" in done.stdout
    requested = int(done.stdout.rsplit(": ", 1)[1])
    counted = sum(count for request, count in sim.control.call("counters")["requests"].items()
                  if request.startswith("GET /redfish/v1/"))
    assert requested == 19
    # Members come with their collections, where the controller expands them.
    assert (counted < requested) == (expansion().controller == "on")


def test_refused_account_is_a_failure_with_its_reason(start_sim: Callable) -> None:
    sim = start_sim()
    done = walk(sim.url, sim.account, "wrong-password")
    assert done.returncode == 1
    assert done.stdout == ""
    assert "value=InvalidCredentialsError" in done.stderr
    assert "wrong-password" not in done.stderr


def test_broken_drive_fails_the_walk_and_is_traced(tmp_path: Path) -> None:
    tree = tmp_path / "tree"
    shutil.copytree(HERE / "trees/gen11-ilo6-mr-nvme", tree)
    drive = tree / "redfish/v1/Chassis/DE00C000/Drives/1/index.json"
    drive.write_text(drive.read_text(encoding="utf-8").replace('"Model": "XX012000TEST"', '"Model": 12000'),
                     encoding="utf-8")
    done = walk(tree)
    assert done.returncode == 1
    assert "iLoRestReader.readController 7 failed.iLoRestReader.readBCMDiskDrive failed." in done.stderr
    assert "<VK0999> [TR] ilorest-reader" in done.stderr


def test_wrong_use_is_told_in_one_line(tmp_path: Path) -> None:
    for arguments in ([], ["a", "b"], [tmp_path / "absent"], [tmp_path]):
        done = walk(*arguments)
        assert done.returncode != 0
        assert done.stdout == ""
        assert done.stderr.startswith("walk-tree: ")
        assert done.stderr.count("\n") == 1
