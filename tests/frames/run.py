#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Call traces of unmodified programs against gdb: how many of the first 8 frames of their first 1,000 allocations agree.

tests/frames/run.py [--slice] [--target i686|armhf] [--program NAME] [--with-debug-files]. In one and the same process gdb
stops at each allocation and unwinds, and the record log has the checker's trace, made by the tables of `quarl frames`.
On armhf gdb speaks to the emulator. Exit status 1 when less than --share of a program's frames agree.
"""

import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "support"), str(TESTS.parent / "scripts")]
sys.dont_write_bytecode = True

import agreement
import sysroot
from programs import PROGRAMS

TIMEOUT = 600  # seconds; a stop under the emulator takes some milliseconds
QUARL = sysroot.ROOT / "build" / "host" / "quarl"
STOPS = Path(__file__).with_name("stops.py")
QUIET = ("set pagination off", "set confirm off", "set breakpoint pending on", "set debuginfod enabled off",
         "set auto-load no")


def library_folders(target):
    tree = sysroot.sysroot(target)
    return [tree / folder / sysroot.TRIPLET[target] for folder in ("lib", "usr/lib")]


def is_library(path):
    """Not a link of a whole system's files to an absolute path, which is another file here, nor a linker's script."""
    if path.is_symlink() and path.readlink().is_absolute():
        return False
    with path.open("rb") as file:
        return file.read(4) == b"\x7fELF"


def make_tables(target, program, folder, debug_dirs):
    """Tables for a program, the libraries that it may load, and the loader that this machine starts it with."""
    loader = [Path("/lib/ld-linux.so.2")] if target == "i686" else []
    libraries = (path for place in library_folders(target) for path in place.glob("*.so*"))
    names = [program, *loader, *(path for path in libraries if is_library(path))]
    options = [word for place in debug_dirs for word in ("--debug-dir", place)]
    subprocess.run([QUARL, "frames", *sorted({path.resolve() for path in names}), "-o", folder, *options], check=True,
                   stdout=subprocess.DEVNULL)


def native_commands(target, variables):
    """An i686 program is started by the loader of this machine, for gdb to know its libraries."""
    paths = ":".join(map(str, library_folders(target)))
    variables = {**variables, "LD_LIBRARY_PATH": paths, "LD_PRELOAD": sysroot.library(target)}
    return ["set exec-wrapper env " + " ".join(f"{name}={value}" for name, value in variables.items())]


def start_emulated(target, program, arguments, variables, scratch):
    socket = scratch / "gdb"
    variables = {**variables, "LD_PRELOAD": sysroot.library(target)}
    settings = [word for name, value in variables.items() for word in ("-E", f"{name}={value}")]
    line = ["qemu-arm", "-g", socket, "-L", sysroot.sysroot(target), *settings, program, *arguments]
    return socket, subprocess.Popen(line, cwd=scratch, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                    stderr=subprocess.DEVNULL, env={**os.environ, **sysroot.EMULATED})


def await_socket(socket, process):
    while not socket.exists() and process.poll() is None:
        os.sched_yield()


def run_gdb(commands, arguments, scratch, **variables):
    words = [word for command in (*QUIET, *commands, f"source {STOPS}") for word in ("-ex", command)]
    subprocess.run(["gdb-multiarch", "-nx", "-batch", *words, "--args", *arguments], cwd=scratch, timeout=TIMEOUT, check=True,
                   stdin=subprocess.DEVNULL, capture_output=True,
                   env={**os.environ, "STOPS": str(scratch / "stops"), **variables})


def observe(target, program, path, scratch, debug_dirs):
    """Runs the program under gdb in `scratch`, which has its stops and its record log afterwards."""
    variables = {"QUARL_FRAMES": scratch / "tables", "QUARL_CONTRACT": "libc", "QUARL_CFG_FILE": scratch / "quarl.ini",
                 **program.environment}
    if target == "i686":
        return run_gdb(native_commands(target, variables), [path, *program.arguments], scratch)
    socket, process = start_emulated(target, path, program.arguments, variables, scratch)
    try:
        await_socket(socket, process)
        folders = ":".join(map(str, [*library_folders(target), sysroot.library(target).parent]))
        debug = ":".join(map(str, debug_dirs))
        commands = [f"set sysroot {sysroot.sysroot(target)}", f"set solib-search-path {folders}",
                    f"set debug-file-directory {debug}", f"file {path}", f"target remote {socket}"]
        run_gdb(commands, [path], scratch, STOPS_REMOTE="1")
        process.wait(TIMEOUT)
    finally:
        process.kill()
        process.wait()


def process_id(log):
    """Of the process that wrote a log; what a program starts comes after it."""
    return int(log.name.split("_")[-2])


def judge(target, program, options):
    """Prints a line about a program, and what differs; whether enough agrees."""
    path = sysroot.debian_program(target, program.name)
    debug_dirs = [sysroot.sysroot(target) / "usr/lib/debug", *options.debug_dir]
    with tempfile.TemporaryDirectory(prefix="quarl-frames-") as folder:
        scratch = Path(folder)
        (scratch / "quarl.ini").write_text("QUARL_ALL=1\nQUARL_OUTPUT_LOG=1\nQUARL_HEAD_STACKDEPTH=8\n")
        for name, content in program.files.items():
            (scratch / name).write_text(content)
        (scratch / "tables").mkdir()
        make_tables(target, path, scratch / "tables", debug_dirs if options.with_debug_files else [])
        observe(target, program, path, scratch, debug_dirs)
        log = min(scratch.glob("*_quarlAll.log"), key=process_id)
        found = agreement.compare(scratch / "stops", log, thumb_bit=target == "armhf")
    good = found.stops > 0 and found.share >= options.share
    print(f"{target:6} {program.name:12} {'ok' if good else 'FAILED':7} {found.share:8.2%} of {found.frames} frames, "
          f"{found.stops} allocations", flush=True)
    for cause, times in found.causes.most_common(options.causes):
        print(f"    {times:5} {cause}")
    return good


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--slice", action="store_true", help="what make check runs")
    parser.add_argument("--target", action="append", choices=("i686", "armhf"))
    parser.add_argument("--program", action="append")
    parser.add_argument("--share", type=float, default=0.98, help="of the frames that has to agree")
    parser.add_argument("--causes", type=int, default=5, help="differences that are shown of a program")
    parser.add_argument("--debug-dir", action="append", default=[], help="more split debug files")
    parser.add_argument("--with-debug-files", action="store_true", help="tables from split debug files, too")
    options = parser.parse_args()
    bad = 0
    for program in PROGRAMS:
        targets = program.slice if options.slice else program.targets
        for target in targets:
            if (options.target and target not in options.target) or (options.program and program.name not in options.program):
                continue
            bad += not judge(target, program, options)
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main()
