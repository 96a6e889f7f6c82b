"""Fixtures: the packages that "./run package" made, and clean systems to install them into."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from pathlib import Path
from typing import Callable, Iterator, Optional

import pytest

from cleantree import NEWER, ROOT, Machine, Tree, make_base, missing

sys.path.insert(0, str(ROOT / "sim"))


@pytest.fixture(scope="session", autouse=True)
def everything_is_there() -> None:
    """In CI nothing may be missing; elsewhere a machine that cannot try packages skips, and says so."""
    reason = missing()
    if reason is not None:
        if os.environ.get("CI") == "true":
            pytest.fail(reason)
        pytest.skip(reason)


def _package(pattern: str) -> Path:
    folder = Path(os.environ.get("BAYWARD_PACKAGES", ROOT / "build/package"))
    found = sorted(folder.glob(pattern))
    assert len(found) == 1, f"{folder} holds {len(found)} packages {pattern}; \"./run package\" makes one"
    return found[0]


@pytest.fixture(scope="session")
def deb() -> Path:
    return _package("bayward_*.deb")


@pytest.fixture(scope="session")
def rpm() -> Path:
    return _package("bayward-*.rpm")


@pytest.fixture(scope="session")
def base() -> Path:
    return make_base(ROOT / "build/package-test")


@pytest.fixture(scope="session")
def installed(base: Path, deb: Path, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Tree]:
    """The package freshly installed in a clean tree. Not to be changed; `tree` is a copy that may be."""
    tree = Tree(base, tmp_path_factory.mktemp("installed") / "tree")
    tree.run("apt-get", "update", "-qq")
    tree.install(deb)
    yield tree
    tree.remove()


@pytest.fixture
def tree(installed: Tree, tmp_path: Path) -> Iterator[Tree]:
    copy = Tree(installed.folder, tmp_path / "tree")
    yield copy
    copy.remove()


@pytest.fixture(scope="module")
def machine(installed: Tree, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Machine]:
    """The clean system with the package, booted; with a stand-in for dmidecode, as it has no UUID of its own."""
    tree = Tree(installed.folder, tmp_path_factory.mktemp("machine") / "tree")
    tree.path("/etc/default/locale").write_text("LANG=C.UTF-8\n")
    tree.path("/usr/sbin/dmidecode").write_text((ROOT / "sim/bin/dmidecode").read_text())
    # The pause after a crash is minutes long.
    drop_in = tree.path("/etc/systemd/system/bayward.service.d/soon.conf")
    drop_in.parent.mkdir()
    drop_in.write_text("[Service]\nRestartSec=1s\n")
    booted = Machine(tree)
    yield booted
    booted.close()
    tree.remove()


@pytest.fixture
def newer(deb: Path, tmp_path: Path) -> Callable[[Optional[str]], Path]:
    """Makes the package's next version; a text given becomes the sample configuration that comes with it."""
    def make(configuration: Optional[str] = None) -> Path:
        content = tmp_path / "content"
        subprocess.run(["dpkg-deb", "-R", str(deb), str(content)], check=True)
        control = content / "DEBIAN/control"
        control.write_text(re.sub("^Version: .*$", f"Version: {NEWER}", control.read_text(), flags=re.MULTILINE))
        if configuration is not None:
            (content / "etc/opt/tarn/bayward/bayward.conf").write_text(configuration)
        made = tmp_path / f"bayward_{NEWER}.deb"
        subprocess.run(["dpkg-deb", "--root-owner-group", "-b", str(content), str(made)], check=True,
                       stdout=subprocess.DEVNULL)
        return made
    return make
