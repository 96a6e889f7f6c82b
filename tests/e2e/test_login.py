"""Log-in at start-up: controllers that are not there, wrong passwords, the pause after them, lost accounts."""

import re
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Callable, List

import pytest
from watched import LOGIN_FAILED, Watched, smart_disk, wait_until, without

MONITORED = "<VK0900> [TR] Start to monitor."
REGISTER = "Login to iLO was failed. Please input an account of iLO using iLO account registration tool."
FAST = 25  # twenty passes of 10 seconds take 8


def after_start(watched: Watched) -> List[str]:
    """The lines of the monitoring thread."""
    trace = without(watched.trace(), "Start cyclic serial log saving.")
    return trace[trace.index("<VK0900> [TR] Ready to wait stop event.") + 1:]


# ---- Controllers that do not let anybody in ----

@pytest.fixture(scope="module")
def unreachable(start_file_sim: Callable, watch_file: Callable[..., Watched]) -> "dict[str, Watched]":
    """Services before a closed port, a controller that is busy and one that talks nonsense; all at once."""
    busy, babbling, closing = (start_file_sim("--drives", 1) for _ in range(3))
    busy.control.call("status", "*", 503, "forever")
    babbling.control.call("wire", "*", "SSH-2.0-OpenSSH_9.2p1\r\n<html>\x00\x01", "forever")
    closing.control.call("drop", "*", "before", "forever")
    # What comes after the last pass is another test's.
    slow = {"iLo": {"interval": 3600000}}
    found = {
        "refused": watch_file(None, account=("monitor", "refused-secret"), speed=FAST, config=slow,
                              addresses=["192.0.2.1"]),
        "busy": watch_file(busy, speed=FAST, config=slow),
        "babbling": watch_file(babbling, speed=FAST, config=slow),
        "closing": watch_file(closing, speed=FAST, config=slow),
    }
    for watched in found.values():
        watched.start()
    with ThreadPoolExecutor() as pool:
        list(pool.map(lambda watched: watched.wait_line("Retry accessing vNIC.", 90), found.values()))
    return found


@pytest.mark.parametrize("kind", ["refused", "busy", "babbling", "closing"])
def test_twenty_passes_are_counted(unreachable: "dict[str, Watched]", kind: str) -> None:
    watched = unreachable[kind]
    assert after_start(watched) == [
        *(f"<VK0911> [ER] Failed to initialize RaidManager. : retry count={number}" for number in range(20)),
        "<VK0900> [TR] Retry accessing vNIC.",
    ]
    assert watched.host.syslog_entries() == []


def test_foreground_run_says_once_why_it_failed(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=("monitor", "refused-secret"), speed=FAST, stand_alone=True,
                    addresses=["192.0.2.1"]).start()
    watched.wait_line("retry count=2")
    reason = "https://127.0.0.1:9: POST /redfish/v1/SessionService/Sessions/: [Errno 111] Connection refused\n"
    assert watched.host.service_output().count(reason) == 1
    assert watched.reasons() == []


def test_every_pass_asks_the_controller_once(unreachable: "dict[str, Watched]") -> None:
    assert unreachable["busy"].counters()["requests"] == {"POST /redfish/v1/SessionService/Sessions/": 20}


def test_controller_that_comes_late_is_watched(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2)
    sim.control.call("status", "POST */Sessions", 503, 2)
    watched = watch(sim).start().wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1, ssd=True).failed)
    trace = without(after_start(watched), "<VK0999>", "[EV]")
    assert trace == [
        "<VK0911> [ER] Failed to initialize RaidManager. : retry count=0",
        "<VK0911> [ER] Failed to initialize RaidManager. : retry count=1",
        MONITORED,
    ]


def test_failure_of_the_first_walk_logs_in_anew(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2)
    sim.control.call("status", "GET */DiskDrives/1", 500, 1)
    watched = watch(sim).start()
    watched.wait_line(MONITORED)
    wait_until(lambda: watched.walks() >= 4, "baseline")
    assert without(after_start(watched), "<VK0999>") == [MONITORED]
    assert watched.counters()["logins"] == 2
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1, ssd=True).failed)


# ---- Wrong passwords ----

class Looks:
    """Counts how often the service looks at the account files: each look asks for the system's UUID."""

    def __init__(self, folder: Path) -> None:
        self._log = folder / "looks"
        folder.mkdir(exist_ok=True)
        tool = folder / "dmidecode"
        real = Path(__file__).resolve().parents[2] / "sim/bin/dmidecode"
        tool.write_text(f"#!/bin/sh\necho >>{self._log}\nexec {real} \"$@\"\n", encoding="utf-8")
        tool.chmod(0o755)
        self.env = {"PATH": f"{folder}:{real.parent}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}

    def count(self) -> int:
        return len(self._log.read_bytes()) if self._log.exists() else 0

    def wait(self, watched: Watched, number: int) -> None:
        """Waits for `number` looks more; one pass or cycle looks at most twice."""
        last = self.count() + number
        wait_until(lambda: self.count() >= last, f"{number} looks at the account files", 60, watched.host)


@pytest.fixture
def looks(tmp_path: Path) -> Looks:
    return Looks(tmp_path / "tools")


def test_wrong_password_pauses_an_hour_at_start_up(start_sim: Callable, watch: Callable[..., Watched],
                                                   looks: Looks) -> None:
    sim = start_sim("--drives", 2)
    watched = watch(sim, account=("simadmin", "wrong-secret"), env=looks.env, clock=True, speed=20).start()
    watched.wait_line(LOGIN_FAILED.line)
    watched.expect(LOGIN_FAILED, walks=0)
    said = [f"<VK0910> [ER] {REGISTER}", LOGIN_FAILED.line]
    assert after_start(watched) == said
    assert watched.counters()["refused_logins"] == 2

    watched.clock.set(58 * 60, 20)
    looks.wait(watched, 8)
    assert watched.counters()["total"] == 2  # nothing at all was asked meanwhile
    watched.clock.set(60 * 60, 20)
    wait_until(lambda: watched.counters()["refused_logins"] == 3, "log-in after an hour", 30, watched.host)
    # The pause starts anew: the same line again, and no second event.
    watched.wait_line("<VK0910>", count=2)
    looks.wait(watched, 8)
    assert after_start(watched) == [*said, f"<VK0910> [ER] {REGISTER}"]
    assert watched.counters()["total"] == 3

    # Another account ends the pause at once, and the twenty passes have not been used up.
    watched.register("simadmin", sim.password)
    watched.wait_line(MONITORED)
    assert watched.counters()["refused_logins"] == 3
    assert without(after_start(watched), "<VK0999>") == [*said, f"<VK0910> [ER] {REGISTER}", MONITORED]
    watched.wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1, ssd=True).failed)


