"""Runs fuzz targets: the corpus in the tree first, then new inputs for some time, two targets at a time.

Whatever ends a target is a finding. Its input stays below build/fuzz/TARGET/, with what the target said.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
AT_ONCE = 2
# The longest text that a controller answers with here has 18195 bytes (controller-text.h): longer ones are to be made, too.
# Inputs are small, and a target takes well under a millisecond for one: the limits are wide enough for a machine that
# is busy, and still find what does not end or eats memory. Seconds, and MiB.
LIMITS = ["-max_len=20000", "-timeout=10", "-rss_limit_mb=1024"]
# Freed memory is kept apart for a while, to be watched; of 256 MiB of it the limit above would be half full.
ASAN = "quarantine_size_mb=32:detect_stack_use_after_return=1"
LEAKS_UNWATCHED = "LeakSanitizer has encountered a fatal error"


def targets():
    return sorted(source.stem for source in HERE.glob("*.cpp") if source.stem != "fuzz")


class Run:
    """One target for some seconds."""

    def __init__(self, name, build, seconds, temporary):
        self.name = name
        self.program = build / "targets" / name
        self.folder = build / name
        self.seconds = seconds
        self.temporary = temporary
        self.log = self.folder / "log"

    def command(self, *options):
        learnt = self.folder / "corpus"  # what earlier runs have found out; may be removed at any time
        learnt.mkdir(parents=True, exist_ok=True)
        return [self.program, f"-max_total_time={self.seconds}", f"-dict={HERE / self.name}.dict",
                f"-artifact_prefix={self.folder}/", "-print_final_stats=1", *LIMITS, *options,
                learnt, HERE / "corpus" / self.name]

    def execute(self, *options):
        environment = dict(os.environ, TMPDIR=self.temporary, ASAN_OPTIONS=ASAN, UBSAN_OPTIONS="print_stacktrace=1")
        with open(self.log, "wb") as log:
            status = subprocess.run([str(part) for part in self.command(*options)], stdin=subprocess.DEVNULL,
                                    stdout=log, stderr=subprocess.STDOUT, env=environment, check=False).returncode
        return status, self.log.read_text(errors="replace")

    def __call__(self):
        """True without a finding. Prints one line, or what there is to know about the finding."""
        self.folder.mkdir(parents=True, exist_ok=True)
        status, said = self.execute()
        if status != 0 and LEAKS_UNWATCHED in said:  # nobody may trace processes here: no finding
            status, said = self.execute("-detect_leaks=0")
        if status == 0:
            print(f"{self.name}: {self.figures(said)}", flush=True)
            return True
        print("\n".join([f"{self.name}: FAILED", *said.splitlines()[-60:], self.how_to_reproduce(said)]), flush=True)
        return False

    @staticmethod
    def figures(said):
        executions = re.search(r"stat::number_of_executed_units: *(\d+)", said)
        reached = re.findall(r"cov: (\d+) ft: (\d+)", said)[-1]
        return f"{executions[1]} executions, {reached[0]} edges and {reached[1]} features of the code reached"

    def how_to_reproduce(self, said):
        kept = re.search(r"Test unit written to (\S+)", said)
        if kept is None:
            return f"{self.name}: it left no input; all that it said stands in {self.log}"
        return f"{self.name}: the input is kept; reproduce with\n  {self.program} {kept[1]}"


def main():
    parser = argparse.ArgumentParser(prog="./run fuzz")
    parser.add_argument("--build", type=pathlib.Path, required=True, help="the build folder")
    parser.add_argument("target", nargs="?", choices=targets(), metavar="TARGET")
    parser.add_argument("seconds", nargs="?", type=int, default=20, metavar="SECONDS")
    options = parser.parse_args()
    if options.seconds < 1:
        parser.error("SECONDS is a whole number from 1")
    names = [options.target] if options.target else targets()
    with tempfile.TemporaryDirectory(prefix="bayward-fuzz-") as temporary, \
            concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        runs = [Run(name, options.build.resolve(), options.seconds, temporary) for name in names]
        failed = [run.name for run, well in zip(runs, pool.map(lambda run: run(), runs)) if not well]
    if failed:
        sys.exit(f"findings in: {', '.join(failed)}")


if __name__ == "__main__":
    main()
