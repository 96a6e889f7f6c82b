"""Whether the host has its address on the virtual-NIC link, as `ip addr show` tells."""

from __future__ import annotations

import os
import signal
import time
from pathlib import Path

import pytest

import _bayward_command
import _bayward_vnic

LISTING = """\
1: lo: <LOOPBACK,UP,LOWER_UP> mtu 65536 qdisc noqueue state UNKNOWN group default qlen 1000
    inet 127.0.0.1/8 scope host lo
    inet6 ::1/128 scope host
4: enp0s20f0u1: <BROADCAST,MULTICAST,UP,LOWER_UP> mtu 1500
    inet %s/30 brd 16.1.15.3 scope global dynamic noprefixroute enp0s20f0u1
    inet6 fe80::52/64 scope link
"""


@pytest.fixture
def ip_tool(tmp_path, monkeypatch):
    """A function that puts an `ip` first on PATH that runs the given shell lines."""
    def install(lines):
        tool = tmp_path / "ip"
        tool.write_text(f'#!/bin/sh\n[ "$*" = "addr show" ] || exit 9\n{lines}\n')
        tool.chmod(0o755)
        monkeypatch.setenv("PATH", f"{tmp_path}:/usr/bin:/bin")

    return install


def listing(address):
    return "cat <<'END'\n" + LISTING % address + "END"


@pytest.mark.parametrize("host", ["16.1.15.2", "16.1.15.1", "https://16.1.15.1", "https://16.1.15.1/",
                                  "HTTPS://16.1.15.2:443"])
@pytest.mark.parametrize("address, expected", [
    ("16.1.15.2", "True"), ("16.1.15.1", "False"), ("16.1.15.20", "False"), ("116.1.15.2", "False"),
    ("10.0.0.1", "False")])
def test_address_is_looked_for_as_a_whole(module, ip_tool, host, address, expected):
    ip_tool(listing(address))
    assert str(module.is_ip_assigned(host)) == expected


def test_broadcast_address_is_no_address_of_the_host(module, ip_tool):
    ip_tool(listing("10.0.0.1"))
    assert str(module.is_ip_assigned("16.1.15.3")) == "False"


@pytest.mark.parametrize("lines", ["exit 1", "cat /nowhere/at/all", "kill -9 $$"])
def test_listing_that_fails_cannot_tell(module, ip_tool, lines):
    ip_tool(lines)
    assert str(module.is_ip_assigned("16.1.15.2")) == "None"


def test_absent_tool_cannot_tell(module, monkeypatch, tmp_path):
    monkeypatch.setenv("PATH", str(tmp_path))
    monkeypatch.setattr(_bayward_command, "_SYSTEM_FOLDERS", ())
    assert str(module.is_ip_assigned("16.1.15.2")) == "None"


def test_tool_in_the_working_folder_is_not_run(module, ip_tool, monkeypatch, tmp_path):
    ip_tool(listing("16.1.15.2"))
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("PATH", ":.")
    monkeypatch.setattr(_bayward_command, "_SYSTEM_FOLDERS", ())
    assert str(module.is_ip_assigned("16.1.15.2")) == "None"


def test_tool_in_a_system_folder_is_found_although_not_on_path(module, ip_tool, monkeypatch, tmp_path):
    ip_tool(listing("16.1.15.2"))
    monkeypatch.setenv("PATH", "/nowhere")
    monkeypatch.setattr(_bayward_command, "_SYSTEM_FOLDERS", (str(tmp_path),))
    lines = (tmp_path / "ip").read_text().replace("cat", "/bin/cat")
    (tmp_path / "ip").write_text(lines)
    assert str(module.is_ip_assigned("16.1.15.2")) == "True"


