# SPDX-License-Identifier: Apache-2.0
"""Logs of every kind and both byte orders, cut short and damaged."""

import os
import struct
import unittest

from log_builder import (ALLOCATED, FAILED, FREE, HEADER, MALLOC, MMAP, RECORD, RELEASED, SLOP_HEAD, SLOP_TAIL, STATISTICS,
                         THREAD, THREAD_SLOTS, Layout, broken)
from support import ReportTest

TABLE = THREAD * THREAD_SLOTS


class Kinds(ReportTest):
    def records(self, layout):
        kept = [layout.record(MALLOC, ALLOCATED, 0x1000, 100, [0x10], seq=1), layout.record(MALLOC, ALLOCATED, 0x2000, 50, seq=2)]
        return kept, [*kept, layout.record(FREE, RELEASED, 0x2000, 50, seq=3), layout.record(MALLOC, FAILED, 0, 9, seq=4)]

    def test_both_byte_orders_give_the_same_answer(self):
        for order, name in (("<", "little"), (">", "big")):
            layout = Layout(order, maps_kb=64)
            statistics = layout.statistics({MALLOC: 3, FREE: 1}, {MALLOC: 1}, {MALLOC: 1 << 40, FREE: 50}, (100, 7, 150, 8))
            thread = layout.thread(77, "worker", {MALLOC: 3, FREE: 1}, {MALLOC: 150}, held=100, peak=150)
            path = self.write(layout.log(self.records(layout)[1], statistics=statistics, threads=[thread], time=99))
            document = self.json(path)
            self.assertEqual(document["log"]["byte_order"], name)
            self.assertEqual((document["log"]["process"], document["log"]["pid"], document["log"]["time"]), ("sample", 4242, 99))
            self.assertEqual(document["operations"][0], {"operation": "malloc", "calls": 3, "failed": 1, "bytes": 1 << 40})
            self.assertEqual(document["held"], {"bytes": 100, "peak": 150, "peak_exact": True, "file_bytes": 7, "file_peak": 8})
            self.assertEqual(document["unfreed"], {"bytes": 100, "count": 1})
            worker = self.json("threads", path)["threads"][0]
            self.assertEqual((worker["tid"], worker["name"], worker["bytes_allocated"], worker["peak"]), (77, "worker", 150, 150))

    def test_the_kind_is_known_by_content(self):
        layout = self.layout
        kept, every = self.records(layout)
        released = layout.statistics({MALLOC: 2, FREE: 2})
        cases = [
            ("record log", layout.log(every, time=5), 100),
            ("record log", layout.log(kept, time=5), 150),
            ("snapshot log", layout.log(kept, count=2, time=5), 150),
            # A dump of nothing, then one that did not end: what is held was released at no time in this log.
            ("snapshot log", layout.log(kept, statistics=released, time=5), 150),
            ("automatic-snapshot log", layout.chain([(5, 1, [], []), (6, 150, kept, [])]), 150),
            ("automatic-snapshot log", layout.bare_chain([5, 6, 7]), 0),
            ("automatic-snapshot log", layout.bare_chain([5]), 0),
        ]
        for kind, content, held in cases:
            document = self.json(self.write(content, "renamed.log"))
            self.assertEqual((document["log"]["kind"], document["unfreed"]["bytes"]), (kind, held))
        self.assertEqual(self.json(self.write(cases[3][1], "renamed.log"), "--as", "records")["unfreed"]["bytes"], 150)

    def test_a_snapshot_is_chosen_by_its_number(self):
        records = [self.layout.record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 10) for i in range(3)]
        path = self.write(self.layout.chain([(10 + i, 0, records[:i + 1], []) for i in range(3)]), "a_autosnap.log")
        for number in (1, 2, 3):
            self.assertEqual(self.json("leaks", f"{path}@{number}")["unfreed"]["count"], number)
        self.assertEqual(self.json("leaks", path)["unfreed"]["count"], 3)
        self.assertIn("no snapshot 4; the log holds 3, numbered 1 to 3", self.report(f"{path}@4", status=1)[1])

    def test_what_records_and_statistics_say_is_compared(self):
        bare = self.json(self.write(self.layout.bare_chain([5]), "a_autosnap.log"))
        self.assertIn("100 bytes are held, but this snapshot has no records of them (QUARL_SNAP_DETAIL).", bare["log"]["notes"])
        record = self.layout.record(MALLOC, ALLOCATED, 0x1000, 30)
        detailed = self.json(self.write(self.layout.chain([(5, 31, [record], [])]), "a_autosnap.log"))
        self.assertIn("The library counted 31 bytes held, the records add up to 30.", detailed["log"]["notes"])

    def test_what_could_not_be_written_is_told_by_the_numbers(self):
        def notes(numbers):
            records = [self.layout.record(MALLOC, ALLOCATED, 0x1000 + 64 * i, 10, seq=number) for i, number in enumerate(numbers)]
            return " ".join(self.json(self.write(self.layout.log(records), "a_quarlAll.log"))["log"]["notes"])
        for whole in ([1, 2, 3], [0, 0, 0], [1, 2, 1, 3]):  # no numbers; a block that a failed resize put back
            self.assertNotIn("records are missing", notes(whole))
            self.assertNotIn("before the first record", notes(whole))
        self.assertIn("7 records are missing in between", notes([1, 2, 8, 8, 11]))
        self.assertIn("4 operations came before the first record", notes([5, 6]))
        chain = self.layout.bare_chain([5, 6, 7])
        size = len(chain) // 3
        gap = chain[:size] + b"".join(
            chain[size * i : size * i + 76] + bytes([number, 0, 0, 0]) + chain[size * i + 80 : size * (i + 1)]
            for i, number in ((1, 4), (2, 5)))
        told = self.json(self.write(gap, "a_autosnap.log"))["log"]["notes"]
        self.assertIn("2 snapshots before snapshot 4 are missing: they could not be written.", told)


