"""The programs: options, ready file, clean stop, simctl, and the stand-ins."""

import json
import os
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path

import pytest
from sim_rest import SIM, SYSTEM, ControllerProcess
from simcontroller.errors import Failure


def controller(*options, limit=10):
    return subprocess.run([sys.executable, str(SIM / "controller.py"), *map(str, options)], capture_output=True,
                          text=True, timeout=limit, check=False)


def simctl(sim, *words):
    return subprocess.run([sys.executable, str(SIM / "simctl"), str(sim.folder / "control"), *words],
                          capture_output=True, text=True, timeout=10, check=False)


@pytest.mark.parametrize("options, words", [
    (["--ilo", "4"], ["--ilo", "4"]),
    (["--drives", "many"], ["--drives", "'many'"]),
    (["--listen", "nowhere"], ["'nowhere'", "ADDRESS:PORT"]),
    (["--firmware", "new"], ["'new'", "MAJOR.MINOR"]),
    (["--volumes", "5", "--drives", "4"], ["--volumes 5", "4 drives"]),
    (["--ssd", "5", "--drives", "4"], ["--ssd 5", "4 drives"]),
    (["--ilo", "6", "--controllers", "1"], ["iLO 6", "use --mr"]),
    (["--ilo", "7", "--mr10", "1"], ["iLO 7", "use --mr"]),
    (["--sr-volumes", "5"], ["--sr-volumes 5", "4 drives"]),
    (["--ns204-drives", "3"], ["--ns204-drives 3", "room for 2"]),
    (["--nvme-drives", "2"], ["--nvme-drives"]),
    (["--sata-volumes", "1"], ["--sata-volumes"]),
    (["--shuffle", "often"], ["--shuffle", "'often'"]),
    (["--tree", "/tmp", "--sr", "1"], ["--sr", "--tree"]),
    (["--tree", "/tmp", "--vroc-volumes", "1"], ["--vroc-volumes", "--tree"]),
    (["--tree", "/no/such/folder"], ["/no/such/folder", "does not exist"]),
    (["--tree", "/tmp", "--drives", "1"], ["--drives", "--tree"]),
    (["--cert", "x.pem"], ["--cert and --key"]),
    (["--cert", "/none.crt", "--key", "/none.key"], ["/none.crt"]),
    (["--nonsense"], ["--nonsense"])])
def test_wrong_options_exit_with_2_and_one_sentence(options, words):
    done = controller(*options)
    assert done.returncode == 2
    assert done.stderr.count("\n") == 1 and "Traceback" not in done.stderr
    for word in words:
        assert word in done.stderr


def test_tree_with_a_broken_file(tmp_path):
    folder = tmp_path / "redfish" / "v1"
    folder.mkdir(parents=True)
    (folder / "index.json").write_text("{")
    done = controller("--tree", tmp_path)
    assert done.returncode == 2
    assert str(folder / "index.json") in done.stderr and "not JSON" in done.stderr


def test_port_taken_exits_with_1():
    with socket.create_server(("127.0.0.1", 0)) as taken:
        port = taken.getsockname()[1]
        done = controller("--listen", f"127.0.0.1:{port}")
    assert done.returncode == 1
    assert f"127.0.0.1:{port}" in done.stderr and "another port" in done.stderr


def test_control_socket_of_another_controller_is_left_alone(start):
    sim = start()
    done = controller("--control", sim.folder / "control")
    assert done.returncode == 1 and "Another controller answers" in done.stderr
    assert sim.control.call("list")


def test_stale_control_socket_is_replaced(tmp_path, start):
    with socket.socket(socket.AF_UNIX) as stale:
        stale.bind(str(tmp_path / "control"))
    assert start(folder=tmp_path).control.call("list")


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_signals_stop_cleanly_even_while_an_answer_hangs(tmp_path, number, connect):
    process = ControllerProcess(folder=tmp_path)
    sim = process.start()
    ready = json.loads((tmp_path / "ready.json").read_text())
    assert ready == {"url": sim.url, "ca": sim.ca, "pid": sim.pid, "control": str(tmp_path / "control")}
    rest = connect(sim, timeout=1.0)
    sim.control.call("hang", "*", "headers")
    with pytest.raises(socket.timeout):
        rest.get(SYSTEM)
    os.kill(sim.pid, number)
    limit = time.monotonic() + 5
    while sim.running() and time.monotonic() < limit:
        time.sleep(0.02)
    assert not sim.running()
    assert process.stop() == 0
    assert not (tmp_path / "control").exists() and not (tmp_path / "ready.json").exists()
    assert (tmp_path / "controller.err").read_text() == ""


def test_shutdown_verb_stops(start):
    sim = start()
    sim.control.call("shutdown")
    limit = time.monotonic() + 5
    while sim.running() and time.monotonic() < limit:
        time.sleep(0.02)
    assert not sim.running()
    with pytest.raises(Failure, match="No controller answers"):
        sim.control.call("list")


