"""Hosts on which something is missing or wrong: files, folders, configuration."""

import re
from typing import Callable, List

import pytest
from watched import Watched, smart_disk, without

IDLE_END = [
    "<VK0900> [TR] Ready to wait stop event.",
    "<VK0902> [TR] Receive signal 15",
    "<VK0900> [TR] Receive StopEvent.",
    "<VK0900> [TR] Service stopped.",
]


def idle_trace(watched: Watched) -> List[str]:
    """The trace of a run that is stopped once it waits."""
    watched.start()
    watched.wait_line("Ready to wait stop event.")
    assert watched.stop() == 0
    assert watched.host.syslog_entries() == []
    return watched.trace()


@pytest.mark.parametrize("stand_alone", [False, True])
def test_without_configuration_nothing_is_written(watch: Callable[..., Watched], stand_alone: bool) -> None:
    watched = watch(None, speed=1, stand_alone=stand_alone)
    watched.host.outer("/etc/opt/tarn/bayward/bayward.conf").unlink()
    watched.start()
    assert watched.host.wait_exit() == 0
    assert list(watched.host.log_dir.iterdir()) == []
    assert watched.host.syslog_entries() == []
    assert watched.host.service_output() == ""


def test_without_catalogue_the_service_idles(watch: Callable[..., Watched]) -> None:
    watched = watch(None, speed=1, copy_runtime=True)
    (watched.host.runtime / "bayward.msg").unlink()
    trace = idle_trace(watched)
    assert trace[:4] == [
        "<VK0900> [TR] Initialize succeeded.",
        "<VK0900> [TR] Service started.",
        "<VK0900> [TR] MainRoutine started.",
        "<VK0900> [TR] Get LocalSystemInfo.",
    ]
    assert re.fullmatch(r"<VK0902> \[ER\] \S+ \d+ \(Err: \S+ \d+ \(Err: 2 FileName: bayward\.msg\)\)", trace[4])
    assert trace[5:] == IDLE_END


def test_without_locale_file_the_service_idles(watch: Callable[..., Watched]) -> None:
    watched = watch(None, speed=1, locale=None)
    trace = idle_trace(watched)
    assert trace[:3] == [
        "<VK0900> [TR] Initialize succeeded.",
        "<VK0900> [TR] Service started.",
        "<VK0900> [TR] MainRoutine started.",
    ]
    assert re.fullmatch(
        r"<VK0902> \[ER\] \S+ \d+ \(Err: \S+ \d+ \(Err: 2, lang_path: /etc/default/locale\)\)", trace[3])
    assert trace[4:] == IDLE_END


def test_without_log_folder_it_still_reports(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 2)
    watched = watch(sim)
    watched.host.log_dir.rmdir()
    watched.start().wait_baseline()
    sim.control.call("fail-drive", 1, 2)
    entry = watched.host.wait_syslog("A physical drive has failed")
    assert entry.text() == smart_disk(2).failed.sentences()[0]
    assert watched.stop() == 0
    assert not watched.host.log_dir.exists()


def test_without_media_error_check_its_thread_leaves_no_line(watch: Callable[..., Watched]) -> None:
    trace = idle_trace(watch(None, speed=1, config={"media error": {"check": "false"}}))
    assert without(trace, "Start cyclic serial log saving.") == [
        "<VK0900> [TR] Initialize succeeded.",
        "<VK0900> [TR] Service started.",
        "<VK0900> [TR] MainRoutine started.",
        "<VK0900> [TR] Get LocalSystemInfo.",
        "<VK0900> [TR] PrepareMessage succeeded.",
        "<VK0900> [TR] PrepareSysLog succeeded.",
        "<VK0900> [TR] Create thread for OS log.",
        "<VK0900> [TR] Create thread for Serial log.",
        "<VK0900> [TR] Ready to wait stop event.",
        "<VK0902> [TR] Receive signal 15",
        "<VK0900> [TR] Receive StopEvent.",
        "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.",
        "<VK0900> [TR] Join thread for OS log.",
        "<VK0900> [TR] Break SerialLogRoutine by StopEvent.",
        "<VK0900> [TR] Join thread for Serial log.",
        "<VK0900> [TR] Service stopped.",
    ]


