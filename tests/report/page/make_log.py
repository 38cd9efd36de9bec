"""Writes the automatic-snapshot log that the page is looked at with: a program of a few modules that grows.

Its names come from the module and the offset, as there are no files behind the made-up paths."""

import random
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from log_builder import ALLOCATED, MALLOC, MMAP, Layout  # noqa: E402

MODULES = ["/opt/station/bin/station", "/opt/station/lib/libdraw.so", "/opt/station/lib/libstore.so", "/lib/libc.so.6"]
BASE, SIZE = 0x40000000, 0x100000


def address(module, function):
    return BASE + module * SIZE + 0x1000 + function * 64 + 1


def trace(chance):
    main = [address(0, 0), address(0, 1 + chance.randrange(4))]
    deep = [address(chance.choice([0, 1, 1, 2]), chance.randrange(6)) for _ in range(chance.randrange(1, 6))]
    return list(reversed(main + deep))


def snapshots(layout):
    chance = random.Random(7)
    places = [trace(chance) for _ in range(60)]
    blocks, taken, start = [], [], 0x10000
    for step in range(8):
        for _ in range(120):
            place = chance.choices(places, weights=range(1, 61))[0]
            size = chance.choice([24, 24, 64, 200, 1500, 12000])
            blocks.append(layout.record(MALLOC, ALLOCATED, start, size, place, tid=101 + step % 3, time=1767225600 + step * 60, seq=len(blocks) + 1))
            start += 0x10000
        blocks = [block for block in blocks if chance.random() < 0.85]
        if step == 7:
            blocks.append(layout.record(MMAP, ALLOCATED, 0x90000000, 262144, places[3], tid=101, time=1767226020))
        held = sum(int.from_bytes(block[16:20], "little") for block in blocks)
        taken.append((1767225600 + step * 60, held, list(blocks), []))
    return taken


LAYOUT = Layout()
MAPS = "".join(f"{BASE + i * SIZE:08x}-{BASE + (i + 1) * SIZE:08x} r-xp 00000000 00:00 {i + 1} {path}\n" for i, path in enumerate(MODULES))
Path(sys.argv[1]).write_bytes(LAYOUT.chain(snapshots(LAYOUT), MAPS))
