#!/usr/bin/env python3
"""Debian's own 32-bit programs under the checker: they must do what they do without it, and no fault is reported.

real_programs.py [--target i686|armhf] [--program NAME] [--setting NAME]. Each case runs once bare and once under
libquarl.so in a fresh directory; output, exit status and the files left behind are compared. Exit status 1 when any
case differs.
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from functools import lru_cache
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
sys.dont_write_bytecode = True

import logs
import sysroot
from workloads import comparable, workloads

TIMEOUT = 400  # seconds; a thread that parks after a fault waits for ever


@dataclass(frozen=True)
class Setting:
    """A configuration, and what the logs that it leaves must tell."""

    lines: tuple = ()
    small: bool = False
    programs: tuple = ("sqlite3", "python3.11", "xz", "protoc")
    log: str = ""  # end of the log's name
    reconcile: object = None


SETTINGS = {
    "defaults": Setting(),
    "checks": Setting(
        ("QUARL_SLOPOVER_MALLOC=1", "QUARL_SLOPOVER_FREE=1", "QUARL_SLOPOVER_THREAD=1", "QUARL_MEM_CHECK_IN_HOOK=1",
         "QUARL_SLOPOVER_TIMER=1", "QUARL_TIMER=1", "QUARL_SLOPOVER_USER=12", "QUARL_SLOPOVER_API=1",
         "QUARL_SLOPOVER_EXIT=1", "QUARL_MEM_CHECK=1"), small=True),
    "record": Setting(("QUARL_OUTPUT_LOG=1",), small=True, programs=("sqlite3", "python3.11", "xz"),
                      log="_quarlAll.log", reconcile=logs.reconcile_records),
    "snapshots": Setting(  # not on SIGALRM, which xz takes for its own use
        ("QUARL_TIMER_SIG=SIG40", "QUARL_ALL=1", "QUARL_MEM_HEAD=1", "QUARL_HEAD_TIME=2", "QUARL_TIME_INTERVAL=1", "QUARL_SNAP_INTERVAL=1",
         "QUARL_SNAP_DETAIL=1"), programs=("sqlite3", "python3.11", "xz"), log="_quarl_autosnap.log",
        reconcile=logs.reconcile_snapshots),
}
TARGETS = {"i686": ("sqlite3", "python3.11", "xz", "protoc"), "armhf": ("sqlite3", "python3.11", "xz")}


@dataclass
class Outcome:
    status: object
    stdout: bytes
    stderr: bytes
    files: dict
    seconds: float


def perform(target, work, folder, preload=(), environment=None):
    """Runs a workload in `folder` and collects everything that it shows to the outside."""
    for name, content in work.files.items():
        (folder / name).write_bytes(content)
    begin = time.monotonic()
    try:
        done = sysroot.run(target, sysroot.debian_program(target, work.program), *work.arguments, input=work.stdin,
                           cwd=folder, preload=preload, environment={**work.environment, **(environment or {})},
                           timeout=TIMEOUT)
        status, stdout, stderr = done.returncode, done.stdout, done.stderr
    except subprocess.TimeoutExpired as expired:
        status, stdout, stderr = f"still running after {TIMEOUT} s", expired.stdout or b"", expired.stderr or b""
    files = {path.name: path.read_bytes() for path in folder.iterdir()
             if path.is_file() and not path.name.endswith(".log")}
    return Outcome(status, comparable(stdout), comparable(stderr), files, time.monotonic() - begin)


@lru_cache(maxsize=None)
def bare(target, program, small):
    with tempfile.TemporaryDirectory() as folder:
        return perform(target, workload(target, program, small), Path(folder))


def workload(target, program, small):
    return next(work for work in workloads(target, small) if work.program == program)


def first_difference(name, plain, checked):
    if plain == checked:
        return []
    at = next((i for i, (a, b) in enumerate(zip(plain, checked)) if a != b), min(len(plain), len(checked)))
    return [f"{name} differs at byte {at}: bare {plain[at:at + 120]!r}, checked {checked[at:at + 400]!r}"]


def differences(plain, checked):
    found = []
    if plain.status != checked.status:
        found.append(f"exit status {checked.status}, bare {plain.status}")
    found += first_difference("standard output", plain.stdout, checked.stdout)
    found += first_difference("standard error", plain.stderr, checked.stderr)
    for name in sorted(plain.files.keys() | checked.files.keys()):
        found += first_difference(f"file {name}", plain.files.get(name, b""), checked.files.get(name, b""))
    return found


def log_faults(setting, folder):
    """What the logs left in `folder` contradict themselves in."""
    if not setting.log:
        return []
    found = [path for path in folder.iterdir() if path.name.endswith(setting.log)]
    if len(found) != 1:
        return [f"{len(found)} files end in {setting.log}"]
    try:
        return setting.reconcile(found[0])[:5]
    except Exception as error:  # a log that cannot be read is a finding of this case, not the end of the run
        return [f"{found[0].name}: {error!r}"]


def case(target, program, name):
    """One line for the report and whether it passed."""
    setting = SETTINGS[name]
    plain = bare(target, program, setting.small)
    with tempfile.TemporaryDirectory() as scratch:
        folder = Path(scratch) / "work"
        folder.mkdir()
        configuration = Path(scratch) / "quarlcfg.ini"
        configuration.write_text("".join(line + "\n" for line in setting.lines))
        environment = {"QUARL_CFG_FILE": str(configuration)} if setting.lines else {}
        checked = perform(target, workload(target, program, setting.small), folder, [sysroot.library(target)], environment)
        found = differences(plain, checked) + log_faults(setting, folder)
    if plain.status != 0:
        found.append(f"the bare run itself ended with {plain.status}")
    verdict = "FAILED" if found else "ok"
    line = f"{target:6} {program:11} {name:10} {verdict:7} bare {plain.seconds:6.2f} s, checked {checked.seconds:6.2f} s"
    print("\n    ".join([line, *found]), flush=True)
    return not found


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--target", choices=TARGETS, action="append")
    parser.add_argument("--program", choices=TARGETS["i686"], action="append")
    parser.add_argument("--setting", choices=SETTINGS, action="append")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    chosen = parser.parse_args()
    cases = [(target, program, name) for target in chosen.target or TARGETS for name in chosen.setting or SETTINGS
             for program in SETTINGS[name].programs
             if program in TARGETS[target] and (not chosen.program or program in chosen.program)]
    for target in {target for target, _, _ in cases}:
        for needed in (sysroot.library(target), sysroot.debian_program(target, "sqlite3")):
            if not needed.exists():
                sys.exit(f"real_programs: {needed} is not there: run 'make build' and scripts/fetch-programs")
    with ThreadPoolExecutor(chosen.jobs) as pool:
        passed = list(pool.map(lambda one: case(*one), cases))
    print(f"{sum(passed)} of {len(passed)} cases passed")
    sys.exit(0 if passed and all(passed) else 1)


if __name__ == "__main__":
    main()
