#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""One build of the library under the C libraries of several Debians: blocks of all sizes, and 60,000 operations of four
threads, while the allocator is set in every way; faults, and the agent in a program without threads.

tests/c_libraries/run.py [--suite SUITE]... [--target i686|armhf]. The programs are linked with the oldest of the C
libraries, and run under each: that of the suites (scripts/fetch-programs --suite) and of the system's own Debian, for
which the suite is "". Exit status 1 when any case fails.
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
sys.dont_write_bytecode = True

import sysroot

VICTIMS = sysroot.ROOT / "tests" / "victims"
OLDEST = "bullseye"
COMPILER = {"i686": "i686-linux-gnu-gcc", "armhf": "arm-linux-gnueabihf-gcc"}
PATIENCE = 120  # seconds, for a busy machine and the emulator
# The allocator's own settings. MALLOC_CHECK_ makes it ask for a byte more, where it has a check of its own.
ALLOCATOR_SETTINGS = ({}, {"MALLOC_CHECK_": "3"}, {"GLIBC_TUNABLES": "glibc.malloc.check=3"}, {"MALLOC_ARENA_MAX": "1"},
                      {"GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"}, {"MALLOC_PERTURB_": "85"},
                      {"MALLOC_TOP_PAD_": "100000"}, {"GLIBC_TUNABLES": "glibc.malloc.hugetlb=1"})
SWEEPS = {"size_sweep": ("sizes", 14437), "heap_sweep": ("threads", 60000)}  # and how many blocks or operations each has
FAULTS = {"double_free": b"double free a same memory", "tail_overrun": b"memory slop over at tail",
          "head_overrun": b"memory slop over at head"}


def build(target, name, folder):
    """A victim that asks for nothing newer than the oldest C library."""
    sysroot.suite = OLDEST
    tree, triplet = sysroot.sysroot(target), sysroot.TRIPLET[target]
    libraries, start = tree / "lib" / triplet, tree / "usr/lib" / triplet
    program = folder / f"{name}-{target}"
    subprocess.run([COMPILER[target], "-O1", "-g", "-no-pie", "-nostdlib", f"-I{sysroot.ROOT}/include", "-o", program,
                    start / "crt1.o", start / "crti.o", VICTIMS / f"{name}.c",
                    *([libraries / "libpthread.so.0"] if name in SWEEPS else ()), libraries / "libc.so.6",
                    start / "libc_nonshared.a", "-lgcc", "-Wl,--allow-shlib-undefined", start / "crtn.o"], check=True)
    return program


def command(target, program, variables):
    """The line and environment that run a program of ours under the C library of the suite in force."""
    tree, triplet = sysroot.sysroot(target), sysroot.TRIPLET[target]
    if target == "i686":
        line = [tree / "lib/ld-linux.so.2", "--library-path", f"{tree}/lib/{triplet}:{tree}/usr/lib/{triplet}",
                "--preload", sysroot.library(target), program]
        return list(map(str, line)), {**os.environ, **variables}
    line = ["qemu-arm", "-L", tree, "-E", f"LD_PRELOAD={sysroot.library(target)}"]
    for name, value in variables.items():
        line += ["-E", f"{name}={value}"]
    return list(map(str, [*line, program])), {**os.environ, **sysroot.EMULATED}


def sweep(target, program, folder, settings, steps):
    line, environment = command(target, program, settings)
    with open(folder / "announced", "w+b") as announced:
        # The victim tells on descriptor 77 what it did.
        done = subprocess.run(["bash", "-c", 'exec 77>&"$0"; exec "$@"', str(announced.fileno()), *line], cwd=folder,
                              env=environment, pass_fds=[announced.fileno()], capture_output=True, timeout=PATIENCE)
        announced.seek(0)
        said = announced.read()
    checked = int(said.split()[1], 16) if said.startswith(b"checked ") else 0
    if done.returncode != 0 or checked != steps or b"slop over" in done.stdout:
        return f"status {done.returncode}, {checked} steps of {steps}: {done.stdout[-300:]!r} {done.stderr[-300:]!r}"
    return ""


