"""Fixtures: the module with nothing open, controllers to talk to, and limits short enough to wait for."""

from __future__ import annotations

import logging
import subprocess
import sys
from pathlib import Path

import pytest

_ROOT = Path(__file__).resolve().parents[2]
MODULE_FOLDER = _ROOT / "ilorest" / "module"
for folder in (MODULE_FOLDER, _ROOT / "sim", Path(__file__).resolve().parent):
    sys.path.insert(0, str(folder))

import _bayward_outcome  # noqa: E402
import _bayward_resources  # noqa: E402
import _bayward_session  # noqa: E402
import _bayward_wire  # noqa: E402
import baywardilorest  # noqa: E402
from fake_library import FAKE  # noqa: E402
from raw_server import RawServer  # noqa: E402
from simcontroller.process import ControllerProcess  # noqa: E402


@pytest.fixture(autouse=True)
def _nothing_remembered():
    """What outlives the module in the service does not outlive a test."""
    yield
    sys.modules.pop("bayward remembers", None)


@pytest.fixture
def module(caplog):
    """The module, closed again at the end. What it reports is in caplog."""
    caplog.set_level(logging.INFO)
    _bayward_outcome.forget_report()
    yield baywardilorest
    baywardilorest.close()


@pytest.fixture(scope="session")
def certificate(tmp_path_factory):
    folder = tmp_path_factory.mktemp("certificate")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                    "-days", "2", "-subj", "/CN=controller.test", "-keyout", folder / "key.pem",
                    "-out", folder / "cert.pem"], check=True, capture_output=True)
    return folder / "cert.pem", folder / "key.pem"


@pytest.fixture
def raw_server(certificate):
    """A function that starts a TLS server with a script; all are stopped at the end."""
    servers = []

    def start(script, address="127.0.0.1"):
        server = RawServer(script, certificate, address)
        servers.append(server)
        return server

    yield start
    for server in servers:
        server.stop()


@pytest.fixture(scope="session")
def _ilo5_process():
    with ControllerProcess("--ilo", "5", "--drives", "4", "--volumes", "1", "--session-limit", "6") as sim:
        yield sim


@pytest.fixture(scope="session")
def _ilo6_process():
    with ControllerProcess("--ilo", "6", "--mr-drives", "3", "--session-limit", "6") as sim:
        yield sim


def _reset(sim):
    sim.control.call("clear-faults")
    sim.control.call("account", sim.account, sim.password)
    sim.control.call("expire-sessions")
    sim.control.call("session-limit", 6)
    sim.control.call("reset-counters")


@pytest.fixture
def ilo5(_ilo5_process):
    """A simulated iLO 5 with a Smart Array controller, without faults, sessions and counts."""
    _reset(_ilo5_process)
    yield _ilo5_process
    _reset(_ilo5_process)


@pytest.fixture
def ilo6(_ilo6_process):
    """A simulated iLO 6 with an MR controller and no SmartStorage, without faults, sessions and counts."""
    _reset(_ilo6_process)
    yield _ilo6_process
    _reset(_ilo6_process)


@pytest.fixture
def short_limits(monkeypatch):
    """Time limits cut to tenths of seconds: read 0.4 s, a whole get 1.0 s, connecting 0.5 s, log-out 0.5 s."""
    monkeypatch.setattr(_bayward_wire, "READ_SECONDS", 0.4)
    monkeypatch.setattr(_bayward_wire, "CONNECT_SECONDS", 0.5)
    monkeypatch.setattr(_bayward_resources, "GET_SECONDS", 1.0)
    monkeypatch.setattr(_bayward_session, "LOGOUT_SECONDS", 0.5)


@pytest.fixture
def package(tmp_path, monkeypatch):
    """A function that puts a package `redfish` on the path; whatever was imported of it is forgotten at the end."""
    def forget():
        for name in [name for name in sys.modules if name.partition(".")[0] == "redfish"]:
            del sys.modules[name]

    def install(source, hpilo=True):
        (tmp_path / "redfish").mkdir()
        (tmp_path / "redfish" / "__init__.py").write_text(source)
        if hpilo:
            (tmp_path / "redfish" / "hpilo").mkdir()
            (tmp_path / "redfish" / "hpilo" / "__init__.py").write_text("")
        monkeypatch.syspath_prepend(str(tmp_path))

    forget()
    yield install
    forget()


@pytest.fixture
def library(package):
    package(FAKE)
    import redfish

    return redfish
