"""The file tree of a simulated host: the folders it is made from, and the mounts that put them in place.

`make_folders` runs outside, before the namespace exists; `mount_all` and `add_addresses` run inside it (keeper.py).
"""

from __future__ import annotations

import ctypes
import errno
import os
import socket
import struct
from pathlib import Path
from typing import Iterable

# Inner folder -> folder of the work directory that is mounted over it.
FOLDERS = {"/etc": "etc", "/opt": "opt", "/var/log": "var-log"}

# What a host never sees of the machine's own /etc: it has its own, or none.
_OWN_ETC = {"opt", "locale.conf", "SuSE-release", ".TARNiLO0", ".TARNiLO1"}
_OWN_IN_FOLDER = {"default": {"locale"}, "sysconfig": {"language", "i18n"}}
_OWN_OPT = {"tarn", "smartstorageadmin", "MegaRAID"}

_DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
_DEVICE_LINKS = {"fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2"}

_MS_RDONLY, _MS_REMOUNT, _MS_BIND, _MS_MOVE, _MS_REC, _MS_RELATIME = 0x1, 0x20, 0x1000, 0x2000, 0x4000, 1 << 21
_ST_SAME_BITS, _ST_RELATIME = 0x2 | 0x4 | 0x8 | 0x400 | 0x800, 0x1000  # nosuid, nodev, noexec, noatime, nodiratime


def make_folders(work: Path) -> None:
    """Lays out a host's own folders in `work`. What it shares with the machine becomes links to a read-only view."""
    for name in ("etc", "opt", "var-log/bayward", "dev", "machine/etc", "machine/opt"):
        (work / name).mkdir(parents=True)
    (work / "var-log/bayward").chmod(0o750)  # as the package makes it
    _link_entries(Path("/etc"), work / "etc", work / "machine/etc", _OWN_ETC | set(_OWN_IN_FOLDER))
    for name, own in _OWN_IN_FOLDER.items():
        (work / "etc" / name).mkdir()
        if (Path("/etc") / name).is_dir():
            _link_entries(Path("/etc") / name, work / "etc" / name, work / "machine/etc" / name, own)
    (work / "etc/opt/tarn/bayward").mkdir(parents=True)
    _link_entries(Path("/opt"), work / "opt", work / "machine/opt", _OWN_OPT)


def _link_entries(machine: Path, own: Path, view: Path, hidden: Iterable[str]) -> None:
    if not machine.is_dir():
        return
    for entry in os.scandir(machine):
        if entry.name in hidden:
            continue
        # A link is repeated as it stands: a relative one means the same in the same place.
        target = os.readlink(entry.path) if entry.is_symlink() else str(view / entry.name)
        os.symlink(target, own / entry.name)


def mount_all(work: str) -> None:
    """Puts the host's folders in place of the machine's. Raises OSError with a text that says what could not be done."""
    for name in ("etc", "opt"):
        if os.path.isdir(f"/{name}"):
            _bind(f"/{name}", f"{work}/machine/{name}")
            _make_read_only(f"{work}/machine/{name}")
    _mount_devices(f"{work}/dev")
    for inner, folder in FOLDERS.items():
        if not os.path.isdir(inner):
            raise OSError(errno.ENOENT, "this machine has no such folder to mount over", inner)
        _bind(f"{work}/{folder}", inner)
    _mount(f"{work}/dev", "/dev", None, _MS_MOVE)
    if os.path.isdir("/run/systemd"):
        _mount("tmpfs", "/run/systemd", "tmpfs", 0)  # neither the machine's journal nor its signs of a running systemd
    try:
        _mount("proc", "/proc", "proc", 0)
    except PermissionError:
        pass  # some containers forbid it to users; the machine's /proc works for all but debuggers


def _mount_devices(folder: str) -> None:
    _mount("tmpfs", folder, "tmpfs", 0, "mode=755")
    for name in _DEVICES:
        if os.path.exists(f"/dev/{name}"):
            open(f"{folder}/{name}", "w", encoding="ascii").close()
            _bind(f"/dev/{name}", f"{folder}/{name}")
    for name, target in _DEVICE_LINKS.items():
        os.symlink(target, f"{folder}/{name}")
    os.mkdir(f"{folder}/shm")
    # Read-only, so that libfaketime can put no semaphore there: a program and its children would share it, and one
    # that is killed at its deadline while it holds it would stop the others for ever.
    _mount("tmpfs", f"{folder}/shm", "tmpfs", _MS_RDONLY, "mode=1777")


def _bind(source: str, target: str) -> None:
    _mount(source, target, None, _MS_BIND | _MS_REC)


def _make_read_only(target: str) -> None:
    # Flags the mount already has must be named again: a user namespace is not allowed to drop them.
    have = os.statvfs(target).f_flag
    flags = (have & _ST_SAME_BITS) | (_MS_RELATIME if have & _ST_RELATIME else 0)
    _mount(None, target, None, _MS_REMOUNT | _MS_BIND | _MS_RDONLY | flags)


def _mount(source: "str | None", target: str, kind: "str | None", flags: int, options: str = "") -> None:
    libc = ctypes.CDLL(None, use_errno=True)
    encode = [None if text is None else text.encode() for text in (source, target, kind)]
    if libc.mount(encode[0], encode[1], encode[2], ctypes.c_ulong(flags), options.encode() or None) != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"cannot mount {source or 'anew'}: {os.strerror(number)}", target)


def add_addresses(addresses: "list[str]") -> None:
    """Brings the loopback device of an own network up and gives it further addresses. Nothing for an empty list."""
    if not addresses:
        return
    import fcntl
    set_flags, set_address, set_mask = 0x8914, 0x8916, 0x891C
    up_and_running = 0x1 | 0x40
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        fcntl.ioctl(control, set_flags, struct.pack("16sH14x", b"lo", up_and_running))
        for number, address in enumerate(addresses):
            for request, value in ((set_address, address), (set_mask, "255.255.255.255")):
                name = f"lo:{number}".encode()
                fcntl.ioctl(control, request,
                            struct.pack("16sH2x4s8x", name, socket.AF_INET, socket.inet_aton(value)))
