#!/usr/bin/env python3
"""packages.py i386|armhf [--all]: the packages that the programs of `make check`, or with --all of the whole catalogue,
come from, one a line."""

import sys

sys.dont_write_bytecode = True

from catalogue import PROGRAMS

TARGETS = {"i386": "i686", "armhf": "armhf", "armel": "armel"}
ROOM = {"dash", "coreutils"}  # of a room, where nothing is of this machine


def packages(target, whole):
    chosen = [program for program in PROGRAMS if program.checked_in(target) or whole and program.soaked_in(target)]
    return set(ROOM if whole and target == "i686" else ()).union(*(program.packages for program in chosen))


if __name__ == "__main__":
    print("\n".join(sorted(packages(TARGETS[sys.argv[1]], "--all" in sys.argv))))
