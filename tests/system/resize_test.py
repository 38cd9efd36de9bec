# SPDX-License-Identifier: Apache-2.0
"""Resizes: the failed one that changes nothing, the one in place, and the one under shorter headers."""

import signal

import case
from header import read_header
from log_file import ALLOCATED, FAILED, RELEASED, read_log
from report_text import take_reports
from tables import statistics

TOO_MUCH = (0xF0000000, 0xFFFFFFF0)  # that nobody has, and with which the sum of all parts wraps


class Resizes(case.Case):
    def test_failed_resize_leaves_the_block_as_it_was(self):
        """On the list, whole, counted as held, and live in the log, with the trace that it was made with."""
        for size in TOO_MUCH:
            with self.subTest(size):
                driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_PRINT_PROFINFO=1 QUARL_SLOPOVER_EXIT=0")
                before, block = driver.malloc(30), driver.memalign(64, 40)
                behind = driver.malloc(50)
                driver.fill(block, 0x77, 40)
                header = read_header(driver, block)
                self.assertEqual(driver.realloc(block, size), 0)
                after = read_header(driver, block)
                self.assertEqual((after.trace, after.size, after.seq_num, driver.holds(block, 0x77, 40)),
                                 (header.trace, 40, header.seq_num, 1))
                self.assertEqual(driver.word(block + 40), 0xFEDABEEB)
                driver.do(f"raise {signal.SIGUSR1}")
                table = statistics(malloc=(2, 0, 80), memalign=(1, 0, 40), realloc=(1, 1, 0), size=120, peak=120)
                self.assertEqual(driver.out[: len(table)], table)
                said = len(driver.out)
                driver.fill(block + 40, 0, 1)
                driver.check()
                driver.read_some(0)
                reports, _ = take_reports(driver.out[said:])
                self.assertEqual([report.address for report in reports], [block])
                driver.set_word(block + 40, 0xFEDABEEB)
                for each in (behind, block, before):
                    driver.free(each)
                self.assertEqual(driver.finish(), 0)
                records = [record for record in read_log(self.log_path(driver, "quarlAll")).records if record.address in (block, 0)]
                self.assertEqual([record.brief() for record in records if record.kind in (ALLOCATED, RELEASED, FAILED)],
                                 [("memalign", ALLOCATED, 40, block), ("realloc release", RELEASED, 40, block),
                                  ("memalign", ALLOCATED, 40, block), ("realloc", FAILED, size, 0), ("free", RELEASED, 40, block)])
                made, _, again = records[:3]
                self.assertEqual((again.trace, again.seq_num, again.tid), (made.trace, made.seq_num, made.tid))

    def test_failed_resize_of_a_block_without_a_header(self):
        driver = self.driver("QUARL_MEM_HEAD=0")
        block = driver.malloc(40)
        driver.fill(block, 0x77, 40)
        for size in TOO_MUCH:
            self.assertEqual(driver.realloc(block, size), 0)
        self.assertEqual(driver.holds(block, 0x77, 40), 1)
        driver.free(block)
        self.assert_ends(driver)

    def test_failed_resize_of_a_block_without_a_trace(self):
        driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_HEAD_STACKDEPTH=0")
        block = driver.malloc(40)
        self.assertEqual(driver.realloc(block, TOO_MUCH[0]), 0)
        self.assert_ends(driver)
        records = read_log(self.log_path(driver, "quarlAll")).records
        self.assertEqual([(record.kind, record.depth, record.address) for record in records],
                         [(ALLOCATED, 0, block), (RELEASED, 0, block), (ALLOCATED, 0, block), (FAILED, 0, 0)])

    def test_resizes_in_place_are_counted_for_their_thread(self):
        driver = self.driver("QUARL_ALL=1 QUARL_PROF=1 QUARL_THREAD=1")
        worker = driver.spawn()
        block = worker.realloc(0, 100)
        in_place = moved = 0
        for size in (100, 96, 90, 90, 80, 4000, 3000, 8000, 50, 40, 70000, 60000, 30):
            resized = worker.realloc(block, size)
            in_place, moved = in_place + (resized == block), moved + (resized != block)
            block = resized
            worker.malloc(size)  # so that there is no room to grow
        self.assertEqual(driver.finish(), 0)
        counted = read_log(self.log_path(driver, "quarl")).threads[worker.tid]
        self.assertEqual((counted.in_place, in_place > 0, moved > 0), (in_place, True, True))
        self.assertEqual(counted.shrink, 8)

    def test_aligned_block_that_moves_gives_its_old_room_back(self):
        """More than the address space holds, one after the other."""
        driver = self.driver("")
        block = driver.memalign(256, 16)
        for _ in range(300):
            for size in (16 << 20, 16):
                block = driver.realloc(block, size)
                self.assertEqual((block % 256, block > 0), (0, True))
        driver.free(block)
        self.assert_ends(driver)

    def test_block_of_a_longer_header_stays_in_place(self):
        """Its trace is lengthened by zeros to the old length; the user's bytes need not move."""
        driver = self.driver("QUARL_HEAD_STACKDEPTH=6 QUARL_OUTPUT_LOG=1")
        block = driver.realloc(0, 200)
        driver.malloc(10)  # so that there is no room to grow
        driver.fill(block, 0x33, 200)
        old = read_header(driver, block).trace
        self.configure("QUARL_HEAD_TID=0 QUARL_HEAD_TIME=0")
        driver.do(f"raise {signal.SIGUSR1}")
        driver.free(0)
        driver.dlopen("nothing")  # leaves its words on the stack
        self.assertEqual(driver.realloc(block, 200), block)
        self.assertEqual(driver.holds(block, 0x33, 200), 1)
        header = read_header(driver, block)
        self.assertEqual((header.items(), header.trace), ("ICG", old + [0] * (len(header.trace) - len(old))))
        self.assertGreaterEqual(len(header.trace), len(old) + 2)
        driver.check()
        driver.free(block)
        self.assert_ends(driver)
        resized = [record for record in read_log(self.log_path(driver, "quarlAll")).records if record.brief()[0] == "realloc"]
        self.assertEqual(list(resized[-1].trace), header.trace)


if __name__ == "__main__":
    case.main()
