"""The manual pages and the guides say what the programs say of themselves."""

import json
import re
import subprocess
from pathlib import Path
from typing import Any, Dict, List, NamedTuple, Set, Tuple

import pytest
from watched import ROOT, bin_dir

MAN = ROOT / "share/man"
DOCS = ROOT / "docs"
PAGES = sorted(MAN.glob("*.[1-8]"))


def ctl(*arguments: str) -> str:
    done = subprocess.run([str(bin_dir() / "baywardctl"), *arguments], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, ""), arguments
    return done.stdout


# ---- baywardctl(8) ----

class Words(NamedTuple):
    """What a command takes: options with the values they are limited to, and names of arguments."""
    options: Dict[str, Tuple[str, ...]]
    arguments: Set[str]


def helped_commands(path: Tuple[str, ...] = ()) -> Dict[str, Words]:
    """Every command that does something, as its --help describes it."""
    text = ctl(*path, "--help")
    parts = {title: body for title, body in re.findall(r"^(\w+):\n((?: .*\n)+)", text, re.M)}
    if "Subcommands" in parts:
        found: Dict[str, Words] = {}
        for name in re.findall(r"^  (\S+)", parts["Subcommands"], re.M):
            found.update(helped_commands((*path, name)))
        return found
    options = {}
    for line in parts["Options"].splitlines():
        match = re.match(r"  (?:-\w,)?--([\w-]+)(.*)", line)
        if match and match[1] != "help":
            values = re.search(r"\{([^}]*)\}", match[2])
            options[match[1]] = tuple(sorted(values[1].split(","))) if values else ()
    return {" ".join(path): Words(options, set(re.findall(r"^  (\w+)", parts.get("Positionals", ""), re.M)))}


def described_commands() -> Dict[str, Words]:
    """The same, as the manual page's synopsis has it."""
    synopsis = (MAN / "baywardctl.8").read_text(encoding="utf-8").split(".Sh SYNOPSIS\n")[1].split(".Sh ")[0]
    found: Dict[str, Words] = {}
    for block in synopsis.split(".Nm baywardctl\n.Cm ")[1:]:
        name, *lines = block.strip().split("\n")
        words = found.setdefault(name, Words({}, set()))
        for line in lines:
            option = re.search(r"\bFl -([\w-]+)(?: Ar (.*))?$", line)
            if option is None:
                words.arguments.update(re.findall(r"\bAr (\w+)", line))
            else:
                values = (option[2] or "").split(" | ")
                words.options[option[1]] = tuple(sorted(values)) if len(values) > 1 else ()
    return found


def test_every_command_and_option_is_described() -> None:
    assert described_commands() == helped_commands()


def test_every_command_has_its_section() -> None:
    page = (MAN / "baywardctl.8").read_text(encoding="utf-8")
    assert re.findall(r"^\.Ss (.*)", page, re.M) == list(helped_commands())


# ---- bayward.conf(5) ----

def settings(file: Path) -> List[Dict[str, Any]]:
    return json.loads(ctl("config", "show", "--format", "json", str(file)))["settings"]


def test_every_setting_is_described_with_its_default(tmp_path: Path) -> None:
    empty = tmp_path / "empty.conf"
    empty.touch()
    found: List[Tuple[str, str, str]] = []
    section = ""
    for kind, name, text in re.findall(r"^\.(Ss|It) (?:Section|Cm) ([^\n]*)\n((?:(?!\.Ss|\.It|\.El).*\n)*)",
                                       (MAN / "bayward.conf.5").read_text(encoding="utf-8"), re.M):
        if kind == "Ss":
            section = name
            continue
        default = re.search(r"Default: (\w+)\.", text)
        found += [(section, key, default[1] if default else "none") for key in name.split(" , ")]
    wanted = []
    for setting in settings(empty):
        default = {"True": "on", "False": "off", "": "empty"}.get(str(setting["default"]), str(setting["default"]))
        wanted.append((setting["section"], setting["key"], default))
    assert found == wanted


def test_sample_configuration_has_every_setting(tmp_path: Path) -> None:
    """With its default, so that taking a comment's "#" away changes nothing."""
    sample = tmp_path / "sample.conf"
    text = (ROOT / "share/bayward.conf").read_text(encoding="utf-8")
    sample.write_text(re.sub(r"^#(?=[a-z ]+=)", "", text, flags=re.M), encoding="utf-8")
    for setting in settings(sample):
        assert setting["origin"] == "file", setting
        assert setting["value"] == setting["default"], setting


# ---- bayward(8) and the guide ----

def test_every_event_is_listed() -> None:
    events = json.loads(ctl("events", "--format", "json"))["events"]
    page = (MAN / "bayward.8").read_text(encoding="utf-8")
    rows = re.findall(r"^\.It (VK\d+) Ta (0x\w+) Ta (\w+) Ta ", page, re.M)
    assert rows == [(event["trace"], event["identifier"], event["severity"]) for event in events]


def test_guide_explains_every_event() -> None:
    events = json.loads(ctl("events", "--format", "json"))["events"]
    chapter = (DOCS / "guide.md").read_text(encoding="utf-8").split("## What each event means")[1].split("\n## ")[0]
    headings = re.findall(r"^### (VK\d+) ", chapter, re.M)
    assert sorted(headings) == [event["trace"] for event in events]


def test_guide_explains_every_number_of_the_trace_log() -> None:
    folders = ("framework", "service", "ilorest", "monitor", "seriallog", "mediaerror")
    sources = "".join(path.read_text(encoding="utf-8") for folder in folders for path in (ROOT / folder).glob("*.[ch]*"))
    written = set(re.findall(r"<(VK0\d{3})>", sources))
    assert {"VK0888", "VK0900", "VK0902", "VK0954", "VK0999"} <= written
    guide = (DOCS / "guide.md").read_text(encoding="utf-8")
    explained = set(re.findall(r"VK0\d{3}", guide.split("## Reading the trace log")[1]))
    assert written <= explained


# ---- All of them ----

@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_page_is_well_formed(page: Path) -> None:
    done = subprocess.run(["mandoc", "-Tlint", "-Wstyle", str(page)], capture_output=True, text=True, check=False)
    # Pages of other packages, and those of this one before it is installed, are not there.
    assert [line for line in done.stdout.splitlines() if "referenced manual not found" not in line] == []


@pytest.mark.parametrize("text", [ROOT / "README.md", *sorted(DOCS.glob("*.md"))], ids=lambda path: path.name)
def test_links_lead_somewhere(text: Path) -> None:
    for target in re.findall(r"\]\(([^)#\s]+)[^)]*\)", text.read_text(encoding="utf-8")):
        if "://" not in target:
            assert (text.parent / target).exists(), target


def test_every_recipe_is_described() -> None:
    text = (DOCS / "alerting.md").read_text(encoding="utf-8")
    for recipe in (DOCS / "recipes").rglob("*"):
        if recipe.is_file():
            assert f"(recipes/{recipe.relative_to(DOCS / 'recipes')})" in text, recipe
