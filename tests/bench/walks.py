#!/usr/bin/python3
"""What the service costs the controller and the host, at its own speed: looks at the storage, memory, start and stop.

    walks.py [--bin build/release/bin] [--walks N] [--json FILE]

The real service looks at simulated controllers that take 20 ms for every answer: with expansion, with expansion switched
off, and with controllers that ignore and refuse it. Beside it, on the same controllers, the sequential walk of reference-walk.py.
"""

from __future__ import annotations

import argparse
import importlib.util
import json
import statistics
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path
from typing import Dict, List, Mapping, Optional, Tuple

sys.path.insert(0, str(Path(__file__).resolve().parent))

from calm import calmest  # noqa: E402 (lies beside this script)
from figures import Figure, at_most, plain, print_table, save  # noqa: E402 (likewise)
from watching import ControllerProcess, HostError, ServiceRun  # noqa: E402 (likewise)
from simcontroller.errors import Failure  # noqa: E402 (watching.py has put the simulator on the path)

ROOT = Path(__file__).resolve().parents[2]
REFERENCE = Path(__file__).resolve().parent / "reference-walk.py"
LATENCY_MS = 20
LATENCY = LATENCY_MS / 1000
WALKS = 5
TRIES_OF_A_RUN = 2  # that others disturb; it takes most of a minute

IDLE_DRIVES = 8
CURVE_DRIVES = (10, 50, 100, 200)  # the last one is tree L
CURVE_WALKS = 3

OWN_TIME_TARGET = 1.10  # of the latency of a walk's own requests
CPU_TARGET = 0.6  # of the reference's
OFF_CPU_TARGET = 2
FALLBACK_TARGET = 1.08  # of the reference's requests and wall time
RESIDENT_TARGET = 22  # MiB
START_TARGET = 50  # ms
STOP_TARGET = 100  # ms


@dataclass(frozen=True)
class Tree:
    """A server, and how little a walk of it may cost."""

    name: str
    what: str
    options: Tuple[str, ...]
    requests: Optional[int] = None
    share_of_requests: Optional[float] = None  # of the reference's
    share_of_seconds: Optional[float] = None


TREES = (
    Tree("S", "2 Smart Arrays, 4 logical drives and 24 drives each", ("--controllers", "2", "--drives", "24", "--volumes", "4"),
         requests=15, share_of_seconds=0.25),
    Tree("L", "1 Smart Array, 4 logical drives and 200 drives", ("--drives", "200", "--volumes", "4"),
         requests=9, share_of_seconds=0.06),
    Tree("M", "2 MR controllers, 4 volumes and 24 drives each",
         ("--ilo", "6", "--mr", "2", "--mr-drives", "24", "--mr-volumes", "4"), share_of_requests=0.25),
)


@dataclass(frozen=True)
class Mode:
    """How the service asks, and what the controller makes of it."""

    name: str
    expand: bool = True  # what the service's configuration says
    controller: str = "on"


EXPANDED = Mode("expanded")
OFF = Mode("expand = false", expand=False)
FALLBACKS = (Mode("ignored", controller="off"), Mode("refused", controller="refuse"))

# Plain clients beside the service, with the Python module that each wants.
CLIENTS = {"http.client": None, "requests": "requests", "sushy": "sushy"}
YARDSTICK = "http.client"


@dataclass(frozen=True)
class Cost:
    """Of one walk, medians."""

    requests: float
    wall: float  # seconds
    cpu: float
    first_requests: int = 0  # of the first walk of a session


Curve = Mapping[int, Mapping[str, Cost]]  # number of drives -> mode or client -> cost


@dataclass
class Vitals:
    """What every run of the service tells besides the costs of its walks."""

    start_ms: List[float] = field(default_factory=list)
    stop_ms: List[float] = field(default_factory=list)
    resident_kib: Dict[str, int] = field(default_factory=dict)  # by the server's name, the most
    connections: int = 0  # of the walks of a run, the most
    logins: int = 0

    idle_wakeups: int = 0  # of a thread in a pause, the most
    other_wakeups: float = 0.0  # per interval, of a thread that does not look, the most

    def take(self, server: str, run: ServiceRun) -> None:
        self.idle_wakeups = max(self.idle_wakeups, *run.idle_wakeups)
        self.other_wakeups = max(self.other_wakeups, run.other_wakeups)
        self.resident_kib[server] = max(run.resident_kib, self.resident_kib.get(server, 0))
        walks = [run.first, *run.walks]
        self.connections = max(self.connections, len(set().union(*(walk.connections for walk in walks if walk))))
        self.logins = max(self.logins, sum(walk.logins for walk in walks if walk))


