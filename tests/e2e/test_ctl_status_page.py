"""The HTML page of baywardctl status in a browser: it renders at every size, in light and dark, and nothing sticks out."""

import json
import os
import re
import shutil
import subprocess
from pathlib import Path
from typing import Any, Callable, Dict, Tuple
from urllib.parse import unquote

import pytest
from watched import Watched

SIZES = {"phone": (360, 740), "tablet": (820, 1180), "wall": (1920, 1080)}
DARK = "--blink-settings=preferredColorScheme=0"
LIGHT = "--blink-settings=preferredColorScheme=1"
GROUNDS = {"light": "rgb(238, 241, 244)", "dark": "rgb(14, 20, 25)"}

# The page in a frame of the size to look at (browser windows have a least width), and what the frame measures.
FRAME = """<!DOCTYPE html><body style="margin:0"><iframe id="frame" style="border:0;width:{width}px;height:{height}px"></iframe>
<script>
const frame = document.getElementById("frame");
frame.onload = () => {{
  const page = frame.contentDocument, style = element => frame.contentWindow.getComputedStyle(element);
  const wide = [...page.querySelectorAll("body *")].filter(e => e.getBoundingClientRect().right > {width} + 1);
  const found = {{scrollWidth: page.documentElement.scrollWidth, ground: style(page.body).backgroundColor,
    wide: wide.map(e => e.outerHTML.slice(0, 80)), text: page.body.innerText,
    tableRows: [...page.querySelectorAll("tbody tr")].map(row => style(row).display),
    smallest: Math.min(...[...page.querySelectorAll("body *")].map(e => parseFloat(style(e).fontSize))),
    bays: [...page.querySelectorAll(".bay")].map(bay => [style(bay).borderTopColor, bay.getBoundingClientRect().width])}};
  const told = document.createElement("pre");
  told.id = "found";
  told.textContent = encodeURIComponent(JSON.stringify(found));
  document.body.append(told);
}};
frame.srcdoc = {page};
</script>"""


@pytest.fixture(scope="module")
def chromium() -> str:
    program = shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome")
    if program is None:
        if os.environ.get("CI") == "true":
            pytest.fail("no Chromium here; install the package chromium")
        pytest.skip("no Chromium here; install the package chromium")
    return program


def browse(chromium: str, folder: Path, *arguments: str) -> str:
    done = subprocess.run([chromium, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                           "--hide-scrollbars", f"--user-data-dir={folder / 'profile'}", "--virtual-time-budget=3000",
                           *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          encoding="utf-8", timeout=120, check=False)
    assert done.returncode == 0, done.stderr
    return done.stdout


def measure(chromium: str, folder: Path, page: str, size: Tuple[int, int], scheme: str) -> Dict[str, Any]:
    frame = folder / "frame.html"
    escaped = json.dumps(page).replace("</", "<\\/")
    frame.write_text(FRAME.format(width=size[0], height=size[1], page=escaped), encoding="utf-8")
    dom = browse(chromium, folder, scheme, "--dump-dom", frame.as_uri())
    found = re.search(r'<pre id="found">([^<]*)</pre>', dom)
    assert found is not None, dom[-2000:]
    return json.loads(unquote(found.group(1)))


@pytest.fixture(scope="module")
def pages(start_file_sim: Callable, watch_file: Callable[..., Watched]) -> Dict[str, str]:
    """The pages of a small server in trouble and of a large one with every family of controllers."""
    servers = {
        "small": (("--ilo", 5, "--drives", 6, "--ssd", 3, "--volumes", 2),
                  [("predict-drive", 1, 4), ("fail-drive", 1, 5), ("wear-drive", 1, 2, 95), ("offline-volume", 1, 2)]),
        "large": (("--ilo", 6, "--mr", 2, "--mr-drives", 24, "--mr-volumes", 2, "--sr-drives", 3, "--ns204-drives", 2,
                   "--nvme", 1, "--sata-drives", 2, "--vroc-drives", 2, "--ssd", 5),
                  [("fail-drive", 1, 3), ("wear-drive", 1, 2, 83), ("remove-drive", 1, 6)])}
    found = {}
    for name, (options, verbs) in servers.items():
        watched = watch_file(start_file_sim(*options), speed=1)
        for verb in verbs:
            watched.sim.control.call(*verb)
        if name == "large":  # a text that no line can hold
            watched.sim.control.call("set", watched.sim.control.call("list")[0]["drives"][7], "SerialNumber", "W" * 120)
        done = watched.ctl("status", "--format", "html")
        assert (done.returncode, done.stderr) == (0, "")
        found[name] = done.stdout
    return found


@pytest.mark.parametrize("server", ["small", "large"])
@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("size", SIZES)
def test_page_fits_its_screen(chromium: str, tmp_path: Path, pages: Dict[str, str], server: str, scheme: str,
                              size: str) -> None:
    width = SIZES[size][0]
    found = measure(chromium, tmp_path, pages[server], SIZES[size], DARK if scheme == "dark" else LIGHT)
    assert found["scrollWidth"] <= width
    assert found["wide"] == []
    assert found["ground"] == GROUNDS[scheme]
    assert found["smallest"] >= 11  # pixels
    # Tables become lists of named values where they would not fit.
    assert set(found["tableRows"]) == {"block" if size == "phone" else "table-row"}
    assert len(found["bays"]) == (6 if server == "small" else 58)
    assert min(bay_width for _, bay_width in found["bays"]) >= 100
    assert len({colour for colour, _ in found["bays"]}) == (3 if server == "small" else 4)  # the gap has a fourth
    assert "What the service reports" in found["text"]


@pytest.mark.parametrize("scheme", [LIGHT, DARK], ids=["light", "dark"])
def test_page_is_painted_without_anything_else(chromium: str, tmp_path: Path, pages: Dict[str, str],
                                               scheme: str) -> None:
    page = tmp_path / "status.html"
    page.write_text(pages["small"], encoding="utf-8")
    picture = tmp_path / "status.png"
    browse(chromium, tmp_path, scheme, "--window-size=1600,1200", f"--screenshot={picture}", page.as_uri())
    assert picture.read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"
    empty = tmp_path / "empty.png"
    page.write_text("<!DOCTYPE html><title>empty</title>", encoding="utf-8")
    browse(chromium, tmp_path, scheme, "--window-size=1600,1200", f"--screenshot={empty}", page.as_uri())
    assert picture.stat().st_size > 10 * empty.stat().st_size
