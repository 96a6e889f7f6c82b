"""A simulated host: the real service in namespaces of its own. See README.md."""

from .errors import HostError, WaitTimeout
from .host import SimHost, missing
from .systemlog import PRIORITIES, SyslogEntry

__all__ = ["HostError", "PRIORITIES", "SimHost", "SyslogEntry", "WaitTimeout", "missing"]
