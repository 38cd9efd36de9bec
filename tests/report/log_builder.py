# SPDX-License-Identifier: Apache-2.0
"""Writes logs to the byte, independently of the code that reads and the library that writes them."""

import struct

MALLOC, REALLOC, FREE, MEMALIGN, MMAP, MUNMAP, CHUNK_MAP = 0, 1, 3, 4, 5, 6, 7
REALLOC_RELEASE, MMAP_FILE = 9, 10
ALLOCATED, RELEASED, FAILED, SLOP_HEAD, SLOP_TAIL = 1, 2, 4, 6, 7

HEADER, STATISTICS, THREAD, THREAD_SLOTS, RECORD, DEPTH = 88, 216, 248, 200, 280, 64


def broken(record):
    """The record in the ways in which one cannot be: its operation, its kind and its depth."""
    return [record[:12] + b"\x0c" + record[13:], record[:13] + b"\3" + record[14:], record[:14] + b"\x41" + record[15:]]


class Layout:
    """The byte order and the size of the maps section of one log."""

    def __init__(self, order="<", maps_kb=32):
        self.order = order
        self.maps_size = maps_kb * 1024

    def header(self, start=0, *, name="sample", pid=4242, count=0, number=1, time=0, next_snapshot=0, threads=False):
        maps = start + HEADER
        statistics = maps + self.maps_size
        table = statistics + STATISTICS
        return struct.pack(
            self.order + "5sB2x32s12I", b"QRCL\0", 1 if self.order == ">" else 2, name.encode(), pid, THREAD_SLOTS,
            2 if threads else 0, DEPTH, maps, statistics, table, table + THREAD_SLOTS * THREAD, count, number, time,
            next_snapshot)

    def maps(self, text):
        encoded = text.encode()
        assert len(encoded) < self.maps_size
        return encoded.ljust(self.maps_size, b"\0")

    def statistics(self, calls=None, failed=None, totals=None, held=(0, 0, 0, 0)):
        """The dictionaries are by operation code; held is bytes, file bytes and the peaks of both."""
        by_code = lambda values: [(values or {}).get(code, 0) for code in range(12)]
        return struct.pack(self.order + "24I4I12Q2I", *by_code(calls), *by_code(failed), *held, *by_code(totals), 0, 0)

    def thread(self, tid, name, calls=None, totals=None, held=0, peak=0, in_place=0, shrunk=0):
        by_code = lambda values: [(values or {}).get(code, 0) for code in range(12)]
        return struct.pack(self.order + "I12I12I2I4I3I12Q16s", tid, *by_code(calls), *[0] * 12, in_place, shrunk, held, 0,
                           peak, 0, 0, 0, 0, *by_code(totals), name.encode())

    def table(self, *threads):
        return b"".join(threads).ljust(THREAD_SLOTS * THREAD, b"\0")

    def record(self, operation, result, address, size, trace=(), *, tid=1, time=1000, seq=0, from_file=0):
        words = list(trace) + [0xDEADBEEF] * (DEPTH - len(trace))
        return struct.pack(self.order + "3I4B2I64I", tid, time, seq, operation, result, len(trace), from_file, size,
                           address, *words)

    def log(self, records=(), *, maps="", statistics=None, threads=(), **header):
        """A record log, or a snapshot log when `count` is given."""
        return b"".join([self.header(threads=bool(threads), **header), self.maps(maps),
                         statistics or self.statistics(), self.table(*threads), *records])

    def chain(self, snapshots, maps=""):
        """An automatic-snapshot log; each snapshot is (time, held bytes, records, thread entries)."""
        log = b""
        for index, (time, held, records, threads) in enumerate(snapshots):
            body = [self.maps(maps), self.statistics(calls={MALLOC: 1}, held=(held, 0, held, 0)), self.table(*threads), *records]
            size = HEADER + sum(map(len, body))
            last = index + 1 == len(snapshots)
            log += self.header(len(log), number=index + 1, time=time, count=len(records),
                               next_snapshot=0 if last else len(log) + size, threads=bool(threads)) + b"".join(body)
        return log

    def bare_chain(self, times, maps=""):
        """Snapshots without details and without a thread table: each follows right behind the statistics."""
        log = b""
        size = HEADER + self.maps_size + STATISTICS
        for index, time in enumerate(times):
            following = (index + 1) * size if index + 1 < len(times) else 0
            held = (100 * (index + 1), 0, 1000, 0)
            log += self.header(len(log), number=index + 1, time=time, next_snapshot=following)
            log += self.maps(maps) + self.statistics(calls={MALLOC: 5}, held=held)
        return log
