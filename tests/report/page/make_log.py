# SPDX-License-Identifier: Apache-2.0
"""Writes the logs that the page is looked at with.

Usage: make_log.py chain|records|peak|sites PATH

    chain    automatic snapshots of a program of a few modules that grows
    records  a record log of the same program: threads, short-lived blocks, mappings, overruns
    peak     a record log whose highest point is between two points of its timeline
    sites    a record log of 10,000 sites in C++ functions of long names, which are in PATH.so

Names of the first three come from the module and the offset, as there are no files behind the made-up paths."""

import random
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from log_builder import ALLOCATED, FREE, MALLOC, MMAP, MMAP_FILE, RELEASED, SLOP_TAIL, Layout  # noqa: E402

MODULES = ["/opt/station/bin/station", "/opt/station/lib/libdraw.so", "/opt/station/lib/libstore.so", "/lib/libc.so.6"]
BASE, SIZE = 0x40000000, 0x100000
START = 1767225600
LAYOUT = Layout()
MAPS = "".join(f"{BASE + i * SIZE:08x}-{BASE + (i + 1) * SIZE:08x} r-xp 00000000 00:00 {i + 1} {path}\n" for i, path in enumerate(MODULES))


def address(module, function):
    return BASE + module * SIZE + 0x1000 + function * 64 + 1


def trace(chance):
    main = [address(0, 0), address(0, 1 + chance.randrange(4))]
    deep = [address(chance.choice([0, 1, 1, 2]), chance.randrange(6)) for _ in range(chance.randrange(1, 6))]
    return list(reversed(main + deep))


def chain(_path):
    chance = random.Random(7)
    places = [trace(chance) for _ in range(60)]
    blocks, taken, start = [], [], 0x10000
    for step in range(8):
        for _ in range(120):
            place = chance.choices(places, weights=range(1, 61))[0]
            size = chance.choice([24, 24, 64, 200, 1500, 12000])
            blocks.append(LAYOUT.record(MALLOC, ALLOCATED, start, size, place, tid=101 + step % 3, time=START + step * 60, seq=len(blocks) + 1))
            start += 0x10000
        blocks = [block for block in blocks if chance.random() < 0.85]
        if step == 7:
            blocks.append(LAYOUT.record(MMAP, ALLOCATED, 0x90000000, 262144, places[3], tid=101, time=START + 420))
        held = sum(int.from_bytes(block[16:20], "little") for block in blocks)
        taken.append((START + step * 60, held, list(blocks), []))
    return LAYOUT.chain(taken, MAPS)


class Records:
    """Records in their order, numbered."""

    def __init__(self):
        self.all = []

    def add(self, operation, result, start, size, place=(), **more):
        self.all.append(LAYOUT.record(operation, result, start, size, place, seq=len(self.all) + 1, **more))


def records(_path):
    chance = random.Random(11)
    places = [trace(chance) for _ in range(60)]
    written, held, start = Records(), [], 0x10000
    for step in range(6000):
        at = {"tid": chance.choice([201, 202, 203]), "time": START + step // 10}
        place, size = chance.choices(places, weights=range(1, 61))[0], chance.choice([24, 24, 64, 200, 1500, 12000, 150000])
        written.add(MALLOC, ALLOCATED, start, size, place, **at)
        if chance.random() < 0.3:
            written.add(FREE, RELEASED, start, size, **at)
        else:
            held.append((start, size))
        # It holds most in the middle.
        while held and chance.random() < (0.33 if step < 3000 else 0.45):
            written.add(FREE, RELEASED, *held.pop(chance.randrange(len(held))), **at)
        start += 0x40000
    for operation, base, size in ((MMAP, 0xf0000000, 262144), (MMAP, 0xf1000000, 8192), (MMAP_FILE, 0xf2000000, 40960)):
        written.add(operation, ALLOCATED, base, size, places[operation], tid=201, time=START + 600, from_file=operation == MMAP_FILE)
    written.add(MALLOC, SLOP_TAIL, *held[0], places[5], tid=202, time=START + 600)
    return LAYOUT.log(written.all, maps=MAPS, time=START + 660)


def peak(_path):
    written = Records()
    written.add(MALLOC, ALLOCATED, 0x1000, 100, [address(0, 0)], tid=7, time=START)
    for second in range(5000):
        at = {"tid": 7, "time": START + second}
        written.add(MALLOC, ALLOCATED, 0x2000, 48, [address(0, 0)], **at)
        if second == 2345:
            written.add(MALLOC, ALLOCATED, 0x100000, 64 << 20, [address(1, 1)], **at)
            written.add(FREE, RELEASED, 0x100000, 64 << 20, **at)
        written.add(FREE, RELEASED, 0x2000, 48, **at)
    return LAYOUT.log(written.all, maps=MAPS, time=START + 5001)


def sites(path):
    count, size = 10000, 6  # bytes of a function: call and ret
    names = [f"_ZN6vendor7product9subsystemINS_6policyIiLi{number}EEESt6vectorISt4pairIKiSsESaIS5_EEE4loadERKS7_RSt3mapISsS7_St4lessISsESaIS3_IKSsS7_EEE"
             for number in range(count)]
    source = "".join(f".globl {name}\n.type {name}, @function\n{name}: .byte 0xe8, 0, 0, 0, 0, 0xc3\n.size {name}, {size}\n" for name in names)
    for command in (["as", "--32", "-o", f"{path}.o"], ["ld", "-m", "elf_i386", "-shared", "-z", "norelro", "-o", f"{path}.so", f"{path}.o"]):
        subprocess.run(command, input=source.encode(), check=True)
    program = Path(f"{path}.so").resolve()
    segments = subprocess.run(["readelf", "-lW", program], stdout=subprocess.PIPE, text=True, check=True).stdout
    offset, start, length = next(map(lambda field: int(field, 16), (fields[1], fields[2], fields[4]))
                                 for fields in map(str.split, segments.splitlines()) if fields[:1] == ["LOAD"] and "E" in fields[6:8])
    maps = f"{BASE + start:08x}-{BASE + start + length + 4095 & ~4095:08x} r-xp {offset:08x} 00:00 1 {program}\n"
    symbols = subprocess.run(["nm", program], stdout=subprocess.PIPE, text=True, check=True).stdout
    text = min(int(line.split()[0], 16) for line in symbols.splitlines() if line.split()[1] == "T")
    place = lambda function: BASE + text + function % count * size + 5
    chance, written = random.Random(3), Records()
    for number in range(count):
        outer = [place(number // 10), place(number // 100), place(0)]
        for _ in range(chance.randrange(1, 4)):
            written.add(MALLOC, ALLOCATED, 0x1000 + len(written.all) * 0x1000, chance.choice([16, 100, 5000]), [place(number), place(number + 1), *outer],
                        tid=chance.choice([7, 8]), time=START + number // 10)
    return LAYOUT.log(written.all, maps=maps, time=START + 1000)


if __name__ == "__main__":
    kind, target = sys.argv[1:]
    Path(target).write_bytes({"chain": chain, "records": records, "peak": peak, "sites": sites}[kind](target))
