# SPDX-License-Identifier: Apache-2.0
"""Runs inside gdb: where the first allocations of a program come from, as gdb unwinds the stack.

Stops where an allocation enters the checker's hook, so that the first return address is the one inside the public
entry. A line of JSON per stop in the file that STOPS names: bytes wanted, then at most 8 return addresses.
"""

import json
import os

import gdb

FRAMES = 8
FIRST = 1000
NOT_ON_THE_STACK = (gdb.INLINE_FRAME, gdb.TAILCALL_FRAME)
HOOKS = ("malloc_hook", "memalign_hook", "realloc_hook")


def return_addresses():
    found, frame = [], gdb.newest_frame()
    try:
        while frame is not None and len(found) <= FRAMES:
            if frame.type() not in NOT_ON_THE_STACK:
                found.append(frame.pc())
            frame = frame.older()
    except gdb.error:
        pass  # gdb itself gets no further
    return found[1:]


class Hook(gdb.Breakpoint):
    hooks = []
    lines = []

    def __init__(self, name):
        super().__init__(f"quarl::{name}")
        self.hooks.append(self)

    def stop(self):
        if len(self.lines) < FIRST:
            size = int(gdb.parse_and_eval("size")) & 0xFFFFFFFF
            self.lines.append(json.dumps([size, *return_addresses()]))
        else:
            for hook in self.hooks:
                hook.enabled = False
        return False


for name in HOOKS:
    Hook(name)
gdb.execute("continue" if "STOPS_REMOTE" in os.environ else "run")
with open(os.environ["STOPS"], "w", encoding="utf-8") as out:
    out.write("\n".join(Hook.lines))
