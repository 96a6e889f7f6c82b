"""Which signals end the service, and what is written about the others."""

import signal
from typing import Callable

import pytest
from watched import Watched, without

from simhost import HostError


@pytest.fixture(params=[False, True], ids=["daemon", "stand-alone"])
def stand_alone(request: pytest.FixtureRequest) -> bool:
    return bool(request.param)


def started(watch: Callable[..., Watched], stand_alone: bool) -> Watched:
    watched = watch(None, stand_alone=stand_alone, speed=1).start()
    watched.wait_line("Ready to wait stop event.")
    watched.wait_line("Start cyclic serial log saving.")
    return watched


def test_daemon_ends_on_sigterm_alone(watch: Callable[..., Watched]) -> None:
    watched = started(watch, False)
    for number in (signal.SIGCHLD, signal.SIGINT, signal.SIGQUIT, signal.SIGPIPE):
        watched.host.signal(number)
        if number != signal.SIGCHLD:
            watched.wait_line(f"<VK0902> [TR] Receive signal {int(number)}")
    # A second child's end and a second Ctrl+C: were the first silently kept, it would show now.
    watched.host.signal(signal.SIGCHLD)
    watched.host.signal(signal.SIGINT)
    watched.wait_line("<VK0902> [TR] Receive signal 2", count=2)
    assert watched.host.running
    assert watched.stop() == 0
    trace = watched.trace()
    ready = trace.index("<VK0900> [TR] Ready to wait stop event.")
    assert without(trace[ready + 1:], "Start cyclic") == [
        "<VK0902> [TR] Receive signal 2",
        "<VK0902> [TR] Receive signal 3",
        "<VK0902> [TR] Receive signal 13",
        "<VK0902> [TR] Receive signal 2",
        "<VK0902> [TR] Receive signal 15",
        "<VK0900> [TR] Receive StopEvent.",
        "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.",
        "<VK0900> [TR] Join thread for OS log.",
        "<VK0900> [TR] Break SerialLogRoutine by StopEvent.",
        "<VK0900> [TR] Join thread for Serial log.",
        "<VK0900> [TR] Service stopped.",
    ]


def test_stand_alone_ends_on_sigint_and_ignores_sigpipe(watch: Callable[..., Watched]) -> None:
    watched = started(watch, True)
    watched.host.signal(signal.SIGPIPE)
    watched.host.signal(signal.SIGCHLD)
    watched.host.signal(signal.SIGINT)
    assert watched.host.wait_exit() == 0
    trace = watched.trace()
    assert [line for line in trace if "signal" in line] == ["<VK0902> [TR] Receive signal 2"]
    assert not [line for line in trace if "Service started." in line or "Service stopped." in line]
    assert not [line for line in trace if "to exit" in line]


def test_stop_twice_is_stop_once(watch: Callable[..., Watched], stand_alone: bool) -> None:
    watched = started(watch, stand_alone)
    number = signal.SIGINT if stand_alone else signal.SIGTERM
    watched.host.signal(number)
    try:
        watched.host.signal(number)
    except (HostError, ProcessLookupError):
        pass  # it has ended already
    assert watched.host.wait_exit() == 0
    assert watched.trace().count("<VK0900> [TR] Receive StopEvent.") == 1
