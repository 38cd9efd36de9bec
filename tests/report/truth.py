# SPDX-License-Identifier: Apache-2.0
"""What a log adds up to, by the plainest reading of docs/log-format.md: shares nothing with the tool or its tests' builder.

A log is read whole, so that what comes later in it tells what a record was: a mapping that carries a large block is known
by the block.
"""

import struct
from bisect import bisect_right
from collections import Counter, defaultdict, namedtuple
from pathlib import Path

MALLOC, REALLOC, FREE, MEMALIGN, MMAP, MUNMAP, CHUNK_MAP, CHUNK_UNMAP, REALLOC_RELEASE = 0, 1, 3, 4, 5, 6, 7, 8, 9
ALLOCATED, RELEASED, FAILED, HEAD, TAIL = 1, 2, 4, 6, 7
NAMES = ["malloc", "realloc", "calloc", "free", "memalign", "mmap", "munmap", "chunk map", "chunk unmap",
         "realloc release", "mmap file", "munmap file"]
LEVELS = [100, 1000, 10000, 100000, 1 << 64]
SLACK = 2 * 4096  # bytes behind a block in a mapping of its own, at most

Record = namedtuple("Record", "tid time seq operation result depth file size address trace")


class Log:
    """The sections of one snapshot, at `start` of the file; its records up to `count`, or to the end of the file."""

    def __init__(self, path, start=0, count=None):
        data = Path(path).read_bytes()
        self.order = ">" if data[start + 5] == 1 else "<"
        words = struct.unpack_from(self.order + "12I", data, start + 40)
        self.pid, _, self.threads_flag, _, maps, stats, table, records, self.count, self.number, self.time, self.next = words
        self.maps = data[maps:stats].split(b"\0")[0].decode()
        numbers = struct.unpack_from(self.order + "28I12Q2I", data, stats)
        self.calls, self.failed, self.totals = numbers[:12], numbers[12:24], numbers[28:40]
        self.held, self.file_held, self.peak, self.file_peak = numbers[24:28]
        self.table = {}
        for slot in range(200):
            words = struct.unpack_from(self.order + "I24I9I12Q16s", data, table + slot * 248)
            if words[0]:
                self.table[words[0]] = words
        end = len(data) if count is None else records + count * 280
        self.records = [self.record(data, at) for at in range(records, end - 279, 280)]

    def record(self, data, at):
        head = struct.unpack_from(self.order + "3I4B2I", data, at)
        trace = struct.unpack_from(f"{self.order}{head[5]}I", data, at + 24)
        while trace and trace[-1] == 0:
            trace = trace[:-1]
        return Record(*head, trace)


def is_mapping(record):
    return record.operation == MMAP


def fits(mapping, block):
    """Whether the block may be the one that an anonymous mapping was made for."""
    end, rest = mapping.address + mapping.size, mapping.address + mapping.size - block.address - block.size
    return not mapping.file and mapping.address < block.address < end and 0 <= rest < SLACK


class Held:
    """Held blocks and mappings while records pass; what the library takes as released by a munmap."""

    def __init__(self):
        self.blocks, self.mappings = {}, []  # (index, record), mappings oldest first

    def unmap(self, record):
        for position, (_, mapping) in enumerate(self.mappings):
            same_end = mapping.address + mapping.size == record.address + record.size
            if same_end and (mapping.address == record.address or not mapping.file):
                return self.mappings.pop(position)
        return None


def large_block_mappings(records):
    """Indices of the records of mappings, and of their ends, that the allocator made for large blocks."""
    found, carriers, candidates = set(), {}, {}
    for index, record in enumerate(records):
        if record.result == ALLOCATED and is_mapping(record) and not record.file:
            carriers.pop(record.address, None)
            candidates[record.address] = index
        elif record.result == ALLOCATED and not is_mapping(record):
            starts = sorted(candidates)
            place = bisect_right(starts, record.address) - 1
            if place >= 0 and fits(records[candidates[starts[place]]], record):
                carriers[starts[place]] = candidates.pop(starts[place])
                found.add(carriers[starts[place]])
        elif record.result == RELEASED and record.operation == MUNMAP:
            if carriers.pop(record.address, None) is not None:
                found.add(index)
            candidates = {a: i for a, i in candidates.items() if not record.address <= a < record.address + record.size}
    return found


