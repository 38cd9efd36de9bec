# SPDX-License-Identifier: Apache-2.0
"""Writes small sound logs into the folder that is named, for the fuzzer to begin with."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from log_builder import ALLOCATED, FREE, MALLOC, MMAP, MUNMAP, RELEASED, SLOP_HEAD, SLOP_TAIL, Layout  # noqa: E402

MAPS = "00010000-00020000 r-xp 00000000 00:00 1 /bin/sample\nf7000000-f7001000 rw-p 00000000 00:00 0 \n"


def records(layout):
    made = [layout.record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 5000 * i, [0x10010 + i], time=i) for i in range(6)]
    made += [layout.record(MMAP, ALLOCATED, 0x3000, 0x8000, time=7), layout.record(MALLOC, SLOP_TAIL, 0x2000, 8)]
    made += [layout.record(FREE, RELEASED, 0x3000, 1), layout.record(MUNMAP, RELEASED, 0x3000, 0x8000)]
    return made + [layout.record(MALLOC, SLOP_HEAD, 0x4000, 8)]


folder = Path(sys.argv[1])
for order, name in (("<", "little"), (">", "big")):
    layout = Layout(order, maps_kb=1)
    thread = layout.thread(5, "worker", {MALLOC: 2})
    some = records(layout)
    seeds = {
        "records": layout.log(some, maps=MAPS, threads=[thread], time=9),
        "snapshot": layout.log(some[:6], maps=MAPS, count=6, time=9),
        "chain": layout.chain([(1, 5, some[:2], [thread])] * 2, MAPS) if order == "<" else layout.chain([(1, 5, some[:2], [])], MAPS),
        "bare": layout.bare_chain([1, 2, 3], MAPS),
    }
    for kind, content in seeds.items():
        (folder / f"{kind}-{name}").write_bytes(content)
