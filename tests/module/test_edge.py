"""The edge of the module: whatever breaks inside, a caller gets a code, and an administrator a line to go by."""

from __future__ import annotations

import logging

import pytest

import _bayward_resources
import baywardilorest

SYSTEMS = "/redfish/v1/Systems/"


class Broken(logging.Handler):
    """A log that cannot be written."""

    def __init__(self, error):
        super().__init__()
        self.error = error

    def emit(self, record):
        raise self.error


@pytest.mark.parametrize("error", [OSError("full"), MemoryError(), SystemExit(1), KeyboardInterrupt()])
def test_report_that_fails_is_not_raised(module, monkeypatch, error):
    handler = Broken(error)
    logger = logging.getLogger("baywardilorest")
    logger.addHandler(handler)
    try:
        assert module.get(SYSTEMS) == 10001
        assert module.init("https://127.0.0.1:1", "None", "None") == 401
        monkeypatch.setattr(baywardilorest, "_close", None)
        assert module.close() == 10001
    finally:
        logger.removeHandler(handler)


@pytest.mark.parametrize("error", [OSError("x"), SystemExit(1), RecursionError()])
def test_close_never_raises_and_closes(module, ilo5, monkeypatch, error):
    def fail(*_):
        raise error

    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
    log_out = module._open.session.log_out
    monkeypatch.setattr(module._open.session, "log_out", fail)
    assert module.close() == 10001
    assert module._open is None
    log_out()


def test_unexpected_error_is_reported_with_its_place_and_without_its_text(module, ilo5, monkeypatch, caplog):
    def fail(*_):
        raise KeyError("s3cret")

    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
    caplog.clear()
    monkeypatch.setattr(_bayward_resources, "shaped_text", fail)
    assert module.get(SYSTEMS) == 10001
    line, = [record.getMessage() for record in caplog.records]
    assert line.startswith("An error of the service itself: KeyError in get() at test_edge.py:")
    assert "s3cret" not in line


def test_answer_that_is_no_object_is_reported_with_its_path(module, ilo5, caplog):
    assert module.init(ilo5.url, ilo5.account, ilo5.password) == 200
    ilo5.control.call("body", "*/Systems", "hello")
    assert module.get(SYSTEMS) == 10001
    assert caplog.records[-1].getMessage() == f"GET {SYSTEMS}: An answer of the controller is not JSON."


def test_missing_account_says_how_to_register_one(module, caplog):
    assert module.init("https://127.0.0.1:1", "None", "None") == 401
    assert '"baywardctl account set ACCOUNT"' in caplog.text


def test_quiet_module_tells_who_takes_reports_alone(module, caplog):
    module.configure({"quiet": True})
    try:
        assert module.init("https://127.0.0.1:1", "None", "None") == 401
    finally:
        module.configure({})
    assert caplog.text == ""
    assert module.take_report().startswith("No account of the controller is registered; ")
    assert module.get(SYSTEMS) == 10001
    assert caplog.records[-1].getMessage() == module.take_report() != ""