class Replay:
    """The records of a record log, one after the other."""

    def __init__(self, log, limit=None):
        records = log.records[:limit]
        chunks = large_block_mappings(records)
        self.bytes = self.file_bytes = self.count = self.peak = self.file_peak = 0
        self.calls, self.failed, self.totals = Counter(), Counter(), Counter()
        self.threads = defaultdict(Counter)
        self.turnover = Counter()  # bytes allocated, by trace
        self.by_time = defaultdict(int)  # the most held, by second
        self.restored = self.unknown = 0
        self.held, last, released_by = Held(), 0, {}
        for index, record in enumerate(records):
            operation, thread = record.operation, self.threads[record.tid]
            restored = record.result == ALLOCATED and not is_mapping(record) and 0 < record.seq <= last
            last = max(last, record.seq)
            if record.result in (HEAD, TAIL):
                continue
            if index in chunks:
                code = CHUNK_MAP if record.result == ALLOCATED else CHUNK_UNMAP
                self.calls[code] += 1
                self.totals[code] += record.size
                continue
            if restored:  # a resize failed: as if nothing had happened but its failure
                self.restored += 1
                self.calls[REALLOC_RELEASE] -= 1
                self.totals[REALLOC_RELEASE] -= record.size
                releaser = self.threads[released_by[record.address]]
                releaser["releases"] -= 1
                releaser["released"] -= record.size
                self.hold(index, record)
                continue
            if record.file and operation == MMAP:
                operation = 10
            self.calls[operation] += 1
            if record.result == FAILED:
                self.failed[operation] += 1
                thread["failures"] += 1
            elif record.result == ALLOCATED:
                self.totals[operation] += record.size
                thread["allocations"] += 1
                thread["allocated"] += record.size
                thread["file"] += record.size * record.file
                self.turnover[record.trace] += record.size
                self.hold(index, record)
            elif record.result == RELEASED:
                thread["releases"] += 1
                released_by[record.address] = record.tid
                size, file = self.release(record)
                thread["released"] += size
                thread["file"] -= size * file
            self.by_time[record.time] = max(self.by_time[record.time], self.bytes)
        entries = [*self.held.blocks.values(), *[record for _, record in self.held.mappings]]
        self.entries = [record for record in entries if record]

    def hold(self, index, record):
        self.count += 1
        if is_mapping(record):
            self.held.mappings.append((index, record))
        else:
            old = self.held.blocks.pop(record.address, None)
            if old:
                self.bytes -= old.size
                self.count -= 1
            self.held.blocks[record.address] = record
        if record.file:
            self.file_bytes += record.size
        else:
            self.bytes += record.size
        self.peak, self.file_peak = max(self.peak, self.bytes), max(self.file_peak, self.file_bytes)

    def release(self, record):
        if record.operation == MUNMAP:
            gone = self.held.unmap(record)
            old = gone and gone[1]
        else:
            old = self.held.blocks.pop(record.address, None)
        operation, size = record.operation, record.size
        if operation == MUNMAP and old:  # all of the mapping, whatever was named
            operation, size = 11 if old.file else MUNMAP, old.size
        self.totals[operation] += size
        self.calls[operation] += operation != record.operation
        self.calls[record.operation] -= operation != record.operation
        if old is None:
            self.unknown += 1
            return size, 0
        self.count -= 1
        if old.file:
            self.file_bytes -= old.size
        else:
            self.bytes -= old.size
        return size, old.file


def held_in_snapshot(log):
    """The records of what a snapshot holds: mappings that carry a block are left out."""
    blocks = [record for record in log.records if record.result == ALLOCATED and not is_mapping(record)]
    by_address = sorted(blocks, key=lambda block: block.address)
    addresses = [block.address for block in by_address]
    kept = list(blocks)
    for mapping in log.records:
        if mapping.result != ALLOCATED or not is_mapping(mapping):
            continue
        place = bisect_right(addresses, mapping.address)
        carries = place < len(addresses) and fits(mapping, by_address[place])
        if not carries:
            kept.append(mapping)
    return kept


def histogram(entries):
    levels = [[0, 0] for _ in LEVELS]
    for entry in entries:
        level = next(index for index, bound in enumerate(LEVELS) if entry.size < bound)
        levels[level][0] += 1
        levels[level][1] += entry.size
    return levels


def by(entries, key):
    sums = defaultdict(lambda: [0, 0])
    for entry in entries:
        sums[key(entry)][0] += entry.size
        sums[key(entry)][1] += 1
    return {name: tuple(sum_) for name, sum_ in sums.items()}
