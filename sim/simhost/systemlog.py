"""The system log of a simulated host: a real rsyslogd with its own configuration, and what it wrote."""

from __future__ import annotations

import re
from dataclasses import dataclass
from pathlib import Path
from typing import List, Optional

_CONFIGURATION = """\
global(workDirectory="{folder}")
module(load="imuxsock" SysSock.Name="/dev/log" SysSock.RateLimit.Interval="0")
template(name="entry" type="string" string="%syslogpriority%\\t%syslogfacility-text%\\t%syslogtag%\\t%msg%\\n")
if $programname == "rsyslogd" then stop
action(type="omfile" file="{folder}/messages" template="entry")
"""

_TAG = re.compile(r"^(?P<identity>[^\[:]*)(?:\[(?P<pid>\d+)\])?:?$")

PRIORITIES = ("emergency", "alert", "critical", "error", "warning", "notice", "information", "debug")


@dataclass(frozen=True)
class SyslogEntry:
    """One entry as the system log received it."""
    priority: int  # 3 error, 4 warning, 6 information
    facility: str  # "daemon", ...
    identity: str
    pid: Optional[int]  # as the host numbers its processes
    message: bytes  # the very bytes that were sent (rsyslogd writes control characters as #ooo)

    def text(self, encoding: str = "utf-8") -> str:
        return self.message.decode(encoding, errors="replace")

    @classmethod
    def parse(cls, line: bytes) -> "SyslogEntry":
        """The entry that a line of SystemLog.messages holds, for whoever follows the file himself."""
        priority, facility, tag, message = line.split(b"\t", 3)
        match = _TAG.match(tag.decode(errors="replace"))
        identity, pid = (match["identity"], match["pid"]) if match else (tag.decode(errors="replace"), None)
        return cls(int(priority), facility.decode(), identity, int(pid) if pid else None,
                   message[1:] if message.startswith(b" ") else message)


class SystemLog:
    """The folder of one rsyslogd: configuration, working files and output."""

    def __init__(self, folder: Path) -> None:
        folder.mkdir()
        self._folder = folder
        self.messages = folder / "messages"
        self._configuration = folder / "rsyslog.conf"
        self._configuration.write_text(_CONFIGURATION.format(folder=folder), encoding="utf-8")

    def command(self) -> List[str]:
        """The command line of rsyslogd, which stays in the foreground."""
        return ["rsyslogd", "-n", "-f", str(self._configuration), "-i", str(self._folder / "rsyslogd.pid")]

    def entries(self) -> List[SyslogEntry]:
        """Everything received so far, oldest first."""
        try:
            data = self.messages.read_bytes()
        except FileNotFoundError:
            return []
        # What follows the last line feed is unfinished.
        return [SyslogEntry.parse(line) for line in data.split(b"\n")[:-1]]
