"""baywardctl health beside the real service."""

import json
import os
import re
import signal
from pathlib import Path
from typing import Any, Callable, Set

from watched import ROOT, Watched, wait_until


def names_of(document: Any) -> Set[str]:
    """Every member's name, at every depth."""
    if isinstance(document, list):
        return set().union(*map(names_of, document))
    if isinstance(document, dict):
        return set(document).union(*map(names_of, document.values()))
    return set()


def health(watched: Watched) -> "tuple[int, dict]":
    done = watched.ctl("health", "--format", "json")
    assert done.stderr == ""
    return done.returncode, json.loads(done.stdout)


def test_threads_carry_their_names(natural: Watched) -> None:
    natural.wait_line("Start cyclic serial log saving.")
    names = sorted((task / "comm").read_text(encoding="ascii").strip()
                   for task in Path(f"/proc/{natural.host.pid}/task").iterdir())
    assert names == ["OS log", "Serial log", "Signals", "bayward"]


def test_running_service_is_well(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1, "--ssd", 1)
    watched = watch(sim, speed=1, config={"iLo": {"interval": 3000}}).start()
    watched.wait_line("<VK0900> [TR] Start to monitor.", 60)
    status, found = health(watched)
    assert (status, found["problems"], found["running"]) == (0, [], True)
    threads = {thread["name"]: thread for thread in found["threads"]}
    assert {name: (thread["expected"], thread["lives"]) for name, thread in threads.items()} == {
        "OS log": (True, True), "Serial log": (True, True), "Media Error": (False, False)}
    assert threads["OS log"]["outcome"] == "Start to monitor."
    assert found["connections"] == 1
    described = re.findall(r"^\| `([a-z_]+)` \|", (ROOT / "docs/health-json.md").read_text(encoding="utf-8"), re.M)
    assert names_of(found) == set(described)
    assert 0 <= found["uptime_seconds"] < 120
    assert found["descriptors"] == len(watched.host.descriptors())
    assert 2 ** 20 < found["resident_bytes"] < 2 ** 28
    assert watched.ctl("health").stdout.endswith("All is well.\n")
    assert '\nbayward_service_thread_up{thread="OS log"} 1\n' in watched.ctl("status", "--format", "prometheus").stdout

    done = watched.ctl("status", "--format", "nagios")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith("BAYWARD OK - 1 drive, ") and " threads=2;;;0 " in done.stdout

    sim.control.call("status", "*", 503, "forever")
    watched.wait_line("<VK0956>", 60)
    status, found = health(watched)
    assert status == 1
    assert found["problems"][0].endswith(": Failed to initialize RaidManager.")
    done = watched.ctl("status", "--format", "nagios")
    assert done.returncode == 3
    assert done.stdout.startswith(f"BAYWARD UNKNOWN - The controller at {sim.url} could not be asked (")
    assert "HTTP status 503" in done.stdout
    assert 'The thread "OS log" fails since ' in done.stdout

    # Root, but not allowed to look at processes that may do more.
    guarded = ["setpriv", "--bounding-set", "-sys_ptrace", str(watched.host.runtime / "baywardctl"), "health"]
    for form, told in (("table", "cannot be found out"), ("nagios", "BAYWARD SERVICE UNKNOWN - "),
                       ("prometheus", "# Whether the service runs cannot"), ("json", '"running":null')):
        done = watched.host.run([*guarded, "--format", form], env=watched.environment())
        assert (done.returncode, done.stderr) == (3, "")
        assert told in done.stdout and "bayward_service_up" not in done.stdout

    # The same where /proc does not even list them.
    mounted = ("mount -t proc -o hidepid=invisible none /proc && exec setpriv --bounding-set -sys_ptrace "
               f"{watched.host.runtime}/baywardctl health --format nagios")
    done = watched.host.run(["unshare", "--mount", "sh", "-c", mounted], env=watched.environment())
    assert (done.returncode, done.stderr) == (3, "")
    assert done.stdout.startswith("BAYWARD SERVICE UNKNOWN - Whether the service runs cannot be found out")

    assert watched.stop() == 0
    for form, told in (("table", "The service is not running"), ("nagios", "BAYWARD SERVICE CRITICAL - "),
                       ("prometheus", "bayward_service_up 0"), ("json", '"running":false')):
        done = watched.ctl("health", "--format", form)
        assert (done.returncode, done.stderr) == (2, "")
        assert told in done.stdout


def test_thread_that_never_started_is_missed(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """The configuration asks for it since the start; nobody restarted the service."""
    watched = watch(start_sim("--drives", 1), speed=10).start()
    watched.wait_line("Ready to wait stop event.")
    config = watched.host.outer("/etc/opt/tarn/bayward/bayward.conf")
    config.write_text(config.read_text(encoding="utf-8").replace("check=false", "check=true"), encoding="utf-8")
    status, found = health(watched)
    assert status == 2
    done = watched.ctl("status", "--format", "nagios")
    assert (done.returncode, done.stderr) == (2, "")
    assert done.stdout.startswith('BAYWARD CRITICAL - The thread "Media Error" has ended or never started')
    assert any('"Media Error" has ended or never started' in problem for problem in found["problems"])


def test_program_that_another_user_starts_is_not_the_service(watch: Callable[..., Watched]) -> None:
    """Although the system shows the service's very path for it."""
    watched = watch(None, account=None, speed=1)
    service = watched.host.runtime / "bayward"
    for user, running in ((65534, False), (0, True)):
        pid = watched.host.spawn(["unshare", "--mount", "sh", "-c", f"mount --bind /bin/sleep {service} && exec "
                                  f"setpriv --reuid {user} --clear-groups {service} 300"])
        wait_until(lambda: Path(f"/proc/{pid}/comm").read_text(encoding="ascii") == "bayward\n", "the other program")
        assert os.readlink(f"/proc/{pid}/exe") == str(service)
        status, found = health(watched)
        assert (status, found["running"]) == (2, running)  # it has none of the threads
        os.kill(pid, signal.SIGKILL)


def test_wrong_usage_cannot_be_taken_for_a_finding(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1)
    for arguments in (("--format", "yaml"), ("--bogus",), ("extra",)):
        done = watched.ctl("health", *arguments)
        assert (done.returncode, done.stdout) == (3, "")
