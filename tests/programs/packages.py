#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""packages.py i386|armhf [--all|--other-libc]: the packages that the programs of `make check`, or with --all of the whole
catalogue, or of those that run under other C libraries come from, one a line."""

import sys

sys.dont_write_bytecode = True

from catalogue import PROGRAMS, UNDER_OTHER_LIBC

TARGETS = {"i386": "i686", "armhf": "armhf", "armel": "armel"}
ROOM = {"dash", "coreutils"}  # of a room, where nothing is of this machine


def packages(target, whole):
    chosen = [program for program in PROGRAMS if program.checked_in(target) or whole and program.soaked_in(target)]
    return set(ROOM if whole and target == "i686" else ()).union(*(program.packages for program in chosen))


def under_other_libc(target):
    return set().union(*(program.packages for program in PROGRAMS if program.name in UNDER_OTHER_LIBC[target]))


if __name__ == "__main__":
    target = TARGETS[sys.argv[1]]
    wanted = under_other_libc(target) if "--other-libc" in sys.argv else packages(target, "--all" in sys.argv)
    print("\n".join(sorted(wanted)))
