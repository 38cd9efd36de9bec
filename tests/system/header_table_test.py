# SPDX-License-Identifier: Apache-2.0
"""A debugger's way to a block: the layout table in the library's image, without any knowledge of the layout."""

import subprocess
import struct

import case
from header import FREED_MARK, read_header

LAYOUTS = ("", "QUARL_HEAD_TID=0", "QUARL_HEAD_TIME=0", "QUARL_HEAD_STACKDEPTH=0", "QUARL_SLOPOVER=0",
           "QUARL_HEAD_TID=0 QUARL_HEAD_TIME=0 QUARL_HEAD_STACKDEPTH=0 QUARL_SLOPOVER=0")


class Table:
    """The section .quarl_header of a stripped copy of the library."""

    def __init__(self, target, directory):
        stripped, section = directory / "stripped.so", directory / "section"
        subprocess.run([target.tool("strip"), "-o", stripped, target.library], check=True)
        subprocess.run([target.tool("objcopy"), "-O", "binary", "--only-section=.quarl_header", stripped, section], check=True)
        data = section.read_bytes()
        (magic, self.version, rows, self.freed_mark, self.guard, self.guard_word, self.guard_mask, *self.shifts,
         self.plain_align) = struct.unpack_from("<4sHHI4s6B", data)
        assert magic == b"QRBH" and len(data) >= 24 + 16 * rows
        self.fields = [struct.unpack_from("<12s4B", data, 24 + 16 * row) for row in range(rows)]

    def read(self, driver, block):
        """{field: value} of a block in the memory of a process, the trace as a list, the guard as bytes."""
        at, values = block, {}
        for name, words, flag_word, mask, link_flags in self.fields:
            if mask and not driver.word(block - 4 * flag_word) & mask:
                continue
            count = words or values["trace_info"] >> self.shifts[0] & 0xFF
            at -= 4 * count
            read = [driver.word(at + 4 * i) for i in range(count)]
            values[name.rstrip(b"\0").decode()] = read if words == 0 else read[0] & ~link_flags
        if driver.word(block - 4 * self.guard_word) & self.guard_mask:
            values["guard"] = driver.word(block + values["user_size"]).to_bytes(4, "little")
        return values


class HeaderTable(case.Case):
    def test_every_layout_is_read_through_the_table(self):
        table = Table(self.target, self.directory)
        self.assertEqual((table.version, table.freed_mark), (1, FREED_MARK))
        for config in LAYOUTS:
            driver = self.driver(config)
            blocks = [driver.malloc(12), driver.memalign(64, 20), driver.realloc(0, 40)]
            for block in blocks:
                with self.subTest(config, block=hex(block)):
                    seen, header = table.read(driver, block), read_header(driver, block)
                    info = seen.pop("trace_info", None)
                    self.assertEqual(seen.pop("guard", None), table.guard if header.guard else None)
                    if info is not None:
                        self.assertEqual((info >> table.shifts[1] & 15, info >> table.shifts[2] & 0xFF),
                                         (header.operation, header.align_log2))
                    expected = {"self_link": block, "next_link": header.next, "prev_link": header.prev,
                                "user_size": header.size, "tid": header.tid, "seq_num": header.seq_num,
                                "time_sec": header.time, "trace": header.trace}
                    self.assertEqual(seen, {name: value for name, value in expected.items() if value is not None})
            self.assertEqual(driver.finish(), 0)


if __name__ == "__main__":
    case.main()
