"""Fixtures: controllers that end with their test, and logged-in clients."""

from __future__ import annotations

from typing import Any, Callable, Iterator, List

import pytest
from sim_rest import ControllerProcess, Rest


@pytest.fixture
def start() -> Iterator[Callable[..., ControllerProcess]]:
    """Start a controller with the options given; all of them are stopped at the end."""
    started: List[ControllerProcess] = []

    def run(*options: str, **more: Any) -> ControllerProcess:
        started.append(ControllerProcess(*options, **more).start())
        return started[-1]

    yield run
    # Whatever a test does to a controller, it has nothing to complain about: a trace back here is a defect of its own.
    complaints = [text for text in (sim.complaints() for sim in started if sim.running()) if text]
    for sim in started:
        sim.stop()
    assert complaints == []


@pytest.fixture
def connect() -> Iterator[Callable[..., Rest]]:
    """Connect to a controller and log in."""
    clients: List[Rest] = []

    def run(sim: ControllerProcess, login: bool = True, **more: Any) -> Rest:
        clients.append(Rest(sim, **more))
        if login:
            assert clients[-1].login().status == 201
        return clients[-1]

    yield run
    for client in clients:
        client.close()


@pytest.fixture
def sim(start: Callable[..., ControllerProcess]) -> ControllerProcess:
    """An iLO 5 with one Smart Array controller (4 drives, 2 of them SSDs, 2 volumes) and one MR controller."""
    return start("--drives", "4", "--volumes", "2", "--mr", "1", "--mr-drives", "4", "--mr-volumes", "2")


@pytest.fixture
def rest(sim: ControllerProcess, connect: Callable[..., Rest]) -> Rest:
    return connect(sim)