class CutShort(ReportTest):
    def test_a_record_log_is_read_up_to_the_last_whole_record(self):
        layout = self.layout
        records = [layout.record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 10) for i in range(5)]
        content = layout.log(records)  # of a killed process: no time
        document = self.json(self.write(content[:-RECORD - 100]))
        self.assertEqual(document["unfreed"]["count"], 3)
        self.assertTrue(any("180 of its 280 bytes" in note for note in document["log"]["notes"]))
        self.assertTrue(any("killed or still runs" in note for note in document["log"]["notes"]))

    def test_every_length_gives_an_answer_or_a_message(self):
        record = self.layout.record(MALLOC, ALLOCATED, 0x1000, 10)
        chain = self.layout.chain([(1, 1, [record] * 2, []), (2, 2, [record] * 2, [])])
        sections = [0, 4, 87, 88, 5000, HEADER + 32768, HEADER + 32768 + STATISTICS, HEADER + 32768 + STATISTICS + TABLE]
        second = len(chain) // 2
        for length in [*sections, *[second + section for section in sections], len(chain) - 1]:
            output, errors = self.report(self.write(chain[:length], "cut.log"), status=1 if length < HEADER else 0)
            if length < HEADER:
                self.assertRegex(errors, r"cut.log: at offset 0: .*88|no log header")
            elif length < len(chain) - 2 * RECORD:
                self.assertRegex(errors, "missing|[Cc]ut short|not finished|ends at")
                self.assertIn(b"Unfreed", output)

    def test_a_snapshot_that_was_not_finished_counts_what_is_there(self):
        layout = self.layout
        record = layout.record(MALLOC, ALLOCATED, 0x1000, 10)
        chain = layout.chain([(1, 1, [], []), (2, 2, [], [])]) + record
        document = self.json(self.write(chain, "x_autosnap.log"))
        self.assertEqual(document["unfreed"]["count"], 1)
        self.assertIn("The last snapshot was not finished: 1 whole records of it are there.", document["log"]["notes"])


