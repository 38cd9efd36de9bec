#!/usr/bin/env python3
"""packages.py i386|armhf [--all]: the packages that the programs of `make check`, or with --all of the whole catalogue,
come from, one a line."""

import sys

sys.dont_write_bytecode = True

from catalogue import PROGRAMS

TARGETS = {"i386": "i686", "armhf": "armhf"}
SHELL = {"i686": {"dash", "coreutils"}, "armhf": set()}  # for every work, where programs live in the tree alone


def packages(target, whole):
    chosen = [program for program in PROGRAMS if target in program.targets() and (whole or program.slice)]
    return SHELL[target].union(*(program.packages for program in chosen))


if __name__ == "__main__":
    print("\n".join(sorted(packages(TARGETS[sys.argv[1]], "--all" in sys.argv))))
