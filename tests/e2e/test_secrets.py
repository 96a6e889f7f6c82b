"""The password stands in no log, whatever fails. Every other test looks for its passwords too, when it ends."""

import signal
from pathlib import Path
from typing import Callable, Tuple

import pytest
from watched import Watched

PASSWORDS = ["plain-secret-4711", "p%s%n\"q'u\\o$te;", "geheim-päßwörd"]

# Starts a program that may leave cores of any size, lets it crash, if need be once a line stands in a file, and tells
# whether it left one: the kernel says so whether the core becomes a file or is handed to another program.
CRASH = """
import os, resource, signal, subprocess, sys, time
folder, log, line, *argv = sys.argv[1:]
os.chdir(folder)  # a core goes to the working folder, if nothing else is set
most = resource.getrlimit(resource.RLIMIT_CORE)[1]
resource.setrlimit(resource.RLIMIT_CORE, (most, most))
program = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).pid
while log and not (os.path.exists(log) and line in open(log, errors="replace").read()):
    time.sleep(0.05)
os.kill(program, signal.SIGABRT)
status = os.waitpid(program, 0)[1]
print(os.WTERMSIG(status), "core" if os.WCOREDUMP(status) else "no core")
"""


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


def test_crash_leaves_no_core(watch: Callable[..., Watched], tmp_path: Path) -> None:
    """Whatever limit the launcher set: it would hold the password."""
    host = watch(None, speed=1).host
    log = "/var/log/bayward/bayward.log"

    def crash(*arguments: str) -> str:
        crashed = host.run(["/usr/bin/python3", "-c", CRASH, str(tmp_path), *arguments])
        assert crashed.returncode == 0, crashed.stderr
        return crashed.stdout.strip()

    # A sleeping program tells whether this system makes cores at all.
    if crash("", "", "sleep", "60") != f"{signal.SIGABRT:d} core":
        pytest.skip("this system makes no cores")
    assert crash(log, "Ready to wait stop event.", str(host.runtime / "bayward"), "--stand-alone") == \
        f"{signal.SIGABRT:d} no core"
