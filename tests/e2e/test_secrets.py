"""The password stands in no log, whatever fails. Every other test looks for its passwords too, when it ends."""

from typing import Callable, Tuple

import pytest
from watched import Watched

PASSWORDS = ["plain-secret-4711", "p%s%n\"q'u\\o$te;", "geheim-päßwörd"]


@pytest.mark.parametrize("password", PASSWORDS)
def test_refused_password(start_sim: Callable, watch: Callable[..., Watched], password: str) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, account=("simadmin", password), speed=20).start()
    watched.wait_line("<VK0910>")
    checked = watched.ctl("account", "check", "--login")
    assert checked.returncode == 1
    assert password not in checked.stdout + checked.stderr
    assert watched.stop() == 0
    watched.assert_clean()


@pytest.mark.parametrize("fault", [("status", "*", 503, "forever"), ("wire", "*", "nonsense\r\n\r\n", "forever"),
                                   ("body", "POST */Sessions", '{"error":"plain-secret"}', "forever")],
                         ids=lambda fault: fault[0])
def test_log_in_that_fails_otherwise(start_sim: Callable, watch: Callable[..., Watched], fault: Tuple) -> None:
    sim = start_sim("--drives", 1, password=PASSWORDS[0])
    sim.control.call(*fault)
    watched = watch(sim, speed=20, config={"iLo": {"account": "other", "password": "configured-secret"}})
    watched.secrets.append("configured-secret")
    watched.start().wait_line("<VK0911>", count=2)
    assert watched.stop() == 0
    assert {path.name for path in watched.written_files()} >= {"bayward.log", "service.out", "service.err"}
    watched.assert_clean()


def test_secret_is_no_argument_and_no_variable(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """Of the service, nor of anything it starts."""
    watched = watch(start_sim("--drives", 1, password=PASSWORDS[0])).start().wait_baseline()
    secret = PASSWORDS[0].encode()
    for process in watched.host.processes():
        for name in ("cmdline", "environ"):
            try:
                with open(f"/proc/{process.pid}/{name}", "rb") as file:
                    assert secret not in file.read()
            except (FileNotFoundError, ProcessLookupError):
                pass  # a tool that has ended
