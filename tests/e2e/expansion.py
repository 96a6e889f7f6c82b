"""The ways in which collections are read: with their members in place, or one by one for whichever reason.

BAYWARD_EXPANSION names the way in which a run of the tests goes; what is watched is the same in all of them.
"""

from __future__ import annotations

import os
from typing import Dict, NamedTuple, Tuple

VARIABLE = "BAYWARD_EXPANSION"


class Expansion(NamedTuple):
    """
    service     what the configuration's section "iLo" says of it
    controller  how the simulated controller meets $expand
    asked       whether the service tries the form with members
    """
    service: Dict[str, str]
    controller: str
    asked: bool

    @property
    def options(self) -> Tuple[str, str]:
        """Those of the simulated controller."""
        return "--expand", self.controller

    @property
    def forms(self) -> int:
        """In how many forms a watched collection is read before that read has failed: what was ignored or refused once is
        asked plainly from then on."""
        return 2 if self.asked and self.controller == "on" else 1


EXPANSIONS = {
    "on": Expansion({}, "on", True),
    "off": Expansion({"expand": "false"}, "on", False),
    "ignored": Expansion({}, "off", True),
    "refused": Expansion({}, "refuse", True),
}


def expansion() -> Expansion:
    """The one of this run."""
    name = os.environ.get(VARIABLE) or "on"
    if name not in EXPANSIONS:
        raise ValueError(f'{VARIABLE} is "{name}"; it is one of {", ".join(EXPANSIONS)}')
    return EXPANSIONS[name]
