"""Every storage family of every generation: what each bad state raises, once and in which words.

Three servers, one of each generation, have all families that it may have; each test changes the same on all of them.
"""

from __future__ import annotations

import json
import re
from typing import Callable, Dict, List, Tuple

import pytest
from fleet import (SPEED, Server, Unit, drive_state, each_held, expect, reason_list, server_options, volume_state,
                   worn)
from watched import ERROR, WARNING, Event, wait_until, without

MONITORED = "<VK0900> [TR] Start to monitor."
FAILED = "<VK0956> [ER] Failed to initialize RaidManager."
BACK = "<VK0950> [TR] Initializing RaidManager succeed."

GENERATIONS = (5, 6, 7)
MR = "mr"

# What a state of drive 1 raises, by family. "-": nothing. The Redfish families differ in three ways: boot devices
# (ns204) are judged by the health alone, drives on the SATA controller by their wear alone, all others by reasons
# and state.
DRIVES = """
state               smart      mr         sr         ns204      nvme       sata       vroc
failed              failed     failed     failed     failed     failed     -          failed
predicted           predicted  predicted  predicted  predicted  predicted  -          predicted
critical            -          failed     failed     failed     failed     -          failed
unavailable         -          failed     failed     -          failed     -          failed
warning             -          -          -          -          -          -          -
lost                -          fatal      fatal      fatal      fatal      -          fatal
lost-reason         fatal      fatal      fatal      fatal      fatal      -          fatal
gone-reason         fatal      fatal      fatal      fatal      fatal      -          fatal
spared              -          -          -          failed     -          -          -
spared-reason       failed     -          -          failed     -          -          -
"""

# The same for volume 1. ".": the family has no volumes.
VOLUMES = """
state               smart      mr         sr         ns204      nvme       sata       vroc
offline             offline    offline    offline    offline    .          .          offline
critical            offline    -          -          offline    .          .          -
disabled            -          -          -          -          .          .          -
standby             -          offline    offline    -          .          .          offline
degraded            -          -          -          -          .          .          -
"""

# What is not ready at first when the server boots: of each family each kind of resource on one of the servers, and how
# often. The drives of direct controllers are asked for 20 times, others 5 times.
NOT_READY: Dict[int, Tuple[Tuple[str, int], ...]] = {
    5: (("/SmartStorage/ArrayControllers", 1), ("/ArrayControllers/0", 1), ("/ArrayControllers/1/DiskDrives", 1),
        ("/ArrayControllers/1/LogicalDrives/1", 1), ("/ArrayControllers/1/DiskDrives/1", 1),
        ("/Storage/DE00A000", 1), ("/DE00A000/Volumes", 1), ("/DE00A000/Volumes/239", 1), ("/DE00A000/Drives/1", 1),
        ("/DE00B000/Controllers/0", 1),
        ("/Storage/DE00C000", 1), ("/DE00C000/Volumes/1", 1), ("/DE00C000/Drives/2", 1)),
    6: (("/Systems", 1), ("/Systems/1/Storage", 1), ("/Storage/DE00A000", 1), ("/DE00A000/Controllers", 1),
        ("/DE00A000/Controllers/0", 1), ("/DE00A000/Volumes", 1), ("/DE00A000/Volumes/239", 1),
        ("/DE00A000/Drives/1", 1), ("/Storage/DE00C000", 1), ("/DE00C000/Controllers/0", 1), ("/DE00C000/Volumes", 1),
        ("/DE00C000/Volumes/1", 1), ("/DE00C000/Drives/3581", 1)),
    7: (("/DE00C000/Controllers", 1), ("/DE00C000/Volumes", 1), ("/DE00C000/Drives/2", 4), ("/Storage/DA000000", 1),
        ("/DA000000/Drives/DA000000", 1), ("/Storage/DA000001", 1), ("/DA000001/Drives/9E525C7B", 1),
        ("/Storage/DA000002", 1), ("/DA000002/Volumes", 1), ("/DA000002/Volumes/1", 1),
        ("/DA000002/Drives/BB885E20", 6)),
}


def rows(table: str) -> "Dict[str, Dict[str, str]]":
    """State -> family -> what it raises."""
    head, *lines = (line.split() for line in table.strip().splitlines())
    assert all(len(line) == len(head) for line in lines)
    return {line[0]: dict(zip(head[1:], line[1:])) for line in lines}


