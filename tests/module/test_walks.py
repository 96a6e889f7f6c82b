"""Whole walks over simulated servers: the same texts however the controller meets the expansion, and their requests."""

from __future__ import annotations

import json
import subprocess
import sys

import pytest
from conftest import _ROOT
from storage_walk import Walk

from simcontroller.process import ControllerProcess

MODES = ("on", "off", "refuse", "missing", "fail")  # of the simulator's $expand
FAMILIES = ("--mr", "1", "--mr-drives", "3", "--mr-volumes", "2", "--sr", "1", "--sr-drives", "3", "--ns204", "1", "--nvme",
            "2", "--sata", "1", "--vroc", "1")
SERVERS = {
    "ilo5": ("--ilo", "5", "--controllers", "2", "--drives", "5", "--volumes", "2", "--mr10", "1", *FAMILIES),
    "ilo5-redirecting": ("--ilo", "5", "--firmware", "1.15", "--drives", "3"),
    "ilo6": ("--ilo", "6", *FAMILIES),
    "ilo7": ("--ilo", "7", *FAMILIES),
    **{path.name: ("--tree", str(path)) for path in sorted((_ROOT / "tests/e2e/trees").iterdir()) if path.is_dir()},
}

# Large servers, with the requests of one walk: of one that reads everything by itself, and of one that may expand. The
# first walk of a session asks for each collection in both forms.
TREES = {
    "S": (("--ilo", "5", "--controllers", "2", "--drives", "24", "--volumes", "4"), 73, 15),
    "L": (("--ilo", "5", "--controllers", "1", "--drives", "200", "--volumes", "4"), 214, 9),
    "M": (("--ilo", "6", "--mr", "2", "--mr-drives", "24", "--mr-volumes", "4"), 67, 67 // 4),
}


@pytest.fixture(autouse=True)
def settings(module):
    yield
    module.configure({})


def logged_in(module, sim, **settings):
    module.configure(settings)
    assert module.init(sim.url, sim.account, sim.password) == 200


def requests(sim):
    """The requests since the last time, log-in and log-out left out."""
    counted = sim.control.call("counters")["requests"]
    sim.control.call("reset-counters")
    return sum(count for request, count in counted.items() if "/SessionService/" not in request)


def walked(module, sim, walks=3):
    """The requests of each walk; all gave the same texts, which come with them."""
    requests(sim)
    texts, counts = [], []
    for _ in range(walks):
        texts.append(Walk(module.get).texts)
        counts.append(requests(sim))
    assert all(other == texts[0] for other in texts)
    return counts, texts[0]


@pytest.mark.parametrize("server", SERVERS)
def test_walk_gives_the_same_texts_however_the_controller_expands(module, server):
    with ControllerProcess(*SERVERS[server]) as sim:
        logged_in(module, sim, expand=False)
        _, plain = walked(module, sim)
        assert len(plain) > 4
        for mode in MODES:
            sim.control.call("expand", mode)
            logged_in(module, sim)
            assert walked(module, sim)[1] == plain, mode
        sim.control.call("expand", "on")
        logged_in(module, sim)
        for path in ("/redfish/v1/Systems/1/Storage/", "*/DiskDrives/", "*/Volumes", "*/Chassis/*/Drives"):
            sim.control.call("status", f"{path}[?]$expand=.", 500)
            assert Walk(module.get).texts == plain, path  # what was expanded before is read plainly now
        module.close()


@pytest.mark.parametrize("tree", TREES)
def test_walk_costs_few_requests(module, tree):
    options, plain, most = TREES[tree]
    with ControllerProcess(*options) as sim:
        reference = json.loads(subprocess.run(
            [sys.executable, str(_ROOT / "tests/bench/reference-walk.py"), sim.url, sim.account, sim.password],
            capture_output=True, check=True, timeout=60).stdout)
        assert reference["requests"] == plain
        logged_in(module, sim)
        counts, _ = walked(module, sim, 5)
        assert max(counts[1:]) <= most
        assert counts[0] <= most + 6
        for mode in MODES[1:]:
            sim.control.call("expand", mode)
            logged_in(module, sim)
            counts, _ = walked(module, sim)
            assert max(counts[1:]) <= plain * 1.08, mode
        module.close()


def test_walks_share_one_connection_and_one_log_in(module):
    with ControllerProcess(*TREES["S"][0]) as sim:
        logged_in(module, sim)
        for _ in range(20):
            Walk(module.get)
        counters = sim.control.call("counters")
        assert (counters["connections"], counters["logins"]) == (1, 1)
        module.close()


def test_session_that_expires_between_walks_goes_on_expanding(module, ilo5):
    logged_in(module, ilo5)
    walked(module, ilo5, 1)
    first, texts = walked(module, ilo5, 1)
    for _ in range(3):
        ilo5.control.call("expire-sessions")
        requests(ilo5)
        assert Walk(module.get).texts == texts
        assert requests(ilo5) == first[0] + 1  # the one that was refused


def test_session_that_expires_in_a_walk_goes_on_expanding(module, ilo5):
    logged_in(module, ilo5)
    walked(module, ilo5, 1)
    first, texts = walked(module, ilo5, 1)

    def get(path):
        if path.rstrip("/").endswith("/DiskDrives"):
            ilo5.control.call("expire-sessions")
        return module.get(path)

    requests(ilo5)
    assert Walk(get).texts == texts
    assert requests(ilo5) == first[0] + 1
    assert walked(module, ilo5, 1) == (first, texts)


@pytest.mark.parametrize("path", ["*/DiskDrives/", "*/ArrayControllers/", "*/LogicalDrives/"])
# Two connections that end before the first byte: after one the request is sent again as it was.
@pytest.mark.parametrize("fault", [("drop", "before", 2), ("drop", "during", 1), ("cut", 40, 1),
                                   ("hang", "headers", 0.8, 1), ("hang", "body", 0.8, 1),
                                   ("wire", "HTTP/1.1 200 OK\r\n\r\n{", 1), ("body", "{", 1), ("not-ready", 1),
                                   ("missing", 1), ("status", 502, 1)])
def test_expanded_answer_that_fails_once_is_made_good_in_the_same_walk(module, ilo5, monkeypatch, path, fault):
    import _bayward_wire

    monkeypatch.setattr(_bayward_wire, "READ_SECONDS", 0.4)
    logged_in(module, ilo5)
    _, texts = walked(module, ilo5, 1)
    verb, *arguments = fault
    ilo5.control.call(verb, f"{path}[?]$expand=.", *arguments)
    assert Walk(module.get).texts == texts
    ilo5.control.call("clear-faults")
    assert Walk(module.get).texts == texts


def test_login_forgets_what_was_in_place(module, ilo5):
    drives = "/redfish/v1/Systems/1/SmartStorage/ArrayControllers/0/DiskDrives/"
    for again in (module.close, lambda: None):
        logged_in(module, ilo5)
        module.get(drives)
        again()
        logged_in(module, ilo5)
        requests(ilo5)
        assert '"Id":"1"' in module.get(drives + "1/")
        assert requests(ilo5) == 1
