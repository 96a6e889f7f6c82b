"""Bash completion of baywardctl against what its help texts list."""

from __future__ import annotations

import os
import re
import subprocess
from pathlib import Path
from typing import Iterator, List, Set, Tuple

import pytest
from cleantree import ROOT, Tree

_SCRIPT = ROOT / "share/completions/baywardctl"
_COMPLETE = 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _baywardctl; printf "%s\\n" "${COMPREPLY[@]}"'


class Tool:
    """baywardctl as installed, and its completion."""

    def __init__(self, folder: Path) -> None:
        self._environment = {**os.environ, "PATH": f"{folder}:{os.environ['PATH']}"}

    def help(self, path: Tuple[str, ...]) -> str:
        return subprocess.run(["baywardctl", *path, "--help"], env=self._environment, capture_output=True, text=True,
                              check=True).stdout

    def listed(self, path: Tuple[str, ...], title: str) -> List[str]:
        """The lines of one section of a help text."""
        section = re.search(rf"^{title}:\n((?:^ .*\n)*)", self.help(path), re.MULTILINE)
        return re.findall(r"^  (\S.*)$", section[1], re.MULTILINE) if section else []

    def levels(self, path: Tuple[str, ...] = ()) -> Iterator[Tuple[str, ...]]:
        yield path
        for line in self.listed(path, "Subcommands"):
            yield from self.levels((*path, line.split()[0]))

    def complete(self, *words: str, folder: "Path | None" = None) -> Set[str]:
        done = subprocess.run(["bash", "--norc", "-c", _COMPLETE, str(_SCRIPT), "baywardctl", *words], cwd=folder,
                              env=self._environment, capture_output=True, text=True, check=True)
        return set(done.stdout.split())


@pytest.fixture(scope="module")
def tool(installed: Tree) -> Tool:
    return Tool(installed.path("/opt/tarn/bayward/bin"))


def test_every_level_offers_the_commands_that_its_help_lists(tool: Tool) -> None:
    levels = list(tool.levels())
    assert {(), ("account",), ("account", "set"), ("config", "show")} <= set(levels)
    for path in levels:
        assert tool.complete(*path, "") >= {line.split()[0] for line in tool.listed(path, "Subcommands")}, path


def test_every_level_offers_the_options_that_its_help_lists(tool: Tool) -> None:
    for path in tool.levels():
        listed = {name for line in tool.listed(path, "Options") for name in line.split()[0].split(",")}
        assert {"-h", "--help"} <= listed
        assert tool.complete(*path, "-") == listed, path


def test_every_option_with_a_list_of_values_offers_them(tool: Tool) -> None:
    seen = 0
    for path in tool.levels():
        for line in tool.listed(path, "Options"):
            listed = re.match(r"(\S+) \w+:\{([^}]*)\}", line)
            if listed:
                seen += 1
                option = listed[1].split(",")[-1]
                values = set(listed[2].split(","))
                assert tool.complete(*path, option, "") == values, (path, option)
                assert tool.complete(*path, option, "=", "") == values, (path, option)
                assert tool.complete(*path, option, "=") == values, (path, option)
    assert seen > 0


def test_begun_word_is_completed(tool: Tool) -> None:
    assert tool.complete("acc") == {"account"}
    assert tool.complete("config", "show", "--form") == {"--format"}
    assert tool.complete("config", "show", "--format", "j") == {"json"}
    assert tool.complete("config", "show", "--format", "=", "j") == {"json"}
    assert tool.complete("account", "unknown") == set()


def test_option_before_the_word_does_not_hide_the_command(tool: Tool) -> None:
    assert "--format" in tool.complete("config", "show", "--format", "json", "--f")


def test_file_is_completed_where_one_is_wanted(tool: Tool, tmp_path: Path) -> None:
    (tmp_path / "some.conf").touch()
    assert tool.complete("config", "check", "so", folder=tmp_path) == {"some.conf"}
    assert tool.complete("account", "set", "so", folder=tmp_path) == set()


def test_output_file_is_completed(tool: Tool, tmp_path: Path) -> None:
    (tmp_path / "some.prom").touch()
    seen = 0
    for path in tool.levels():
        for line in tool.listed(path, "Options"):
            if re.match(r"\S*--output FILE\b", line):
                seen += 1
                assert tool.complete(*path, "--output", "so", folder=tmp_path) == {"some.prom"}
    assert seen > 0


def test_script_says_nothing_where_the_tool_is_missing(tmp_path: Path) -> None:
    done = subprocess.run(["/bin/bash", "--norc", "-c", _COMPLETE, str(_SCRIPT), "baywardctl", ""],
                          env={"PATH": str(tmp_path)}, capture_output=True, text=True, check=False)
    assert (done.stdout.strip(), done.stderr) == ("", "")


def test_bash_completion_loads_it(tree: Tree) -> None:
    """Where the package bash-completion looks for it, under the name of the command."""
    script = "/usr/share/bash-completion/completions/baywardctl"
    assert tree.path(script).read_text() == _SCRIPT.read_text()
    assert "-F _baywardctl baywardctl" in tree.run("bash", "-c", f"source {script}; complete -p").stdout