class Damaged(ReportTest):
    # (offset of the field, its new value, what is said)
    FIELDS = [
        (0, b"ELF\0", r"offset 0: no log header"),
        (5, b"\3", r"offset 5: byte order 3"),
        (44, struct.pack("<I", 1 << 30), r"offset 44: thread table size"),
        (52, struct.pack("<I", 65), r"offset 52: trace depth 65"),
        (56, struct.pack("<I", 87), r"offset 56: maps offset"),
        (60, struct.pack("<I", 20), r"offset 60: statistics offset"),
        (64, struct.pack("<I", 1), r"offset 64: threads offset"),
        (68, struct.pack("<I", 0xFFFFFFFF), r"offset 68: records offset"),
        (84, struct.pack("<I", 88), r"offset 84: the next snapshot at 88 does not lie behind"),
    ]

    def test_a_damaged_header_is_told_with_its_offset(self):
        content = self.layout.chain([(1, 1, [], []), (2, 2, [], [])])
        for offset, value, message in self.FIELDS:
            damaged = content[:offset] + value + content[offset + len(value):]
            output, errors = self.report(self.write(damaged), status=1)
            self.assertEqual(output, b"")
            self.assertRegex(errors, message)

    def test_a_chain_that_leads_back_ends(self):
        content = bytearray(self.layout.chain([(1, 1, [], []), (2, 2, [], [])]))
        second = len(content) // 2
        content[second + 84:second + 88] = struct.pack("<I", second)
        self.assertIn(f"at offset {second + 84}", self.report(self.write(content), status=1)[1])

    def test_names_do_not_steer_the_terminal(self):
        name = "a\x1b[2J\rb\u00fc"
        maps = f"00008000-00009000 r-xp 00000000 00:00 1 /lib/\x1b[31mred\n"
        log = self.write(self.layout.log([self.layout.record(MALLOC, ALLOCATED, 0x1000, 10, [0x8011])], time=1, maps=maps,
                                         name=name, threads=[self.layout.thread(7, "t\x1b]0;x\x07")]))
        for verb in ([], ["leaks"], ["leaks", "--by", "module"], ["leaks", "--tree"], ["threads"], ["timeline"]):
            self.assertNotRegex(self.text(*verb, log), "[\0-\x09\x0b-\x1f\x7f]")
        self.assertIn("a?[2J?b\u00fc", self.text(log))
        self.assertEqual(self.json(log)["log"]["process"], name)

    def test_counts_and_records_that_cannot_be(self):
        layout = self.layout
        good = layout.record(MALLOC, ALLOCATED, 0x1000, 10)
        document = self.json(self.write(layout.log([good, *broken(good)], count=1000, time=1)))
        self.assertEqual(document["unfreed"]["count"], 1)
        self.assertEqual(document["log"]["notes"][:2],
                         ["Cut short: snapshot 1 counts 1000 records, 4 whole ones are there.", "3 damaged records were left out."])

    def test_what_is_no_file_is_refused(self):
        self.assertIn("not a regular file", self.report(self.folder, status=1)[1])
        self.assertIn("cannot be opened", self.report(self.folder / "none", status=1)[1])
        fifo = self.folder / "fifo_1_quarl.log"  # nobody writes to it
        os.mkfifo(fifo)
        self.assertIn("not a regular file", self.report(fifo, status=1)[1])


class FailOnLeak(ReportTest):
    def judged(self, content, name="a_quarlAll.log", status=4):
        errors = self.report("leaks", "--fail-on-leak", "1000", self.write(content, name), status=status)[1]
        self.assertEqual("--fail-on-leak cannot be answered, because the log is not whole" in errors, status == 4, errors)

    def test_only_a_whole_log_can_pass(self):
        layout = self.layout
        record = lambda i, **more: layout.record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 10, **more)
        records = [record(i) for i in range(5)]
        whole = layout.log(records, time=9)
        self.judged(whole, status=0)
        self.judged(layout.log([layout.record(MALLOC, ALLOCATED, 0x1000, 1001)]), status=3)  # too much is too much
        self.judged(b"", status=1)
        self.judged(layout.log())  # killed before it wrote anything, and after
        self.judged(layout.log(records))
        self.judged(whole[:-1])
        self.judged(whole[:100])
        self.judged(layout.log([*records, *broken(records[0])], time=9))
        self.judged(layout.log([record(0, seq=1), record(1, seq=3)], time=9))
        self.judged(layout.log([record(0, seq=2)], time=9))

    def test_only_a_whole_snapshot_can_pass(self):
        layout = self.layout
        records = [layout.record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 10) for i in range(5)]
        head = layout.record(MALLOC, SLOP_HEAD, 0x5000, 10)
        whole = layout.log(records, count=5, time=9)
        self.judged(whole, "a_quarl.log", status=0)
        self.judged(layout.log(time=9), "a_quarl.log", status=0)
        self.judged(layout.log(), "a_quarl.log")
        self.judged(whole[:-RECORD], "a_quarl.log")
        self.judged(layout.log(records, count=3, time=9), "a_quarl.log")
        self.judged(layout.log([*records[:4], head, records[4]], count=6, time=9), "a_quarl.log")
        self.judged(layout.bare_chain([5]), "a_autosnap.log")
        chain = layout.chain([(1, 50, records, []), (2, 50, records, [])])
        self.judged(chain, "a_autosnap.log", status=0)
        for cut in (1, 4 * RECORD, 6 * RECORD):
            self.judged(chain[:-cut], "a_autosnap.log")
        earlier, later = self.write(layout.log(records), "b_quarlAll.log"), self.write(layout.log(records, time=9), "c_quarlAll.log")
        self.assertIn("cannot be answered", self.report("diff", "--fail-on-leak", "0", earlier, later, status=4)[1])

    def test_faults_and_the_summary_say_what_is_missing(self):
        path = self.write(self.layout.log([self.layout.record(MALLOC, ALLOCATED, 0x1000, 10)])[:-9])
        for verb in ([], ["faults"]):
            self.assertRegex(self.text(*verb, path), r"Not whole +Cut short: the last record has 271 of its 280 bytes")
            self.assertIs(self.json(*verb, path)["log"]["whole"], False)


