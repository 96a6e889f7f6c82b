"""baywardctl status against simulated controllers: what it shows, what it asks for, how it ends."""

import json
import os
import pty
import re
import shutil
import signal
import stat
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any, Callable, Dict, List, NamedTuple, Set

import pytest
from expansion import expansion
from watched import ROOT, Watched, bin_dir, wait_until

sys.path.insert(0, str(ROOT / "tests/module"))

from authority import Authority  # noqa: E402

NOT_RUNNING = 'The service is not running; start it with "systemctl start bayward"'
REGISTER = 'register the account with "baywardctl account set".'
TREES = sorted(path for path in (ROOT / "tests/e2e/trees").iterdir() if path.is_dir())
# The server of the demo with what befalls it.
DEMO = ("--ilo", 5, "--drives", 6, "--ssd", 3, "--volumes", 2)
TROUBLE = (("predict-drive", 1, 4), ("fail-drive", 1, 5), ("wear-drive", 1, 2, 95), ("offline-volume", 1, 2))


@pytest.fixture
def demo(start_sim: Callable, watch: Callable[..., Watched]) -> Watched:
    """A host with a server in trouble, on which no service runs."""
    sim = start_sim(*DEMO)
    for verb in TROUBLE:
        sim.control.call(*verb)
    return watch(sim, speed=1)


@pytest.fixture
def promtool() -> Callable[[str], None]:
    program = shutil.which("promtool")
    if program is None:
        if os.environ.get("CI") == "true":
            pytest.fail("promtool is missing; install the package prometheus")
        pytest.skip("promtool is missing; install the package prometheus")

    def check(text: str) -> None:
        done = subprocess.run([program, "check", "metrics"], input=text, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, encoding="utf-8", timeout=60, check=False)
        assert (done.returncode, done.stdout) == (0, "")
    return check


def report_of(watched: Watched) -> Dict[str, Any]:
    done = watched.ctl("status", "--format", "json")
    assert (done.returncode, done.stderr) == (0, "")
    return json.loads(done.stdout)


def controllers_of(report: Dict[str, Any]) -> List[Dict[str, Any]]:
    return [controller for system in report["systems"] for controller in system["controllers"]]


def drives_of(report: Dict[str, Any]) -> List[Dict[str, Any]]:
    return [drive for controller in controllers_of(report) for drive in controller["drives"]]


def assert_nothing_written(watched: Watched) -> None:
    assert watched.host.trace_lines() == []
    assert watched.host.syslog_entries() == []


def assert_one_problem(watched: Watched, problem: str) -> None:
    """The plugin finds this problem, and of the drives none."""
    done = watched.ctl("status", "--format", "nagios")
    assert (done.returncode, done.stderr, done.stdout.count("\n")) == (2, "", 1)
    assert done.stdout.startswith(f"BAYWARD CRITICAL - {problem}")
    assert "drives_warning=0;" in done.stdout and "drives_critical=0;" in done.stdout


# ---- What is shown ----

def test_table_shows_every_drive_and_what_the_service_says(demo: Watched) -> None:
    done = demo.ctl("status")
    assert (done.returncode, done.stderr) == (0, "")
    rows = [line.split() for line in done.stdout.splitlines()]
    for words in ("1I:1:1 VK000960GWTEST SIMSA00D0000 960 GB SSD OK 98 % -",
                  "1I:1:2 VK000960GWTEST SIMSA00D0001 960 GB SSD OK 5 % 95 % worn",
                  "1I:1:4 EG001200JWTEST SIMSA00D0003 1200 GB HDD Warning - predicts failure",
                  "2I:1:5 EG001200JWTEST SIMSA00D0004 1200 GB HDD Critical - failed",
                  "2 - 3 Critical, Disabled offline",
                  "1 controller, all well; 2 logical drives, 1 critical; 6 drives, 2 critical, 1 warning"):
        assert words.split() in rows
    assert "error    0xC0008151  A physical drive has failed: " in done.stdout
    assert max(map(len, done.stdout.splitlines())) <= 100
    assert "\x1b" not in done.stdout  # no terminal
    assert_nothing_written(demo)


