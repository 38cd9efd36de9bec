# SPDX-License-Identifier: Apache-2.0
"""A reader of log files that shares nothing with the code that writes them: enough to add up what they say."""

import struct
from bisect import bisect_left
from collections import Counter
from dataclasses import dataclass
from functools import cached_property

HEADER = struct.Struct("<5sB2x32s12I")
STATISTICS = struct.Struct("<12I12I4I12Q2I")
RECORD = struct.Struct("<3I4B2I256x")

ALLOCATED, RELEASED, FAILED = 1, 2, 4
MALLOC, REALLOC, FREE, MEMALIGN, MMAP, MUNMAP, REALLOC_RELEASE = 0, 1, 3, 4, 5, 6, 9
MMAP_FILE, MUNMAP_FILE = 10, 11


@dataclass
class Record:
    tid: int
    time: int
    sequence: int
    operation: int
    result: int
    depth: int
    from_file: int
    size: int
    address: int


@dataclass
class Snapshot:
    number: int
    count: int  # records that the header claims, 0 where it does not count them
    next: int
    calls: tuple
    failed: tuple
    held: int
    totals: tuple
    body: bytes

    @cached_property
    def records(self):
        return [Record(*fields) for fields in RECORD.iter_unpack(self.body)]


def read_snapshot(data, start, torn=False):
    """The snapshot at `start`; its records run to the next one, or to the end of the data, where one may be torn."""
    magic, order, _, *words = HEADER.unpack_from(data, start)
    assert magic == b"QRCL\0" and order == 2, f"no log header at {start}"
    _, slots, _, depth, _, statistics, threads, records, count, number, _, following = words
    assert (slots, depth) == (200, 64) and threads == statistics + 216 and records == threads + 49600
    numbers = STATISTICS.unpack_from(data, statistics)
    end = records + count * RECORD.size if count or following else len(data)
    body = data[records:end] if end > records else b""
    rest = len(body) % RECORD.size
    assert rest == 0 or torn and end == len(data), f"{rest} bytes of a torn record at the end"
    return Snapshot(number, count, following, numbers[:12], numbers[12:24], numbers[24], numbers[28:40], body[:len(body) - rest])


def read_chain(path, torn=False):
    """All snapshots of a log, in the order of the links between them; torn: its process may have ended as it wrote."""
    data = path.read_bytes()
    start = 0
    while True:
        snapshot = read_snapshot(data, start, torn)
        yield snapshot
        if not snapshot.next:
            return
        assert snapshot.next > start, f"the chain turns back at {start}"
        start = snapshot.next


def reconcile_records(path):
    """The records of a record log beside its statistics; returns what disagrees."""
    (log,) = read_chain(path)
    seen, size = Counter(), Counter()
    for record in log.records:
        file_mapping = MMAP_FILE if record.operation == MMAP and record.from_file else record.operation
        seen[file_mapping, record.result] += 1
        size[file_mapping, record.result] += record.size
    wrong = []

    def same(what, counted, recorded):
        if counted != recorded:
            wrong.append(f"{what}: {counted} counted, {recorded} recorded")

    for operation, kind in ((MALLOC, ALLOCATED), (REALLOC, ALLOCATED), (MEMALIGN, ALLOCATED), (FREE, RELEASED),
                            (REALLOC_RELEASE, RELEASED), (MMAP, ALLOCATED), (MMAP_FILE, ALLOCATED)):
        failures = seen[operation, FAILED]
        same(f"calls of operation {operation}", log.calls[operation], seen[operation, kind] + failures)
        same(f"failures of operation {operation}", log.failed[operation], failures)
        same(f"bytes of operation {operation}", log.totals[operation], size[operation, kind])
    same("calls of munmap", log.calls[MUNMAP] + log.calls[MUNMAP_FILE],
         seen[MUNMAP, RELEASED] + seen[MUNMAP, FAILED])
    if not seen:
        wrong.append("no record at all")
    return wrong


def reconcile_snapshots(path):
    """Every snapshot of an automatic-snapshot log: its chain, its records, the bytes held; returns what is wrong.

    One may be taken in a moment in which the mapping for a block is there, and the block is not yet.
    """
    wrong = []
    for position, snapshot in enumerate(read_chain(path), 1):
        if snapshot.number != position:
            wrong.append(f"snapshot {position} says it is number {snapshot.number}")
        addresses = Counter(r.address for r in snapshot.records if not is_mapping(r))
        wrong += [f"snapshot {position}: block 0x{a:x} listed twice" for a, n in addresses.items() if n > 1]
        wrong += [f"snapshot {position}: a record of kind {r.result}" for r in snapshot.records if r.result != ALLOCATED]
        surplus = held(snapshot.records) - snapshot.held
        if surplus and surplus not in [r.size for r in mappings_without_block(snapshot.records)]:
            wrong.append(f"snapshot {position}: {snapshot.held} bytes counted, {held(snapshot.records)} in its records")
    return wrong


def unreadable(path):
    """What cannot be read in a log of a process that may have ended by exec or a signal: its counters may lag behind."""
    return [f"snapshot {snapshot.number}: a record of operation {operation}, kind {kind}"
            for snapshot in read_chain(path, torn=True)
            for operation, kind in set(zip(snapshot.body[12::RECORD.size], snapshot.body[13::RECORD.size]))
            if operation > MUNMAP_FILE or kind not in (ALLOCATED, RELEASED, FAILED)]


def is_mapping(record):
    return record.operation == MMAP


def held(records):
    """Bytes that the application holds by these records. A block in a mapping made for it counts once, as a block."""
    return sum(r.size for r in records if not is_mapping(r)) + sum(r.size for r in mappings_without_block(records))


def mappings_without_block(records):
    blocks = sorted(r.address for r in records if not is_mapping(r))
    return [r for r in records if is_mapping(r) and not r.from_file and not any_within(blocks, r)]


def any_within(addresses, mapping):
    first = bisect_left(addresses, mapping.address)
    return first < len(addresses) and addresses[first] < mapping.address + mapping.size
