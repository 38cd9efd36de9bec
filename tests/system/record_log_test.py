# SPDX-License-Identifier: Apache-2.0
"""The record log: one record an operation, every field of it, when it is written, and what is left alone."""

import os
import signal
import time

import case
from header import read_header
from log_file import ALLOCATED, FAILED, RECORD, RELEASED, SLOP_HEAD, SLOP_TAIL, read_log
from promise import promise

LOG = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0 "
EMPTY = 88 + 32768 + 216 + 49600


class RecordLog(case.Case):
    def records(self, driver, status=0):
        self.assertEqual(driver.finish(), status)
        return read_log(self.log_path(driver, "quarlAll")).records

    def test_every_operation_leaves_its_records(self):
        driver = self.driver(LOG)
        a = driver.malloc(10)
        b = driver.calloc(3, 5)
        c = driver.realloc(a, 20)
        driver.free(b)
        driver.malloc(0xFFFFFFF0)
        driver.free(0)
        d = driver.memalign(128, 7)
        header = read_header(driver, d)
        driver.realloc(c, 0)
        driver.realloc(0, 0)
        m = driver.do("mmap 0 8192 3 34 -1 0")
        driver.munmap(m, 8192)
        driver.do("mmap 0 0 3 34 -1 0")
        driver.munmap(3, 100)
        records = self.records(driver)
        expected = [("malloc", ALLOCATED, 10, a), ("malloc", ALLOCATED, 15, b), ("realloc release", RELEASED, 10, a),
                    ("realloc", ALLOCATED, 20, c), ("free", RELEASED, 15, b), ("malloc", FAILED, 0xFFFFFFF0, 0),
                    ("free", FAILED, 0, 0), ("memalign", ALLOCATED, 7, d), ("realloc release", RELEASED, 20, c),
                    ("realloc", FAILED, 0, 0), ("mmap", ALLOCATED, 8192, m), ("munmap", RELEASED, 8192, m),
                    ("mmap", FAILED, 0, 0), ("munmap", FAILED, 100, 3)]
        self.assertEqual([record.brief() for record in records], expected)
        self.assertEqual([record.seq_num for record in records], list(range(1, len(expected) + 1)))
        self.assertEqual({(record.tid, record.time, record.from_file) for record in records}, {(driver.pid, 0, 0)})
        self.assertEqual(list(records[7].trace), header.trace)
        self.assertTrue(all(record.depth >= 2 for record in records))

    def test_fields_that_are_switched_off_are_zero(self):
        for item, field in (("QUARL_HEAD_TID", "tid"), ("QUARL_HEAD_TIME", "seq_num"), ("QUARL_HEAD_STACKDEPTH", "depth")):
            with self.subTest(item):
                driver = self.driver(LOG + item + "=0")
                block = driver.malloc(10)
                driver.free(driver.realloc(block, 30))
                driver.malloc(0)
                for record in self.records(driver):
                    found = {name: getattr(record, name) != 0 for name in ("tid", "seq_num", "depth")}
                    self.assertEqual(found, {name: name != field for name in found}, record)

    def test_header_maps_and_statistics(self):
        before = int(time.time())
        driver = self.driver(LOG + "QUARL_MAPS_SIZE=64 QUARL_ALL=1 QUARL_PROF=1 QUARL_THREAD=1")
        path = self.log_path(driver, "quarlAll")
        self.assertEqual(path.stat().st_size, EMPTY + 32768)
        self.assertEqual((read_log(path, 64).time, read_log(path, 64).records), (0, []))
        block = driver.malloc(1000)
        self.assertEqual(driver.finish(), 0)
        log = read_log(path, 64)
        self.assertEqual((log.name, log.pid, log.thread_flag), (self.target.process_name("driver"), driver.pid, 2))
        self.assertEqual((log.record_count, log.number, log.next), (0, 1, 0))
        self.assertTrue(before <= log.time <= time.time())
        self.assertEqual(log.stats.counts(), {"malloc": (1, 0, 1000)})
        self.assertEqual((log.stats.held, log.stats.peak, log.stats.trace_mmap), (1000, 1000, 1))
        self.assertEqual(log.threads[driver.pid].counts(), {"malloc": (1, 0, 1000)})
        self.assertEqual(log.module_of(log.records[0].trace[0])[0], str(self.target.library.resolve()))
        if not self.target.emulated:  # the emulator shows the maps as they were when they were opened
            self.assertIn(log.module_of(block)[0], ("[heap]", ""))

    def test_records_are_written_by_the_bufferful(self):
        cases = {"": 100, "QUARL_TRACE_BUFSIZE=2800": 10, "QUARL_TRACE_BUFSIZE=5000": 17, "QUARL_TRACE_BUFSIZE=1400": 100,
                 "QUARL_TRACE_BUFSIZE=279": 100, "QUARL_TRACE_BUFSIZE=560": 2}
        for config, capacity in cases.items():
            with self.subTest(config):
                driver = self.driver(LOG + config)
                path = self.log_path(driver, "quarlAll")
                sizes = []
                for _ in range(2 * capacity + 1):
                    driver.malloc(8)
                    sizes.append((path.stat().st_size - EMPTY) // RECORD)
                self.assertEqual(sizes[capacity - 2: capacity + 1], [0, capacity, capacity])
                self.assertEqual(sizes[2 * capacity - 2:], [capacity, 2 * capacity, 2 * capacity])
                self.assertEqual(len(self.records(driver)), 2 * capacity + 1)

    def test_signal_writes_what_is_buffered(self):
        driver = self.driver(LOG)
        driver.repeat(37, "malloc 10")
        driver.do(f"raise {signal.SIGUSR1}")
        log = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual((len(log.records), log.stats.counts(), log.record_count), (37, {"malloc": (37, 0, 370)}, 0))
        self.assertGreater(log.time, 0)
        driver.malloc(11)
        self.assertEqual([record.size for record in self.records(driver)], [10] * 37 + [11])

    def test_fault_record_is_written_at_once(self):
        driver = self.driver(LOG)
        tail, head = driver.malloc(10), driver.realloc(0, 20)
        driver.fill(tail + 10, 0, 1)
        driver.set_word(head - 4, 0)
        driver.check()
        records = read_log(self.log_path(driver, "quarlAll")).records
        self.assertEqual([record.brief() for record in records],
                         [("malloc", ALLOCATED, 10, tail), ("realloc", ALLOCATED, 20, head), ("malloc", SLOP_TAIL, 10, tail),
                          ("realloc", SLOP_HEAD, 20, head)])
        self.assertEqual([record.trace for record in records[:2]], [record.trace for record in records[2:]])
        driver.kill()

    @promise("A signal that ends the process in the middle of a flush may cut the last record short, and nothing before it"
             " is lost.")
    def test_killed_process_leaves_whole_records(self):
        """The kernel may stop a write between two pages."""
        for number in (signal.SIGKILL, signal.SIGTERM):
            with self.subTest(number):
                driver = self.driver(LOG + "QUARL_TRACE_BUFSIZE=280000")
                worker = driver.spawn()
                worker.send("repeat 10000000 malloc 1")
                path = self.log_path(driver, "quarlAll")
                driver.await_that(lambda: path.stat().st_size > EMPTY + 3000 * RECORD, "records")
                driver.popen.send_signal(number)
                self.assertEqual(driver.finish(), -number)
                sequence = [record.seq_num for record in read_log(path, torn=True).records]
                self.assertGreaterEqual(len(sequence), 3000)
                self.assertEqual(sequence, list(range(sequence[0], sequence[0] + len(sequence))))

    def test_existing_file_is_left_alone_or_replaced_as_configured(self):
        """The name holds the process id, so the file is made in the child that is about to become the program."""
        for overlay in (0, 1):
            with self.subTest(overlay):
                self.configure(LOG + f"QUARL_LOG_OVERLAY={overlay}")
                process = self.run_victim("deep_calls", before_start=self.occupy)
                self.assertEqual(process.finish(), 0)
                path = self.log_path(process, "quarlAll", program="deep_calls")
                self.assertEqual(path.read_bytes() == b"occupied", overlay == 0)

    def occupy(self):
        path = self.directory / f"{self.target.process_name('deep_calls')}_{os.getpid()}_quarlAll.log"
        path.write_bytes(b"occupied")


if __name__ == "__main__":
    case.main()
