# SPDX-License-Identifier: Apache-2.0
"""How a 32-bit program is run on this machine, bare or with libquarl.so preloaded.

From the command line: sysroot.py TARGET PROGRAM ARGUMENT... runs it bare.

Programs of a target come from the trees that scripts/fetch-programs unpacks (build/sysroot/<arch>); a program
outside of them runs with the C library of the cross compilers.
"""

import os
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

DEBIAN_ARCH = {"i686": "i386", "armhf": "armhf", "armel": "armel"}
# The emulator's GLib keeps its small blocks under a lock that is taken for ever in a child forked beside another thread.
EMULATED = {"G_SLICE": "always-malloc"}
TRIPLET = {"i686": "i386-linux-gnu", "armhf": "arm-linux-gnueabihf", "armel": "arm-linux-gnueabi"}


suite = ""  # of another Debian, whose trees and C library are to be used instead of the system's own


def sysroot(target):
    """The unpacked Debian tree of a target."""
    return ROOT / "build" / "sysroot" / (f"{suite}-" * bool(suite) + DEBIAN_ARCH[target])


def library(target):
    return ROOT / "build" / target / "libquarl.so"


def debian_program(target, name):
    folders = [sysroot(target) / folder for folder in ("usr/bin", "bin", "usr/sbin", "sbin")]
    folders += sorted(sysroot(target).glob("usr/lib/gcc/*/*"))  # what a compiler starts
    return next((folder / name for folder in folders if (folder / name).exists()), folders[0] / name)


def command(target, program, environment, preload=()):
    """The argument list and environment that run `program` of `target`; `preload` are libraries put before it."""
    program, tree = Path(program), sysroot(target)
    inside = tree in program.parents
    environment = dict(environment)
    preload = ":".join(str(library) for library in preload)
    if target == "i686":
        if preload:
            environment["LD_PRELOAD"] = preload
        if not inside:
            return [str(program)], environment
        paths = ":".join(str(tree / folder / TRIPLET[target]) for folder in ("lib", "usr/lib"))
        return [str(tree / "lib/ld-linux.so.2"), "--library-path", paths, str(program)], environment
    prefix = tree if inside else Path("/usr") / TRIPLET[target]
    emulator = ["qemu-arm", "-L", str(prefix)]
    # The emulator itself is a 64-bit program: only the program inside it may see the preload.
    if preload:
        emulator += ["-E", f"LD_PRELOAD={preload}"]
    return [*emulator, str(program)], environment | EMULATED


def run(target, program, *arguments, preload=(), environment=None, **options):
    """subprocess.run of a program, with standard output and standard error captured apart as bytes."""
    line, environment = command(target, program, {**os.environ, **(environment or {})}, preload)
    return subprocess.run([*line, *map(str, arguments)], env=environment, capture_output=True, **options)


if __name__ == "__main__":
    line, environment = command(sys.argv[1], sys.argv[2], os.environ)
    os.execvpe(line[0], [*line, *sys.argv[3:]], environment)