@pytest.fixture(scope="module")
def servers(start_file_sim: Callable, watch_file: Callable) -> List[Server]:
    """They boot: something failed before, and nothing is ready at first."""
    found = []
    for generation in GENERATIONS:
        sim = start_file_sim(*server_options(generation))
        server = Server(generation, sim, watch_file(sim, speed=SPEED))
        for unit in server.units:
            server.call("fail-drive", unit.number, len(unit.disks[:2]))
            if unit.volumes:
                server.call("offline-volume", unit.number, 1)
        for path, times in NOT_READY[generation]:
            server.call("not-ready", f"GET */{path.lstrip('/')}", times)
        found.append(server)
    for server in found:
        server.watched.start()
    for server in found:
        server.watched.wait_baseline(120)
    return found


def test_boot_waits_for_every_resource(servers: List[Server]) -> None:
    """The first snapshot is complete: what had failed before is known, and silent then as later."""
    for server in servers:
        trace = without(server.watched.own_trace(), "Start cyclic")
        assert trace[trace.index("<VK0900> [TR] Ready to wait stop event.") + 1:] == [MONITORED]
        assert server.watched.counters()["logins"] == 1
        assert server.call("faults") == []
        requests = server.sim.requests()
        walks = [number for number, line in enumerate(requests)
                 if re.search(r" GET /redfish/v1/Systems/(\?\S+)? 200$", line)]
        # The first walk has waited for everything: nothing is left for the second.
        assert not [line for line in requests[walks[1]:] if line.endswith(" 503")]
        asked = [line.rsplit(" ", 2)[1].partition("?")[0].rstrip("/") for line in requests if line.endswith(" 503")]
        for path, times in NOT_READY[server.generation]:
            assert sum(found.endswith(path) for found in asked) == times, path
    expect(servers)
    for server in servers:
        server.heal()
    expect(servers)


@pytest.mark.parametrize("state", rows(DRIVES))
def test_state_of_a_drive(servers: List[Server], state: str) -> None:
    raised = rows(DRIVES)[state]
    for server in each_held(servers):
        for unit in server.units:
            server.call(*drive_state(unit, state))
    expect(servers, lambda server: [getattr(unit.disks[0], raised[unit.kind]) for unit in server.units
                                    if raised[unit.kind] != "-"])
    for server in servers:
        server.heal()
    expect(servers)


def test_reader_traces_what_drives_tell(servers: List[Server]) -> None:
    """Of the states before, as each family's reader wrote them in the walks that saw them."""
    for server in servers:
        told = {re.sub(r"ilorest-reader \d+", "ilorest-reader LINE", line) for line in server.watched.trace()
                if line.startswith("<VK0999> [TR] ilorest-reader ")}
        expected = {"statusReasons=None, State=Enabled, failurePredicted=0",
                    "statusReasons=Critical, State=UnavailableOffline, failurePredicted=0",  # MR, SR and boot devices
                    "statusReasons=Critical, State=Enabled, failurePredicted=0",
                    "statusReasons=Warning, State=Enabled, failurePredicted=1",
                    "statusReasons=None, State=Enabled, failurePredicted=1",  # SATA, VROC
                    "statusReasons=None, State=UnavailableOffline, failurePredicted=0",
                    "statusReasons=CarrierCommunicationFailure, State=Enabled, failurePredicted=0",
                    "statusReasons=Unrecoverable, State=Enabled, failurePredicted=0"}
        if server.of("smart"):
            expected |= {"statusReasons=Failed", "statusReasons=PredictiveFail", "statusReasons=CommunicationFailure",
                         "statusReasons=FailedDueToPredictiveSpareActivation"}
        assert {f"<VK0999> [TR] ilorest-reader LINE {line}" for line in expected} - told == set()


def test_every_family_wears_through_its_levels(servers: List[Server]) -> None:
    for percent, level in ((79, None), (80, "worn_80"), (89, None), (90, "worn_90"), (95, "worn_95")):
        for server in each_held(servers):
            for unit in server.units:
                for verb in worn(unit, percent):
                    server.call(*verb)
        expect(servers, lambda server: [getattr(unit.disks[0], level) for unit in server.units if level is not None])
    for server in servers:
        server.heal()
    expect(servers)


