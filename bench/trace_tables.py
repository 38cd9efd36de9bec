# SPDX-License-Identifier: Apache-2.0
"""What a call trace by unwind tables costs beside one by frame pointers, in code that has both."""

import subprocess
import sys

from churn_tables import expect_traces, instructions, step_cost
from contestants import BUILT, ROOT, Contestant, folder, sysroot
from figures import medians, table

TABLES_FOLDER = BUILT / "frames"
DEPTH = ("QUARL_HEAD_STACKDEPTH=6",)  # both get so far: in the program's own code
BY_POINTERS = Contestant("quarl, frame pointers", ("quarl",), DEPTH)
BY_TABLES = Contestant("quarl, unwind tables", ("quarl",), DEPTH, {"QUARL_FRAMES": str(TABLES_FOLDER)})
LIVE = 10_000  # blocks


def make_tables():
    """Of the programs, and of the C libraries that they run with."""
    tool = ROOT / "build/host/quarl"
    if not tool.exists():
        sys.exit("bench: no quarl: run 'make build TARGET=host'")
    libraries = [sysroot.sysroot("i686") / "lib", "/usr/arm-linux-gnueabihf/lib/libc.so.6"]
    programs = [folder(target) / "churn" for target in ("i686", "armhf")]
    done = subprocess.run([tool, "frames", "-o", TABLES_FOLDER, *programs, *libraries], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"bench: quarl frames ended with {done.returncode}: {done.stderr[-300:]}")


def trace_table(options):
    make_tables()
    rows = []
    for target in ("i686", "armhf"):
        expect_traces(BY_TABLES, target)
        pointers, tables = (instructions(c, target, LIVE) for c in (BY_POINTERS, BY_TABLES))
        rows.append((f"instructions, {target}", f"{pointers:.0f}", f"{tables:.0f}", f"{tables / pointers:.2f}"))
    cost = medians(options.rounds, {c.name: lambda c=c: step_cost(c, LIVE, options.steps) for c in (BY_POINTERS, BY_TABLES)})
    pointers, tables = cost.values()
    rows.append(("ns, i686", f"{pointers:.0f}", f"{tables:.0f}", f"{tables / pointers:.2f}"))
    table("Traces by unwind tables, a step of the churn", ("", "frame pointers", "tables", "ratio"), rows)


TABLES = {"traces": trace_table}
