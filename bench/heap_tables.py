"""What takes time for every live block."""

from contestants import DEFAULTS, folder, run
from figures import LEAST_HEADER, least_row, medians, table

BLOCKS = 100_000


def heap_table(options):
    """Beside the least that looks at the same words, or writes the same bytes."""
    names = {"check": "check of the whole heap; plain walk along the list",
             "search": "release of a foreign pointer; plain walk along the list",
             "snapshot": "snapshot; plain writing of the same bytes"}
    cost = medians(options.rounds, {kind: lambda kind=kind: tuple(map(float, run(DEFAULTS, folder("i686") / "heap", kind, BLOCKS)
                                                                      .output.split()[-2:])) for kind in names})
    table(f"With {BLOCKS:,} live blocks, ns a block", ("", *LEAST_HEADER),
          [least_row(name, *cost[kind]) for kind, name in names.items()])


def stall_table(options):
    """How long a snapshot holds the lock: the dump signal of a program with so many live blocks."""
    # The dump runs in the handler, or in the other thread when that has the lock at that moment.
    held = medians(options.rounds, {blocks: lambda blocks=blocks: max(map(int, run(DEFAULTS, folder("i686") / "stall", blocks)
                                                                          .output.split()[-2:])) for blocks in (1000, 10_000, BLOCKS)})
    table("Snapshot on the dump signal", ("live blocks", "lock held, ms"),
          [(f"{blocks:,}", f"{microseconds / 1000:.1f}") for blocks, microseconds in held.items()])


TABLES = {"heap": heap_table, "stall": stall_table}
