#!/usr/bin/env python3
"""Debian's own 32-bit programs under the checker: they must do what they do without it, and no block is accused.

tests/programs/run.py [--slice] [--target i686|armhf] [--program NAME] [--setting NAME]. Each program of the catalogue
does its work once bare and once in every setting under libquarl.so, in a room of its own; output, exit status and the
files left behind are compared. Without --slice scripts/fetch-programs --all must have been run. Exit status 1 when any
case differs.
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
sys.dont_write_bytecode = True

import outcome
import room
import sysroot
from catalogue import PROGRAMS
from settings import SETTINGS, USUAL, Setting

TIMEOUT = 400  # seconds; a thread that parks after a fault waits for ever
ROOMS = sysroot.ROOT / "build" / "rooms"  # a database and its logs are no business of a /tmp in memory
SHOWN = 8  # differences of a case


def perform(target, program, setting, scratch, timeout):
    """Does a program's work below `scratch` and collects everything that it shows to the outside."""
    work, checker = scratch / "work", scratch / "checker"
    work.mkdir()
    (scratch / "logs").mkdir()
    for name, content in program.files.items():
        (work / name).write_bytes(content() if callable(content) else content)
    room.furnish(checker, target, program, setting.checked, setting.lines)
    line = room.command(target, program, scratch, setting.checked, setting.size())
    begin = time.monotonic()
    try:
        done = subprocess.run(line, stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
        status, stdout, stderr = done.returncode, done.stdout, done.stderr
    except subprocess.TimeoutExpired as expired:
        status, stdout, stderr = f"still running after {timeout} s", expired.stdout or b"", expired.stderr or b""
    return outcome.collect(program, scratch, status, stdout, stderr, time.monotonic() - begin)


def log_faults(setting, logs):
    """What the logs contradict themselves in, and whether there are any."""
    found = [path for path in logs if path.name.endswith(setting.log)] if setting.log else []
    wrong = [] if found or not setting.log else [f"no file ends in {setting.log}"]
    for path in found:
        try:
            wrong += [f"{path.name}: {line}" for line in setting.reconcile(path)]
        except Exception as error:  # a log that cannot be read is a finding of this case, not the end of the run
            wrong.append(f"{path.name}: {error!r}")
    return wrong


def run(target, program, setting, timeout):
    """The outcome of a run in a setting, and what its logs contradict themselves in."""
    with tempfile.TemporaryDirectory(dir=ROOMS, ignore_cleanup_errors=True) as scratch:
        done = perform(target, program, setting, Path(scratch), timeout)
        return done, log_faults(setting, done.logs)


def cases_of_a_work(target, program, small, names, timeout):
    """Runs one work bare and in the settings of these names; a line for each of them, and how many passed."""
    plain, _ = run(target, program, Setting(checked=False, small=small), timeout)
    passed = 0
    for name in names:
        checked, wrong = run(target, program, SETTINGS[name], timeout)
        found = outcome.differences(plain, checked) + wrong
        if plain.status != 0:
            found.append(f"the bare run itself ended with {plain.status}: {(plain.stdout + plain.stderr)[-2000:]!r}")
        if len(found) > SHOWN:
            found[SHOWN:] = [f"and {len(found) - SHOWN} more"]
        line = (f"{target:6} {program.name:14} {name:10} {'FAILED' if found else 'ok':7} "
                f"bare {plain.seconds:6.2f} s, checked {checked.seconds:6.2f} s")
        print("\n    ".join([line, *found]), flush=True)
        passed += not found
    return passed


def chosen_cases(options):
    """(target, program, setting's name) of all that is to be run."""
    for program in PROGRAMS:
        if options.program and program.name not in options.program:
            continue
        settings = program.slice if options.slice else USUAL + program.besides
        for target in program.targets():
            for name in options.setting or settings:
                if target in (options.target or program.targets()) and name not in program.except_for:
                    yield target, program, name


def needed_is_there(target):
    for needed in (sysroot.library(target), sysroot.sysroot(target)):
        if not needed.exists():
            sys.exit(f"programs: {needed} is not there: run 'make build' and scripts/fetch-programs")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--slice", action="store_true", help="only what `make check` runs")
    parser.add_argument("--target", choices=("i686", "armhf"), action="append")
    parser.add_argument("--program", choices=[program.name for program in PROGRAMS], metavar="NAME", action="append")
    parser.add_argument("--setting", choices=SETTINGS, action="append")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--timeout", type=int, default=TIMEOUT, metavar="SECONDS")
    options = parser.parse_args()
    works = {}
    for target, program, name in chosen_cases(options):
        works.setdefault((target, program.name, SETTINGS[name].small), (program, []))[1].append(name)
    for target in {target for target, _, _ in works}:
        needed_is_there(target)
    ROOMS.mkdir(exist_ok=True)
    with ThreadPoolExecutor(options.jobs) as pool:
        passed = sum(pool.map(lambda one: cases_of_a_work(one[0][0], one[1][0], one[0][2], one[1][1], options.timeout), works.items()))
    cases = sum(len(names) for _, names in works.values())
    print(f"{passed} of {cases} cases passed")
    sys.exit(0 if passed == cases and cases else 1)


if __name__ == "__main__":
    main()
