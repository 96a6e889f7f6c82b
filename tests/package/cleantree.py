"""A clean system in a folder, to install packages into: with debootstrap, and booted with systemd-nspawn."""

from __future__ import annotations

import os
import shutil
import subprocess
import time
from pathlib import Path
from typing import List, Optional, Sequence

_PROGRAMS = {"debootstrap": "debootstrap", "systemd-nspawn": "systemd-container", "unshare": "util-linux",
             "nsenter": "util-linux", "setpriv": "util-linux", "rpm": "rpm", "lintian": "lintian",
             "systemd-analyze": "systemd"}
ROOT = Path(__file__).resolve().parents[2]  # of the sources
NEWER = "99.0"  # the package's next version

_BOOT_SECONDS = 60.0
_END_SECONDS = 60.0
_ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive",
                "HOME": "/root"}


def missing() -> Optional[str]:
    """None when packages can be tried here, else one sentence that says what is missing."""
    for program, package in _PROGRAMS.items():
        if shutil.which(program) is None:
            return f"The program {program} is missing; install the package {package}."
    return None if os.geteuid() == 0 else "Installing packages into a tree of their own needs root."


def _sources() -> List[str]:
    """This system's own releases as lines of a sources.list: what was built here fits them."""
    codename = next(line.split("=", 1)[1].strip('"') for line in Path("/etc/os-release").read_text().splitlines()
                    if line.startswith("VERSION_CODENAME="))
    targets = subprocess.run(["apt-get", "indextargets", "--format", "$(SITE) $(RELEASE) $(COMPONENT) $(SIGNED_BY)",
                              "Created-By: Packages"], capture_output=True, text=True, check=True).stdout
    found: List[str] = []
    for site, release, component, *_ in (line.split() for line in targets.splitlines()):
        line = f"deb {site} {release} {component}"
        if release.startswith(codename) and line not in found:
            found.append(line)
    assert found, f"apt knows no source of {codename}"
    # debootstrap takes the release itself, which is the shortest name.
    return sorted(found, key=lambda line: len(line.split()[2]))


def make_base(cache: Path) -> Path:
    """The smallest system that boots. Made once, which takes some minutes, and kept in `cache`."""
    base = cache / "base"
    if not base.exists():
        sources = _sources()
        _, site, release, _ = sources[0].split()
        new = cache / "base.new"
        shutil.rmtree(new, ignore_errors=True)
        cache.mkdir(parents=True, exist_ok=True)
        done = subprocess.run(["debootstrap", "--variant=minbase", "--include=systemd-sysv", release, str(new), site],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        assert done.returncode == 0, done.stdout[-2000:] + done.stderr
        (new / "etc/apt/sources.list").write_text("\n".join(sources) + "\n")
        new.rename(base)
    return base


class Tree:
    """A copy of a system, in which commands run as on a machine without a running systemd."""

    def __init__(self, base: Path, folder: Path) -> None:
        subprocess.run(["cp", "-a", "--reflink=auto", str(base), str(folder)], check=True)
        self.folder = folder
        self.said = ""  # what apt said at the last installation

    def path(self, inner: str) -> Path:
        return self.folder / inner.lstrip("/")

    def run(self, *argv: str, stdin: str = "", check: bool = True) -> "subprocess.CompletedProcess[str]":
        """Runs a command in the tree to its end; what it leaves running is killed then."""
        return _finish(self.command(*argv), stdin, check)

    def command(self, *argv: str) -> List[str]:
        inside = ('mount --bind "$1" "$1" && mount -t proc proc "$1/proc" && mount --bind /dev "$1/dev" && '
                  'mount -t tmpfs tmpfs "$1/run" && exec chroot "$@"')
        return ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--propagation", "private",
                "sh", "-c", inside, "sh", str(self.folder), *argv]

    def install(self, *packages: Path, options: Sequence[str] = ()) -> None:
        """Installs package files, and what they depend on from the mirror."""
        for name in ("resolv.conf", "hosts"):
            shutil.copy(Path("/etc") / name, self.path(f"/etc/{name}"))
        inner = []
        for package in packages:
            shutil.copy(package, self.path("/var/tmp"))
            inner.append(f"/var/tmp/{package.name}")
        done = self.run("apt-get", "install", "-y", "--no-install-recommends", "--allow-downgrades", *options, *inner)
        self.said = done.stdout + done.stderr

    def remove(self) -> None:
        shutil.rmtree(self.folder)


class Machine:
    """A tree that was booted. `run` runs commands beside its systemd."""

    def __init__(self, tree: Tree) -> None:
        self.tree = tree
        # nspawn's own notes stay out of this machine's /run. It ends when the tests do, however they end.
        inside = ('mkdir -p /run/systemd/nspawn && mount -t tmpfs tmpfs /run/systemd/nspawn && '
                  'exec systemd-nspawn --quiet --directory="$1" --boot --register=no --keep-unit --console=pipe')
        self._console = open(tree.folder.with_suffix(".console"), "wb")
        self._nspawn = subprocess.Popen(
            ["setpriv", "--pdeathsig", "TERM", "unshare", "--mount", "--propagation", "private", "sh", "-c", inside,
             "sh", str(tree.folder)],
            stdin=subprocess.DEVNULL, stdout=self._console, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            self._leader = self._wait_boot()
        except BaseException:
            self.close()
            raise

    def _wait_boot(self) -> int:
        deadline = time.monotonic() + _BOOT_SECONDS
        while time.monotonic() < deadline and self._nspawn.poll() is None:
            leader = self._find_leader()
            if leader is not None:
                self._leader = leader
                if self.run("systemctl", "is-system-running", check=False).stdout.strip() in ("running", "degraded"):
                    return leader
            time.sleep(0.2)
        console = Path(self._console.name).read_text(errors="replace")
        raise AssertionError(f"the tree did not boot: {console[-2000:]}")

    def _find_leader(self) -> Optional[int]:
        """The first process of the booted system, as it is numbered here."""
        for status in Path("/proc").glob("[0-9]*/status"):
            try:
                found = dict(line.split(":", 1) for line in status.read_text().splitlines() if ":" in line)
            except OSError:
                continue
            if int(found["PPid"]) == self._nspawn.pid and found["NSpid"].split()[-1] == "1":
                return int(status.parent.name)
        return None

    def run(self, *argv: str, stdin: str = "", check: bool = True) -> "subprocess.CompletedProcess[str]":
        return _finish(["nsenter", "-t", str(self._leader), "-m", "-u", "-i", "-p", "-C", "-r", "-w", *argv],
                       stdin, check)

    def property(self, name: str) -> str:
        return self.run("systemctl", "show", "bayward", "--value", "-p", name).stdout.strip()

    def close(self) -> None:
        self._nspawn.terminate()  # an orderly shutdown
        try:
            self._nspawn.wait(_END_SECONDS)
        except subprocess.TimeoutExpired:
            self._nspawn.kill()  # takes the booted system along
            self._nspawn.wait()
        self._console.close()


def _finish(argv: Sequence[str], stdin: str, check: bool) -> "subprocess.CompletedProcess[str]":
    done = subprocess.run(argv, input=stdin, capture_output=True, text=True, errors="replace", env=_ENVIRONMENT,
                          check=False, timeout=600)
    assert not check or done.returncode == 0, f"{list(argv)}: {done.returncode}\n{done.stdout}\n{done.stderr}"
    return done
