"""Whether the host has its address on the virtual-NIC link, as `ip addr show` tells."""

from __future__ import annotations

import os
import subprocess
import time

import pytest

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


def test_absent_tool_cannot_tell(module, monkeypatch):
    def absent(*_, **__):
        raise FileNotFoundError("ip")

    monkeypatch.setattr(subprocess, "Popen", absent)
    assert str(module.is_ip_assigned("16.1.15.2")) == "None"


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


@pytest.mark.parametrize("lines", ["exit 0", "exec sleep 60"])
def test_no_child_and_no_descriptor_is_left(module, ip_tool, monkeypatch, lines):
    started = []

    class Recorded(subprocess.Popen):
        def __init__(self, *arguments, **keywords):
            super().__init__(*arguments, **keywords)
            started.append(self)

    monkeypatch.setattr(subprocess, "Popen", Recorded)
    monkeypatch.setattr(_bayward_vnic, "LIST_SECONDS", 0.3)
    ip_tool(lines)
    before = len(os.listdir("/proc/self/fd"))
    module.is_ip_assigned("16.1.15.2")
    assert [process.returncode is None for process in started] == [False]
    assert len(os.listdir("/proc/self/fd")) == before
