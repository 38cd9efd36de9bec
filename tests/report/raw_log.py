# SPDX-License-Identifier: Apache-2.0
"""The records of a record log as docs/log-format.md has them, and what they add up to, without the code that reports."""

import struct
from collections import defaultdict, namedtuple

Record = namedtuple("Record", "tid time seq operation result from_file size address trace")
RECORD = struct.Struct("<3I4B2I64I")
MMAPS, ALLOCATOR_FLOOR = (5, 10), 4096


def records_of(path):
    content = path.read_bytes()
    start = struct.unpack_from("<I", content, 68)[0]
    for at in range(start, len(content) - RECORD.size + 1, RECORD.size):
        tid, time, seq, operation, result, depth, from_file, size, address, *trace = RECORD.unpack_from(content, at)
        trace = trace[:depth]
        while trace and trace[-1] == 0:
            trace.pop()
        yield Record(tid, time, seq, operation, result, from_file, size, address, tuple(trace))


class Block:
    def __init__(self, record, index):
        self.record, self.index, self.end, self.ended_by = record, index, None, None


def without_carriers(records):
    """Mappings that the allocator made for a large block (the next thing that their thread is told of is a block within
    them) and the unmappings of just these, taken out."""
    records, out, carriers = list(records), set(), {}
    waiting = {}  # tid: index of a mapping record
    for index, record in enumerate(records):
        before = waiting.pop(record.tid, None)
        if before is not None and record.result == 1 and record.operation not in MMAPS and record.size >= ALLOCATOR_FLOOR:
            mapping = records[before]
            if mapping.address <= record.address < mapping.address + mapping.size:
                out.add(before)
                carriers[mapping.address, mapping.size] = True
        if record.result == 1 and record.operation in MMAPS and not record.from_file:
            waiting[record.tid] = index
        if record.result == 2 and record.operation in (6, 11) and carriers.pop((record.address, record.size), None):
            out.add(index)
    return [record for index, record in enumerate(records) if index not in out]


def lives_of(path):
    """All blocks and mappings in the order of their records, each with the index of its first and its last record; and
    the records without those of the allocator's own mappings."""
    records, live, lives, last = without_carriers(records_of(path)), {}, [], 0
    for index, record in enumerate(records):
        if record.result == 1 and record.address:
            key = record.address, record.operation in MMAPS
            if 0 < record.seq <= last:  # a failed resize put it back: the life that ended goes on
                old = next(life for life in reversed(lives) if life.record.address == record.address)
                old.end = old.ended_by = None
                live[key] = old
            else:
                if key in live:
                    live[key].end = index
                live[key] = Block(record, index)
                lives.append(live[key])
        elif record.result == 2:
            life = live.pop((record.address, record.operation in (6, 11)), None)
            if life is not None:
                life.end, life.ended_by = index, record
        last = max(last, record.seq)
    return lives, records


def peak_of(lives, records):
    """The most bytes of blocks and anonymous mappings, and the index of the record that reached them first."""
    change = [0] * (len(records) + 1)
    for life in lives:
        if not life.record.from_file:
            change[life.index] += life.record.size
            change[len(records) if life.end is None else life.end] -= life.record.size
    now = best = 0
    at = -1
    for index in range(len(records)):
        now += change[index]
        if now > best:
            best, at = now, index
    return best, at


def live_at(lives, index):
    return [life for life in lives if life.index <= index and (life.end is None or life.end > index)]


def held_over_time(path, chosen):
    """{time: [bytes, bytes from files, blocks and mappings, most bytes]} at the end of each second with a record, of what
    is `chosen` alone; a record of an earlier time (a failed resize puts a block back) belongs to the second it comes in."""
    live, points, now = {}, {}, 0
    for record in without_carriers(records_of(path)):
        key = record.address, record.operation in MMAPS or record.operation in (6, 11)
        if record.result == 1 and record.address:
            live[key] = record
        elif record.result == 2:
            live.pop(key, None)
        now = max(now, record.time)
        mine = [held for held in live.values() if chosen(held)]
        whole = sum(held.size for held in mine if not held.from_file)
        most = max(points.get(now, [0] * 4)[3], whole)
        points[now] = [whole, sum(held.size for held in mine if held.from_file), len(mine), most]
    return points


def sums(lives, key=lambda life: life.record.tid):
    """{key: (bytes, count)}."""
    totals = defaultdict(lambda: (0, 0))
    for life in lives:
        bytes_, count = totals[key(life)]
        totals[key(life)] = bytes_ + life.record.size, count + 1
    return dict(totals)


def temporary(lives, records, within=0):
    """Blocks that their own thread released before its next allocation, or among its next `within` operations."""
    born, found = {id(life.record): life for life in lives}, []
    operations = defaultdict(list)  # by tid: (index, is an allocation)
    ends = {(life.end, id(life.ended_by)) for life in lives if life.ended_by}
    for index, record in enumerate(records):
        if id(record) in born:
            operations[record.tid].append((index, True))
        elif (index, id(record)) in ends:
            operations[record.tid].append((index, False))
    for life in lives:
        if life.ended_by is None or life.ended_by.tid != life.record.tid:
            continue
        own = [allocation for index, allocation in operations[life.record.tid] if life.index < index < life.end]
        if (len(own) < within) if within else (True not in own):
            found.append(life)
    return found
