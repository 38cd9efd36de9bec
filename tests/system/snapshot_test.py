# SPDX-License-Identifier: Apache-2.0
"""Snapshots of unfreed memory: at exit, on the signal, while threads allocate; histogram, records and headers."""

import signal
import time

import case
from header import read_header
from log_file import ALLOCATED, SLOP_HEAD, SLOP_TAIL, read_log
from promise import promise
from report_text import take_reports
from tables import histogram


class Snapshot(case.Case):
    @promise("The last snapshot is written then, and the hooks are put back.")
    def test_exit_snapshot_lists_what_is_held(self):
        before = int(time.time())
        driver = self.driver("QUARL_PRINT_PROFINFO=1")
        sizes = [1, 99, 100, 999, 1000, 9999, 10000, 99999, 100000, 5000000]
        blocks = [driver.malloc(size) for size in sizes]
        headers = [read_header(driver, block) for block in blocks]
        mapping = driver.do("mmap 0 12288 3 34 -1 0")
        driver.free(driver.malloc(50))
        self.assertEqual(driver.finish(), 0)
        large = [record for record in read_log(self.log_path(driver, "quarl")).records if record.operation == 5]
        log = read_log(self.log_path(driver, "quarl"))
        self.assertTrue(driver.out.endswith(histogram(sizes[:-1] + [record.size for record in large])), driver.out)
        self.assertEqual([record.brief() for record in log.records[:10]],
                         [("malloc", ALLOCATED, size, block) for size, block in zip(sizes, blocks)])
        for record, header in zip(log.records, headers):
            self.assertEqual((record.tid, record.seq_num, list(record.trace)), (driver.pid, header.seq_num, header.trace))
        # the largest block lies in a mapping of its own, which is listed as one
        self.assertEqual(len(large), 2)
        self.assertIn((12288, mapping), [(record.size, record.address) for record in large])
        self.assertTrue(any(record.address < blocks[-1] and blocks[-1] + sizes[-1] <= record.address + record.size for record in large))
        self.assertEqual((log.record_count, log.number, log.next), (len(log.records), 1, 0))
        self.assertTrue(before <= log.time <= time.time())

    def test_large_blocks_without_mapping_records(self):
        driver = self.driver("QUARL_PRINT_PROFINFO=1 QUARL_MMAP=0")
        driver.malloc(200000)
        self.assertEqual(driver.finish(), 0)
        self.assertTrue(driver.out.endswith(histogram([200000])))
        log = read_log(self.log_path(driver, "quarl"))
        self.assertEqual(([record.size for record in log.records], log.stats.trace_mmap), ([200000], 0))

    def test_nothing_held(self):
        driver = self.driver("QUARL_PRINT_PROFINFO=1")
        driver.free(driver.malloc(10))
        self.assertEqual(driver.finish(), 0)
        self.assertTrue(driver.out.endswith(histogram([])))
        self.assertEqual(read_log(self.log_path(driver, "quarl")).records, [])

    def test_record_log_mode_prints_the_table_only(self):
        driver = self.driver("QUARL_PRINT_PROFINFO=1 QUARL_OUTPUT_LOG=1")
        driver.malloc(10)
        driver.malloc(20000)
        self.assertEqual(driver.finish(), 0)
        self.assertTrue(driver.out.endswith(histogram([10, 20000])))
        self.assertEqual(self.files(), [self.log_path(driver, "quarlAll").name])

    def test_later_snapshots_replace_earlier_ones(self):
        driver = self.driver("")
        path = self.log_path(driver, "quarl")
        blocks = [driver.malloc(size) for size in range(1, 251)]
        for kept in (250, 120, 0):
            for block in blocks[kept:]:
                driver.free(block)
            del blocks[kept:]
            driver.do(f"raise {signal.SIGUSR1}")
            log = read_log(path)
            self.assertEqual(log.record_count, kept)
            self.assertEqual([record.address for record in log.records[:kept]], blocks)
            self.assertEqual(log.stats.counts()["malloc"][0], 250)
        self.assert_ends(driver)

    def test_from_file_byte_is_that_of_each_record(self):
        """The records of blocks take the places that mappings of files had in the buffer."""
        (self.directory / "file").write_bytes(b"x" * 4096)
        for config, kind in (("", "quarl"), ("QUARL_HEAD_TID=0 QUARL_HEAD_TIME=0 QUARL_HEAD_STACKDEPTH=0", "quarl")):
            driver = self.driver(config)
            descriptor = driver.open("file", 0)
            driver.repeat(5, f"mmap 0 4096 1 2 {descriptor} 0")
            driver.do(f"raise {signal.SIGUSR1}")
            driver.repeat(5, "malloc 10")
            self.assert_ends(driver)
            records = read_log(self.log_path(driver, kind)).records
            self.assertEqual([record.from_file for record in records], [0] * 5 + [1] * 5)
            if config:
                self.assertEqual({(record.tid, record.time, record.seq_num, record.depth) for record in records[:5]}, {(0, 0, 0, 0)})

    def test_faults_met_on_the_way_are_reported_and_recorded(self):
        driver = self.driver("QUARL_SLOPOVER_EXIT=0")
        tail, sound, head, behind = (driver.malloc(size) for size in (10, 11, 12, 13))
        driver.fill(tail + 10, 0, 1)
        driver.set_word(head - 4, 0)
        driver.do(f"raise {signal.SIGUSR1}")
        driver.read_some(0)
        reports, rest = take_reports(driver.out)
        self.assertEqual(([report.address for report in reports], rest), ([tail, head], ""))
        log = read_log(self.log_path(driver, "quarl"))
        kinds = [(record.kind, record.address) for record in log.records[: log.record_count]]
        self.assertIn((SLOP_TAIL, tail), kinds)
        self.assertIn((ALLOCATED, sound), kinds)
        self.assertIn((SLOP_HEAD, head), kinds)
        self.assertNotIn(behind, [address for _, address in kinds])
        driver.kill()

    def test_snapshot_while_threads_allocate_is_consistent(self):
        driver = self.driver("QUARL_MMAP=0")
        workers = [driver.spawn() for _ in range(8)]
        fixed = [driver.malloc(size) for size in range(1000, 1050)]
        for worker in workers:
            worker.send("repeat 3000 realloc 0 100")
        path = self.log_path(driver, "quarl")
        for _ in range(5):
            driver.signal(signal.SIGUSR1)
        for worker in workers:
            driver.answer(worker.number)
        self.assert_ends(driver)
        log = read_log(path)
        self.assertEqual(log.record_count, len(log.records))
        self.assertEqual(len({record.address for record in log.records}), log.record_count)
        sequence = [record.seq_num for record in log.records]
        self.assertEqual(sequence, sorted(sequence))
        self.assertLessEqual(set(fixed), {record.address for record in log.records})
        by_size = [record for record in log.records if record.size == 100 and record.operation == 1]
        self.assertEqual(len(by_size), 8 * 3000)


if __name__ == "__main__":
    case.main()
