# SPDX-License-Identifier: Apache-2.0
"""What libquarl.so knows of a process, live or dead, in gdb: `source tools/gdb/quarl.py`, then `help quarl`.

Everything is read from the process's memory, by the table that the library has there (qr_process_table, or found by its
magic where gdb knows no symbols). No debug information is needed, and a damaged heap is told, not believed.
"""

import re
import struct
from dataclasses import dataclass, field

import gdb

MAGIC, VERSION = b"QRPROCT\n", 1
HEADER_MAGIC = b"QRBH"
OPERATIONS = ("malloc", "realloc", "calloc", "free", "memalign", "mmap", "munmap", "chunk map", "chunk unmap",
              "realloc release", "mmap file", "munmap file")  # docs/log-format.md
MALLOC, FREE = OPERATIONS.index("malloc"), OPERATIONS.index("free")
RECORD, DEEPEST = 280, 64
REASONS = ("a fault", "the heap limit", "the stack limit")
PARKED_PLACES = 32
FAR = 64 << 10  # bytes to a block that an address still is said to be next to
PAGE = 4096


class Unreadable(Exception):
    """Memory that is not there."""


class Memory:
    """The process's memory, of which each page is asked for once."""

    def __init__(self):
        self.pages = {}
        self.order = "<"

    def page(self, number):
        if number not in self.pages:
            try:
                self.pages[number] = bytes(gdb.selected_inferior().read_memory(number * PAGE, PAGE))
            except gdb.error:
                self.pages[number] = None
        if self.pages[number] is None:
            raise Unreadable(hex(number * PAGE))
        return self.pages[number]

    def read(self, address, size):
        if not 0 < address <= address + size <= 1 << 32:
            raise Unreadable(hex(address))
        first, last = address // PAGE, (address + size - 1) // PAGE if size else address // PAGE
        data = b"".join(self.page(number) for number in range(first, last + 1))
        return data[address - first * PAGE:][:size]

    def words(self, address, count):
        return struct.unpack(f"{self.order}{count}I", self.read(address, 4 * count))

    def word(self, address):
        return self.words(address, 1)[0]


def mapped_ranges():
    """(start, end) of the memory that gdb knows of: the segments of a core file, or what the system says is mapped."""
    text = gdb.execute("info files", to_string=True)
    for start, end in re.findall(r"0x([0-9a-f]+) - 0x([0-9a-f]+) is load", text):
        yield int(start, 16), int(end, 16)
    try:
        text = gdb.execute("info proc mappings", to_string=True)
    except gdb.error:
        return
    for start, end, size in re.findall(r"^\s*0x([0-9a-f]+)\s+0x([0-9a-f]+)\s+0x([0-9a-f]+)", text, re.M):
        if int(start, 16) + int(size, 16) == int(end, 16):
            yield int(start, 16), int(end, 16)


def candidates(memory):
    """Addresses at which qr_process_table may lie."""
    try:
        found = int(gdb.parse_and_eval("(unsigned long)&qr_process_table")) & 0xFFFFFFFF
        if memory.read(found, len(MAGIC)) == MAGIC:
            yield found
    except (gdb.error, Unreadable):
        pass
    for start, end in mapped_ranges():
        try:
            at = start
            while (at := gdb.selected_inferior().search_memory(at, end - at, MAGIC)) is not None:
                if memory.read(at + len(MAGIC) + 4, len(HEADER_MAGIC)) == HEADER_MAGIC:
                    yield at
                at += 1
        except (gdb.error, Unreadable):
            continue


def find_table(memory):
    """The table. Pages of the library's file may hold another copy of it, with addresses that are not of this process."""
    for at in candidates(memory):
        table = Table(memory, at)
        try:
            for address in table.variables.values():
                memory.word(address)
            return table
        except Unreadable:
            continue
    raise gdb.GdbError("quarl: the process has no libquarl.so, or does not run yet")


