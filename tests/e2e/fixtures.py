"""Fixtures: controllers and services that end with their test, or with their file."""

from __future__ import annotations

import os
from contextlib import ExitStack
from typing import Any, Callable, Iterator

import pytest

from expansion import expansion
from watched import ControllerProcess, Watched, bin_dir

import simhost


@pytest.fixture(scope="session", autouse=True)
def everything_is_there(request: pytest.FixtureRequest) -> None:
    """In CI nothing may be missing; elsewhere a machine that forbids namespaces skips, and says so."""
    reason = simhost.missing()
    if reason is not None:
        if os.environ.get("CI") == "true":
            pytest.fail(reason)
        pytest.skip(reason)
    for name in ("bayward", "baywardctl", "bayward.msg", "baywardilorest.py"):
        assert (bin_dir() / name).exists(), f"{bin_dir() / name} does not exist; ./run build makes it"
    if any("natural" in getattr(item, "fixturenames", ()) for item in request.session.items):
        request.getfixturevalue("natural")  # started now, it has run long enough when its test comes


@pytest.fixture(scope="session")
def natural() -> Iterator[Watched]:
    """A service at its natural pace, which runs beside the tests of other services."""
    with ExitStack() as found:
        sim = _starter(found)("--ilo", 5, "--drives", 2, "--mr", 1, "--mr-drives", 2)
        yield _watcher(found)(sim, speed=1).start()


def _starter(stack: ExitStack) -> Callable[..., ControllerProcess]:
    def start(*options: object, **more: Any) -> ControllerProcess:
        given = (*expansion().options, *options)
        sim = stack.enter_context(ControllerProcess(*[str(option) for option in given], **more))
        # Whatever happens to it, the controller has nothing to complain about.
        stack.callback(lambda: _assert_content(sim))
        return sim
    return start


def _assert_content(sim: ControllerProcess) -> None:
    assert sim.complaints() == ""


def _watcher(stack: ExitStack) -> Callable[..., Watched]:
    def watch(sim: Any, **options: Any) -> Watched:
        watched = Watched(sim, **options)
        stack.callback(watched.close)
        return watched
    return watch


@pytest.fixture
def stack() -> Iterator[ExitStack]:
    with ExitStack() as found:
        yield found


@pytest.fixture(scope="module")
def file_stack() -> Iterator[ExitStack]:
    with ExitStack() as found:
        yield found


@pytest.fixture
def start_sim(stack: ExitStack) -> Callable[..., ControllerProcess]:
    """Starts a controller with the options given."""
    return _starter(stack)


@pytest.fixture
def watch(stack: ExitStack) -> Callable[..., Watched]:
    """Makes a host for the service; the test starts it. See Watched for the options."""
    return _watcher(stack)


@pytest.fixture(scope="module")
def start_file_sim(file_stack: ExitStack) -> Callable[..., ControllerProcess]:
    """As start_sim, for all tests of a file."""
    return _starter(file_stack)


@pytest.fixture(scope="module")
def watch_file(file_stack: ExitStack) -> Callable[..., Watched]:
    """As watch, for all tests of a file."""
    return _watcher(file_stack)
