"""Whether this host has its address on the controller's virtual-NIC link."""

from __future__ import annotations

import os
import signal

from _bayward_outcome import OTHER, Failure
from _bayward_target import parse_target

HOST_ADDRESS = "16.1.15.2"
CONTROLLER_ADDRESS = "16.1.15.1"
LIST_SECONDS = 10.0


def is_assigned(host: str) -> bool | None:
    """True or False for the host's side of the link; None when the addresses cannot be listed.

    `host` is the host's address itself or the controller's URL on the link, which stands for the host's address.
    Raises Failure(OTHER) when it is neither address nor URL.
    """
    target = parse_target(host)
    if target.in_band:
        raise Failure(OTHER, "The in-band channel has no address.")
    wanted = HOST_ADDRESS if target.host == CONTROLLER_ADDRESS else target.host
    listing = _list_addresses()
    return None if listing is None else wanted in _addresses(listing)


def _addresses(listing: str) -> set[str]:
    """The addresses of an `ip addr show` listing: lines such as "inet 16.1.15.2/30 brd 16.1.15.3 ..."."""
    rows = (line.split() for line in listing.splitlines())
    return {row[1].partition("/")[0].lower() for row in rows if len(row) >= 2 and row[0] in ("inet", "inet6")}


def _list_addresses() -> str | None:
    import subprocess  # not needed by most servers

    # The tool lies in a system folder, which is not on every PATH.
    environment = dict(os.environ, LC_ALL="C")
    environment["PATH"] = environment.get("PATH", os.defpath) + ":/usr/sbin:/sbin"
    try:
        process = subprocess.Popen(["ip", "addr", "show"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, env=environment, start_new_session=True)
    except OSError:
        return None
    with process:
        try:
            output, _ = process.communicate(timeout=LIST_SECONDS)
        except subprocess.TimeoutExpired:
            _end_group(process.pid)
            return None
    return output.decode("ascii", "replace") if process.returncode == 0 else None


def _end_group(leader: int) -> None:
    try:
        os.killpg(leader, signal.SIGKILL)
    except OSError:
        pass
