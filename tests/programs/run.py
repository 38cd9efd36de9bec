#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Debian's own 32-bit programs under the checker: they must do what they do without it, and no block is accused.

tests/programs/run.py [--slice] [--target i686|armhf] [--program NAME] [--setting NAME]. Each program of the catalogue
does its work once bare and once in every setting under libquarl.so; output, exit status and the files left behind are
compared. --suite runs some of them of another Debian, under its C library. --slice is what `make check` runs, and needs no rooms; the rest needs bubblewrap for those of i686, and the
packages of scripts/fetch-programs --all. Exit status 1 when any case differs.
"""

import argparse
import contextlib
import os
import signal
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import replace
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
sys.dont_write_bytecode = True

import outcome
import room
import sysroot
from catalogue import PROGRAMS, UNDER_OTHER_LIBC
from settings import SETTINGS

TARGETS = ("i686", "armhf")
TIMEOUT = 900  # seconds; a thread that parks after a fault waits for ever, and the machine may be busy
ROOMS = sysroot.ROOT / "build" / "rooms"  # a database and its logs are no business of a /tmp in memory
SHOWN = 8  # differences of a case


def perform(target, program, setting, scratch, timeout):
    """Does a program's work below `scratch` and collects everything that it shows to the outside."""
    work = scratch / "work"
    work.mkdir()
    (scratch / "logs").mkdir()
    for name, content in program.files.items():
        (work / name).write_bytes(content() if callable(content) else content)
    line, environment = room.command(target, program, setting, scratch)
    output, errors = scratch / "output", scratch / "errors"
    begin = time.monotonic()
    with output.open("wb") as out, errors.open("wb") as err:
        status = end_in_time(subprocess.Popen(line, cwd=work, env=environment, stdin=subprocess.DEVNULL, stdout=out,
                                              stderr=err, start_new_session=True), timeout)
    seconds = time.monotonic() - begin
    return outcome.collect(program, scratch, status, output.read_bytes(), errors.read_bytes(), seconds)


def end_in_time(process, timeout):
    """Waits for a work, and ends what is left of it: its process group, with which a room ends as a whole."""
    try:
        status = process.wait(timeout)
    except subprocess.TimeoutExpired:
        status = f"still running after {timeout} s"
    with contextlib.suppress(ProcessLookupError):
        os.killpg(process.pid, signal.SIGKILL)
    process.wait()
    return status


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


def judge(target, program, name, plain, timeout):
    """Runs a work in a setting and prints a line about it; whether it did what it did in `plain`."""
    checked, wrong = run(target, program, SETTINGS[name], timeout)
    found = outcome.differences(plain, checked) + wrong
    if plain.status != 0:
        found.append(f"the bare run itself ended with {plain.status}: {(plain.stdout + plain.stderr)[-2000:]!r}")
    if len(found) > SHOWN:
        found[SHOWN:] = [f"and {len(found) - SHOWN} more"]
    line = (f"{target:6} {program.name:16} {name:10} {'FAILED' if found else 'ok':7} "
            f"bare {plain.seconds:6.2f} s, checked {checked.seconds:6.2f} s")
    print("\n    ".join([line, *found]), flush=True)
    return not found


def cases_of_a_work(target, program, names, timeout):
    """Runs one work bare and in the settings of these names, which share the bare run; how many passed."""
    plain, _ = run(target, program, replace(SETTINGS[names[0]], checked=False, log=""), timeout)
    return sum(judge(target, program, name, plain, timeout) for name in names)


def names_of_settings(target, program, options):
    """The settings that a program is to run in; without a room only if it can do without."""
    if options.suite:
        known = UNDER_OTHER_LIBC[target].get(program.name, ())
        return [name for name in known if name in (options.setting or known)]
    asked = options.setting or [*program.checked_in(target), *(() if options.slice else program.soaked_in(target))]
    return [name for name in asked if room.needed(target, SETTINGS[name]) or program.alone and program.is_for(target)]


def chosen_works(options):
    """(target, program, names of settings) of all that is to be run; settings that share a bare run are together."""
    for program in PROGRAMS:
        for target in options.target or TARGETS:
            names = names_of_settings(target, program, options)
            for kind in {(SETTINGS[name].small, SETTINGS[name].room) for name in names}:
                if not options.program or program.name in options.program:
                    yield target, program, [name for name in names if (SETTINGS[name].small, SETTINGS[name].room) == kind]


def check_needs(works):
    """Ends the run if something is lacking that it needs."""
    for needed in {path for target, _, _ in works for path in (sysroot.library(target), sysroot.sysroot(target))}:
        if not needed.exists():
            sys.exit(f"programs: {needed} is not there: run 'make build' and scripts/fetch-programs")
    fault = room.fault() if any(room.needed(target, SETTINGS[names[0]]) for target, _, names in works) else ""
    if fault:
        sys.exit(f"programs: no room can be made for them on this machine: {fault}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--slice", action="store_true", help="only what `make check` runs")
    parser.add_argument("--suite", default="", help="of another Debian, which scripts/fetch-programs --suite has fetched")
    parser.add_argument("--target", choices=TARGETS, action="append")
    parser.add_argument("--program", choices=[program.name for program in PROGRAMS], metavar="NAME", action="append")
    parser.add_argument("--setting", choices=SETTINGS, action="append")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--timeout", type=int, default=TIMEOUT, metavar="SECONDS")
    options = parser.parse_args()
    sysroot.suite = options.suite
    works = sorted(chosen_works(options), key=lambda work: work[0] != "armhf")  # those take longest
    check_needs(works)
    ROOMS.mkdir(exist_ok=True)
    with ThreadPoolExecutor(options.jobs) as pool:
        passed = sum(pool.map(lambda work: cases_of_a_work(*work, options.timeout), works))
    cases = sum(len(names) for _, _, names in works)
    print(f"{passed} of {cases} cases passed")
    sys.exit(0 if passed == cases and cases else 1)


if __name__ == "__main__":
    main()
