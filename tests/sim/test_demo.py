"""The demonstration: what it prints, what it makes of what came, and that Ctrl+C leaves nothing behind."""

import io
import os
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import Iterator, List, Tuple

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "sim"))

import simhost  # noqa: E402
from simdemo.feed import Catalogue  # noqa: E402
from simdemo.outcome import MISSING, OK, Outcomes  # noqa: E402
from simdemo.screen import Screen, width_of, wrap  # noqa: E402

DEMO = ROOT / "sim/demo.py"
BIN = Path(os.environ.get("BAYWARD_BIN", ROOT / "build/release/bin"))

WATCHED = """\
server --ilo 5 --drives 4 --volumes 1
configure iLo interval 3000
scene A drive fails
wait-for "Start to monitor." in trace within 60
pause 5
sim fail-drive 1 1
"""


class TestWrap:
    def test_text_that_fits_stays_one_line(self) -> None:
        assert wrap("exactly", 7) == ["exactly"]

    def test_empty_text_is_one_empty_line(self) -> None:
        assert wrap("", 10) == [""]

    def test_long_text_breaks_at_blanks(self) -> None:
        assert wrap("a drive has failed", 9) == ["a drive", "has", "failed"]

    def test_word_longer_than_the_line_breaks_inside(self) -> None:
        assert wrap("abcdefgh", 3) == ["abc", "def", "gh"]

    def test_japanese_breaks_anywhere_and_counts_two_columns_a_character(self) -> None:
        text = "物理ドライブが故障しました"
        lines = wrap(text, 9)
        assert "".join(lines) == text
        assert all(width_of(line) <= 9 for line in lines) and width_of(lines[0]) == 8

    def test_no_character_but_blanks_at_breaks_is_lost(self) -> None:
        text = "CTRL(one two) PD(1I:1:4) Model: EG001200 Serial Number: S0003 更新"
        for columns in range(4, 60):
            lines = wrap(text, columns)
            assert "".join(lines).replace(" ", "") == text.replace(" ", ""), columns
            assert all(width_of(line) <= columns for line in lines), columns


class TestScreen:
    def test_output_into_a_file_has_neither_colours_nor_line_breaks_inside_a_message(self) -> None:
        stream = io.StringIO()
        screen = Screen(stream, colour=True)
        screen.entry("ERROR", "word " * 60 + "end", "31", "31")
        screen.waiting("something")
        screen.clear_waiting()
        assert "\033" not in stream.getvalue() and "\r" not in stream.getvalue()
        assert stream.getvalue().count("\n") == 1


class TestOutcomes:
    def test_nothing_settled_does_not_agree(self) -> None:
        assert not Outcomes().agree

    def test_one_row_that_is_not_ok_spoils_all(self) -> None:
        outcomes = Outcomes()
        outcomes.add("0xC0008151", "after 1 s", OK)
        assert outcomes.agree
        outcomes.add("0x80008152", "", MISSING)
        assert not outcomes.agree


def test_catalogue_tells_the_messages_of_its_language_apart() -> None:
    catalogue = Catalogue(ROOT / "share/bayward.msg", "default")
    assert catalogue.fits(0xC0008151, "A physical drive has failed: CTRL(x) PD(1I:1:1)")
    assert not catalogue.fits(0x80008152, "A physical drive has failed: CTRL(x) PD(1I:1:1)")
    assert not catalogue.opens_message("Replace the drive now; data is at risk until its array is rebuilt.")
    assert Catalogue(ROOT / "share/bayward.msg", "ja_JP").fits(0xC0008151, "物理ドライブが故障しました: CTRL(x)")


def test_missing_service_is_told_in_one_sentence(tmp_path: Path) -> None:
    answer = subprocess.run([str(DEMO), "--bin", str(tmp_path)], capture_output=True, text=True, check=False)
    assert (answer.returncode, answer.stdout) == (1, "")
    assert answer.stderr == f"demo: {tmp_path} holds no bayward; build it with ./run build.\n"


def test_broken_scenario_is_wrong_use(tmp_path: Path) -> None:
    (tmp_path / "x").write_text("jump 3\n", encoding="utf-8")
    answer = subprocess.run([str(DEMO), "--scenario", str(tmp_path / "x")], capture_output=True, text=True, check=False)
    assert answer.returncode == 2 and f"{tmp_path / 'x'}:1: jump" in answer.stderr