def test_tool_starts_with_an_empty_signal_mask_and_default_dispositions(module, ip_tool, tmp_path):
    ip_tool(f"grep -E '^Sig(Blk|Ign)' /proc/self/status > {tmp_path}/signals")
    ignored = signal.signal(signal.SIGUSR1, signal.SIG_IGN)
    blocked = signal.pthread_sigmask(signal.SIG_BLOCK, (signal.SIGTERM, signal.SIGINT, signal.SIGPIPE))
    try:
        module.is_ip_assigned("16.1.15.2")
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, blocked)
        signal.signal(signal.SIGUSR1, ignored)
    masks = dict(line.split() for line in (tmp_path / "signals").read_text().splitlines())
    own = ~(1 << 31 | 1 << 32)  # 32 and 33 are the C library's, which lets nobody touch them
    assert {name: int(mask, 16) & own for name, mask in masks.items()} == {"SigBlk:": 0, "SigIgn:": 0}


@pytest.mark.parametrize("lines", ["exec yes", f"exec head -c {_bayward_command.MAX_OUTPUT_BYTES + 1} /dev/zero"])
def test_listing_without_end_cannot_tell(module, ip_tool, lines):
    ip_tool(lines)
    started = time.monotonic()
    assert str(module.is_ip_assigned("16.1.15.2")) == "None"
    assert time.monotonic() - started < 5


def test_listing_of_exactly_the_size_limit_is_read(module, ip_tool):
    line = "inet 16.1.15.2/30 \\n"
    ip_tool(f"printf '{line}'; exec head -c {_bayward_command.MAX_OUTPUT_BYTES - 19} /dev/zero")
    assert str(module.is_ip_assigned("16.1.15.2")) == "True"


@pytest.mark.parametrize("lines", ["exec sleep 60", "exec >&-; exec sleep 60"])
def test_tool_that_cannot_be_ended_is_not_waited_for(module, ip_tool, monkeypatch, lines):
    monkeypatch.setattr(_bayward_vnic, "LIST_SECONDS", 0.2)
    monkeypatch.setattr(_bayward_command, "KILL_SECONDS", 0.2)
    left = []
    monkeypatch.setattr(os, "killpg", lambda group, _: left.append(group))
    ip_tool(lines)
    started = time.monotonic()
    assert str(module.is_ip_assigned("16.1.15.2")) == "None"
    assert time.monotonic() - started < 2
    os.kill(left[0], signal.SIGKILL)
    os.waitpid(left[0], 0)


def test_hanging_tool_is_ended_with_all_it_started(module, ip_tool, monkeypatch, tmp_path):
    monkeypatch.setattr(_bayward_vnic, "LIST_SECONDS", 0.3)
    ip_tool(f"sleep 60 & echo $! > {tmp_path}/pid; wait")
    started = time.monotonic()
    assert str(module.is_ip_assigned("16.1.15.2")) == "None"
    assert time.monotonic() - started < 5
    child = int((tmp_path / "pid").read_text())
    limit = time.monotonic() + 5
    while time.monotonic() < limit and _runs(child):
        time.sleep(0.05)
    assert not _runs(child)


def _runs(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
            return stat.read().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def test_listing_that_is_no_text_finds_nothing(module, ip_tool):
    ip_tool("head -c 100000 /dev/urandom")
    assert str(module.is_ip_assigned("16.1.15.2")) == "False"


@pytest.mark.parametrize("host", ["", "blobstore://.", "http://x", "a b", "$(reboot)", "16.1.15.2; reboot"])
def test_host_that_is_no_address_is_another_error(module, ip_tool, host):
    ip_tool(listing("16.1.15.2"))
    assert module.is_ip_assigned(host) == 10001


@pytest.mark.parametrize("lines", ["exit 0", "exit 1", "exec sleep 60", "exec >&-; exec sleep 60", "exec yes"])
def test_no_child_and_no_descriptor_is_left(module, ip_tool, monkeypatch, lines):
    monkeypatch.setattr(_bayward_vnic, "LIST_SECONDS", 0.3)
    ip_tool(lines)
    before = _children(), len(os.listdir("/proc/self/fd"))
    module.is_ip_assigned("16.1.15.2")
    assert (_children(), len(os.listdir("/proc/self/fd"))) == before


def _children():
    return {path.read_text() for path in Path("/proc/self/task").glob("*/children")}
