# SPDX-License-Identifier: Apache-2.0
"""What takes time for every live block."""

from contestants import DEFAULTS, folder, run
from figures import LEAST_HEADER, least_row, medians, table

MANY, FEW = 100_000, 1000  # more than the caches hold, and less
COMPARED = {("check", MANY): "check of the whole heap; plain walk along the list",
            ("check", FEW): "the same",
            ("search", MANY): "release of a foreign pointer; plain walk along the list",
            ("search", FEW): "the same",
            ("snapshot", MANY): "snapshot; plain writing of the same bytes"}


def figures(program, *arguments):
    """The last two that a program of bench/ prints, behind what the checker may say."""
    return tuple(map(float, run(DEFAULTS, folder("i686") / program, *arguments).output.split()[-2:]))


def heap_table(options):
    """Beside the least that looks at the same words, or writes the same bytes."""
    cost = medians(options.rounds, {key: lambda key=key: figures("heap", *key) for key in COMPARED})
    table("With live blocks, ns for each of them", ("", "live blocks", *LEAST_HEADER),
          [(name, f"{blocks:,}", *least_row(*cost[kind, blocks])) for (kind, blocks), name in COMPARED.items()])


def stall_table(options):
    """How long a snapshot holds the lock: the dump signal of a program with so many live blocks."""
    # The dump runs in the handler, or in the other thread when that has the lock at that moment.
    held = medians(options.rounds, {blocks: lambda blocks=blocks: max(figures("stall", blocks)) for blocks in (FEW, 10_000, MANY)})
    table("Snapshot on the dump signal", ("live blocks", "lock held, ms"),
          [(f"{blocks:,}", f"{microseconds / 1000:.1f}") for blocks, microseconds in held.items()])


TABLES = {"heap": heap_table, "stall": stall_table}