@pytest.mark.parametrize("state", rows(VOLUMES))
def test_state_of_a_volume(servers: List[Server], state: str) -> None:
    raised = rows(VOLUMES)[state]
    for server in each_held(servers):
        for unit in server.units:
            assert (raised[unit.kind] != ".") == bool(unit.volumes)
            for verb in volume_state(unit, state) if unit.volumes else ():
                server.call(*verb)
    expect(servers, lambda server: [unit.offline(1) for unit in server.units if raised[unit.kind] == "offline"])
    for server in servers:
        server.heal()
    expect(servers)


def test_sentences_of_each_family(servers: List[Server]) -> None:
    """Written out in full, as they stand in both logs by now; the other tests build them from the catalogue."""
    five, six, seven = servers
    for server, priority, sentence in (
            (five, ERROR, "A physical drive has failed: CTRL(HPE MR416i-p Gen10+ [Slot 14]) PD(Port=1I:Box=1:Bay=1) "
             "Model: XX000960TEST Size: 960 GB Serial Number: SIMMR00D0000 Firmware Revision: T101"),
            (five, WARNING, "A physical drive predicts its failure: CTRL(HPE SR932i-p Gen10+ [Slot 15]) PD(1I:1:1) "
             "Model: VK000960GWTEST Size: 960 GB Serial Number: SIMSR00D0000 Firmware Revision: HPG3"),
            (five, ERROR, "A logical drive is offline: CTRL(HPE NS204i-r Gen10+ Boot Controller [Slot 16]) LD(1)"),
            (six, WARNING, "A physical drive predicts its failure: CTRL(HPE SR932i-p Gen11 [Slot=16]) "
             "PD(Slot=16:Port=1I:Box=1:Bay=1) "
             "Model: VK000960GWTEST Size: 960 GB Serial Number: SIMSR00D0000 Firmware Revision: HPG3"),
            (six, ERROR, "A logical drive is offline: CTRL(HPE MR416i-o Gen11 [Slot=15]) LD(239)"),
            (six, WARNING, "An SSD has used 90 percent or more of its rated life: CTRL(XX006400TEST [Box 2 Bay 1]) "
             "PD(Box 2:Bay 1) Model: XX006400TEST Size: 6401 GB Serial Number: SIMNV00D0000 Firmware Revision: T5021"),
            (seven, ERROR, "A physical drive does not answer or cannot be recovered: "
             "CTRL(HPE NS204i-u Gen11 Boot Controller [Slot=16]) PD(Slot=16:Bay=1) "
             "Model: VS000480TEST Size: 480 GB Serial Number: SIMNS00D0000 Firmware Revision: T0031G00"),
            (seven, ERROR, "A physical drive has failed: CTRL(XX006400TEST [Embedded:Port=1A:Box=1:Bay=1]) "
             "PD(Embedded:Port=1A:Box=1:Bay=1) "
             "Model: XX006400TEST Size: 6401 GB Serial Number: SIMNV00D0000 Firmware Revision: T5021"),
            (seven, WARNING, "An SSD has used 80 percent or more of its rated life: "
             "CTRL(Embedded SATA Controller #1 [System Board]) PD(SATA Drive Box 3 Bay 1) "
             "Model: XX000480SATATEST Size: 480 GB Serial Number: SIMAH00D0000 Firmware Revision: T201"),
            (seven, ERROR, "An SSD has used 95 percent or more of its rated life: "
             "CTRL(Intel VROC SATA RAID Controller [System Board]) PD(VROC Drive Box 4 Bay 1) "
             "Model: XX000960VROCTEST Size: 960 GB Serial Number: SIMVR00D0000 Firmware Revision: T301")):
        entries = [entry for entry in server.watched.host.syslog_entries() if entry.text() == sentence]
        assert entries and {entry.priority for entry in entries} == {priority}, sentence
    assert five.watched.count_line(
        "<VK0439> [EV] 0xc00081b7 CTRL(HPE NS204i-r Gen10+ Boot Controller [Slot 16]) LD(1) reported.") == 2
    assert seven.watched.count_line(
        "<VK0347> [EV] 0x8000815b CTRL(Embedded SATA Controller #1 [System Board]) PD(SATA Drive Box 3 Bay 1)  "
        "Model: XX000480SATATEST Size: 480 GB Serial Number: SIMAH00D0000 Firmware Revision: T201 reported.") == 1


