"""What goes wrong with a simulated host."""


class HostError(Exception):
    """The host could not be made or told to do something. The text is for people."""


class WaitTimeout(HostError, AssertionError):
    """What was waited for did not come. The text says what came instead."""