class Table:
    """What the library says about itself: where its variables are, and how a block's header is laid out."""

    def __init__(self, memory, at):
        raw = memory.read(at + len(MAGIC), 4)
        memory.order = "<" if raw[0] else ">"
        self.version, rows = struct.unpack(f"{memory.order}2H", raw)
        if self.version != VERSION:
            raise gdb.GdbError(f"quarl: the library's table has version {self.version}, this script knows {VERSION}")
        at = self.read_header(memory, at + len(MAGIC) + 4)
        self.variables = {}
        for row in range(rows):
            name, address = struct.unpack(f"{memory.order}16sI", memory.read(at + 20 * row, 20))
            self.variables[name.rstrip(b"\0").decode()] = address

    def read_header(self, memory, at):
        (magic, _, rows, self.freed_mark, self.guard, self.guard_word, self.guard_mask, self.depth_shift, self.op_shift,
         self.align_shift, _) = struct.unpack(f"{memory.order}4sHHI4s6B2x", memory.read(at, 24))
        assert magic == HEADER_MAGIC
        rows = [struct.unpack("12s4B", memory.read(at + 24 + 16 * row, 16)) for row in range(rows)]
        self.fields = [(name.rstrip(b"\0").decode(), *rest) for name, *rest in rows]
        return at + 24 + 16 * len(rows)


@dataclass
class Block:
    """A block as its header tells it, and what is wrong with it."""
    p: int
    size: int = 0
    start: int = 0  # of its header
    fields: dict = field(default_factory=dict)
    trace: tuple = ()
    operation: str = ""
    guard: bytes | None = None  # None: it has none
    faults: list = field(default_factory=list)

    @property
    def end(self):
        return self.p + self.size + len(self.guard or b"")

    def summary(self):
        parts = [f"{self.size} bytes at {self.p:#x}"]
        if self.operation:
            parts.append(self.operation)
        if "seq_num" in self.fields:
            parts.append(f"#{self.fields['seq_num']}")
        if "tid" in self.fields:
            parts.append(f"thread {self.fields['tid']}")
        return ", ".join(parts) + ("" if not self.faults else "  DAMAGED: " + "; ".join(self.faults))


class Heap:
    """The library's list of live blocks."""

    def __init__(self):
        self.memory = Memory()
        self.table = find_table(self.memory)
        first, last, self.count = (self.variable(name) for name in ("first_block", "last_block", "block_count"))
        if first == 0 and not self.variable("hooks_installed"):  # the checker has ended; the blocks are still there
            first, last, self.count = self.memory.words(self.table.variables["closed_list"], 3)
        self.blocks = {}
        self.walk(first, "next_link")
        self.from_head = len(self.blocks)
        if self.from_head < self.count:
            self.walk(last, "prev_link")
        for block in list(self.blocks.values()):
            self.check_links(block, first, last)

    def variable(self, name):
        return self.memory.word(self.table.variables[name])

    def walk(self, at, link):
        while at and at not in self.blocks and len(self.blocks) < self.count:
            try:
                block = self.read(at)
            except Unreadable:
                return
            self.blocks[at] = block
            at = block.fields[link]

    def read(self, p):
        """The block of a header that may be damaged. Unreadable when there cannot be one."""
        table, block, at = self.table, Block(p), p
        for name, words, flag_word, mask, link_flags in table.fields:
            if mask and not self.memory.word(p - 4 * flag_word) & mask:
                continue
            depth = block.fields.get("trace_info", 0) >> table.depth_shift & 0xFF
            if words == 0 and depth > DEEPEST:
                block.faults.append(f"a trace of {depth} entries")
                break
            count = words or depth
            at -= 4 * count
            values = self.memory.words(at, count)
            if words == 0:
                block.trace = values
            else:
                block.fields[name] = values[0] & ~link_flags
        block.start, block.size = at, block.fields["user_size"]
        if block.fields["self_link"] != p:
            freed = self.memory.word(p - 4) == table.freed_mark
            block.faults.append("released" if freed else "its header does not name it")
        if "trace_info" in block.fields:
            operation = block.fields["trace_info"] >> table.op_shift & 15
            block.operation = OPERATIONS[operation] if operation < len(OPERATIONS) else f"operation {operation}"
        if self.memory.word(p - 4 * table.guard_word) & table.guard_mask:
            self.check_guard(block)
        return block

    def check_guard(self, block):
        try:
            block.guard = self.memory.read(block.p + block.size, len(self.table.guard))
        except Unreadable:
            block.faults.append(f"a size of {block.size}")
            block.size, block.guard = 0, None
            return
        if block.guard != self.table.guard:
            block.faults.append(f"behind it {block.guard.hex(' ')}, should be {self.table.guard.hex(' ')}")

    def check_links(self, block, first, last):
        for link, back, end in (("next_link", "prev_link", last), ("prev_link", "next_link", first)):
            neighbour = block.fields[link]
            if neighbour == 0:
                if block.p != end:
                    block.faults.append(f"its {link} is 0")
            elif neighbour not in self.blocks:
                block.faults.append(f"its {link} leads to {neighbour:#x}, where no block is")
            elif self.blocks[neighbour].fields[back] != block.p:
                block.faults.append(f"its {link} leads to {neighbour:#x}, which does not lead back")

    def in_order(self):
        return sorted(self.blocks.values(), key=lambda block: block.p)


