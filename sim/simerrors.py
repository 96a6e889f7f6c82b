"""The two ways in which anything of the simulator goes wrong, for all of its packages. Each is told in one sentence."""


class UseError(Exception):
    """Wrong use: an unknown path, member, verb or option. Programs exit with 2."""


class Failure(Exception):
    """A right request that could not be carried out. Programs exit with 1."""
