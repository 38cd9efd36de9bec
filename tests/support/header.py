# SPDX-License-Identifier: Apache-2.0
"""The words below a user pointer, read through a driver."""

from dataclasses import dataclass

FREED_MARK = 0xD8675309
GUARD = 0xFEDABEEB


@dataclass
class Header:
    tid: int | None
    time: int | None
    seq_num: int | None
    operation: int | None
    align_log2: int | None
    trace: list | None
    guard: bool
    size: int
    next: int
    prev: int

    def items(self):
        """Which optional parts the block has: T(id), S(equence and time), I(nfo), C(all trace), G(uard)."""
        parts = zip("TSICG", (self.tid, self.seq_num, self.operation, self.trace, self.guard or None))
        return "".join(letter for letter, value in parts if value is not None)


def read_header(driver, block):
    self_link, following, previous, size = (driver.word(block - 4 * i) for i in range(1, 5))
    assert self_link & ~3 == block, f"{self_link:#x} in front of {block:#x}"
    assert not previous & 2
    at = block - 16
    tid = seq = time = operation = align = trace = None
    if self_link & 2:
        at -= 4
        tid = driver.word(at)
    if previous & 1:
        at -= 8
        seq, time = driver.word(at + 4), driver.word(at)
    if self_link & 1:
        at -= 4
        info = driver.word(at)
        operation, align = info >> 8 & 15, info >> 16 & 0xFF
        assert info & 0xFF00F000 == 0, f"{info:#x}"
        if following & 1:
            trace = [driver.word(at - 4 * (info & 0xFF) + 4 * i) for i in range(info & 0xFF)]
    guard = bool(following & 2)
    assert not guard or driver.word(block + size) == GUARD
    return Header(tid, time, seq, operation, align, trace, guard, size, following & ~3, previous & ~3)
