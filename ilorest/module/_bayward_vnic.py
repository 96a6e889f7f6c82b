"""Whether this host has its address on the controller's virtual-NIC link."""

from __future__ import annotations

import io

from _bayward_command import output_of
from _bayward_outcome import OTHER, Failure
from _bayward_target import VNIC_CONTROLLER, VNIC_HOST, parse_target

LIST_SECONDS = 10.0


def is_assigned(host: str) -> bool | None:
    """True or False for the host's side of the link; None when the addresses cannot be listed.

    `host` is the host's address itself or the controller's URL on the link, which stands for the host's address.
    Raises Failure(OTHER) when it is neither address nor URL.
    """
    target = parse_target(host)
    if target.in_band:
        raise Failure(OTHER, "The in-band channel has no address.")
    wanted = VNIC_HOST if target.host == VNIC_CONTROLLER else target.host
    listing = output_of("ip", "addr", "show", seconds=LIST_SECONDS)
    return None if listing is None else any(_address(line) == wanted for line in io.BytesIO(listing))


def _address(line: bytes) -> str:
    """The address in a line such as "inet 16.1.15.2/30 brd 16.1.15.3 ..."; empty when the line names none."""
    words = line.split(None, 2)
    if len(words) < 2 or words[0] not in (b"inet", b"inet6"):
        return ""
    return words[1].partition(b"/")[0].decode("ascii", "replace").lower()
