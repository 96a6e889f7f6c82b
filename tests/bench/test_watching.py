"""Walks are read from a request log as they were made."""

from __future__ import annotations

import os
import time

import pytest

from watching import cpu_seconds, voluntary_switches, walks_of

LOG = """\
2026-11-21T20:56:08.599 1 POST /redfish/v1/SessionService/Sessions/ 201
2026-11-21T20:56:08.621 1 GET /redfish/v1/Managers/ 200
2026-11-21T20:56:18.700 1 GET /redfish/v1/Systems/ 200
2026-11-21T20:56:18.721 1 GET /redfish/v1/Systems/1/Storage/?$expand=. 200
2026-11-21T20:56:21.800 1 GET /redfish/v1/Systems?$expand=. 200
2026-11-21T20:56:21.821 1 GET /redfish/v1/Systems/1/Storage/ 401
2026-11-21T20:56:21.842 2 POST /redfish/v1/SessionService/Sessions/ 201
2026-11-21T20:56:21.863 2 GET /redfish/v1/Systems/1/Storage/ 200
""".splitlines()


def test_a_walk_begins_with_the_collection_of_systems():
    assert [walk.requests for walk in walks_of(LOG)] == [2, 4]


def test_log_ins_and_connections_belong_to_the_walk_in_which_they_are_made():
    first, second = walks_of(LOG)
    assert (first.logins, first.connections) == (0, {1})
    assert (second.logins, second.connections) == (1, {1, 2})


def test_a_walk_takes_from_its_first_request_to_its_last_answer():
    first, second = walks_of(LOG)
    assert first.seconds(latency=0.02) == pytest.approx(0.041, abs=1e-5)
    assert second.seconds(latency=0.02) == pytest.approx(0.083, abs=1e-5)


def test_without_requests_there_is_no_walk():
    assert walks_of([]) == []


def test_what_is_no_request_log_is_refused():
    with pytest.raises(ValueError):
        walks_of(["hello"])


def test_cpu_time_of_a_process_grows_with_its_work():
    before, own = cpu_seconds(os.getpid()), time.process_time()
    while time.process_time() - own < 0.05:
        pass
    assert cpu_seconds(os.getpid()) - before >= 0.05


def test_waiting_counts_as_a_wake_up_of_the_thread_that_waits():
    before = voluntary_switches(os.getpid())[os.getpid()]
    for _ in range(3):
        time.sleep(0.01)
    assert voluntary_switches(os.getpid())[os.getpid()] >= before + 3