class TestWithTheService:
    """Whole runs, side by side because each waits for the service's start most of its time."""

    @pytest.fixture(autouse=True)
    def possible(self) -> None:
        reason = simhost.missing()
        if reason is None and not (BIN / "bayward").exists():
            reason = f"{BIN} holds no service; build it with ./run build."
        if reason is not None:
            if os.environ.get("CI") == "true":
                pytest.fail(reason)
            pytest.skip(reason)

    @pytest.fixture
    def short(self) -> Iterator[Path]:
        """A folder whose path leaves room for the name of a socket."""
        with tempfile.TemporaryDirectory(prefix="demo-") as folder:
            yield Path(folder)

    @pytest.fixture
    def players(self) -> Iterator[List["subprocess.Popen[str]"]]:
        started: List["subprocess.Popen[str]"] = []
        yield started
        for player in started:
            player.kill()
            player.communicate()

    @staticmethod
    def start(folder: Path, scenario: str, *options: str) -> "subprocess.Popen[str]":
        folder.mkdir()
        (folder / "scenario").write_text(scenario, encoding="utf-8")
        return subprocess.Popen([str(DEMO), "--bin", str(BIN), "--scenario", str(folder / "scenario"), *options],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8", start_new_session=True,
                                env={**os.environ, "TMPDIR": str(folder), "PYTHONIOENCODING": "utf-8"})

    @staticmethod
    def end(player: "subprocess.Popen[str]") -> Tuple[int, str, str]:
        out, err = player.communicate(timeout=120)
        return player.returncode, out, err

    def test_exit_status_tells_whether_everything_came_and_nothing_else(
            self, short: Path, players: List["subprocess.Popen[str]"]) -> None:
        expected = 'expect event 0xC0008151 containing "1I:1:1" within 20\n'
        players += [self.start(short / "good", WATCHED + expected),
                    self.start(short / "japanese", WATCHED + expected, "--ja"),
                    self.start(short / "unexpected", WATCHED + "pause 5\n"),
                    self.start(short / "missing", WATCHED + expected + "expect event 0xC00081B7 within 1\n")]
        good, japanese, unexpected, missing = [self.end(player) for player in players]
        assert good[0] == 0, good
        assert "A physical drive has failed: " in good[1] and "3 of 3 as expected" in good[1]
        assert japanese[0] == 0, japanese
        assert "物理ドライブが故障しました" in japanese[1]
        assert unexpected[0] == 1 and "unexpected" in unexpected[1], unexpected
        assert missing[0] == 1 and "0xC00081B7 logical drive offline" in missing[1], missing

    def test_restarted_service_runs_faster_with_what_was_added_to_its_configuration(
            self, short: Path, players: List["subprocess.Popen[str]"]) -> None:
        players.append(self.start(short / "run", """\
server --ilo 5 --drives 2
configure iLo interval 3600000
wait-for "Start to monitor." in trace within 60
place "/var/log/bayward/old{}.zip" 2
expect 2 files "/var/log/bayward/old*.zip" within 2
expect 1 files "/var/log/bayward/old*.zip" within 0.2
restart faster 20 with iLo interval 3000 with "media error" check true
wait-for "Create thread for Media Error." in trace within 20
wait-for "Start to monitor." in trace within 20
pause 1
sim fail-drive 1 1
expect event 0xC0008151 within 20
"""))
        status, out, err = self.end(players[0])
        assert "The service is stopped and started anew, its clock 20 times as fast." in out, (out, err)
        assert "1 files old*.zip" in out and "wrong" in out and "7 of 8 as expected" in out, out
        assert status == 1

    @pytest.mark.parametrize("seconds", [0.3, 1.0, 3.0])
    def test_interrupt_leaves_no_process_no_mount_and_no_file(
            self, short: Path, players: List["subprocess.Popen[str]"], seconds: float) -> None:
        folder = short / "run"
        mounts = Path("/proc/self/mountinfo").read_text(encoding="utf-8")
        players.append(self.start(folder, WATCHED))
        time.sleep(seconds)
        os.killpg(players[0].pid, signal.SIGINT)
        status, _, err = self.end(players[0])
        assert (status, err) == (130, "demo: stopped; nothing is left behind.\n")
        assert [entry.name for entry in folder.iterdir()] == ["scenario"]
        assert Path("/proc/self/mountinfo").read_text(encoding="utf-8") == mounts
        for entry in filter(str.isdigit, os.listdir("/proc")):
            try:
                assert os.fsencode(folder) not in Path(f"/proc/{entry}/cmdline").read_bytes()
            except OSError:
                continue