def test_first_wrong_password_is_silent(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, account=("simadmin", "wrong-secret")).start()
    wait_until(lambda: watched.counters()["refused_logins"] == 1, "first log-in", 30, watched.host)
    watched.register("simadmin", sim.password)
    watched.wait_line(MONITORED)
    watched.expect(walks=0)
    assert without(after_start(watched), "<VK0999>") == [MONITORED]


def test_failed_log_in_is_not_reported_when_switched_off(start_sim: Callable, watch: Callable[..., Watched],
                                                         looks: Looks) -> None:
    watched = watch(start_sim("--drives", 1), account=("simadmin", "wrong-secret"), env=looks.env,
                    config={"iLO host": {"report": "false"}}).start()
    watched.wait_line("<VK0910>")
    looks.wait(watched, 4)
    assert after_start(watched) == [f"<VK0910> [ER] {REGISTER}"]
    assert watched.host.syslog_entries() == []


# ---- Accounts that are not registered ----

def test_account_of_the_configuration_alone_is_never_used(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, account=None, config={"iLo": {"account": sim.account, "password": sim.password}}).start()
    watched.wait_line(LOGIN_FAILED.line)
    watched.expect(LOGIN_FAILED, walks=0)
    assert after_start(watched) == [f"<VK0910> [ER] {REGISTER}", LOGIN_FAILED.line]
    assert watched.counters()["connections"] == 0  # without an account nobody is asked


def test_account_files_of_another_machine_count_as_missing(start_sim: Callable, watch: Callable[..., Watched],
                                                           tmp_path: Path) -> None:
    sim = start_sim("--drives", 1)
    uuid = tmp_path / "uuid"
    uuid.write_text("00112233-4455-6677-8899-aabbccddeeff\n", encoding="ascii")
    watched = watch(sim, env={"BAYWARD_SIM_UUID_FILE": str(uuid)})
    uuid.write_text("00112233-4455-6677-8899-AABBCCDDEEFF\n", encoding="ascii")  # the same, spelled otherwise
    watched.start().wait_line(MONITORED)
    assert watched.stop() == 0
    uuid.write_text("ffeeddcc-bbaa-9988-7766-554433221100\n", encoding="ascii")
    before = watched.counters()["connections"]
    watched.start().wait_line(LOGIN_FAILED.line)
    assert watched.counters()["connections"] == before


def test_account_that_is_lost_while_monitoring(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2)
    watched = watch(sim).start().wait_baseline()
    watched.unregister()
    watched.wait_line("<VK0954>")
    watched.expect(LOGIN_FAILED, walks=0)
    assert without(after_start(watched), "<VK0999>") == [MONITORED, LOGIN_FAILED.line, f"<VK0954> [ER] {REGISTER}"]
    counters = watched.counters()
    assert (counters["open_sessions"], counters["logins"], counters["refused_logins"]) == (0, 1, 0)
    assert re.fullmatch(r"\S+ \d+ DELETE /redfish/v1/SessionService/Sessions/\S+ 200", sim.requests()[-1])

    watched.register(sim.account, sim.password)
    watched.wait_line("<VK0950> [TR] Initializing RaidManager succeed.")
    watched.wait_walks(2)
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1, ssd=True).failed)


# ---- The controller's virtual network card ----

def test_virtual_nic_is_preferred(watch: Callable[..., Watched], tmp_path: Path) -> None:
    """A host with the link's address logs in there, whatever URL is configured."""
    watched = watch(None, account=("simadmin", "nic-secret"), url="https://192.0.2.99", env={"BAYWARD_SIM_VNIC": "1"},
                    addresses=["16.1.15.1", "16.1.15.2"])
    log = watched.host.work / "nic-requests"
    watched.host.spawn(["/usr/bin/python3", str(Path(__file__).resolve().parents[2] / "sim/controller.py"), "--ilo", "6",
                        "--mr-drives", "1", "--listen", "16.1.15.1:443", "--password", "nic-secret", "--log", str(log),
                        "--ready-file", str(watched.host.work / "nic-ready")])
    wait_until((watched.host.work / "nic-ready").exists, "controller", 20)
    watched.start().wait_line(MONITORED)
    walk = re.compile(r"GET /redfish/v1/Systems/(\?\S+)? 200")
    wait_until(lambda: len(walk.findall(log.read_text(encoding="utf-8"))) >= 3, "walks", 30, watched.host)
    assert watched.errors() == []