def tell(text: str) -> None:
    print(f"   {text}", file=sys.stderr, flush=True)


def watched(bin_dir: Path, sim: ControllerProcess, walks: int, vitals: Vitals, server: str,
            ilo: Optional[Mapping[str, object]] = None, media_errors: bool = False) -> ServiceRun:
    """A run of the service from start to stop; the calmest one, when others disturb it. What no other program excuses is
    taken from every run; `server`: the name under which its memory is kept."""
    def run() -> ServiceRun:
        with ServiceRun(bin_dir, sim, ilo, media_errors) as service:
            service.measure(walks)
            service.stop()
        vitals.take(server, service)
        return service

    chosen = calmest(run, TRIES_OF_A_RUN)
    vitals.start_ms.append(chosen.start_ms)
    vitals.stop_ms.append(chosen.stop_ms)
    return chosen


def service_cost(bin_dir: Path, sim: ControllerProcess, mode: Mode, walks: int, vitals: Vitals, server: str) -> Cost:
    """Runs the service on a controller. `server`: its name, under which its memory is kept."""
    sim.control.call("expand", mode.controller)
    run = watched(bin_dir, sim, walks, vitals, server, {} if mode.expand else {"expand": "false"})
    return Cost(statistics.median(walk.requests for walk in run.walks),
                statistics.median(walk.seconds(LATENCY) for walk in run.walks), statistics.median(run.cpu_seconds),
                run.first.requests if run.first else 0)


def client_cost(sim: ControllerProcess, client: str, walks: int) -> Optional[Cost]:
    """None when the module that the client wants is not installed."""
    module = CLIENTS[client]
    if module is not None and importlib.util.find_spec(module) is None:
        return None
    command = [sys.executable, str(REFERENCE), sim.url, sim.account, sim.password, "--walks", str(walks), "--client", client]

    def run() -> str:
        ran = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        if ran.returncode != 0:
            raise HostError(ran.stderr.strip())
        return ran.stdout

    told = json.loads(calmest(run))
    return Cost(told["requests"], told["wall_seconds"], told["cpu_seconds"])


def bounded(figure: str, value: float, unit: str, target: Optional[float]) -> Figure:
    return plain(figure, value, unit) if target is None else at_most(figure, value, unit, target)


def cost_figures(name: str, cost: Cost) -> List[Figure]:
    return [plain(f"{name}, requests", cost.requests, ""), plain(f"{name}, wall time", cost.wall, "s"),
            plain(f"{name}, CPU time", cost.cpu * 1000, "ms")]


def shares(name: str, cost: Cost, reference: Cost, requests: Optional[float], wall: Optional[float],
           cpu: Optional[float]) -> List[Figure]:
    """A walk beside the reference's, with what each share may be at most."""
    return [bounded(f"{name}, requests to reference", cost.requests / reference.requests, "", requests),
            bounded(f"{name}, wall time to reference", cost.wall / reference.wall, "", wall),
            bounded(f"{name}, CPU time to reference", cost.cpu / reference.cpu, "", cpu)]


def tree_figures(tree: Tree, costs: Mapping[str, Cost], reference: Cost) -> List[Figure]:
    """costs: by the name of the mode."""
    expanded, off = (costs[mode.name] for mode in (EXPANDED, OFF))
    name = f"{tree.name}, {EXPANDED.name}"
    figures = [
        *cost_figures(f"{tree.name}, reference", reference),
        bounded(f"{name}, requests", expanded.requests, "", tree.requests),
        plain(f"{name}, requests of the first look of a session", expanded.first_requests, ""),
        plain(f"{name}, wall time", expanded.wall, "s"),
        plain(f"{name}, CPU time", expanded.cpu * 1000, "ms"),
        at_most(f"{name}, wall time to own requests x {LATENCY_MS} ms", expanded.wall / (expanded.requests * LATENCY), "",
                OWN_TIME_TARGET),
        *shares(name, expanded, reference, tree.share_of_requests, tree.share_of_seconds, CPU_TARGET),
        *cost_figures(f"{tree.name}, {OFF.name}", off),
        *shares(f"{tree.name}, {OFF.name}", off, reference, None, None, OFF_CPU_TARGET),
    ]
    for mode in FALLBACKS:
        figures += shares(f"{tree.name}, {mode.name}", costs[mode.name], reference, FALLBACK_TARGET, FALLBACK_TARGET,
                          OFF_CPU_TARGET)
    return figures