def test_one_walk_reports_in_order(servers: List[Server]) -> None:
    """Storage drives, Storage volumes, vanished drives, vanished volumes, then SmartStorage; of one drive failed,
    fatal, predicted, worn. A boot device's one health cannot be failed and unrecoverable at once."""
    listed = {"sata": ("worn_95",), "ns204": ("fatal", "predicted", "worn_95")}
    for server in each_held(servers):
        for unit in server.units:
            for verb in worn(unit, 96):
                server.call(*verb)
            if unit.kind == "smart":
                server.call(*reason_list(unit, "PredictiveFail", "Unrecoverable", "Failed"))
            else:
                server.call(*reason_list(unit, "Unrecoverable", "Failed"))
                member = "add-member" if unit.kind in ("sata", "vroc") else "set"
                server.call(member, unit.drives[0], "FailurePredicted", True)
            for verb in volume_state(unit, "offline") if unit.volumes else ():
                server.call(*verb)
        for unit in server.of(MR):
            server.call("remove-volume", unit.number, 2)
            for drive in (2, 3, 4, 5):
                server.call("remove-drive", unit.number, drive)

    def drives(units: List[Unit]) -> List[Event]:
        return [getattr(unit.disks[0], name) for unit in units
                for name in listed.get(unit.kind, ("failed", "fatal", "predicted", "worn_95"))]

    def volumes(units: List[Unit]) -> List[Event]:
        return [unit.offline(1) for unit in units if unit.volumes]

    def events(server: Server) -> List[Event]:
        mirror = server.of("mr", "sr", "ns204", "nvme", "sata", "vroc")
        vanished = [disk.failed for unit in server.of(MR) for disk in unit.disks[1:]]
        return (drives(mirror) + volumes(mirror) + vanished + [unit.offline(2) for unit in server.of(MR)]
                + drives(server.of("smart")) + volumes(server.of("smart")))

    expect(servers, events)
    for server in servers:
        for unit in server.of(MR):
            server.call("restore-volume", unit.number, 2)
            for drive in (2, 3, 4, 5):
                server.call("restore-drive", unit.number, drive)
        server.heal()
    expect(servers)


def test_drive_that_vanishes_from_its_volume(servers: List[Server]) -> None:
    """On MR controllers it has failed; elsewhere nothing is said. The volumes stay."""
    for server in each_held(servers):
        for unit in server.units:
            server.call("remove-drive", unit.number, len(unit.disks[:2]))
    expect(servers, lambda server: [unit.disks[1].failed for unit in server.of(MR)])
    for server in servers:
        for unit in server.units:
            server.call("restore-drive", unit.number, len(unit.disks[:2]))
    expect(servers)


@pytest.mark.parametrize("with_drives", [False, True], ids=["drives-stay", "drives-go"])
def test_volume_that_vanishes(servers: List[Server], with_drives: bool) -> None:
    """Without its drives it was deleted on purpose; with them it is offline, where MR controllers are concerned."""
    def drives(unit: Unit) -> "range":
        return range(1, (3 if unit.kind == MR else len(unit.disks) + 1) if with_drives else 1)

    for server in each_held(servers):
        for unit in server.units:
            if unit.volumes:
                server.call("remove-volume", unit.number, 1)
                for number in drives(unit):
                    server.call("remove-drive", unit.number, number)
    expect(servers, lambda server: [
        *(unit.disks[number - 1].failed for unit in server.of(MR) for number in drives(unit)),
        *(unit.offline(1) for unit in server.of(MR) if with_drives)])
    for server in each_held(servers):
        for unit in server.units:
            if unit.volumes:
                server.call("restore-volume", unit.number, 1)
                for number in drives(unit):
                    server.call("restore-drive", unit.number, number)
    expect(servers)


def test_pulled_drive_whose_bay_is_listed_as_empty(servers: List[Server]) -> None:
    """The bay is no drive: it neither stands for the one that was pulled nor raises anything itself."""
    later = [server for server in servers if server.generation > 5]
    for server in each_held(later):
        for unit in server.of("mr", "sr"):
            bay = server.call("empty-bay", unit.number, 2)
            assert server.call("get", bay)["Status"] == {"State": "Absent", "Health": "OK"}
    expect(later, lambda server: [unit.disks[1].failed for unit in server.of(MR)])
    for server in each_held(later):
        for unit in server.of("mr", "sr"):
            server.call("restore-drive", unit.number, 2)
    expect(later)


