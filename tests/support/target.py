# SPDX-License-Identifier: Apache-2.0
"""What differs between the targets: how a program is started, named and signalled, and which tools read it."""

import os
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))

import sysroot

ANNOUNCE_DESCRIPTOR = 77  # as in victims/announce.h
FIRST_RT_SIGNAL = 32


class Target:
    def __init__(self, name, build):
        self.name = name
        self.build = Path(build)
        self.library = self.build / "libquarl.so"
        self.emulated = name != "i686"
        self.triplet = {"i686": "i686-linux-gnu", "armhf": "arm-linux-gnueabihf", "armel": "arm-linux-gnueabi"}[name]

    def victim(self, name):
        return self.build / "victims" / name

    def command(self, program, arguments, environment, preload):
        """The command line that runs a program under the library, or bare, and the environment to run it in."""
        variables = dict(environment)
        if preload:
            variables["LD_PRELOAD"] = str(self.library)
        line = [str(program), *map(str, arguments)]
        if not self.emulated:
            return line, {**os.environ, **variables}
        lists = {name: value for name, value in variables.items() if "," in value}  # -E takes a comma for its own
        settings = [word for pair in variables.items() if pair[0] not in lists for word in ("-E", "=".join(pair))]
        return ["qemu-arm", "-L", f"/usr/{self.triplet}", *settings, *line], {**os.environ, **lists, **sysroot.EMULATED}

    def process_name(self, program):
        """The name of the starting thread, as the kernel knows it."""
        return "qemu-arm" if self.emulated else Path(program).name[:15]

    def host_signal(self, number):
        """The signal to send for the program to see this one: the emulator keeps the C library's own two."""
        return number + 2 if self.emulated and number >= FIRST_RT_SIGNAL else number

    def sysroot(self):
        """Where a debugger finds the libraries of a program."""
        return f"/usr/{self.triplet}" if self.emulated else "/"

    def tool(self, name):
        return f"{self.triplet}-{name}"


def current():
    return Target(os.environ.get("QUARL_TARGET", "i686"), os.environ["QUARL_BUILD"])