def vital_figures(vitals: Vitals) -> List[Figure]:
    return [
        at_most("wake-ups of a thread in a pause, most", vitals.idle_wakeups, "", 1),
        at_most("wake-ups per interval, threads that do not look, most", vitals.other_wakeups, "", 1),
        at_most("connections over the walks of a run, most", vitals.connections, "", 1),
        at_most("log-ins over the walks of a run, most", vitals.logins, "", 0),
        *[at_most(f"resident memory after walks of {server}, most", kib / 1024, "MiB", RESIDENT_TARGET)
          for server, kib in vitals.resident_kib.items()],
        at_most('start to "Service started.", median', statistics.median(vitals.start_ms), "ms", START_TARGET),
        plain('start to "Service started.", longest', max(vitals.start_ms), "ms"),
        at_most("SIGTERM to exit, median", statistics.median(vitals.stop_ms), "ms", STOP_TARGET),
        plain("SIGTERM to exit, longest", max(vitals.stop_ms), "ms"),
    ]


def measure_idle(bin_dir: Path, walks: int, vitals: Vitals) -> None:
    """The service with all its threads, on a small server."""
    tell(f"all threads, {IDLE_DRIVES} drives")
    with ControllerProcess("--drives", str(IDLE_DRIVES), "--volumes", "2", "--latency-ms", str(LATENCY_MS)) as sim:
        watched(bin_dir, sim, walks, vitals, f"{IDLE_DRIVES} drives", media_errors=True)


def measure_tree(bin_dir: Path, tree: Tree, walks: int, vitals: Vitals) -> Tuple[List[Figure], Dict[str, Cost]]:
    """The figures of one server, and the costs by the names of modes and clients."""
    costs: Dict[str, Cost] = {}
    others: List[Figure] = []
    with ControllerProcess(*tree.options, "--latency-ms", str(LATENCY_MS)) as sim:
        for mode in (EXPANDED, OFF, *FALLBACKS):
            tell(f"{tree.name}, {tree.what}: {mode.name}")
            costs[mode.name] = service_cost(bin_dir, sim, mode, walks, vitals, tree.name)
        for client in CLIENTS:
            tell(f"{tree.name}: walk of {client}")
            cost = client_cost(sim, client, walks)
            if cost is None:
                tell(f"{client} is not installed")
                continue
            costs[client] = cost
            if client != YARDSTICK:
                others += cost_figures(f"{tree.name}, walk of {client}", cost)
    return tree_figures(tree, costs, costs[YARDSTICK]) + others, costs


def measure_curve(bin_dir: Path, known: Mapping[int, Mapping[str, Cost]], walks: int, vitals: Vitals) -> Curve:
    """Costs by the number of drives of one controller; those that are known already are not measured again."""
    curve: Dict[int, Mapping[str, Cost]] = dict(known)
    for drives in CURVE_DRIVES:
        if drives in curve:
            continue
        tell(f"{drives} drives")
        options = ("--drives", str(drives), "--volumes", "4", "--latency-ms", str(LATENCY_MS))
        with ControllerProcess(*options) as sim:
            costs = {mode.name: service_cost(bin_dir, sim, mode, walks, vitals, f"{drives} drives")
                     for mode in (OFF, EXPANDED)}
            reference = client_cost(sim, YARDSTICK, walks)
            assert reference is not None
            curve[drives] = {**costs, YARDSTICK: reference}
    return dict(sorted(curve.items()))


def measure(bin_dir: Path, walks: int = WALKS) -> Tuple[List[Figure], Curve]:
    """Figures, and costs by the number of drives for a plot."""
    figures: List[Figure] = []
    vitals = Vitals()
    known: Dict[int, Mapping[str, Cost]] = {}
    for tree in TREES:
        found, costs = measure_tree(bin_dir, tree, walks, vitals)
        figures += found
        if tree.name == "L":
            known[200] = costs
    curve = measure_curve(bin_dir, known, min(walks, CURVE_WALKS), vitals)
    measure_idle(bin_dir, walks, vitals)
    return figures + vital_figures(vitals), curve


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").split("\n\n", maxsplit=1)[0])
    parser.add_argument("--bin", type=Path, default=ROOT / "build/release/bin", metavar="DIR",
                        help="run-time folder of the service (default: build/release/bin)")
    parser.add_argument("--walks", type=int, default=WALKS, metavar="N", help=f"measured in each run (default: {WALKS})")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures to this file as well")
    args = parser.parse_args()
    if args.walks < 1:
        parser.error("--walks is at least 1")
    try:
        figures, _ = measure(args.bin.resolve(), args.walks)
    except (HostError, Failure) as error:
        print(f"walks: {error}", file=sys.stderr)
        return 1
    print_table(figures)
    if args.json:
        save(args.json, figures)
    return 0


if __name__ == "__main__":
    sys.exit(main())