class Once(ReportTest):
    """Whatever is asked, the records of a log are read from the file once."""

    def assert_read_once(self, log, *arguments):
        share = self.bytes_read(*arguments, log) / log.stat().st_size
        self.assertTrue(0.9 < share < 1.2, f"{arguments}: {share:.2f} of the log")

    def test_a_record_log(self):
        # Without times, releases and a thread table: what looks for them goes on to the end.
        records = [self.layout.record(MALLOC, ALLOCATED, 0x1000 + 16 * i, 10, [0x10 + i % 50], time=0) for i in range(20000)]
        log = self.write(self.layout.log(records, time=9), "renamed.log")
        formats = {(): ("text", "json", "pprof", "html"), ("leaks",): ("json", "folded"), ("timeline",): ("csv", "json"),
                   ("threads",): ("csv", "json"), ("faults",): ("json",), ("events",): ("json",)}
        for verb, names in formats.items():
            for name in names:
                self.assert_read_once(log, *verb, "--format", name)
        self.assert_read_once(log, "--format", "sqlite", "-o", self.folder / "fleet.db")

    def test_a_chain(self):
        records = [self.layout.record(MALLOC, ALLOCATED, 0x1000 + 16 * i, 10, [0x10 + i % 50]) for i in range(8000)]
        log = self.write(self.layout.chain([(10 + i, 0, records[i:], []) for i in range(4)]), "a_autosnap.log")
        for arguments in (["timeline", "--format", "json"], ["--format", "html"], ["diff", "--format", "html", f"{log}@2"]):
            self.assert_read_once(log, *arguments)


class KilledInADump(ReportTest):
    def test_faults_behind_the_last_dump_are_told_and_are_no_leaks(self):
        layout = self.layout
        fault = layout.record(MALLOC, SLOP_TAIL, 0x9000, 500, [0x77], seq=9)
        now = layout.record(MMAP, ALLOCATED, 0x1000, 10)
        path = self.write(layout.log([now, fault, fault], count=1, time=3), "a_quarl.log")
        self.assertEqual(self.json("leaks", path)["unfreed"], {"bytes": 10, "count": 1})
        self.assertEqual(self.json("faults", path)["fault_count"], 1)
        self.assertIn("went on after the last dump", self.report("leaks", path)[1])

    def test_whole_records_of_a_dump_whose_header_was_not_written_are_read(self):
        records = [self.layout.record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 10) for i in range(700)]
        for header, told in (({"count": 10, "time": 3}, "it counts 10 records, 700 whole ones"),
                             ({"count": 0, "time": 3}, "it counts 0 records, 700 whole ones"), ({}, "it counts 0 records, 700 whole ones")):
            content = self.layout.log(records, **header) + records[0][:100]
            document = self.json(self.write(content, "a_quarl.log"))
            self.assertEqual((document["unfreed"]["count"], document["log"]["records"]), (700, 700))
            self.assertRegex(" ".join(document["log"]["notes"]), f"100 of its 280 bytes.*{told}")

    def test_a_snapshot_behind_the_chain_is_found(self):
        # With records, with a thread table alone, and with neither, cut off anywhere behind its header.
        record = self.layout.record(MALLOC, ALLOCATED, 0x1000, 10)
        detailed = self.layout.chain([(1, 1, [record], []), (2, 2, [record] * 5, [])])
        for chain, whole, cuts in ((detailed, 1, (HEADER, 40000, HEADER + 32768 + STATISTICS + TABLE, HEADER + 32768 + STATISTICS + TABLE + 3 * RECORD + 7)),
                                   (self.layout.bare_chain([1, 2]), 0, (HEADER, 20000, HEADER + 32768 + STATISTICS))):
            first = struct.unpack_from("<I", chain, 84)[0]
            for cut in cuts:
                content = bytearray(chain[:first + cut])
                content[84:88] = b"\0\0\0\0"  # the link is made last
                path = self.write(content, "renamed.log")
                document = self.json(path)
                self.assertEqual((document["log"]["snapshot"], document["log"]["kind"]), (1, "automatic-snapshot log"))
                self.assertEqual(document["unfreed"]["count"], whole)
                there = max(0, cut - (HEADER + 32768 + STATISTICS + TABLE)) // RECORD
                self.assertIn(f"Snapshot 2 was not finished: {there} whole records", " ".join(document["log"]["notes"]))
                self.assertEqual(self.json(f"{path}@2")["log"]["records"], there)


if __name__ == "__main__":
    unittest.main()
