# SPDX-License-Identifier: Apache-2.0
"""An independent reader of the log files: knows the layout, checks every field of every section."""

import struct
from dataclasses import dataclass

HEADER, STATS, THREADS, RECORD = 88, 216, 49600, 280
OPERATIONS = ["malloc", "realloc", "calloc", "free", "memalign", "mmap", "munmap", "chunk map", "chunk unmap",
              "realloc release", "mmap file", "munmap file"]
ALLOCATED, RELEASED, FAILED, SLOP_HEAD, SLOP_TAIL = 1, 2, 4, 6, 7


@dataclass
class Record:
    tid: int
    time: int
    seq_num: int
    operation: int
    kind: int
    depth: int
    from_file: int
    size: int
    address: int
    trace: tuple

    def brief(self):
        return OPERATIONS[self.operation], self.kind, self.size, self.address


def read_record(data, offset):
    head = struct.unpack_from("<IIIBBBBII", data, offset)
    words = struct.unpack_from("<64I", data, offset + 24)
    assert head[5] <= 64, f"depth {head[5]}"
    assert not any(words[head[5]:]), "addresses behind the trace"
    return Record(*head, words[: head[5]])


class Counters:
    """Counts per operation and the amounts held, of the process or of one thread."""

    def __init__(self, calls, failed, held, totals):
        self.calls, self.failed, self.totals = calls, failed, totals
        self.held, self.file_held, self.peak, self.file_peak = held

    def counts(self):
        """{operation: (calls, failed, total)} of the operations that were used."""
        rows = zip(OPERATIONS, self.calls, self.failed, self.totals)
        return {name: (calls, failed, total) for name, calls, failed, total in rows if calls or failed or total}


def read_stats(data, offset):
    words = struct.unpack_from("<28I12Q2I", data, offset)
    stats = Counters(words[:12], words[12:24], words[24:28], words[28:40])
    stats.trace_mmap, reserved = words[40:]
    assert reserved == 0
    return stats


def read_threads(data, offset):
    threads = {}
    for slot in range(200):
        words = struct.unpack_from("<I24I2I4I3I12Q16s", data, offset + slot * 248)
        if words[0] == 0:
            assert data[offset + slot * 248 : offset + 200 * 248].count(0) == (200 - slot) * 248, "entry behind a free one"
            break
        assert words[31:34] == (0, 0, 0)
        thread = Counters(words[1:13], words[13:25], words[27:31], words[34:46])
        thread.in_place, thread.shrink = words[25:27]
        thread.name = words[46].rstrip(b"\0").decode()
        assert words[0] not in threads
        threads[words[0]] = thread
    return threads


class Snapshot:
    """One header with its sections; `end` is where its records end, the end of the file when not given."""

    def __init__(self, data, start=0, maps_kb=32, end=None):
        fields = struct.unpack_from("<5sB2s32s4I4I4I", data, start)
        magic, order, reserved, name = fields[:4]
        self.pid, slots, self.thread_flag, depth = fields[4:8]
        maps, stats, threads, records = fields[8:12]
        self.record_count, self.number, self.time, self.next = fields[12:]
        self.name = name.split(b"\0")[0].decode()
        assert (magic, order, reserved, slots, depth) == (b"QRCL\0", 2, b"\0\0", 200, 64), fields
        assert name == self.name.encode().ljust(32, b"\0"), name
        assert self.thread_flag in (0, 2)
        assert maps == start + HEADER and stats == maps + maps_kb * 1024, fields
        assert threads == stats + STATS and records == threads + THREADS, fields
        self.records_offset = records
        section = data[maps:stats]
        self.maps = section[: section.index(0)].decode("latin-1")
        assert not section[len(self.maps):].strip(b"\0"), "text behind the end of the maps"
        assert self.maps == "" or self.maps.endswith("\n"), "maps not cut at a line"
        self.stats = read_stats(data, stats)
        self.threads = read_threads(data, threads) if len(data) >= records and self.thread_flag else {}
        body = data[records:end]
        assert len(body) % RECORD == 0, f"{len(body)} bytes of records"
        self.records = [read_record(data, at) for at in range(records, records + len(body), RECORD)]

    def module_of(self, address):
        """(path, load address) of the mapping that holds an address; the load address is the path's lowest."""
        lines = [line.split(maxsplit=5) for line in self.maps.splitlines()]
        spans = [(*(int(end, 16) for end in line[0].split("-")), line[5] if len(line) > 5 else "") for line in lines]
        path = next(path for start, end, path in spans if start <= address < end)
        return path, min(start for start, _, other in spans if other == path)


def read_log(path, maps_kb=32, torn=False):
    """torn: the last write may have been cut short in the middle of a record, which is then left out."""
    data = path.read_bytes()
    behind = (len(data) - struct.unpack_from("<I", data, 68)[0]) % RECORD
    return Snapshot(data[: len(data) - behind] if torn else data, 0, maps_kb)


def read_chain(path, maps_kb=32):
    """All snapshots of an automatic-snapshot log, in file order."""
    data = path.read_bytes()
    snapshots, start = [], 0
    while True:
        following = struct.unpack_from("<I", data, start + 84)[0]
        count = struct.unpack_from("<I", data, start + 72)[0]
        assert following == 0 or start < following < len(data), f"chain broken at {start}"
        records = start + HEADER + maps_kb * 1024 + STATS + THREADS
        snapshots.append(Snapshot(data, start, maps_kb, records + count * RECORD))
        snapshots[-1].start, snapshots[-1].end = start, following or len(data)
        if following == 0:
            return snapshots
        start = following
