# SPDX-License-Identifier: Apache-2.0
"""Who is measured, and how a program runs with each of them."""

import os
import re
import resource
import subprocess
import sys
import tempfile
from collections import namedtuple
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "scripts"), str(ROOT / "tests" / "programs")]

import sysroot

BUILT = ROOT / "build" / "bench"
VALGRIND = ("valgrind", f"--extra-debuginfo-path={BUILT}/debug")
CALLGRIND = (*VALGRIND, "--tool=callgrind", "--callgrind-out-file=/dev/null")
COUNTING_EMULATOR = ("qemu-arm", "-plugin", BUILT / "count_instructions.so")

RECORD = ("QUARL_OUTPUT_LOG=1",)
SNAPSHOTS = ("QUARL_ALL=1", "QUARL_MEM_HEAD=1", "QUARL_HEAD_TIME=2", "QUARL_TIME_INTERVAL=1", "QUARL_SNAP_INTERVAL=1",
             "QUARL_SNAP_DETAIL=1")


@dataclass(frozen=True)
class Contestant:
    name: str
    preload: tuple = ()  # names or keys of LIBRARIES
    lines: tuple = ()  # of the configuration file
    environment: dict = field(default_factory=dict)
    wrapper: tuple = ()
    suffix: str = ""  # of a program built for it
    share: float = 1.0  # of the work, where a whole one takes too long


LIBRARIES = {"quarl": sysroot.library, "floor": lambda target: folder(target) / "floor.so"}

BARE = Contestant("bare")
FLOOR = Contestant("floor", ("floor",))
DEFAULTS = Contestant("quarl, defaults", ("quarl",))
RECORD_LOG = Contestant("quarl, record log", ("quarl",), RECORD, share=0.2)
NEAREST = (BARE, FLOOR, DEFAULTS)
ALL = (
    *NEAREST,
    RECORD_LOG,
    Contestant("quarl, snapshot every second", ("quarl",), SNAPSHOTS),
    Contestant("MALLOC_CHECK_=3", ("libc_malloc_debug.so.0",), environment={"MALLOC_CHECK_": "3"}),
    Contestant("AddressSanitizer", suffix="-asan", share=0.2),
    Contestant("valgrind", wrapper=(*VALGRIND, "-q"), share=0.04),
)

Run = namedtuple("Run", "output errors seconds")  # seconds of processor time


def folder(target):
    """Where the programs of a target are built to."""
    return BUILT if target == "i686" else BUILT / target


def debian_loader():
    """What every program of i686 runs under, but for those that bring their checker: Debian's loader and C library."""
    tree = sysroot.sysroot("i686")
    return [tree / "lib/i386-linux-gnu/ld-linux.so.2", "--library-path", f"{tree}/lib/i386-linux-gnu:{tree}/usr/lib/i386-linux-gnu"]


def command(contestant, target, program, counted):
    """The line that runs a program; counted: so that it tells on standard error how many instructions it executed."""
    preload = [LIBRARIES[name](target) if name in LIBRARIES else name for name in contestant.preload]
    if target != "i686":
        (emulator, *line), _ = sysroot.command(target, program, {}, preload)
        return [*(COUNTING_EMULATOR if counted else (emulator,)), *line]
    line = [] if contestant.suffix else debian_loader()
    if preload:
        line += ["--preload", ":".join(map(str, preload))]
    return [*contestant.wrapper, *(CALLGRIND if counted else ()), *line, f"{program}{contestant.suffix}"]


def run(contestant, program, *arguments, stdin=b"", files=None, environment=None, target="i686", counted=False):
    """Runs a program in a directory of its own, which holds the files {name: content}."""
    with tempfile.TemporaryDirectory(dir=BUILT) as directory:
        for name, content in {"quarlcfg.ini": "\n".join((*contestant.lines, "")).encode(), **(files or {})}.items():
            (Path(directory) / name).write_bytes(content)
        line = [*command(contestant, target, program, counted), *arguments]
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        done = subprocess.run(list(map(str, line)), input=stdin, cwd=directory, capture_output=True,
                              env={**os.environ, **contestant.environment, **(environment or {})})
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode != 0 or b"cannot be preloaded" in done.stderr:
        sys.exit(f"bench: {contestant.name}: {Path(program).name} ended with {done.returncode}: {done.stderr[-300:]!r}")
    return Run(done.stdout, done.stderr, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)


def executed(counted):
    """Machine instructions of a counted run, as a simulated processor counts them: by callgrind on i686, by a plugin of
    the emulator on armhf. No cache and no load of the machine is in them."""
    return int(re.search(rb"(?:instructions|Collected) *: (\d+)$", counted.errors, re.MULTILINE)[1])