def test_log_size_0_keeps_the_newest_line_and_the_one_before(watch: Callable[..., Watched]) -> None:
    watched = watch(None, speed=1, config={"log file": {"max log size": 0}})
    watched.start()
    watched.wait_line("<VK0900> [TR] Ready to wait stop event.")
    assert watched.stop() == 0
    assert sorted(path.name for path in watched.host.log_dir.iterdir()) == ["bayward.log", "bayward.log.bak"]
    # The backup's lines come first.
    assert watched.trace() == ["<VK0900> [TR] Join thread for Serial log.", "<VK0900> [TR] Service stopped."]


def test_small_log_stays_within_twice_its_limit(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    watched = watch(start_sim("--drives", 24), config={"log file": {"max log size": 2}})
    watched.start().wait_baseline()
    watched.wait_walks(3)
    assert watched.stop() == 0
    sizes = {path.name: path.stat().st_size for path in watched.host.log_dir.iterdir()}
    assert set(sizes) == {"bayward.log", "bayward.log.bak"}
    assert max(sizes.values()) <= 2048
    assert watched.trace()[-1] == "<VK0900> [TR] Service stopped."


def test_configuration_with_cr_lf(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1)
    watched = watch(sim, config=f"[iLo]\r\nurl={sim.url}\r\ninterval=3000\r\n\r\n[media error]\r\ncheck=false\r\n")
    watched.start().wait_baseline()
    assert watched.stop() == 0
    assert watched.count_line("Media Error") == 0


def test_hostile_configuration(start_sim: Callable, watch: Callable[..., Watched]) -> None:
    """Bytes that are no text and lines of any length neither end the service nor hide what is right."""
    sim = start_sim("--drives", 1)
    watched = watch(sim)
    noise = bytes(value for value in range(256) if value not in b"\n[")
    watched.host.outer("/etc/opt/tarn/bayward/bayward.conf").write_bytes(b"\n".join([
        noise, b"url=https://192.0.2.1", b"[", b"[never closed", b"[]", b"=", b"=value without key",
        b"[" + b"x" * 20000 + b"]", b"key=" + b"%s%n" * 5000, noise * 40,
        b"[iLo]", b" url=https://192.0.2.2", b"#url=https://192.0.2.3", b"url =https://192.0.2.4",
        b"URL=https://192.0.2.5", b"max trials", f"url={sim.url}".encode(), b"url=https://192.0.2.6",
        b"interval=3000 and a half", b"account=" + b"a" * 9000, b"password=" + noise,
        b"[iLo]", b"url=https://192.0.2.7",
        b"[media error]", b"interval=99999999999999999999", b"check=false", b"[log file]", b"max log size=64",
        b"[last section without line feed", noise]))
    watched.start().wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    watched.expect(smart_disk(1).failed)
    assert watched.stop() == 0
    assert watched.count_line("Media Error") == 0


def test_format_directives_from_the_controller_are_only_text(start_sim: Callable,
                                                             watch: Callable[..., Watched]) -> None:
    sim = start_sim("--drives", 1)
    drive = sim.control.call("list")[0]["drives"][0]
    sim.control.call("set", drive, "Model", '"%s%n%1%2\\n<VK0900> [TR] forged\\u0000\\u00e9"')
    watched = watch(sim)
    watched.start().wait_baseline()
    sim.control.call("fail-drive", 1, 1)
    disk = smart_disk(1)
    model = "%s%n%1%2?<VK0900> [TR] forged??"
    watched.wait_line("reported.")
    watched.wait_walks(2)
    description = disk.description.replace("Model: EG001200JWTEST", f"Model: {model}")
    assert [line for line in watched.trace() if "[EV]" in line] == [disk._replace(description=description).failed.line]
    entries = [entry.text() for entry in watched.host.syslog_entries()]
    assert entries == [
        f"A physical drive has failed: CTRL({disk.controller}) PD({disk.location}) {description}",
        "Replace the drive now; data is at risk until its array is rebuilt.",
    ]
