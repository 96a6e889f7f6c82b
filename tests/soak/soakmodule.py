"""How often the service has loaded the helper module: once at its start, and after each read that failed."""

from __future__ import annotations

import ctypes
import os
import re
import struct
from pathlib import Path

_IN_OPEN = 0x20
_IN_ISDIR = 0x40000000
_IN_Q_OVERFLOW = 0x4000
_HEADER = struct.Struct("iIII")
_LOADED = re.compile(r"baywardilorest(\.py|\.cpython-\d+\.pyc)")


class ModuleLoads:
    """Counts from construction on how often the module's source or its compiled form is opened for reading."""

    def __init__(self, folder: Path) -> None:
        """The run-time folder, which only the service under test uses."""
        self._count = 0
        libc = ctypes.CDLL(None, use_errno=True)
        cache = folder / "__pycache__"
        cache.mkdir(exist_ok=True)
        self._descriptor = libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        for watched in (folder, cache):
            if self._descriptor < 0 or libc.inotify_add_watch(self._descriptor, os.fsencode(watched), _IN_OPEN) < 0:
                raise OSError(ctypes.get_errno(), f"inotify: {os.strerror(ctypes.get_errno())}", str(watched))

    def count(self) -> int:
        """How many loads there were; ask at least once a minute, before the kernel's queue is full."""
        while True:
            try:
                data = os.read(self._descriptor, 1 << 16)
            except BlockingIOError:
                return self._count
            offset = 0
            while offset < len(data):
                _, mask, _, length = _HEADER.unpack_from(data, offset)
                name = data[offset + _HEADER.size:offset + _HEADER.size + length].rstrip(b"\0").decode()
                offset += _HEADER.size + length
                if mask & _IN_Q_OVERFLOW:
                    raise RuntimeError("the kernel's queue ran over; loads were not counted")
                self._count += bool(_LOADED.fullmatch(name)) and not mask & _IN_ISDIR

    def close(self) -> None:
        os.close(self._descriptor)
