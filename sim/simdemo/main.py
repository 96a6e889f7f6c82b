"""The program: what it needs, the server and the host it starts, and its exit status."""

from __future__ import annotations

import argparse
import os
import shutil
import sys
import tempfile
from contextlib import ExitStack
from pathlib import Path
from typing import Dict, List, Optional, Sequence

import simhost
from simcontroller import scenario
from simcontroller.errors import Failure, UseError
from simcontroller.process import ControllerProcess
from simhost import HostError, SimHost

from .feed import Catalogue, Feed
from .interrupt import Interrupts
from .outcome import Outcomes
from .player import Player
from .screen import BOLD, Screen, standard_screen

_ROOT = Path(__file__).resolve().parents[2]
_SCENARIO = _ROOT / "sim/scenarios/demo.scenario"
_RUNTIME = ("bayward", "baywardctl", "bayward.msg", "baywardilorest.py")
_FAILED, _WRONG_USE, _INTERRUPTED = 1, 2, 130


class Language:
    """How the host's locale file, the catalogue and the system log name a language."""

    def __init__(self, locale: str, section: str, encoding: str, shown: str) -> None:
        self.locale = locale
        self.section = section
        self.encoding = encoding
        self.shown = shown


_ENGLISH = Language("LANG=en_US.UTF-8", "default", "utf-8", "English (en_US.UTF-8)")
_JAPANESE = Language("LANG=ja_JP.eucJP", "ja_JP", "euc_jp", "Japanese (ja_JP.eucJP; shown here converted)")


def _arguments(argv: Optional[Sequence[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./run demo", description="Watch the real service report failing drives of a simulated server. It takes "
        "somewhat less than two minutes and changes nothing on this machine; Ctrl+C ends it at any moment.")
    parser.add_argument("--ja", action="store_true", help="on a Japanese system (EUC-JP)")
    parser.add_argument("--bin", type=Path, default=_ROOT / "build/release/bin", metavar="DIR",
                        help="run-time folder of the service (default: build/release/bin)")
    parser.add_argument("--no-colour", "--no-color", action="store_true", dest="plain",
                        help="no colours (as NO_COLOR in the environment, or output into a file)")
    parser.add_argument("--every-line", action="store_true",
                        help="also show the trace lines that repeat with every look at the drives")
    parser.add_argument("--scenario", type=Path, default=_SCENARIO, metavar="FILE", help="play another scenario")
    return parser.parse_args(argv)


def _lacking(bin_dir: Path, steps: Sequence[scenario.Step]) -> Optional[str]:
    """One sentence about the first thing that is missing here for these steps, or None."""
    for name in _RUNTIME:
        if not (bin_dir / name).exists():
            return f"{bin_dir} holds no {name}; build it with ./run build."
    if shutil.which("openssl") is None:
        return "The program openssl is missing; install the package openssl."
    return simhost.missing(faketime=any(isinstance(step, scenario.Restart) and step.speed != 1 for step in steps))


def _config(steps: Sequence[scenario.Step], url: str) -> Dict[str, Dict[str, str]]:
    # The search for medium errors runs the RAID tools every half minute at best; a scenario that wants it says so.
    config: Dict[str, Dict[str, str]] = {"iLo": {"url": url}, "media error": {"check": "false"}}
    for step in steps:
        if isinstance(step, scenario.Configure):
            config.setdefault(step.section, {})[step.key] = step.value
    return config


def _shown(path: Path) -> str:
    """The path as a person standing here would write it."""
    relative = os.path.relpath(path)
    return str(path) if relative.startswith("..") else relative


def _introduce(screen: Screen, controller: ControllerProcess, bin_dir: str, language: Language) -> None:
    screen.line("bayward watches a server that goes wrong", BOLD)
    screen.line()
    for name, text in (("server", f"simulated; its management controller answers at {controller.url}"),
                       ("service", f"{bin_dir}/bayward --stand-alone, the real one"),
                       ("system log", "a real rsyslogd, and like the service in namespaces of its own"),
                       ("language", language.shown)):
        screen.paragraph(f"{name:<11} {text}")
    screen.line()
    screen.paragraph("ERROR and WARNING are what an administrator finds in the system log; trace is the service's own log "
                     "(what it repeats with every look at the drives is left out; --every-line shows it).")


def _play(args: argparse.Namespace, interrupts: Interrupts, steps: List[scenario.Step], stack: ExitStack) -> bool:
    language = _JAPANESE if args.ja else _ENGLISH
    bin_dir = args.bin.resolve()
    screen = standard_screen(colour=not args.plain)
    stack.callback(screen.clear_waiting)
    folder = Path(tempfile.mkdtemp(prefix="bayward-demo-"))
    stack.callback(shutil.rmtree, folder, ignore_errors=True)
    (folder / "controller").mkdir()
    options = [option for step in steps if isinstance(step, scenario.Server) for option in step.options]
    controller = stack.enter_context(ControllerProcess(*options, folder=folder / "controller"))
    config = _config(steps, controller.url)
    # A copy of the run-time folder, because the RAID tools write there.
    host = stack.enter_context(SimHost(bin_dir, folder / "host", config=config, locale=language.locale,
                                       copy_runtime=True))
    host.install_tools(controller.tools)
    feed = Feed(host, Catalogue(bin_dir / "bayward.msg", language.section), language.encoding)
    outcomes = Outcomes()
    with interrupts.allowed():
        _introduce(screen, controller, _shown(bin_dir), language)
        registered = host.run(["baywardctl", "account", "set", controller.account], stdin=controller.password + "\n")
        if registered.returncode != 0:
            raise Failure(f"baywardctl did not register the account: {(registered.stderr + registered.stdout).strip()}")
        screen.start_clock()
        host.start_service(stand_alone=True)
        Player(steps, screen, host, controller, feed, outcomes, args.every_line, config).play()
    outcomes.show(screen)
    return outcomes.agree


def _interrupted() -> int:
    print("demo: stopped; nothing is left behind.", file=sys.stderr)
    return _INTERRUPTED


def main(argv: Optional[Sequence[str]] = None) -> int:
    """0: everything came as expected; 1: it did not, or could not start; 2: wrong use; 130: Ctrl+C."""
    args = _arguments(argv)
    interrupts = Interrupts()
    try:
        try:
            steps = scenario.parse(args.scenario.read_text(encoding="utf-8"), str(args.scenario))
        except OSError as error:
            raise UseError(f"{args.scenario}: {error.strerror}; give a scenario file.") from None
        lacking = _lacking(args.bin.resolve(), steps)
        if lacking is not None:
            raise Failure(lacking)
        with ExitStack() as stack:
            agree = _play(args, interrupts, steps, stack)
        return 0 if agree else _FAILED
    except KeyboardInterrupt:
        return _interrupted()
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())  # nobody reads; the final flush must not fail
        return _FAILED
    except UseError as error:
        print(f"demo: {error}", file=sys.stderr)
        return _WRONG_USE
    except (Failure, HostError) as error:
        if interrupts.came:  # Ctrl+C ends the controller too, which is what failed then
            return _interrupted()
        print(f"demo: {error}", file=sys.stderr)
        return _FAILED