def test_drive_whose_own_entry_becomes_an_empty_bay(servers: List[Server]) -> None:
    """Firmware may keep the entry of a drive that was pulled; with neither model nor serial number it is no drive.
    One that is told to be absent but still known by name is."""
    def absent(server: Server, path: str, *gone: str) -> None:
        body = {name: value for name, value in server.call("get", path).items() if name not in gone}
        server.call("set", path, ".", {**body, "Status": {"State": "Absent", "Health": "OK"}})

    for server in each_held(servers):
        for unit in server.of("mr", "sr"):
            absent(server, unit.drives[0])
            absent(server, unit.drives[1], "Model", "SerialNumber", "Links", "CapacityBytes", "Revision")
    expect(servers, lambda server: [unit.disks[1].failed for unit in server.of(MR)])
    for server in servers:
        server.heal()
    expect(servers)


def test_controller_that_disappears_and_returns(servers: List[Server]) -> None:
    """A server's only MR controller goes as silently as those of other families; beside another one its drives have
    failed and its volumes are offline. What comes back is new: silent when it is well, reported when it is not."""
    gone = {server.generation: [unit for unit in server.units
                                if unit.kind != MR or unit is server.of(MR)[0]] for server in servers}
    for server in each_held(servers):
        for unit in gone[server.generation]:
            server.call("remove-controller", unit.number)

    def vanished(server: Server) -> List[Event]:
        if len(server.of(MR)) == 1:
            return []
        unit = server.of(MR)[0]
        return [*(disk.failed for disk in unit.disks), unit.offline(2), unit.offline(1)]

    expect(servers, vanished)
    for server in each_held(servers):
        for unit in gone[server.generation]:
            server.call("restore-controller", unit.number)
            server.call("fail-drive", unit.number, 1)
    expect(servers, lambda server: [unit.disks[0].failed for unit in gone[server.generation] if unit.kind != "sata"])
    for server in servers:
        server.heal()
    expect(servers)


def test_malformed_drive_fails_the_walk(servers: List[Server]) -> None:
    """One after the other, in each family: what does not fit is traced, the next walk is a new baseline."""
    broken = {"smart": ("Location", {}), "mr": ("Model", {"a": 1}), "sr": ("Status", {"Health": 7}),
              "ns204": ("CapacityBytes", "much"), "nvme": ("FailurePredicted", "no"),
              "sata": ("MediaType", []), "vroc": ("Revision", 5)}
    begun = {server.generation: len(server.watched.trace()) for server in servers}

    def told(server: Server) -> List[str]:
        return without(server.watched.trace()[begun[server.generation]:], "statusReasons=", "mVersion=",
                       "ssdEnduranceUtilizationPercentage=")

    for server in servers:
        for unit in server.units:
            member, value = broken[unit.kind]
            drive = server.call("get", unit.drives[0])
            assert member in drive
            server.call("body", f"GET {unit.drives[0]}", json.dumps({**drive, member: value}), 1)
    for server in servers:
        wait_until(lambda: told(server).count(BACK) >= len(server.units), "log-ins", 30, server.watched.host)
    expect(servers)
    for server in servers:
        lines = told(server)
        assert lines[1::3] == [FAILED] * len(server.units)
        assert lines[2::3] == [BACK] * len(server.units)
        assert len(lines) == 3 * len(server.units)
        for line in lines[::3]:
            assert re.fullmatch(r"<VK0999> \[TR\] ilorest-reader \d+ .+", line), line
    for server in each_held(servers):
        for unit in server.units:
            server.call("fail-drive", unit.number, len(unit.disks[:2]))
    expect(servers, lambda server: [unit.disks[len(unit.disks[:2]) - 1].failed for unit in server.units
                                    if unit.kind != "sata"])


def test_services_end_well(servers: List[Server]) -> None:
    for server in servers:
        assert server.watched.stop() == 0
        server.watched.assert_reports()
        assert len(server.watched.errors()) == len(server.units), server.watched.errors()
        assert server.watched.counters()["open_sessions"] == 0
