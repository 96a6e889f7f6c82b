"""The in-band channel, with a package of the library's name and habits on the path."""

from __future__ import annotations

import logging
import sys
import textwrap

import pytest

SYSTEMS = "/redfish/v1/Systems/"
HOST = "blobstore://."

FAKE = """
    import logging, sys

    calls = []
    plan = {}     # where ("new", "login", "get", "logout") -> exception, or for "get" a list of (status, text)
    key = "k3y"

    class InvalidCredentialsError(Exception): pass
    class SecurityStateError(Exception): pass
    class HpIloInitialError(Exception): pass
    class NewerLoginError(InvalidCredentialsError): pass
    class HpIloChifPacketExchangeError(Exception): pass
    class ChifDllMissingError(Exception): pass

    class Answer:
        def __init__(self, status, read):
            self.status, self.read = status, read

    def step(name):
        print("noise on stdout")
        print("noise on stderr", file=sys.stderr)
        logging.getLogger("redfish.rest").error("noise in the log")
        error = plan.get(name)
        if isinstance(error, BaseException):
            raise error

    class RedfishClient:
        def __init__(self, **keywords):
            calls.append(("new", keywords))
            self.session_key = None
            step("new")

        def login(self):
            calls.append(("login",))
            step("login")
            self.session_key = key

        def get(self, path):
            calls.append(("get", path))
            step("get")
            answers = plan.get("get", [])
            status, text = answers.pop(0) if answers else (200, '{"@odata.id": "' + path + '", "Model": null}')
            return Answer(status, text)

        def logout(self):
            calls.append(("logout",))
            step("logout")
"""


@pytest.fixture
def package(tmp_path, monkeypatch):
    """A function that puts a package `redfish` on the path; whatever was imported of it is forgotten at the end."""
    def forget():
        for name in [name for name in sys.modules if name.partition(".")[0] == "redfish"]:
            del sys.modules[name]

    def install(source, hpilo=True):
        (tmp_path / "redfish").mkdir()
        (tmp_path / "redfish" / "__init__.py").write_text(textwrap.dedent(source))
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


def names(library):
    return [call[0] for call in library.calls]


def test_session_is_opened_used_and_ended(module, library):
    assert module.init(HOST, "user", "pass") == 200
    assert library.calls[0] == ("new", {"base_url": HOST, "username": "user", "password": "pass"})
    assert module.get(SYSTEMS) == '{"@odata.id":"/redfish/v1/Systems/","Model":null}'
    module.close()
    assert names(library) == ["new", "login", "get", "logout"]


@pytest.mark.parametrize("host", ["blobstore://", "BLOBSTORE://.", " blobstore://. "])
def test_other_spellings_are_in_band_too(module, library, host):
    assert module.init(host, "user", "pass") == 200
    assert library.calls[0][1]["base_url"] == HOST


def test_no_account_becomes_none_and_a_read_tells_whether_that_does(module, library):
    assert module.init(HOST, "None", "None") == 200
    assert library.calls[0][1]["username"] is None and library.calls[0][1]["password"] is None
    assert ("get", SYSTEMS) in library.calls


def test_failed_log_in_without_account_does_not_count_when_reading_works(module, library):
    library.plan["login"] = library.InvalidCredentialsError(0)
    assert module.init(HOST, "None", "None") == 200


@pytest.mark.parametrize("status, code", [(401, 401), (403, 401), (503, 10001), (404, 10001)])
def test_refused_read_without_account_is_a_refused_log_in(module, library, status, code):
    library.plan["login"] = library.InvalidCredentialsError(0)
    library.plan["get"] = [(status, "{}")] * 2
    assert module.init(HOST, "None", "None") == code


@pytest.mark.parametrize("step", ["new", "login"])
@pytest.mark.parametrize("error, code", [
    ("InvalidCredentialsError", 401), ("SecurityStateError", 401), ("HpIloInitialError", 401), ("NewerLoginError", 401),
    ("HpIloChifPacketExchangeError", 10001), ("ChifDllMissingError", 10001),
])
def test_errors_are_judged_by_the_names_of_their_classes(module, library, step, error, code):
    library.plan[step] = getattr(library, error)("InvalidCredentialsError in a text means nothing")
    assert module.init(HOST, "user", "pass") == code
    assert module.get(SYSTEMS) == 10001


@pytest.mark.parametrize("error", [ValueError("x"), SystemExit(3), KeyboardInterrupt(), MemoryError(),
                                   RecursionError()])
def test_any_other_error_is_another_error(module, library, error):
    library.plan["new"] = error
    assert module.init(HOST, "user", "pass") == 10001


def test_log_in_without_session_key_is_another_error(module, library):
    library.key = ""
    assert module.init(HOST, "user", "pass") == 10001


def test_lost_channel_in_a_get_is_another_error(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = library.HpIloChifPacketExchangeError()
    assert module.get(SYSTEMS) == 10001


def test_expired_session_is_opened_once_more(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(401, "{}")]
    assert "Model" in module.get(SYSTEMS)
    assert names(library) == ["new", "login", "get", "new", "login", "get"]
    assert library.calls[3][1]["password"] == "pass"


def test_session_that_stays_refused_is_refused(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(401, "{}")] * 2
    assert module.get(SYSTEMS) == 401


@pytest.mark.parametrize("text", [None, "", "no json", "[]", b"\xff"])
def test_answer_without_object_is_another_error(module, library, text):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(200, text)]
    assert module.get(SYSTEMS) == 10001


def test_not_ready_answer_is_handed_on(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(503, '{"error":{"code":"ResourceNotReadyRetry"}}')]
    assert "ResourceNotReadyRetry" in module.get(SYSTEMS)


@pytest.mark.parametrize("error", [ValueError("x"), SystemExit(1)])
def test_close_returns_although_the_log_out_fails(module, library, error):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["logout"] = error
    assert module.close() is None


def test_session_that_cannot_read_is_ended_again(module, library):
    library.plan["get"] = [(403, "{}")]
    assert module.init(HOST, "None", "None") == 401
    assert names(library)[-1] == "logout"


def test_nothing_the_library_writes_reaches_terminal_or_log(module, library, capfd, caplog):
    module.init(HOST, "user", "pass")
    module.get(SYSTEMS)
    module.close()
    written = capfd.readouterr()
    assert "noise" not in written.out + written.err + caplog.text


def test_absent_library_is_said_in_one_line_that_tells_how_to_install_it(module, package, caplog, capfd):
    sys.modules["redfish"] = None  # as if nothing of that name were installed
    for _ in range(3):
        assert module.init(HOST, "None", "None") == 10001
    assert [record.levelno for record in caplog.records] == [logging.WARNING]
    assert "python3-ilorest" in caplog.text
    assert "Traceback" not in capfd.readouterr().err


def test_generic_library_of_the_same_name_is_not_taken_for_it(module, package, caplog):
    package(FAKE, hpilo=False)
    assert module.init(HOST, "None", "None") == 10001
    assert "not the controller's library" in caplog.text and "python3-ilorest" in caplog.text


@pytest.mark.parametrize("source", ["raise RuntimeError('broken')", "import sys; sys.exit(4)", "def (",
                                    "import a_missing_package"])
def test_library_that_does_not_load_is_another_error(module, package, caplog, source):
    package(source)
    assert module.init(HOST, "None", "None") == 10001
    assert "does not load" in caplog.text


def test_service_root_is_read_in_band_too(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(200, '{"Oem":{"Hpe":{"Moniker":{"PRODGEN":"iLO 5"}}}}')]
    assert module.get_prodgen(HOST, "user", "pass") == "iLO 5"