def test_sentences_are_in_the_language_of_the_system(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim(*DEMO)
    sim.control.call("fail-drive", 1, 5)
    done = watch(sim, speed=1, locale="LANG=ja_JP.UTF-8").ctl("status")
    assert "物理ドライブが故障しました" in done.stdout


def test_same_events_as_the_service_reports(demo: Watched) -> None:
    found = {(drive["location"], event["id"]) for drive in drives_of(report_of(demo)) for event in drive["events"]}
    assert found == {("1I:1:2", "0xC0008155"), ("1I:1:4", "0x80008152"), ("2I:1:5", "0xC0008151")}


def test_document_is_what_the_manual_describes(demo: Watched) -> None:
    """Every name of the document stands in docs/status-json.md, and every name there in the document."""
    names: Set[str] = set()

    def collect(value: Any) -> None:
        if isinstance(value, dict):
            names.update(value)
            value = list(value.values())
        if isinstance(value, list):
            for element in value:
                collect(element)

    collect(report_of(demo))
    described = set(re.findall(r"^\| `([a-z_]+)` \|", (ROOT / "docs/status-json.md").read_text(encoding="utf-8"), re.M))
    assert names == described


@pytest.mark.parametrize("tree", TREES, ids=lambda tree: tree.name)
def test_healthy_servers_of_every_generation_are_all_well(start_sim: Callable, watch: Callable[..., Watched],
                                                           promtool: Callable[[str], None], tree: Path) -> None:
    watched = watch(start_sim("--tree", tree), speed=1)
    report = report_of(watched)
    assert report["level"] == "ok"
    assert report["drives"]["total"] == len(drives_of(report)) > 0
    done = watched.ctl("status", "--format", "prometheus")
    assert done.returncode == 0
    promtool(done.stdout)
    assert_one_problem(watched, NOT_RUNNING)


def test_drives_that_tell_no_wear_have_no_life_left(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--ilo", 6, "--mr-drives", 2, "--ssd", 1, "--sata-drives", 1)
    left = {drive["model"]: drive["life_left_percent"] for drive in drives_of(report_of(watch(sim, speed=1)))}
    assert left == {"XX000480TEST": 98, "XX001200TEST": None, "XX000480SATATEST": None}


def test_server_without_controllers(start_sim: Callable, watch: Callable[..., Watched],
                                    promtool: Callable[[str], None]) -> None:
    watched = watch(start_sim("--ilo", 6, "--mr", 0), speed=1)
    done = watched.ctl("status")
    assert (done.returncode, done.stderr) == (0, "")
    assert "The management controller lists no storage controller." in done.stdout
    promtool(watched.ctl("status", "--format", "prometheus").stdout)
    assert_one_problem(watched, f"{NOT_RUNNING}; The management controller lists no storage controller "
                                "(0 drives, 0 logical drives)")


# ---- For monitoring systems ----

def test_prometheus_finds_nothing_to_complain_about(demo: Watched, promtool: Callable[[str], None]) -> None:
    done = demo.ctl("status", "--format", "prometheus")
    assert (done.returncode, done.stderr) == (0, "")
    promtool(done.stdout)
    samples = dict(line.rsplit(" ", 1) for line in done.stdout.splitlines() if not line.startswith("#"))
    levels = [value for name, value in samples.items() if name.startswith("bayward_drive_level{")]
    assert levels == ["0", "2", "0", "1", "2", "0"]
    assert samples["bayward_up"] == "1"


def test_nagios_states(demo: Watched) -> None:
    done = demo.ctl("status", "--format", "nagios")
    assert (done.returncode, done.stderr, done.stdout.count("\n")) == (2, "", 1)
    assert done.stdout.startswith(f"BAYWARD CRITICAL - {NOT_RUNNING}; "
                                  "HPE Smart Array P408i-a SR Gen10 [Slot 0] logical drive 2 offline; ")
    assert " drives=6;;;0 drives_warning=1;0;;0;6 drives_critical=2;;0;0;6 life_left_min=5%;21:;6:;0;100 " in done.stdout
    demo.start().wait_line("<VK0900> [TR] Start to monitor.", 60)
    done = demo.ctl("status", "--format", "nagios")
    assert done.returncode == 2
    assert done.stdout.startswith("BAYWARD CRITICAL - HPE Smart Array P408i-a SR Gen10 [Slot 0] logical drive 2 offline; ")
    for verb in (("heal-drive", 1, 5), ("heal-drive", 1, 2), ("heal-volume", 1, 2)):
        demo.sim.control.call(*verb)
    done = demo.ctl("status", "--format", "nagios")
    assert done.returncode == 1 and done.stdout.startswith("BAYWARD WARNING - ")
    demo.sim.control.call("heal-drive", 1, 4)
    done = demo.ctl("status", "--format", "nagios")
    assert done.returncode == 0 and done.stdout.startswith("BAYWARD OK - 6 drives, 2 logical drives, all well | ")


@pytest.mark.parametrize("name", ["table", "json", "prometheus", "nagios", "html"])
def test_file_is_replaced_whole(demo: Watched, name: str) -> None:
    folder = demo.host.outer("/opt") / "shown"
    folder.mkdir()
    (folder / "status").write_text("old")
    (folder / "status").chmod(0o600)
    done = demo.ctl("status", "--format", name, "--output", "/opt/shown/status")
    assert (done.returncode, done.stdout, done.stderr) == (2 if name == "nagios" else 0, "", "")
    assert [path.name for path in folder.iterdir()] == ["status"]
    assert stat.S_IMODE((folder / "status").stat().st_mode) == 0o644
    shown = demo.ctl("status", "--format", name).stdout
    assert len((folder / "status").read_text().splitlines()) == len(shown.splitlines())


@pytest.mark.parametrize("place, reason", [
    ("/opt/missing/status", "No such file or directory"), ("/opt", "it is no regular file"),
    ("/dev/null", "it is no regular file")])
def test_file_that_cannot_be_written(demo: Watched, place: str, reason: str) -> None:
    done = demo.ctl("status", "--format", "html", "--output", place)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith("baywardctl: Cannot write ") and reason in done.stderr and done.stderr.count("\n") == 1
    assert demo.counters()["open_sessions"] == 0


def test_connection_is_verified_with_a_ca_file(tmp_path: Path, start_sim: Callable,
                                               watch: Callable[..., Watched]) -> None:
    authority = Authority(tmp_path / "right")
    certificate, key = authority.sign("controller", "IP:127.0.0.1")
    sim = start_sim("--drives", 1, "--cert", certificate, "--key", key)
    watched = watch(sim, speed=1, config={"iLo": {"ca file": authority.file}})
    assert report_of(watched)["management_controller"]["connection_verified"] is True
    assert ", connection verified\n" in watched.ctl("status").stdout
    stranger = watch(sim, speed=1, config={"iLo": {"ca file": Authority(tmp_path / "wrong").file}})
    done = stranger.ctl("status", "--format", "nagios")
    assert done.returncode == 2 and done.stdout.startswith(f"BAYWARD CRITICAL - {NOT_RUNNING}. ")
    assert f" The controller at {stranger.sim.url} could not be asked (" in done.stdout
    assert "The controller's certificate is not trusted: " in done.stdout


# ---- What is asked for ----

@pytest.mark.parametrize("expand", ["true", "false"])
def test_large_server_takes_no_more_requests_than_a_walk_of_the_service(start_sim: Callable, watch: Callable[..., Watched],
                                                                        expand: str) -> None:
    sim = start_sim("--ilo", 5, "--controllers", 4, "--drives", 25, "--volumes", 4, "--mr", 4, "--mr-drives", 25,
                    "--mr-volumes", 4)
    watched = watch(sim, speed=1, config={"iLo": {"expand": expand}})
    report = report_of(watched)
    assert (len(controllers_of(report)), len(drives_of(report))) == (8, 200)
    asked = watched.counters()
    assert (asked["logins"], asked["open_sessions"]) == (1, 0)
    gets = {name: count for name, count in asked["requests"].items() if name.startswith("GET ")}
    assert set(gets.values()) == {1}
    if expand == "true" and expansion().controller == "on":
        # The report counts resources, most of which come with their collections.
        assert report["requests"] > 4 * len(gets)
    else:
        # The collections of the MR drives are no resources that count: they are only asked in the hope of their members.
        paths = {name.partition("?")[0] for name in gets}
        assert report["requests"] == sum(not path.endswith("/Drives") for path in paths)

    # The service, from its log-in to the end of its first walk, asks for the same.
    watched.start()
    walked = set()

    def has_walked() -> bool:
        nonlocal walked
        walked = {name for name, count in watched.counters()["requests"].items()
                  if name.startswith("GET ") and count > 1}
        return watched.walks() >= 3
    wait_until(has_walked, "second walk", 60, watched.host)
    assert set(gets) == walked


# ---- How it ends ----

# Runs the tool and, once /opt/now is there, sends it the signals. It is held meanwhile: of those that come together the
# one with the lower number is the first, and nothing else happens between them.
_SIGNALLED = """
import os, pathlib, signal, subprocess, sys, time
tool = subprocess.Popen([sys.argv[1], "status", "--output", "/opt/status"], stderr=subprocess.PIPE, text=True)
while not pathlib.Path("/opt/now").exists():
    time.sleep(0.01)
begin = time.monotonic()
tool.send_signal(signal.SIGSTOP)
os.waitpid(tool.pid, os.WUNTRACED)
for number in sys.argv[2:]:
    tool.send_signal(int(number))
tool.send_signal(signal.SIGCONT)
_, told = tool.communicate(timeout=60)
print(tool.returncode, time.monotonic() - begin, told, end="")
"""


class Stopped(NamedTuple):
    status: int
    seconds: float
    told: str


def stop_at(watched: Watched, request: str, *signals: int) -> Stopped:
    """Runs "status" and signals it when it has made the request."""
    def signal_then() -> None:
        wait_until(lambda: any(request in made for made in watched.counters()["requests"]), request, 60, watched.host)
        (watched.host.outer("/opt") / "now").touch()

    with ThreadPoolExecutor(1) as beside:
        signalled = beside.submit(signal_then)
        done = watched.host.run(["/usr/bin/python3", "-c", _SIGNALLED, str(bin_dir() / "baywardctl"), *map(str, map(int, signals))],
                                env=watched.environment(), timeout=180)
        signalled.result()
    status, seconds, told = done.stdout.split(" ", 2)
    assert list(watched.host.outer("/opt").glob("*status*")) == []
    return Stopped(int(status), float(seconds), told)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signal_leaves_no_session(start_sim: Callable, watch: Callable[..., Watched], number: int) -> None:
    sim = start_sim("--ilo", 5, "--drives", 100, "--latency-ms", 50)
    watched = watch(sim, speed=1, config={"iLo": {"expand": "false"}})
    stopped = stop_at(watched, "/DiskDrives/1", number)
    assert stopped.status == 128 + number
    assert stopped.told == "baywardctl: Stopped before the controller was read; its session is closed.\n"
    counters = watched.counters()
    assert (counters["logins"], counters["open_sessions"]) == (1, 0)
    assert 2 < counters["total"] < 100


@pytest.mark.parametrize("where", ["headers", "body"])
def test_signal_ends_a_request_that_hangs(demo: Watched, where: str) -> None:
    """It would take 30 seconds otherwise."""
    demo.sim.control.call("hang", "GET */DiskDrives/3", where)
    stopped = stop_at(demo, "/DiskDrives/3", signal.SIGTERM)
    assert stopped.status == 128 + signal.SIGTERM
    assert stopped.told == ("baywardctl: Stopped before the controller was read; the request that it did not answer was "
                            "given up.\n")
    assert stopped.seconds < 15
    assert demo.counters()["open_sessions"] == 0


def test_signal_ends_a_log_out_that_hangs(demo: Watched) -> None:
    demo.sim.control.call("hang", "GET */DiskDrives/3", "headers")
    demo.sim.control.call("hang", "DELETE *", "headers")
    stopped = stop_at(demo, "/DiskDrives/3", signal.SIGINT)
    assert stopped.status == 128 + signal.SIGINT
    assert stopped.told == ("baywardctl: Stopped before the controller was read; it does not answer, so a session may stay "
                            "there until it expires.\n")
    assert stopped.seconds < 15


def test_second_signal_ends_it_at_once(demo: Watched) -> None:
    demo.sim.control.call("hang", "GET */DiskDrives/3", "headers")
    stopped = stop_at(demo, "/DiskDrives/3", signal.SIGINT, signal.SIGTERM)
    assert (stopped.status, stopped.told) == (-signal.SIGTERM, "")


def test_progress_is_shown_on_a_terminal_alone(demo: Watched) -> None:
    ours, theirs = pty.openpty()
    demo.host.spawn([str(bin_dir() / "baywardctl"), "status", "--output", "/opt/status"], env=demo.environment(),
                    output=Path(os.ttyname(theirs)))
    wait_until(demo.host.outer("/opt/status").exists, "result", 30, demo.host)
    wait_until(lambda: demo.counters()["open_sessions"] == 0, "log-out", 5, demo.host)
    told = os.read(ours, 4096).decode().split("\r")
    os.close(theirs)
    os.close(ours)
    assert told[1:19] == [f"Reading the controller: {number} resources" for number in range(1, 19)]
    assert told[19:] == [" " * len(told[18]), ""]


def _failed(watched: Watched, sentence: str) -> None:
    """Each format says it in one sentence, with its own exit status."""
    done = watched.ctl("status")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith(f"baywardctl: {sentence}") and done.stderr.count("\n") == 1
    done = watched.ctl("status", "--format", "nagios")
    assert (done.returncode, done.stderr) == (2, "")
    assert done.stdout.startswith(f"BAYWARD CRITICAL - {NOT_RUNNING}. {sentence}") and done.stdout.count("\n") == 1
    done = watched.ctl("status", "--format", "prometheus")
    assert done.returncode == 1
    assert done.stdout.splitlines()[-1] == "bayward_up 0"
    done = watched.ctl("status", "--format", "json")
    assert (done.returncode, done.stdout) == (1, "")
    for secret in watched.secrets:
        assert secret not in done.stderr


def test_nobody_answers(watch: Callable[..., Watched]) -> None:
    _failed(watch(None, account=("monitor", "tool-secret-4711"), speed=1),
            "The controller at https://127.0.0.1:9 could not be asked (https://127.0.0.1:9: ")


def test_refused_account(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, speed=1, account=("simadmin", "wrong-secret"))
    _failed(watched, f"The controller at {sim.url} refused the account (401); {REGISTER}")


def test_no_account(watch: Callable[..., Watched]) -> None:
    _failed(watch(None, account=None, speed=1), f"No account is registered; {REGISTER}")


def test_no_configuration(watch: Callable[..., Watched]) -> None:
    watched = watch(None, account=None, speed=1)
    watched.host.outer("/etc/opt/tarn/bayward/bayward.conf").unlink()
    _failed(watched, "The configuration file /etc/opt/tarn/bayward/bayward.conf cannot be read; ")


def test_controller_that_breaks_off_in_the_middle(demo: Watched) -> None:
    demo.sim.control.call("status", "*/DiskDrives/3", 500)
    done = demo.ctl("status")
    assert (done.returncode, done.stdout) == (1, "")
    assert "/DiskDrives/3" in done.stderr and done.stderr.count("\n") == 1
    assert demo.counters()["open_sessions"] == 0
