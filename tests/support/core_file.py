# SPDX-License-Identifier: Apache-2.0
"""Core files of victims: the kernel's, or the emulator's own."""

import resource
from pathlib import Path


def allow():
    """In the new process, before the program takes its place."""
    resource.setrlimit(resource.RLIMIT_CORE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))


def skip_where_they_go_elsewhere(case):
    pattern = Path("/proc/sys/kernel/core_pattern").read_text()
    if not case.target.emulated and not pattern.startswith("core"):
        case.skipTest(f"core files go elsewhere: {pattern}")


def take(case):
    """The only one that lies there, under a name of its own."""
    [core] = case.directory.glob("qemu_*.core" if case.target.emulated else "core*")
    for other in case.directory.glob("core*"):  # of the emulator
        if other != core:
            other.unlink()
    return core.rename(case.directory / "taken")
