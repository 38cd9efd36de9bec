# SPDX-License-Identifier: Apache-2.0
"""What a step costs of programs that do nothing but allocate and release."""

import sys

from contestants import ALL, BARE, DEFAULTS, FLOOR, NEAREST, RECORD_LOG, executed, folder, run
from figures import LEAST_HEADER, NEAREST_HEADER, least_row, medians, nearest_row, table

RECORD_SIZE, PORTION, RECORDS_A_STEP = 280, 28000, 2  # bytes of a record and of a write, of the record log
CALLS_DEEP = 4
COUNTED = (10_000, 40_000)  # steps of two runs: what happens once is in both


def step_cost(contestant, live, steps, threads=1):
    """Processor time of one step in ns."""
    steps = int(steps * contestant.share)
    return float(run(contestant, folder("i686") / "churn", live, steps, threads).output.split()[0])


def churn_table(options):
    cost = medians(options.rounds, {c.name: lambda c=c: step_cost(c, 10000, options.steps) for c in ALL})
    table("Allocation churn: 10,000 live blocks, 8 to 512 bytes and some to 64 KiB, four calls deep",
          ("", "ns a step (free and malloc)", "to bare", "to floor"),
          [(name, f"{ns:.0f}", f"{ns / cost['bare']:.2f}", f"{ns / cost['floor']:.2f}") for name, ns in cost.items()])


def growth_table(options):
    """Cost of a step as blocks and threads become more: it must not depend on either."""
    shapes = [(live, 1) for live in (100, 1000, 10000, 100000)] + [(10000, threads) for threads in (2, 4, 8)]
    cost = medians(options.rounds, {(c.name, shape): lambda c=c, shape=shape: step_cost(c, shape[0], options.steps // 2, shape[1])
                                    for shape in shapes for c in NEAREST})
    table("Growth with live blocks and threads, ns a step", ("live blocks, threads", *NEAREST_HEADER),
          [(f"{shape[0]:,}, {shape[1]}", *nearest_row(cost[c.name, shape] for c in NEAREST)) for shape in shapes])


def instructions(contestant, target, live):
    """Of one step: the difference of two runs."""
    few, many = (executed(run(contestant, folder(target) / "churn", live, steps, 1, target=target, counted=True))
                 for steps in COUNTED)
    return (many - few) / (COUNTED[1] - COUNTED[0])


def expect_traces(contestant, target):
    """What finds no stack or no code to walk under a simulator would look cheap."""
    depth = int(run(contestant, folder(target) / "churn", "depth", target=target, counted=True).output)
    if depth < CALLS_DEEP:
        sys.exit(f"bench: {contestant.name} takes no traces on {target}")


def instruction_table(options):
    """The growth with live blocks without the memory's part in it, on both processors."""
    for target in ("i686", "armhf"):
        for contestant in (FLOOR, DEFAULTS):
            expect_traces(contestant, target)
        table(f"Instructions a step, {target}", ("live blocks", *NEAREST_HEADER),
              [(f"{live:,}", *nearest_row(instructions(c, target, live) for c in NEAREST)) for live in options.counted_blocks])


def record_table(options):
    """The record log beside writing the same bytes in the same portions."""
    steps = int(options.steps * RECORD_LOG.share)
    measures = {c.name: lambda c=c: step_cost(c, 10000, options.steps) for c in (FLOOR, DEFAULTS, RECORD_LOG)}
    measures["writing"] = lambda: float(run(BARE, folder("i686") / "portions", steps * RECORDS_A_STEP * RECORD_SIZE, PORTION,
                                            steps).output)
    floor, defaults, recorded, writing = medians(options.rounds, measures).values()
    table("Record log, ns a step", ("", *LEAST_HEADER),
          [("what it adds to the defaults; plain writing of the same bytes", *least_row(recorded - defaults, writing)),
           ("a whole step; one of the floor, and the plain writing", *least_row(recorded, floor + writing))])


def large_table(options):
    """Blocks that are mappings of their own, while nothing else is."""
    kinds = [("blocks", size * 1000) for size in (140, 200, 500, 900)] + [("growth", size * 1000) for size in (2000, 20000)]

    def measure(contestant, kind, size):
        steps = options.steps // (1000 if kind == "growth" else 20)
        return float(run(contestant, folder("i686") / "large", kind, size, steps).output)

    cost = medians(options.rounds, {(c.name, kind): lambda c=c, kind=kind: measure(c, *kind) for kind in kinds
                                    for c in (BARE, DEFAULTS)})
    rows = []
    for kind, size in kinds:
        bare, checked = (cost[c.name, (kind, size)] for c in (BARE, DEFAULTS))
        name = f"malloc and free, {size // 1000:,} KB" if kind == "blocks" else f"realloc in 16 steps to {size // 1000:,} KB"
        rows.append((name, f"{bare:.0f}", f"{checked:.0f}", f"{checked / bare:.2f}", f"{checked - bare:.0f}"))
    table("Large blocks, one at a time", ("a step", "bare, ns", "defaults, ns", "ratio", "difference, ns"), rows)


TABLES = {"churn": churn_table, "growth": growth_table, "instructions": instruction_table, "records": record_table,
          "large": large_table}
