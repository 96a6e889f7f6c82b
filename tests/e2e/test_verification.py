"""The certificate of the controller, with and without a CA file."""

import sys
from pathlib import Path
from typing import Callable

import pytest
from simcontroller.process import ControllerProcess
from watched import LOGIN_FAILED, Watched, smart_disk, wait_until

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "module"))

from authority import Authority  # noqa: E402

MONITORED = "<VK0900> [TR] Start to monitor."
FAILED = "<VK0911> [ER] Failed to initialize RaidManager. : retry count="


@pytest.fixture(scope="module")
def authority(tmp_path_factory: pytest.TempPathFactory) -> Authority:
    return Authority(tmp_path_factory.mktemp("authorities") / "right")


@pytest.fixture(scope="module")
def sim(authority: Authority, start_file_sim: Callable) -> ControllerProcess:
    """A controller with a certificate for its address, signed by the authority."""
    certificate, key = authority.sign("controller", "IP:127.0.0.1")
    return start_file_sim("--drives", 2, "--ssd", 0, "--cert", certificate, "--key", key)


@pytest.fixture(scope="module")
def stranger(tmp_path_factory: pytest.TempPathFactory) -> Authority:
    return Authority(tmp_path_factory.mktemp("authorities") / "wrong")


def with_ca(file: object) -> "dict[str, dict[str, object]]":
    return {"iLo": {"ca file": file}}


def test_controller_of_the_authority_is_watched(sim: ControllerProcess, authority: Authority,
                                                watch: Callable[..., Watched]) -> None:
    watched = watch(sim, speed=20, config=with_ca(authority.file)).start().wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1).failed)
    sim.control.call("heal-drive", 1, 1)
    assert watched.reasons() == []
    done = watched.ctl("account", "check", "--login")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.endswith(" accepted the account (200).\nIts certificate is verified.\n")


@pytest.mark.parametrize("case", ["authority", "name", "missing", "relative"])
def test_controller_that_is_not_trusted_gets_no_account(sim: ControllerProcess, authority: Authority,
                                                        stranger: Authority, watch: Callable[..., Watched],
                                                        case: str) -> None:
    """It is no refused account: no event, no pause of an hour, a reason in each pass."""
    file, url, reason = {
        "authority": (stranger.file, sim.url,
                      f"{sim.url}: The controller's certificate is not trusted: unable to get local issuer certificate; "
                      "check the CA file and the URL."),
        "name": (authority.file, f"https://localhost:{sim.port}",
                 f"https://localhost:{sim.port}: The controller's certificate is not trusted: Hostname mismatch, "
                 "certificate is not valid for 'localhost'; check the CA file and the URL."),
        "missing": ("/nowhere/ca.pem", sim.url,
                    'The CA file "/nowhere/ca.pem" cannot be used: No such file or directory.'),
        "relative": ("ca.pem", sim.url, 'The CA file "ca.pem" cannot be used: it is no absolute path.'),
    }[case]
    logins = sim.control.call("counters")["total"]
    watched = watch(sim, speed=25, url=url, config=with_ca(file)).start()
    watched.wait_line(f"{FAILED}3")
    assert watched.stop() == 0
    failed = watched.count_line(FAILED)
    assert watched.reasons() == [reason] * failed
    assert watched.host.syslog_entries() == []
    assert sim.control.call("counters")["total"] == logins
    done = watched.ctl("account", "check", "--login")
    assert done.returncode == 1
    assert f'could not be asked ({reason.rstrip(".")}); ' in done.stderr and done.stderr.count("\n") == 1


@pytest.mark.parametrize("order, reason", [
    (None, "https://127.0.0.1:9: POST /redfish/v1/SessionService/Sessions/: [Errno 111] Connection refused"),
    (("status", "*", 503), "The log-in to the controller failed with HTTP status 503; it may be restarting or have no "
                           "session left."),
    (("wire", "*", "SSH-2.0-OpenSSH_9.2p1\r\n<html>\x00\x01"),
     "{url}: POST /redfish/v1/SessionService/Sessions/: SSH-2.0-OpenSSH_9.2p1??"),
    (("drop", "*", "before"), "{url}: POST /redfish/v1/SessionService/Sessions/: "
                              "Remote end closed connection without response"),
], ids=["refused", "busy", "babbling", "closing"])
def test_every_pass_says_why_it_failed(start_sim: Callable, authority: Authority, watch: Callable[..., Watched],
                                       order: "tuple[object, ...] | None", reason: str) -> None:
    certificate, key = authority.sign("failing", "IP:127.0.0.1")
    sim = None
    if order is not None:
        sim = start_sim("--drives", 1, "--cert", certificate, "--key", key)
        sim.control.call(*order, "forever")
        reason = reason.format(url=sim.url)
    watched = watch(sim, account=("monitor", "some-secret"), speed=25, config=with_ca(authority.file),
                    addresses=[] if sim else ["192.0.2.1"]).start()
    watched.wait_line(f"{FAILED}4")
    assert watched.stop() == 0
    assert watched.reasons() == [reason] * watched.count_line(FAILED)


def test_refused_account_is_told_as_such(sim: ControllerProcess, authority: Authority, watch: Callable[..., Watched]
                                         ) -> None:
    watched = watch(sim, account=("simadmin", "wrong-secret"), config=with_ca(authority.file)).start()
    watched.wait_line(LOGIN_FAILED.line)
    watched.expect(LOGIN_FAILED, walks=0)
    assert watched.reasons() == ["The controller refused the account or its password."] * 2


def test_ca_file_is_read_at_each_log_in(sim: ControllerProcess, authority: Authority, stranger: Authority,
                                        watch: Callable[..., Watched], tmp_path: Path) -> None:
    file = tmp_path / "ca.pem"
    file.write_bytes(stranger.file.read_bytes())
    watched = watch(sim, speed=20, config=with_ca(file)).start()
    watched.wait_line(FAILED)
    file.write_bytes(authority.file.read_bytes())
    watched.wait_line(MONITORED)


def test_virtual_nic_is_verified_without_its_name(authority: Authority, watch: Callable[..., Watched]) -> None:
    """No certificate names an address that every server has."""
    certificate, key = authority.sign("nic", "DNS:ilo.example.test")
    watched = watch(None, account=("simadmin", "nic-secret"), url="https://192.0.2.99", env={"BAYWARD_SIM_VNIC": "1"},
                    addresses=["16.1.15.1", "16.1.15.2"], config=with_ca(authority.file))
    controller = Path(__file__).resolve().parents[2] / "sim/controller.py"
    watched.host.spawn(["/usr/bin/python3", str(controller), "--ilo", "6", "--mr-drives", "1", "--listen",
                        "16.1.15.1:443", "--password", "nic-secret", "--cert", str(certificate), "--key", str(key),
                        "--ready-file", str(watched.host.work / "nic-ready")])
    wait_until((watched.host.work / "nic-ready").exists, "controller", 20)
    watched.start().wait_line(MONITORED)
    assert watched.errors() == []
    assert watched.reasons() == []