def place_name(address):
    """An instruction as gdb knows it: function and line, or library, or nothing."""
    function = gdb.execute(f"info symbol {address:#x}", to_string=True).strip()
    if function.startswith("No symbol"):
        return gdb.solib_name(address) or ""
    name = re.sub(r" in section \S+( of )?", lambda match: " in " if match[1] else "", function)
    line = gdb.find_pc_line(address)
    return f"{name}, {line.symtab.filename}:{line.line}" if line.symtab else name


def print_trace(trace):
    for address in trace:
        print(f"    {address:#x}  {place_name(address - 1)}".rstrip())


class Quarl(gdb.Command):
    """What the heap checker libquarl.so knows of this process."""

    def __init__(self):
        super().__init__("quarl", gdb.COMMAND_DATA, prefix=True)


class Command(gdb.Command):
    def __init__(self):
        super().__init__(f"quarl {self.name}", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        try:
            self.run(argument)
        except Unreadable as error:
            raise gdb.GdbError(f"quarl: no memory at {error}") from None


class Blocks(Command):
    """All live blocks, oldest first, and what is wrong with them: quarl blocks [MOST]."""
    name = "blocks"

    def run(self, argument):
        heap = Heap()
        shown = list(heap.blocks.values())[:int(argument, 0) if argument else None]
        for block in shown:
            print(block.summary())
        damaged = [block for block in heap.blocks.values() if block.faults]
        total = sum(block.size for block in heap.blocks.values())
        print(f"{len(heap.blocks)} of {heap.count} blocks, {total} bytes, {len(damaged)} damaged")
        if len(heap.blocks) < heap.count:
            print(f"{heap.count - len(heap.blocks)} blocks are out of reach: a damaged link has lost them")


class OneBlock(Command):
    """The block that an address lies in or next to: quarl block ADDRESS (any expression)."""
    name = "block"

    def run(self, argument):
        if not argument:
            raise gdb.GdbError("quarl block ADDRESS")
        at = int(gdb.parse_and_eval(f"(unsigned long)({argument})")) & 0xFFFFFFFF
        heap = Heap()
        in_order = heap.in_order()
        index = self.nearest(in_order, at)
        if index is None:
            print(f"{at:#x} lies in no live block, nor near one{self.released(heap, at)}")
            return
        block = in_order[index]
        print(f"{at:#x} {self.relation(block, at)} a block of {block.summary()}{self.released(heap, at)}")
        if block.trace:
            print("  allocated from")
            print_trace(block.trace)
        for side, other in (("below", index - 1), ("above", index + 1)):
            if 0 <= other < len(in_order):
                neighbour = in_order[other]
                print(f"  {side} it in memory: {neighbour.summary()}" + ("" if neighbour.faults else ", sound"))

    @staticmethod
    def nearest(in_order, at):
        def gap(index):
            block = in_order[index]
            return max(block.start - at, at - block.end + 1, 0)
        best = min(range(len(in_order)), key=gap, default=None)
        return best if best is not None and gap(best) <= FAR else None

    @staticmethod
    def relation(block, at):
        if block.p <= at < block.p + block.size:
            return f"is byte {at - block.p} of"
        if block.start <= at < block.p:
            return f"is in the header ({block.p - at} bytes in front) of"
        if at < block.start:
            return f"is {block.p - at} bytes in front of"
        kind = "is in the guard" if at < block.end else "is"
        return f"{kind} {at - block.p - block.size} bytes behind"

    @staticmethod
    def released(heap, at):
        try:
            return "; a block there was released" if heap.memory.word(at - 4) == heap.table.freed_mark else ""
        except Unreadable:
            return ""


class Parked(Command):
    """Threads that a fault or a limit has stopped."""
    name = "parked"

    def run(self, argument):
        memory = Memory()
        table = find_table(memory)
        words = memory.words(table.variables["parked_threads"], 2 * PARKED_PLACES)
        parked = [(tid, why) for tid, why in zip(words[::2], words[1::2]) if tid]
        for tid, why in parked:
            number = next((thread.num for thread in gdb.selected_inferior().threads() if thread.ptid[1] == tid), None)
            known = "not known to gdb" if number is None else f"gdb's thread {number}: thread apply {number} backtrace"
            print(f"thread {tid} is stopped by {REASONS[why] if why < len(REASONS) else why} ({known})")
        if not parked:
            print("no thread is stopped")


class Mappings(Command):
    """Live mappings, oldest first."""
    name = "mappings"

    def run(self, argument):
        memory = Memory()
        table = find_table(memory)
        at, seen, total = memory.word(table.variables["first_mapping"]), set(), 0
        while at and at not in seen:
            seen.add(at)
            tid, _, seq, operation, _, depth, from_file, size, address = struct.unpack(
                f"{memory.order}3I4B2I", memory.read(at, 24))
            kind = "file" if from_file else "anonymous"
            print(f"{size} bytes at {address:#x}, {kind}, #{seq}, thread {tid}")
            if argument == "full":
                print_trace(memory.words(at + 24, min(depth, DEEPEST)))
            total += size
            at = memory.word(at + RECORD + 4)
        print(f"{len(seen)} mappings, {total} bytes")


class Statistics(Command):
    """The usage statistics of the process."""
    name = "statistics"

    def run(self, argument):
        memory = Memory()
        table = find_table(memory)
        at, count = memory.word(table.variables["statistics"]), len(OPERATIONS)
        if at == 0:
            print("statistics are off (QUARL_PROF)")
            return
        calls, failed = list(memory.words(at, count)), memory.words(at + 4 * count, count)
        _, files, _, file_peak = memory.words(at + 8 * count, 4)
        totals = list(struct.unpack(f"{memory.order}{count}Q", memory.read(at + 8 * count + 16, 8 * count)))
        hot = table.variables["hot_figures"]
        *totals[MALLOC:FREE + 1:FREE - MALLOC], = struct.unpack(f"{memory.order}2Q", memory.read(hot, 16))
        calls[MALLOC], calls[FREE], held, peak = memory.words(hot + 16, 4)
        print(f"{'':16}{'calls':>12}{'failed':>12}{'bytes':>16}")
        for row in zip(OPERATIONS, calls, failed, totals):
            print("{:16}{:>12}{:>12}{:>16}".format(*row))
        print(f"held now {held}, at most {peak}; mapped from files now {files}, at most {file_peak}")


Quarl()
for command in (Blocks, OneBlock, Parked, Mappings, Statistics):
    command()