def test_restart_in_the_same_folder_keeps_certificate_and_port(tmp_path, start, connect):
    first = start(folder=tmp_path)
    port, certificate = first.port, Path(first.ca).read_bytes()
    first.stop()
    second = start(folder=tmp_path, listen=f"127.0.0.1:{port}")
    assert Path(second.ca).read_bytes() == certificate
    assert connect(second).get(SYSTEM).status == 200


def test_given_certificate_is_used(tmp_path, start, connect):
    made = start(folder=tmp_path)
    made.stop()
    sim = start("--cert", made.ca, "--key", made.ca.replace(".crt", ".key"))
    assert sim.ca == made.ca
    assert connect(sim).get(SYSTEM).status == 200


def test_failed_start_leaves_the_ready_file_of_another(start):
    sim = start()
    file = sim.folder / "ready.json"
    assert controller("--control", sim.folder / "control", "--ready-file", file).returncode == 1
    assert file.exists()


def test_process_that_cannot_start_tells_why():
    with pytest.raises(Failure, match="--ilo"):
        ControllerProcess("--ilo", "9").start()


def test_simctl_results_and_exit_codes(sim):
    done = simctl(sim, "fail-drive", "1", "1")
    assert (done.returncode, done.stdout) == (0, f"{SYSTEM}SmartStorage/ArrayControllers/0/DiskDrives/0\n")
    assert json.loads(simctl(sim, "counters").stdout)["logins"] == 0
    wrong = simctl(sim, "set", SYSTEM, "Status", "{oops")
    assert wrong.returncode == 2 and "not JSON" in wrong.stderr
    assert simctl(sim).returncode == 2
    assert "fail-drive C D" in simctl(sim, "--help").stdout
    sim.stop()
    gone = simctl(sim, "list")
    assert gone.returncode == 1 and "No controller answers" in gone.stderr


@pytest.mark.parametrize("line", [b"{", b"[]", b'{"args":[]}', b'{"verb":"list","args":5}', b"\xff", b'{"verb":7}'])
def test_malformed_control_lines_get_a_reply_and_do_no_harm(sim, line):
    with socket.socket(socket.AF_UNIX) as connection:
        connection.settimeout(5)
        connection.connect(sim.control.path)
        stream = connection.makefile("rwb")
        for text, good in ((line, False), (b'{"verb":"list"}', True)):
            stream.write(text + b"\n")
            stream.flush()
            reply = json.loads(stream.readline())
            assert reply["ok"] is good
            assert good or (reply["kind"] == "use" and reply["error"])


def stand_in(name, *words, limit=5, **variables):
    return subprocess.run([str(SIM / "bin" / name), *words], capture_output=True, timeout=limit, check=False,
                          env={"PATH": "/usr/bin:/bin", **variables})


def test_dmidecode_prints_the_uuid(tmp_path):
    assert b"\n\tUUID: 5a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d\n" in stand_in("dmidecode", "-t1").stdout
    file = tmp_path / "uuid"
    file.write_text("00112233-4455-6677-8899-AABBCCDDEEFF\n")
    done = stand_in("dmidecode", "-t1", BAYWARD_SIM_UUID_FILE=str(file))
    assert done.returncode == 0 and b"\n\tUUID: 00112233-4455-6677-8899-AABBCCDDEEFF\n" in done.stdout
    file.write_text("no-line-end")
    assert b"\tUUID: no-line-end\n" in stand_in("dmidecode", "-t1", BAYWARD_SIM_UUID_FILE=str(file)).stdout
    assert stand_in("dmidecode", "-t1", BAYWARD_SIM_UUID_FILE=str(tmp_path / "none")).returncode == 1


def test_ip_shows_the_virtual_nic_on_request_only():
    assert b"16.1.15" not in stand_in("ip", "addr", "show").stdout
    done = stand_in("ip", "addr", "show", BAYWARD_SIM_VNIC="1")
    assert done.returncode == 0 and b"    inet 16.1.15.2/30 " in done.stdout


@pytest.mark.parametrize("name, words, variable", [("dmidecode", ["-t1"], "BAYWARD_SIM_DMIDECODE"),
                                                   ("ip", ["addr", "show"], "BAYWARD_SIM_IP")])
def test_stand_ins_fail_hang_and_babble(name, words, variable):
    assert stand_in(name, "--unknown").returncode == 1 and stand_in(name, "--unknown").stderr
    failed = stand_in(name, *words, **{variable: "fail"})
    assert (failed.returncode, failed.stdout) == (1, b"") and failed.stderr
    babble = stand_in(name, *words, **{variable: "garbage"})
    assert babble.returncode == 0 and b"\xff" in babble.stdout
    with pytest.raises(subprocess.TimeoutExpired):
        stand_in(name, *words, limit=0.3, **{variable: "hang"})
    assert stand_in(name, *words, **{variable: "typo"}).returncode == 1


def test_dmidecode_without_uuid():
    done = stand_in("dmidecode", "-t1", BAYWARD_SIM_DMIDECODE="no-uuid")
    assert done.returncode == 0 and b"System Information" in done.stdout and b"UUID" not in done.stdout