def until(process, text):
    """What the process prints, up to the text or to its end."""
    os.set_blocking(process.stdout.fileno(), False)
    printed, end = b"", time.monotonic() + PATIENCE
    while text not in printed and time.monotonic() < end:
        ended = process.poll() is not None
        printed += process.stdout.read() or b""
        if ended:
            break
        time.sleep(0.01)
    return printed


def fault(target, program, folder, text):
    """The thread that hands the block back is stopped, with the words that name the fault."""
    line, environment = command(target, program, {})
    with subprocess.Popen(line, cwd=folder, env=environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
        printed = until(process, text)
        stopped = process.poll() is None
        process.kill()
    return "" if text in printed and stopped else f"stopped: {stopped}, said {printed[-300:]!r}"


def agent(target, program, folder):
    """A second thread comes to be, and the program goes on."""
    (folder / "agent.ini").write_text("QUARL_DEMO_THREAD=1\n")
    line, environment = command(target, program, {"QUARL_CFG_FILE": str(folder / "agent.ini"), "QUARL_CONTRACT": "libc",
                                                  "QUARL_AGENT_ADDRESS": "127.0.0.1"})
    with subprocess.Popen([*line, "x"], cwd=folder, env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT) as process:
        own = 1 if target == "i686" else 2  # threads of the program, with the emulator's
        tasks, end = Path(f"/proc/{process.pid}/task"), time.monotonic() + PATIENCE
        threads = 0
        while process.poll() is None and time.monotonic() < end and threads <= own:
            threads = len(list(tasks.iterdir()))
            time.sleep(0.01)
        said = process.communicate(b"a x\nb\n", timeout=PATIENCE)[0]
    return "" if threads > own and b"a x\n" in said and process.returncode == 0 else f"{threads} threads: {said[-300:]!r}"


def cases(target, folder):
    """(name, what runs it and answers with what went wrong)."""
    for victim, (what, steps) in SWEEPS.items():
        program = build(target, victim, folder)
        for settings in ALLOCATOR_SETTINGS if target == "i686" else ALLOCATOR_SETTINGS[:2]:
            name = " ".join("=".join(pair) for pair in settings.items()) or "no settings"
            yield f"{what}, {name}", lambda program=program, settings=settings, steps=steps: sweep(target, program, folder,
                                                                                                   settings, steps)
    for name, text in FAULTS.items():
        victim = build(target, name, folder)
        yield name, lambda victim=victim, text=text: fault(target, victim, folder, text)
    yield "agent", lambda: agent(target, sysroot.debian_program(target, "grep"), folder)


def version(target):
    """Of the C library of the suite in force."""
    libc = next(iter(sysroot.sysroot(target).glob(f"**/{sysroot.TRIPLET[target]}/libc.so.6")))
    return libc.read_bytes().partition(b"stable release version ")[2][:4].decode()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--suite", action="append")
    parser.add_argument("--target", choices=COMPILER, action="append")
    options = parser.parse_args()
    passed = failed = 0
    with tempfile.TemporaryDirectory() as scratch:
        for target in options.target or COMPILER:
            prepared = list(cases(target, Path(scratch)))
            for suite in options.suite or (OLDEST, ""):
                sysroot.suite = suite
                for name, case in prepared:
                    try:
                        wrong = case()
                    except subprocess.TimeoutExpired:
                        wrong = f"still running after {PATIENCE} s"
                    passed, failed = passed + (not wrong), failed + bool(wrong)
                    print(f"{target:6} glibc {version(target)}  {name:44} {'FAILED' if wrong else 'ok'}",
                          *([wrong] if wrong else ()), sep="\n    ", flush=True)
    print(f"{passed} of {passed + failed} cases passed")
    sys.exit(1 if failed or not passed else 0)


if __name__ == "__main__":
    main()
