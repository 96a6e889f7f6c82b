"""The in-band channel: sessions, their renewal and how each failure is judged."""

from __future__ import annotations

import pytest
from fake_library import HOST, names

SYSTEMS = "/redfish/v1/Systems/"


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
    ("UnauthorizedLoginAttemptError", 401),
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


@pytest.mark.parametrize("error", ["InvalidCredentialsError", "SecurityStateError", "HpIloInitialError",
                                   "UnauthorizedLoginAttemptError"])
def test_refusal_raised_in_a_get_is_refused(module, library, error):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = getattr(library, error)()
    assert module.get(SYSTEMS) == 401


def test_lost_channel_in_a_get_is_another_error(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = library.HpIloChifPacketExchangeError()
    assert module.get(SYSTEMS) == 10001


def test_expired_session_is_opened_once_more(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(401, "{}")]
    assert "Model" in module.get(SYSTEMS)
    assert names(library) == ["new", "login", "get", "logout", "new", "login", "get"]
    assert library.calls[4][1]["password"] == "pass"


def test_expired_session_that_cannot_be_ended_is_opened_once_more(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan.update(get=[(401, "{}")], logout=SystemExit(1))
    assert "Model" in module.get(SYSTEMS)


def test_renewal_that_fails_leaves_no_session_and_is_made_good_by_the_next_get(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan.update(get=[(401, "{}")], login=library.ChifDllMissingError())
    assert module.get(SYSTEMS) == 10001
    assert names(library)[2:] == ["get", "logout", "new", "login"]
    del library.plan["login"]
    assert "Model" in module.get(SYSTEMS)
    assert names(library)[6:] == ["new", "login", "get"]


def test_log_in_that_fails_after_its_session_was_opened_ends_it(module, library):
    library.plan["late"] = library.HpIloChifPacketExchangeError()
    assert module.init(HOST, "user", "pass") == 10001
    assert names(library) == ["new", "login", "logout"]


def test_session_that_stays_refused_is_refused(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(401, "{}")] * 2
    assert module.get(SYSTEMS) == 401
    library.plan["get"] = [(401, "{}")]
    assert module.get(SYSTEMS) == 401
    assert names(library).count("login") == 2


def test_path_with_blanks_and_line_ends_is_quoted(module, library):
    assert module.init(HOST, "user", "pass") == 200
    module.get("/redfish/v1/a b\r\nX-Evil: 1\u00e9%20\ud800")
    assert library.calls[-1] == ("get", "/redfish/v1/a%20b%0D%0AX-Evil:%201%C3%A9%20%ED%A0%80")


def test_collections_are_asked_plainly(module, library):
    """Nothing limits how long the library lets the controller make a large answer."""
    assert module.init(HOST, "user", "pass") == 200
    module.get(SYSTEMS + "1/Storage/")
    assert library.calls[-1] == ("get", SYSTEMS + "1/Storage/")


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


def test_channel_that_wants_an_account_says_so(module, library, caplog):
    library.plan["get"] = [(401, "{}")]
    assert module.init(HOST, "None", "None") == 401
    assert '"baywardctl account set ACCOUNT"' in caplog.text


def test_service_root_is_read_in_band_too(module, library):
    assert module.init(HOST, "user", "pass") == 200
    library.plan["get"] = [(200, '{"Oem":{"Hpe":{"Moniker":{"PRODGEN":"iLO 5"}}}}')]
    assert module.get_prodgen(HOST, "user", "pass") == "iLO 5"
